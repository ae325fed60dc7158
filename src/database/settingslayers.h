#pragma once

#include "database/settings.h"
#include "database/settingsfile.h"
#include "database/settingslocations.h"

/// Settings that lie over others. Reading falls through the layers, from the top one down; writing
/// goes to the top one.
///
/// Invariants:
///  (1) A key shows the value of the highest layer that has one, unless a layer above that one has
///      a group there, or a value at a group that the key is in: one path is a value or a group,
///      as the highest layer that knows it has it.
///  (2) A value is not stored in the top layer when the layers below show the same: setting it
///      takes the top layer's own away. Only setting does. A layer below that comes to show the
///      same by itself, after an upgrade for instance, unmakes nobody's choice.
///  (3) All that shows is at hand in one map, so reading does not depend on the number of layers.
///
/// Borrows its layers; they outlive it or its last use.
class DATABASE_EXPORT LayeredSettings : public Settings
{
    Q_OBJECT

public:
    explicit LayeredSettings(const QString &name, QObject *parent = nullptr);

    /// Lays settings over those added before. What shows now and did not is announced.
    void addLayer(Settings *layer);

    QString name() const override { return m_name; }
    const SettingsMap &values() const override { return m_values; }
    /// The layer that answers, down through layers that have layers themselves.
    const Settings *origin(const QString &key) const override;

    /// Takes a value or a group out of the top layer, so that the layers below show again.
    /// remove() does the same: what a layer below holds cannot be removed from above.
    void reset(const QString &path) { remove(path); }

    /// Stores all layers that have something to store.
    bool sync() override;
    QString errorString() const override;

protected:
    void store(const QString &key, const QVariant &value) override;
    void erase(const QString &path) override;

private:
    /// The layer among the first \p count that answers for a key, or null.
    const Settings *answering(const QString &key, int count) const;
    void follow(const QVector<SettingsChange> &changes);

    const QString m_name;
    QVector<Settings *> m_layers; // borrowed, the top one last
    SettingsMap m_values;         // invariant (1)
};

/// What the application ships: "defaults.json". Never written.
class DATABASE_EXPORT DefaultSettings : public QtJsonSettings
{
    Q_OBJECT

public:
    explicit DefaultSettings(const SettingsLocations &locations = SettingsLocations::standard(),
                             QObject *parent = nullptr);
};

/// The settings of one user: their own, stored in "settings.json" in the user's place, over those
/// of the installation (a file of that name in the application's own place, never written here),
/// over the defaults.
class DATABASE_EXPORT AppSettings : public LayeredSettings
{
    Q_OBJECT

public:
    explicit AppSettings(const SettingsLocations &locations = SettingsLocations::standard(),
                         QObject *parent = nullptr);

    const SettingsLocations &locations() const { return m_locations; }
    DefaultSettings &defaults() { return m_defaults; }
    QtJsonSettings &installation() { return m_installation; }
    QtJsonSettings &user() { return m_user; }

private:
    const SettingsLocations m_locations;
    DefaultSettings m_defaults;
    QtJsonSettings m_installation;
    QtJsonSettings m_user;
};

/// The settings of one workplace, over those of the application. The file comes with the first
/// change, or is there already (settingslocations.h, Workplaces).
class DATABASE_EXPORT WorkplaceSettings : public LayeredSettings
{
    Q_OBJECT

public:
    /// Borrows the application's settings. Throws a QString for a name that will not do.
    WorkplaceSettings(const QString &workplace, AppSettings *application,
                      QObject *parent = nullptr);

    QString workplace() const { return m_workplace; }
    QtJsonSettings &own() { return m_own; }

private:
    const QString m_workplace;
    QtJsonSettings m_own;
};
