#pragma once

// Internal to the packed decimal unit: numbers as digit pairs in machine words.

#include "database/bcdii.h"

#include <QtCore/qendian.h>

#include <cstring>

/// The arithmetic works on whole machine words of digit pairs, not on single bytes.
///
/// Pairs<N> is a magnitude of up to 8 N base-100 digits. Invariants:
///  (1) w[0] is the least significant word, and in a word the least significant pair is the lowest
///      byte. Significance in the word and in the number agree, so magnitudes compare as integers
///      and move by whole pairs as shifts.
///  (2) A byte is 0..99 for a well-formed number. Bytes of a malformed one are at most 127; they
///      give a meaningless value, never an access outside the words.
///  (3) The place of the decimal point is kept beside the words, as the number of pairs behind it
///      (negative when the lowest pair lies left of the point).
/// Everything an operation reads is in words before it writes its destination, so operands and
/// destination may overlap in any way.
namespace bcdii
{

constexpr int kMaxDigits = 63;
constexpr int kMaxScale = 62;
constexpr uchar kNullMark = 101;
constexpr uchar kSignBit = 0x80;
constexpr uchar kDigitBits = 0x7F;

constexpr quint64 kEachByte = 0x0101010101010101u; // times a byte: that byte in every place

/// Combined status values.
constexpr quint32 kNullInput = quint32(BCDII_NULL_OPERAND) | BCDII_MALFORMED | BCDII_NULL_RESULT;
constexpr quint32 kDoesNotFit = quint32(BCDII_OVERFLOW) | BCDII_NULL_RESULT;
constexpr quint32 kNoDigits = quint32(BCDII_MALFORMED) | BCDII_NULL_RESULT;
constexpr quint32 kRoundedAway = quint32(BCDII_INEXACT) | BCDII_ZERO;

constexpr int precision(BCDIIType type)
{
    return qint8(type >> 8);
}

constexpr int scale(BCDIIType type)
{
    return qint8(type);
}

constexpr BCDIIType makeType(int precision, int scale)
{
    return BCDIIType(quint8(precision) << 8 | quint8(scale));
}

constexpr int length(BCDIIType type)
{
    return int(BCDIILength(type));
}

/// Digits before the point; negative when the number starts behind it with implied zeros.
constexpr int wholeDigits(BCDIIType type)
{
    return precision(type) - scale(type);
}

/// Bytes before and behind the point. Either may be negative; the shifts floor.
constexpr int wholeBytes(BCDIIType type)
{
    return (wholeDigits(type) + 1) >> 1;
}

constexpr int fractionBytes(BCDIIType type)
{
    return (scale(type) + 1) >> 1;
}

inline bool isNegative(const uchar *digits)
{
    return digits[0] & kSignBit;
}

inline bool isNullMark(const uchar *digits)
{
    return (digits[0] & kDigitBits) > 99;
}

/// Status of an exact result other than zero.
constexpr quint32 signStatus(bool negative)
{
    return negative ? quint32(BCDII_NEGATIVE) : 0;
}

inline quint32 setNull(uchar *digits, quint32 status)
{
    digits[0] = kNullMark;
    return status;
}

/// Zero fill of a whole number; "NULL" is the value zero here.
inline quint32 _quickSetNULL(uchar *digits, int length, quint32 status)
{
    std::memset(digits, 0, size_t(length));
    return status;
}

template<int N>
struct Pairs {
    quint64 w[N];
};

/// The first \p count (1..7) of \p length bytes as a word; reads no byte outside the number.
inline quint64 loadHead(const uchar *digits, int length, int count)
{
    if (length >= 8)
        return qFromBigEndian<quint64>(digits) >> (8 * (8 - count));
    if (count >= 4) // two overlapping reads; the bytes they share agree
        return quint64(qFromBigEndian<quint32>(digits)) << (8 * (count - 4)) |
               qFromBigEndian<quint32>(digits + count - 4);
    quint64 word = digits[0];
    for (int i = 1; i < count; ++i)
        word = word << 8 | digits[i];
    return word;
}

/// The magnitude of \p length bytes, the last one in the lowest byte of w[0].
template<int N>
inline Pairs<N> load(const uchar *digits, int length)
{
    Q_ASSERT(length <= 8 * N);
    Pairs<N> result;
    for (int i = 0; i < N; ++i) {
        const int rest = length - 8 * i;
        if (rest >= 8)
            result.w[i] = qFromBigEndian<quint64>(digits + rest - 8);
        else
            result.w[i] = rest > 0 ? loadHead(digits, length, rest) : 0;
        result.w[i] &= kEachByte * kDigitBits;
    }
    return result;
}

/// Writes the lowest \p length bytes.
template<int N>
inline void store(uchar *digits, int length, const Pairs<N> &value)
{
    for (int i = 0; i < N; ++i) {
        const int rest = length - 8 * i;
        if (rest >= 8) {
            qToBigEndian(value.w[i], digits + rest - 8);
        } else if (rest > 0) {
            if (i > 0) { // one full store that overlaps the previous one with the same bytes
                qToBigEndian(value.w[i] << (8 * (8 - rest)) | value.w[i - 1] >> (8 * rest), digits);
            } else {
                for (int k = 0; k < rest; ++k)
                    digits[rest - 1 - k] = uchar(value.w[0] >> (8 * k));
            }
        }
    }
}

template<int N>
inline bool isZero(const Pairs<N> &value)
{
    quint64 any = 0;
    for (quint64 word : value.w)
        any |= word;
    return any == 0;
}

/// value x 100^-pairs, cut to K words on both ends; a negative count moves to the left.
template<int K, int N>
inline Pairs<K> shifted(const Pairs<N> &value, int pairs)
{
    const int words = pairs >> 3;
    const int bits = (pairs & 7) * 8;
    const auto word = [&value](int i) { return unsigned(i) < unsigned(N) ? value.w[i] : 0; };
    Pairs<K> result;
    for (int i = 0; i < K; ++i) // in two steps to the left: a shift by 64 is undefined
        result.w[i] = word(words + i) >> bits | (word(words + i + 1) << 1) << (63 - bits);
    return result;
}

/// True when one of the lowest \p pairs bytes is not zero.
template<int N>
inline bool anyBelow(const Pairs<N> &value, int pairs)
{
    quint64 any = 0;
    for (int i = 0; i < N; ++i) {
        const int count = pairs - 8 * i;
        if (count >= 8)
            any |= value.w[i];
        else if (count > 0)
            any |= value.w[i] & ((quint64(1) << (8 * count)) - 1);
    }
    return any != 0;
}

/// The pair at place \p index, counted from the lowest; 0 above the words.
template<int N>
inline int pairAt(const Pairs<N> &value, int index)
{
    return index < 8 * N ? int(value.w[index >> 3] >> (8 * (index & 7))) & 0xFF : 0;
}

/// The power of ten of the first significant digit; the value is not zero.
template<int N>
inline int leadingExponent(const Pairs<N> &value, int fractionPairs)
{
    int i = N - 1;
    while (i > 0 && value.w[i] == 0)
        --i;
    const int byte = (63 - int(qCountLeadingZeroBits(value.w[i] | 1))) >> 3;
    const bool two = (value.w[i] >> (8 * byte)) > 9;
    return 2 * (8 * i + byte - fractionPairs) + (two ? 1 : 0);
}

// Base-100 addition rides on the binary one: 156 on top of each byte makes a byte overflow exactly
// when its pair reaches 100, and the binary carry does the rippling. Bytes that did not overflow
// give the 156 back.
constexpr quint64 kBias = 256 - 100;

/// a + b in place; the sum fits N words.
template<int N>
inline void add_(Pairs<N> &a, const Pairs<N> &b)
{
    quint64 carry = 0;
    for (int i = 0; i < N; ++i) {
        const quint64 biased = a.w[i] + kEachByte * kBias;
        const quint64 partial = biased + b.w[i];
        const quint64 sum = partial + carry;
        carry = quint64(partial < biased) | quint64(sum < partial);
        const quint64 carries = ((sum ^ biased ^ b.w[i]) >> 8 & kEachByte) | carry << 56;
        a.w[i] = sum - (carries ^ kEachByte) * kBias;
    }
}

/// a - b in place; a is not less than b.
template<int N>
inline void sub_(Pairs<N> &a, const Pairs<N> &b)
{
    quint64 borrow = 0;
    for (int i = 0; i < N; ++i) {
        const quint64 partial = a.w[i] - b.w[i];
        const quint64 difference = partial - borrow;
        borrow = quint64(partial > a.w[i]) | quint64(difference > partial);
        const quint64 borrows = ((difference ^ a.w[i] ^ b.w[i]) >> 8 & kEachByte) | borrow << 56;
        a.w[i] = difference - borrows * kBias;
    }
}

/// Adds \p unit (1 or 10) to the lowest pair and lets it carry.
template<int N>
inline void _addtodigit(Pairs<N> &value, quint64 unit)
{
    Pairs<N> step{};
    step.w[0] = unit;
    add_(value, step);
}

/// Less than, equal to or greater than zero as \p a is to \p b.
template<int N>
inline int compare(const Pairs<N> &a, const Pairs<N> &b)
{
    for (int i = N - 1; i >= 0; --i)
        if (a.w[i] != b.w[i])
            return a.w[i] < b.w[i] ? -1 : 1;
    return 0;
}

/// Two base-10^8 digits, low and high half, from the eight pairs of a word.
inline quint64 packHundreds(quint64 pairs)
{
    // h x 256 + l becomes h x 100 + l, then the same one size up.
    const quint64 fours = pairs - kBias * (pairs >> 8 & 0x00FF00FF00FF00FFu);
    return fours - (65536 - 10000) * (fours >> 16 & 0x0000FFFF0000FFFFu);
}

/// Four pairs from one base-10^8 digit.
inline quint32 unpackHundreds(quint32 value)
{
    const quint64 high = value / 10000;
    const quint64 fours = high << 32 | (value - 10000 * high);
    // 10486 / 2^20 is 1/100 for all numbers below 10000, in both halves at once
    const quint64 hundreds = (fours * 10486) >> 20 & 0x0000007F0000007Fu;
    const quint64 pairs = fours + kBias * hundreds;
    return quint32(pairs | pairs >> 16);
}

/// Eight pairs from a number below 10^16.
inline quint64 unpackWord(quint64 value)
{
    return quint64(unpackHundreds(quint32(value / 100000000))) << 32 |
           unpackHundreds(quint32(value % 100000000));
}

} // namespace bcdii
