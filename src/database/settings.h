#pragma once

#include "database/database_global.h"

#include <QtCore/qmap.h>
#include <QtCore/qmetatype.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>
#include <QtCore/qvariant.h>
#include <QtCore/qvector.h>

#include <deque>
#include <type_traits>

/// Values by their full keys, in the order of the keys' UTF-16 code units.
using SettingsMap = QMap<QString, QVariant>;

/// What happened to one key. An invalid variant stands for "no value", or for a stored nothing.
struct SettingsChange {
    QString key;
    QVariant before;
    QVariant after;
};

/// A value that a newer program stored under a tag that this one does not know. It takes part in
/// everything like any value and is written back to the character.
struct UnknownSetting {
    QString type; ///< the tag
    QString json; ///< the whole object, as it stood in the file
};

Q_DECLARE_METATYPE(SettingsChange)
Q_DECLARE_METATYPE(UnknownSetting)

/// Typed values under keys, and notice of their changes.
///
/// A key is a path, "chart/main/color": names with "/" between them. Every part but the last names
/// a group, which exists as long as something is in it. A path that is empty, begins or ends with
/// "/", has an empty part or a part named "$type" (the mark of tagged values in files), or has more
/// than kMaxDepth parts throws a QString.
///
/// A value is of one of these types, also deep inside lists and maps: nothing (an invalid variant),
/// bool, int, qlonglong, qulonglong, double, QString, QByteArray, QVariantList, QVariantMap,
/// decimal, xdecimal, datetime, QDateTime, UnknownSetting. Some others are taken and come back as
/// the nearest of them, nothing lost: narrower integers and QChar (int, QString), uint and long
/// (qlonglong), float (double), QStringList and QVariantHash (QVariantList, QVariantMap).
/// Anything else throws a QString.
///
/// Invariants:
///  (1) No key of values() is a group of another one.
///  (2) Values are stored in the types above, nested no deeper than kMaxDepth, their key counted.
///  (3) Two values are the same only when they are so to the last bit: 1 is not 1.0, 1.50 not 1.5,
///      -0.0 not 0.0, a time in UTC not the same time elsewhere. NaN is NaN.
///  (4) changed() comes when the value that shows is another one than before, and only then; the
///      new value is in place by then, and notices come in the order of the changes.
///
/// Threads: an object and what it is layered with belong to one thread, that of their event loop;
/// nothing is locked. Other threads ask through queued calls.
class DATABASE_EXPORT Settings : public QObject
{
    Q_OBJECT

public:
    static constexpr int kMaxDepth = 512;

    explicit Settings(QObject *parent = nullptr);
    ~Settings() override;

    /// What the user is told these settings are, "defaults" for instance.
    virtual QString name() const = 0;
    /// All that can be read, invariants (1) and (2). A copy is cheap and stays as it is.
    virtual const SettingsMap &values() const = 0;

    /// The value of a key, or \p fallback when there is none. O(log n), as every question for one
    /// key.
    QVariant value(const QString &key, const QVariant &fallback = QVariant()) const;
    /// The value as a T, or \p fallback when there is none or it is nothing. Numbers convert where
    /// nothing is lost, and a list of texts gives a QStringList; for any other value that is no T
    /// an Exception names the key, the type expected and the one found.
    template<class T>
    T value(const QString &key, const std::enable_if_t<true, T> &fallback = T()) const;
    /// Whether there is a value, be it nothing. False for a group.
    bool contains(const QString &key) const;
    /// Whether there is anything below a path.
    bool hasGroup(const QString &group) const;

    /// The keys below a group, at any depth, relative to it; all of them for an empty group.
    QStringList keys(const QString &group = QString()) const;
    /// The names of the values right in a group, in order.
    QStringList childKeys(const QString &group = QString()) const;
    /// The names of the groups right in a group, in order.
    QStringList groups(const QString &group = QString()) const;

    /// Throws a QString and changes nothing when the key or the type will not do, when the key is
    /// a group or below a value, or when these settings cannot be changed.
    void setValue(const QString &key, const QVariant &value);
    /// The same for the types that do not turn into a variant by themselves.
    template<class T, std::enable_if_t<!std::is_convertible_v<T, QVariant>, int> = 0>
    void setValue(const QString &key, const T &value)
    {
        setValue(key, QVariant::fromValue(value));
    }
    /// Removes a value, or a group with all that is in it; nothing happens when there is neither.
    void remove(const QString &path);

    /// Whose value shows under the key: these settings or a layer of them; null when none does.
    virtual const Settings *origin(const QString &key) const;

    /// Stores what is not stored yet. \return whether nothing is left to store; see errorString()
    virtual bool sync() { return true; }
    /// What was wrong with the last reading and the last storing, one line each; empty when nothing
    /// was.
    virtual QString errorString() const { return QString(); }

Q_SIGNALS:
    /// One key shows another value, also because a layer below does now.
    void changed(const QString &key, const QVariant &before, const QVariant &after);
    /// All keys that changed in one step, before changed() tells them one by one.
    void changedTogether(const QVector<SettingsChange> &changes);

protected:
    /// Takes a value that has been checked; \p key is neither a group nor below a value.
    virtual void store(const QString &key, const QVariant &value) = 0;
    /// Removes the value at a path and all that is below it.
    virtual void erase(const QString &path) = 0;
    /// Tells of changes that are in place already.
    void announce(const QVector<SettingsChange> &changes);

private:
    QVariant typedValue(const QString &key, int type) const;

    std::deque<SettingsChange> m_notices; // those that changed() has not told yet
    bool m_telling = false;
};

/// Settings as seen from inside a group: "color" is "chart/main/color" in the group "chart/main".
/// Keys and groups are relative, and an empty group is this one. Borrows the settings.
class DATABASE_EXPORT SettingsGroup
{
public:
    /// Throws a QString for a path that will not do.
    SettingsGroup(Settings &settings, const QString &path);
    /// A group inside of this one.
    SettingsGroup(const SettingsGroup &group, const QString &path);

    Settings &settings() const { return *m_settings; }
    QString path() const { return m_path; }
    /// The full key of one in here.
    QString fullKey(const QString &key) const { return m_path + QLatin1Char('/') + key; }

    QVariant value(const QString &key, const QVariant &fallback = QVariant()) const
    {
        return m_settings->value(fullKey(key), fallback);
    }
    template<class T>
    T value(const QString &key, const std::enable_if_t<true, T> &fallback = T()) const
    {
        return m_settings->value<T>(fullKey(key), fallback);
    }
    bool contains(const QString &key) const { return m_settings->contains(fullKey(key)); }
    bool hasGroup(const QString &group) const { return m_settings->hasGroup(inside(group)); }
    QStringList keys(const QString &group = {}) const { return m_settings->keys(inside(group)); }
    QStringList childKeys(const QString &group = {}) const
    {
        return m_settings->childKeys(inside(group));
    }
    QStringList groups(const QString &group = {}) const
    {
        return m_settings->groups(inside(group));
    }

    template<class T>
    void setValue(const QString &key, const T &value)
    {
        m_settings->setValue(fullKey(key), value);
    }
    void remove(const QString &path) { m_settings->remove(fullKey(path)); }
    /// Removes everything in the group.
    void clear() { m_settings->remove(m_path); }

private:
    QString inside(const QString &group) const { return group.isEmpty() ? m_path : fullKey(group); }

    Settings *m_settings; // borrowed
    QString m_path;
};

/// Settings that live in memory.
class DATABASE_EXPORT MapSettings : public Settings
{
    Q_OBJECT

public:
    explicit MapSettings(const QString &name = QStringLiteral("memory"), QObject *parent = nullptr);

    QString name() const override { return m_name; }
    const SettingsMap &values() const override { return m_values; }

    /// Puts other values in place of all there are, in one step. Throws a QString and changes
    /// nothing when one of them would not be taken by setValue().
    void replace(const SettingsMap &values);

protected:
    void store(const QString &key, const QVariant &value) override;
    void erase(const QString &path) override;
    /// Takes over values that fulfil the invariants.
    void adopt(const SettingsMap &values);

private:
    const QString m_name;
    SettingsMap m_values;
};

// ------------------------------------------------------------------------------------------------

template<class T>
T Settings::value(const QString &key, const std::enable_if_t<true, T> &fallback) const
{
    const QVariant found = typedValue(key, qMetaTypeId<T>());
    return found.isValid() ? found.value<T>() : fallback;
}
