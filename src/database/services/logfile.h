#pragma once

#include "database/database_global.h"

#include <QtCore/qfileinfo.h>
#include <QtCore/qobject.h>
#include <QtCore/qtextstream.h>

#include <memory>

class LogWriter;

/// A text log in UTF-8 that keeps the last five logs before it, and a home for Qt's own messages.
///
/// Opening a log renames what is there: logs/trade.log becomes logs/trade.1.log, that one
/// logs/trade.2.log, and so on; what was logs/trade.5.log is deleted. Then it is written to like
/// any text stream, and what is written reaches the file with Qt::endl, flush() or the destructor,
/// or when 16 KiB have gathered. As with every QTextStream, a plain char text is taken for Latin-1;
/// write a QString or a QByteArray where there are letters beyond.
///
/// Invariants:
///  (1) Only a regular file is ever renamed or deleted: a device or a folder under the log's name
///      stays where it is.
///  (2) No failure reaches the application: text that cannot be written is dropped from the stream,
///      which keeps nothing of it and stays usable, and counted in lostBytes(). Once there is room
///      again the log goes on by itself.
///  (3) A write that fails halfway, as the last one before the disk is full does, is taken back:
///      the file ends with what was written whole.
///  (4) A message of Qt's that is not in the log has been given to the handler that was there
///      before install(), as a rule standard error. A fatal one goes to both.
///
/// Threads: the stream belongs to one thread at a time. Everything else may be called from any
/// thread, also while messages arrive from others: those do not go through the stream. A message
/// stands in front of stream text that is not flushed yet, and starts a line of its own even where
/// the stream has flushed half of one; end lines with Qt::endl to keep them in one piece.
class DATABASE_EXPORT LogFile : public QObject, public QTextStream
{
    Q_OBJECT

public:
    /// Shifts the existing logs by one and starts \p fileName. A log that cannot be shifted stays
    /// and is continued; one that cannot be opened is not created, and what is written goes
    /// nowhere: see isOpen() and errorString().
    explicit LogFile(const QString &fileName, QObject *parent = nullptr);
    /// Flushes and closes the file; uninstalls the log if Qt's messages go to it.
    ~LogFile() override;

    /// The name of the log's generation \p n, 1 (the newest) to 5: folder, separator, complete base
    /// name, ".n." and suffix. The last point stays where there is no suffix.
    static QString rotateName(const QFileInfo &file, int n);

    QString fileName() const;
    bool isOpen() const;
    /// Why the file could not be opened, or why the last write to it failed; empty when it did not.
    QString errorString() const;
    /// Bytes that were meant for the file and are not in it.
    qint64 lostBytes() const;

    /// Sends the messages of qDebug() and its like to \p log, from all threads, in place of the
    /// installed log or handler; null uninstalls. Each message is one line in the file before the
    /// call that raised it returns, so that a crash right after loses nothing:
    ///     2026-11-21T10:20:30.123+01:00 WARNING [loader 0x7f3a2c0] category: text
    /// with local time (Z instead of an offset of zero), the name of the QThread if it has one, and
    /// the category if it is not the default one. The lines of a longer text follow, indented by
    /// four blanks.
    static void install(LogFile *log);
    /// Gives the messages back to the handler before install(); nothing happens if no log is
    /// installed. A handler that was installed on top of the log stays, and what it passes down
    /// goes on to the one below.
    static void uninstall();

private:
    const std::shared_ptr<LogWriter> m_writer; // shared with messages that are being written
    const std::unique_ptr<QIODevice> m_device; // what the stream sees of the writer
};
