#pragma once

// Internal to decimal and xdecimal: texts of an optional sign, digits and a point, which both have,
// to and from digit pairs.

#include "database/values/pairs128.h"

#include <QtCore/qstring.h>

namespace bcdii
{

constexpr int kTextDigits = 32; // of 16 pairs

/// Where the last of the pairs ends.
enum class DigitEnd {
    LastDigit, ///< with the last digit of the text
    Frame      ///< one or two zeros later, as in an XDecimalFrame
};

/// What a text says.
struct DigitText {
    UInt128 pairs;
    int places; ///< digits behind the point
    bool negative;
    bool comma; ///< "," stood for the point
};

/// Reads an optional sign, digits, and "." or "," with more digits, all of the text. Digits before
/// the point may be missing.
/// \return false for every other text and for one of more than kTextDigits digits, zeros of \p end
///         included: it may still be a number to a reader that knows more forms
bool readDigits(const char *text, size_t size, DigitEnd end, DigitText *result);
bool readDigits(QStringView text, DigitEnd end, DigitText *result);

/// The text of a number, in a buffer of its own.
///
/// The point stands pointDigits (up to 64) before the end of the digits given, or behind so many
/// more zeros when that is negative (down to -64). The first of the digits behind it, as many as
/// places says, are written, the point only with them. At least one digit stands before it, and
/// zero has no zeros behind.
class DigitWriter
{
public:
    DigitWriter(UInt128 pairs, int pointDigits, int places, bool negative);
    DigitWriter(quint64 magnitude, int pointDigits, int places, bool negative); // below 10^17
    Q_DISABLE_COPY(DigitWriter)

    QString toString() const;

private:
    static constexpr int kZeros = 64;         // on either side of the digits
    static constexpr int kBegin = 2 + kZeros; // of the digits; also a sign and a point precede them

    void finish(int digits, int pointDigits, int places, bool negative);

    char m_text[kBegin + kTextDigits + kZeros];
    const char *m_begin; // of the text in it
    const char *m_end;
};

} // namespace bcdii
