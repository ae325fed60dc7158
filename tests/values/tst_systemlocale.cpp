#include <database/decimal.h>
#include <database/tables/fieldvalue.h>
#include <database/values/datetime.h>
#include <database/xdecimal.h>

#include "support/systemlocale.h"
#include "valuetest.h"

#include <ctime>

namespace
{

/// What fromAnyString reads \p text as where the system locale is \p locale.
template<typename Number, typename... Scale>
QString readAny(const char *locale, const char *text, Scale... scale)
{
    return textInSystemLocale(locale, [=] {
        bool ok = false;
        const Number value = Number::fromAnyString(QString::fromUtf8(text), &ok, scale...);
        return value.toString() + (ok ? "" : " failed");
    });
}

/// The three texts for people of a number where the system locale is \p locale.
template<typename Number>
QString shown(const char *locale, const char *text)
{
    return textInSystemLocale(locale, [=] {
        const Number value{QString(text)};
        return value.toSystemString() + '|' + value.toSystemStringShort() + '|' +
               value.toExcelString();
    });
}

} // namespace

TEST(SystemLocale, readsADecimalByPointThenSystemLocaleThenComma)
{
    const auto any = [](const char *locale, const char *text) {
        return readAny<decimal>(locale, text, 3);
    };
    EXPECT_EQ(any("en_US.UTF-8", "1,5"), QString("1.5"));
    EXPECT_EQ(any("en_US.UTF-8", "1,500"), QString("1500.000"));
    EXPECT_EQ(any("de_DE.UTF-8", "1.500"), QString("1.500"));
    EXPECT_EQ(any("de_DE.UTF-8", "1.500,25"), QString("1500.250"));
    EXPECT_EQ(any("de_DE.UTF-8", "1,5 EUR"), QString("0 failed"));
    EXPECT_EQ(any("en_US.UTF-8", "-inf"), QString("0 failed"));
}

TEST(SystemLocale, readsAnXDecimalByPointOrCommaThenSystemLocale)
{
    EXPECT_EQ(readAny<xdecimal>("en_US.UTF-8", "1,500"), QString("1.500"));
    EXPECT_EQ(readAny<xdecimal>("en_US.UTF-8", "1,234,500.25"), QString("1234500.25"));
    EXPECT_EQ(readAny<xdecimal>("de_DE.UTF-8", "1.234.500,25"), QString("1234500.25"));
    EXPECT_EQ(readAny<xdecimal>("en_US.UTF-8", "1,5e3"), QString("1500"));
    EXPECT_EQ(readAny<xdecimal>("de_DE.UTF-8", "1;5"), QString("0 failed"));
}

TEST(SystemLocale, writesGroupsShortTextsAndPlainOnes)
{
    EXPECT_EQ(shown<decimal>("de_DE.UTF-8", "-1234567.50"),
              QString("-1.234.567,50|-1.234.567,5|-1234567,50"));
    EXPECT_EQ(shown<decimal>("ru_RU.UTF-8", "1000.00"),
              QStringLiteral(u"1\u00A0000,00|1\u00A0000|1000,00"));
    EXPECT_EQ(shown<decimal>("en_US.UTF-8", "3e-3"), QString("3,000|3,000|3000"));
    EXPECT_EQ(shown<decimal>("en_US.UTF-8", "0.00"), QString("0.00|0|0.00"));
    EXPECT_EQ(shown<xdecimal>("de_DE.UTF-8", "-123456789012345678901.500"),
              QString("-123.456.789.012.345.678.901,500|-123.456.789.012.345.678.901,5|"
                      "-123456789012345678901,500"));
    EXPECT_EQ(shown<xdecimal>("en_US.UTF-8", "-100"), QString("-100|-100|-100"));
    EXPECT_EQ(shown<xdecimal>("en_US.UTF-8", "1000.0"), QString("1,000.0|1,000|1000.0"));
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

TEST(FieldInTheSystemLocale, writesEveryType)
{
    const std::tuple<FieldType::Type, const char *, const char *> cases[] = {
        {FieldType::Integer, "-1234567", "-1.234.567"},
        {FieldType::Integer64, "9876543210", "9.876.543.210"},
        {FieldType::Double, "1234.56789", "1.234,57"},
        {FieldType::Decimal, "1234.50", "1.234,50"},
        {FieldType::VarChar, "1234.5", "1234.5"},
        {FieldType::DateTime, "2024-03-10 02:30:00", "10.03.24 02:30:00.000"},
        {FieldType::XDecimal, "1234.50", "1.234,50"},
    };
    for (const auto &[type, text, german] : cases) {
        FieldValue value(type, 10, true);
        value.fromText(text);
        const auto written = [&value] { return value.toSystemString(); };
        EXPECT_EQ(textInSystemLocale("de_DE.UTF-8", written), german);
    }
}
