#pragma once

#include <QtCore/qfile.h>

#include <mutex>

/// The file under a log: whole pieces of text, in the order of the calls, from any thread.
class LogWriter
{
public:
    explicit LogWriter(const QString &fileName);
    LogWriter(const LogWriter &) = delete;
    LogWriter &operator=(const LogWriter &) = delete;

    QString fileName() const { return m_file.fileName(); }
    bool isOpen() const;
    QString errorString() const;
    qint64 lostBytes() const;
    /// Whether this thread is inside one of a writer's functions. A message that arises there must
    /// not be written by one.
    static bool isBusy();

    void open();
    void close();
    /// Appends \p text, or none of it, and says which.
    bool append(const char *text, qint64 size);
    /// The same for a text that is to start a line.
    bool appendLine(const QByteArray &text);

private:
    class Lock;

    bool write(const char *text, qint64 size);

    mutable std::mutex m_mutex; // guards what follows
    QFile m_file;
    QString m_error;
    qint64 m_lostBytes = 0;
    bool m_atLineStart = true;
};
