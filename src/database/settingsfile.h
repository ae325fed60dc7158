#pragma once

#include "database/settings.h"

#include <QtCore/qelapsedtimer.h>
#include <QtCore/qtimer.h>

#include <memory>

class QFileSystemWatcher;
class QLockFile;

/// Settings in a JSON file that people may edit: read when constructed, stored when something
/// changed, and merged with what others write to the file meanwhile. settingsjson.h says what is
/// in it.
///
/// Invariants:
///  (1) The file is whole at any time: it is written beside itself and renamed. A process that is
///      killed leaves the old file or the new one, and at most one temporary file, "NAME.saving",
///      that the next one takes over.
///  (2) It is written under a lock, "NAME.lock", and only after what stands there has been read and
///      merged: keys that were changed here since they were last read or stored keep their values
///      from here, all others follow the file. Of two that change one key, the later to store wins.
///  (3) Nothing that does not read is ever written over. A malformed file is renamed, to
///      "NAME.broken-20261121-102030", before anything is stored; when it cannot be, nothing is.
///  (4) What could not be stored stays here, and every sync() tries again.
///
/// When it is stored: by sync(); with an event loop in the thread, by itself half a second after
/// the last change, five seconds after the first one at the latest, and again half a minute after
/// every failure; and by the destructor. A change from outside is noticed with an event loop, and
/// by sync() in any case, and told by changed(). A file that goes away changes nothing here: it
/// comes back with the next change.
///
/// Problems go to errorString() and to Qt's warning log, each once.
class DATABASE_EXPORT QtJsonSettings : public MapSettings
{
    Q_OBJECT

public:
    enum Mode {
        ReadWrite,
        ReadOnly ///< neither changed nor touched, also when it is malformed
    };

    /// A file that is not there yet has no values; it comes with the first change, its folders too.
    /// \param name  as name() gives it; the file's own when empty
    explicit QtJsonSettings(const QString &fileName, Mode mode = ReadWrite,
                            const QString &name = QString(), QObject *parent = nullptr);
    /// Stores what is not stored, waiting for the lock as sync() does; nothing is announced.
    ~QtJsonSettings() override;

    QString fileName() const { return m_path; }
    bool isReadOnly() const { return m_mode == ReadOnly; }
    bool hasUnsavedChanges() const { return m_dirty; }

    /// Reads what others wrote and stores what changed here; waits up to five seconds for another
    /// process that is storing.
    /// \return whether nothing is left to store
    bool sync() override;
    QString errorString() const override;

    /// \param quiet  milliseconds after the last change when it is stored by itself
    /// \param latest  milliseconds after the first one
    void setSaveDelay(int quiet, int latest);

protected:
    void store(const QString &key, const QVariant &value) override;
    void erase(const QString &path) override;

private:
    enum Finding { Missing, Same, Sound, Malformed, Unreadable };
    struct Content {
        Finding finding = Missing;
        QByteArray digest;
        SettingsMap values;
        QString problem;
    };

    Content look() const;
    void load();
    void refresh();
    bool save(int lockTimeout);
    bool saveLocked(SettingsMap *merged);
    void adoptContent(const Content &content);
    SettingsMap merged(const SettingsMap &theirs) const;
    bool lock(QLockFile *file, int timeout);
    bool moveAside(const QString &problem);
    void reportContent(const QString &problem);
    bool failToSave(const QString &problem);

    void checkWritable() const;
    void scheduleSave();
    void saveByTimer();
    void watch();

    const QString m_path; // absolute, links resolved: the file that is replaced
    const Mode m_mode;
    SettingsMap m_base;     // as last read or stored; what differs was changed here
    QByteArray m_digest;    // of the bytes that m_base is from
    bool m_refused = false; // whether the file, as last seen, could not be read
    bool m_dirty = false;   // whether values() may differ from m_base
    QString m_contentError; // what was wrong with the file when it was last read
    QString m_saveError;    // with storing, the last time it was tried
    int m_quiet = 500;
    int m_latest = 5000;
    QElapsedTimer m_sinceFirst; // change that is not stored; invalid when there is none
    QTimer m_saveTimer;
    QTimer m_lookTimer;                            // gathers what the watcher tells
    std::unique_ptr<QFileSystemWatcher> m_watcher; // with an event loop
};
