#pragma once

#include "database/database_global.h"

#include <QtCore/qmetatype.h>
#include <QtCore/qstring.h>
#include <QtCore/qvariant.h>

class QDataStream;
class QLocale;

/// Exact decimal number of about 17 significant digits in one 64-bit word: mantissa x 10^-scale.
///
/// What is always true:
///  (1) Bits 0-55 hold the low bits of the mantissa and bit 63 its sign, so that the mantissa is a
///      57-bit two's-complement number, kMinMantissa..kMaxMantissa. Bits 56-62 hold the scale, a
///      7-bit two's-complement number, kMinScale..kMaxScale. Every word is a valid number.
///  (2) There is one zero per scale, and all zeros are equal. There is no NULL, infinity or NaN.
///  (3) The scale is kept as it was entered (1.50 is not stored as 1.5) and does not take part in
///      comparison or hashing.
///
/// Errors are thrown as QString messages; the object is left as it was. All functions may be called
/// from any thread; the functions that read the system locale share QLocale::system()'s limits.
class DATABASE_EXPORT decimal
{
public:
    static constexpr qint64 kMinMantissa = -(Q_INT64_C(1) << 56);
    static constexpr qint64 kMaxMantissa = (Q_INT64_C(1) << 56) - 1;
    static constexpr int kMinScale = -64;
    static constexpr int kMaxScale = 63;

    /// Zero of scale 0.
    constexpr decimal() = default;
    /// As fromString.
    explicit decimal(const QString &text);
    explicit decimal(const QStringRef &text);

    /// mantissa x 10^-scale. What lies outside the ranges is brought in by dividing the mantissa by
    /// 10, truncating, as long as it or the scale is too large, or by multiplying it exactly as
    /// long as the scale is too small. Throws "decimal:overflow" when the value is too large.
    static decimal fromParts(qint64 mantissa, short scale);
    /// The number that word() gave.
    static constexpr decimal fromWord(qint64 word) { return decimal(word); }

    /// Reads a text; nothing but these forms, the whole text, "e" in lower case, ASCII digits:
    ///  - the empty text is zero;
    ///  - an integer, "-12": scale 0;
    ///  - a fraction, "12.50" or "-.5": the scale is the number of fraction digits;
    ///  - a fraction or integer with a count of decimal places behind "e": the scale is that count
    ///    less the fraction digits, so 123e2 is 1.23, 15e1 is 1.5 and 1.5e2 is 15 at scale 1.
    ///    This is not a power of ten.
    /// More digits than the mantissa holds are cut off at the end, lowering the scale, and so are
    /// digits behind the 63rd place. Throws "Невозможно создать decimal по строке '%1'" for another
    /// text, for integer or fraction digits beyond the 64-bit integers, for an exponent beyond 32
    /// bits and for a value that is too large; the same with " (%2)", %2 being the sign, when the
    /// integer digits of a fraction are beyond the 64-bit integers.
    static decimal fromString(const QString &text);

    /// \p value to \p scale places. A scale above 0 rounds half away from zero, after multiplying
    /// by 10 once per place; a scale of 0 or below truncates. Throws "decimal:overflow" when the
    /// mantissa does not stay within +-2^56 (both excluded), for NaN, for infinities and for a
    /// scale outside kMinScale..kMaxScale.
    static decimal fromDouble(double value, short scale);

    /// Reads a text by a locale's conventions, as a double, which fromDouble takes to \p scale.
    /// Groups may be those that the locale has or of three digits. Throws "Error in input local
    /// string '%1'" for what is no number there, and as fromDouble.
    static decimal fromLocaleString(const QString &text, const QLocale &locale, int scale);
    /// fromLocaleString with the system locale.
    static decimal fromSystemString(const QString &text, int scale);
    /// Tries fromString, then fromSystemString to \p scale, then fromString with "." for every ",".
    /// fromString knows no ",", so the locale decides about it: "1,500" is 1500 in en_US and 1.500
    /// in de_DE, while xdecimal::fromAnyString makes 1.500 of it everywhere. Who knows the locale
    /// that a text comes from calls fromLocaleString.
    /// \param[out] ok  whether one of them succeeded; may be null
    /// \return what the first success gave, else zero; never throws
    static decimal fromAnyString(const QString &text, bool *ok, int scale);

    /// The value of a variant: of a decimal as it is; of the integer types exactly, with five
    /// places or as many as fit (throws "decimal:overflow" when digits would be lost); of a double
    /// to five places, as fromDouble; of a string as fromString (both may throw).
    /// \param[out] ok  true for those and for a null or invalid variant, else false; may be null
    /// \return zero for every other type
    static decimal fromVariant(const QVariant &variant, bool *ok = nullptr);

    /// Whether the text has the form of a number, with "." or "," for the decimal point (fromString
    /// reads the point only, fromAnyString both). \p emptyConverts is the answer for an empty text.
    static bool canConvert(const QString &text, bool emptyConverts);
    /// Whether the variant holds a decimal or a non-empty string that has the form of a number.
    static bool canConvert(const QVariant &variant);

    /// This value in a variant of the type metatypeId().
    QVariant toVariant() const;
    /// The id of this type, named "decimal", in Qt's meta-type system.
    static int metatypeId();

    constexpr qint64 word() const { return m_word; }
    constexpr qint64 mantissa() const
    {
        const qint64 low = m_word & kMaxMantissa;
        return m_word < 0 ? low + kMinMantissa : low;
    }
    constexpr short scale() const { return short(scaleField() - ((scaleField() & 0x40) << 1)); }

    /// Rounds to fewer places or appends zeros. Fewer places truncate all dropped digits but the
    /// first, which then rounds half away from zero: 1.049 becomes 1.0 and -2.35 becomes -2.4. More
    /// places are added as long as the mantissa stays below 2^56 in magnitude; the scale may end
    /// lower than asked for. A scale outside kMinScale..kMaxScale is taken as the nearest of them.
    void setScale(short scale);

    /// Compares by value, exactly: -1, 0 or 1.
    int compare(const decimal &other) const
    {
        // Same scale: equal bits between sign and mantissa leave the order to the two.
        if (scaleField() == other.scaleField())
            return (m_word > other.m_word) - (m_word < other.m_word);
        return compareAcrossScales(other);
    }

    /// mantissa / 10^scale in double arithmetic.
    double toDouble() const;

    /// The value where it is a whole number that Int holds: int, long, long long, short and their
    /// unsigned kin. Never rounds.
    /// \param[out] ok  whether it is one; may be null
    /// \return 0 for every other value
    template<class Int>
    Int toInteger(bool *ok = nullptr) const;

    /// Plain text with a point and all fraction digits, or with -scale zeros appended for a
    /// negative scale; always a digit before the point. With a scale above 0 the mantissa goes
    /// through a double: its last digits are lost above 2^53 (see toExactString).
    QString toString() const;
    /// The same with every digit of the mantissa.
    QString toExactString() const;
    /// toDouble() as the locale writes it, grouped, with scale() decimals (none below 0). As far as
    /// the double goes, about 15 digits, fromLocaleString reads the same number from it.
    QString toLocaleString(const QLocale &locale) const;
    /// toLocaleString with the system locale.
    QString toSystemString() const;
    /// toSystemString without zeros at the end of the fraction.
    QString toSystemStringShort() const;
    /// toString with the system locale's decimal point.
    QString toExcelString() const;

    friend bool operator==(const decimal &a, const decimal &b) { return a.compare(b) == 0; }
    friend bool operator!=(const decimal &a, const decimal &b) { return a.compare(b) != 0; }
    friend bool operator<(const decimal &a, const decimal &b) { return a.compare(b) < 0; }
    friend bool operator<=(const decimal &a, const decimal &b) { return a.compare(b) <= 0; }
    friend bool operator>(const decimal &a, const decimal &b) { return a.compare(b) > 0; }
    friend bool operator>=(const decimal &a, const decimal &b) { return a.compare(b) >= 0; }

private:
    explicit constexpr decimal(qint64 word)
        : m_word(word)
    {
    }

    constexpr int scaleField() const { return int(m_word >> 56) & 0x7F; }
    int compareAcrossScales(const decimal &other) const;

    qint64 m_word = 0; // invariant (1)
};

/// Equal values hash alike, whatever their scales.
DATABASE_EXPORT uint qHash(const decimal &value, uint seed = 0);

/// Streams the word as a 64-bit integer.
DATABASE_EXPORT QDataStream &operator<<(QDataStream &stream, const decimal &value);
DATABASE_EXPORT QDataStream &operator>>(QDataStream &stream, decimal &value);

Q_DECLARE_TYPEINFO(decimal, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(decimal)
