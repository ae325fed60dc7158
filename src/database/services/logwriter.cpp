#include "database/services/logwriter.h"

namespace
{
thread_local bool t_busy = false;
} // namespace

class LogWriter::Lock
{
public:
    explicit Lock(const LogWriter &writer)
        : m_lock(writer.m_mutex)
    {
        t_busy = true;
    }
    ~Lock() { t_busy = false; }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

private:
    const std::lock_guard<std::mutex> m_lock;
};

LogWriter::LogWriter(const QString &fileName)
    : m_file(fileName)
{
}

bool LogWriter::isOpen() const
{
    const Lock lock(*this);
    return m_file.isOpen();
}

QString LogWriter::errorString() const
{
    const Lock lock(*this);
    return m_error;
}

qint64 LogWriter::lostBytes() const
{
    const Lock lock(*this);
    return m_lostBytes;
}

bool LogWriter::isBusy()
{
    return t_busy;
}

void LogWriter::open()
{
    const Lock lock(*this);
    // Unbuffered: the stream has a buffer of its own, messages want none, and a buffer here would
    // keep what failed and bring it in later, after it was reported lost.
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text |
                     QIODevice::Unbuffered))
        m_error = m_file.errorString();
}

void LogWriter::close()
{
    const Lock lock(*this);
    m_file.close();
}

bool LogWriter::append(const char *text, qint64 size)
{
    const Lock lock(*this);
    return write(text, size);
}

bool LogWriter::appendLine(const QByteArray &text)
{
    const Lock lock(*this);
    if (m_atLineStart)
        return write(text.constData(), text.size());
    const QByteArray line = '\n' + text;
    return write(line.constData(), line.size());
}

bool LogWriter::write(const char *text, qint64 size)
{
    if (size == 0)
        return true;
    if (!m_file.isOpen()) {
        m_lostBytes += size;
        return false;
    }
    qint64 done = 0;
    while (done < size) {
        const qint64 written = m_file.write(text + done, size - done);
        if (written <= 0)
            break;
        done += written;
    }
    if (done == size) {
        m_error.clear();
        m_atLineStart = text[size - 1] == '\n';
        return true;
    }
    m_error = m_file.errorString(); // before resize() replaces it
    m_lostBytes += size;
    if (done > 0 && !m_file.resize(m_file.size() - done))
        m_atLineStart = text[done - 1] == '\n';
    return false;
}
