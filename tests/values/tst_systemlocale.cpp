#include <database/decimal.h>
#include <database/values/datetime.h>
#include <database/xdecimal.h>

#include "printing.h"
#include "support/systemlocale.h"

#include <gtest/gtest.h>
#include <QtCore/qstringlist.h>

#include <ctime>

TEST(SystemLocale, readsADecimalByPointThenSystemLocaleThenComma)
{
    const auto any = [](const char *locale, const char *text) {
        return textInSystemLocale(locale, [=] {
            bool ok = false;
            const decimal value = decimal::fromAnyString(QString::fromUtf8(text), &ok, 3);
            return value.toString() + (ok ? QString() : QStringLiteral(" failed"));
        });
    };
    EXPECT_EQ(any("en_US.UTF-8", "1,5"), QStringLiteral("1.5"));
    EXPECT_EQ(any("en_US.UTF-8", "1,500"), QStringLiteral("1500.000"));
    EXPECT_EQ(any("de_DE.UTF-8", "1.500"), QStringLiteral("1.500"));
    EXPECT_EQ(any("de_DE.UTF-8", "1.500,25"), QStringLiteral("1500.250"));
    EXPECT_EQ(any("de_DE.UTF-8", "1,5 EUR"), QStringLiteral("0 failed"));
    EXPECT_EQ(any("en_US.UTF-8", "-inf"), QStringLiteral("0 failed"));
}

TEST(SystemLocale, writesADecimal)
{
    const auto texts = [](const char *locale, const decimal &value) {
        return textInSystemLocale(locale, [=] {
            return QStringList{value.toSystemString(), value.toSystemStringShort(),
                               value.toExcelString()}
                .join('|');
        });
    };
    EXPECT_EQ(texts("de_DE.UTF-8", decimal(QString("-1234567.50"))),
              QStringLiteral("-1.234.567,50|-1.234.567,5|-1234567,50"));
    EXPECT_EQ(texts("ru_RU.UTF-8", decimal(QString("1000.00"))),
              QStringLiteral(u"1\u00A0000,00|1\u00A0000|1000,00"));
    EXPECT_EQ(texts("en_US.UTF-8", decimal(QString("3e-3"))), QStringLiteral("3,000|3,000|3000"));
    EXPECT_EQ(texts("en_US.UTF-8", decimal(QString("0.00"))), QStringLiteral("0.00|0|0.00"));
}

TEST(SystemLocale, writesTheShortDateWhereTheClockSkipsTheTime)
{
    const auto text = [](const char *locale, qint64 msecs) {
        return textInSystemLocale(locale, [=] {
            qputenv("TZ", "EST5EDT,M3.2.0,M11.1.0");
            tzset();
            return datetime(msecs).toSystemString();
        });
    };
    const qint64 skipped = datetime(QString("2024.03.10 02:30:00.005")).toMSecsSinceEpoch();
    EXPECT_EQ(text("de_DE.UTF-8", skipped), QStringLiteral("10.03.24 02:30:00.005"));
    EXPECT_EQ(text("ru_RU.UTF-8", skipped), QStringLiteral("10.03.2024 02:30:00.005"));
    EXPECT_EQ(text("de_DE.UTF-8", 0), QString());
}

TEST(SystemLocale, groupsEveryDigitOfAnXDecimal)
{
    const auto texts = [](const char *locale, const char *text) {
        return textInSystemLocale(locale, [=] {
            const xdecimal value(text);
            return QStringList{value.toSystemString(), value.toSystemStringShort(),
                               value.toExcelString()}
                .join('|');
        });
    };
    EXPECT_EQ(texts("de_DE.UTF-8", "-123456789012345678901.500"),
              QStringLiteral("-123.456.789.012.345.678.901,500|-123.456.789.012.345.678.901,5|"
                             "-123456789012345678901,500"));
    EXPECT_EQ(texts("en_US.UTF-8", "-100"), QStringLiteral("-100|-100|-100"));
    EXPECT_EQ(texts("en_US.UTF-8", "1000.0"), QStringLiteral("1,000.0|1,000|1000.0"));
}

TEST(SystemLocale, readsAnXDecimalByPointOrCommaThenSystemLocale)
{
    const auto any = [](const char *locale, const char *text) {
        return textInSystemLocale(locale, [=] {
            bool ok = false;
            const xdecimal value = xdecimal::fromAnyString(QString::fromUtf8(text), &ok);
            return value.toString() + (ok ? QString() : QStringLiteral(" failed"));
        });
    };
    EXPECT_EQ(any("en_US.UTF-8", "1,500"), QStringLiteral("1.500"));
    EXPECT_EQ(any("en_US.UTF-8", "1,234,500.25"), QStringLiteral("1234500.25"));
    EXPECT_EQ(any("de_DE.UTF-8", "1.234.500,25"), QStringLiteral("1234500.25"));
    EXPECT_EQ(any("en_US.UTF-8", "1,5e3"), QStringLiteral("1500"));
    EXPECT_EQ(any("de_DE.UTF-8", "1;5"), QStringLiteral("0 failed"));
}
