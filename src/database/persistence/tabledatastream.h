#pragma once

#include "database/database_global.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qstring.h>

#include <exception>
#include <memory>

class QFile;
class QtIOCompressor;
class ReplacingFile;

/// A stream into a table file that replaces the old one as a whole.
///
/// The bytes go to a temporary file beside it, "name.saving" for both forms. When all of them were
/// written, it is flushed to the disk and renamed over the old file; only then is the other
/// form of the file (plain or ".gz") removed, so that one of the two can be loaded at any moment,
/// whole, whatever stops the program. Anything that fails on the way leaves the old file and its
/// other form as they were.
///
/// A temporary file that a killed process left is taken over by the next save. While another
/// process or thread saves the same file, opening fails.
///
/// When opening fails the stream has no device, and writing to it does nothing.
class DATABASE_EXPORT TableDataStreamWrite : public QDataStream
{
public:
    /// Opens the file of that name, with ".gz" behind it when the application's core wants table
    /// files compressed.
    explicit TableDataStreamWrite(const QString &fileName);
    /// Commits, unless an exception ends the stream's life or an error came before: then the
    /// temporary file is removed.
    ~TableDataStreamWrite();
    TableDataStreamWrite(const TableDataStreamWrite &) = delete;
    TableDataStreamWrite &operator=(const TableDataStreamWrite &) = delete;

    /// Puts the file in place and ends the stream.
    /// \return whether it is safely stored
    bool commit();
    /// Drops what was written.
    void cancel();
    /// Why opening or commit() failed.
    QString errorString() const { return m_error; }

private:
    void fail(const QString &error);

    const QString m_fileName; // of the plain form
    std::unique_ptr<ReplacingFile> m_file;
    std::unique_ptr<QtIOCompressor> m_compressor; // over m_file; null when plain
    QString m_error;
    const int m_exceptions = std::uncaught_exceptions();
};

/// A stream out of a table file: of the plain form if it can be opened, else of the ".gz" one.
/// Without either it has no device and is at its end.
class DATABASE_EXPORT TableDataStreamRead : public QDataStream
{
public:
    explicit TableDataStreamRead(const QString &fileName);
    ~TableDataStreamRead();
    TableDataStreamRead(const TableDataStreamRead &) = delete;
    TableDataStreamRead &operator=(const TableDataStreamRead &) = delete;

    /// The error of the compressed data or the file, empty while there is none.
    QString errorString() const;
    /// Bytes of the file behind the end of its compressed data, once that was read; else 0.
    qint64 bytesBehind() const;

private:
    std::unique_ptr<QFile> m_file;
    std::unique_ptr<QtIOCompressor> m_compressor; // over m_file; null when plain
};
