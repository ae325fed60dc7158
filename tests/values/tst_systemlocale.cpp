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

TEST(SystemLocale, readsADecimalByPointThenTheLocaleAndAnXDecimalByCommaToo)
{
    EXPECT_EQ(readAny<decimal>("en_US.UTF-8", "1,500", 3), QString("1500.000"));
    EXPECT_EQ(readAny<decimal>("de_DE.UTF-8", "1.500", 3), QString("1.500"));
    EXPECT_EQ(readAny<decimal>("de_DE.UTF-8", "1.500,25", 3), QString("1500.250"));
    EXPECT_EQ(readAny<decimal>("de_DE.UTF-8", "1,5 EUR", 3), QString("0 failed"));
    EXPECT_EQ(readAny<xdecimal>("en_US.UTF-8", "1,500"), QString("1.500"));
    EXPECT_EQ(readAny<xdecimal>("de_DE.UTF-8", "1.234.500,25"), QString("1234500.25"));
}

TEST(SystemLocale, writesGroupsShortTextsAndPlainOnes)
{
    EXPECT_EQ(shown<decimal>("de_DE.UTF-8", "-1234567.50"),
              QString("-1.234.567,50|-1.234.567,5|-1234567,50"));
    EXPECT_EQ(shown<decimal>("ru_RU.UTF-8", "1000.00"),
              QStringLiteral(u"1\u00A0000,00|1\u00A0000|1000,00"));
    EXPECT_EQ(shown<decimal>("en_US.UTF-8", "3e-3"), QString("3,000|3,000|3000"));
    EXPECT_EQ(shown<xdecimal>("de_DE.UTF-8", "-123456789012345678901.500"),
              QString("-123.456.789.012.345.678.901,500|-123.456.789.012.345.678.901,5|"
                      "-123456789012345678901,500"));
}

TEST(SystemLocale, writesTheShortDateWhereTheClockSkipsTheTime)
{
    const QString text = textInSystemLocale("de_DE.UTF-8", [] {
        qputenv("TZ", "EST5EDT,M3.2.0,M11.1.0");
        tzset();
        return datetime(QString("2024.03.10 02:30:00.005")).toSystemString();
    });
    EXPECT_EQ(text, QStringLiteral("10.03.24 02:30:00.005"));
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
