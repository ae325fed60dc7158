#include "values/bcdiimodel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
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

} // namespace

TEST(BcdiiLayout, alignsPairsOnThePointAndChecksEveryByteOfEveryType)
{
    for (int word = 0; word < 0x10000; ++word) {
        const auto type = BCDIIType(word);
        const int digits = qint8(word >> 8);
        const bool valid =
            digits >= 1 && digits <= 63 && scaleOf(type) >= -62 && scaleOf(type) < 63;
        ASSERT_EQ(BCDIICheckType(type), valid) << word;
        if (!valid) {
            const uchar none = 0;
            ASSERT_EQ(BCDIICheck(&none, type), BCDII_MALFORMED) << word;
            continue;
        }
        SCOPED_TRACE(word);
        const Bytes maximum = encode(powerOfTen(digits) - 1, type);
        Bytes bytes(BCDIILength(type));
        BCDIISetMax(bytes.data(), type);
        ASSERT_EQ(bytes, maximum);
        ASSERT_EQ(BCDIICheck(bytes.data(), type), 0u);
        for (uchar &byte : bytes) {
            const uchar kept = byte++; // one above nines is malformed in every place
            ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED) << int(kept);
            byte = kept;
        }
        if (scaleOf(type) & 1) {
            bytes.back() -= 1; // the last byte holds tens only
            ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED);
            bytes.back() += 1;
        }
        ASSERT_EQ(BCDIINeg(bytes.data(), type), BCDII_NEGATIVE);
        Bytes minimum(bytes.size());
        BCDIISetMin(minimum.data(), type);
        ASSERT_EQ(bytes, minimum);
        ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_NEGATIVE);
        ASSERT_EQ(BCDIINeg(bytes.data(), type), 0u);
        ASSERT_EQ(bytes, maximum);

        bytes.assign(bytes.size(), 0);
        ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_ZERO);
        ASSERT_EQ(BCDIINeg(bytes.data(), type), BCDII_ZERO);
        ASSERT_EQ(bytes, Bytes(bytes.size(), 0));
        bytes[0] = 0x80; // negative zero
        ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED);
        BCDIIInit(bytes.data(), type);
        ASSERT_EQ(BCDIICheck(bytes.data(), type), 0xA0u);
        ASSERT_EQ(BCDIINeg(bytes.data(), type), 0xB0u);
        ASSERT_EQ(bytes[0], 101);
    }
    EXPECT_EQ(number("-12.345", typeOf(5, 3)), (Bytes{0x8C, 34, 50})); // the model's own layout
}

TEST(BcdiiCopy, readsTheSourceBeforeItWritesWhereverTheyOverlap)
{
    const BCDIIType srcType = typeOf(63, 31);
    const Bytes src =
        number("-12345678901234567890123456789012.1234567890123456789012345678901", srcType);
    for (const BCDIIType dstType : {srcType, typeOf(63, 30), typeOf(34, 2), typeOf(63, 13)}) {
        Bytes apart(BCDIILength(dstType));
        const quint32 status = BCDIICopy(apart.data(), dstType, src.data(), srcType, 0);
        for (int at = 0; at <= 64; ++at) {
            Bytes memory(96);
            std::copy(src.begin(), src.end(), memory.begin() + 32);
            ASSERT_EQ(BCDIICopy(&memory[size_t(at)], dstType, &memory[32], srcType, 0), status);
            ASSERT_TRUE(std::equal(apart.begin(), apart.end(), memory.begin() + at)) << at;
        }
    }
}

TEST(BcdiiNull, anyNullOperandMakesTheResultNull)
{
    const BCDIIType type = typeOf(26, 2);
    const Bytes null = number("NULL", type);
    const Bytes one = number("1", type);
    for (const auto &[a, b] : {std::pair{null, one}, {one, null}}) {
        Bytes dst = one;
        EXPECT_EQ(BCDIIAdd(dst.data(), type, a.data(), type, b.data(), type, 0), 0xB0u);
        EXPECT_EQ(dst[0], 101);
        dst = one;
        EXPECT_EQ(BCDIIMul(dst.data(), type, a.data(), type, b.data(), type, 0), 0xB0u);
        EXPECT_EQ(dst[0], 101);
    }
    Bytes copy = one;
    EXPECT_EQ(BCDIICopy(copy.data(), type, null.data(), type, 0), 0xB0u);
    EXPECT_EQ(copy[0], 101);
    EXPECT_EQ(BCDIICmp(null.data(), type, one.data(), type), 1); // the marker is a pair of 101
    qint64 whole = 5;
    double real = 5;
    EXPECT_EQ(BCDII2Int64(&whole, null.data(), type, 0, 0), 0xB0u);
    EXPECT_EQ(BCDII2Double(&real, null.data(), type), 0xB0u);
    EXPECT_EQ(whole, 5);
    EXPECT_EQ(real, 5);
    EXPECT_EQ(text(null, type), "NULL");
}

TEST(BcdiiInteger, isReadRoundedOrLeftAloneOutsideTheRange)
{
    const struct {
        const char *digits;
        int scale, style;
        qint64 expected;
        quint32 status;
    } rows[] = {
        {"0", 3, BCDII_ROUND_UP, 0, 0x02},
        {"9223372036854775807.4", 0, BCDII_ROUND_HALF_UP, kMax, 0x40},
        {"-9223372036854775808.4", 0, BCDII_ROUND_HALF_UP, kMin, 0x44},
        {"9223372036854775807.5", 0, BCDII_ROUND_HALF_UP, 77, 0x11},
        {"-9223372036854775808.1", 0, BCDII_ROUND_FLOOR, 77, 0x11},
        {"-922337203685477580.8", 1, BCDII_ROUND_DOWN, kMin, 0x04},
        {"1000000000000000000", 1, BCDII_ROUND_DOWN, 77, 0x11},
        {"-26.5", -1, BCDII_ROUND_HALF_UP, -3, 0x44},
    };
    const BCDIIType type = typeOf(26, 1);
    for (const auto &[digits, scale, style, expected, status] : rows) {
        qint64 out = 77;
        const Bytes src = number(digits, type);
        EXPECT_EQ(BCDII2Int64(&out, src.data(), type, scale, style), status) << digits;
        EXPECT_EQ(out, expected) << digits;
    }
}

TEST(BcdiiDoubleTest, isStoredRoundedHalfUp)
{
    const struct {
        const char *name;
        double value;
        const char *digits;
        BCDIIType type;
        quint32 status;
    } rows[] = {
        {"rounds_up", 0.125, "0.13", typeOf(4, 2), 0},
        {"rounds_down", -12.344, "-12.34", typeOf(4, 2), 4},
        {"odd_scale", 99.9, "99.9", typeOf(3, 1), 0},
        {"negative_scale", 1251, "13e2", typeOf(3, -2), 0},
        {"small_is_zero", -0.001, "0", typeOf(4, 2), 2},
        {"does_not_fit", 1e20, "NULL", typeOf(10, 0), 0x11},
        {"carries_out", 99.995, "NULL", typeOf(4, 2), 0x11},
        // Double arithmetic gives the digits behind the 16th; see the next test.
        {"2_65", -36893488147419103232.0, "-36893488147419104032", typeOf(21, 0), 4},
        {"10_63", 1e63, "NULL", typeOf(63, 0), 0x11},
        {"infinite_when_scaled", 1e300, "NULL", typeOf(63, 62), 0x11},
        {"not_a_number", std::nan(""), "0", typeOf(26, 3), 0},
    };
    for (const auto &[name, value, digits, type, expected] : rows) {
        Bytes dst(BCDIILength(type), 0xEE);
        const quint32 status = BCDIIGetFromDouble(dst.data(), value, type);
        EXPECT_EQ(result(status, dst), result(expected, number(digits, type))) << name;
    }
}

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
}

TEST(BcdiiText, writesEveryFractionDigitAndNoLeadingZero)
{
    const struct {
        const char *value;
        BCDIIType type;
        std::string written;
    } rows[] = {
        {"0", typeOf(4, 2), ".00"},
        {"0", typeOf(4, -3), ""},
        {"-0.5", typeOf(2, 1), "-.5"},
        {"1050.5", typeOf(9, 3), "1050.500"},
        {"0.00012", typeOf(2, 5), ".00012"},
        {"-9e124", typeOf(63, -62), "-9" + std::string(124, '0')},
    };
    for (const auto &[value, type, written] : rows)
        EXPECT_EQ(text(number(value, type), type), written);
    const BCDIIType type = typeOf(4, 0);
    char *previous = BCDII2StringSequence(number("1", type).data(), type, nullptr);
    previous = BCDII2StringSequence(number("12", type).data(), type, previous);
    EXPECT_STREQ(previous, "12");
    std::free(previous);
}

TEST(BcdiiParse, takesTheScaleFromTheText)
{
    const std::string zeros(1 << 20, '0'), ones(1 << 20, '1'), sixtyOneZeros(61, '0');
    const std::string widest(63, '9');
    const struct {
        const char *name;
        std::string text, digits;
        BCDIIType before;
        int scaleAfter;
        quint32 status;
    } rows[] = {
        {"blanks_sign_comma", "  +007,50", "7.50", typeOf(10, 0), 2, 0},
        {"trailing_text", "\t\r\n-1.5.7e9", "-1.5", typeOf(26, 2), 1, 4},
        {"no_whole_digits", "-.0625", "-0.0625", typeOf(26, 0), 4, 4},
        {"zeros_only", "-000", "0", typeOf(9, 3), 0, 2},
        {"sign_and_point", "-.", "NULL", typeOf(9, 3), 3, 0x30},
        {"too_many_whole", "1234567", "NULL", typeOf(9, 3), 3, 0x11},
        {"too_many_in_all", "123456.7890", "NULL", typeOf(9, 3), 4, 0x11},
        {"scale_beyond_precision", "0.0000000012", "0.0000000012", typeOf(3, 10), 10, 0},
        {"widest", widest + "e", widest, typeOf(63, 0), 0, 0},
        {"rounded_at_62", "." + sixtyOneZeros + "15", "2e-62", typeOf(26, 0), 62, 0x40},
        {"long_zeros", "0." + sixtyOneZeros + "1" + zeros, "1e-62", typeOf(26, 0), 62, 0},
        {"long_and_lost", "0." + zeros + "1", "0", typeOf(26, 0), 62, 0x42},
        {"long_whole", zeros + ones, "NULL", typeOf(63, -62), -62, 0x11},
    };
    for (const auto &[name, text, digits, before, scaleAfter, expected] : rows) {
        const BCDIIType after = typeOf(precisionOf(before), scaleAfter);
        BCDIIType type = before;
        Bytes dst(BCDIILength(after), 0xEE);
        const quint32 status = BCDIIFromString(dst.data(), &type, text.c_str());
        EXPECT_EQ(type, after) << name;
        EXPECT_EQ(result(status, dst), result(expected, number(digits, after))) << name;
    }
}

// The value type's tests go through most of these forms, with operands of one precision.
TEST(BcdiiSelfDescribing, carriesItsTypeInFrontOfTheDigits)
{
    const auto selfDescribing = [](const char *value, BCDIIType type) {
        const quint16 word = quint16(type);
        Bytes bytes = number(value, type); // in exactly the memory it needs
        const auto *head = reinterpret_cast<const uchar *>(&word);
        bytes.insert(bytes.begin(), head, head + sizeof word);
        return bytes;
    };
    alignas(quint16) uchar cell[16];
    BCDIIInit(reinterpret_cast<quint16 *>(cell), typeOf(26, -2));
    EXPECT_EQ(BCDIIGetType(cell), typeOf(26, -2));
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
    qint64 whole;
    EXPECT_EQ(BCDII2Int64(&whole, sum.data(), 1), 0x40u);
    EXPECT_EQ(whole, 123);

    bool ok = false;
    Bytes parsed = selfDescribing("0", typeOf(6, 0));
    parsed.push_back(0xEE); // room for the odd scale
    EXPECT_EQ(BCDIIFromString(parsed.data(), "-7,5", &ok), 0x04u);
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed, selfDescribing("-7.5", typeOf(6, 1)));
    EXPECT_EQ(BCDIIFromString(parsed.data(), ("." + std::string(62, '0') + "1").c_str(), &ok),
              0x42u);
    EXPECT_FALSE(ok);
}

TEST(BcdiiMalformed, bytesOutOfRangeStayInsideTheirMemory)
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
