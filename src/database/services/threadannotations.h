#pragma once

// Tells the thread sanitizer about hand-overs between threads that it cannot see. The sanitizer
// knows only what instrumented code does; Qt is not instrumented, so work that passes through its
// thread pool looks unsynchronised although the pool orders it. The two calls state that order and
// nothing more: two threads are ordered only where one released what the other then acquired, so
// every race that the pool's ordering does not rule out is still reported.
// In any other build they are empty.

#if defined(__SANITIZE_THREAD__)
#define DATABASE_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define DATABASE_THREAD_SANITIZER 1
#endif
#endif

#ifdef DATABASE_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

/// What this thread did so far is visible to a thread that acquires the same address later.
inline void annotateRelease([[maybe_unused]] const void *address) noexcept
{
#ifdef DATABASE_THREAD_SANITIZER
    __tsan_release(const_cast<void *>(address));
#endif
}

/// This thread sees what was done before the address was released.
inline void annotateAcquire([[maybe_unused]] const void *address) noexcept
{
#ifdef DATABASE_THREAD_SANITIZER
    __tsan_acquire(const_cast<void *>(address));
#endif
}
