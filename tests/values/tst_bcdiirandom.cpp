#include "values/bcdiimodel.h"

#include <gtest/gtest.h>

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

    Operand operand(BCDIIType type)
    {
        std::string digits(size_t(precisionOf(type)), '0');
        const size_t at = size_t(below(precisionOf(type)));
        const auto digit = [this] { return char('0' + below(10)); };
        switch (below(8)) {
        case 0: // zero or a single digit at either end
            digits[below(2) ? 0 : digits.size() - 1] = digit();
            break;
        case 1:
            std::fill(digits.begin(), digits.end(), '9');
            break;
        case 2: // nines to the right, a power of ten less one
            std::fill(digits.begin() + long(at), digits.end(), '9');
            break;
        case 3: // a power of ten, or the tie above it
            digits[at] = below(2) ? '1' : '5';
            break;
        case 4: // nines with one digit among them, what rounding carries through
            std::fill(digits.begin(), digits.end(), '9');
            digits[at] = digit();
            break;
        case 5: // few digits, the short multipliers
            std::generate(digits.end() - long(std::min<size_t>(digits.size(), 6)), digits.end(),
                          digit);
            break;
        case 6: // leading digits only
            std::generate(digits.begin(), digits.begin() + long(at), digit);
            break;
        default:
            std::generate(digits.begin(), digits.end(), digit);
        }
        mpz_class unscaled(digits, 10);
        if (below(2))
            unscaled = -unscaled;
        return {type, unscaled, encode(unscaled, type)};
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

/// a and b as integers of one scale, which is returned.
int lineUp(const Operand &a, const Operand &b, mpz_class *x, mpz_class *y)
{
    const int scale = std::max(scaleOf(a.type), scaleOf(b.type));
    *x = a.unscaled * powerOfTen(scale - scaleOf(a.type));
    *y = b.unscaled * powerOfTen(scale - scaleOf(b.type));
    return scale;
}

} // namespace

TEST(BcdiiRandomTest, arithmeticAgreesWithIntegersOfArbitrarySize)
{
    const quint32 seed = 20151002;
    Source source(seed);
    mpz_class x, y;
    for (int step = 0; step < kCases; ++step) {
        const int style = source.below(5);
        const BCDIIType aType = source.type();
        const Operand a = source.operand(aType);
        const Operand b = source.operand(source.below(3) ? source.type() : aType);
        const int scale = lineUp(a, b, &x, &y);
        const BCDIIType copyType = source.typeNear(scaleOf(a.type));
        const BCDIIType sumType = source.below(3) ? source.typeNear(scale) : aType;
        const int mulScale = scaleOf(a.type) + scaleOf(b.type);
        const BCDIIType mulType = source.typeNear(source.below(2) ? mulScale : scaleOf(b.type));

        Bytes dst(BCDIILength(copyType), 0xEE);
        quint32 status = BCDIICopy(dst.data(), copyType, a.bytes.data(), a.type, style);
        ASSERT_EQ(result(status, dst), rounded(a.unscaled, scaleOf(a.type), copyType, style))
            << "copy, " << describe(seed, step, a, b, copyType, style);

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

        const int order = cmp(x, y);
        ASSERT_EQ(BCDIICmp(a.bytes.data(), a.type, b.bytes.data(), b.type),
                  int(order > 0) - int(order < 0))
            << "cmp, " << describe(seed, step, a, b, a.type, style);
    }
}

TEST(BcdiiRandomTest, equalValuesOfDifferentTypesCompareEqual)
{
    const quint32 seed = 7;
    Source source(seed);
    int met = 0;
    for (int step = 0; step < kCases / 10; ++step) {
        const Operand a = source.operand(source.type());
        const BCDIIType type = source.typeNear(scaleOf(a.type));
        Bytes b(BCDIILength(type));
        if (BCDIICopy(b.data(), type, a.bytes.data(), a.type, BCDII_ROUND_UP) & ~0x06u)
            continue;
        ++met;
        ASSERT_EQ(BCDIICmp(a.bytes.data(), a.type, b.data(), type), 0)
            << describe(seed, step, a, a, type, BCDII_ROUND_UP);
    }
    EXPECT_GT(met, kCases / 100);
}
