#include "database/values/digittext.h"

#include <algorithm>
#include <cstring>

namespace bcdii
{

namespace
{

constexpr int kLongest = 1 + kTextDigits + 1; // with a sign and a point

// Eight characters at a time, the first of them in the lowest byte.

/// The four pairs that eight characters stand for; sets a bit of \p faults if one is no digit.
quint32 fourPairsOf(const char *text, quint64 *faults)
{
    const quint64 digits = qFromLittleEndian<quint64>(text) ^ kEachByte * '0';
    *faults |= (digits | (digits + kEachByte * 6)) & kEachByte * 0xF0;
    const quint64 pairs = (digits * 10 + (digits >> 8)) & 0x00FF00FF00FF00FFu;
    const quint64 fours = (pairs | pairs >> 8) & 0x0000FFFF0000FFFFu;
    return qbswap(quint32(fours | fours >> 16));
}

quint64 eightPairsOf(const char *text, quint64 *faults)
{
    const quint64 high = fourPairsOf(text, faults);
    return high << 32 | fourPairsOf(text + 8, faults);
}

/// Eight digits of four pairs in 16 bits each, the first pair in the lowest.
quint64 splitPairs(quint64 pairs)
{
    const quint64 tens = (pairs * 103) >> 10 & 0x000F000F000F000Fu; // 103 / 1024 is 1/10 up to 178
    return (pairs << 8) - tens * 2559; // units into the upper byte: 256 (pair - 10 tens) + tens
}

/// Eight digits of four pairs, the first in the highest byte.
quint64 digitsOfPairs(quint32 pairs)
{
    const quint64 swapped = qbswap(pairs);
    const quint64 fours = (swapped | swapped << 16) & 0x0000FFFF0000FFFFu;
    return splitPairs((fours | fours << 8) & 0x00FF00FF00FF00FFu);
}

/// Eight digits of a number below 10^8, split as in unpackHundreds.
quint64 digitsOfNumber(quint32 value)
{
    const quint64 high = value / 10000;
    const quint64 fours = quint64(value - 10000 * high) << 32 | high;
    const quint64 hundreds = (fours * 10486) >> 20 & 0x0000007F0000007Fu;
    return splitPairs((fours << 16) - hundreds * ((100 << 16) - 1));
}

void writeDigits(char *text, quint64 digits)
{
    qToLittleEndian(digits | kEachByte * '0', text);
}

/// Count characters as UTF-16.
template<int Count>
void widen(ushort *units, const char *text)
{
    char piece[Count]; // may not overlap the units, so that all are widened at once
    std::memcpy(piece, text, Count);
    for (int i = 0; i < Count; ++i)
        units[i] = uchar(piece[i]);
}

} // namespace

bool readDigits(const char *text, size_t size, DigitEnd end, DigitText *result)
{
    if (size == 0 || size > kLongest)
        return false;
    const char *const last = text + size;
    result->negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    // From the end: prices have few places, and the same number of them.
    const char *fraction = last;
    while (fraction != text && (fraction[-1] | 2) != '.') // '.' or ','
        --fraction;
    const bool hasPoint = fraction != text;
    if (!hasPoint)
        fraction = last;
    const int places = int(last - fraction);
    const int whole = int(fraction - text) - (hasPoint ? 1 : 0);
    const int zeros = end == DigitEnd::Frame ? 2 - (places & 1) : 0;
    if ((hasPoint ? places : whole) == 0 || whole + places + zeros > kTextDigits)
        return false;

    // Unlike the text, these can be read eight at a time; what is no digit shows there.
    char digits[kTextDigits];
    std::memset(digits, '0', sizeof digits);
    char *const point = digits + kTextDigits - zeros - places;
    std::memcpy(point - whole, text, size_t(whole));
    std::memcpy(point, fraction, size_t(places));
    quint64 faults = 0;
    const quint64 high = eightPairsOf(digits, &faults);
    result->pairs = join(high, eightPairsOf(digits + 16, &faults));
    result->places = places;
    result->comma = hasPoint && fraction[-1] == ',';
    return faults == 0;
}

bool readDigits(QStringView text, DigitEnd end, DigitText *result)
{
    if (text.size() > kLongest)
        return false;
    char narrow[kLongest];
    unsigned all = 0;
    for (int i = 0; i < int(text.size()); ++i) {
        const unsigned c = text.utf16()[i];
        narrow[i] = char(c);
        all |= c;
    }
    return all <= 0x7F && readDigits(narrow, size_t(text.size()), end, result);
}

DigitWriter::DigitWriter(UInt128 pairs, int pointDigits, int places, bool negative)
{
    writeDigits(m_text + kBegin, digitsOfPairs(quint32(pairs >> 96)));
    writeDigits(m_text + kBegin + 8, digitsOfPairs(quint32(pairs >> 64)));
    writeDigits(m_text + kBegin + 16, digitsOfPairs(quint32(pairs >> 32)));
    writeDigits(m_text + kBegin + 24, digitsOfPairs(quint32(pairs)));
    const int count = significantPairs(pairs);
    const bool single = count > 0 && pairs >> 8 * (count - 1) < 10;
    finish(2 * count - (single ? 1 : 0), pointDigits, places, negative);
}

DigitWriter::DigitWriter(quint64 magnitude, int pointDigits, int places, bool negative)
{
    const quint64 rest = magnitude % kTenTo16;
    const quint64 first = magnitude / kTenTo16;
    const quint64 high = digitsOfNumber(quint32(rest / kTenTo8));
    const quint64 low = digitsOfNumber(quint32(rest % kTenTo8));
    std::memset(m_text + kBegin, '0', 15);
    m_text[kBegin + 15] = char('0' + first);
    writeDigits(m_text + kBegin + 16, high);
    writeDigits(m_text + kBegin + 24, low);
    const quint64 leading = high != 0 ? high : low;
    const int before = high != 0 ? 16 : 8;
    const int digits = leading == 0 ? 0 : before - (int(qCountTrailingZeroBits(leading)) >> 3);
    finish(first != 0 ? 17 : digits, pointDigits, places, negative);
}

/// Places point and sign around the digits, \p digits of which count.
inline void DigitWriter::finish(int digits, int pointDigits, int places, bool negative)
{
    char *const end = m_text + kBegin + kTextDigits;
    std::memset(m_text, '0', kBegin);
    char *first = end - digits;
    char *point = end - pointDigits;
    if (pointDigits < 0) {
        std::memset(end, '0', size_t(-pointDigits));
        if (first == end)
            point = end;
    }
    first = std::min(first, point - 1);
    m_end = point + places;
    if (places > 0) {
        // Digits before the point make room for it; all of them are among the next 32.
        char whole[kTextDigits];
        std::memcpy(whole, point - kTextDigits, kTextDigits);
        std::memcpy(point - kTextDigits - 1, whole, kTextDigits);
        point[-1] = '.';
        --first;
    }
    first[-1] = '-'; // without a branch, since signs are hard to foresee
    m_begin = first - (negative ? 1 : 0);
}

QString DigitWriter::toString() const
{
    const int size = int(m_end - m_begin);
    QString result(size, Qt::Uninitialized);
    auto *const units = reinterpret_cast<ushort *>(result.data());
    // In pieces of a fixed size, the last of which overlaps the one before: lengths vary, and a
    // loop over what is left would be foreseen wrongly.
    if (size >= 8) {
        for (int i = 0; i + 8 < size; i += 8)
            widen<8>(units + i, m_begin + i);
        widen<8>(units + size - 8, m_end - 8);
    } else if (size >= 4) {
        widen<4>(units, m_begin);
        widen<4>(units + size - 4, m_end - 4);
    } else {
        for (int i = 0; i < size; ++i)
            units[i] = uchar(m_begin[i]);
    }
    return result;
}

} // namespace bcdii
