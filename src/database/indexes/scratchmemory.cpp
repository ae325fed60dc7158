#include "database/indexes/scratchmemory.h"

#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace
{

#if defined(__linux__)

constexpr size_t kPage = size_t(4) << 10;
constexpr size_t kLargePage = size_t(2) << 20;
// From here on, what malloc would keep afterwards is worth returning.
constexpr size_t kMapped = size_t(256) << 10;

size_t roundedUp(size_t bytes, size_t unit)
{
    return (bytes + unit - 1) / unit * unit;
}

size_t mappedSize(size_t bytes)
{
    return roundedUp(bytes, bytes < kLargePage ? kPage : kLargePage);
}

unsigned char *map(size_t size)
{
    void *const mapped =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        throw std::bad_alloc();
    return static_cast<unsigned char *>(mapped);
}

// What lies before the first large page, and behind the last one, goes back.
unsigned char *mapLargePages(size_t size)
{
    unsigned char *const first = map(size + kLargePage);
    const size_t surplus = (kLargePage - reinterpret_cast<uintptr_t>(first)) % kLargePage;
    unsigned char *const memory = first + surplus;
    if (surplus > 0)
        munmap(first, surplus);
    munmap(memory + size, kLargePage - surplus);
    madvise(memory, size, MADV_HUGEPAGE); // where there are none, small ones will do
    return memory;
}

#endif

} // namespace

void *ScratchMemory::allocate(size_t bytes)
{
#if defined(__linux__)
    if (bytes >= kMapped)
        return bytes < kLargePage ? map(mappedSize(bytes)) : mapLargePages(mappedSize(bytes));
#endif
    return ::operator new(bytes);
}

void ScratchMemory::release(void *memory, size_t bytes) noexcept
{
#if defined(__linux__)
    if (bytes >= kMapped) {
        munmap(memory, mappedSize(bytes));
        return;
    }
#endif
    ::operator delete(memory);
}
