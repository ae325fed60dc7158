#include "database/services/runnablewrapper.h"

#include "database/services/exception.h"

#include <QtCore/qdebug.h>
#include <QtCore/qmetaobject.h>

#include <atomic>
#include <exception>

namespace
{

// Numbers, not addresses: an address comes back as soon as its task is deleted, and would then turn
// a handle that somebody still holds, or one under way in finished(), into that of another job.
HRunnable nextHandle()
{
    static std::atomic<quintptr> s_last{0};
    quintptr number;
    do {
        number = s_last.fetch_add(1, std::memory_order_relaxed) + 1;
    } while (number == 0);
    return reinterpret_cast<HRunnable>(number);
}

void warn(const char *what, const QString &message)
{
    qWarning("A background job failed in %s: %s", what, qUtf8Printable(message));
}

/// Calls application code; what it throws goes to the warning log.
template<class Call>
void guarded(const char *what, Call call)
{
    try {
        call();
    } catch (const Exception &error) {
        warn(what, error.message);
    } catch (const QString &message) {
        warn(what, message);
    } catch (const std::exception &error) {
        warn(what, QString::fromLocal8Bit(error.what()));
    } catch (...) {
        warn(what, QStringLiteral("it threw something that carries no message"));
    }
}

} // namespace

RunnableWrapper::RunnableWrapper(Runnable *payload, RunnableManager *manager,
                                 std::shared_ptr<RunningJobs> jobs)
    : m_payload(payload)
    , m_done(std::make_shared<JobEnd>())
    , m_manager(manager)
    , m_jobs(std::move(jobs))
{
    const JobsWriteLocker locker(*m_jobs);
    m_handle = nextHandle();
    m_jobs->running.emplace_hint(m_jobs->running.end(), m_handle, this);
}

RunnableWrapper::~RunnableWrapper()
{
    annotateAcquire(this);
    if (!m_left) { // dropped from the pool's queue: nobody must wait for it for ever
        announce();
        leave();
    }
    if (m_deletesPayload)
        delete m_payload;
}

void RunnableWrapper::run()
{
    annotateAcquire(this);
    guarded("run()", [this] { m_payload->run(); });
    announce();
    leave();
}

void RunnableWrapper::withdraw()
{
    leave();
    m_deletesPayload = false;
}

void RunnableWrapper::stop()
{
    guarded("stop()", [this] { m_payload->stop(); });
}

void RunnableWrapper::wait()
{
    const std::shared_ptr<RunningJobs> jobs = m_jobs; // this object may go while it waits
    const std::shared_ptr<JobEnd> done = m_done;
    done->wait(*jobs);
}

/// Queues the signal. The manager is alive: it waits until the handle has left the list.
void RunnableWrapper::announce()
{
    static const QMetaMethod s_finished = QMetaMethod::fromSignal(&RunnableManager::finished);
    s_finished.invoke(m_manager, Qt::QueuedConnection, Q_ARG(HRunnable, m_handle));
}

void RunnableWrapper::leave()
{
    // Whoever waits for the end of a job that does not delete itself may delete it right after.
    m_deletesPayload = m_payload->autoDelete();
    const JobsWriteLocker locker(*m_jobs);
    m_jobs->running.erase(m_handle);
    m_left = true;
    m_done->reached = true;
    m_done->condition.wakeAll();
}
