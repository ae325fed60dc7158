#include "database/services/exception.h"

#include <QtCore/qdebug.h>

#include <cstdlib>
#include <execinfo.h>
#include <memory>

namespace
{
constexpr int kMaxFrames = 128;
} // namespace

Exception::Exception(const QString &text)
    : message(text)
    , stack(getStack())
    , m_what(text.toUtf8())
{
}

Exception::~Exception() = default;

const char *Exception::what() const noexcept
{
    return m_what.constData();
}

// Not inlined: frame 0, which is left out, has to be this function and not its caller.
__attribute__((noinline)) QStringList Exception::getStack()
{
    void *frames[kMaxFrames];
    const int count = backtrace(frames, kMaxFrames);
    QStringList result;
    if (count <= 1)
        return result;
    const std::unique_ptr<char *, decltype(&std::free)> symbols(backtrace_symbols(frames, count),
                                                                &std::free);
    if (!symbols)
        return result;
    result.reserve(count - 1);
    for (int i = 1; i < count; ++i)
        result.append(QString::fromLocal8Bit(symbols.get()[i]));
    return result;
}

void Exception::dump() const
{
    for (const QString &frame : stack)
        qDebug("%s", qPrintable(frame));
}
