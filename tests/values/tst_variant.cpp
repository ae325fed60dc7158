#include <database/decimal.h>
#include <database/values/datetime.h>
#include <database/values/variant.h>
#include <database/xdecimal.h>

#include "valuetest.h"

#include <QtCore/qdatetime.h>

#include <limits>

namespace
{

struct Foreign {
};

QVariant dec(const char *text)
{
    return decimal(QString(text)).toVariant();
}

QVariant xdec(const char *text)
{
    return xdecimal(text).toVariant();
}

QVariant when(const char *text)
{
    return QVariant::fromValue(datetime(QString(text)));
}

const QVariant kNaN = std::numeric_limits<double>::quiet_NaN();

} // namespace

Q_DECLARE_METATYPE(Foreign)

TEST(VariantOrder, followsTheFirstType)
{
    const struct {
        const char *name;
        QVariant a, b;
        int expected; // its sign
        Qt::CaseSensitivity cs = Qt::CaseSensitive;
    } rows[] = {
        {"invalid_first", QVariant(), 1, -1},
        {"invalid_second", 1, QVariant(), 1},
        {"ints", 1, 2, -1},
        {"int_and_text", 3, QString("2"), 1},
        {"int64_always_equal", Q_INT64_C(1), Q_INT64_C(2), 0},
        {"uint_always_equal", 1u, 2u, 0},
        {"bool_always_equal", true, false, 0},
        {"bytes_always_equal", QByteArray("a"), QByteArray("b"), 0},
        {"doubles", 2.5, 2.25, 1},
        {"nan_equals_all", kNaN, 1.0, 0},
        {"strings_by_case", QString("a"), QString("B"), 1},
        {"strings_without_case", QString("a"), QString("B"), -1, Qt::CaseInsensitive},
        {"chars_without_case", QChar('a'), QChar('B'), -1, Qt::CaseInsensitive},
        {"dates", QDate(2024, 1, 31), QDate(2024, 2, 1), -1},
        {"times", QTime(10, 0), QTime(9, 59), 1},
        {"date_times", QDateTime(QDate(2024, 1, 31), QTime(1, 0)),
         QDateTime(QDate(2024, 1, 31), QTime(1, 1)), -1},
        {"decimal_and_int", dec("1.5"), 2, -1},
        {"decimal_and_text", dec("1.5"), QString("1.4"), 1},
        {"decimal_and_bad_text_as_zero", dec("-1"), QString("x"), -1},
        {"decimal_and_overflow_as_zero", dec("1"), 1e300, 1},
        {"decimal_and_xdecimal", dec("1.5"), xdec("1.25"), 1},
        {"xdecimal_and_every_digit_of_a_decimal", xdec("720575940379279.33"),
         dec("720575940379279.33"), 0},
        {"xdecimal_and_overflow_as_zero", xdec("1"), 1e300, 1},
        {"int_and_decimal_by_int", 2, dec("1.5"), 1},
        {"datetimes", when("2024-01-31"), when("2024-01-31 00:00:01"), -1},
        {"datetime_and_text", when("2024-01-31"), QString("2024-01-30"), 1},
        {"datetime_and_bad_text_as_none", when("2024-01-31"), QString("never"), 1},
        {"other_user_types_always_equal", QVariant::fromValue(Foreign()), 5, 0},
    };
    for (const auto &[name, a, b, expected, cs] : rows) {
        const int order = variant_compare(a, b, cs);
        EXPECT_EQ((order > 0) - (order < 0), expected) << name;
    }
}

TEST(VariantConversion, givesTheRequestedType)
{
    const struct {
        const char *name;
        QVariant value, expected; // whose type is the requested one
    } rows[] = {
        {"text_to_char", QString("yes"), QChar('y')},
        {"int_to_char_by_text", 65, QChar('6')},
        {"empty_to_char", QString(""), QChar()},
        {"failure_is_null", QString("x"), QVariant(QVariant::Int)},
        {"decimal_to_text", dec("1.50"), QString("1.50")},
        {"decimal_to_text_through_double", dec("720575940379279.33"),
         QString("720575940379279.36")},
        {"xdecimal_to_char", xdec("-.5"), QChar('-')},
        {"datetime_to_text", when("2024-01-31"), QString("2024.01.31 00:00:00.000")},
        {"int_to_decimal", 5, dec("5.00000")},
        {"invalid_to_decimal", QVariant(), dec("")},
        {"xdecimal_to_decimal", xdec("12.340"), dec("12.340")},
        {"decimal_to_xdecimal", dec("720575940379279.33"), xdec("720575940379279.33")},
        {"text_to_datetime", QString("2024.01.31"), when("2024-01-31")},
        {"date_to_datetime", QDate(2024, 1, 31), when("2024-01-31")},
        {"bad_text_to_datetime", QString("31.01.2024"), when("")},
    };
    for (const auto &[name, value, expected] : rows) {
        const QVariant result = variant_convert(value, uint(expected.userType()));
        EXPECT_EQ(result.userType(), expected.userType()) << name;
        EXPECT_EQ(result.isNull(), expected.isNull()) << name;
        EXPECT_EQ(variant_convert(result, QMetaType::QString), // its places included
                  variant_convert(expected, QMetaType::QString))
            << name;
    }
}

TEST(VariantConversionFailure, isTheValueTypesOwn)
{
    EXPECT_THROW(variant_convert(when("2024-01-31"), uint(decimal::metatypeId())), QString);
    EXPECT_THROW(variant_convert(dec("1e-60"), uint(xdecimal::metatypeId())), QString);
    EXPECT_THROW(variant_convert(1e300, uint(xdecimal::metatypeId())), const char *);
}
