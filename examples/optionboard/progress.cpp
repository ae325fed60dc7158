#include "progress.h"

#include <cstdio>
#include <unistd.h>

Progress::Progress(int count)
    : m_count(count)
    , m_terminal(isatty(STDERR_FILENO))
{
}

void Progress::show(int i, const QString &name)
{
    clear();
    std::fprintf(stderr, m_terminal ? "[%d/%d] %s" : "[%d/%d] %s\n", i + 1, m_count,
                 name.toUtf8().constData());
    std::fflush(stderr);
    m_shown = m_terminal;
}

void Progress::clear()
{
    if (m_shown)
        std::fputs("\r\x1b[K", stderr);
    m_shown = false;
}
