#pragma once

// Internal to the value types: up to 16 digit pairs in one 128-bit integer.

#include "database/bcdiipairs.h"

namespace bcdii
{

/// Digit pairs as in Pairs<2> (the least significant one lowest), or the integer they stand for.
/// One type for both words lets the compiler carry and shift across them.
__extension__ typedef unsigned __int128 UInt128;

constexpr UInt128 join(quint64 high, quint64 low)
{
    return UInt128(high) << 64 | low;
}

constexpr quint64 kTenTo8 = 100000000;
constexpr quint64 kTenTo16 = kTenTo8 * kTenTo8;

/// Pairs from the first that is not zero on.
inline int significantPairs(UInt128 pairs)
{
    const auto high = quint64(pairs >> 64);
    const auto low = quint64(pairs);
    const int zeroBits =
        high ? int(qCountLeadingZeroBits(high)) : 64 + int(qCountLeadingZeroBits(low));
    return (128 + 7 - zeroBits) >> 3;
}

/// a + b, or a - b for a that is not less than b, of up to 15 pairs each; the result fits as many.
///
/// As in add_, a bias of 156 makes a byte overflow when its pair reaches 100. A difference adds the
/// complement: 99 - b with that bias is just ~b. Which of the two it is costs no branch, since
/// signs are what a processor cannot foresee.
inline UInt128 combined(UInt128 a, UInt128 b, bool subtract)
{
    constexpr UInt128 kUnits = join(kEachByte, kEachByte);
    constexpr UInt128 kFifteen = (UInt128(1) << 120) - 1;
    const UInt128 addend = subtract ? ~b : b + kUnits * kBias;
    const UInt128 sum = a + addend + (subtract ? 1 : 0);
    const UInt128 carries = (sum ^ a ^ addend) >> 8 & kUnits;
    return (sum - (kUnits - carries) * kBias) & kFifteen;
}

inline quint64 wordToBinary(quint64 pairs)
{
    const quint64 packed = packHundreds(pairs);
    return (packed >> 32) * kTenTo8 + quint32(packed);
}

inline UInt128 toBinary(UInt128 pairs)
{
    return UInt128(wordToBinary(quint64(pairs >> 64))) * kTenTo16 + wordToBinary(quint64(pairs));
}

/// The pairs of a number below 10^28.
inline UInt128 toPairs(UInt128 binary)
{
    // 2^117 / 10^16, rounded down, times 2^-31 of the number (below 2^63): the quotient or, since
    // what both roundings cost stays below 1, one less.
    constexpr auto kReciprocal = quint64((UInt128(1) << 117) / kTenTo16);
    auto high = quint64((UInt128(quint64(binary >> 31)) * kReciprocal) >> 86);
    quint64 low = quint64(binary) - high * kTenTo16;
    if (low >= kTenTo16) {
        ++high;
        low -= kTenTo16;
    }
    return join(unpackWord(high), unpackWord(low));
}

} // namespace bcdii
