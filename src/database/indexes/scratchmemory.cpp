#include "database/indexes/scratchmemory.h"

#include <cstdint>
#include <limits>
#include <mutex>
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
constexpr size_t kMapped = size_t(128) << 10;

size_t roundedUp(size_t bytes, size_t unit)
{
    return (bytes + unit - 1) / unit * unit;
}

// So many pages that arrays of about the same length take the same: they can be kept for each
// other, and what is not touched costs nothing.
size_t mappedSize(size_t bytes)
{
    if (bytes > std::numeric_limits<size_t>::max() / 4)
        throw std::bad_alloc();
    size_t step = bytes < kLargePage ? kPage : kLargePage;
    while (step * 8 <= bytes)
        step *= 2;
    return roundedUp(bytes, step);
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

/// Large arrays that wait for the next use. They hold the list of themselves.
class KeptArrays
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_keepers;
    }
    void close() noexcept
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (--m_keepers > 0)
            return;
        while (Array *const array = m_first) {
            m_first = array->next;
            munmap(array, array->size);
        }
    }
    /// One of that very size, or null.
    void *take(size_t size)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (Array **place = &m_first; *place; place = &(*place)->next) {
            Array *const array = *place;
            if (array->size == size) {
                *place = array->next;
                return array;
            }
        }
        return nullptr;
    }
    /// \return false when nobody keeps any
    bool put(void *memory, size_t size) noexcept
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_keepers == 0)
            return false;
        m_first = ::new (memory) Array{m_first, size};
        return true;
    }

private:
    struct Array {
        Array *next;
        size_t size;
    };

    std::mutex m_mutex;
    int m_keepers = 0;
    Array *m_first = nullptr;
};

KeptArrays keptArrays; // destroys nothing: whoever keeps arrays lets go of them

#endif

} // namespace

ScratchMemory::Keep::Keep()
{
#if defined(__linux__)
    keptArrays.open();
#endif
}

ScratchMemory::Keep::~Keep()
{
#if defined(__linux__)
    keptArrays.close();
#endif
}

void *ScratchMemory::allocate(size_t bytes)
{
#if defined(__linux__)
    if (bytes >= kMapped) {
        const size_t size = mappedSize(bytes);
        if (void *const kept = keptArrays.take(size))
            return kept;
        return size < kLargePage ? map(size) : mapLargePages(size);
    }
#endif
    return ::operator new(bytes);
}

void ScratchMemory::release(void *memory, size_t bytes) noexcept
{
#if defined(__linux__)
    if (bytes >= kMapped) {
        const size_t size = mappedSize(bytes);
        if (!keptArrays.put(memory, size))
            munmap(memory, size);
        return;
    }
#endif
    ::operator delete(memory);
}
