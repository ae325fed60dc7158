#pragma once

#include <QtCore/qbytearray.h>
#include <QtCore/qstring.h>

#include <sys/wait.h>
#include <unistd.h>

/// Runs \p makeText where QLocale::system() is \p locale and returns its text. Qt reads the system
/// locale once in a process, so each call runs in a child, and nothing else in the program may
/// read it, not even by way of a QDateTime.
template<typename MakeText>
QString textInSystemLocale(const char *locale, MakeText makeText)
{
    int ends[2];
    if (pipe(ends) != 0)
        return QStringLiteral("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        qputenv("LC_ALL", locale);
        const QByteArray text = makeText().toUtf8();
        const bool written = write(ends[1], text.constData(), size_t(text.size())) == text.size();
        _exit(written ? 0 : 1);
    }
    close(ends[1]);
    QByteArray text;
    char buffer[256];
    for (ssize_t size; (size = read(ends[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, int(size));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? QString::fromUtf8(text) : QStringLiteral("the child failed");
}
