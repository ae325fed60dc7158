#include "database/settingslayers.h"

#include "database/settingsvalue.h"

using namespace SettingsValue;

LayeredSettings::LayeredSettings(const QString &name, QObject *parent)
    : Settings(parent)
    , m_name(name)
{
}

void LayeredSettings::addLayer(Settings *layer)
{
    Q_ASSERT(layer);
    m_layers.append(layer);
    connect(layer, &Settings::changedTogether, this, &LayeredSettings::follow);
    follow(differences(SettingsMap(), layer->values()));
}

const Settings *LayeredSettings::answering(const QString &key, int count) const
{
    for (int i = count; i-- > 0;) {
        const Settings *layer = m_layers.at(i);
        if (layer->values().contains(key))
            return layer;
        if (layer->hasGroup(key) || !valueAbove(layer->values(), key).isEmpty())
            return nullptr;
    }
    return nullptr;
}

const Settings *LayeredSettings::origin(const QString &key) const
{
    checkPath(key);
    const Settings *layer = answering(key, m_layers.size());
    return layer ? layer->origin(key) : nullptr;
}

// A value that comes or goes in one layer covers or uncovers what others have above and below it.
void LayeredSettings::follow(const QVector<SettingsChange> &changes)
{
    SettingsMap before; // and now: what shows at the paths concerned
    SettingsMap now;
    const auto look = [&](const QString &key) {
        const auto shown = m_values.constFind(key);
        if (shown != m_values.constEnd())
            before.insert(key, *shown);
        if (const Settings *layer = answering(key, m_layers.size()))
            now.insert(key, layer->values().value(key));
    };
    const auto lookBelow = [&](const SettingsMap &map, const QString &group) {
        for (auto it = firstBelow(map, group); it != map.end() && isBelow(it.key(), group); ++it)
            look(it.key());
    };
    for (const SettingsChange &change : changes) {
        const QString &key = change.key;
        look(key);
        for (int at = key.indexOf('/'); at >= 0; at = key.indexOf('/', at + 1))
            look(key.left(at));
        lookBelow(m_values, key);
        for (const Settings *layer : qAsConst(m_layers))
            lookBelow(layer->values(), key);
    }
    const QVector<SettingsChange> visible = differences(before, now);
    for (auto it = before.begin(); it != before.end(); ++it)
        m_values.remove(it.key());
    for (auto it = now.begin(); it != now.end(); ++it)
        m_values.insert(it.key(), it.value());
    announce(visible);
}

void LayeredSettings::store(const QString &key, const QVariant &value)
{
    if (m_layers.isEmpty())
        throw QStringLiteral("setting '%1': '%2' has no layer to keep it").arg(key, m_name);
    Settings *top = m_layers.last();
    const Settings *below = answering(key, m_layers.size() - 1);
    if (below && same(below->values().value(key), value))
        top->remove(key);
    else
        top->setValue(key, value);
}

void LayeredSettings::erase(const QString &path)
{
    if (!m_layers.isEmpty())
        m_layers.last()->remove(path);
}

bool LayeredSettings::sync()
{
    bool stored = true;
    for (Settings *layer : qAsConst(m_layers))
        stored = layer->sync() && stored;
    return stored;
}

QString LayeredSettings::errorString() const
{
    QStringList problems;
    for (const Settings *layer : m_layers)
        problems.append(layer->errorString());
    problems.removeAll(QString());
    return problems.join(QLatin1Char('\n'));
}

DefaultSettings::DefaultSettings(const SettingsLocations &locations, QObject *parent)
    : QtJsonSettings(locations.defaultsFile(), ReadOnly, QStringLiteral("defaults"), parent)
{
}

AppSettings::AppSettings(const SettingsLocations &locations, QObject *parent)
    : LayeredSettings(QStringLiteral("application"), parent)
    , m_locations(locations)
    , m_defaults(locations)
    , m_installation(locations.installationFile(), QtJsonSettings::ReadOnly,
                     QStringLiteral("installation"))
    , m_user(locations.userFile(), QtJsonSettings::ReadWrite, QStringLiteral("user"))
{
    addLayer(&m_defaults);
    addLayer(&m_installation);
    addLayer(&m_user);
}

WorkplaceSettings::WorkplaceSettings(const QString &workplace, AppSettings *application,
                                     QObject *parent)
    : LayeredSettings(QStringLiteral("workplace '%1'").arg(workplace), parent)
    , m_workplace(workplace)
    , m_own(application->locations().workplaceFile(workplace), QtJsonSettings::ReadWrite, name())
{
    addLayer(application);
    addLayer(&m_own);
}
