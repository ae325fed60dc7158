#pragma once

// Internal to the packed decimal unit: how a result is rounded into its destination.

#include "database/bcdiipairs.h"

namespace bcdii
{

/// Whether dropping non-zero digits, the first of them \p firstDropped, adds a unit.
inline bool round_internal(int style, bool negative, int firstDropped)
{
    switch (style) {
    case BCDII_ROUND_HALF_UP:
        return firstDropped >= 5;
    case BCDII_ROUND_CEIL:
        return !negative;
    case BCDII_ROUND_FLOOR:
        return negative;
    case BCDII_ROUND_UP:
        return true;
    case BCDII_ROUND_DOWN:
        return false;
    }
    Q_ASSERT(!"Wrong roundstyle parameter");
    return false;
}

/// Second half of copy_internal, on K words that hold the destination: what is left of \p value
/// once the \p drop lowest pairs are gone is rounded and stored.
template<int K, int N>
inline quint32 roundAndStore(uchar *dst, BCDIIType type, const Pairs<N> &value, int drop,
                             bool negative, int style)
{
    const int size = length(type);
    Pairs<K> kept = shifted<K>(value, drop);
    bool inexact = anyBelow(value, drop);
    int firstDropped = 0;
    if (type & 1) { // an odd scale: the units of the last byte are dropped as well
        firstDropped = int(kept.w[0] & 0xFF) % 10;
        kept.w[0] -= quint64(firstDropped);
        inexact |= firstDropped != 0;
    } else if (inexact) {
        firstDropped = pairAt(value, drop - 1) / 10;
    }

    if (inexact) {
        const bool up = round_internal(style, negative, firstDropped);
        if (isZero(kept)) {
            if (!up)
                return _quickSetNULL(dst, size, kRoundedAway);
            if (scale(type) <= 0) // does not round up to one unit
                return setNull(dst, style == BCDII_ROUND_CEIL || style == BCDII_ROUND_FLOOR
                                        ? kDoesNotFit | BCDII_NEGATIVE
                                        : kDoesNotFit);
        }
        if (up) {
            _addtodigit(kept, type & 1 ? 10 : 1);
            if (leadingExponent(kept, fractionBytes(type)) >= wholeDigits(type))
                return setNull(dst, kDoesNotFit | BCDII_INEXACT);
        }
    }
    store(dst, size, kept);
    if (negative)
        dst[0] |= kSignBit;
    return signStatus(negative) | (inexact ? quint32(BCDII_INEXACT) : 0);
}

/// Stores a magnitude and a sign as a number of \p type; the end of every operation.
/// \param fractionPairs  pairs of \p value behind the decimal point
/// \return see BCDIICopy
template<int N>
inline quint32 copy_internal(uchar *dst, BCDIIType type, const Pairs<N> &value, int fractionPairs,
                             bool negative, int style)
{
    if (isZero(value))
        return _quickSetNULL(dst, length(type), BCDII_ZERO);
    if (leadingExponent(value, fractionPairs) >= wholeDigits(type))
        return setNull(dst, kDoesNotFit);
    // One byte more than the number, so that a carry out of its first byte is still seen.
    const int drop = fractionPairs - fractionBytes(type);
    return length(type) < 16 ? roundAndStore<2>(dst, type, value, drop, negative, style)
                             : roundAndStore<5>(dst, type, value, drop, negative, style);
}

} // namespace bcdii
