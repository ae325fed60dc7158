#pragma once

#include "database/indexes/apartlist.h"

#include <cstddef>
#include <iterator>

/// Random-access iterator over the handles of a PartitionList; Value is T or const T.
///
/// It is a chunk's entry and a handle inside that chunk; the end is the trailing null entry without
/// a handle. A jump and a difference cost one step per chunk crossed, none inside a chunk. Any
/// change to the list's chunks invalidates it; assigning handles does not.
template<class T, class Value>
class PartitionListIterator
{
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = Value *;
    using reference = Value &;
    using Entry = APartList<T> *const *;

    PartitionListIterator() = default;
    PartitionListIterator(Entry entry, Value *item) noexcept
        : m_entry(entry)
        , m_item(item)
    {
    }
    /// An iterator reads as a const_iterator, never the other way round.
    template<class Other,
             class = std::enable_if_t<std::is_same_v<Other, T> && !std::is_same_v<Other, Value>>>
    PartitionListIterator(const PartitionListIterator<T, Other> &other) noexcept
        : m_entry(other.entry())
        , m_item(other.item())
    {
    }

    Entry entry() const noexcept { return m_entry; }
    Value *item() const noexcept { return m_item; }

    reference operator*() const noexcept { return *m_item; }
    pointer operator->() const noexcept { return m_item; }
    reference operator[](difference_type n) const noexcept { return *(*this + n); }

    PartitionListIterator &operator++() noexcept;
    PartitionListIterator &operator--() noexcept;
    PartitionListIterator &operator+=(difference_type n) noexcept;
    PartitionListIterator &operator-=(difference_type n) noexcept { return *this += -n; }

    PartitionListIterator operator++(int) noexcept
    {
        const PartitionListIterator old = *this;
        ++*this;
        return old;
    }
    PartitionListIterator operator--(int) noexcept
    {
        const PartitionListIterator old = *this;
        --*this;
        return old;
    }

    friend PartitionListIterator operator+(PartitionListIterator it, difference_type n) noexcept
    {
        return it += n;
    }
    friend PartitionListIterator operator+(difference_type n, PartitionListIterator it) noexcept
    {
        return it += n;
    }
    friend PartitionListIterator operator-(PartitionListIterator it, difference_type n) noexcept
    {
        return it -= n;
    }
    friend difference_type operator-(const PartitionListIterator &a,
                                     const PartitionListIterator &b) noexcept
    {
        return b.m_entry <= a.m_entry ? b.distanceTo(a) : -a.distanceTo(b);
    }

    friend bool operator==(const PartitionListIterator &a, const PartitionListIterator &b) noexcept
    {
        return a.m_item == b.m_item && a.m_entry == b.m_entry;
    }
    friend bool operator!=(const PartitionListIterator &a, const PartitionListIterator &b) noexcept
    {
        return !(a == b);
    }
    friend bool operator<(const PartitionListIterator &a, const PartitionListIterator &b) noexcept
    {
        return a.m_entry != b.m_entry ? a.m_entry < b.m_entry : a.m_item < b.m_item;
    }
    friend bool operator>(const PartitionListIterator &a, const PartitionListIterator &b) noexcept
    {
        return b < a;
    }
    friend bool operator<=(const PartitionListIterator &a, const PartitionListIterator &b) noexcept
    {
        return !(b < a);
    }
    friend bool operator>=(const PartitionListIterator &a, const PartitionListIterator &b) noexcept
    {
        return !(a < b);
    }

private:
    difference_type offset() const noexcept { return m_item ? m_item - (*m_entry)->begin : 0; }
    difference_type distanceTo(const PartitionListIterator &later) const noexcept;
    void forward(difference_type n) noexcept;
    void backward(difference_type n) noexcept;

    Entry m_entry = nullptr; // of the list's parts()
    Value *m_item = nullptr; // null at the end
};

// ------------------------------------------------------------------------------------------------

template<class T, class Value>
PartitionListIterator<T, Value> &PartitionListIterator<T, Value>::operator++() noexcept
{
    if (++m_item == (*m_entry)->end) {
        ++m_entry;
        m_item = *m_entry ? (*m_entry)->begin : nullptr;
    }
    return *this;
}

template<class T, class Value>
PartitionListIterator<T, Value> &PartitionListIterator<T, Value>::operator--() noexcept
{
    if (!m_item || m_item == (*m_entry)->begin) {
        --m_entry;
        m_item = (*m_entry)->end;
    }
    --m_item;
    return *this;
}

template<class T, class Value>
PartitionListIterator<T, Value> &PartitionListIterator<T, Value>::operator+=(
    difference_type n) noexcept
{
    if (n > 0)
        forward(n);
    else if (n < 0)
        backward(-n);
    return *this;
}

template<class T, class Value>
void PartitionListIterator<T, Value>::forward(difference_type n) noexcept
{
    const difference_type rest = (*m_entry)->end - m_item;
    if (n < rest) {
        m_item += n;
        return;
    }
    n -= rest;
    for (++m_entry; *m_entry && n >= (*m_entry)->size; ++m_entry)
        n -= (*m_entry)->size;
    Q_ASSERT(*m_entry || n == 0);
    m_item = *m_entry ? (*m_entry)->begin + n : nullptr;
}

template<class T, class Value>
void PartitionListIterator<T, Value>::backward(difference_type n) noexcept
{
    const difference_type before = offset();
    if (n <= before) {
        m_item -= n;
        return;
    }
    n -= before;
    for (--m_entry; n > (*m_entry)->size; --m_entry)
        n -= (*m_entry)->size;
    m_item = (*m_entry)->end - n;
}

/// The distance to an iterator whose chunk is this one's or stands behind it.
template<class T, class Value>
typename PartitionListIterator<T, Value>::difference_type PartitionListIterator<
    T, Value>::distanceTo(const PartitionListIterator &later) const noexcept
{
    if (m_entry == later.m_entry)
        return later.m_item - m_item;
    difference_type n = (*m_entry)->end - m_item;
    for (Entry between = m_entry + 1; between != later.m_entry; ++between)
        n += (*between)->size;
    return n + later.offset();
}
