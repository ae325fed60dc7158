#include "database/indexes/scratchmemory.h"

#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace
{

#if defined(__linux__)

constexpr size_t kLargePage = size_t(2) << 20;

bool isLarge(size_t bytes)
{
    return bytes >= kLargePage;
}

size_t wholePages(size_t bytes)
{
    return (bytes + kLargePage - 1) / kLargePage * kLargePage;
}

#endif

} // namespace

void *ScratchMemory::allocate(size_t bytes)
{
#if defined(__linux__)
    if (isLarge(bytes)) {
        const size_t size = wholePages(bytes);
        void *const mapped = mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED)
            throw std::bad_alloc();
        // What lies before the first large page, and behind the last one, goes back.
        auto *const first = static_cast<unsigned char *>(mapped);
        const size_t surplus = (kLargePage - reinterpret_cast<uintptr_t>(first)) % kLargePage;
        unsigned char *const memory = first + surplus;
        if (surplus > 0)
            munmap(first, surplus);
        munmap(memory + size, kLargePage - surplus);
        madvise(memory, size, MADV_HUGEPAGE); // where there are none, small ones will do
        return memory;
    }
#endif
    return ::operator new(bytes);
}

void ScratchMemory::release(void *memory, size_t bytes) noexcept
{
#if defined(__linux__)
    if (isLarge(bytes)) {
        munmap(memory, wholePages(bytes));
        return;
    }
#endif
    ::operator delete(memory);
}
