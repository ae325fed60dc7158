#pragma once

#include <cstddef>
#include <new>
#include <utility>
#include <vector>

/// Memory for arrays that live for one call.
///
/// The system clears fresh memory when it is touched first, page by page, which for arrays of many
/// megabytes takes longer than what is done with them. So large ones lie in pages of their own, as
/// large as the machine has them, and go back to the system at once, or when nobody keeps them any
/// more. Those of some hundred kilobytes do as well: malloc would keep what they leave free among
/// the rows.
///
/// Threads: any.
namespace ScratchMemory
{

/// Throws std::bad_alloc.
void *allocate(size_t bytes);
/// \p bytes as in the call that allocated.
void release(void *memory, size_t bytes) noexcept;

/// As long as one lives, large arrays that are released are kept for those that are allocated next,
/// by any thread: which then need not be cleared.
class Keep
{
public:
    Keep();
    ~Keep();

    Keep(const Keep &) = delete;
    Keep &operator=(const Keep &) = delete;
};

template<class T>
struct Allocator {
    using value_type = T;

    Allocator() = default;
    template<class Other>
    Allocator(const Allocator<Other> &)
    {
    }
    T *allocate(size_t n) { return static_cast<T *>(ScratchMemory::allocate(n * sizeof(T))); }
    void deallocate(T *memory, size_t n) noexcept { release(memory, n * sizeof(T)); }
    /// resize() leaves what it adds as it is: whoever needs zeros says so by assign().
    template<class U>
    void construct(U *at) noexcept
    {
        ::new (static_cast<void *>(at)) U;
    }
    template<class U, class Value>
    void construct(U *at, Value &&value)
    {
        ::new (static_cast<void *>(at)) U(std::forward<Value>(value));
    }
    friend bool operator==(const Allocator &, const Allocator &) { return true; }
    friend bool operator!=(const Allocator &, const Allocator &) { return false; }
};

} // namespace ScratchMemory

template<class T>
using ScratchVector = std::vector<T, ScratchMemory::Allocator<T>>;
