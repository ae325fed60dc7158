#include "database/settingstags.h"

#include "database/decimal.h"
#include "database/values/datetime.h"
#include "database/xdecimal.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qtimezone.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

const QString kValue = QStringLiteral("value");
const QString kScale = QStringLiteral("scale");
const QString kZone = QStringLiteral("zone");
const QString kOffset = QStringLiteral("offset");
const QString kLocal = QStringLiteral("local");
const QString kUtc = QStringLiteral("UTC");
const QString kNull = QStringLiteral("NULL");
const QLatin1Char kMilliseconds('@');

using Fields = QVariantMap;

/// The value, or an invalid variant when the fields are wrong.
using Decoder = QVariant (*)(const QString &text, const Fields &fields);

QVariant toInt64(const QString &text, const Fields &)
{
    bool ok = false;
    const qlonglong value = text.toLongLong(&ok);
    return ok ? QVariant(value) : QVariant();
}

QVariant toUInt64(const QString &text, const Fields &)
{
    bool ok = false;
    const qulonglong value = text.toULongLong(&ok);
    return ok ? QVariant(value) : QVariant();
}

QVariant toDouble(const QString &text, const Fields &)
{
    if (text == QLatin1String("nan"))
        return std::numeric_limits<double>::quiet_NaN();
    if (text == QLatin1String("inf"))
        return std::numeric_limits<double>::infinity();
    if (text == QLatin1String("-inf"))
        return -std::numeric_limits<double>::infinity();
    return {};
}

QVariant toBytes(const QString &text, const Fields &)
{
    const auto result = QByteArray::fromBase64Encoding(
        text.toLatin1(), QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!result)
        return {};
    return result.decoded.isNull() ? QByteArray("") : result.decoded;
}

QVariant toDecimal(const QString &text, const Fields &)
{
    try {
        return text.isEmpty() ? QVariant() : decimal(text).toVariant();
    } catch (const QString &) {
        return {};
    }
}

// A text has no way to say that its last places are not known; the scale below zero does.
QVariant toXDecimal(const QString &text, const Fields &fields)
{
    const int scale = fields.value(kScale, 0).toInt();
    if (scale > 0 || scale < xdecimal::kMinScale || text.isEmpty())
        return {};
    if (text == kNull) {
        quint16 number[8] = {};
        BCDIIInit(number, BCDIIType(xdecimal::kPrecision << 8 | (scale & 0xFF)));
        xdecimal null;
        std::memcpy(static_cast<void *>(&null), number, sizeof null);
        return null.toVariant();
    }
    try {
        const xdecimal value(text);
        return scale == 0 ? value.toVariant()
                          : (value * xdecimal::fromInt64(1, short(scale))).toVariant();
    } catch (const QString &) {
        return {};
    } catch (const char *) {
        return {};
    }
}

QVariant toDatetime(const QString &text, const Fields &)
{
    qint64 msecs = 0;
    bool ok = text.isEmpty();
    if (text.startsWith(kMilliseconds))
        msecs = text.midRef(1).toLongLong(&ok);
    else if (!ok)
        ok = datetime::parse(text.constData(), text.size(), &msecs);
    return ok ? QVariant::fromValue(datetime(msecs)) : QVariant();
}

QVariant toQDateTime(const QString &text, const Fields &fields)
{
    if (text.isEmpty())
        return QDateTime();
    bool ok = false;
    const QDateTime utc =
        text.startsWith(kMilliseconds)
            ? QDateTime::fromMSecsSinceEpoch(text.midRef(1).toLongLong(&ok), Qt::UTC)
            : QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!utc.isValid() || (text.startsWith(kMilliseconds) && !ok))
        return {};
    if (fields.contains(kOffset) && fields.value(kOffset).userType() != QMetaType::Int)
        return {};
    if (fields.contains(kOffset))
        return utc.toOffsetFromUtc(fields.value(kOffset).toInt());
    const QString zone = fields.value(kZone, kLocal).toString();
    if (zone == kLocal)
        return utc.toLocalTime();
    if (zone == kUtc)
        return utc.toUTC();
    return utc.toTimeZone(QTimeZone(zone.toUtf8()));
}

bool isZone(const QString &name)
{
    const QByteArray id = name.toUtf8();
    if (name == kLocal || name == kUtc)
        return true;
    // Asked by name only: an id that is made up may lead anywhere in the file system.
    return id.startsWith("UTC") ? QTimeZone(id).isValid() : QTimeZone::isTimeZoneIdAvailable(id);
}

struct Type {
    const char *name;
    Decoder decode; ///< null for the map, whose value is no text
    const char *expected;
    QStringList fields; ///< beside "value"
};

const std::vector<Type> &types()
{
    static const std::vector<Type> all = {
        {"bytes", toBytes, "bytes in base64", {}},
        {"datetime", toDatetime, "a date and time such as \"2026.11.21 10:20:30.123\"", {}},
        {"decimal", toDecimal, "a decimal number such as \"12.50\"", {}},
        {"double", toDouble, "\"inf\", \"-inf\" or \"nan\"", {}},
        {"int64", toInt64, "a whole number of 64 bits such as \"-12\"", {}},
        {"map", nullptr, "an object", {}},
        {"qdatetime",
         toQDateTime,
         "a date and time such as \"2026-11-21T10:20:30.123Z\"",
         {kOffset, kZone}},
        {"uint64", toUInt64, "a whole number of 64 bits such as \"12\"", {}},
        {"xdecimal", toXDecimal, "a decimal number such as \"12.50\"", {kScale}}};
    return all;
}

const Type *find(const QString &name)
{
    const auto found = std::find_if(types().begin(), types().end(), [&](const Type &one) {
        return name == QLatin1String(one.name);
    });
    return found == types().end() ? nullptr : &*found;
}

SettingsTags::Tagged tagged(const char *type, const QString &text)
{
    return {type, {{kValue, text}}};
}

QString milliseconds(qint64 value)
{
    return kMilliseconds + QString::number(value);
}

SettingsTags::Tagged fromDecimal(const decimal &value)
{
    // The exponent of a decimal's text is its count of places.
    return tagged("decimal",
                  value.scale() >= 0
                      ? value.toExactString()
                      : QStringLiteral("%1e%2").arg(value.mantissa()).arg(value.scale()));
}

SettingsTags::Tagged fromXDecimal(const xdecimal &value)
{
    const short scale = value.scale();
    SettingsTags::Tagged result = tagged("xdecimal", kNull);
    if (!value.isNull()) {
        const xdecimal whole = scale < 0 ? value * xdecimal::fromInt64(1, short(-scale)) : value;
        result.fields[kValue] = whole.toString();
    }
    if (scale < 0)
        result.fields[kScale] = int(scale);
    return result;
}

SettingsTags::Tagged fromDatetime(datetime value)
{
    const QString text = value.toString();
    qint64 msecs = 0;
    const bool readable =
        value.isNull() || (datetime::parse(text.constData(), text.size(), &msecs) &&
                           msecs == value.toMSecsSinceEpoch());
    return tagged("datetime", readable ? text : milliseconds(value.toMSecsSinceEpoch()));
}

// The instant is written in UTC, where every one has a text of its own; the hour that a clock
// change repeats has none in local time.
SettingsTags::Tagged fromQDateTime(const QDateTime &value)
{
    if (!value.isValid())
        return tagged("qdatetime", QString());
    const QDateTime utc = value.toUTC();
    const int year = utc.date().year();
    SettingsTags::Tagged result =
        tagged("qdatetime", year >= 1 && year <= 9999 ? utc.toString(Qt::ISODateWithMs)
                                                      : milliseconds(utc.toMSecsSinceEpoch()));
    switch (value.timeSpec()) {
    case Qt::LocalTime:
        result.fields[kZone] = kLocal;
        break;
    case Qt::UTC:
        result.fields[kZone] = kUtc;
        break;
    case Qt::OffsetFromUTC:
        result.fields[kOffset] = value.offsetFromUtc();
        break;
    case Qt::TimeZone:
        result.fields[kZone] = QString::fromUtf8(value.timeZone().id());
        break;
    }
    return result;
}

} // namespace

SettingsTags::Tagged SettingsTags::encoded(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::LongLong:
        return tagged("int64", QString::number(value.toLongLong()));
    case QMetaType::ULongLong:
        return tagged("uint64", QString::number(value.toULongLong()));
    case QMetaType::Double: {
        const double number = value.toDouble();
        if (std::isfinite(number))
            return {};
        return tagged("double", std::isnan(number) ? QStringLiteral("nan")
                                : number > 0       ? QStringLiteral("inf")
                                                   : QStringLiteral("-inf"));
    }
    case QMetaType::QByteArray:
        return tagged("bytes", QString::fromLatin1(value.toByteArray().toBase64()));
    case QMetaType::QDateTime:
        return fromQDateTime(value.toDateTime());
    default:
        break;
    }
    if (value.userType() == decimal::metatypeId())
        return fromDecimal(value.value<decimal>());
    if (value.userType() == xdecimal::metatypeId())
        return fromXDecimal(value.value<xdecimal>());
    if (value.userType() == datetime::metatypeId())
        return fromDatetime(value.value<datetime>());
    return {};
}

bool SettingsTags::isKnown(const QString &type)
{
    return find(type) != nullptr;
}

SettingsTags::Reading SettingsTags::decode(const QString &type, const QVariantMap &fields,
                                           QVariant *value, QString *expected)
{
    const Type *known = find(type);
    if (!known)
        return Unknown;
    for (auto it = fields.begin(); it != fields.end(); ++it) {
        if (it.key() != kValue && !known->fields.contains(it.key()))
            return Unknown;
    }
    const QString zone = fields.value(kZone).toString();
    if (fields.contains(kZone) && !isZone(zone))
        return Unknown; // of another edition of the time zone data
    *expected = QLatin1String(known->expected);
    const QVariant text = fields.value(kValue);
    const int given = text.userType();
    if (!known->decode) {
        *value = text;
        return given == QMetaType::QVariantMap ? Understood : Wrong;
    }
    if (given != QMetaType::QString && given != QMetaType::Int && given != QMetaType::LongLong)
        return Wrong;
    *value = known->decode(text.toString(), fields);
    return value->isValid() ? Understood : Wrong;
}
