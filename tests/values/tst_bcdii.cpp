#include "values/bcdiimodel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <sstream>

using namespace bcdiimodel;

namespace
{

constexpr qint64 kMin = std::numeric_limits<qint64>::min();
constexpr qint64 kMax = std::numeric_limits<qint64>::max();

#if defined(__SANITIZE_ADDRESS__) || !defined(QT_NO_DEBUG)
constexpr int kCases = 100000;
#else
constexpr int kCases = 1000000;
#endif

struct Operand {
    BCDIIType type;
    mpz_class unscaled;
    Bytes bytes;
};

/// Random numbers that crowd the places where digit arithmetic goes wrong.
class Source
{
public:
    explicit Source(quint32 seed)
        : m_random(seed)
    {
    }

    int below(int n) { return int(m_random() % quint32(n)); }

    BCDIIType type()
    {
        static const int precisions[] = {1, 2, 3, 15, 16, 25, 26, 27, 31, 32, 33, 61, 62, 63};
        static const int scales[] = {-62, -61, -5, -2, -1, 0, 1, 2, 3, 8, 61, 62};
        if (below(4) == 0)
            return typeOf(1 + below(63), below(125) - 62);
        return typeOf(precisions[below(14)], scales[below(12)]);
    }

    /// A type for a result of the given scale, near it more often than not.
    BCDIIType typeNear(int scale)
    {
        if (below(3) == 0)
            return type();
        const int precision = below(2) ? 63 - below(4) : 1 + below(63);
        return typeOf(precision, std::max(-62, std::min(62, scale + 3 - below(12))));
    }

    /// Zeros or nines with a run of random or equal digits among them: powers of ten and their
    /// neighbours, ties, short multipliers and what rounding carries through.
    Operand operand(BCDIIType type)
    {
        const int precision = precisionOf(type);
        std::string digits(size_t(precision), below(2) ? '0' : '9');
        const int first = below(2) ? below(precision) : 0;
        const int rest = precision - first;
        const int run = below(3) == 0 ? 1 : below(2) ? 1 + below(rest) : rest;
        const bool equal = below(2);
        const char repeated = "0159"[below(4)];
        for (int i = first; i < first + run; ++i)
            digits[size_t(i)] = equal ? repeated : char('0' + below(10));
        const mpz_class unscaled(digits, 10);
        const mpz_class value = below(2) ? mpz_class(-unscaled) : unscaled;
        return {type, value, encode(value, type)};
    }

private:
    std::mt19937 m_random;
};

std::string text(const Bytes &digits, BCDIIType type)
{
    const std::unique_ptr<char, decltype(&std::free)> owned(
        BCDII2StringSequence(digits.data(), type, nullptr), &std::free);
    return owned.get();
}

} // namespace

TEST(BcdiiLayout, alignsPairsOnThePointAndChecksEveryByteOfEveryType)
{
    EXPECT_EQ(encode(-12345, typeOf(5, 3)), (Bytes{0x8C, 34, 50})); // the model's own layout
    for (int word = 0; word < 0x10000; ++word) {
        const auto type = BCDIIType(word);
        const int digits = qint8(word >> 8);
        const bool valid =
            digits >= 1 && digits <= 63 && scaleOf(type) >= -62 && scaleOf(type) < 63;
        ASSERT_EQ(BCDIICheckType(type), valid) << word;
        if (!valid)
            continue;
        SCOPED_TRACE(word);
        const Bytes maximum = encode(powerOfTen(digits) - 1, type);
        Bytes bytes(BCDIILength(type));
        BCDIISetMax(bytes.data(), type);
        ASSERT_EQ(bytes, maximum);
        for (uchar &byte : bytes) {
            ++byte; // one above nines is malformed in every place
            ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED);
            --byte;
        }
        if (scaleOf(type) & 1) {
            bytes.back() -= 1; // the last byte holds tens only
            ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED);
            bytes.back() += 1;
        }
        ASSERT_EQ(BCDIINeg(bytes.data(), type), BCDII_NEGATIVE);
        ASSERT_EQ(bytes, encode(1 - powerOfTen(digits), type));
        ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_NEGATIVE);

        bytes.assign(bytes.size(), 0);
        ASSERT_EQ(BCDIINeg(bytes.data(), type), BCDII_ZERO);
        ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_ZERO);
        bytes[0] = 0x80; // negative zero
        ASSERT_EQ(BCDIICheck(bytes.data(), type), BCDII_MALFORMED);
    }
}

TEST(BcdiiCopy, readsTheSourceBeforeItWritesWhereverTheyOverlap)
{
    const BCDIIType srcType = typeOf(63, 31);
    const Bytes src = encode(
        mpz_class("-123456789012345678901234567890121234567890123456789012345678901"), srcType);
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
    const Bytes one = encode(100, type);
    Bytes null(one.size(), 0xFF); // what follows the marker must not matter
    null[0] = 101;
    for (const auto &[a, b] : {std::pair{null, one}, {one, null}}) {
        Bytes sum = one, product = one;
        EXPECT_EQ(BCDIIAdd(sum.data(), type, a.data(), type, b.data(), type, 0), 0xB0u);
        EXPECT_EQ(BCDIIMul(product.data(), type, a.data(), type, b.data(), type, 0), 0xB0u);
        EXPECT_EQ(sum[0], 101);
        EXPECT_EQ(product[0], 101);
    }
    EXPECT_EQ(BCDIICmp(null.data(), type, one.data(), type), 1); // the marker is a pair of 101
    qint64 whole = 5;
    EXPECT_EQ(BCDII2Int64(&whole, null.data(), type, 0, 0), 0xB0u);
    EXPECT_EQ(whole, 5);
    double real = 5;
    EXPECT_EQ(BCDII2Double(&real, null.data(), type), 0xB0u);
    EXPECT_EQ(real, 5);
    Bytes copy = one;
    EXPECT_EQ(BCDIICopy(copy.data(), type, null.data(), type, 0), 0xB0u);
    EXPECT_EQ(copy[0], 101);
    EXPECT_EQ(BCDIINeg(null.data(), type), 0xB0u);
    EXPECT_EQ(null[0], 101);
    EXPECT_EQ(BCDIICheck(null.data(), type), 0xA0u);
    for (const BCDIIType invalid : {typeOf(0, 0), typeOf(64, 0), typeOf(26, 63), typeOf(26, -63)}) {
        EXPECT_EQ(BCDIICheckType(invalid), 0);
        EXPECT_EQ(BCDIICheck(one.data(), invalid), 0x20u);
    }
}

// Type word and digits in one piece of memory.
TEST(BcdiiSelfDescribing, actsAsTheFormWithTypesRoundingHalfUp)
{
    const auto make = [](const char *text, BCDIIType type) {
        Bytes number(2 + BCDIILength(type));
        BCDIIInit(reinterpret_cast<quint16 *>(number.data()), type);
        EXPECT_EQ(BCDIICheck(number.data()), 0xA0u);
        EXPECT_EQ(BCDIINeg(number.data()), 0xB0u);
        bool ok = false;
        BCDIIFromString(number.data(), text, &ok);
        EXPECT_TRUE(ok) << text;
        return number;
    };
    const auto text = [](const Bytes &number) {
        const std::unique_ptr<char, decltype(&std::free)> result(
            BCDII2StringSequence(number.data(), nullptr), &std::free);
        return std::string(result.get());
    };
    Bytes a = make("2.345", typeOf(9, 0));
    const Bytes b = make("-12.35", typeOf(8, 0));
    Bytes c = make("0.0", typeOf(9, 0));
    EXPECT_EQ(BCDIIGetType(a.data()), typeOf(9, 3));
    EXPECT_EQ(BCDIICmp(a.data(), b.data()), 1);
    EXPECT_EQ(BCDIIAdd(c.data(), a.data(), b.data()), 0x44u); // -10.005
    EXPECT_EQ(text(c), "-10.0");
    EXPECT_EQ(BCDIIMul(c.data(), a.data(), b.data()), 0x44u); // -28.96075
    EXPECT_EQ(text(c), "-29.0");
    EXPECT_EQ(BCDIICopy(c.data(), a.data()), 0x40u);
    EXPECT_EQ(text(c), "2.3");
    EXPECT_EQ(BCDIINeg(a.data()), 0x04u);
    EXPECT_EQ(text(a), "-2.345");
    qint64 whole = 0;
    double real = 0;
    EXPECT_EQ(BCDII2Int64(&whole, a.data(), 2), 0x44u);
    EXPECT_EQ(whole, -235);
    EXPECT_EQ(BCDII2Double(&real, a.data()), 0x04u);
    EXPECT_EQ(real, -2.345);
    EXPECT_EQ(BCDIIGetFromInt64(c.data(), -129, 2), 0x44u);
    EXPECT_EQ(text(c), "-1.2");
    EXPECT_EQ(BCDIIGetFromUInt64(c.data(), 7, 0), 0u);
    EXPECT_EQ(BCDIIGetFromDouble(c.data(), -0.25), 0x04u);
    EXPECT_EQ(text(c), "-.3");
    BCDIISetMin(c.data());
    EXPECT_EQ(text(c), "-99999999.9");
    BCDIISetMax(c.data());
    EXPECT_EQ(text(c), "99999999.9");
    BCDIISetZero(c.data());
    EXPECT_EQ(BCDIICheck(c.data()), 0x02u);
    EXPECT_EQ(BCDIINeg(c.data()), 0x02u);
    bool ok = true;
    EXPECT_EQ(BCDIIFromString(c.data(), "none", &ok), 0x30u);
    EXPECT_FALSE(ok);
}

TEST(BcdiiInteger, isReadRoundedOrLeftAloneOutsideTheRange)
{
    const struct {
        const char *text;
        int scale, style;
        qint64 expected;
        quint32 status;
    } rows[] = {
        {"9223372036854775807.4", 0, BCDII_ROUND_HALF_UP, kMax, 0x40},
        {"-9223372036854775808.4", 0, BCDII_ROUND_HALF_UP, kMin, 0x44},
        {"9223372036854775807.5", 0, BCDII_ROUND_HALF_UP, 77, 0x11},
        {"-9223372036854775808.1", 0, BCDII_ROUND_FLOOR, 77, 0x11},
        {"-26.5", -1, BCDII_ROUND_HALF_UP, -3, 0x44},
    };
    for (const auto &[text, scale, style, expected, status] : rows) {
        qint64 out = 77;
        uchar src[16];
        BCDIIType type = typeOf(26, 0);
        BCDIIFromString(src, &type, text);
        EXPECT_EQ(BCDII2Int64(&out, src, type, scale, style), status) << text;
        EXPECT_EQ(out, expected) << text;
    }
}

TEST(BcdiiDouble, isStoredRoundedHalfUp)
{
    const struct {
        double value;
        BCDIIType type;
        std::string stored;
        quint32 status;
    } rows[] = {
        {0.125, typeOf(4, 2), ".13", 0},          {1251, typeOf(3, -2), "1300", 0},
        {99.995, typeOf(4, 2), "NULL", 0x11},  // carries out
        {1e300, typeOf(63, 62), "NULL", 0x11}, // infinite when scaled
        {std::nan(""), typeOf(26, 3), ".000", 0},
    };
    for (const auto &[value, type, stored, status] : rows) {
        Bytes dst(BCDIILength(type), 0xEE);
        EXPECT_EQ(BCDIIGetFromDouble(dst.data(), value, type), status) << value;
        EXPECT_EQ(text(dst, type), stored) << value;
    }
}

// Peeled digits differ from those that the double stands for only where it holds none any more.
TEST(BcdiiDouble, readsBackWhatALargeDoubleStored)
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

TEST(BcdiiText, takesTheScaleFromTheTextAndWritesEveryFractionDigit)
{
    const std::string zeros(1 << 20, '0'), ones(1 << 20, '1'), sixtyOneZeros(61, '0');
    const struct {
        const char *name;
        std::string text, written;
        BCDIIType before;
        int scaleAfter;
        quint32 status;
    } rows[] = {
        {"blanks_sign_comma", "  +007,50", "7.50", typeOf(10, 0), 2, 0},
        {"trailing_text", "\t\r\n-1.5.7e9", "-1.5", typeOf(26, 2), 1, 4},
        {"zeros_only", "-000", "", typeOf(9, 3), 0, 2},
        {"sign_and_point", "-.", "NULL", typeOf(9, 3), 3, 0x30},
        {"too_many_in_all", "123456.7890", "NULL", typeOf(9, 3), 4, 0x11},
        {"scale_beyond_precision", "0.0000000012", ".0000000012", typeOf(3, 10), 10, 0},
        {"rounded_at_62", "." + sixtyOneZeros + "15", "." + sixtyOneZeros + "2", typeOf(26, 0), 62,
         0x40},
        {"long_and_lost", "0." + zeros + "1", "." + sixtyOneZeros + "0", typeOf(26, 0), 62, 0x42},
        {"long_whole", zeros + ones, "NULL", typeOf(63, -62), -62, 0x11},
    };
    for (const auto &[name, read, written, before, scaleAfter, status] : rows) {
        const BCDIIType after = typeOf(precisionOf(before), scaleAfter);
        BCDIIType type = before;
        Bytes dst(BCDIILength(after), 0xEE);
        EXPECT_EQ(BCDIIFromString(dst.data(), &type, read.c_str()), status) << name;
        EXPECT_EQ(type, after) << name;
        EXPECT_EQ(text(dst, after), written) << name;
    }
}

TEST(BcdiiMalformed, bytesOutOfRangeStayInsideTheirMemory)
{
    // What the sanitizers watch: every byte value, in every width class.
    for (const BCDIIType type : {typeOf(5, 3), typeOf(26, 1), typeOf(63, 62), typeOf(63, -62)}) {
        for (int fill = 0; fill < 256; ++fill) {
            Bytes bytes(BCDIILength(type), uchar(fill));
            bytes[0] &= 0x8F;
            Bytes dst(bytes.size());
            BCDIIAdd(dst.data(), type, bytes.data(), type, bytes.data(), type, fill % 5);
            BCDIIMul(dst.data(), type, bytes.data(), type, bytes.data(), type, fill % 5);
            EXPECT_LE(text(bytes, type).size(), 128u);
            EXPECT_TRUE(fill < 100 || BCDIICheck(bytes.data(), type) == BCDII_MALFORMED) << fill;
        }
    }
}

TEST(BcdiiRandom, arithmeticAgreesWithIntegersOfArbitrarySize)
{
    constexpr quint32 kSeed = 20151002;
    Source source(kSeed);
    std::map<quint32, int> copies; // by status
    for (int step = 0; step < kCases; ++step) {
        const int style = source.below(5);
        const BCDIIType aType = source.type();
        const Operand a = source.operand(aType);
        const Operand b = source.operand(source.below(3) ? source.type() : aType);
        const int scale = std::max(scaleOf(a.type), scaleOf(b.type));
        const mpz_class x = a.unscaled * powerOfTen(scale - scaleOf(a.type));
        const mpz_class y = b.unscaled * powerOfTen(scale - scaleOf(b.type));
        const BCDIIType copyType = source.typeNear(scaleOf(a.type));
        const BCDIIType sumType = source.below(3) ? source.typeNear(scale) : aType;
        const int mulScale = scaleOf(a.type) + scaleOf(b.type);
        const BCDIIType mulType = source.typeNear(source.below(2) ? mulScale : scaleOf(b.type));
        const auto where = [&](const char *operation, BCDIIType dst) {
            std::ostringstream out;
            out << "seed " << kSeed << ", case " << step << ": " << operation << " of "
                << a.unscaled << "e" << -scaleOf(a.type) << " and " << b.unscaled << "e"
                << -scaleOf(b.type) << ", style " << style << ", into type " << dst;
            return out.str();
        };

        Bytes dst(BCDIILength(copyType), 0xEE);
        quint32 status = BCDIICopy(dst.data(), copyType, a.bytes.data(), a.type, style);
        ASSERT_EQ(result(status, dst), rounded(a.unscaled, scaleOf(a.type), copyType, style))
            << where("copy", copyType);
        ++copies[status];

        dst = sumType == aType ? a.bytes : Bytes(BCDIILength(sumType), 0xEE);
        const uchar *addend = sumType == aType ? dst.data() : a.bytes.data(); // in place
        status = BCDIIAdd(dst.data(), sumType, addend, a.type, b.bytes.data(), b.type, style);
        ASSERT_EQ(result(status, dst), rounded(x + y, scale, sumType, style))
            << where("sum", sumType);

        dst.assign(BCDIILength(mulType), 0xEE);
        status =
            BCDIIMul(dst.data(), mulType, a.bytes.data(), a.type, b.bytes.data(), b.type, style);
        ASSERT_EQ(result(status, dst), rounded(a.unscaled * b.unscaled, mulScale, mulType, style))
            << where("product", mulType);

        ASSERT_EQ(BCDIICmp(a.bytes.data(), a.type, b.bytes.data(), b.type), sgn(x - y))
            << where("order", a.type);
        double real = 0;
        BCDII2Double(&real, a.bytes.data(), a.type);
        const double expected = a.unscaled.get_d() / std::pow(10.0, scaleOf(a.type));
        ASSERT_NEAR(real, expected, std::abs(expected) * 1e-14) << where("double", a.type);
    }
    for (const quint32 status : {0x00, 0x02, 0x04, 0x11, 0x15, 0x40, 0x42, 0x44, 0x51})
        EXPECT_GT(copies[status], kCases / 10000) << "copies of status " << status;
}

TEST(BcdiiRandom, integersAreStoredTruncated)
{
    constexpr quint32 kSeed = 7;
    std::mt19937_64 random(kSeed);
    Source source(kSeed);
    for (int step = 0; step < kCases / 10; ++step) {
        const quint64 ends[] = {0, quint64(1) << 63, (quint64(1) << 63) - 1, ~quint64(0)};
        const quint64 bits = source.below(8) ? random() >> source.below(64) : ends[random() % 4];
        const int scale = source.below(125) - 62;
        const BCDIIType type = source.typeNear(scale);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", case " + std::to_string(step));
        const mpz_class whole(static_cast<unsigned long>(bits));
        const mpz_class signedWhole(static_cast<long>(bits));
        Bytes dst(BCDIILength(type), 0xEE);
        quint32 status = BCDIIGetFromUInt64(dst.data(), type, bits, scale);
        ASSERT_EQ(result(status, dst), rounded(whole, scale, type, BCDII_ROUND_DOWN));
        status = BCDIIGetFromInt64(dst.data(), type, qint64(bits), scale);
        ASSERT_EQ(result(status, dst), rounded(signedWhole, scale, type, BCDII_ROUND_DOWN));
    }
}
