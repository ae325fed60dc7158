#pragma once

#include "database/services/runnablemanager.h"
#include "database/services/threadannotations.h"

#include <QtCore/qreadwritelock.h>
#include <QtCore/qwaitcondition.h>

#include <map>
#include <memory>

class RunnableWrapper;

/// A manager's jobs between their start and their end. See RunnableManager for the invariants.
struct RunningJobs {
    QReadWriteLock lock; // guards what follows
    // Handles count upwards, so this is the order of the starts as well.
    std::map<HRunnable, RunnableWrapper *> running;
    bool closing = false; // the manager is being destroyed

    // For the thread sanitizer, which sees nothing of Qt's lock: readers come after the writers
    // before them, writers after both. Two addresses, so that readers are not ordered among
    // themselves.
    char writers = 0;
    char readers = 0;
};

class JobsReadLocker
{
public:
    explicit JobsReadLocker(RunningJobs &jobs)
        : m_jobs(jobs)
    {
        m_jobs.lock.lockForRead();
        annotateAcquire(&m_jobs.writers);
    }
    ~JobsReadLocker()
    {
        annotateRelease(&m_jobs.readers);
        m_jobs.lock.unlock();
    }
    JobsReadLocker(const JobsReadLocker &) = delete;
    JobsReadLocker &operator=(const JobsReadLocker &) = delete;

private:
    RunningJobs &m_jobs;
};

class JobsWriteLocker
{
public:
    explicit JobsWriteLocker(RunningJobs &jobs)
        : m_jobs(jobs)
    {
        m_jobs.lock.lockForWrite();
        annotateAcquire(&m_jobs.writers);
        annotateAcquire(&m_jobs.readers);
    }
    ~JobsWriteLocker()
    {
        annotateRelease(&m_jobs.writers);
        m_jobs.lock.unlock();
    }
    JobsWriteLocker(const JobsWriteLocker &) = delete;
    JobsWriteLocker &operator=(const JobsWriteLocker &) = delete;

private:
    RunningJobs &m_jobs;
};

/// The end of one start of a job.
struct JobEnd {
    /// Blocks until the job has ended. The caller holds the lock for reading, once; it is released
    /// while this blocks, so that what was found under it before may be gone afterwards.
    void wait(RunningJobs &jobs)
    {
        while (!reached) {
            annotateRelease(&jobs.readers);
            condition.wait(&jobs.lock);
            annotateAcquire(&jobs.writers);
        }
    }

    QWaitCondition condition;
    bool reached = false; // set under the write lock
};

/// The pool task that carries one job. The pool deletes it, after its run or instead of it.
class RunnableWrapper final : public QRunnable
{
public:
    /// Enters the job into the list under a new handle.
    RunnableWrapper(Runnable *payload, RunnableManager *manager, std::shared_ptr<RunningJobs> jobs);
    /// Deletes the job if it is auto-deleting.
    ~RunnableWrapper() override;
    RunnableWrapper(const RunnableWrapper &) = delete;
    RunnableWrapper &operator=(const RunnableWrapper &) = delete;

    void run() override;
    /// Takes the handle out of the list and leaves the job alone; nothing is announced. For a task
    /// that no pool has taken.
    void withdraw();

    HRunnable handle() const { return m_handle; }
    Runnable *payload() const { return m_payload; }
    /// What a waiter keeps across the release of the lock, instead of this object.
    const std::shared_ptr<JobEnd> &done() const { return m_done; }
    /// Tells the job to stop. What its stop() throws goes to the warning log, so that the other
    /// jobs are told as well.
    void stop();
    /// Blocks until the job has ended; the caller holds the list's lock for reading.
    void wait();

private:
    void announce();
    void leave();

    Runnable *const m_payload;
    const std::shared_ptr<JobEnd> m_done;
    RunnableManager *const m_manager; // waits in its destructor until this has left the list
    const std::shared_ptr<RunningJobs> m_jobs;
    HRunnable m_handle = nullptr;
    bool m_left = false;           // no longer in the list
    bool m_deletesPayload = false; // settled before leaving: the job may be gone right after
};
