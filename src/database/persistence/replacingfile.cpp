#include "database/persistence/replacingfile.h"

#include <QtCore/qfileinfo.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

bool isSameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// File systems that keep nothing in memory may refuse to be flushed.
bool syncToDisk(int descriptor)
{
    return ::fsync(descriptor) == 0 || errno == EINVAL;
}

} // namespace

qint64 WriteBehindFile::writeData(const char *data, qint64 length)
{
    constexpr qint64 kStretch = 4 << 20;
    const qint64 written = QFile::writeData(data, length);
    m_unsent += qMax(written, qint64(0));
#ifdef SYNC_FILE_RANGE_WRITE
    if (m_unsent >= kStretch) { // a hint: what fails will fail again where it counts
        ::sync_file_range(handle(), m_sent, m_unsent, SYNC_FILE_RANGE_WRITE);
        m_sent += std::exchange(m_unsent, 0);
    }
#endif
    return written;
}

ReplacingFile::ReplacingFile(const QString &path, const QString &temporary)
    : m_path(path)
    , m_target(QFile::encodeName(path))
    , m_temporary(QFile::encodeName(temporary))
{
}

ReplacingFile::~ReplacingFile()
{
    discard();
}

bool ReplacingFile::open()
{
    // A file that somebody protected would not survive the rename.
    struct stat old;
    const bool replaces = ::stat(m_target.constData(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode))
        return fail(QStringLiteral("is no regular file"), 0);
    if (replaces && ::access(m_target.constData(), W_OK) != 0)
        return fail(QStringLiteral("cannot be written"), errno);
    if (!openLocked())
        return false;
    const int descriptor = m_file.handle();
    const bool prepared = ::ftruncate(descriptor, 0) == 0 &&
                          (!replaces || ::fchmod(descriptor, old.st_mode & 07777) == 0);
    if (!prepared) {
        const int code = errno;
        discard();
        return fail(QStringLiteral("cannot be prepared"), code);
    }
    return true;
}

// Opens without truncating: by the time the lock is had, another saver may have renamed the file
// that was opened over the real one. The name is asked again under the lock.
bool ReplacingFile::openLocked()
{
    for (;;) {
        const int descriptor = ::open(m_temporary.constData(),
                                      O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
        if (descriptor < 0)
            return fail(QStringLiteral("cannot be opened"), errno);
        struct stat opened = {};
        const char *problem = nullptr;
        if (::fstat(descriptor, &opened) != 0)
            problem = "cannot be opened";
        else if (!S_ISREG(opened.st_mode))
            problem = "has something else in the place of its temporary file";
        else if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0)
            problem = "is being saved by someone else";
        if (problem) {
            const int code = errno;
            ::close(descriptor);
            return fail(QLatin1String(problem), code);
        }
        struct stat named = {};
        if (::lstat(m_temporary.constData(), &named) == 0 && isSameFile(opened, named)) {
            m_file.setFileName(QFile::decodeName(m_temporary));
            if (m_file.open(descriptor, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle))
                return true;
            ::close(descriptor);
            return fail(m_file.errorString(), 0);
        }
        ::close(descriptor);
    }
}

bool ReplacingFile::commit()
{
    if (!m_file.isOpen())
        return false;
    QString problem;
    int code = 0;
    if (!m_file.flush()) {
        problem = m_file.errorString();
    } else if (!syncToDisk(m_file.handle()) ||
               ::rename(m_temporary.constData(), m_target.constData()) != 0) {
        code = errno;
        problem = QStringLiteral("cannot be stored");
    }
    if (!problem.isEmpty()) {
        discard();
        return fail(problem, code);
    }
    m_file.close();
    return syncDirectory();
}

void ReplacingFile::discard()
{
    if (!m_file.isOpen())
        return;
    ::unlink(m_temporary.constData());
    m_file.close();
}

bool ReplacingFile::syncDirectory()
{
    const QByteArray directory = QFile::encodeName(QFileInfo(m_path).path());
    const int descriptor = ::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return fail(QStringLiteral("is stored, but its directory cannot be flushed"), errno);
    const bool synced = syncToDisk(descriptor);
    const int code = errno;
    ::close(descriptor);
    return synced || fail(QStringLiteral("is stored, but its directory cannot be flushed"), code);
}

bool ReplacingFile::fail(const QString &what, int code)
{
    m_error = QStringLiteral("'%1' %2").arg(m_path, what);
    if (code != 0)
        m_error += QStringLiteral(": ") + qt_error_string(code);
    return false;
}
