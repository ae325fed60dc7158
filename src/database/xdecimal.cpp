#include "database/xdecimal.h"

#include "database/values/digittext.h"
#include "database/values/localetext.h"
#include "database/values/numbervalue.h"
#include "database/values/xdecimalframe.h"
#include "database/values/xdecimalreader.h"

#include <QtCore/qcoreapplication.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qhash.h>
#include <QtCore/qlocale.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

static_assert(sizeof(xdecimal) == 16, "the width of a cell");

namespace
{

bool isScale(int scale)
{
    return scale >= xdecimal::kMinScale && scale <= xdecimal::kMaxScale;
}

/// The digit bytes without zeros on both sides, and the pairs before the point that they begin
/// with. Pairs are aligned on the point, so equal values have equal ones whatever their types.
struct SignificantBytes {
    const uchar *begin;
    const uchar *end;
    int wholePairs;
};

SignificantBytes significantBytes(const xdecimal &value)
{
    const uchar *const digits = value.data() + sizeof(quint16);
    const uchar *begin = digits;
    const uchar *end = digits + BCDIILength(BCDIIGetType(value.data()));
    while (begin != end && (*begin & 0x7F) == 0)
        ++begin;
    while (begin != end && (end[-1] & 0x7F) == 0)
        --end;
    const int wholePairs = (xdecimal::kPrecision - value.scale() + 1) >> 1;
    return {begin, end, wholePairs - int(begin - digits)};
}

xdecimal fromText(QStringView text)
{
    xdecimal result;
    QChar sign;
    switch (readXDecimal(text, &result, &sign)) {
    case XDecimalFault::None:
        break;
    case XDecimalFault::Text:
        throw QCoreApplication::translate("xdecimal", "Невозможно создать xdecimal по строке '%1'")
            .arg(text.toString());
    case XDecimalFault::Fraction:
        throw QCoreApplication::translate("xdecimal",
                                          "Невозможно создать xdecimal по строке '%1' (%2)")
            .arg(text.toString(), sign.isNull() ? QString() : QString(sign));
    }
    return result;
}

} // namespace

xdecimal::xdecimal(const QString &text)
    : xdecimal(fromText(text))
{
}

xdecimal::xdecimal(const QStringRef &text)
    : xdecimal(fromText(text))
{
}

xdecimal::xdecimal(const char *text)
{
    if (!text || !readShortXDecimal(text, std::strlen(text), this))
        *this = fromText(QString::fromLatin1(text));
}

xdecimal xdecimal::minimum()
{
    xdecimal result = zero(kMinScale);
    BCDIISetMin(result.bytes());
    return result;
}

xdecimal xdecimal::maximum()
{
    xdecimal result = zero(kMinScale);
    BCDIISetMax(result.bytes());
    return result;
}

xdecimal xdecimal::fromString(const QString &text)
{
    return fromText(text);
}

xdecimal xdecimal::fromDouble(double value, short scale)
{
    if (!isScale(scale) || std::isinf(value))
        throw "xdecimal:overflow";
    xdecimal result = zero(scale);
    const quint32 status = BCDIIGetFromDouble(result.bytes(), value);
    if (status & BCDII_OVERFLOW)
        throw "xdecimal:overflow";
    if (status & BCDII_NULL_RESULT)
        throw "xdecimal:nan";
    return result;
}

xdecimal xdecimal::fromInt64(qint64 value, short scale)
{
    if (!isScale(scale))
        throw "xdecimal:overflow";
    xdecimal result = zero(scale);
    BCDIIGetFromInt64(result.bytes(), value, scale);
    return result;
}

xdecimal xdecimal::fromUInt64(quint64 value, short scale)
{
    if (!isScale(scale))
        throw "xdecimal:overflow";
    xdecimal result = zero(scale);
    BCDIIGetFromUInt64(result.bytes(), value, scale);
    return result;
}

xdecimal xdecimal::fromLocaleString(const QString &text, const QLocale &locale)
{
    xdecimal result;
    if (!readLocaleXDecimal(text, locale, &result))
        throw QCoreApplication::translate("xdecimal", "Error in input local string '%1'").arg(text);
    return result;
}

xdecimal xdecimal::fromSystemString(const QString &text)
{
    return fromLocaleString(text, QLocale::system());
}

xdecimal xdecimal::fromAnyString(const QString &text, bool *ok)
{
    const auto readCommaText = [&](xdecimal *result) {
        QString pointed = text;
        pointed.replace(QLatin1Char(','), QLatin1Char('.'));
        return readXDecimal(pointed, result) == XDecimalFault::None;
    };
    xdecimal result;
    const bool isRead = readXDecimal(text, &result) == XDecimalFault::None ||
                        readLocaleXDecimal(text, QLocale::system(), &result) ||
                        readCommaText(&result);
    if (ok)
        *ok = isRead;
    return result;
}

xdecimal xdecimal::fromVariant(const QVariant &variant, bool *ok)
{
    constexpr int kPlaces = 5;
    xdecimal result;
    bool known = true;
    const int type = variant.userType();
    if (type == metatypeId()) {
        result = variant.value<xdecimal>();
    } else if (type == QMetaType::Double) {
        result = fromDouble(variant.toDouble(), kPlaces);
    } else if (type == QMetaType::ULongLong) {
        result = zero(kPlaces);
        BCDIIGetFromUInt64(result.bytes(), variant.toULongLong(), 0);
    } else if (type >= QMetaType::Int && type <= QMetaType::LongLong) {
        result = zero(kPlaces);
        BCDIIGetFromInt64(result.bytes(), variant.toLongLong(), 0);
    } else if (type == QMetaType::QString) {
        result = fromText(variant.toString());
    } else {
        known = variant.isNull();
    }
    if (ok)
        *ok = known;
    return result;
}

bool xdecimal::canConvert(const QString &text, bool emptyConverts)
{
    return text.isEmpty() ? emptyConverts : isXDecimalText(text);
}

bool xdecimal::canConvert(const QVariant &variant)
{
    if (variant.userType() == metatypeId())
        return true;
    return variant.userType() == QMetaType::QString && canConvert(variant.toString(), false);
}

QVariant xdecimal::toVariant() const
{
    return QVariant::fromValue(*this);
}

int xdecimal::metatypeId()
{
    return qMetaTypeId<xdecimal>();
}

double xdecimal::toDouble() const
{
    double result = std::numeric_limits<double>::quiet_NaN();
    BCDII2Double(&result, data());
    return result;
}

template<class Int>
Int xdecimal::toInteger(bool *ok) const
{
    Int result = 0;
    const bool isWhole = bcdii::wholeNumber(bcdii::NumberValue(*this), &result);
    if (ok)
        *ok = isWhole;
    return result;
}

template DATABASE_EXPORT short xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT ushort xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT int xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT uint xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT long xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT ulong xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT qlonglong xdecimal::toInteger(bool *) const;
template DATABASE_EXPORT qulonglong xdecimal::toInteger(bool *) const;

QString xdecimal::toString() const
{
    if (isNull())
        return QString();
    const bcdii::XDecimalFrame frame = bcdii::loadFrame(*this);
    return bcdii::DigitWriter(frame.pairs, 2 * bcdii::pointPairs(frame.scale),
                              std::max(frame.scale, 0), frame.negative)
        .toString();
}

QString xdecimal::toLocaleString(const QLocale &locale) const
{
    return withLocaleGroups(toString(), locale);
}

QString xdecimal::toSystemString() const
{
    return toLocaleString(QLocale::system());
}

QString xdecimal::toSystemStringShort() const
{
    return withoutFractionZeros(toSystemString(), QLocale::system());
}

QString xdecimal::toExcelString() const
{
    return withLocalePoint(toString(), QLocale::system());
}

xdecimal xdecimal::operator-() const
{
    xdecimal result = *this;
    BCDIINeg(result.bytes());
    return result;
}

uint qHash(const xdecimal &value, uint seed)
{
    const SignificantBytes bytes = significantBytes(value);
    if (bytes.begin == bytes.end || value.isNull())
        return seed;
    // The sign lies in the first byte, significant or not: it is taken on its own.
    uchar key[16] = {uchar(value.data()[2] & 0x80), uchar(bytes.wholePairs)};
    const uchar *const end = std::transform(bytes.begin, bytes.end, key + 2,
                                            [](uchar pair) { return uchar(pair & 0x7F); });
    return qHashBits(key, size_t(end - key), seed);
}

QDataStream &operator<<(QDataStream &stream, const xdecimal &value)
{
    uchar digits[sizeof value.m_digits] = {}; // 0 behind the number, whatever is there in memory
    std::copy_n(value.m_digits, BCDIILength(value.m_type), digits);
    stream << value.m_type;
    stream.writeRawData(reinterpret_cast<const char *>(digits), sizeof digits);
    return stream;
}

bool xdecimal::isTyped(const uchar *bytes)
{
    const BCDIIType type = BCDIIGetType(bytes);
    return type >> 8 == kPrecision && isScale(static_cast<signed char>(type & 0xFF));
}

bool xdecimal::isNumber(const uchar *bytes)
{
    return isTyped(bytes) && !(BCDIICheck(bytes) & BCDII_MALFORMED);
}

QDataStream &operator>>(QDataStream &stream, xdecimal &value)
{
    xdecimal read;
    stream >> read.m_type;
    const int size =
        stream.readRawData(reinterpret_cast<char *>(read.m_digits), sizeof read.m_digits);
    const bool complete = stream.status() == QDataStream::Ok && size == sizeof read.m_digits;
    const bool typed = xdecimal::isTyped(read.data());

    value = typed ? xdecimal::zero(read.scale()) : xdecimal();
    if (complete && xdecimal::isNumber(read.data())) {
        // Bytes behind the digits stay 0, whatever the stream holds there.
        std::copy_n(read.m_digits, BCDIILength(read.m_type), value.m_digits);
        return stream;
    }
    BCDIIInit(value.m_digits, value.m_type);
    if (!complete)
        stream.setStatus(QDataStream::ReadPastEnd);
    else if (!typed || !read.isNull())
        stream.setStatus(QDataStream::ReadCorruptData);
    return stream;
}
