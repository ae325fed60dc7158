#pragma once

#include "database/database_global.h"
#include "database/services/threadannotations.h"

#include <exception>
#include <vector>

/// Work on Qt's global thread pool that the caller waits for.
namespace Concurrently
{

/// Calls \p work(context, i) for i = 0..n - 1 on the pool and returns when all calls have.
/// work must not throw. Exported for the tests; use forEach().
DATABASE_EXPORT void run(int n, void (*work)(void *context, int i), void *context);
/// The same on this thread, and on those of the pool that are awake before all calls are taken:
/// for a few calls that are not much longer than it takes to wake a thread, which run() waits for
/// whether there is something left for it or not.
DATABASE_EXPORT void share(int n, void (*work)(void *context, int i), void *context);

/// Calls \p work(i) for i = 0..n - 1 by \p runner, several at a time, and returns when all have
/// ended. Of the exceptions thrown meanwhile the one of the lowest i is rethrown then, as itself:
/// it is carried past the pool, which would replace it and drop the calls not yet begun.
template<class F>
void forEach(int n, const F &work, decltype(&run) runner = run)
{
    struct Job {
        const F &work;
        std::vector<std::exception_ptr> errors;
        char handOver = 0; // The pool starts a call after the caller handed it over, and lets the
        char handBack = 0; // caller go on after the last one ended. Two addresses, so that the end
                           // of one call does not count as ordered before the start of another.

        static void call(void *context, int i)
        {
            Job &job = *static_cast<Job *>(context);
            annotateAcquire(&job.handOver);
            try {
                job.work(i);
            } catch (...) {
                job.errors[size_t(i)] = std::current_exception();
            }
            annotateRelease(&job.handBack);
        }
    };
    Job job{work, std::vector<std::exception_ptr>(size_t(n))};
    annotateRelease(&job.handOver);
    runner(n, &Job::call, &job);
    annotateAcquire(&job.handBack);
    for (const std::exception_ptr &error : job.errors) {
        if (error)
            std::rethrow_exception(error);
    }
}

} // namespace Concurrently
