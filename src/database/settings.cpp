#include "database/settings.h"

#include "database/services/exception.h"
#include "database/settingsvalue.h"

#include <QtCore/qpointer.h>
#include <QtCore/qscopeguard.h>

using namespace SettingsValue;

namespace
{

const QLatin1Char kSlash('/');

void checkGroup(const QString &group)
{
    if (!group.isEmpty())
        checkPath(group);
}

/// Calls \p take with the position of each key below a group and the length of what stands before
/// the relative key. What \p take returns is where to go on.
template<class Take>
void forBelow(const SettingsMap &map, const QString &group, Take &&take)
{
    const int skipped = group.isEmpty() ? 0 : group.size() + 1;
    auto it = firstBelow(map, group);
    while (it != map.end() && isBelow(it.key(), group))
        it = take(it, skipped);
}

} // namespace

Settings::Settings(QObject *parent)
    : QObject(parent)
{
}

Settings::~Settings() = default;

QVariant Settings::value(const QString &key, const QVariant &fallback) const
{
    checkPath(key);
    return values().value(key, fallback);
}

QVariant Settings::typedValue(const QString &key, int type) const
{
    QVariant found = value(key);
    if (!found.isValid())
        return found;
    QVariant result = converted(found, type);
    if (!result.isValid()) {
        throw Exception(
            QStringLiteral("setting '%1' (%2): %3 is expected, %4 found")
                .arg(key, name(), QLatin1String(QMetaType::typeName(type)), typeName(found)));
    }
    return result;
}

bool Settings::contains(const QString &key) const
{
    checkPath(key);
    return values().contains(key);
}

bool Settings::hasGroup(const QString &group) const
{
    checkGroup(group);
    const auto it = firstBelow(values(), group);
    return it != values().end() && isBelow(it.key(), group);
}

QStringList Settings::keys(const QString &group) const
{
    checkGroup(group);
    QStringList result;
    forBelow(values(), group, [&](auto it, int skipped) {
        result.append(it.key().mid(skipped));
        return ++it;
    });
    return result;
}

QStringList Settings::childKeys(const QString &group) const
{
    checkGroup(group);
    QStringList result;
    forBelow(values(), group, [&](auto it, int skipped) {
        if (it.key().indexOf(kSlash, skipped) < 0)
            result.append(it.key().mid(skipped));
        return ++it;
    });
    return result;
}

QStringList Settings::groups(const QString &group) const
{
    checkGroup(group);
    QStringList result;
    forBelow(values(), group, [&](auto it, int skipped) {
        const int slash = it.key().indexOf(kSlash, skipped);
        if (slash < 0)
            return ++it;
        const QString child = it.key().left(slash);
        result.append(child.mid(skipped));
        return values().lowerBound(child + QChar(kSlash.unicode() + 1)); // past all of its keys
    });
    return result;
}

void Settings::setValue(const QString &key, const QVariant &value)
{
    checkPath(key);
    const QVariant stored = canonical(key, value, kMaxDepth - key.count(kSlash) - 1);
    const QString above = valueAbove(values(), key);
    if (!above.isEmpty()) {
        throw QStringLiteral("setting '%1' cannot be set: '%2' is a value and not a group")
            .arg(key, above);
    }
    if (hasGroup(key)) {
        throw QStringLiteral("setting '%1' cannot be set: it is a group, with '%2' in it")
            .arg(key, firstBelow(values(), key).key());
    }
    store(key, stored);
}

void Settings::remove(const QString &path)
{
    checkPath(path);
    erase(path);
}

const Settings *Settings::origin(const QString &key) const
{
    return contains(key) ? this : nullptr;
}

// A listener may change settings itself. What it causes is told after what it was told of, and
// layers above are up to date before anyone hears of a single key.
void Settings::announce(const QVector<SettingsChange> &changes)
{
    if (changes.isEmpty())
        return;
    const QPointer<Settings> alive(this);
    Q_EMIT changedTogether(changes);
    if (!alive)
        return;
    m_notices.insert(m_notices.end(), changes.begin(), changes.end());
    if (m_telling)
        return;
    m_telling = true;
    const auto told = qScopeGuard([&] { // also when a listener throws
        if (alive)
            m_telling = false;
    });
    while (alive && !m_notices.empty()) {
        const SettingsChange change = m_notices.front();
        m_notices.pop_front();
        Q_EMIT changed(change.key, change.before, change.after);
    }
}

SettingsGroup::SettingsGroup(Settings &settings, const QString &path)
    : m_settings(&settings)
    , m_path(path)
{
    checkPath(path);
}

SettingsGroup::SettingsGroup(const SettingsGroup &group, const QString &path)
    : SettingsGroup(group.settings(), group.fullKey(path))
{
}

MapSettings::MapSettings(const QString &name, QObject *parent)
    : Settings(parent)
    , m_name(name)
{
}

void MapSettings::replace(const SettingsMap &values)
{
    MapSettings checked;
    for (auto it = values.begin(); it != values.end(); ++it)
        checked.setValue(it.key(), it.value());
    adopt(checked.values());
}

void MapSettings::store(const QString &key, const QVariant &value)
{
    const auto it = m_values.constFind(key);
    const bool had = it != m_values.constEnd();
    const QVariant before = had ? *it : QVariant();
    if (had && same(before, value))
        return;
    m_values.insert(key, value);
    announce({{key, before, value}});
}

void MapSettings::erase(const QString &path)
{
    QVector<SettingsChange> changes;
    const auto take = [&](SettingsMap::iterator it) {
        changes.append({it.key(), it.value(), QVariant()});
        return m_values.erase(it);
    };
    const auto value = m_values.find(path);
    if (value != m_values.end())
        take(value);
    auto it = m_values.lowerBound(path + kSlash);
    while (it != m_values.end() && isBelow(it.key(), path))
        it = take(it);
    announce(changes);
}

void MapSettings::adopt(const SettingsMap &values)
{
    const QVector<SettingsChange> changes = differences(m_values, values);
    m_values = values;
    announce(changes);
}
