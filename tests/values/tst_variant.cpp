#include <database/decimal.h>
#include <database/values/datetime.h>
#include <database/values/variant.h>
#include <database/xdecimal.h>

#include "printing.h"

#include <gtest/gtest.h>
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

struct Ordering {
    const char *name;
    QVariant a, b;
    int expected; // its sign
    Qt::CaseSensitivity cs = Qt::CaseSensitive;
};

class VariantOrder : public ::testing::TestWithParam<Ordering>
{
};

TEST_P(VariantOrder, followsTheFirstType)
{
    const Ordering &row = GetParam();
    const int order = variant_compare(row.a, row.b, row.cs);
    EXPECT_EQ((order > 0) - (order < 0), row.expected);
}

const auto caseName = [](const auto &info) { return std::string(info.param.name); };

INSTANTIATE_TEST_SUITE_P(
    Variants, VariantOrder,
    ::testing::Values(
        Ordering{"both_invalid", QVariant(), QVariant(), 0},
        Ordering{"invalid_first", QVariant(), 1, -1}, Ordering{"invalid_second", 1, QVariant(), 1},
        Ordering{"ints", 1, 2, -1}, Ordering{"int_and_text", 3, QString("2"), 1},
        Ordering{"int64_always_equal", Q_INT64_C(1), Q_INT64_C(2), 0},
        Ordering{"uint_always_equal", 1u, 2u, 0}, Ordering{"bool_always_equal", true, false, 0},
        Ordering{"bytes_always_equal", QByteArray("a"), QByteArray("b"), 0},
        Ordering{"doubles", 2.5, 2.25, 1}, Ordering{"nan_equals_all", kNaN, 1.0, 0},
        Ordering{"strings_by_case", QString("a"), QString("B"), 1},
        Ordering{"strings_without_case", QString("a"), QString("B"), -1, Qt::CaseInsensitive},
        Ordering{"chars_by_case", QChar('a'), QChar('B'), 1},
        Ordering{"chars_without_case", QChar('a'), QChar('B'), -1, Qt::CaseInsensitive},
        Ordering{"dates", QDate(2024, 1, 31), QDate(2024, 2, 1), -1},
        Ordering{"times", QTime(10, 0), QTime(9, 59), 1},
        Ordering{"date_times", QDateTime(QDate(2024, 1, 31), QTime(1, 0)),
                 QDateTime(QDate(2024, 1, 31), QTime(1, 1)), -1},
        Ordering{"decimals_across_scales", dec("1.50"), dec("1.5"), 0},
        Ordering{"decimal_and_int", dec("1.5"), 2, -1},
        Ordering{"decimal_and_text", dec("1.5"), QString("1.4"), 1},
        Ordering{"decimal_and_bad_text_as_zero", dec("-1"), QString("x"), -1},
        Ordering{"decimal_and_overflow_as_zero", dec("1"), 1e300, 1},
        Ordering{"decimal_and_xdecimal", dec("1.5"), xdec("1.25"), 1},
        Ordering{"xdecimal_and_every_digit_of_a_decimal", xdec("720575940379279.33"),
                 dec("720575940379279.33"), 0},
        Ordering{"xdecimal_and_overflow_as_zero", xdec("1"), 1e300, 1},
        Ordering{"int_and_decimal_by_int", 2, dec("1.5"), 1},
        Ordering{"datetimes", when("2024-01-31"), when("2024-01-31 00:00:01"), -1},
        Ordering{"datetime_and_text", when("2024-01-31"), QString("2024-01-30"), 1},
        Ordering{"datetime_and_bad_text_as_none", when("2024-01-31"), QString("never"), 1},
        Ordering{"other_user_types_always_equal", QVariant::fromValue(Foreign()), 5, 0}),
    caseName);

struct Conversion {
    const char *name;
    QVariant value;
    int type;
    QVariant expected;
};

class VariantConversion : public ::testing::TestWithParam<Conversion>
{
};

TEST_P(VariantConversion, givesTheRequestedType)
{
    const Conversion &row = GetParam();
    const QVariant result = variant_convert(row.value, uint(row.type));
    EXPECT_EQ(result.userType(), row.type);
    EXPECT_EQ(result.isNull(), row.expected.isNull());
    if (row.type == decimal::metatypeId()) {
        EXPECT_EQ(result.value<decimal>().word(), row.expected.value<decimal>().word());
    } else if (row.type == xdecimal::metatypeId()) {
        EXPECT_EQ(result.value<xdecimal>().toString(), row.expected.value<xdecimal>().toString());
    } else if (row.type == datetime::metatypeId()) {
        EXPECT_EQ(result.value<datetime>(), row.expected.value<datetime>());
    } else {
        EXPECT_EQ(result, row.expected);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Variants, VariantConversion,
    ::testing::Values(
        Conversion{"int_to_text", 5, QMetaType::QString, QString("5")},
        Conversion{"text_to_char", QString("yes"), QMetaType::QChar, QChar('y')},
        Conversion{"int_to_char_by_text", 65, QMetaType::QChar, QChar('6')},
        Conversion{"empty_to_char", QString(""), QMetaType::QChar, QChar()},
        Conversion{"failure_is_null", QString("x"), QMetaType::Int, QVariant(QVariant::Int)},
        Conversion{"decimal_to_text", dec("1.50"), QMetaType::QString, QString("1.50")},
        Conversion{"decimal_to_text_through_double", dec("720575940379279.33"), QMetaType::QString,
                   QString("720575940379279.36")},
        Conversion{"decimal_to_double", dec("1.50"), QMetaType::Double, 1.5},
        Conversion{"xdecimal_to_char", xdec("-.5"), QMetaType::QChar, QChar('-')},
        Conversion{"datetime_to_text", when("2024-01-31"), QMetaType::QString,
                   QString("2024.01.31 00:00:00.000")},
        Conversion{"int_to_decimal", 5, decimal::metatypeId(), dec("5.00000")},
        Conversion{"invalid_to_decimal", QVariant(), decimal::metatypeId(), dec("")},
        Conversion{"xdecimal_to_decimal", xdec("12.340"), decimal::metatypeId(), dec("12.340")},
        Conversion{"decimal_to_xdecimal", dec("720575940379279.33"), xdecimal::metatypeId(),
                   xdec("720575940379279.33")},
        Conversion{"text_to_datetime", QString("2024.01.31"), datetime::metatypeId(),
                   when("2024-01-31")},
        Conversion{"date_to_datetime", QDate(2024, 1, 31), datetime::metatypeId(),
                   when("2024-01-31")},
        Conversion{"bad_text_to_datetime", QString("31.01.2024"), datetime::metatypeId(), when("")},
        Conversion{"decimal_to_datetime", dec("20240131"), datetime::metatypeId(), when("")}),
    caseName);

TEST(VariantConversionFailure, isTheValueTypesOwn)
{
    EXPECT_THROW(variant_convert(when("2024-01-31"), uint(decimal::metatypeId())), QString);
    EXPECT_THROW(variant_convert(dec("1e-60"), uint(xdecimal::metatypeId())), QString);
    EXPECT_THROW(variant_convert(1e300, uint(xdecimal::metatypeId())), const char *);
}
