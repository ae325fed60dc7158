#include <database/decimal.h>
#include <database/values/boardlist.h>
#include <database/values/checksum.h>
#include <database/values/datetime.h>
#include <database/values/fuzzycompare.h>
#include <database/values/variant.h>
#include <database/xdecimal.h>

#include "valuetest.h"

#include <QtCore/qdatetime.h>

#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>
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
        {"decimal_and_a_larger_double", dec("1"), 1e300, -1},
        {"mixed_with_nan", std::nan(""), 1, 0},
        {"mixed_integers", 2u, Q_INT64_C(1), 1},
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

/// All pairs, against the order of the groups: equal within one, less than all groups behind.
TEST(VariantOrder, isTotalOverAllNumberTypesAndExact)
{
    const qint64 kMax = std::numeric_limits<qint64>::max();
    const QVariant nullXDecimal = [] {
        xdecimal value;
        const_cast<uchar *>(value.data())[2] = 101;
        return value.toVariant();
    }();
    const QVector<QVector<QVariant>> groups = {
        {QVariant()},
        {std::nan(""), nullXDecimal},
        {-HUGE_VAL},
        {-1e300},
        {xdecimal::minimum().toVariant()},
        {qlonglong(-kMax - 1), double(-kMax - 1), xdec("-9223372036854775808")},
        {-1, dec("-1.00"), QVariant::fromValue(short(-1))},
        {0, 0.0, -0.0, false, dec("0.00"), xdec("0"), 0u, QVariant::fromValue(0.0f)},
        {5e-324},
        {dec("0.09")},
        {0.1, dec("0.1"), xdec("0.100")},
        {0.1000001},
        {true, 1, 1u, 1.0, dec("1"), QVariant::fromValue(uchar(1))},
        {12, xdec("12")},
        {dec("12.4")},
        {12.5, dec("12.50"), xdec("12.5"), QVariant::fromValue(12.5f)},
        {13, QVariant::fromValue(13L)},
        {Q_INT64_C(1000000000000), dec("1000000000000"), 1e12, Q_UINT64_C(1000000000000)},
        {Q_INT64_C(9007199254740992), 9007199254740992.0},
        {Q_INT64_C(9007199254740993), dec("9007199254740993"), xdec("9007199254740993")},
        {Q_INT64_C(9007199254740994), 9007199254740994.0},
        {dec("123456789012345678")}, // whose last digit there is no room for
        {Q_INT64_C(123456789012345678)},
        {kMax, xdec("9223372036854775807")},
        {quint64(kMax) + 1, double(kMax)},
        {quint64(kMax) + 2},
        {std::numeric_limits<quint64>::max()},
        {18446744073709551616.0, xdec("18446744073709551616")},
        {xdec("18446744073709551616.5")},
        {decimal::fromParts(1, -64).toVariant(), 1e64},
        {xdecimal::maximum().toVariant()},
        {1e300},
        {HUGE_VAL},
    };
    for (int i = 0; i < groups.size(); ++i) {
        for (int k = 0; k < groups.size(); ++k) {
            for (const QVariant &a : groups.at(i)) {
                for (const QVariant &b : groups.at(k)) {
                    ASSERT_EQ(compareVariants(a, b), (i > k) - (i < k))
                        << a.typeName() << ' ' << a.toString().toStdString() << " and "
                        << b.typeName() << ' ' << b.toString().toStdString();
                    if (a.userType() == b.userType() || i == 1 || k == 1)
                        continue; // as before
                    ASSERT_EQ(variant_compare(a, b, Qt::CaseSensitive), (i > k) - (i < k))
                        << a.typeName() << " and " << b.typeName();
                }
            }
        }
    }
    EXPECT_LT(compareVariants(QString("a"), QString("B"), Qt::CaseInsensitive), 0);
}

QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED // the framework means to give its < up
TEST(VariantOrder, ofTheFrameworkFindsNoFractionEqualToAnInteger)
{
    for (const QVariant &middle : {dec("12.50"), xdec("12.5")}) {
        for (const QVariant &less : {QVariant(12), QVariant(Q_INT64_C(12)), QVariant(12u)}) {
            EXPECT_TRUE(less < middle && middle > less && less != middle && middle != less);
        }
        for (const QVariant &more : {QVariant(13), QVariant(Q_UINT64_C(13)), QVariant(12.6)}) {
            EXPECT_TRUE(middle < more && more > middle && more != middle && middle != more);
        }
        EXPECT_TRUE(middle == QVariant(12.5) && QVariant(12.5) == middle);
        const QVariant most = std::numeric_limits<quint64>::max(); // beyond a decimal's digits
        EXPECT_TRUE(middle < most && most > middle && most != middle && middle != most);
    }
    EXPECT_TRUE(dec("12.00") == QVariant(12) && QVariant(12) == dec("12.00"));
    EXPECT_TRUE(dec("1000000000000") == QVariant(Q_INT64_C(1000000000000)));
}
QT_WARNING_POP

TEST(VariantConversion, reachesTheNumberTypes)
{
    for (const auto &make : {dec, xdec}) {
        bool ok = false;
        EXPECT_EQ(make("12.5").toDouble(), 12.5);
        EXPECT_EQ(make("-7.00").toInt(&ok), -7);
        EXPECT_TRUE(ok);
        EXPECT_EQ(make("12.5").toInt(&ok), 0) << "which is no integer";
        EXPECT_FALSE(ok);
        EXPECT_EQ(make("2147483648").toInt(&ok), 0);
        EXPECT_FALSE(ok);
        EXPECT_EQ(make("-1").toUInt(&ok), 0u);
        EXPECT_FALSE(ok);
        EXPECT_EQ(make("72057594037927935").value<std::int64_t>(), 72057594037927935);
        EXPECT_TRUE(make("0.01").toBool());
        EXPECT_EQ(make("0.25").toFloat(), 0.25f);
    }
    EXPECT_EQ(QVariant(Q_INT64_C(1000000000000)).value<decimal>(), decimal(QString("1e-12")));
    const auto toDecimal = [](const QVariant &value) {
        return variant_convert(value, uint(decimal::metatypeId())).value<decimal>().toString();
    };
    EXPECT_EQ(toDecimal(Q_INT64_C(-1000000000000)), "-1000000000000.0000");
    EXPECT_EQ(toDecimal(Q_UINT64_C(18446744073709551000)), "18446744073709551000");
    EXPECT_EQ(thrownBy([&] { toDecimal(Q_INT64_C(123456789012345678)); }), "decimal:overflow");
}

// A DateTime cell as a variant, and what a view makes of it.
TEST(VariantConversion, givesTheClockReadingOfADateInAnyTimeZone)
{
    const uint type = uint(datetime::metatypeId());
    for (const char *zone : {"UTC", "EST5EDT,M3.2.0,M11.1.0", "XXX-14"}) {
        SCOPED_TRACE(zone);
        qputenv("TZ", zone);
        tzset();
        for (const char *text : {"2024-01-31", "2024.03.10 02:30:00.005", "1969-12-31 23:59:59"}) {
            const datetime expected = when(text).value<datetime>();
            const QVariant cell = expected.toQDateTime();
            EXPECT_EQ(variant_convert(cell, type).value<datetime>(), expected) << text;
            EXPECT_EQ(cell.value<datetime>(), expected) << text;
            EXPECT_EQ(when(text).toDateTime(), cell.toDateTime()) << text;
            EXPECT_EQ(variant_compare(when(text), cell, Qt::CaseSensitive), 0) << text;
            EXPECT_EQ(variant_compare(cell, when(text), Qt::CaseSensitive), 0) << text;
        }
        const QVariant local = QDateTime(QDate(2024, 1, 31), QTime(12, 0), Qt::LocalTime);
        EXPECT_EQ(variant_convert(local, type), when("2024-01-31 12:00:00"));
        EXPECT_EQ(variant_convert(QDate(2024, 1, 31), type), when("2024-01-31"));
        EXPECT_EQ(variant_convert(QDateTime(), type), when(""));
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
