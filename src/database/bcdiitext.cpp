#include "database/bcdii.h"

#include "database/bcdiiround.h"

#include <algorithm>
#include <cstdlib>

using namespace bcdii;

namespace
{

// The longest integer part a type describes: precision 63 at scale -62.
constexpr int kMaxWholeDigits = kMaxDigits + kMaxScale;

// What the parser keeps of a fraction: every digit of the largest scale, the next one, which
// rounding looks at, and one that tells whether anything but zeros came later.
constexpr int kFractionDigits = kMaxScale + 2;

constexpr int kWholeRoom = (kMaxWholeDigits + 1) / 2;
constexpr int kFractionRoom = kFractionDigits / 2;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

const char *skipDigits(const char *text)
{
    while (isDigit(*text))
        ++text;
    return text;
}

/// Base-100 bytes of parsed digits around a fixed decimal point.
class DigitBuffer
{
public:
    /// \p text holds \p count digits before the point.
    void setWhole(const char *text, int count)
    {
        m_whole = (count + 1) / 2;
        for (int exponent = count - 1; exponent >= 0; --exponent)
            m_bytes[kWholeRoom - 1 - exponent / 2] += digit(*text++, exponent & 1);
    }

    void setFraction(const char *text, int count)
    {
        m_fraction = (count + 1) / 2;
        for (int i = 0; i < count; ++i)
            m_bytes[kWholeRoom + i / 2] += digit(text[i], !(i & 1));
    }

    /// Marks that a digit other than zero follows the kept ones.
    void markLost() { m_bytes[kWholeRoom + kFractionRoom - 1] |= 1; }

    quint32 copyTo(uchar *dst, BCDIIType type, bool negative) const
    {
        const int size = m_whole + m_fraction;
        return size <= 16 ? copyTo<2>(dst, type, negative) : copyTo<12>(dst, type, negative);
    }

private:
    static uchar digit(char c, bool tens) { return uchar((c - '0') * (tens ? 10 : 1)); }

    template<int N>
    quint32 copyTo(uchar *dst, BCDIIType type, bool negative) const
    {
        return copy_internal(dst, type,
                             load<N>(m_bytes + kWholeRoom - m_whole, m_whole + m_fraction),
                             m_fraction, negative, BCDII_ROUND_HALF_UP);
    }

    uchar m_bytes[kWholeRoom + kFractionRoom] = {};
    int m_whole = 0;    // bytes in use before the point
    int m_fraction = 0; // and behind it
};

/// The digit of 10^exponent; 0 outside the stored ones.
char digitAt(const uchar *digits, BCDIIType type, int exponent)
{
    const int at = wholeBytes(type) - 1 - (exponent >> 1);
    if (at < 0 || at >= length(type))
        return '0';
    const int pair = digits[at] & kDigitBits;
    return char('0' + (exponent & 1 ? pair / 10 : pair % 10));
}

} // namespace

char *BCDII2StringSequence(const uchar *src, BCDIIType type, char *previous)
{
    Q_ASSERT(BCDIICheckType(type));
    char text[1 + kMaxWholeDigits + 1 + kMaxScale + 1];
    char *end = text;
    if (isNullMark(src)) {
        end = std::copy_n("NULL", 4, end);
    } else {
        if (isNegative(src))
            *end++ = '-';
        int exponent = wholeDigits(type) - 1;
        while (exponent >= 0 && digitAt(src, type, exponent) == '0')
            --exponent;
        for (; exponent >= 0; --exponent)
            *end++ = digitAt(src, type, exponent);
        if (scale(type) > 0)
            *end++ = '.';
        for (exponent = -1; exponent >= -scale(type); --exponent)
            *end++ = digitAt(src, type, exponent);
    }
    *end++ = '\0';

    const size_t size = size_t(end - text);
    char *result = static_cast<char *>(std::malloc(size));
    if (result)
        std::memcpy(result, text, size);
    std::free(previous);
    return result;
}

quint32 BCDIIFromString(uchar *dst, BCDIIType *type, const char *text)
{
    Q_ASSERT(BCDIICheckType(*type));
    while (*text == ' ' || *text == '\t' || *text == '\n' || *text == '\r')
        ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    const bool zeroSeen = *text == '0';
    while (*text == '0')
        ++text;

    const char *const whole = text;
    text = skipDigits(whole);
    const auto wholeCount = text - whole;
    const char *const fraction = *text == '.' || *text == ',' ? text + 1 : text;
    text = skipDigits(fraction);
    const auto fractionCount = text - fraction;

    if (wholeCount == 0 && fractionCount == 0 && !zeroSeen)
        return setNull(dst, kNoDigits);
    if (wholeCount > std::max(0, wholeDigits(*type)))
        return setNull(dst, kDoesNotFit);

    DigitBuffer digits;
    digits.setWhole(whole, int(wholeCount));
    digits.setFraction(fraction, int(std::min<qint64>(fractionCount, kFractionDigits)));
    if (fractionCount > kFractionDigits &&
        std::any_of(fraction + kFractionDigits, text, [](char c) { return c != '0'; }))
        digits.markLost();
    const int lengthBefore = length(*type);
    *type = makeType(precision(*type), int(std::min<qint64>(fractionCount, kMaxScale)));
    // The number that stood here may have been a byte longer.
    std::fill(dst + std::min(length(*type), lengthBefore), dst + lengthBefore, uchar(0));
    return digits.copyTo(dst, *type, negative);
}
