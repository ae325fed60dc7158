// Files of settings: what reads is within the limits, and writes and reads again as the same.

#include "fuzztarget.h"

#include <database/settingsfile.h>
#include <database/settingsjson.h>

#include <QtCore/qdir.h>
#include <QtCore/qtemporarydir.h>

namespace
{

void readAndWrite(const QByteArray &json)
{
    SettingsMap values;
    if (outcomeOf([&] { values = SettingsJson::read(json); }) != Outcome::Done)
        return;
    MapSettings settings;
    require(outcomeOf([&] { settings.replace(values); }) == Outcome::Done, "what reads can be set");
    const QByteArray written = SettingsJson::write(settings.values());
    require(written == SettingsJson::write(values), "what reads is stored as it is");
    SettingsMap again;
    require(outcomeOf([&] { again = SettingsJson::read(written); }) == Outcome::Done,
            "what was written reads");
    require(SettingsJson::write(again) == written, "what was written reads as the same");
    require(again.keys() == values.keys(), "no key is lost");
    bool told = false;
    QObject::connect(&settings, &Settings::changed, [&] { told = true; });
    settings.replace(again);
    require(!told, "the same values are no change");
}

/// A file by that content is loaded, changed and stored; whatever was there is still somewhere.
void loadAndStore(const QByteArray &json)
{
    static const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("settings.json"));
    {
        QFile file(path);
        require(file.open(QIODevice::WriteOnly) && file.write(json) == json.size(), "room on disk");
    }
    bool sound = true;
    {
        QtJsonSettings settings(path);
        sound = settings.errorString().isEmpty();
        outcomeOf([&] { settings.setValue(QStringLiteral("fuzz/key"), 1); });
        require(settings.sync(), "changes are stored");
    }
    QDir dir(folder.path());
    const auto aside = dir.entryInfoList({QStringLiteral("*.broken-*")});
    require(aside.size() == (sound ? 0 : 1), "what is malformed is kept, and nothing else");
    for (const QFileInfo &file : aside) {
        require(file.size() == json.size(), "what is malformed is kept whole");
        dir.remove(file.fileName());
    }
    dir.remove(path);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    const bool asFile = input.choice() % 16 == 1; // slower by far
    const QByteArray json = input.rest();
    const AllocationLimit limit(json.size());
    if (asFile)
        loadAndStore(json);
    else
        readAndWrite(json);
    return 0;
}
