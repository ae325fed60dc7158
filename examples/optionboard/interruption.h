#pragma once

#include <QtCore/qsocketnotifier.h>

#include <functional>

/// Ctrl-C (SIGINT) as a call in the event loop. The first one asks; a second one, when the answer
/// takes too long, ends the program as usual.
class Interruption
{
public:
    /// \param raised  called from the event loop. One of these may live at a time.
    explicit Interruption(const std::function<void()> &raised);
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    /// Whether it came, also before the event loop got to it.
    static bool isRaised();

private:
    QSocketNotifier m_notifier;
};
