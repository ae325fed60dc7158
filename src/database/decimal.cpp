#include "database/decimal.h"

#include "database/values/digittext.h"
#include "database/values/localetext.h"
#include "database/values/numberscanner.h"
#include "database/values/numbervalue.h"

#include <QtCore/qcoreapplication.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qhash.h>
#include <QtCore/qlocale.h>

#include <algorithm>
#include <cmath>
#include <iterator>

static_assert(sizeof(decimal) == 8, "a decimal is one word");

namespace
{

constexpr quint64 kPowersOf10[] = {1ull,
                                   10ull,
                                   100ull,
                                   1000ull,
                                   10000ull,
                                   100000ull,
                                   1000000ull,
                                   10000000ull,
                                   100000000ull,
                                   1000000000ull,
                                   10000000000ull,
                                   100000000000ull,
                                   1000000000000ull,
                                   10000000000000ull,
                                   100000000000000ull,
                                   1000000000000000ull,
                                   10000000000000000ull,
                                   100000000000000000ull};
/// Ten to this power already exceeds every mantissa.
constexpr int kMantissaDigits = int(std::size(kPowersOf10)) - 1;

/// The largest magnitude that a mantissa of that sign has.
constexpr quint64 mantissaLimit(bool negative)
{
    return negative ? quint64(-decimal::kMinMantissa) : quint64(decimal::kMaxMantissa);
}

quint64 magnitudeOf(qint64 number)
{
    return number < 0 ? 0 - quint64(number) : quint64(number);
}

decimal pack(qint64 mantissa, int scale)
{
    const quint64 sign = quint64(mantissa < 0) << 63;
    const quint64 low = quint64(mantissa) & quint64(decimal::kMaxMantissa);
    return decimal::fromWord(qint64(sign | (quint64(scale & 0x7F) << 56) | low));
}

decimal pack(quint64 magnitude, bool negative, int scale)
{
    return pack(negative ? -qint64(magnitude) : qint64(magnitude), scale);
}

/// Brings magnitude x 10^-scale into the ranges of mantissa and scale as fromParts describes.
/// \return false when the value is too large
bool normalise(quint64 magnitude, bool negative, qint64 scale, decimal *result)
{
    const quint64 limit = mantissaLimit(negative);
    while (magnitude > limit || (scale > decimal::kMaxScale && magnitude != 0)) {
        magnitude /= 10;
        --scale;
    }
    while (scale < decimal::kMinScale && magnitude != 0 && magnitude <= limit / 10) {
        magnitude *= 10;
        ++scale;
    }
    if (magnitude == 0)
        scale = qBound<qint64>(decimal::kMinScale, scale, decimal::kMaxScale);
    if (scale < decimal::kMinScale)
        return false;
    *result = pack(magnitude, negative, int(scale));
    return true;
}

/// Why a text is no decimal.
enum class TextFault { None, Text, IntegerDigits };

/// The number whose digits are those of integer and fraction and whose scale is places. Dividing by
/// 10 until the mantissa fits leaves the longest run of leading digits that fits, so that digits
/// are taken from the front and no intermediate can overflow.
TextFault assemble(const NumberText &number, qint64 places, decimal *result)
{
    const bool negative = number.isNegative();
    const quint64 limit = mantissaLimit(negative);
    quint64 magnitude = 0;
    qint64 dropped = number.integer.size() + number.fraction.size();
    for (const QStringView digits : {number.integer, number.fraction}) {
        for (const QChar c : digits) {
            const quint64 longer = magnitude * 10 + quint64(c.unicode() - '0');
            if (longer > limit)
                return normalise(magnitude, negative, places - dropped, result) ? TextFault::None
                                                                                : TextFault::Text;
            magnitude = longer;
            --dropped;
        }
    }
    return normalise(magnitude, negative, places, result) ? TextFault::None : TextFault::Text;
}

TextFault readText(QStringView text, decimal *result, QChar *sign = nullptr)
{
    if (text.isEmpty()) {
        *result = decimal();
        return TextFault::None;
    }
    bcdii::DigitText digits;
    if (bcdii::readDigits(text, bcdii::DigitEnd::LastDigit, &digits) && !digits.comma) {
        const bcdii::UInt128 magnitude = bcdii::toBinary(digits.pairs);
        if (magnitude <= quint64(decimal::kMaxMantissa)) {
            *result = pack(quint64(magnitude), digits.negative, digits.places);
            return TextFault::None;
        }
    }
    const NumberText number = scanNumber(text);
    if (number.form == NumberText::None || number.separator == QLatin1Char(','))
        return TextFault::Text;
    if (sign)
        *sign = number.sign;

    // A sign stands before a whole integer text only; elsewhere the digits convert on their own.
    const bool wholeInteger = number.form == NumberText::Integer;
    if (!fitsInt64(number.integer, wholeInteger && number.isNegative()))
        return number.form == NumberText::Fraction ? TextFault::IntegerDigits : TextFault::Text;
    if (!fitsInt64(number.fraction, false))
        return TextFault::Text;

    qint64 places = number.fraction.size();
    if (number.form == NumberText::Exponent) {
        int count = 0;
        if (!readInt32(number.exponent, &count))
            return TextFault::Text;
        places = count - places;
    }
    return assemble(number, places, result);
}

decimal fromText(QStringView text)
{
    decimal result;
    QChar sign;
    switch (readText(text, &result, &sign)) {
    case TextFault::None:
        break;
    case TextFault::Text:
        throw QCoreApplication::translate("decimal", "Невозможно создать decimal по строке '%1'")
            .arg(text.toString());
    case TextFault::IntegerDigits:
        throw QCoreApplication::translate("decimal",
                                          "Невозможно создать decimal по строке '%1' (%2)")
            .arg(text.toString(), sign.isNull() ? QString() : QString(sign));
    }
    return result;
}

bool readDouble(double value, int scale, decimal *result)
{
    if (scale < decimal::kMinScale || scale > decimal::kMaxScale)
        return false;
    // One factor at a time: a single power of ten would round differently.
    double scaled = value;
    for (int i = 0; i < scale; ++i)
        scaled *= 10.0;
    for (int i = 0; i > scale; --i)
        scaled /= 10.0;
    if (scale > 0)
        scaled += value > 0 ? 0.5 : -0.5;
    constexpr double kLimit = double(-decimal::kMinMantissa);
    if (!(scaled > -kLimit && scaled < kLimit)) // also for NaN
        return false;
    *result = pack(qint64(scaled), scale);
    return true;
}

[[noreturn]] void throwOverflow()
{
    throw QCoreApplication::translate("decimal", "decimal:overflow");
}

constexpr short kVariantPlaces = 5;

decimal fromIntegerVariant(const QVariant &variant)
{
    const bool isSigned = variant.userType() != QMetaType::ULongLong;
    const qint64 number = isSigned ? variant.toLongLong() : 0;
    const quint64 magnitude = isSigned ? magnitudeOf(number) : variant.toULongLong();
    decimal result;
    normalise(magnitude, number < 0, 0, &result); // of 64 bits, it never is too large
    const quint64 unit = kPowersOf10[-result.scale()];
    if (magnitude % unit != 0)
        throwOverflow();
    result.setScale(kVariantPlaces);
    return result;
}

/// Compares coarse x 10^places with fine, both above 0.
int compareMagnitudes(quint64 coarse, quint64 fine, int places)
{
    quint64 aligned;
    if (places >= kMantissaDigits || __builtin_mul_overflow(coarse, kPowersOf10[places], &aligned))
        return 1;
    return (aligned > fine) - (aligned < fine);
}

/// The text of magnitude x 10^-scale with every digit that the scale asks for.
QString plainText(quint64 magnitude, bool negative, int scale)
{
    return bcdii::DigitWriter(magnitude, scale, std::max(scale, 0), negative).toString();
}

} // namespace

decimal::decimal(const QString &text)
    : decimal(fromText(text))
{
}

decimal::decimal(const QStringRef &text)
    : decimal(fromText(text))
{
}

decimal decimal::fromParts(qint64 mantissa, short scale)
{
    decimal result;
    if (!normalise(magnitudeOf(mantissa), mantissa < 0, scale, &result))
        throwOverflow();
    return result;
}

decimal decimal::fromString(const QString &text)
{
    return fromText(text);
}

decimal decimal::fromDouble(double value, short scale)
{
    decimal result;
    if (!readDouble(value, scale, &result))
        throwOverflow();
    return result;
}

decimal decimal::fromLocaleString(const QString &text, const QLocale &locale, int scale)
{
    double value = 0;
    if (!readLocaleDouble(text, locale, &value))
        throw QCoreApplication::translate("decimal", "Error in input local string '%1'").arg(text);
    decimal result;
    if (!readDouble(value, scale, &result))
        throwOverflow();
    return result;
}

decimal decimal::fromSystemString(const QString &text, int scale)
{
    return fromLocaleString(text, QLocale::system(), scale);
}

decimal decimal::fromAnyString(const QString &text, bool *ok, int scale)
{
    const auto readSystemText = [&](decimal *result) {
        double value = 0;
        return readLocaleDouble(text, QLocale::system(), &value) &&
               readDouble(value, scale, result);
    };
    const auto readCommaText = [&](decimal *result) {
        QString pointed = text;
        pointed.replace(QLatin1Char(','), QLatin1Char('.'));
        return readText(pointed, result) == TextFault::None;
    };

    decimal result;
    const bool isRead = readText(text, &result) == TextFault::None || readSystemText(&result) ||
                        readCommaText(&result);
    if (ok)
        *ok = isRead;
    return result;
}

decimal decimal::fromVariant(const QVariant &variant, bool *ok)
{
    decimal result;
    bool known = true;
    const int type = variant.userType();
    if (type == metatypeId())
        result = variant.value<decimal>();
    else if (type == QMetaType::Double)
        result = fromDouble(variant.toDouble(), kVariantPlaces);
    else if (type >= QMetaType::Int && type < QMetaType::Double)
        result = fromIntegerVariant(variant);
    else if (type == QMetaType::QString)
        result = fromText(variant.toString());
    else
        known = variant.isNull();
    if (ok)
        *ok = known;
    return result;
}

bool decimal::canConvert(const QString &text, bool emptyConverts)
{
    return text.isEmpty() ? emptyConverts : scanNumber(text).form != NumberText::None;
}

bool decimal::canConvert(const QVariant &variant)
{
    if (variant.userType() == metatypeId())
        return true;
    return variant.userType() == QMetaType::QString && canConvert(variant.toString(), false);
}

QVariant decimal::toVariant() const
{
    return QVariant::fromValue(*this);
}

int decimal::metatypeId()
{
    return qMetaTypeId<decimal>();
}

void decimal::setScale(short scale)
{
    const int target = qBound(kMinScale, int(scale), kMaxScale);
    const int current = this->scale();
    qint64 mantissa = this->mantissa();

    if (mantissa == 0 || target == current) {
        *this = pack(mantissa, target);
    } else if (target > current) {
        int reached = current;
        while (reached < target && magnitudeOf(mantissa) <= quint64(kMaxMantissa) / 10) {
            mantissa *= 10;
            ++reached;
        }
        *this = pack(mantissa, reached);
    } else {
        const int truncated = current - target - 1;
        if (truncated > kMantissaDigits)
            mantissa = 0;
        else
            mantissa /= qint64(kPowersOf10[truncated]);
        mantissa = (mantissa < 0 ? mantissa - 5 : mantissa + 5) / 10;
        *this = pack(mantissa, target);
    }
}

int decimal::compareAcrossScales(const decimal &other) const
{
    const qint64 a = mantissa();
    const qint64 b = other.mantissa();
    const int aSign = (a > 0) - (a < 0);
    const int bSign = (b > 0) - (b < 0);
    if (aSign != bSign)
        return aSign < bSign ? -1 : 1;
    if (aSign == 0)
        return 0;
    const int places = other.scale() - scale();
    const int order = places > 0 ? compareMagnitudes(magnitudeOf(a), magnitudeOf(b), places)
                                 : -compareMagnitudes(magnitudeOf(b), magnitudeOf(a), -places);
    return aSign * order;
}

double decimal::toDouble() const
{
    // The powers that a double holds exactly; the power function gives the same for them.
    static constexpr double kExact[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                        1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const int places = scale();
    const bool exact = places >= 0 && places < int(std::size(kExact));
    return double(mantissa()) / (exact ? kExact[places] : std::pow(10.0, places));
}

template<class Int>
Int decimal::toInteger(bool *ok) const
{
    Int result = 0;
    const bool isWhole = bcdii::wholeNumber(bcdii::NumberValue(*this), &result);
    if (ok)
        *ok = isWhole;
    return result;
}

template DATABASE_EXPORT short decimal::toInteger(bool *) const;
template DATABASE_EXPORT ushort decimal::toInteger(bool *) const;
template DATABASE_EXPORT int decimal::toInteger(bool *) const;
template DATABASE_EXPORT uint decimal::toInteger(bool *) const;
template DATABASE_EXPORT long decimal::toInteger(bool *) const;
template DATABASE_EXPORT ulong decimal::toInteger(bool *) const;
template DATABASE_EXPORT qlonglong decimal::toInteger(bool *) const;
template DATABASE_EXPORT qulonglong decimal::toInteger(bool *) const;

QString decimal::toString() const
{
    const quint64 magnitude = magnitudeOf(mantissa());
    const int places = scale();
    constexpr quint64 kHeldByDouble = quint64(1) << 53; // up to here the detour changes nothing
    const bool changes = places > 0 && magnitude > kHeldByDouble;
    return plainText(changes ? quint64(double(magnitude)) : magnitude, m_word < 0, places);
}

QString decimal::toExactString() const
{
    return plainText(magnitudeOf(mantissa()), m_word < 0, scale());
}

QString decimal::toLocaleString(const QLocale &locale) const
{
    return locale.toString(toDouble(), 'f', qMax<int>(scale(), 0));
}

QString decimal::toSystemString() const
{
    return toLocaleString(QLocale::system());
}

QString decimal::toSystemStringShort() const
{
    return withoutFractionZeros(toSystemString(), QLocale::system());
}

QString decimal::toExcelString() const
{
    return withLocalePoint(toString(), QLocale::system());
}

uint qHash(const decimal &value, uint seed)
{
    qint64 mantissa = value.mantissa();
    int scale = value.scale();
    if (mantissa == 0)
        return seed;
    while (mantissa % 10 == 0) {
        mantissa /= 10;
        --scale;
    }
    return qHash(qMakePair(mantissa, scale), seed);
}

QDataStream &operator<<(QDataStream &stream, const decimal &value)
{
    return stream << value.word();
}

QDataStream &operator>>(QDataStream &stream, decimal &value)
{
    qint64 word = 0;
    stream >> word;
    value = decimal::fromWord(word);
    return stream;
}
