#pragma once

#include "database/database_global.h"
#include "database/services/threadannotations.h"

#include <QtCore/qglobal.h>

#include <exception>
#include <memory>
#include <vector>

/// Work on Qt's global thread pool that the caller waits for.
namespace Concurrently
{

/// Calls \p work(context, i) for i = 0..n - 1 on the pool and returns when all calls have.
/// work must not throw. Exported for the tests; use forEach().
DATABASE_EXPORT void run(int n, void (*work)(void *context, int i), void *context);
/// The same on this thread, and on those of the pool that are awake before all calls are taken:
/// for calls that are not much longer than it takes to wake a thread, which run() waits for whether
/// there is something left for it or not. Calls may share out work in their turn: that is for
/// threads that have nothing else to do. Allocates nothing, and so cannot fail, while there is a
/// crew.
DATABASE_EXPORT void share(int n, void (*work)(void *context, int i), void *context);

/// Keeps threads of the pool at hand for what this thread shares as long as the crew lives, so that
/// only the first share() has to wake them up. One that finds nothing to do for some 0.1 ms goes
/// back to the pool. A crew made while there is another one on the thread serves no purpose, and
/// does no harm. Belongs to the thread that made it.
class DATABASE_EXPORT Crew
{
public:
    Crew();
    ~Crew();
    /// Wakes the threads up ahead of the first share().
    void call();

    Crew(const Crew &) = delete;
    Crew &operator=(const Crew &) = delete;

private:
    friend void share(int n, void (*work)(void *context, int i), void *context);

    class State;
    std::shared_ptr<State> m_state; // null where another crew serves
};

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

/// Calls \p work(first, last) for stretches that make up 0..n - 1: one after the other for few,
/// otherwise shared out as forEach() does by share(). For loops that look at rows and allocate
/// nothing, since threads allocate from memory of their own.
template<class F>
void forStretches(int n, const F &work)
{
    constexpr int kFew = 256; // so many rows are worth telling other threads
    constexpr int kShortest = 128;
    constexpr int kMostStretches = 64;
    if (n < kFew) {
        work(0, n);
        return;
    }
    const int stretch = qMax(kShortest, (n - 1) / kMostStretches + 1);
    const auto each = [&](int i) { work(i * stretch, qMin((i + 1) * stretch, n)); };
    forEach((n - 1) / stretch + 1, each, share);
}

} // namespace Concurrently
