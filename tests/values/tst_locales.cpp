#include <database/decimal.h>
#include <database/tables/fieldvalue.h>
#include <database/xdecimal.h>

#include "valuetest.h"

#include <QtCore/qlocale.h>

namespace
{

QList<QLocale> allLocales()
{
    return QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry);
}

} // namespace

TEST(Locales, readEveryTextThatIsWrittenInThem)
{
    const std::pair<FieldType::Type, QStringList> values[] = {
        {FieldType::Integer, {"0", "-7", "-2147483648", "1234567"}},
        {FieldType::Integer64, {"-12", "123456", "-9223372036854775808"}},
        {FieldType::Double, {"0.5", "-123456", "1.25e-09", "-2.5e+30"}},
        {FieldType::Decimal,
         {"0", "-0.5", "999.00", "1000.10", "99999.9", "-100000.25", "1234567.89", "10000000",
          "-1234567890.12345"}},
        {FieldType::XDecimal,
         {"0.00", "-1.50", "1234.5", "123456", "-1234567.89", "12345678901234567890123.456"}},
        {FieldType::DateTime,
         {"2024.02.09 13:04:05.007", "1970.01.01 00:00:00.001", "2069.12.31 23:59:59.999"}},
        {FieldType::VarChar, {"1.234,5"}},
    };
    const QList<QLocale> locales = allLocales();
    ASSERT_GT(locales.size(), 500);
    for (const QLocale &locale : locales) {
        for (const auto &[type, texts] : values) {
            for (const QString &text : texts) {
                FieldValue cell(type, 30, true);
                cell.fromText(text);
                const QString shown = cell.toLocaleString(locale);
                SCOPED_TRACE(locale.name().toStdString() + ": " + text.toStdString() + " as " +
                             shown.toStdString());
                FieldValue back(type, 30, true);
                ASSERT_NO_THROW(back.setLocaleString(shown, locale));
                ASSERT_EQ(back.toString(), text);
                QString read = text;
                if (type == FieldType::Decimal) {
                    const int places = decimal(text).scale();
                    read = decimal::fromLocaleString(shown, locale, places).toString();
                } else if (type == FieldType::XDecimal) {
                    read = xdecimal::fromLocaleString(shown, locale).toString();
                }
                ASSERT_EQ(read, text);
            }
        }
    }
}

TEST(Locales, refuseWhatIsNoTextInThem)
{
    const struct {
        const char *locale, *text;
        FieldType::Type type;
    } rows[] = {
        {"en_US", "1,23,456", FieldType::Decimal},
        {"en_IN", "1,23,45", FieldType::Decimal},
        {"en_IN", "1,2345", FieldType::XDecimal},
        {"en_IN", "1,23,456,789", FieldType::XDecimal},
        {"en_IN", ",123", FieldType::Double},
        {"de_DE", "1.5.2", FieldType::Double},
        {"en_US", "3,000,000,000", FieldType::Integer},
        {"en_US", "2/30/24 01:02:03.004", FieldType::DateTime},
        {"en_US", "2/3/24 01:02", FieldType::DateTime},
        {"de_DE", "31.1.", FieldType::DateTime},
    };
    for (const auto &[name, text, type] : rows) {
        FieldValue cell(type, 4, true);
        EXPECT_ANY_THROW(cell.setLocaleString(text, QLocale(name))) << name << ' ' << text;
        EXPECT_TRUE(cell.isNull());
    }
    FieldValue day(FieldType::DateTime, 0, true);
    day.setLocaleString("1/31/69", QLocale("en_US"));
    EXPECT_EQ(day.toString(), "2069.01.31 00:00:00.000");
    EXPECT_EQ(thrownBy([] { decimal::fromLocaleString("1,23,456", QLocale("en_US"), 2); }),
              "Error in input local string '1,23,456'");
}
