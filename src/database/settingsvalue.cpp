#include "database/settingsvalue.h"

#include "database/decimal.h"
#include "database/settingsjson.h"
#include "database/values/datetime.h"
#include "database/xdecimal.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qtimezone.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{

const QLatin1Char kSlash('/');

bool sameDouble(double a, double b)
{
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

bool sameTime(const QDateTime &a, const QDateTime &b)
{
    if (!a.isValid() || !b.isValid())
        return a.isValid() == b.isValid();
    return a.toMSecsSinceEpoch() == b.toMSecsSinceEpoch() && a.timeSpec() == b.timeSpec() &&
           (a.timeSpec() != Qt::OffsetFromUTC || a.offsetFromUtc() == b.offsetFromUtc()) &&
           (a.timeSpec() != Qt::TimeZone || a.timeZone().id() == b.timeZone().id());
}

bool sameList(const QVariantList &a, const QVariantList &b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), SettingsValue::same);
}

bool sameMap(const QVariantMap &a, const QVariantMap &b)
{
    return a.keys() == b.keys() && std::equal(a.begin(), a.end(), b.begin(), SettingsValue::same);
}

template<class T>
bool sameBytes(const QVariant &a, const QVariant &b)
{
    const T left = a.value<T>(), right = b.value<T>();
    return std::memcmp(&left, &right, sizeof left) == 0;
}

/// The whole number that a number is, if it is one of 64 bits.
/// \param[out] negative  whether it is below 0; the result is its two's complement then
bool toWhole(const QVariant &value, quint64 *bits, bool *negative)
{
    switch (value.userType()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
        *bits = quint64(value.toLongLong());
        *negative = value.toLongLong() < 0;
        return true;
    case QMetaType::ULongLong:
        *bits = value.toULongLong();
        *negative = false;
        return true;
    case QMetaType::Double: {
        const double number = value.toDouble();
        if (number != std::floor(number) || !(number >= -0x1p63 && number < 0x1p64))
            return false;
        *negative = number < 0;
        *bits = *negative ? quint64(qint64(number)) : quint64(number);
        return true;
    }
    default:
        return false;
    }
}

template<class T>
QVariant narrowed(quint64 bits, bool negative)
{
    using Limits = std::numeric_limits<T>;
    const bool fits =
        negative ? qint64(bits) >= qint64(Limits::min()) : bits <= quint64(Limits::max());
    return fits ? QVariant::fromValue(T(bits)) : QVariant();
}

QVariant wholeAs(int type, quint64 bits, bool negative)
{
    switch (type) {
    case QMetaType::Char:
        return narrowed<char>(bits, negative);
    case QMetaType::SChar:
        return narrowed<signed char>(bits, negative);
    case QMetaType::UChar:
        return narrowed<uchar>(bits, negative);
    case QMetaType::Short:
        return narrowed<short>(bits, negative);
    case QMetaType::UShort:
        return narrowed<ushort>(bits, negative);
    case QMetaType::Int:
        return narrowed<int>(bits, negative);
    case QMetaType::UInt:
        return narrowed<uint>(bits, negative);
    case QMetaType::Long:
        return narrowed<long>(bits, negative);
    case QMetaType::ULong:
        return narrowed<ulong>(bits, negative);
    case QMetaType::LongLong:
        return narrowed<qlonglong>(bits, negative);
    case QMetaType::ULongLong:
        return narrowed<qulonglong>(bits, negative);
    case QMetaType::Float:
    case QMetaType::Double: {
        const double number = negative ? double(qint64(bits)) : double(bits);
        const bool exact =
            negative ? qint64(number) == qint64(bits) : number < 0x1p64 && quint64(number) == bits;
        if (!exact || (type == QMetaType::Float && double(float(number)) != number))
            return {};
        return type == QMetaType::Float ? QVariant(float(number)) : QVariant(number);
    }
    default:
        return {};
    }
}

} // namespace

bool SettingsValue::isPath(const QString &path)
{
    int parts = 0;
    for (int begin = 0; begin <= path.size(); ++parts) {
        const int slash = path.indexOf(kSlash, begin);
        const int end = slash < 0 ? path.size() : slash;
        if (end == begin || path.midRef(begin, end - begin) == QLatin1String("$type"))
            return false;
        begin = end + 1;
    }
    return parts <= Settings::kMaxDepth;
}

void SettingsValue::checkPath(const QString &path)
{
    if (isPath(path))
        return;
    throw QStringLiteral("'%1' is no key of settings: a key is one or more names with '/' between "
                         "them, at most %2, none of them empty or '$type'")
        .arg(path.size() <= 200 ? path : path.left(200) + QStringLiteral("..."))
        .arg(Settings::kMaxDepth);
}

QVariant SettingsValue::canonical(const QString &key, const QVariant &value, int levels)
{
    const int type = value.userType();
    switch (type) {
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QDateTime:
        return value;
    case QMetaType::QString: // a null text is an empty one
        return value.toString().isNull() ? QVariant(QStringLiteral("")) : value;
    case QMetaType::QByteArray:
        return value.toByteArray().isNull() ? QVariant(QByteArray("")) : value;
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toInt();
    case QMetaType::UInt:
    case QMetaType::Long:
        return value.toLongLong();
    case QMetaType::ULong:
        return value.toULongLong();
    case QMetaType::Float:
        return double(value.value<float>());
    case QMetaType::QChar:
        return QString(value.toChar());
    case QMetaType::Nullptr:
        return QVariant();
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        if (levels < 1)
            break;
        QVariantList list = value.toList();
        for (QVariant &element : list)
            element = canonical(key, element, levels - 1);
        return list;
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        if (levels < 1)
            break;
        QVariantMap map = value.toMap();
        for (QVariant &element : map)
            element = canonical(key, element, levels - 1);
        return map;
    }
    default:
        if (type == decimal::metatypeId() || type == xdecimal::metatypeId() ||
            type == datetime::metatypeId())
            return value;
        if (type == qMetaTypeId<UnknownSetting>()) {
            SettingsJson::checkUnknown(key, value.value<UnknownSetting>(), levels);
            return value;
        }
        throw QStringLiteral("setting '%1': %2 cannot be stored; bool, numbers, texts, byte "
                             "arrays, dates, and lists and maps of these can")
            .arg(key, typeName(value));
    }
    throw QStringLiteral("setting '%1': lists and maps nest too deep, %2 levels are stored, those "
                         "of the key included")
        .arg(key)
        .arg(Settings::kMaxDepth);
}

bool SettingsValue::same(const QVariant &a, const QVariant &b)
{
    const int type = a.userType();
    if (type != b.userType())
        return false;
    switch (type) {
    case QMetaType::Double:
        return sameDouble(a.toDouble(), b.toDouble());
    case QMetaType::QDateTime:
        return sameTime(a.toDateTime(), b.toDateTime());
    case QMetaType::QVariantList:
        return sameList(a.toList(), b.toList());
    case QMetaType::QVariantMap:
        return sameMap(a.toMap(), b.toMap());
    default:
        break;
    }
    if (type == decimal::metatypeId())
        return sameBytes<decimal>(a, b);
    if (type == xdecimal::metatypeId())
        return sameBytes<xdecimal>(a, b);
    if (type == qMetaTypeId<UnknownSetting>())
        return a.value<UnknownSetting>().json == b.value<UnknownSetting>().json;
    return a == b;
}

QVariant SettingsValue::converted(const QVariant &value, int type)
{
    if (value.userType() == type || type == QMetaType::QVariant)
        return value;
    quint64 bits = 0;
    bool negative = false;
    if (toWhole(value, &bits, &negative))
        return wholeAs(type, bits, negative);
    if (type == QMetaType::Float && value.userType() == QMetaType::Double) {
        const float number = float(value.toDouble());
        return sameDouble(double(number), value.toDouble()) ? QVariant(number) : QVariant();
    }
    if (type == QMetaType::QChar && value.userType() == QMetaType::QString)
        return value.toString().size() == 1 ? QVariant(value.toString().at(0)) : QVariant();
    if (type == QMetaType::QVariantHash && value.userType() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        QVariantHash hash;
        for (auto it = map.begin(); it != map.end(); ++it)
            hash.insert(it.key(), it.value());
        return hash;
    }
    if (type == QMetaType::QStringList && value.userType() == QMetaType::QVariantList) {
        QStringList texts;
        for (const QVariant &element : value.toList()) {
            if (element.userType() != QMetaType::QString)
                return {};
            texts.append(element.toString());
        }
        return texts;
    }
    return {};
}

QString SettingsValue::typeName(const QVariant &value)
{
    if (!value.isValid())
        return QStringLiteral("nothing");
    if (value.userType() == qMetaTypeId<UnknownSetting>())
        return QStringLiteral("a value of the unknown type '%1'")
            .arg(value.value<UnknownSetting>().type);
    return QLatin1String(value.typeName());
}

SettingsMap::const_iterator SettingsValue::firstBelow(const SettingsMap &map, const QString &group)
{
    return group.isEmpty() ? map.constBegin() : map.lowerBound(group + kSlash);
}

bool SettingsValue::isBelow(const QString &key, const QString &group)
{
    return group.isEmpty() ||
           (key.size() > group.size() && key.at(group.size()) == kSlash && key.startsWith(group));
}

QString SettingsValue::valueAbove(const SettingsMap &map, const QString &path)
{
    for (int at = path.indexOf(kSlash); at >= 0; at = path.indexOf(kSlash, at + 1)) {
        QString above = path.left(at);
        if (map.contains(above))
            return above;
    }
    return {};
}

void SettingsValue::makeRoom(SettingsMap &map, const QString &key)
{
    for (QString above = valueAbove(map, key); !above.isEmpty(); above = valueAbove(map, key))
        map.remove(above);
    for (auto it = map.lowerBound(key + kSlash); it != map.end() && isBelow(it.key(), key);)
        it = map.erase(it);
}

QVector<SettingsChange> SettingsValue::differences(const SettingsMap &before,
                                                   const SettingsMap &after)
{
    QVector<SettingsChange> changes;
    auto old = before.begin();
    auto now = after.begin();
    while (old != before.end() || now != after.end()) {
        if (now == after.end() || (old != before.end() && old.key() < now.key())) {
            changes.append({old.key(), old.value(), QVariant()});
            ++old;
        } else if (old == before.end() || now.key() < old.key()) {
            changes.append({now.key(), QVariant(), now.value()});
            ++now;
        } else {
            if (!same(old.value(), now.value()))
                changes.append({now.key(), old.value(), now.value()});
            ++old;
            ++now;
        }
    }
    return changes;
}
