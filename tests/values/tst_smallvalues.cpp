#include <database/decimal.h>
#include <database/values/boardlist.h>
#include <database/values/checksum.h>
#include <database/values/datetime.h>
#include <database/values/fuzzycompare.h>
#include <database/values/variant.h>
#include <database/xdecimal.h>

#include "valuetest.h"

#include <cmath>
#include <string>

namespace
{

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

} // namespace

TEST(VariantOrder, followsTheFirstType)
{
    const struct {
        const char *name;
        QVariant a, b;
        int expected; // its sign
        Qt::CaseSensitivity cs = Qt::CaseSensitive;
    } rows[] = {
        {"invalid_first", QVariant(), 1, -1},
        {"int64_always_equal", Q_INT64_C(1), Q_INT64_C(2), 0},
        {"uint_always_equal", 1u, 2u, 0},
        {"bool_always_equal", true, false, 0},
        {"nan_equals_all", std::nan(""), 1.0, 0},
        {"strings_without_case", QString("a"), QString("B"), -1, Qt::CaseInsensitive},
        {"decimal_and_text", dec("1.5"), QString("1.4"), 1},
        {"decimal_and_bad_text_as_zero", dec("-1"), QString("x"), -1},
        {"decimal_and_overflow_as_zero", dec("1"), 1e300, 1},
        {"xdecimal_and_every_digit_of_a_decimal", xdec("720575940379279.33"),
         dec("720575940379279.33"), 0},
        {"int_and_decimal_by_int", 2, dec("1.5"), 1},
        {"datetime_and_bad_text_as_none", when("2024-01-31"), QString("never"), 1},
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
        {"int_to_char_by_text", 65, QChar('6')},
        {"failure_is_null", QString("x"), QVariant(QVariant::Int)},
        {"decimal_to_text_through_double", dec("720575940379279.33"),
         QString("720575940379279.36")},
        {"int_to_decimal", 5, dec("5.00000")},
        {"decimal_to_xdecimal", dec("720575940379279.33"), xdec("720575940379279.33")},
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

TEST(BoardList, sortsKeysAndValuesAsTexts)
{
    boardlist list;
    for (const auto &[key, value] : {std::pair{2, 30}, {1, 5}, {2, 4}, {10, -7}, {-1, 0}, {2, 30}})
        ASSERT_TRUE(list.append(key, value));
    EXPECT_EQ(list.toString(), QStringLiteral("-1:0 10:-7 1:5 2:30,30,4"));
}

TEST(Checksum, agreesWithTheBitwiseDefinitionAtEveryLengthAndOffset)
{
    EXPECT_EQ(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A)); // published

    std::string bytes(80, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = char(7 * i * i + 93);
    for (size_t begin = 0; begin < 9; ++begin) {
        quint64 crc = ~quint64(0);
        for (size_t length = 1; length <= 70; ++length) {
            crc ^= quint64(uchar(bytes[begin + length - 1])) << 56;
            for (int bit = 0; bit < 8; ++bit)
                crc = crc >> 63 ? (crc << 1) ^ Q_UINT64_C(0x42F0E1EBA9EA3693) : crc << 1;
            ASSERT_EQ(qChecksum64(bytes.data() + begin, uint(length)), ~crc)
                << "begin " << begin << ", length " << length;
        }
    }
}

TEST(FuzzyCompare, comparesTwelveDigits)
{
    const double nan = std::nan("");
    const struct {
        const char *name;
        double a, b;
        bool equal;
    } rows[] = {{"below_zero_limit", 0, 1e-13, true},    {"at_zero_limit", -1e-12, 1e-12, true},
                {"above_zero_limit", 0, 1e-11, false},   {"thirteenth_digit", 1, 1 + 1e-13, true},
                {"eleventh_digit", 1, 1 + 1e-11, false}, {"nan", nan, nan, false}};
    for (const auto &[name, a, b, equal] : rows) {
        EXPECT_EQ(commonFuzzyCompare(a, b), equal) << name;
        EXPECT_EQ(commonFuzzyCompare(b, a), equal) << name;
    }
}
