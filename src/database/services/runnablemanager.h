#pragma once

#include "database/services/runnable.h"

#include <QtCore/qobject.h>

#include <memory>

class QThreadPool;
struct RunningJobs;

/// Names one start of a job. Opaque: compare it, keep it, hand it back to the manager.
using HRunnable = void *;

/// Starts jobs on thread pools, stops them, waits for them, and tells when each has ended.
///
/// Invariants:
///  (1) A handle is in the list of running jobs from startRunnable() until its job has ended, and
///      its job and its pool task are alive as long as it is there. Whoever holds the list's lock
///      may therefore use both; nobody does without it.
///  (2) A handle is never given out twice in a process, neither by this manager nor by another:
///      one that is kept too long names no job, and never the wrong one.
///  (3) Every handle is announced by finished() exactly once, or never if the manager is destroyed
///      before its thread got to deliver the signal.
///  (4) A waiter waits for the end of one start, which it shares with the pool task: a flag that is
///      set under the list's lock, and a condition to be woken by. The flag decides. It stays
///      valid when the task and the manager are gone.
///  (5) The list and its lock belong to the manager and to all of its pool tasks together: the last
///      of them may still be letting go of the lock when the manager's destructor returns.
///
/// Threads: every function may be called from any thread, from inside jobs too. Not from an
/// override of Runnable::stop(), which runs with the lock held. What must wait in vain: a job for
/// its own end, and a job for another one that is queued behind it on the same full pool.
/// Costs: a call takes O(log n) among n running jobs; stopRunnables() O(n).
class DATABASE_EXPORT RunnableManager : public QObject
{
    Q_OBJECT

public:
    explicit RunnableManager(QObject *parent = nullptr);
    /// Stops every job and blocks until all have ended, those too that still wait in a pool's queue
    /// and those that the stopping ones start meanwhile. Signals not yet delivered are dropped.
    /// Auto-deleting jobs may be deleted a little later.
    ~RunnableManager() override;

    bool isRunning() const;
    /// False for a handle that has ended, null, or another manager's.
    bool isRunning(HRunnable handle) const;

    /// Starts \p job on \p pool (the global one if null); a higher \p priority leaves the pool's
    /// queue earlier. An auto-deleting job belongs to the pool from now on; no job may be started
    /// again before it has ended. The job may have ended before this returns.
    ///
    /// What a job throws ends it and goes to Qt's warning log. A job that the pool drops from its
    /// queue (QThreadPool::clear()) ends without having run. A job started while the manager is
    /// being destroyed, which only another job can do, is told to stop before it runs.
    /// Throws a QString if \p job is null; what the pool throws leaves the job with the caller.
    HRunnable startRunnable(Runnable *job, QThreadPool *pool = nullptr, int priority = 0);

    /// Tells the job to stop and, with \p wait, blocks until it has ended. Does nothing for a
    /// handle of which isRunning() is false. Returns before the job is deleted, if that is to
    /// happen, and before finished() is delivered.
    void stopRunnable(HRunnable handle, bool wait);
    /// Tells all jobs to stop, in the order of their start, and only then, with \p wait, blocks
    /// until these have ended. Jobs started meanwhile go on.
    void stopRunnables(bool wait);

Q_SIGNALS:
    /// The job has ended. Delivered through the event loop of the manager's thread, so that the
    /// handle may have left the list long before.
    void finished(HRunnable handle);

private:
    const std::shared_ptr<RunningJobs> m_jobs; // invariant (5)
};
