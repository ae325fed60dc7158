#include "database/services/concurrently.h"
#include "database/services/threadannotations.h"

#include <QtCore/qrunnable.h>
#include <QtCore/qtextcodec.h>
#include <QtCore/qthreadpool.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

namespace
{

/// Tells for how long a thread has waited; waking one up takes about a third of the patience.
class Patience
{
public:
    bool isOver() const { return Clock::now() - m_start > std::chrono::microseconds(150); }
    void renew() { m_start = Clock::now(); }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point m_start = Clock::now();
};

/// Lets a program without an application object end at any time: a thread of the pool that has just
/// been started sets up Qt's text codecs, and hangs when exit tears them down meanwhile. Whatever
/// was there before an object of static lifetime is torn down after it.
class OrderlyExit
{
public:
    OrderlyExit()
    {
        QTextCodec::codecForLocale();
        QThreadPool::globalInstance();
    }
    ~OrderlyExit()
    {
        if (QThreadPool *const pool = QThreadPool::globalInstance()) // null once it is gone
            pool->waitForDone();
    }
};

// Of the work of one batch there is not enough for more.
constexpr int kMostThreads = 4;

} // namespace

/// What the threads of a crew share. Kept alive by the crew and by each of its helpers.
///
/// Calls are open until the last of them has been taken. A thread other than the one that shares
/// them enters them under the mutex while they are open and leaves them when it is done, and the
/// sharing thread waits until nobody is in: then they may go.
class Concurrently::Crew::State : public std::enable_shared_from_this<State>
{
public:
    void callHelpers(int calls);
    void share(int n, void (*work)(void *context, int i), void *context);
    void serve();
    void close() { m_closed = true; }

    static State *&ofThisThread()
    {
        thread_local State *state = nullptr;
        return state;
    }

private:
    struct Calls {
        const int count;
        void (*const work)(void *context, int i);
        void *const context;
        std::atomic<int> next{0}; // the first call that nobody has taken
        int takers = 0;           // other threads that have entered; under the mutex
        Calls *newer = nullptr;   // opened after these; under the mutex
    };
    class Helper;

    static int &depthOfThisThread()
    {
        thread_local int depth = 0; // of calls being made
        return depth;
    }

    Calls *enter();
    void leave(Calls &calls);
    void take(Calls &calls);
    void wait(const Calls &calls, bool helps);

    std::mutex m_mutex;
    std::condition_variable m_changed;  // calls were opened, or a thread left some
    Calls *m_open = nullptr;            // oldest first
    std::atomic<bool> m_hasOpen{false}; // whether there are any, to be looked at without the mutex
    int m_helpers = 0;                  // that serve or are about to
    std::atomic<bool> m_closed{false};
};

/// Serves a crew on a thread of the pool, which deletes it.
class Concurrently::Crew::State::Helper : public QRunnable
{
public:
    explicit Helper(std::shared_ptr<State> state)
        : m_state(std::move(state))
    {
    }
    void run() override
    {
        annotateAcquire(this);
        State *&current = ofThisThread();
        current = m_state.get();
        m_state->serve();
        current = nullptr;
    }

private:
    const std::shared_ptr<State> m_state;
};

void Concurrently::Crew::State::share(int n, void (*work)(void *context, int i), void *context)
{
    Calls calls{n, work, context};
    const bool isOutermost = depthOfThisThread() == 0;
    if (isOutermost)
        callHelpers(n);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Calls **end = &m_open;
        while (*end)
            end = &(*end)->newer;
        *end = &calls;
        m_hasOpen = true;
    }
    m_changed.notify_all();
    take(calls);
    wait(calls, isOutermost);
}

void Concurrently::Crew::State::callHelpers(int calls)
{
    static const OrderlyExit orderlyExit;
    QThreadPool *const pool = QThreadPool::globalInstance();
    const int wanted = std::min({calls, pool->maxThreadCount(), kMostThreads}) - 1;
    const std::lock_guard<std::mutex> lock(m_mutex);
    try {
        for (; m_helpers < wanted; ++m_helpers) {
            auto helper = std::make_unique<Helper>(shared_from_this());
            annotateRelease(helper.get());
            if (!pool->tryStart(helper.get()))
                break;
            helper.release(); // the pool's now
        }
    } catch (const std::bad_alloc &) {
        // The calls will do without.
    }
}

// Calls to take some of: the oldest, as those opened inside of them are about to be taken anyway.
Concurrently::Crew::State::Calls *Concurrently::Crew::State::enter()
{
    if (!m_hasOpen)
        return nullptr;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_open)
        ++m_open->takers;
    return m_open;
}

void Concurrently::Crew::State::leave(Calls &calls)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --calls.takers;
    }
    m_changed.notify_all();
}

void Concurrently::Crew::State::take(Calls &calls)
{
    ++depthOfThisThread();
    for (int i = calls.next++; i < calls.count; i = calls.next++) {
        if (i == calls.count - 1) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            Calls **place = &m_open;
            while (*place != &calls)
                place = &(*place)->newer;
            *place = calls.newer;
            m_hasOpen = m_open != nullptr;
        }
        calls.work(calls.context, i);
    }
    --depthOfThisThread();
}

// Returns when no other thread is at work on the calls. Whoever began the outermost ones takes
// others meanwhile; from inside a call that might delay those that wait for it.
void Concurrently::Crew::State::wait(const Calls &calls, bool helps)
{
    Patience patience;
    const auto isAwaited = [&] { return calls.takers == 0 || (helps && m_open); };
    std::unique_lock<std::mutex> lock(m_mutex);
    while (calls.takers != 0) {
        if (!isAwaited() && !patience.isOver()) {
            lock.unlock();
            std::this_thread::yield();
            lock.lock();
            continue;
        }
        m_changed.wait(lock, isAwaited);
        if (calls.takers == 0)
            break;
        lock.unlock();
        if (Calls *const other = enter()) {
            take(*other);
            leave(*other);
        }
        patience.renew();
        lock.lock();
    }
}

void Concurrently::Crew::State::serve()
{
    for (Patience patience;;) {
        if (Calls *const calls = enter()) {
            take(*calls);
            leave(*calls);
            patience.renew();
        } else if (m_closed || patience.isOver()) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_open) { // else they were opened in the belief that this thread serves
                --m_helpers;
                return;
            }
        } else {
            std::this_thread::yield();
        }
    }
}

Concurrently::Crew::Crew()
{
    State *&current = State::ofThisThread();
    if (current)
        return;
    m_state = std::make_shared<State>();
    current = m_state.get();
}

Concurrently::Crew::~Crew()
{
    if (!m_state)
        return;
    m_state->close();
    State::ofThisThread() = nullptr;
}

void Concurrently::Crew::call()
{
    if (m_state)
        m_state->callHelpers(kMostThreads);
}

void Concurrently::share(int n, void (*work)(void *context, int i), void *context)
{
    if (n <= 1) {
        if (n == 1)
            work(context, 0);
        return;
    }
    const Crew crew;
    Crew::State::ofThisThread()->share(n, work, context);
}
