#include "database/settingslocations.h"

#include "database/persistence/replacingfile.h"
#include "database/settingsjson.h"

#include <QtCore/qcoreapplication.h>
#include <QtCore/qdir.h>
#include <QtCore/qfile.h>
#include <QtCore/qlockfile.h>
#include <QtCore/qstandardpaths.h>
#include <QtCore/qurl.h>

#include <algorithm>

namespace
{

const QString kDefaultsName = QStringLiteral("defaults.json");
const QString kSettingsName = QStringLiteral("settings.json");
const QString kSuffix = QStringLiteral(".json");
constexpr int kMaxFileName = 200; // bytes, which leaves room for what is put behind it
constexpr int kLockTimeout = 5000;

/// The first of the system's folders that has the file, or the program's own. The user's folder,
/// the first one that there is, is not among them.
QString systemFolder(QStandardPaths::StandardLocation location, const QString &fileName)
{
    const QStringList folders = QStandardPaths::standardLocations(location).mid(1);
    const auto found = std::find_if(folders.begin(), folders.end(), [&](const QString &folder) {
        return QFile::exists(QDir(folder).filePath(fileName));
    });
    return found != folders.end() ? *found : QCoreApplication::applicationDirPath();
}

QString encoded(const QString &name)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(name, " ", "."));
}

/// Keeps who stores a file from doing so in the middle of what is done to it.
class FileLock
{
public:
    explicit FileLock(const QString &fileName)
        : m_lock(fileName + QStringLiteral(".lock"))
    {
        if (!m_lock.tryLock(kLockTimeout))
            throw QStringLiteral("'%1' is locked by another process, or its folder cannot be "
                                 "written")
                .arg(fileName);
    }

private:
    QLockFile m_lock;
};

/// Puts a file in place in one step; it must not be there.
void writeNew(const QString &name, const QString &fileName, const QByteArray &bytes)
{
    if (!QDir().mkpath(QFileInfo(fileName).path()))
        throw QStringLiteral("workplace '%1' cannot be made: there is no folder '%2'")
            .arg(name, QFileInfo(fileName).path());
    const FileLock lock(fileName);
    if (QFile::exists(fileName))
        throw QStringLiteral("there is a workplace '%1' already").arg(name);
    ReplacingFile file(fileName, fileName + QStringLiteral(".saving"));
    if (!file.open() || file.device()->write(bytes) != bytes.size() || !file.commit())
        throw QStringLiteral("workplace '%1' cannot be made: %2").arg(name, file.errorString());
}

} // namespace

SettingsLocations SettingsLocations::standard()
{
    const QString user = QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    return {systemFolder(QStandardPaths::AppDataLocation, kDefaultsName),
            systemFolder(QStandardPaths::AppConfigLocation, kSettingsName), user,
            QDir(user).filePath(QStringLiteral("workplaces"))};
}

SettingsLocations SettingsLocations::below(const QString &folder)
{
    const QDir dir(folder);
    return {dir.filePath(QStringLiteral("defaults")), dir.filePath(QStringLiteral("installation")),
            dir.filePath(QStringLiteral("user")), dir.filePath(QStringLiteral("workplaces"))};
}

QString SettingsLocations::defaultsFile() const
{
    return QDir(defaults).filePath(kDefaultsName);
}

QString SettingsLocations::installationFile() const
{
    return QDir(installation).filePath(kSettingsName);
}

QString SettingsLocations::userFile() const
{
    return QDir(user).filePath(kSettingsName);
}

QString SettingsLocations::workplaceFile(const QString &name) const
{
    const QString fileName = encoded(name) + kSuffix;
    if (name.isEmpty() || QString::fromUtf8(name.toUtf8()) != name ||
        fileName.size() > kMaxFileName)
        throw QStringLiteral("'%1' is no name of a workplace: it has to be a text, not empty, of "
                             "at most %2 bytes when all but letters and digits of ASCII count "
                             "three a byte")
            .arg(name)
            .arg(kMaxFileName - kSuffix.size());
    return QDir(workplaces).filePath(fileName);
}

Workplaces::Workplaces(const SettingsLocations &locations)
    : m_locations(locations)
{
}

QStringList Workplaces::names() const
{
    QStringList result;
    const QStringList files = QDir(m_locations.workplaces)
                                  .entryList({QLatin1Char('*') + kSuffix}, QDir::Files, QDir::Name);
    for (const QString &file : files) {
        const QString base = file.left(file.size() - kSuffix.size());
        const QString name = QUrl::fromPercentEncoding(base.toLatin1());
        if (!name.isEmpty() && encoded(name) == base)
            result.append(name);
    }
    std::sort(result.begin(), result.end());
    return result;
}

bool Workplaces::contains(const QString &name) const
{
    return QFile::exists(m_locations.workplaceFile(name));
}

QString Workplaces::existing(const QString &name) const
{
    QString fileName = m_locations.workplaceFile(name);
    if (!QFile::exists(fileName))
        throw QStringLiteral("there is no workplace '%1'").arg(name);
    return fileName;
}

void Workplaces::create(const QString &name)
{
    writeNew(name, m_locations.workplaceFile(name), SettingsJson::write({}));
}

void Workplaces::copy(const QString &from, const QString &to)
{
    QFile source(existing(from));
    if (!source.open(QIODevice::ReadOnly))
        throw QStringLiteral("workplace '%1' cannot be read: %2").arg(from, source.errorString());
    writeNew(to, m_locations.workplaceFile(to), source.readAll());
}

void Workplaces::rename(const QString &from, const QString &to)
{
    const QString source = existing(from);
    const QString target = m_locations.workplaceFile(to);
    const FileLock lock(source);
    QFile file(source);
    if (!file.rename(target)) { // does not replace what is there
        throw QFile::exists(target)
            ? QStringLiteral("there is a workplace '%1' already").arg(to)
            : QStringLiteral("workplace '%1' cannot be renamed: %2").arg(from, file.errorString());
    }
}

void Workplaces::remove(const QString &name)
{
    const QString fileName = existing(name);
    const FileLock lock(fileName);
    QFile file(fileName);
    if (!file.remove())
        throw QStringLiteral("workplace '%1' cannot be removed: %2").arg(name, file.errorString());
}
