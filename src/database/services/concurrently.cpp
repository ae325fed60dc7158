#include "database/services/concurrently.h"

#include <QtConcurrent/qtconcurrentmap.h>
#include <QtCore/qmutex.h>
#include <QtCore/qrunnable.h>
#include <QtCore/qthreadpool.h>
#include <QtCore/qwaitcondition.h>

#include <memory>
#include <numeric>

// All that is made from the pool's templates stands in this file, which is built without the thread
// sanitizer like the rest of Qt: half-instrumented, the pool's own hand-overs look like races.

namespace
{

struct Call {
    void (*work)(void *context, int i);
    void *context;

    void operator()(int i) const { work(context, i); }
};

/// Calls that several threads take one after the other; kept alive by whoever may still ask for
/// one.
class SharedCalls
{
public:
    SharedCalls(int n, const Call &call)
        : m_count(n)
        , m_call(call)
        , m_left(n)
    {
    }
    void take()
    {
        for (int i = m_next.fetchAndAddRelaxed(1); i < m_count; i = m_next.fetchAndAddRelaxed(1)) {
            m_call(i);
            const QMutexLocker locker(&m_mutex);
            if (--m_left == 0)
                m_allEnded.wakeAll();
        }
    }
    void wait()
    {
        const QMutexLocker locker(&m_mutex);
        while (m_left > 0)
            m_allEnded.wait(&m_mutex);
    }

private:
    const int m_count;
    const Call m_call;
    QAtomicInt m_next; // the first call that nobody has taken
    QMutex m_mutex;
    QWaitCondition m_allEnded;
    int m_left; // calls that have not ended
};

class Helper : public QRunnable
{
public:
    explicit Helper(std::shared_ptr<SharedCalls> calls)
        : m_calls(std::move(calls))
    {
    }
    void run() override { m_calls->take(); }

private:
    const std::shared_ptr<SharedCalls> m_calls;
};

} // namespace

void Concurrently::share(int n, void (*work)(void *context, int i), void *context)
{
    const auto calls = std::make_shared<SharedCalls>(n, Call{work, context});
    QThreadPool *const pool = QThreadPool::globalInstance();
    for (int helpers = qMin(n, pool->maxThreadCount()) - 1; helpers > 0; --helpers) {
        auto helper = std::make_unique<Helper>(calls);
        if (!pool->tryStart(helper.get()))
            break;
        helper.release(); // the pool's now
    }
    calls->take();
    calls->wait();
}

void Concurrently::run(int n, void (*work)(void *context, int i), void *context)
{
    std::vector<int> numbers(static_cast<size_t>(n));
    std::iota(numbers.begin(), numbers.end(), 0);
    QtConcurrent::blockingMap(numbers, Call{work, context});
}
