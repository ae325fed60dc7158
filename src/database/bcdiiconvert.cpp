#include "database/bcdii.h"

#include "database/bcdiiround.h"

#include <cmath>
#include <cstring>

using namespace bcdii;

namespace
{

// Ten to every even power; the power of a byte count.
constexpr double kHundreds[] = {1e0,  1e2,  1e4,  1e6,  1e8,  1e10, 1e12, 1e14, 1e16, 1e18, 1e20,
                                1e22, 1e24, 1e26, 1e28, 1e30, 1e32, 1e34, 1e36, 1e38, 1e40, 1e42,
                                1e44, 1e46, 1e48, 1e50, 1e52, 1e54, 1e56, 1e58, 1e60, 1e62};

// Whole numbers below are exact in a double, and their digits come from integer division.
constexpr double kExactWhole = 9007199254740992.0; // 2^53

// No precision holds a whole number from here on.
constexpr double kTooLarge = 1e63;

/// Pairs of a whole number; \p oddScale moves its last digit into a tens place.
Pairs<2> pairsOf(quint64 value, bool oddScale)
{
    if (oddScale)
        return {
            {unpackWord(value % 1000000000000000u * 10), unpackWord(value / 1000000000000000u)}};
    return {{unpackWord(value % 10000000000000000u), unpackWord(value / 10000000000000000u)}};
}

quint32 storeInteger(uchar *dst, BCDIIType type, quint64 magnitude, bool negative, int scale)
{
    Q_ASSERT(BCDIICheckType(type));
    Q_ASSERT(scale >= -kMaxScale && scale <= kMaxScale);
    return copy_internal(dst, type, pairsOf(magnitude, scale & 1), (scale + 1) >> 1, negative,
                         BCDII_ROUND_DOWN);
}

/// 10^scale as the repeated product (or quotient) that the stored doubles are defined by.
double powerOfTen(int scale)
{
    double power = 1.0;
    for (; scale > 0; --scale)
        power *= 10.0;
    for (; scale < 0; ++scale)
        power /= 10.0;
    return power;
}

/// Stores a whole double from 2^53 on, whose last digits double arithmetic does not hold: they are
/// peeled off its end as the rounded remainders and quotients give them.
quint32 storeLarge(uchar *dst, BCDIIType type, double x, bool negative)
{
    constexpr double kSlack = 0.125; // a remainder or quotient just below a whole number
    const auto peel = [&x](double base) {
        const double digits = std::fmod(x, base);
        x = std::floor((x - digits) / base + kSlack);
        return int(digits + kSlack);
    };
    int place = length(type);
    std::memset(dst, 0, size_t(place));
    if (type & 1)
        dst[--place] = uchar(peel(10) * 10);
    const int single = wholeDigits(type) & 1; // the first byte holds one digit
    while (place > single && x > 0)
        dst[--place] = uchar(peel(100));
    if (single && place == 1 && x > 0)
        dst[0] = uchar(peel(10));
    if (x > kSlack)
        return setNull(dst, kDoesNotFit);
    if (negative)
        dst[0] |= kSignBit;
    return signStatus(negative);
}

} // namespace

quint32 BCDIIGetFromUInt64(uchar *dst, BCDIIType type, quint64 value, int scale)
{
    return storeInteger(dst, type, value, false, scale);
}

quint32 BCDIIGetFromInt64(uchar *dst, BCDIIType type, qint64 value, int scale)
{
    const quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    return storeInteger(dst, type, magnitude, value < 0, scale);
}

quint32 BCDII2Int64(qint64 *out, const uchar *src, BCDIIType type, int scale, int style)
{
    Q_ASSERT(scale >= -kMaxScale && scale <= kMaxScale);
    // As a number of 19 digits whose last one stands for 10^-scale; more never fit 64 bits.
    const BCDIIType wholeType = makeType(19, scale);
    uchar whole[BCDIILength(makeType(19, 0))];
    const quint32 status = BCDIICopy(whole, wholeType, src, type, style);
    if (status & BCDII_NULL_RESULT)
        return status;

    const int size = length(wholeType);
    quint64 magnitude = whole[0] & kDigitBits;
    for (int i = 1; i < size - 1; ++i)
        magnitude = magnitude * 100 + whole[i];
    magnitude =
        scale & 1 ? magnitude * 10 + whole[size - 1] / 10 : magnitude * 100 + whole[size - 1];

    const bool negative = isNegative(whole);
    if (magnitude > (quint64(1) << 63) - (negative ? 0 : 1))
        return kDoesNotFit;
    *out = qint64(negative ? 0 - magnitude : magnitude);
    return status;
}

quint32 BCDII2Double(double *out, const uchar *src, BCDIIType type)
{
    Q_ASSERT(BCDIICheckType(type));
    if (isNullMark(src))
        return kNullInput;
    double value = src[0] & kDigitBits;
    for (int i = 1; i < length(type); ++i)
        value = value * 100 + (src[i] & kDigitBits);
    if (value == 0) {
        *out = 0.0;
        return BCDII_ZERO;
    }
    const int fraction = fractionBytes(type);
    value = fraction < 0 ? value * kHundreds[-fraction] : value / kHundreds[fraction];
    *out = isNegative(src) ? -value : value;
    return signStatus(isNegative(src));
}

quint32 BCDIIGetFromDouble(uchar *dst, double value, BCDIIType type)
{
    Q_ASSERT(BCDIICheckType(type));
    const int size = length(type);
    const bool negative = value < 0;
    double x = std::floor(std::fabs(value) * powerOfTen(scale(type)) + 0.5);
    if (std::isnan(x))
        return _quickSetNULL(dst, size, 0);
    if (x == 0)
        return _quickSetNULL(dst, size, BCDII_ZERO);
    if (x >= kTooLarge)
        return setNull(dst, kDoesNotFit);
    // x has the destination's scale: nothing is left to round.
    if (x >= kExactWhole)
        return storeLarge(dst, type, x, negative);
    return copy_internal(dst, type, pairsOf(quint64(x), type & 1), fractionBytes(type), negative,
                         BCDII_ROUND_DOWN);
}
