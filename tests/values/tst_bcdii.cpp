#include "values/bcdiimodel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

using namespace bcdiimodel;

namespace
{

constexpr qint64 kMin = std::numeric_limits<qint64>::min();
constexpr qint64 kMax = std::numeric_limits<qint64>::max();

std::string text(const Bytes &digits, BCDIIType type)
{
    const std::unique_ptr<char, decltype(&std::free)> owned(
        BCDII2StringSequence(digits.data(), type, nullptr), &std::free);
    return owned.get();
}

/// A self-describing number in exactly the memory it needs.
Bytes selfDescribing(const std::string &value, BCDIIType type)
{
    Bytes bytes = number(value, type);
    const quint16 word = quint16(type);
    bytes.insert(bytes.begin(), sizeof word, 0);
    std::memcpy(bytes.data(), &word, sizeof word);
    return bytes;
}

/// First part of a table's row; what a failure prints of it.
struct Named {
    const char *name;

    friend std::ostream &operator<<(std::ostream &out, const Named &row) { return out << row.name; }
};

template<typename Case>
std::string caseName(const ::testing::TestParamInfo<Case> &info)
{
    return info.param.name;
}

} // namespace

struct Layout : Named {
    BCDIIType type;
    Bytes maximum;
};

class BcdiiLayout : public ::testing::TestWithParam<Layout>
{
};

TEST_P(BcdiiLayout, alignsPairsOnThePointAndChecksEveryByte)
{
    const BCDIIType type = GetParam().type;
    const Bytes &maximum = GetParam().maximum;
    Bytes bytes(BCDIILength(type));
    BCDIISetMax(bytes.data(), type);
    EXPECT_EQ(bytes, maximum);
    EXPECT_EQ(BCDIICheck(bytes.data(), type), 0u);
    for (uchar &byte : bytes) {
        const uchar kept = byte++; // one above nines is malformed in every place
        EXPECT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED) << int(kept);
        byte = kept;
    }
    EXPECT_EQ(BCDIINeg(bytes.data(), type), BCDII_NEGATIVE);
    Bytes minimum(bytes.size());
    BCDIISetMin(minimum.data(), type);
    EXPECT_EQ(bytes, minimum);
    EXPECT_EQ(BCDIICheck(bytes.data(), type), BCDII_NEGATIVE);
    EXPECT_EQ(BCDIINeg(bytes.data(), type), 0u);
    EXPECT_EQ(bytes, maximum);

    std::fill(bytes.begin(), bytes.end(), 0);
    EXPECT_EQ(BCDIICheck(bytes.data(), type), BCDII_ZERO);
    EXPECT_EQ(BCDIINeg(bytes.data(), type), BCDII_ZERO);
    EXPECT_EQ(bytes, Bytes(bytes.size(), 0));
    bytes[0] = 0x80; // negative zero
    EXPECT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED);
    BCDIIInit(bytes.data(), type);
    EXPECT_EQ(BCDIICheck(bytes.data(), type), 0xA0u);
    EXPECT_EQ(BCDIINeg(bytes.data(), type), 0xB0u);
    EXPECT_EQ(bytes[0], 101);
}

INSTANTIATE_TEST_SUITE_P(Bcdii, BcdiiLayout,
                         ::testing::Values(Layout{"even_even", typeOf(4, 2), {99, 99}},
                                           Layout{"odd_odd", typeOf(5, 3), {99, 99, 90}},
                                           Layout{"odd_scale_one", typeOf(3, 1), {99, 90}},
                                           Layout{"odd_whole", typeOf(4, 1), {9, 99, 90}},
                                           Layout{"single_tenth", typeOf(1, 1), {90}},
                                           Layout{"single_unit", typeOf(1, 0), {9}},
                                           Layout{"negative_odd_scale", typeOf(3, -1), {99, 90}},
                                           Layout{"negative_even_scale", typeOf(3, -2), {9, 99}},
                                           Layout{"all_behind_the_point", typeOf(3, 6), {9, 99}},
                                           Layout{"widest", typeOf(63, 62),
                                                  [] {
                                                      Bytes all(32, 99);
                                                      all[0] = 9;
                                                      return all;
                                                  }()}),
                         caseName<Layout>);

TEST(BcdiiTypeTest, acceptsPrecisionsTo63AndScalesTo62)
{
    for (int precision = 0; precision < 256; ++precision)
        for (int scale = -128; scale < 128; ++scale) {
            const bool valid = precision >= 1 && precision <= 63 && scale >= -62 && scale <= 62;
            ASSERT_EQ(BCDIICheckType(typeOf(precision, scale)), valid) << precision << ' ' << scale;
            if (!valid) {
                const uchar none = 0;
                ASSERT_EQ(BCDIICheck(&none, typeOf(precision, scale)), BCDII_MALFORMED);
            }
        }
}

struct Copied : Named {
    const char *from;
    BCDIIType fromType;
    int style;
    const char *to;
    BCDIIType toType;
    quint32 status;
};

class BcdiiCopy : public ::testing::TestWithParam<Copied>
{
};

TEST_P(BcdiiCopy, rounds)
{
    const Copied &c = GetParam();
    const Bytes src = number(c.from, c.fromType);
    Bytes dst(BCDIILength(c.toType));
    const quint32 status = BCDIICopy(dst.data(), c.toType, src.data(), c.fromType, c.style);
    EXPECT_EQ(result(status, dst), result(c.status, number(c.to, c.toType)));
}

// The random test covers the rules; these pin the values that are promised by name.
INSTANTIATE_TEST_SUITE_P(
    Bcdii, BcdiiCopy,
    ::testing::Values(
        Copied{"half_up", "2.345", typeOf(4, 3), 0, "2.35", typeOf(3, 2), 0x40},
        Copied{"down", "2.345", typeOf(4, 3), 4, "2.34", typeOf(3, 2), 0x40},
        Copied{"floor", "-2.345", typeOf(4, 3), 2, "-2.35", typeOf(3, 2), 0x44},
        Copied{"only_the_first_digit", "2.3449", typeOf(5, 4), 0, "2.34", typeOf(3, 2), 0x40},
        Copied{"too_large", "123.456", typeOf(6, 3), 0, "NULL", typeOf(4, 2), 0x11},
        Copied{"carry_out", "99.95", typeOf(4, 2), 0, "NULL", typeOf(3, 1), 0x51},
        Copied{"null", "NULL", typeOf(4, 2), 0, "NULL", typeOf(26, 2), 0xB0},
        Copied{"positive_zero", "-0.004", typeOf(4, 3), 0, "0", typeOf(3, 2), 0x42},
        Copied{"up_to_one_unit", "0.001", typeOf(4, 3), 3, "0.01", typeOf(3, 2), 0x40},
        Copied{"whole_half_not_to_one", "0.6", typeOf(2, 1), 0, "NULL", typeOf(3, 0), 0x11},
        Copied{"whole_up_not_to_one", "-0.1", typeOf(2, 1), 3, "NULL", typeOf(3, 0), 0x11},
        Copied{"whole_ceil_not_to_one", "0.1", typeOf(2, 1), 1, "NULL", typeOf(3, 0), 0x15},
        Copied{"whole_floor_not_to_one", "-7", typeOf(2, 1), 2, "NULL", typeOf(3, -1), 0x15},
        Copied{"whole_below_half", "-0.4", typeOf(2, 1), 0, "0", typeOf(3, 0), 0x42},
        Copied{"whole_and_more", "1.6", typeOf(2, 1), 0, "2", typeOf(3, 0), 0x40},
        Copied{"negative_scales", "149e60", typeOf(3, -60), 0, "1e62", typeOf(2, -62), 0x40},
        Copied{"far_below", "1e-62", typeOf(1, 62), 3, "NULL", typeOf(63, -62), 0x11}),
    caseName<Copied>);

TEST(BcdiiOverlapTest, copyReadsTheSourceBeforeItWritesWhereverTheyOverlap)
{
    const BCDIIType srcType = typeOf(63, 31);
    const Bytes src =
        number("-12345678901234567890123456789012.1234567890123456789012345678901", srcType);
    for (const BCDIIType dstType : {srcType, typeOf(63, 30), typeOf(34, 2), typeOf(63, 13)}) {
        Bytes apart(BCDIILength(dstType));
        const quint32 status =
            BCDIICopy(apart.data(), dstType, src.data(), srcType, BCDII_ROUND_HALF_UP);
        for (int at = 0; at <= 64; ++at) {
            Bytes memory(96);
            std::copy(src.begin(), src.end(), memory.begin() + 32);
            ASSERT_EQ(BCDIICopy(&memory[size_t(at)], dstType, &memory[32], srcType, 0), status);
            ASSERT_TRUE(std::equal(apart.begin(), apart.end(), memory.begin() + at)) << at;
        }
    }
}

TEST(BcdiiNullTest, anyNullOperandMakesTheResultNull)
{
    const BCDIIType type = typeOf(26, 2);
    const Bytes null = number("NULL", type);
    const Bytes one = number("1", type);
    Bytes dst = one;
    EXPECT_EQ(BCDIIAdd(dst.data(), type, null.data(), type, one.data(), type, 0), 0xB0u);
    EXPECT_EQ(dst[0], 101);
    dst = one;
    EXPECT_EQ(BCDIIMul(dst.data(), type, one.data(), type, null.data(), type, 0), 0xB0u);
    EXPECT_EQ(dst[0], 101);
    EXPECT_EQ(BCDIICmp(null.data(), type, one.data(), type), 1); // the marker is a pair of 101
    qint64 whole = 5;
    double real = 5;
    EXPECT_EQ(BCDII2Int64(&whole, null.data(), type, 0, 0), 0xB0u);
    EXPECT_EQ(BCDII2Double(&real, null.data(), type), 0xB0u);
    EXPECT_EQ(whole, 5);
    EXPECT_EQ(real, 5);
    EXPECT_EQ(text(null, type), "NULL");
}

struct Whole : Named {
    qint64 value;
    int scale;
    const char *digits;
    BCDIIType type;
    quint32 into, back;
    qint64 again;
};

class BcdiiInteger : public ::testing::TestWithParam<Whole>
{
};

TEST_P(BcdiiInteger, convertsBothWays)
{
    const Whole &c = GetParam();
    Bytes dst(BCDIILength(c.type));
    const quint32 into = BCDIIGetFromInt64(dst.data(), c.type, c.value, c.scale);
    ASSERT_EQ(result(into, dst), result(c.into, number(c.digits, c.type)));
    qint64 again = 77;
    EXPECT_EQ(BCDII2Int64(&again, dst.data(), c.type, c.scale, BCDII_ROUND_HALF_UP), c.back);
    EXPECT_EQ(again, c.again);
}

INSTANTIATE_TEST_SUITE_P(
    Bcdii, BcdiiInteger,
    ::testing::Values(Whole{"zero", 0, 3, "0", typeOf(9, 2), 0x02, 0x02, 0},
                      Whole{"smallest", kMin, 0, "-9223372036854775808", typeOf(19, 0), 4, 4, kMin},
                      Whole{"largest_odd_scale", kMax, 1, "922337203685477580.7", typeOf(26, 3), 0,
                            0, kMax},
                      Whole{"smallest_negative_scale", kMin, -3, "-9223372036854775808e3",
                            typeOf(26, 0), 4, 4, kMin},
                      Whole{"truncated", -12345, 3, "-12.34", typeOf(4, 2), 0x44, 4, -12340},
                      Whole{"truncated_to_zero", -9, 3, "0", typeOf(4, 2), 0x42, 0x02, 0},
                      Whole{"too_large", -12345, 2, "NULL", typeOf(4, 2), 0x11, 0xB0, 77}),
    caseName<Whole>);

TEST(BcdiiIntegerTest, leavesTheOutputAloneOutsideTheRange)
{
    const BCDIIType type = typeOf(26, 1);
    const auto convert = [type](const char *value, int scale, int style, quint32 *status) {
        qint64 out = 77;
        *status = BCDII2Int64(&out, number(value, type).data(), type, scale, style);
        return out;
    };
    quint32 status;
    EXPECT_EQ(convert("9223372036854775807.4", 0, BCDII_ROUND_HALF_UP, &status), kMax);
    EXPECT_EQ(status, 0x40u);
    EXPECT_EQ(convert("-9223372036854775808.4", 0, BCDII_ROUND_HALF_UP, &status), kMin);
    EXPECT_EQ(status, 0x44u);
    EXPECT_EQ(convert("9223372036854775807.5", 0, BCDII_ROUND_HALF_UP, &status), 77);
    EXPECT_EQ(status, 0x11u);
    EXPECT_EQ(convert("-9223372036854775808.1", 0, BCDII_ROUND_FLOOR, &status), 77);
    EXPECT_EQ(status, 0x11u);
    EXPECT_EQ(convert("1000000000000000000", 1, BCDII_ROUND_DOWN, &status), 77);
    EXPECT_EQ(status, 0x11u);
    EXPECT_EQ(convert("-26.5", -1, BCDII_ROUND_HALF_UP, &status), -3);
    EXPECT_EQ(status, 0x44u);

    Bytes bytes(BCDIILength(typeOf(20, 0)));
    EXPECT_EQ(BCDIIGetFromUInt64(bytes.data(), typeOf(20, 0), ~quint64(0), 0), 0u);
    EXPECT_EQ(text(bytes, typeOf(20, 0)), "18446744073709551615");
}

struct Real : Named {
    double value;
    const char *digits;
    BCDIIType type;
    quint32 status;
};

class BcdiiDouble : public ::testing::TestWithParam<Real>
{
};

TEST_P(BcdiiDouble, isStoredRoundedHalfUp)
{
    const Real &c = GetParam();
    Bytes dst(BCDIILength(c.type), 0xEE);
    const quint32 status = BCDIIGetFromDouble(dst.data(), c.value, c.type);
    EXPECT_EQ(result(status, dst), result(c.status, number(c.digits, c.type)));
}

INSTANTIATE_TEST_SUITE_P(
    Bcdii, BcdiiDouble,
    ::testing::Values(
        Real{"rounds_up", 0.125, "0.13", typeOf(4, 2), 0},
        Real{"rounds_down", -12.344, "-12.34", typeOf(4, 2), 4},
        Real{"odd_scale", 99.9, "99.9", typeOf(3, 1), 0},
        Real{"odd_whole", -999.95, "-999.95", typeOf(5, 2), 4},
        Real{"negative_scale", 1251, "13e2", typeOf(3, -2), 0},
        Real{"small_is_zero", -0.001, "0", typeOf(4, 2), 2},
        Real{"does_not_fit", 1e20, "NULL", typeOf(10, 0), 0x11},
        Real{"carries_out", 99.995, "NULL", typeOf(4, 2), 0x11},
        Real{"first_beyond_2_53", 9007199254740994.0, "9007199254740994", typeOf(16, 0), 0},
        // Double arithmetic gives the digits behind the 16th; see the next test.
        Real{"2_65", -36893488147419103232.0, "-36893488147419104032", typeOf(21, 0), 4},
        Real{"10_63", 1e63, "NULL", typeOf(63, 0), 0x11},
        Real{"infinite", -HUGE_VAL, "NULL", typeOf(63, 0), 0x11},
        Real{"infinite_when_scaled", 1e300, "NULL", typeOf(63, 62), 0x11},
        Real{"not_a_number", std::nan(""), "0", typeOf(26, 3), 0}),
    caseName<Real>);

// Peeled digits differ from those that the double stands for only where it holds none any more.
TEST(BcdiiDoubleTest, readsBackWhatALargeDoubleStored)
{
    for (const BCDIIType type : {typeOf(63, 0), typeOf(63, 1), typeOf(62, 0), typeOf(62, 1)}) {
        for (int power = 53; power < 200; ++power) {
            const double value = -std::ldexp(1 + 1.0 / 3, power);
            Bytes dst(BCDIILength(type), 0xEE);
            ASSERT_EQ(BCDIIGetFromDouble(dst.data(), value, type), 4u) << power;
            ASSERT_EQ(BCDIICheck(dst.data(), type), 4u) << power;
            double out = 0;
            BCDII2Double(&out, dst.data(), type);
            // Two roundings on the way back, of the accumulation and the division.
            EXPECT_NEAR(out / value, 1, 4e-16) << power << ' ' << type;
        }
    }
}

TEST(BcdiiDoubleTest, isTheNumberDividedByItsPowerOfTen)
{
    const auto real = [](const char *value, BCDIIType type, quint32 status) {
        double out = -1;
        EXPECT_EQ(BCDII2Double(&out, number(value, type).data(), type), status) << value;
        return out;
    };
    EXPECT_EQ(real("0", typeOf(5, 3), 0x02), 0.0);
    EXPECT_EQ(real("-12.345", typeOf(5, 3), 0x04), -123450 / 1e4);
    EXPECT_EQ(real("13e62", typeOf(3, -62), 0), 13e62);
    EXPECT_EQ(real("25e-62", typeOf(3, 62), 0), 25 / 1e62);
    EXPECT_EQ(real("90071992547409920", typeOf(26, -1), 0), 90071992547409920.0);
}

TEST(BcdiiTextTest, writesEveryFractionDigitAndNoLeadingZero)
{
    const auto written = [](const char *value, BCDIIType type) {
        return text(number(value, type), type);
    };
    EXPECT_EQ(written("0", typeOf(4, 2)), ".00");
    EXPECT_EQ(written("0", typeOf(4, 0)), "");
    EXPECT_EQ(written("0", typeOf(4, -3)), "");
    EXPECT_EQ(written("7", typeOf(4, 0)), "7");
    EXPECT_EQ(written("-0.5", typeOf(2, 1)), "-.5");
    EXPECT_EQ(written("1050.5", typeOf(9, 3)), "1050.500");
    EXPECT_EQ(written("-12e3", typeOf(4, -3)), "-12000");
    EXPECT_EQ(written("0.00012", typeOf(2, 5)), ".00012");
    EXPECT_EQ(written("9e124", typeOf(63, -62)), "9" + std::string(124, '0'));
    char *previous = BCDII2StringSequence(number("1", typeOf(4, 0)).data(), typeOf(4, 0), nullptr);
    previous = BCDII2StringSequence(number("12", typeOf(4, 0)).data(), typeOf(4, 0), previous);
    EXPECT_STREQ(previous, "12");
    std::free(previous);
}

struct Parsed : Named {
    std::string text;
    const char *digits;
    BCDIIType before, after;
    quint32 status;
};

class BcdiiParse : public ::testing::TestWithParam<Parsed>
{
};

TEST_P(BcdiiParse, takesTheScaleFromTheText)
{
    const Parsed &c = GetParam();
    BCDIIType type = c.before;
    Bytes dst(BCDIILength(c.after), 0xEE);
    const quint32 status = BCDIIFromString(dst.data(), &type, c.text.c_str());
    EXPECT_EQ(type, c.after);
    EXPECT_EQ(result(status, dst), result(c.status, number(c.digits, c.after)));
}

const size_t kMegabyte = 1 << 20;

INSTANTIATE_TEST_SUITE_P(
    Bcdii, BcdiiParse,
    ::testing::Values(
        Parsed{"blanks_sign_comma", "  +007,50", "7.50", typeOf(10, 0), typeOf(10, 2), 0},
        Parsed{"trailing_text", "\t\r\n-1.5.7e9", "-1.5", typeOf(26, 2), typeOf(26, 1), 4},
        Parsed{"no_whole_digits", "-.0625", "-0.0625", typeOf(26, 0), typeOf(26, 4), 4},
        Parsed{"zeros_only", "-000", "0", typeOf(9, 3), typeOf(9, 0), 2},
        Parsed{"zero_fraction", "-0.00", "0", typeOf(9, 0), typeOf(9, 2), 2},
        Parsed{"letters", "abc", "NULL", typeOf(9, 3), typeOf(9, 3), 0x30},
        Parsed{"sign_and_point", "-.", "NULL", typeOf(9, 3), typeOf(9, 3), 0x30},
        Parsed{"empty", "", "NULL", typeOf(9, 3), typeOf(9, 3), 0x30},
        Parsed{"too_many_whole", "1234567", "NULL", typeOf(9, 3), typeOf(9, 3), 0x11},
        Parsed{"too_many_in_all", "123456.7890", "NULL", typeOf(9, 3), typeOf(9, 4), 0x11},
        Parsed{"scale_beyond_precision", "0.0000000012", "0.0000000012", typeOf(3, 10),
               typeOf(3, 10), 0},
        Parsed{"widest", std::string(63, '9') + "e",
               "999999999999999999999999999999999999999999999"
               "999999999999999999",
               typeOf(63, 0), typeOf(63, 0), 0},
        Parsed{"fraction_rounded_at_62", "." + std::string(61, '0') + "15", "2e-62", typeOf(26, 0),
               typeOf(26, 62), 0x40},
        Parsed{"long_zeros", "0." + std::string(61, '0') + "1" + std::string(kMegabyte, '0'),
               "1e-62", typeOf(26, 0), typeOf(26, 62), 0},
        Parsed{"long_and_lost", "0." + std::string(kMegabyte, '0') + "1", "0", typeOf(26, 0),
               typeOf(26, 62), 0x42},
        Parsed{"long_whole", std::string(kMegabyte, '0') + std::string(kMegabyte, '1'), "NULL",
               typeOf(63, -62), typeOf(63, -62), 0x11}),
    caseName<Parsed>);

TEST(BcdiiSelfDescribingTest, carriesItsTypeInFrontOfTheDigits)
{
    const BCDIIType type = typeOf(26, -2);
    alignas(quint16) uchar cell[16];
    BCDIIInit(reinterpret_cast<quint16 *>(cell), type);
    EXPECT_EQ(BCDIIGetType(cell), type);
    EXPECT_EQ(BCDIICheck(cell), 0xA0u);
    BCDIISetZero(cell);
    EXPECT_EQ(BCDIICheck(cell), BCDII_ZERO);

    Bytes sum = selfDescribing("0", typeOf(26, 3));
    const Bytes a = selfDescribing("12.34", typeOf(5, 2));
    const Bytes b = selfDescribing("-0.015", typeOf(4, 3));
    EXPECT_EQ(BCDIIAdd(sum.data(), a.data(), b.data()), 0u);
    EXPECT_EQ(sum, selfDescribing("12.325", typeOf(26, 3)));
    EXPECT_EQ(BCDIIMul(sum.data(), a.data(), b.data()), 0x44u);
    EXPECT_EQ(sum, selfDescribing("-0.185", typeOf(26, 3)));
    EXPECT_EQ(BCDIICopy(sum.data(), a.data()), 0u);
    EXPECT_EQ(BCDIICmp(sum.data(), a.data()), 0);
    EXPECT_EQ(BCDIICmp(b.data(), a.data()), -1);
    EXPECT_EQ(BCDIINeg(sum.data()), BCDII_NEGATIVE);
    qint64 whole;
    EXPECT_EQ(BCDII2Int64(&whole, sum.data(), 1), 0x44u);
    EXPECT_EQ(whole, -123);
    double real;
    EXPECT_EQ(BCDII2Double(&real, sum.data()), 0x04u);
    EXPECT_EQ(real, -12.34);
    EXPECT_EQ(BCDIIGetFromInt64(sum.data(), -5, 1), 0x04u);
    EXPECT_EQ(sum, selfDescribing("-0.5", typeOf(26, 3)));
    EXPECT_EQ(BCDIIGetFromDouble(sum.data(), 2.0625), 0u);
    EXPECT_EQ(sum, selfDescribing("2.063", typeOf(26, 3)));
}

TEST(BcdiiSelfDescribingTest, parsingTellsWhetherTheResultIsExact)
{
    for (const auto &[input, exact] : {std::pair<std::string, bool>{"-7,5", true},
                                       {"0", true},
                                       {"x", false},
                                       {"1234567", false},
                                       {"." + std::string(62, '0') + "1", false}}) {
        Bytes dst = selfDescribing("0", typeOf(6, 1));
        bool ok = !exact;
        BCDIIFromString(dst.data(), input.c_str(), &ok);
        EXPECT_EQ(ok, exact) << input;
    }
    Bytes dst = selfDescribing("0", typeOf(6, 0));
    dst.push_back(0xEE); // room for the odd scale
    EXPECT_EQ(BCDIIFromString(dst.data(), "-7,5"), 0x04u);
    EXPECT_EQ(dst, selfDescribing("-7.5", typeOf(6, 1)));
}

TEST(BcdiiMalformedTest, bytesOutOfRangeStayInsideTheirMemory)
{
    // What the sanitizers watch: every byte value, in every width class, through every operation.
    for (const BCDIIType type : {typeOf(5, 3), typeOf(26, 1), typeOf(63, 62), typeOf(63, -62)}) {
        for (int fill = 0; fill < 256; ++fill) {
            Bytes bytes(BCDIILength(type), uchar(fill));
            bytes[0] &= 0x8F;
            Bytes dst(bytes.size());
            for (int style = 0; style < 5; ++style) {
                BCDIIAdd(dst.data(), type, bytes.data(), type, bytes.data(), type, style);
                BCDIIMul(dst.data(), type, bytes.data(), type, bytes.data(), type, style);
                BCDIICopy(dst.data(), type, bytes.data(), type, style);
            }
            qint64 whole;
            BCDII2Int64(&whole, bytes.data(), type, 0, BCDII_ROUND_DOWN);
            EXPECT_LE(text(bytes, type).size(), 128u);
            if (fill > 99) {
                EXPECT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED) << fill;
            }
        }
    }
}
