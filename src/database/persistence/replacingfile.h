#pragma once

#include <QtCore/qbytearray.h>
#include <QtCore/qfile.h>
#include <QtCore/qstring.h>

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
    QFile m_file;
    QString m_error;
};
