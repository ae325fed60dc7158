#pragma once

#include "database/database_global.h"

#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>

/// The folders that settings are in. None of them has to exist.
struct DATABASE_EXPORT SettingsLocations {
    QString defaults;     ///< what the application ships: defaults.json
    QString installation; ///< choices for all users of an installation: settings.json
    QString user;         ///< those of the user: settings.json
    QString workplaces;   ///< those of the user's workplaces: NAME.json

    /// The places of this application, by its name and its organization's, and of this user:
    /// the defaults in the system's folders for application data (/usr/share/ORG/APP), those of the
    /// installation in the system's folders for configuration (/etc/xdg/ORG/APP), each in the
    /// first one that has the file, or else in the folder of the program itself; the user's in
    /// ~/.config/ORG/APP, with the workplaces in a folder of that name below.
    static SettingsLocations standard();
    /// All four below one folder: "defaults", "installation", "user" and "workplaces".
    static SettingsLocations below(const QString &folder);

    QString defaultsFile() const;
    QString installationFile() const;
    QString userFile() const;
    /// The file of a workplace: letters, digits, "-", "_", "~" and blanks of ASCII as they are, all
    /// other bytes of the name's UTF-8 as "%D0". Throws a QString for a name that is empty, is no
    /// Unicode text or whose file name would be longer than 200 bytes.
    QString workplaceFile(const QString &name) const;
};

/// The workplaces of a user, as files: to be listed, made, copied, renamed and removed. A workplace
/// that is open is stored before (sync()) and closed before it is renamed or removed; its settings
/// would come back with their next change.
///
/// Each function throws a QString that says what cannot be done, and then nothing has changed. No
/// workplace is ever written over by another.
class DATABASE_EXPORT Workplaces
{
public:
    explicit Workplaces(const SettingsLocations &locations = SettingsLocations::standard());

    /// In the order of their names. Files that are no workplace's are left out.
    QStringList names() const;
    bool contains(const QString &name) const;

    /// Makes one without settings of its own.
    void create(const QString &name);
    void copy(const QString &from, const QString &to);
    void rename(const QString &from, const QString &to);
    void remove(const QString &name);

private:
    QString existing(const QString &name) const;

    const SettingsLocations m_locations;
};
