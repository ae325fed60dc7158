// Sums, products and rescaling of xdecimal.
//
// The usual case, an exact result that fits, is worked out in registers. Those functions give up by
// returning false, and the packed arithmetic decides what then comes out: fewer places or an error.

#include "database/values/xdecimalframe.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

using namespace bcdii;

namespace
{

/// The exact sum at the larger of the scales.
bool addFrames(const XDecimalFrame &a, const XDecimalFrame &b, XDecimalFrame *sum)
{
    UInt128 x = a.pairs;
    UInt128 y = b.pairs;
    const int distance = (a.scale >> 1) - (b.scale >> 1);
    if (distance != 0 && !(distance > 0 ? extend(&y, distance) : extend(&x, -distance)))
        return false;
    const bool subtract = a.negative != b.negative;
    const bool less = x < y;
    sum->pairs = combined(less ? y : x, less ? x : y, subtract);
    sum->negative = less ? b.negative : a.negative;
    sum->scale = std::max(a.scale, b.scale);
    return fitsFrame(sum->pairs, sum->scale);
}

/// a x b of numbers below 2^96; false only when that is 2^96 or more.
bool multiplyBinary(UInt128 a, UInt128 b, UInt128 *product)
{
    if (a < b)
        std::swap(a, b);
    if (b >> 64 != 0)
        return false;
    const UInt128 high = UInt128(quint64(a >> 64)) * quint64(b);
    if (high >> 32 != 0)
        return false;
    *product = UInt128(quint64(a)) * quint64(b) + (high << 64);
    return true;
}

/// The exact product at the sum of the scales.
bool multiplyFrames(const XDecimalFrame &a, const XDecimalFrame &b, XDecimalFrame *product)
{
    // Of an odd scale a number comes with a zero at its end.
    constexpr UInt128 kLimit = UInt128(kTenTo16) * 10000000000; // 10^26
    constexpr UInt128 kLimits[] = {kLimit, kLimit * 10, kLimit * 100};
    const int aOdd = a.scale & 1;
    const int bOdd = b.scale & 1;
    UInt128 binary;
    if (!multiplyBinary(toBinary(a.pairs >> (aOdd ? 0 : 8)), toBinary(b.pairs >> (bOdd ? 0 : 8)),
                        &binary) ||
        binary >= kLimits[aOdd + bOdd])
        return false;
    product->pairs = toPairs(binary) << (aOdd + bOdd == 0 ? 8 : 0);
    product->negative = a.negative != b.negative;
    product->scale = a.scale + b.scale;
    return product->scale >= xdecimal::kMinScale && product->scale <= xdecimal::kMaxScale;
}

/// The same number rounded half up to \p scale places.
bool rescaleFrame(XDecimalFrame *frame, int scale)
{
    UInt128 pairs = frame->pairs;
    const int drop = (frame->scale >> 1) - (scale >> 1);
    if (drop < 0 && !extend(&pairs, -drop))
        return false;
    if (drop >= kFramePairs)
        return false;
    if (drop > 0)
        pairs >>= 8 * drop;
    const bool odd = scale & 1;
    const auto last = quint64(pairs) & 0xFF;
    const quint64 dropped = odd ? last % 10 : last;
    const bool up = dropped >= (odd ? 5 : 50);
    pairs -= dropped;
    if (up && pairs == 0 && scale <= 0)
        return false; // BCDIICopy does not round this up
    frame->pairs = combined(pairs, up ? (odd ? 10 : 256) : 0, false);
    frame->scale = scale;
    return fitsFrame(frame->pairs, scale);
}

constexpr int kZeroDigits = -1000; // stands for the integer digits of zero, below all others

/// Digits before the point; 0 or below for a number that begins behind it.
int integerDigits(const xdecimal &value)
{
    const UInt128 pairs = loadFrame(value).pairs;
    const int count = significantPairs(pairs);
    if (count == 0)
        return kZeroDigits;
    return 2 * (count - pointPairs(value.scale())) - (pairs >> 8 * (count - 1) < 10 ? 1 : 0);
}

/// At least that many integer digits has the sum of two numbers, for certain.
int leastSumDigits(const xdecimal &a, const xdecimal &b)
{
    const int aDigits = integerDigits(a);
    const int bDigits = integerDigits(b);
    const int digits = std::max(aDigits, bDigits);
    const bool sameSign = ((a.data()[2] ^ b.data()[2]) & 0x80) == 0;
    if (sameSign)
        return digits;
    return std::abs(aDigits - bDigits) > 1 ? digits - 1 : kZeroDigits; // else they may cancel out
}

/// Runs \p operation, which stores into a zero of a given type, at the largest scale from \p scale
/// down to \p lowest at which the result's integer digits fit.
template<typename Operation>
xdecimal atLargestScale(int scale, int lowest, Operation operation)
{
    for (; scale >= lowest; --scale) {
        xdecimal result = xdecimal::fromInt64(0, short(scale));
        const quint32 status = operation(const_cast<uchar *>(result.data()));
        if (status & BCDII_OVERFLOW)
            continue;
        if (status & BCDII_NULL_RESULT)
            throw "xdecimal:nan";
        return result;
    }
    throw "xdecimal:overflow";
}

void requireNumbers(const xdecimal &a, const xdecimal &b)
{
    if (a.isNull() || b.isNull())
        throw "xdecimal:nan";
}

/// Below a unit's place only where an operand has no units either.
int lowestScale(const xdecimal &a, const xdecimal &b)
{
    return a.scale() < 0 || b.scale() < 0 ? xdecimal::kMinScale : 0;
}

xdecimal addRounded(const xdecimal &a, const xdecimal &b)
{
    const int exact = std::max(a.scale(), b.scale());
    return atLargestScale(std::min(exact, xdecimal::kPrecision - leastSumDigits(a, b)),
                          lowestScale(a, b),
                          [&](uchar *sum) { return BCDIIAdd(sum, a.data(), b.data()); });
}

xdecimal multiplyRounded(const xdecimal &a, const xdecimal &b)
{
    const int exact = qBound<int>(xdecimal::kMinScale, a.scale() + b.scale(), xdecimal::kMaxScale);
    const int leastDigits = integerDigits(a) + integerDigits(b) - 1;
    return atLargestScale(std::min(exact, xdecimal::kPrecision - leastDigits), lowestScale(a, b),
                          [&](uchar *product) { return BCDIIMul(product, a.data(), b.data()); });
}

} // namespace

xdecimal operator+(const xdecimal &a, const xdecimal &b)
{
    requireNumbers(a, b);
    XDecimalFrame sum;
    return addFrames(loadFrame(a), loadFrame(b), &sum) ? storeFrame(sum) : addRounded(a, b);
}

xdecimal operator-(const xdecimal &a, const xdecimal &b)
{
    requireNumbers(a, b);
    XDecimalFrame subtrahend = loadFrame(b);
    subtrahend.negative = !subtrahend.negative;
    XDecimalFrame sum;
    return addFrames(loadFrame(a), subtrahend, &sum) ? storeFrame(sum) : addRounded(a, -b);
}

xdecimal operator*(const xdecimal &a, const xdecimal &b)
{
    requireNumbers(a, b);
    XDecimalFrame product;
    return multiplyFrames(loadFrame(a), loadFrame(b), &product) ? storeFrame(product)
                                                                : multiplyRounded(a, b);
}

void xdecimal::setScale(short scale)
{
    if (scale < kMinScale || scale > kMaxScale || isNull())
        throw "xdecimal:bad operand";
    XDecimalFrame frame = loadFrame(*this);
    if (rescaleFrame(&frame, scale)) {
        *this = storeFrame(frame);
        return;
    }
    xdecimal result = zero(scale);
    BCDIICopy(result.bytes(), data());
    if (BCDIICheck(result.data()) & BCDII_MALFORMED)
        throw "xdecimal:bad operand";
    *this = result;
}
