#pragma once

// Internal to xdecimal: its bytes in two machine words.

#include "database/values/pairs128.h"
#include "database/xdecimal.h"

namespace bcdii
{

/// An xdecimal other than NULL in registers, where its usual operations happen.
///
/// The pairs are all 14 digit bytes, the last one 0 where the type does not use it. Scales 2 k and
/// 2 k + 1 then have the point at the same place, pointPairs() bytes from the end, and differ in
/// two bytes only: an even scale has a last pair of 0, an odd one a last pair of whole tens and a
/// first pair below 10. So numbers of any two scales align by whole bytes, sums and products come
/// out aligned, and dropping digits always finds the first dropped one in the last byte.
struct XDecimalFrame {
    UInt128 pairs;
    bool negative; // no matter for zero
    int scale;
};

constexpr int kFramePairs = 14;

/// Pairs behind the point; negative when the last one stands before it.
constexpr int pointPairs(int scale)
{
    return (scale >> 1) + 1;
}

/// Whether the integer digits of a frame of that scale fit an xdecimal.
constexpr bool fitsFrame(UInt128 pairs, int scale)
{
    return pairs < UInt128(scale & 1 ? 10 : 256) << 8 * (kFramePairs - 1);
}

/// Moves the point \p places pairs (0 or more) away from the last one.
/// \return false when the first pair does not stay within the frame
inline bool extend(UInt128 *pairs, int places)
{
    if (places >= kFramePairs || *pairs >> 8 * (kFramePairs - places) != 0)
        return false;
    *pairs <<= 8 * places;
    return true;
}

constexpr quint64 kFrameSign = quint64(1) << 47; // in the first of the two words

inline XDecimalFrame loadFrame(const xdecimal &value)
{
    const auto high = qFromBigEndian<quint64>(value.data());
    const auto low = qFromBigEndian<quint64>(value.data() + 8);
    // Of an even scale the last byte is none of the number's: its place counts as a pair of 0
    // whatever came there, from an older text in the same memory or from a file.
    const quint64 unused = value.scale() & 1 ? 0 : 0xFF;
    return {join(high & (kFrameSign - 1), low & ~unused), (high & kFrameSign) != 0, value.scale()};
}

inline xdecimal storeFrame(const XDecimalFrame &frame)
{
    const auto type = quint16(makeType(xdecimal::kPrecision, frame.scale));
    const bool negative = frame.negative && frame.pairs != 0;
    const quint64 high = quint64(qFromBigEndian(type)) << 48 | (negative ? kFrameSign : 0) |
                         quint64(frame.pairs >> 64);
    xdecimal result;
    auto *const bytes = const_cast<uchar *>(result.data());
    qToBigEndian(high, bytes);
    qToBigEndian(quint64(frame.pairs), bytes + 8);
    return result;
}

} // namespace bcdii
