#include "database/bcdii.h"

#include "database/bcdiiround.h"

#include <algorithm>

using namespace bcdii;

namespace
{

// Words that hold any two numbers lined up on the point, carry included: 63 bytes before the point
// (precision 63, scale -62), 31 behind it (scale 62), one for the carry.
constexpr int kAlignedWords = 12;

/// All-bytes-zero test; the sign bit of the first byte does not count.
bool s_isNull(const uchar *digits, int sz)
{
    Q_ASSERT(sz > 0);
    return sz <= 16 ? isZero(load<2>(digits, sz)) : isZero(load<4>(digits, sz));
}

/// Zero test of a whole number; "NULL" is the value zero here.
bool _quickIsNULL(const uchar *digits, BCDIIType type)
{
    return s_isNull(digits, length(type));
}

void setNines(uchar *digits, BCDIIType type, uchar signBit)
{
    Q_ASSERT(BCDIICheckType(type));
    const int size = length(type);
    std::memset(digits, 99, size_t(size));
    if (wholeDigits(type) & 1)
        digits[0] = 9;
    if (type & 1)
        digits[size - 1] = 90;
    digits[0] |= signBit;
}

int compareBytes(const uchar *a, const uchar *b, int size)
{
    if (size >= 8 && size <= 16) { // the usual sizes: two overlapping words instead of a call
        quint64 x = qFromBigEndian<quint64>(a);
        quint64 y = qFromBigEndian<quint64>(b);
        if (x == y) {
            x = qFromBigEndian<quint64>(a + size - 8);
            y = qFromBigEndian<quint64>(b + size - 8);
        }
        return int(x > y) - int(x < y);
    }
    const int order = std::memcmp(a, b, size_t(size));
    return int(order > 0) - int(order < 0);
}

/// A number as an operand: where its bytes are and how many of them stand on each side.
struct Operand {
    const uchar *digits;
    int size;
    int whole;
    int fraction;

    Operand(const uchar *digits, BCDIIType type)
        : digits(digits)
        , size(length(type))
        , whole(wholeBytes(type))
        , fraction(fractionBytes(type))
    {
    }

    /// The magnitude with \p fractionPairs (at least its own) pairs behind the point.
    template<int N>
    Pairs<N> aligned(int fractionPairs) const
    {
        const Pairs<N> value = load<N>(digits, size);
        return fractionPairs == fraction ? value : shifted<N>(value, fraction - fractionPairs);
    }
};

template<int N>
int compareAligned(const Operand &a, const Operand &b)
{
    const int fraction = std::max(a.fraction, b.fraction);
    return compare(a.aligned<N>(fraction), b.aligned<N>(fraction));
}

template<int N>
quint32 addAligned(uchar *dst, BCDIIType dstType, const Operand &a, const Operand &b, int style)
{
    const int fraction = std::max(a.fraction, b.fraction);
    Pairs<N> x = a.aligned<N>(fraction);
    Pairs<N> y = b.aligned<N>(fraction);
    bool negative = isNegative(a.digits);
    if (negative == isNegative(b.digits)) {
        add_(x, y);
    } else {
        if (compare(x, y) < 0) {
            std::swap(x, y);
            negative = !negative;
        }
        sub_(x, y);
    }
    return copy_internal(dst, dstType, x, fraction, negative, style);
}

constexpr quint64 kLimbBase = 100000000;

template<int N>
bool isOneLimb(const Pairs<N> &value)
{
    quint64 above = value.w[0] >> 32;
    for (int i = 1; i < N; ++i)
        above |= value.w[i];
    return above == 0;
}

/// Base-10^8 digits of a magnitude, least significant first.
template<int N>
void toLimbs(quint64 *limbs, const Pairs<N> &value)
{
    for (int i = 0; i < N; ++i) {
        const quint64 packed = packHundreds(value.w[i]);
        limbs[2 * i] = quint32(packed);
        limbs[2 * i + 1] = packed >> 32;
    }
}

/// Schoolbook product of A and B base-10^8 digits.
///
/// A column adds at most eight products below 10^16 (1.7 x 10^16 for malformed operands) and a
/// carry, which leaves room in 64 bits: the reduction is put off to the end of the column.
template<int A, int B>
Pairs<(A + B + 1) / 2> multiplyLimbs(const quint64 *a, const quint64 *b)
{
    quint64 column[A + B + 1] = {};
    for (int i = 0; i < A; ++i)
        for (int k = 0; k < B; ++k)
            column[i + k] += a[i] * b[k];

    Pairs<(A + B + 1) / 2> result;
    quint64 carry = 0;
    for (int i = 0; i < A + B; i += 2) {
        const quint64 low = column[i] + carry;
        const quint64 high = column[i + 1] + low / kLimbBase;
        carry = high / kLimbBase;
        result.w[i / 2] = quint64(unpackHundreds(quint32(high % kLimbBase))) << 32 |
                          unpackHundreds(quint32(low % kLimbBase));
    }
    return result;
}

/// The product of two operands of up to 8 N bytes. A multiplier of one base-10^8 digit, which most
/// quantities and rates are, is a single binary integer and skips the rest of the square.
template<int N>
quint32 multiply(uchar *dst, BCDIIType dstType, const Operand &a, const Operand &b, int style)
{
    constexpr int kLimbs = 2 * N;
    const int fraction = a.fraction + b.fraction;
    const bool negative = isNegative(a.digits) != isNegative(b.digits);
    const Pairs<N> x = load<N>(a.digits, a.size);
    const Pairs<N> y = load<N>(b.digits, b.size);
    quint64 xLimbs[kLimbs];
    quint64 yLimbs[kLimbs];
    toLimbs(xLimbs, x);
    toLimbs(yLimbs, y);
    if (isOneLimb(y))
        return copy_internal(dst, dstType, multiplyLimbs<kLimbs, 1>(xLimbs, yLimbs), fraction,
                             negative, style);
    if (isOneLimb(x))
        return copy_internal(dst, dstType, multiplyLimbs<kLimbs, 1>(yLimbs, xLimbs), fraction,
                             negative, style);
    return copy_internal(dst, dstType, multiplyLimbs<kLimbs, kLimbs>(xLimbs, yLimbs), fraction,
                         negative, style);
}

} // namespace

int BCDIICheckType(BCDIIType type)
{
    return precision(type) >= 1 && precision(type) <= kMaxDigits && scale(type) >= -kMaxScale &&
           scale(type) <= kMaxScale;
}

void BCDIIInit(uchar *digits, BCDIIType type)
{
    Q_ASSERT(BCDIICheckType(type));
    Q_UNUSED(type)
    digits[0] = kNullMark;
}

quint32 BCDIICheck(const uchar *digits, BCDIIType type)
{
    if (!BCDIICheckType(type))
        return BCDII_MALFORMED;
    if (digits[0] == kNullMark)
        return BCDII_NULL_OPERAND | BCDII_MALFORMED;
    const int size = length(type);
    Q_ASSERT(size == wholeBytes(type) + fractionBytes(type));
    const int first = digits[0] & kDigitBits;
    const int last = digits[size - 1] & kDigitBits;
    if ((type & 1) && (last % 10 != 0 || last > 90))
        return BCDII_MALFORMED;
    if (first > (wholeDigits(type) & 1 ? 9 : 99))
        return BCDII_MALFORMED;
    if (std::any_of(digits + 1, digits + size, [](uchar pair) { return pair > 99; }))
        return BCDII_MALFORMED;
    if (_quickIsNULL(digits, type))
        return isNegative(digits) ? BCDII_MALFORMED : BCDII_ZERO;
    return signStatus(isNegative(digits));
}

void BCDIISetMax(uchar *digits, BCDIIType type)
{
    setNines(digits, type, 0);
}

void BCDIISetMin(uchar *digits, BCDIIType type)
{
    setNines(digits, type, kSignBit);
}

quint32 BCDIINeg(uchar *digits, BCDIIType type)
{
    Q_ASSERT(BCDIICheckType(type));
    if (isNullMark(digits))
        return kNullInput;
    if (_quickIsNULL(digits, type)) {
        digits[0] = 0; // also a malformed negative zero ends up positive
        return BCDII_ZERO;
    }
    digits[0] ^= kSignBit;
    return signStatus(isNegative(digits));
}

quint32 BCDIICopy(uchar *dst, BCDIIType dstType, const uchar *src, BCDIIType srcType, int style)
{
    Q_ASSERT(BCDIICheckType(dstType));
    Q_ASSERT(BCDIICheckType(srcType));
    if (isNullMark(src))
        return setNull(dst, kNullInput);
    const Operand from(src, srcType);
    return from.size <= 16 ? copy_internal(dst, dstType, load<2>(src, from.size), from.fraction,
                                           isNegative(src), style)
                           : copy_internal(dst, dstType, load<4>(src, from.size), from.fraction,
                                           isNegative(src), style);
}

int BCDIICmp(const uchar *a, BCDIIType aType, const uchar *b, BCDIIType bType)
{
    Q_ASSERT(BCDIICheckType(aType));
    Q_ASSERT(BCDIICheckType(bType));
    const bool negative = isNegative(a);
    if (negative != isNegative(b))
        return negative ? -1 : 1;
    int order;
    if (aType == bType) {
        order = compareBytes(a, b, length(aType));
    } else {
        const Operand x(a, aType);
        const Operand y(b, bType);
        const int width = std::max(x.whole, y.whole) + std::max(x.fraction, y.fraction);
        order = width <= 16 ? compareAligned<2>(x, y) : compareAligned<kAlignedWords>(x, y);
    }
    return negative ? -order : order;
}

quint32 BCDIIAdd(uchar *dst, BCDIIType dstType, const uchar *a, BCDIIType aType, const uchar *b,
                 BCDIIType bType, int style)
{
    Q_ASSERT(BCDIICheckType(dstType));
    Q_ASSERT(BCDIICheckType(aType));
    Q_ASSERT(BCDIICheckType(bType));
    if (isNullMark(a) || isNullMark(b))
        return setNull(dst, kNullInput);
    const Operand x(a, aType);
    const Operand y(b, bType);
    const int width = std::max(x.whole, y.whole) + std::max(x.fraction, y.fraction) + 1;
    if (width <= 16)
        return addAligned<2>(dst, dstType, x, y, style);
    if (width <= 40)
        return addAligned<5>(dst, dstType, x, y, style);
    return addAligned<kAlignedWords>(dst, dstType, x, y, style);
}

quint32 BCDIIMul(uchar *dst, BCDIIType dstType, const uchar *a, BCDIIType aType, const uchar *b,
                 BCDIIType bType, int style)
{
    Q_ASSERT(BCDIICheckType(dstType));
    Q_ASSERT(BCDIICheckType(aType));
    Q_ASSERT(BCDIICheckType(bType));
    if (isNullMark(a) || isNullMark(b))
        return setNull(dst, kNullInput);
    const Operand x(a, aType);
    const Operand y(b, bType);
    return std::max(x.size, y.size) <= 16 ? multiply<2>(dst, dstType, x, y, style)
                                          : multiply<4>(dst, dstType, x, y, style);
}
