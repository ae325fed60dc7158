#include "values/bcdiimodel.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

using namespace bcdiimodel;

namespace
{

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
        switch (below(4)) {
        case 0:
            return typeOf(1 + below(63), below(125) - 62);
        case 1:
            return typeOf(26, below(12) - 2);
        default:
            return typeOf(precisions[below(14)], scales[below(12)]);
        }
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

std::string describe(quint32 seed, int step, const Operand &a, const Operand &b, BCDIIType dst,
                     int style)
{
    const auto text = [](const Operand &x) {
        return x.unscaled.get_str() + "e" + std::to_string(-scaleOf(x.type)) + " (" +
               std::to_string(precisionOf(x.type)) + " digits)";
    };
    return "seed " + std::to_string(seed) + ", case " + std::to_string(step) + ": " + text(a) +
           " and " + text(b) + ", style " + std::to_string(style) + ", into precision " +
           std::to_string(precisionOf(dst)) + ", scale " + std::to_string(scaleOf(dst));
}

} // namespace

TEST(BcdiiRandomTest, arithmeticAgreesWithIntegersOfArbitrarySize)
{
    const quint32 seed = 20151002;
    Source source(seed);
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

        Bytes dst(BCDIILength(copyType), 0xEE);
        quint32 status = BCDIICopy(dst.data(), copyType, a.bytes.data(), a.type, style);
        ASSERT_EQ(result(status, dst), rounded(a.unscaled, scaleOf(a.type), copyType, style))
            << "copy, " << describe(seed, step, a, b, copyType, style);
        ++copies[status];
        if (!(status & ~0x06u)) {
            ASSERT_EQ(BCDIICmp(a.bytes.data(), a.type, dst.data(), copyType), 0)
                << "cmp, " << describe(seed, step, a, a, copyType, style);
        }

        dst = sumType == aType ? a.bytes : Bytes(BCDIILength(sumType), 0xEE);
        const uchar *addend = sumType == aType ? dst.data() : a.bytes.data(); // in place
        status = BCDIIAdd(dst.data(), sumType, addend, a.type, b.bytes.data(), b.type, style);
        ASSERT_EQ(result(status, dst), rounded(x + y, scale, sumType, style))
            << "add, " << describe(seed, step, a, b, sumType, style);

        dst.assign(BCDIILength(mulType), 0xEE);
        status =
            BCDIIMul(dst.data(), mulType, a.bytes.data(), a.type, b.bytes.data(), b.type, style);
        ASSERT_EQ(result(status, dst), rounded(a.unscaled * b.unscaled, mulScale, mulType, style))
            << "mul, " << describe(seed, step, a, b, mulType, style);

        ASSERT_EQ(BCDIICmp(a.bytes.data(), a.type, b.bytes.data(), b.type), sgn(x - y))
            << "cmp, " << describe(seed, step, a, b, a.type, style);
    }
    for (const quint32 status : {0x00, 0x02, 0x04, 0x11, 0x15, 0x40, 0x42, 0x44, 0x51})
        EXPECT_GT(copies[status], kCases / 10000) << "copies of status " << status;
}

TEST(BcdiiRandomTest, integersAreStoredTruncated)
{
    const quint32 seed = 7;
    std::mt19937_64 random(seed);
    Source source(seed);
    for (int step = 0; step < kCases / 10; ++step) {
        const quint64 ends[] = {0, quint64(1) << 63, (quint64(1) << 63) - 1, ~quint64(0)};
        const quint64 bits = source.below(8) ? random() >> source.below(64) : ends[random() % 4];
        const int scale = source.below(125) - 62;
        const BCDIIType type = source.typeNear(scale);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", case " + std::to_string(step));
        const mpz_class whole(static_cast<unsigned long>(bits));
        const mpz_class signedWhole(static_cast<long>(bits));
        Bytes dst(BCDIILength(type), 0xEE);
        quint32 status = BCDIIGetFromUInt64(dst.data(), type, bits, scale);
        ASSERT_EQ(result(status, dst), rounded(whole, scale, type, BCDII_ROUND_DOWN));
        status = BCDIIGetFromInt64(dst.data(), type, qint64(bits), scale);
        ASSERT_EQ(result(status, dst), rounded(signedWhole, scale, type, BCDII_ROUND_DOWN));
    }
}
