#pragma once

#include <database/settingslayers.h>

#include <memory>

/// What the user chose for the board; each member is the setting of its name.
struct Choices {
    int top = 10;        ///< options listed by volume
    QString data;        ///< folder of the snapshots, empty for the simulated market
    bool gzip = false;   ///< whether saved tables are compressed
    QStringList tables;  ///< those of the summary, in the order in which they are printed
    QStringList columns; ///< those of the options listed by volume, likewise

    /// \throws QString which setting has what wrong with it, and what would be accepted
    static Choices from(const Settings &settings);

    static QStringList allTables();
    static QStringList allColumns();
};

/// The settings that choices are kept in: the user's, and over them those of a workplace.
class ChoiceSettings
{
public:
    /// \param folder  below which all settings are; empty for the user's own places
    /// \param workplace  empty for none
    /// \throws QString for a name that no workplace can have
    ChoiceSettings(const QString &folder, const QString &workplace);

    const Settings &settings() const { return *m_top; }
    /// Whether the workplace has been made yet, if one was asked for.
    bool exists() const;

    /// Changes and stores one choice; lists are names with commas between them.
    /// \param assignment  "key=value"
    /// \throws QString why it is none, or why it cannot be stored; nothing has changed then
    void set(const QString &assignment);

private:
    const SettingsLocations m_locations;
    AppSettings m_application;
    std::unique_ptr<WorkplaceSettings> m_workplace; // null without one
    LayeredSettings *m_top = &m_application;        // one of the two
};
