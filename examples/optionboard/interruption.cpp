#include "interruption.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace
{

// A signal handler may do little more than this.
volatile std::sig_atomic_t s_raised = 0;
int s_pipe[2] = {-1, -1};

void onSignal(int /*signal*/)
{
    s_raised = 1;
    const char byte = 0;
    (void)!write(s_pipe[1], &byte, 1); // a full pipe wakes the reader as well
}

int openPipe()
{
    s_raised = 0;
    return pipe2(s_pipe, O_CLOEXEC | O_NONBLOCK) == 0 ? s_pipe[0] : -1;
}

} // namespace

Interruption::Interruption(const std::function<void()> &raised)
    : m_notifier(openPipe(), QSocketNotifier::Read)
{
    QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier, [this, raised] {
        m_notifier.setEnabled(false); // the byte stays in the pipe
        raised();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = int(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

Interruption::~Interruption()
{
    std::signal(SIGINT, SIG_DFL);
    m_notifier.setEnabled(false);
    close(s_pipe[0]);
    close(s_pipe[1]);
}

bool Interruption::isRaised()
{
    return s_raised != 0;
}
