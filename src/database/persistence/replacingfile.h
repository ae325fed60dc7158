#pragma once

#include <QtCore/qbytearray.h>
#include <QtCore/qfile.h>
#include <QtCore/qstring.h>

/// A file that is written from its start to its end, and whose bytes are on their way to the disk
/// while more are made: the flush at the end then waits for the last of them only.
class WriteBehindFile : public QFile
{
protected:
    qint64 writeData(const char *data, qint64 length) override;

private:
    qint64 m_sent = 0;   // bytes that the disk has been asked to take
    qint64 m_unsent = 0; // bytes behind them
};

/// A file that is written beside the one it replaces.
///
/// Invariants:
///  (1) Until commit() returns true the file at the path is untouched.
///  (2) The temporary file is locked while it is written, and removed only under that lock, so that
///      of several savers one writes and none takes away another's file. A killed saver loses its
///      lock, and the next one takes its file over.
class ReplacingFile
{
public:
    /// \param temporary  the path it is written under, in the same directory
    ReplacingFile(const QString &path, const QString &temporary);
    /// Removes the temporary file unless it was committed.
    ~ReplacingFile();
    ReplacingFile(const ReplacingFile &) = delete;
    ReplacingFile &operator=(const ReplacingFile &) = delete;

    bool open();
    /// Flushes to the disk, renames over the old file and makes the rename durable.
    bool commit();
    void discard();

    QFile *device() { return &m_file; } ///< for writing, open after open()
    QString errorString() const { return m_error; }

private:
    bool openLocked();
    bool fail(const QString &what, int code);
    bool syncDirectory();

    const QString m_path;
    const QByteArray m_target;    // the path, encoded
    const QByteArray m_temporary; // encoded
    WriteBehindFile m_file;
    QString m_error;
};
