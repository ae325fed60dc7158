#include "database/settingsfile.h"

#include "database/persistence/replacingfile.h"
#include "database/settingsjson.h"
#include "database/settingsvalue.h"

#include <QtCore/qabstracteventdispatcher.h>
#include <QtCore/qcryptographichash.h>
#include <QtCore/qdatetime.h>
#include <QtCore/qdeadlinetimer.h>
#include <QtCore/qdir.h>
#include <QtCore/qfile.h>
#include <QtCore/qfileinfo.h>
#include <QtCore/qfilesystemwatcher.h>
#include <QtCore/qlockfile.h>
#include <QtCore/qthread.h>

#include <algorithm>

// The file is replaced by ReplacingFile and not by QSaveFile: the temporary file of the latter has
// another name each time, and killed processes would fill the folder with them.

using namespace SettingsValue;

namespace
{

constexpr int kLockTimeout = 5000;    // ms that sync() waits
constexpr int kRetryDelay = 30000;    // ms after a failure
constexpr int kBusyDelay = 100;       // ms after another process had the lock
constexpr int kLookDelay = 100;       // ms that a change from outside gets to become whole
constexpr int kStaleLockTime = 3000;  // ms; of a lock that does not say whose it is
constexpr int kLockPause = 5;         // ms between attempts
constexpr int kMaxNamesAside = 10000; // a second

/// Where a link leads, so that replacing the file does not replace the link.
QString resolved(const QString &fileName)
{
    const QFileInfo file(fileName);
    const QString target = file.canonicalFilePath();
    return target.isEmpty() ? file.absoluteFilePath() : target;
}

} // namespace

QtJsonSettings::QtJsonSettings(const QString &fileName, Mode mode, const QString &name,
                               QObject *parent)
    : MapSettings(name.isEmpty() ? QFileInfo(fileName).fileName() : name, parent)
    , m_path(resolved(fileName))
    , m_mode(mode)
{
    m_saveTimer.setSingleShot(true);
    m_lookTimer.setSingleShot(true);
    connect(&m_saveTimer, &QTimer::timeout, this, &QtJsonSettings::saveByTimer);
    connect(&m_lookTimer, &QTimer::timeout, this, &QtJsonSettings::refresh);
    load();
    if (QAbstractEventDispatcher::instance()) {
        m_watcher = std::make_unique<QFileSystemWatcher>();
        const auto lookSoon = [this] { m_lookTimer.start(kLookDelay); };
        connect(m_watcher.get(), &QFileSystemWatcher::fileChanged, this, lookSoon);
        connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, this, lookSoon);
        watch();
    }
}

QtJsonSettings::~QtJsonSettings()
{
    blockSignals(true); // who listens may be half gone as well
    if (m_dirty)
        save(kLockTimeout);
}

bool QtJsonSettings::sync()
{
    if (m_dirty)
        return save(kLockTimeout);
    refresh();
    return true;
}

QString QtJsonSettings::errorString() const
{
    QStringList problems{m_contentError, m_saveError};
    problems.removeAll(QString());
    problems.removeDuplicates();
    return problems.join(QLatin1Char('\n'));
}

void QtJsonSettings::setSaveDelay(int quiet, int latest)
{
    m_quiet = quiet;
    m_latest = latest;
}

void QtJsonSettings::checkWritable() const
{
    if (m_mode == ReadOnly)
        throw QStringLiteral("settings '%1' ('%2') cannot be changed, they are read only")
            .arg(name(), m_path);
}

// Marked before it is told, since a listener may store right away.

void QtJsonSettings::store(const QString &key, const QVariant &value)
{
    checkWritable();
    scheduleSave();
    MapSettings::store(key, value);
}

void QtJsonSettings::erase(const QString &path)
{
    checkWritable();
    scheduleSave();
    MapSettings::erase(path);
}

void QtJsonSettings::scheduleSave()
{
    m_dirty = true;
    if (!QAbstractEventDispatcher::instance())
        return;
    if (!m_sinceFirst.isValid())
        m_sinceFirst.start();
    const qint64 left = m_latest - m_sinceFirst.elapsed();
    m_saveTimer.start(int(std::max(qint64(0), std::min(qint64(m_quiet), left))));
}

// Does not wait for the lock, since the thread may be that of the windows.
void QtJsonSettings::saveByTimer()
{
    if (!m_dirty || save(0))
        return;
    m_sinceFirst.start(); // or the next change would be stored at once, and every one behind it
    m_saveTimer.start(m_saveError.isEmpty() ? kBusyDelay : kRetryDelay);
}

/// Reads the file as it is; the values are left out when the bytes are those seen last.
QtJsonSettings::Content QtJsonSettings::look() const
{
    Content content;
    const QFileInfo info(m_path);
    if (!info.exists())
        return content;
    QFile file(m_path);
    content.finding = Unreadable;
    if (!info.isFile()) { // a pipe would block
        content.problem = QStringLiteral("is no regular file");
        return content;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        content.problem = QStringLiteral("cannot be read: ") + file.errorString();
        return content;
    }
    // Asked first: what is too large is not to be taken into memory, and a limit given to read()
    // would be allocated whole.
    if (file.size() > SettingsJson::kMaxBytes) {
        content.finding = Malformed;
        content.problem = QStringLiteral("is no settings file: at most %1 bytes are expected, %2 "
                                         "found")
                              .arg(SettingsJson::kMaxBytes)
                              .arg(file.size());
        return content;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        content.problem = QStringLiteral("cannot be read: ") + file.errorString();
        return content;
    }
    content.digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    content.finding = Same;
    if (content.digest == m_digest)
        return content;
    try {
        content.values = SettingsJson::read(bytes);
        content.finding = Sound;
    } catch (const QString &problem) {
        content.finding = Malformed;
        content.problem = QStringLiteral("is no settings file: ") + problem;
    }
    return content;
}

void QtJsonSettings::load()
{
    Content content = look();
    QLockFile lockFile(m_path + QLatin1String(".lock"));
    // Looked at again under the lock: what another process has put right is not to be moved.
    if (content.finding == Malformed && m_mode == ReadWrite && lock(&lockFile, kLockTimeout)) {
        content = look();
        if (content.finding == Malformed && moveAside(content.problem))
            return;
    }
    adoptContent(content);
}

// The watcher may see a file that someone is still writing, so what is malformed here is left where
// it is; it is moved when it would be in the way.
void QtJsonSettings::refresh()
{
    if (m_watcher)
        watch();
    adoptContent(look());
}

void QtJsonSettings::adoptContent(const Content &content)
{
    switch (content.finding) {
    case Missing:
        break;
    case Same:
        if (m_refused) // it was another one in between
            m_contentError.clear();
        m_refused = false;
        break;
    case Malformed:
    case Unreadable:
        m_refused = true;
        reportContent(content.problem);
        break;
    case Sound: {
        m_refused = false;
        m_contentError.clear();
        const SettingsMap values = merged(content.values);
        m_base = content.values;
        m_digest = content.digest;
        adopt(values);
        break;
    }
    }
}

SettingsMap QtJsonSettings::merged(const SettingsMap &theirs) const
{
    SettingsMap result = theirs;
    if (!m_dirty)
        return result;
    for (const SettingsChange &change : differences(m_base, values())) {
        if (values().contains(change.key)) {
            makeRoom(result, change.key);
            result.insert(change.key, change.after);
        } else {
            result.remove(change.key);
        }
    }
    return result;
}

// Attempts follow each other more quickly than QLockFile's own, which double their distance: with
// two processes that store often, one of them would wait most of the time.
bool QtJsonSettings::lock(QLockFile *file, int timeout)
{
    file->setStaleLockTime(kStaleLockTime);
    const QDeadlineTimer deadline(timeout);
    while (!file->tryLock(0)) {
        if (file->error() != QLockFile::LockFailedError || deadline.hasExpired())
            return false;
        QThread::msleep(kLockPause);
    }
    return true;
}

/// \return false without an error text when the lock was not to be had at once, as was asked for
bool QtJsonSettings::save(int lockTimeout)
{
    if (differences(m_base, values()).isEmpty()) { // undone meanwhile
        m_dirty = false;
        m_sinceFirst.invalidate();
        m_saveError.clear();
        refresh();
        return true;
    }
    const QString folder = QFileInfo(m_path).path();
    if (!QDir().mkpath(folder))
        return failToSave(QStringLiteral("cannot be stored: the folder cannot be made"));
    SettingsMap values;
    {
        QLockFile lockFile(m_path + QLatin1String(".lock"));
        if (!lock(&lockFile, lockTimeout)) {
            if (lockFile.error() != QLockFile::LockFailedError)
                return failToSave(QStringLiteral("cannot be stored: the folder cannot be written"));
            if (lockTimeout > 0)
                return failToSave(
                    QStringLiteral("cannot be stored: another process keeps it locked"));
            m_saveError.clear();
            return false;
        }
        if (!saveLocked(&values))
            return false;
    }
    m_saveTimer.stop();
    m_saveError.clear();
    if (m_watcher)
        watch();
    adopt(values);
    return true;
}

/// \param[out] merged  the values that were stored, not yet taken over
bool QtJsonSettings::saveLocked(SettingsMap *merged)
{
    const Content content = look();
    *merged = values();
    if (content.finding == Unreadable)
        return failToSave(content.problem);
    if (content.finding == Malformed && !moveAside(content.problem))
        return failToSave(m_contentError);
    if (content.finding == Sound) {
        m_contentError.clear();
        *merged = this->merged(content.values);
    }
    const QByteArray bytes = SettingsJson::write(*merged);
    if (bytes.size() > SettingsJson::kMaxBytes)
        return failToSave(QStringLiteral("cannot be stored: it would have %1 bytes, at most %2 are "
                                         "read again")
                              .arg(bytes.size())
                              .arg(SettingsJson::kMaxBytes));
    ReplacingFile file(m_path, m_path + QLatin1String(".saving"));
    if (!file.open() || file.device()->write(bytes) != bytes.size() || !file.commit())
        return failToSave(file.errorString().isEmpty() ? file.device()->errorString()
                                                       : file.errorString());
    m_base = *merged;
    m_digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    m_refused = false;
    m_dirty = false;
    m_sinceFirst.invalidate();
    return true;
}

/// Renames the malformed file, under the lock. \return whether it is out of the way
bool QtJsonSettings::moveAside(const QString &problem)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const QString first = QStringLiteral("%1.broken-%2").arg(m_path, stamp);
    QString aside = first;
    for (int i = 2; !QFile::rename(m_path, aside); ++i) { // does not replace what is there
        if (!QFileInfo::exists(aside) || i > kMaxNamesAside) {
            reportContent(problem + QStringLiteral("; it cannot be renamed and is left alone"));
            return false;
        }
        aside = QStringLiteral("%1-%2").arg(first).arg(i);
    }
    reportContent(problem + QStringLiteral("; it is '%1' now").arg(aside));
    return true;
}

void QtJsonSettings::reportContent(const QString &problem)
{
    const QString text = QStringLiteral("'%1' %2").arg(m_path, problem);
    if (text != m_contentError)
        qWarning("%s", qUtf8Printable(text));
    m_contentError = text;
}

bool QtJsonSettings::failToSave(const QString &problem)
{
    const QString text = problem.startsWith(QLatin1Char('\''))
                             ? problem
                             : QStringLiteral("'%1' %2").arg(m_path, problem);
    if (text != m_saveError && text != m_contentError)
        qWarning("%s", qUtf8Printable(text));
    m_saveError = text;
    return false;
}

// The file is replaced and not written, so it has to be watched anew each time; the folder tells
// when it appears, and a folder above when that one does.
void QtJsonSettings::watch()
{
    if (QFileInfo::exists(m_path))
        m_watcher->addPath(m_path);
    QString folder = QFileInfo(m_path).path();
    while (!QFileInfo::exists(folder) && folder != QFileInfo(folder).path())
        folder = QFileInfo(folder).path();
    const QStringList watched = m_watcher->directories();
    if (watched.contains(folder))
        return;
    if (!watched.isEmpty())
        m_watcher->removePaths(watched);
    m_watcher->addPath(folder);
}
