#include "database/services/runnablemanager.h"

#include "database/services/runnablewrapper.h"

#include <QtCore/qthreadpool.h>

#include <vector>

RunnableManager::RunnableManager(QObject *parent)
    : QObject(parent)
    , m_jobs(std::make_shared<RunningJobs>())
{
}

RunnableManager::~RunnableManager()
{
    {
        const JobsWriteLocker locker(*m_jobs);
        m_jobs->closing = true;
    }
    while (isRunning()) // again for those that the stopped ones have started
        stopRunnables(true);
}

bool RunnableManager::isRunning() const
{
    const JobsReadLocker locker(*m_jobs);
    return !m_jobs->running.empty();
}

bool RunnableManager::isRunning(HRunnable handle) const
{
    const JobsReadLocker locker(*m_jobs);
    return m_jobs->running.count(handle) != 0;
}

HRunnable RunnableManager::startRunnable(Runnable *job, QThreadPool *pool, int priority)
{
    if (!job)
        throw QStringLiteral("A background job to start is missing: got null, expected a Runnable");
    if (!pool)
        pool = QThreadPool::globalInstance();
    auto wrapper = std::make_unique<RunnableWrapper>(job, this, m_jobs);
    HRunnable handle = wrapper->handle();
    wrapper->setAutoDelete(true);
    {
        const JobsReadLocker locker(*m_jobs);
        if (m_jobs->closing)
            wrapper->stop();
    }
    annotateRelease(wrapper.get());
    try {
        pool->start(wrapper.get(), priority);
    } catch (...) {
        wrapper->withdraw();
        throw;
    }
    (void)wrapper.release(); // the pool's, and perhaps gone
    return handle;
}

void RunnableManager::stopRunnable(HRunnable handle, bool wait)
{
    const std::shared_ptr<RunningJobs> jobs = m_jobs; // outlives this if a wait does
    const JobsReadLocker locker(*jobs);
    const auto found = jobs->running.find(handle);
    if (found == jobs->running.end())
        return;
    found->second->stop();
    if (wait)
        found->second->wait();
}

void RunnableManager::stopRunnables(bool wait)
{
    const std::shared_ptr<RunningJobs> jobs = m_jobs;
    const JobsReadLocker locker(*jobs);
    std::vector<std::shared_ptr<JobEnd>> ends;
    ends.reserve(wait ? jobs->running.size() : 0);
    for (const auto &[handle, wrapper] : jobs->running) {
        wrapper->stop();
        if (wait)
            ends.push_back(wrapper->done());
    }
    // From the first wait on the list may change and tasks may go; only their ends stay.
    for (const std::shared_ptr<JobEnd> &end : ends)
        end->wait(*jobs);
}
