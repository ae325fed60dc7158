#pragma once

#include "database/database_global.h"

#include <QtCore/qglobal.h>

#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

template<class T>
class PartitionList;

/// Moves of handles as plain memory: no constructor runs and no reference count changes.
///
/// A type qualifies when its bytes may be copied to another place and the old place forgotten;
/// it says so with Q_DECLARE_TYPEINFO(..., Q_MOVABLE_TYPE).
namespace Relocate
{

/// Moves n handles to a place that holds none; the places may overlap. The source holds no handle
/// afterwards, except where the two overlap.
template<class T>
void move(T *to, const T *from, int n) noexcept
{
    if (n > 0 && to != from)
        std::memmove(static_cast<void *>(to), static_cast<const void *>(from),
                     size_t(n) * sizeof(T));
}

/// Moves n handles into live ones, which are dropped first; the source holds none afterwards.
template<class T>
void replace(T *to, const T *from, int n) noexcept
{
    std::destroy_n(to, n);
    move(to, from, n);
}

/// Tells the system that what lies between two addresses of one allocation is not used: whole pages
/// lose their contents and their memory until they are written again.
DATABASE_EXPORT void releasePages(void *from, void *to) noexcept;

/// Calls \p work(context, i) for i = 0..n - 1, on several threads where some are at hand, and
/// returns when all calls have ended. work must not throw.
DATABASE_EXPORT void share(int n, void (*work)(void *context, int i), void *context) noexcept;

/// Fills n places that hold no handle with empty ones.
template<class T>
void makeEmpty(T *at, int n) noexcept
{
    std::uninitialized_value_construct_n(at, n);
}

} // namespace Relocate

/// One chunk of a PartitionList: an array of handles that owns those in use.
///
/// Invariants: end == begin + size, array <= begin, end <= array + capacity; all three pointers are
/// null when capacity is 0 and aligned for any pointer otherwise. Exactly the places from begin to
/// end hold handles. There may be room on both sides, so that a change moves the shorter side.
template<class T>
struct APartList {
    static_assert(!QTypeInfo<T>::isStatic, "handles are moved as plain memory");
    static_assert(std::is_nothrow_default_constructible_v<T>, "an empty handle costs nothing");
    static_assert(std::is_nothrow_destructible_v<T>, "dropping a handle cannot fail");
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "plain allocation must do");

    explicit APartList(PartitionList<T> *owner) noexcept
        : owner(owner)
    {
    }
    APartList(const APartList &) = delete;
    APartList &operator=(const APartList &) = delete;
    ~APartList() { realloc(0); }

    /// Gives the array exactly \p n places, keeping the contents; handles beyond the n-th are
    /// dropped, and 0 frees the array. Throws std::bad_alloc and leaves everything as it was.
    void realloc(int n);

    /// Makes n places at \p offset, which hold no handle and already count into size, by moving the
    /// handles behind them or, where those are fewer and there is room, the ones before. The
    /// capacity must suffice.
    void openGap(int offset, int n) noexcept;
    /// Makes sure that n handles more fit behind end, by moving all to the front of the array. The
    /// capacity must suffice.
    void makeRoom(int n) noexcept;
    /// Takes back n places at offset that hold no handle any more, from the shorter side.
    void closeGap(int offset, int n) noexcept;
    /// Sets size, and end with it.
    void resize(int n) noexcept;
    /// Gives the memory behind the handles back to the system until it is used: an array may have
    /// got memory that others have used before.
    void releaseTail() noexcept { Relocate::releasePages(end, array + capacity); }

    T *array = nullptr;
    T *begin = nullptr;
    T *end = nullptr;
    int size = 0;
    int capacity = 0;
    PartitionList<T> *owner; // the list that holds the chunk
};

// ------------------------------------------------------------------------------------------------

template<class T>
void APartList<T>::realloc(int n)
{
    if (n == capacity)
        return;
    T *fresh = n == 0 ? nullptr : static_cast<T *>(::operator new(size_t(n) * sizeof(T)));
    if (n < size) {
        std::destroy_n(begin + n, size - n);
        size = n;
    }
    if (fresh)
        Relocate::move(fresh, begin, size);
    ::operator delete(array);
    array = begin = fresh;
    capacity = n;
    resize(size);
}

template<class T>
void APartList<T>::makeRoom(int n) noexcept
{
    Q_ASSERT(size + n <= capacity);
    if (array + capacity - end >= n)
        return;
    Relocate::move(array, begin, size);
    begin = array;
    resize(size);
}

template<class T>
void APartList<T>::openGap(int offset, int n) noexcept
{
    Q_ASSERT(offset >= 0 && offset <= size);
    if (offset < size - offset && begin - array >= n) {
        Relocate::move(begin - n, begin, offset);
        begin -= n;
    } else {
        makeRoom(n);
        Relocate::move(begin + offset + n, begin + offset, size - offset);
    }
    resize(size + n);
}

template<class T>
void APartList<T>::closeGap(int offset, int n) noexcept
{
    Q_ASSERT(offset >= 0 && offset + n <= size);
    if (offset < size - offset - n) {
        Relocate::move(begin + n, begin, offset);
        begin += n;
    } else {
        Relocate::move(begin + offset, begin + offset + n, size - offset - n);
    }
    resize(size - n);
}

template<class T>
void APartList<T>::resize(int n) noexcept
{
    size = n;
    end = begin + n;
}
