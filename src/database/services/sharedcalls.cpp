#include "database/services/concurrently.h"
#include "database/services/threadannotations.h"

#include <QtCore/qrunnable.h>
#include <QtCore/qthreadpool.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace
{

/// Calls that several threads take one after the other; kept alive by whoever may still ask for
/// one.
class SharedCalls
{
public:
    SharedCalls(int n, void (*work)(void *context, int i), void *context)
        : m_count(n)
        , m_work(work)
        , m_context(context)
        , m_left(n)
    {
    }
    void take()
    {
        for (int i = m_next++; i < m_count; i = m_next++) {
            m_work(m_context, i);
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (--m_left == 0)
                m_allEnded.notify_all();
        }
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_allEnded.wait(lock, [this] { return m_left == 0; });
    }

private:
    const int m_count;
    void (*const m_work)(void *context, int i);
    void *const m_context;      // gone once all calls have ended
    std::atomic<int> m_next{0}; // the first call that nobody has taken
    std::mutex m_mutex;
    std::condition_variable m_allEnded;
    int m_left; // calls that have not ended
};

/// Takes calls on a thread of the pool, which deletes it.
class Helper : public QRunnable
{
public:
    explicit Helper(std::shared_ptr<SharedCalls> calls)
        : m_calls(std::move(calls))
    {
    }
    void run() override
    {
        annotateAcquire(this);
        m_calls->take();
    }

private:
    const std::shared_ptr<SharedCalls> m_calls;
};

} // namespace

void Concurrently::share(int n, void (*work)(void *context, int i), void *context)
{
    const auto calls = std::make_shared<SharedCalls>(n, work, context);
    QThreadPool *const pool = QThreadPool::globalInstance();
    for (int helpers = qMin(n, pool->maxThreadCount()) - 1; helpers > 0; --helpers) {
        auto helper = std::make_unique<Helper>(calls);
        annotateRelease(helper.get());
        if (!pool->tryStart(helper.get()))
            break;
        helper.release(); // the pool's now
    }
    calls->take();
    calls->wait();
}
