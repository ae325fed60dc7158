#include "database/services/logfile.h"

#include "database/services/logmessages.h"
#include "database/services/logwriter.h"

#include <QtCore/qdir.h>

namespace
{

constexpr int kGenerations = 5;

/// What a text stream writes to. Takes everything: after a refused write a stream would keep all
/// that follows in memory and not try again.
class StreamDevice final : public QIODevice
{
public:
    explicit StreamDevice(LogWriter &writer)
        : m_writer(writer)
    {
        open(WriteOnly | Unbuffered);
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *text, qint64 size) override
    {
        m_writer.append(text, size);
        return size;
    }

private:
    LogWriter &m_writer;
};

/// Each step fails where its target is still there, or where the folder is not writable: nothing
/// is overwritten then, and the log goes on in the file that it finds.
void rotate(const QFileInfo &file)
{
    for (int n = kGenerations; n >= 1; --n) {
        const QString name = LogFile::rotateName(file, n);
        if (!QFileInfo(name).isFile())
            continue;
        if (n == kGenerations)
            QFile::remove(name);
        else
            QFile::rename(name, LogFile::rotateName(file, n + 1));
    }
    QFile::rename(file.filePath(), LogFile::rotateName(file, 1));
}

} // namespace

LogFile::LogFile(const QString &fileName, QObject *parent)
    : QObject(parent)
    , m_writer(std::make_shared<LogWriter>(fileName))
    , m_device(std::make_unique<StreamDevice>(*m_writer))
{
    const QFileInfo file(fileName);
    if (file.isFile())
        rotate(file);
    m_writer->open();
    setDevice(m_device.get());
    setCodec("UTF-8");
}

LogFile::~LogFile()
{
    LogMessages::stop(m_writer.get());
    setDevice(nullptr); // flushes; the stream goes after the device, and would do so again
    m_writer->close();
}

// The three parts are put in at once: a path may hold "%1" itself.
QString LogFile::rotateName(const QFileInfo &file, int n)
{
    return QStringLiteral("%1.%2.%3")
        .arg(file.path() + QDir::separator() + file.completeBaseName(), QString::number(n),
             file.suffix());
}

QString LogFile::fileName() const
{
    return m_writer->fileName();
}

bool LogFile::isOpen() const
{
    return m_writer->isOpen();
}

QString LogFile::errorString() const
{
    return m_writer->errorString();
}

qint64 LogFile::lostBytes() const
{
    return m_writer->lostBytes();
}

void LogFile::install(LogFile *log)
{
    if (log)
        LogMessages::sendTo(log->m_writer);
    else
        uninstall();
}

void LogFile::uninstall()
{
    LogMessages::stop();
}
