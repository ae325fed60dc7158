#pragma once

#include "database/database_global.h"

#include <QtCore/qmutex.h>
#include <QtCore/qrunnable.h>

/// A background job that can be asked to stop.
///
/// Stopping is cooperative: run() polls canRun() and returns early when it is false. A job that
/// never looks runs to its end.
///
/// Threads: stop() and canRun() may be called from any thread, several at a time.
/// Lifetime: as with every QRunnable, a job whose autoDelete() is true (the default) is deleted
/// after its run; any other belongs to the caller and lives at least until it has finished.
class DATABASE_EXPORT Runnable : public QRunnable
{
public:
    Runnable();
    Runnable(const Runnable &) = delete;
    Runnable &operator=(const Runnable &) = delete;
    ~Runnable() override;

    /// Makes canRun() false, for good. An override calls this one and may wake the job up besides.
    /// The manager holds its lock meanwhile: an override must neither call the manager nor wait for
    /// anything that does.
    virtual void stop();
    /// True from construction until stop().
    virtual bool canRun() const;

private:
    mutable QMutex m_mutex; // guards m_canRun
    bool m_canRun = true;
};
