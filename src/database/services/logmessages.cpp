#include "database/services/logmessages.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qdebug.h>
#include <QtCore/qscopedvaluerollback.h>
#include <QtCore/qthread.h>

#include <cstdio>
#include <cstring>

namespace
{

struct State {
    std::mutex mutex; // guards what follows; never held while a message is written
    std::shared_ptr<LogWriter> writer;
    QtMessageHandler previous = nullptr; // null while our handler is in no chain
};

/// Never destroyed: messages come as late as from the destructors of static objects.
State &state()
{
    static State *const s_state = new State;
    return *s_state;
}

thread_local bool t_handling = false;

const char *word(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "DEBUG";
    case QtInfoMsg:
        return "INFO";
    case QtWarningMsg:
        return "WARNING";
    case QtCriticalMsg:
        return "CRITICAL";
    case QtFatalMsg:
        return "FATAL";
    }
    return "UNKNOWN";
}

/// With the offset from UTC, so that the hour that a clock change repeats stays unambiguous. Asking
/// for the local time takes several times as long as all the rest of a message, so each thread asks
/// once a second and puts the milliseconds in.
QByteArray timeStamp()
{
    struct Second {
        qint64 number;
        char text[32]; // no string: it has to outlive the thread's destructors
    };
    thread_local Second t_last{-1, {}};
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (t_last.number != now / 1000) {
        t_last.number = now / 1000;
        const QDateTime local = QDateTime::fromMSecsSinceEpoch(now);
        const QDateTime stamp = local.toOffsetFromUtc(local.offsetFromUtc());
        qstrncpy(t_last.text, stamp.toString(Qt::ISODateWithMs).toLatin1().constData(),
                 sizeof t_last.text);
    }
    QByteArray result(t_last.text);
    const QByteArray milliseconds = QByteArray::number(1000 + now % 1000);
    return result.replace(int(std::strlen("yyyy-MM-ddThh:mm:ss.")), 3,
                          milliseconds.constData() + 1);
}

QByteArray threadLabel()
{
    const QByteArray id =
        QByteArray::number(quint64(reinterpret_cast<quintptr>(QThread::currentThreadId())), 16);
    const QString name = QThread::currentThread()->objectName();
    return name.isEmpty() ? "0x" + id : name.toUtf8() + " 0x" + id;
}

/// The message as it stands in the log, with its line end.
QByteArray logLine(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    QByteArray line = timeStamp() + ' ' + word(type) + " [" + threadLabel() + "] ";
    if (context.category && std::strcmp(context.category, "default") != 0)
        line += QByteArray(context.category) + ": ";
    QByteArray text = message.toUtf8();
    text.replace("\r\n", "\n").replace('\r', '\n');
    while (text.endsWith('\n'))
        text.chop(1);
    return line + text.replace("\n", "\n    ") + '\n';
}

void toStandardError(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    std::fprintf(stderr, "%s\n",
                 qFormatLogMessage(type, context, message).toLocal8Bit().constData());
}

void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    // A message about the writing of a message: neither the log nor the handler below is in a state
    // to take it.
    if (t_handling || LogWriter::isBusy()) {
        toStandardError(type, context, message);
        return;
    }
    const QScopedValueRollback<bool> handling(t_handling, true);
    std::shared_ptr<LogWriter> writer;
    QtMessageHandler previous;
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        writer = state().writer;
        previous = state().previous;
    }
    const bool written = writer && writer->appendLine(logLine(type, context, message));
    if (!written || type == QtFatalMsg)
        (previous ? previous : toStandardError)(type, context, message);
}

} // namespace

void LogMessages::sendTo(std::shared_ptr<LogWriter> writer)
{
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.writer.swap(writer);
    const QtMessageHandler current = qInstallMessageHandler(handle);
    if (current != handle)
        s.previous = current;
}

void LogMessages::stop(const LogWriter *writer)
{
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.writer || (writer && s.writer.get() != writer))
        return;
    s.writer.reset();
    const QtMessageHandler current = qInstallMessageHandler(s.previous);
    if (current != handle)
        qInstallMessageHandler(current);
}
