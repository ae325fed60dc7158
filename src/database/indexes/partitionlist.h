#pragma once

#include "database/indexes/apartlist.h"
#include "database/indexes/partitionlistiterator.h"
#include "database/indexes/rangeset.h"

#include <QtCore/qlist.h>
#include <QtCore/qvector.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <vector>

/// A sequence of handles cut into chunks: inserting or removing at any position moves at most one
/// chunk's worth of handles, and a position is found without walking the chunks.
///
/// T is a small handle that may move as plain memory (see Relocate), such as Record. Handles inside
/// the list are moved that way only: a reference is taken when a handle is copied in and given back
/// when it is dropped, never when chunks are shifted, split, joined or sorted.
///
/// Invariants (checked by verify()):
///  (1) parts() is null, the chunks in order, null. An empty list has no chunk.
///  (2) No chunk is empty; each belongs to this list and has room for partSize + 2 handles or more.
///  (3) m_starts[c] counts the handles before chunk c; one more entry counts all of them.
///
/// Layout: an insertion that brings a chunk to partSize or more cuts it in two halves, once,
/// however large they are. A removal joins neighbours that hold fewer than joinSize together.
///
/// Threads: many readers or one writer; the caller arranges which. Reading changes nothing.
/// Errors: what allocates may throw std::bad_alloc, and copying a T in may throw what T throws; the
/// list then is as it was before the call, except where a function says otherwise. Positions are
/// asserted, not checked, unless a function says what it does with one that is out of range.
/// Every change invalidates iterators, places and references.
template<class T>
class PartitionList
{
public:
    using Part = APartList<T>;
    using iterator = PartitionListIterator<T, T>;
    using const_iterator = PartitionListIterator<T, const T>;
    using Entry = typename iterator::Entry; ///< a place in parts()
    using value_type = T;

    /// Where a position lies: in the part-th chunk, at that chunk's offset-th handle.
    struct Place {
        int part;
        int offset;
    };

    class FlatView;

    /// \param partSize the size at which a chunk is cut, at least 2
    /// \param joinSize neighbours that hold fewer together are joined by removals; up to partSize +
    /// 2
    ///                 joining needs no memory, so that removals cannot fail
    explicit PartitionList(int partSize = 10000, int joinSize = 5000);
    PartitionList(const PartitionList &) = delete;
    PartitionList &operator=(const PartitionList &) = delete;
    ~PartitionList() { qDeleteAll(m_parts); }

    int count() const { return m_starts.back(); }
    const_iterator begin() const { return {firstEntry(), firstItem()}; }
    const_iterator end() const { return {lastEntry(), nullptr}; }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }
    iterator begin() { return {firstEntry(), firstItem()}; }
    iterator end() { return {lastEntry(), nullptr}; }

    /// The handle at position \p i; past the end one shared, empty T. O(log chunks).
    const T &at(int i) const;
    /// The place of position \p pos, 0..count() - 1. O(log chunks).
    Place locate(int pos) const;
    /// The handles at the positions from..to - 1, if there are any and they lie in one chunk; null
    /// otherwise. O(log chunks).
    const T *stretch(int from, int to) const;
    /// An iterator at position \p pos, 0..count(). O(log chunks).
    const_iterator iteratorAt(int pos) const { return makeIterator<const_iterator>(pos); }
    iterator iteratorAt(int pos) { return makeIterator<iterator>(pos); }

    /// The first position whose handle \p pred refuses, count() if there is none. Along the list
    /// pred must accept first and refuse from some position on. It is asked at most
    /// log2(chunks) + log2(chunk size) + 2 times.
    template<class F>
    int partitionPoint(F pred) const
    {
        return partitionPoint(0, count(), pred);
    }
    /// The same among the positions from..to - 1; \p to if pred refuses none of them.
    template<class F>
    int partitionPoint(int from, int to, F pred) const;

    /// The chunks between two null entries.
    const QVector<Part *> &parts() const { return m_parts; }
    int partCount() const { return m_parts.size() - 2; }
    const Part &part(int c) const { return *m_parts.at(c + 1); }
    /// The number of handles before chunk \p c, 0..partCount().
    int partStart(int c) const { return m_starts[size_t(c)]; }

    /// Inserts before position \p pos. A position between two chunks goes to the end of the earlier
    /// one; one past the end opens a new chunk.
    void insert(int pos, const T &value);
    /// Inserts a whole list before position \p pos; an empty one changes nothing.
    void insert(int pos, const QList<T> &list);
    /// Adds at the end: to the last chunk while that stays below partSize, else to a new one, so
    /// that chunks filled this way hold partSize - 1 handles and are never cut.
    void append(const T &value);
    /// What comes into the list in an exchange.
    struct Arrival {
        int position; ///< it goes before this position of the list as it stands before the call
        int left;     ///< the place in the list of those that leave of the one that it is, or -1
        T item;       ///< what comes when left is -1
    };
    /// Takes out the handles at the positions \p leaving, which ascend strictly, and puts the
    /// arrivals \p first up to \p last in, whose positions ascend; those of one position keep their
    /// order. Each chunk is gone through once, and of its handles only those are moved whose place
    /// changes.
    ///
    /// Where everything that arrives in a chunk does so at one position, it is laid out as insert()
    /// lays out a list; other chunks that come to partSize are cut into equal pieces below it.
    /// Chunks that become small are joined when anything left.
    /// \return the handles that left, in list order; empty ones for those that came back. The items
    /// of the arrivals are left empty.
    std::vector<T> exchange(const std::vector<int> &leaving, Arrival *first, Arrival *last);

    /// Moves the handle at position \p from before position \p to, both as before the call.
    void move(int from, int to);
    /// Removes the handle at \p pos; past the end it does nothing.
    void remove(int pos);
    /// Removes every position of \p ranges in one pass; what lies past the end is ignored. Chunks
    /// that become small are joined, also when there was nothing to remove.
    void removeRanges(const RangeSet<int> &ranges);

    /// Puts the same handles into another order: \p handleAt(i) is what stands at position i
    /// afterwards, read from elsewhere than the list, and each handle of the list once.
    template<class HandleAt>
    void reorder(HandleAt handleAt) noexcept;

    /// Drops every handle and chunk.
    void clear();

    /// Puts a new, empty chunk before the entry \p at. The caller fills it before anything else is
    /// asked of the list: see invariant (2).
    Part *createPart(Entry at);
    /// Cuts the chunk at \p part: the handles from offset \p at on (0 < at < size) move to a new
    /// chunk right after it.
    void split(Entry part, int at);
    /// Appends the chunk after \p part to it; there must be one.
    void join(Entry part) { joinNext(index(part)); }

    /// Whether the invariants hold; walks the chunks, not the handles.
    bool verify() const;

private:
    using PartPtr = std::unique_ptr<Part>;

    class Exchange;

    static const T &emptyHandle();
    static int pieceStart(int total, int pieces, int j) { return int(qint64(total) * j / pieces); }

    Part &chunk(int c) { return *m_parts.at(c + 1); }
    int index(Entry at) const { return int(at - m_parts.constData()) - 1; }
    Entry firstEntry() const { return m_parts.constData() + 1; }
    Entry lastEntry() const { return m_parts.constData() + m_parts.size() - 1; }
    T *firstItem() const { return count() > 0 ? m_parts.at(1)->begin : nullptr; }
    template<class It>
    It makeIterator(int pos) const;
    int partForInsert(int pos) const;
    int countUpTo(int pos) const;

    PartPtr makePart(int size) const;
    void reserveParts(int extra);
    void placePart(int c, PartPtr part) noexcept;
    void splitInto(int c, int at, PartPtr tail) noexcept;
    void joinNext(int c);
    void joinSmall();
    void dropEmpty() noexcept;
    void shiftStarts(int c, int n) noexcept;
    void renumber(int c) noexcept;

    void insertBlock(int pos, T *items, int n);
    bool staysAfter(int c, int n) const;
    void moveAcross(Place from, Place to);
    int removeFromPart(int c, const QList<int> &bounds, int *next) noexcept;

    const int m_partSize;
    const int m_joinSize;
    QVector<Part *> m_parts;   // invariants (1), (2); owns the chunks
    std::vector<int> m_starts; // invariant (3)
};

/// All handles of a list in one flat array of plain memory, to be brought into another order.
///
/// The view copies the handles' bytes, not their references. On destruction the bytes go back into
/// the same chunks in the order in which they stand by then. When an exception ends the view's
/// life, whatever is half done is forgotten instead and the list stays in its old order: nothing is
/// lost, although a sort that fails leaves elements behind in its buffers. Meanwhile the list may
/// be read but not changed, and every handle must remain in the view exactly once.
template<class T>
class PartitionList<T>::FlatView
{
public:
    /// A handle's bytes: trivial to copy, read as the handle, owns nothing.
    class Loose
    {
    public:
        operator const T &() const noexcept { return *reinterpret_cast<const T *>(m_bytes); }

    private:
        alignas(T) unsigned char m_bytes[sizeof(T)];
    };

    explicit FlatView(PartitionList &list);
    FlatView(const FlatView &) = delete;
    FlatView &operator=(const FlatView &) = delete;
    ~FlatView();

    int count() const { return int(m_items.size()); }
    Loose *begin() { return m_items.data(); }
    Loose *end() { return m_items.data() + m_items.size(); }

private:
    PartitionList &m_list; // borrowed
    std::vector<Loose> m_items;
    const int m_exceptions = std::uncaught_exceptions();
};

// ------------------------------------------------------------------------------------------------
// Questions

template<class T>
PartitionList<T>::PartitionList(int partSize, int joinSize)
    : m_partSize(partSize)
    , m_joinSize(joinSize)
    , m_parts(2, nullptr)
    , m_starts(1, 0)
{
    Q_ASSERT(partSize >= 2); // a cut leaves no empty half
}

template<class T>
const T &PartitionList<T>::emptyHandle()
{
    static const T s_empty{};
    return s_empty;
}

template<class T>
const T &PartitionList<T>::at(int i) const
{
    if (uint(i) >= uint(count()))
        return emptyHandle();
    const Place place = locate(i);
    return part(place.part).begin[place.offset];
}

template<class T>
typename PartitionList<T>::Place PartitionList<T>::locate(int pos) const
{
    Q_ASSERT(pos >= 0 && pos < count());
    const int c = countUpTo(pos) - 1;
    return {c, pos - m_starts[size_t(c)]};
}

/// The number of chunks that begin at \p pos or before. Which half of the chunks a position lies in
/// cannot be predicted, so there is no branch on it, and the last ones are all compared.
template<class T>
int PartitionList<T>::countUpTo(int pos) const
{
    constexpr int kCompared = 32;
    const int *first = m_starts.data();
    int n = partCount();
    while (n > kCompared) {
        const int half = n / 2;
        first += first[half] <= pos ? half : 0;
        n -= half;
    }
    int count = int(first - m_starts.data());
    for (int c = 0; c < n; ++c)
        count += int(first[c] <= pos);
    return count;
}

template<class T>
const T *PartitionList<T>::stretch(int from, int to) const
{
    if (from >= to)
        return nullptr;
    const Place place = locate(from);
    return to <= partStart(place.part + 1) ? part(place.part).begin + place.offset : nullptr;
}

template<class T>
template<class It>
It PartitionList<T>::makeIterator(int pos) const
{
    Q_ASSERT(pos >= 0 && pos <= count());
    if (pos == count())
        return It(lastEntry(), nullptr);
    const Place place = locate(pos);
    return It(firstEntry() + place.part, part(place.part).begin + place.offset);
}

template<class T>
template<class F>
int PartitionList<T>::partitionPoint(int from, int to, F pred) const
{
    Q_ASSERT(from >= 0 && to <= count());
    if (from >= to)
        return to;
    int c = locate(from).part;
    int last = locate(to - 1).part;
    int limit = to; // no position from here on needs to be asked about
    while (c < last) {
        const int mid = c + (last - c) / 2;
        if (pred(part(mid).end[-1])) {
            c = mid + 1;
        } else {
            last = mid;
            limit = partStart(mid + 1) - 1;
        }
    }
    const T *items = part(c).begin;
    const int start = partStart(c);
    const T *found =
        std::partition_point(items + (qMax(from, start) - start), items + (limit - start),
                             [&pred](const T &item) { return bool(pred(item)); });
    return start + int(found - items);
}

template<class T>
bool PartitionList<T>::verify() const
{
    if (m_parts.size() < 2 || m_parts.first() || m_parts.last())
        return false;
    if (m_starts.size() != size_t(partCount()) + 1 || m_starts.front() != 0)
        return false;
    for (int c = 0; c < partCount(); ++c) {
        const Part *p = m_parts.at(c + 1);
        if (!p || p->owner != this || p->size <= 0 || p->end != p->begin + p->size)
            return false;
        if (p->capacity < qMax(p->size, m_partSize + 2) || p->begin < p->array ||
            p->end > p->array + p->capacity)
            return false;
        if (partStart(c + 1) != partStart(c) + p->size)
            return false;
    }
    return true;
}

// ------------------------------------------------------------------------------------------------
// The flat view

template<class T>
PartitionList<T>::FlatView::FlatView(PartitionList &list)
    : m_list(list)
    , m_items(size_t(list.count()))
{
    static_assert(std::is_trivially_copyable_v<Loose> && sizeof(Loose) == sizeof(T));
    Loose *to = m_items.data();
    for (int c = 0; c < list.partCount(); to += list.part(c++).size)
        std::memcpy(to, static_cast<const void *>(list.part(c).begin),
                    size_t(list.part(c).size) * sizeof(T));
}

template<class T>
PartitionList<T>::FlatView::~FlatView()
{
    Q_ASSERT(m_list.count() == count());
    if (std::uncaught_exceptions() > m_exceptions)
        return;
    const Loose *from = m_items.data();
    for (int c = 0; c < m_list.partCount(); from += m_list.part(c++).size)
        std::memcpy(static_cast<void *>(m_list.part(c).begin), from,
                    size_t(m_list.part(c).size) * sizeof(T));
}

template<class T>
template<class HandleAt>
void PartitionList<T>::reorder(HandleAt handleAt) noexcept
{
    int i = 0;
    for (int c = 0; c < partCount(); ++c) {
        for (T *item = part(c).begin; item != part(c).end; ++item, ++i)
            std::memcpy(static_cast<void *>(item), &handleAt(i), sizeof(T));
    }
}

#include "database/indexes/partitionlistchanges.h"
#include "database/indexes/partitionlistexchange.h"
