#include "database/indexes/apartlist.h"

#include "database/services/concurrently.h"

#if defined(Q_OS_LINUX)
#include <sys/mman.h>
#include <unistd.h>
#endif

void Relocate::releasePages(void *from, void *to) noexcept
{
#if defined(Q_OS_LINUX)
    static const auto s_page = quintptr(sysconf(_SC_PAGESIZE));
    const quintptr first = (quintptr(from) + s_page - 1) / s_page * s_page;
    const quintptr last = quintptr(to) / s_page * s_page;
    if (first < last)
        madvise(reinterpret_cast<void *>(first), last - first, MADV_DONTNEED);
#else
    Q_UNUSED(from)
    Q_UNUSED(to)
#endif
}

void Relocate::share(int n, void (*work)(void *context, int i), void *context) noexcept
{
    try {
        Concurrently::share(n, work, context);
    } catch (const std::bad_alloc &) { // before the first call
        for (int i = 0; i < n; ++i)
            work(context, i);
    }
}
