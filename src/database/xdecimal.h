#pragma once

#include "database/bcdii.h"
#include "database/database_global.h"

#include <QtCore/qmetatype.h>
#include <QtCore/qstring.h>
#include <QtCore/qvariant.h>

#include <cstddef>
#include <type_traits>

class QDataStream;
class QLocale;

/// Exact decimal number of 26 significant digits in 16 bytes: a packed decimal with its type word.
///
/// What is always true:
///  (1) The first two bytes are the type word, of precision kPrecision and a scale of
///      kMinScale..kMaxScale; the digits follow in the format of bcdii.h, in 14 bytes of an odd
///      scale and 13 of an even one. The byte left over is 0 in every value made here, and nothing
///      here looks at it, so that raw memory with another byte there is the same number.
///  (2) The value is a well-formed number or NULL. NULL comes from memory and streams only: every
///      operation here throws rather than give it.
///  (3) The scale is kept as it was entered and does not take part in comparison or hashing.
///
/// Errors: texts throw QString messages, arithmetic throws plain literals (const char *):
/// "xdecimal:overflow", "xdecimal:nan" and "xdecimal:bad operand". An object is left as it was. All
/// functions may be called from any thread; the functions that read the system locale share
/// QLocale::system()'s limits.
class DATABASE_EXPORT xdecimal
{
public:
    static constexpr int kPrecision = 26;
    static constexpr int kMinScale = -62;
    static constexpr int kMaxScale = 62;

    /// Zero of scale 0.
    constexpr xdecimal() = default;
    /// As fromString; the last reads Latin-1, and a null pointer as an empty text.
    explicit xdecimal(const QString &text);
    explicit xdecimal(const QStringRef &text);
    explicit xdecimal(const char *text);
    xdecimal(std::nullptr_t) = delete;
    /// An integer, exactly, at scale 0. So a literal 0 is zero, not a text that is missing.
    template<class Int,
             class = std::enable_if_t<std::is_integral_v<Int> && !std::is_same_v<Int, bool> &&
                                      !std::is_same_v<Int, char>>>
    explicit xdecimal(Int value)
        : xdecimal(std::is_signed_v<Int> ? fromInt64(qint64(value)) : fromUInt64(quint64(value)))
    {
    }

    /// The numbers of 26 nines at scale -62, the ends of the range.
    static xdecimal minimum();
    static xdecimal maximum();

    /// Reads a text; nothing but these forms, the whole text, "e" in lower case, ASCII digits:
    ///  - an integer, "-12": scale 0;
    ///  - a fraction with "." or ",", "12.50" or "-,5": the scale is the number of fraction digits;
    ///  - an integer or a fraction with "." and digits on both sides of it, "e" and a power of ten:
    ///    1.5e2 is 150 at scale 0, 15e-3 is 0.015. The scale is what the text would have without
    ///    the exponent. (decimal takes the number behind "e" for a count of places instead.)
    /// A text that is no such number or does not fit exactly, fraction digits as they stand,
    /// throws "Невозможно создать xdecimal по строке '%1'"; a fraction that does not fit the same
    /// with " (%2)", %2 being the sign.
    static xdecimal fromString(const QString &text);

    /// \p value rounded half away from zero to \p scale places. Throws "xdecimal:overflow" when it
    /// does not fit and for a scale outside the range. NaN gives zero.
    static xdecimal fromDouble(double value, short scale);
    /// value x 10^-scale, exactly. Throws "xdecimal:overflow" for a scale outside the range.
    static xdecimal fromInt64(qint64 value, short scale = 0);
    static xdecimal fromUInt64(quint64 value, short scale = 0);

    /// Reads a text by a locale's conventions, exactly: its digits, signs, decimal point and group
    /// separators, the groups as the locale has them or of three digits. Throws "Error in input
    /// local string '%1'" for what is no number there or does not fit.
    static xdecimal fromLocaleString(const QString &text, const QLocale &locale);
    /// fromLocaleString with the system locale.
    static xdecimal fromSystemString(const QString &text);
    /// Tries fromString, then fromSystemString, then fromString with "." for every ",". fromString
    /// reads a lone "," as the decimal point, so "1,500" is 1.500 here in every locale, also in one
    /// that groups by ",", where decimal::fromAnyString makes 1500 of it. Who knows the locale
    /// that a text comes from calls fromLocaleString.
    /// \param[out] ok  whether one of them succeeded; may be null
    /// \return what the first success gave, else zero; never throws
    static xdecimal fromAnyString(const QString &text, bool *ok);

    /// The value of a variant: of an xdecimal as it is; of the integer types (exactly) and double
    /// to five places (throws as fromDouble); of a string as fromString (which may throw).
    /// \param[out] ok  true for those and for a null or invalid variant, else false; may be null
    /// \return zero for every other type
    static xdecimal fromVariant(const QVariant &variant, bool *ok = nullptr);

    /// Whether the text has a form that fromString reads. \p emptyConverts is the answer for an
    /// empty text.
    static bool canConvert(const QString &text, bool emptyConverts);
    /// Whether the variant holds an xdecimal or a non-empty string that fromString reads.
    static bool canConvert(const QVariant &variant);

    /// This value in a variant of the type metatypeId().
    QVariant toVariant() const;
    /// The id of this type, named "xdecimal", in Qt's meta-type system.
    static int metatypeId();

    /// Whether 16 bytes from outside (a row of a file) are such a number. NULL is none.
    static bool isNumber(const uchar *bytes);
    /// The 16 bytes: the type word, then the digits.
    const uchar *data() const { return reinterpret_cast<const uchar *>(this); }
    bool isNull() const { return (m_digits[0] & 0x7F) > 99; }
    short scale() const { return static_cast<signed char>(m_type & 0xFF); }

    /// Rounds half up to \p scale places. Throws "xdecimal:bad operand" when the integer digits do
    /// not fit there, for NULL and for a scale outside the range; and at a scale of zero or below
    /// also for a number that would round up to one unit from nothing: 0.5 has no value at scale
    /// 0 (1.5 becomes 2, 0.4 becomes 0). See BCDIICopy(), whose rule it is.
    void setScale(short scale);

    /// Compares by value: -1, 0 or 1. NULL counts as its marker, above all numbers of its scale.
    int compare(const xdecimal &other) const { return BCDIICmp(data(), other.data()); }

    /// The value in double arithmetic; NaN for NULL.
    double toDouble() const;

    /// The value where it is a whole number that Int holds: int, long, long long, short and their
    /// unsigned kin. Never rounds.
    /// \param[out] ok  whether it is one; may be null
    /// \return 0 for every other value and for NULL
    template<class Int>
    Int toInteger(bool *ok = nullptr) const;

    /// Plain text with all fraction digits and a digit before the point; a null string for NULL.
    QString toString() const;
    /// toString with the locale's decimal point and group separator, in threes. fromLocaleString
    /// reads the same number from it, unless its scale is below zero and its digits are too many.
    QString toLocaleString(const QLocale &locale) const;
    /// toLocaleString with the system locale.
    QString toSystemString() const;
    /// toSystemString without zeros at the end of the fraction.
    QString toSystemStringShort() const;
    /// toString with the system locale's decimal point.
    QString toExcelString() const;

    xdecimal operator-() const;

    /// Sum, difference and product. The scale is that of the exact result (the larger of the two;
    /// their sum for a product, within kMinScale..kMaxScale), or, when 26 digits do not reach that
    /// far, the largest that fits, rounded half up. Integer digits are never rounded off unless an
    /// operand has a negative scale itself. Throw "xdecimal:overflow" when they do not fit and
    /// "xdecimal:nan" when an operand is NULL.
    friend DATABASE_EXPORT xdecimal operator+(const xdecimal &a, const xdecimal &b);
    friend DATABASE_EXPORT xdecimal operator-(const xdecimal &a, const xdecimal &b);
    friend DATABASE_EXPORT xdecimal operator*(const xdecimal &a, const xdecimal &b);

    friend bool operator==(const xdecimal &a, const xdecimal &b) { return a.compare(b) == 0; }
    friend bool operator!=(const xdecimal &a, const xdecimal &b) { return a.compare(b) != 0; }
    friend bool operator<(const xdecimal &a, const xdecimal &b) { return a.compare(b) < 0; }
    friend bool operator<=(const xdecimal &a, const xdecimal &b) { return a.compare(b) <= 0; }
    friend bool operator>(const xdecimal &a, const xdecimal &b) { return a.compare(b) > 0; }
    friend bool operator>=(const xdecimal &a, const xdecimal &b) { return a.compare(b) >= 0; }

    /// Streams the type word as a 16-bit number and the 14 digit bytes as they are. Bytes that are
    /// neither a number nor NULL are read as NULL, and the stream's status becomes ReadCorruptData.
    friend DATABASE_EXPORT QDataStream &operator<<(QDataStream &stream, const xdecimal &value);
    friend DATABASE_EXPORT QDataStream &operator>>(QDataStream &stream, xdecimal &value);

private:
    static constexpr quint16 kZeroType = kPrecision << 8;

    static constexpr xdecimal zero(int scale)
    {
        xdecimal result;
        result.m_type = quint16(kZeroType | (scale & 0xFF));
        return result;
    }
    uchar *bytes() { return reinterpret_cast<uchar *>(this); }
    static bool isTyped(const uchar *bytes); // whether the type word is within invariant (1)

    quint16 m_type = kZeroType; // invariant (1)
    uchar m_digits[14] = {};
};

/// Equal values hash alike, whatever their scales.
DATABASE_EXPORT uint qHash(const xdecimal &value, uint seed = 0);

Q_DECLARE_TYPEINFO(xdecimal, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(xdecimal)
