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
    /// Inserts items[i] before position positions[i] of the list as it stands before the call.
    ///
    /// Positions ascend; items of one position keep their order. The items are moved from and left
    /// empty. Each chunk is rewritten once, whatever falls into it. Items of a single position are
    /// laid out as insert() lays out a list; where several positions fall into one chunk and bring
    /// it to partSize, it is cut into equal pieces below partSize.
    void mergeInsert(const int *positions, T *items, int n);

    /// Removes the handle at \p pos; past the end it does nothing.
    void remove(int pos);
    /// Removes every position of \p ranges in one pass; what lies past the end is ignored. Chunks
    /// that become small are joined, also when there was nothing to remove.
    void removeRanges(const RangeSet<int> &ranges) { removeCovered(ranges, nullptr); }
    /// As removeRanges(), but moves the handles in list order to out[0..], which are live before
    /// and after; \return how many were taken.
    int takeRanges(const RangeSet<int> &ranges, T *out) { return removeCovered(ranges, out); }

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

    /// The items [first, last) of a merge, which fall into one chunk, and what becomes of it.
    struct MergeStep {
        int part;
        int first;
        int last;
        int pieces;   // chunks that the result is cut into
        int capacity; // what the chunk itself must hold
    };
    class BackWriter;

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
    std::vector<MergeStep> planMerge(const int *positions, int n) const;
    void mergeInto(Entry pieces, const MergeStep &step, const int *positions, T *items) noexcept;
    int removeCovered(const RangeSet<int> &ranges, T *out);
    int takeFromPart(int c, const QList<int> &bounds, int *next, T *out) noexcept;

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
    const auto next = std::upper_bound(m_starts.begin() + 1, m_starts.end(), pos);
    return {int(next - m_starts.begin()) - 1, pos - *(next - 1)};
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
        if (p->capacity < qMax(p->size, m_partSize + 2))
            return false;
        if (partStart(c + 1) != partStart(c) + p->size)
            return false;
    }
    return true;
}

// ------------------------------------------------------------------------------------------------
// Chunks

/// The first chunk with pos <= its end; partCount() if pos lies behind all of them.
template<class T>
int PartitionList<T>::partForInsert(int pos) const
{
    return int(std::lower_bound(m_starts.begin() + 1, m_starts.end(), pos) - m_starts.begin()) - 1;
}

/// A chunk outside the list, with the usual room or as much as size needs.
template<class T>
typename PartitionList<T>::PartPtr PartitionList<T>::makePart(int size) const
{
    PartPtr part = std::make_unique<Part>(const_cast<PartitionList *>(this));
    part->realloc(qMax(size, m_partSize + 2));
    return part;
}

/// Makes sure that adding or erasing up to extra chunks allocates nothing. Growth doubles: exact
/// growth would copy all entries for each new chunk.
template<class T>
void PartitionList<T>::reserveParts(int extra)
{
    m_parts.detach(); // the caller of parts() may keep a copy
    const int size = m_parts.size() + extra;
    if (m_parts.capacity() < size)
        m_parts.reserve(qMax(size, 2 * m_parts.capacity()));
    if (m_starts.capacity() < size_t(size))
        m_starts.reserve(qMax(size_t(size), 2 * m_starts.capacity()));
}

/// Makes part the c-th chunk; needs reserveParts(1).
template<class T>
void PartitionList<T>::placePart(int c, PartPtr part) noexcept
{
    m_parts.insert(c + 1, part.release());
    renumber(c);
}

template<class T>
void PartitionList<T>::splitInto(int c, int at, PartPtr tail) noexcept
{
    Part &head = chunk(c);
    Q_ASSERT(at > 0 && at < head.size);
    const int moved = head.size - at;
    Relocate::move(tail->begin, head.begin + at, moved);
    tail->resize(moved);
    head.resize(at);
    placePart(c + 1, std::move(tail));
    renumber(c);
}

template<class T>
void PartitionList<T>::joinNext(int c)
{
    Q_ASSERT(c >= 0 && c + 1 < partCount());
    reserveParts(0);
    Part &head = chunk(c);
    const PartPtr next(&chunk(c + 1));
    const int size = head.size + next->size;
    if (size > head.capacity)
        head.realloc(size);
    Relocate::move(head.end, next->begin, next->size);
    head.resize(size);
    next->resize(0);
    m_parts.remove(c + 2);
    m_starts.erase(m_starts.begin() + c + 1);
}

template<class T>
void PartitionList<T>::joinSmall()
{
    for (int c = 0; c + 1 < partCount();) {
        if (part(c).size + part(c + 1).size < m_joinSize)
            joinNext(c);
        else
            ++c;
    }
}

template<class T>
void PartitionList<T>::dropEmpty() noexcept
{
    Part **entries = m_parts.data();
    int kept = 1;
    for (int c = 0; c < partCount(); ++c) {
        Part *p = entries[c + 1];
        if (p->size == 0)
            delete p;
        else
            entries[kept++] = p;
    }
    entries[kept] = nullptr;
    m_parts.resize(kept + 1);
    renumber(0);
}

/// Counts n more handles in chunk c.
template<class T>
void PartitionList<T>::shiftStarts(int c, int n) noexcept
{
    for (auto start = m_starts.begin() + c + 1; start != m_starts.end(); ++start)
        *start += n;
}

/// Restores invariant (3) from chunk c on after chunks came, went or changed.
template<class T>
void PartitionList<T>::renumber(int c) noexcept
{
    m_starts.resize(size_t(partCount()) + 1);
    for (; c < partCount(); ++c)
        m_starts[size_t(c) + 1] = m_starts[size_t(c)] + part(c).size;
}

template<class T>
typename PartitionList<T>::Part *PartitionList<T>::createPart(Entry at)
{
    const int c = index(at);
    PartPtr part = makePart(0);
    Part *created = part.get();
    reserveParts(1);
    placePart(c, std::move(part));
    return created;
}

template<class T>
void PartitionList<T>::split(Entry part, int at)
{
    const int c = index(part);
    PartPtr tail = makePart((*part)->size - at);
    reserveParts(1);
    splitInto(c, at, std::move(tail));
}

// ------------------------------------------------------------------------------------------------
// Changes

template<class T>
void PartitionList<T>::insert(int pos, const T &value)
{
    T copy(value); // value may stand in a chunk that moves
    insertBlock(pos, &copy, 1);
}

template<class T>
void PartitionList<T>::insert(int pos, const QList<T> &list)
{
    std::vector<T> copies(list.cbegin(), list.cend());
    insertBlock(pos, copies.data(), int(copies.size()));
}

/// Moves n items before position pos and leaves empty ones behind.
template<class T>
void PartitionList<T>::insertBlock(int pos, T *items, int n)
{
    Q_ASSERT(pos >= 0);
    if (n <= 0)
        return;
    const int c = partForInsert(pos);
    PartPtr fresh = c == partCount() ? makePart(0) : nullptr;
    Part &target = fresh ? *fresh : chunk(c);
    const int offset = fresh ? 0 : pos - partStart(c);
    const int size = target.size + n;
    PartPtr tail = size >= m_partSize ? makePart(size - size / 2) : nullptr;
    if (size > target.capacity)
        target.realloc(size);
    reserveParts(2);

    // All memory is there: nothing below can fail.
    target.openGap(offset, n);
    Relocate::move(target.begin + offset, items, n);
    Relocate::makeEmpty(items, n);
    if (fresh)
        placePart(c, std::move(fresh));
    else
        shiftStarts(c, n);
    if (tail)
        splitInto(c, size / 2, std::move(tail));
}

template<class T>
void PartitionList<T>::append(const T &value)
{
    const int c = partCount() - 1;
    if (c >= 0 && part(c).size + 1 < m_partSize) {
        Part &last = chunk(c);
        new (last.end) T(value);
        last.resize(last.size + 1);
        ++m_starts.back();
        return;
    }
    PartPtr fresh = makePart(0);
    reserveParts(1);
    new (fresh->end) T(value);
    fresh->resize(1);
    placePart(c + 1, std::move(fresh));
}

/// Fills a row of chunks from its last place backwards.
template<class T>
class PartitionList<T>::BackWriter
{
public:
    BackWriter(Entry pieces, int count)
        : m_piece(pieces + count - 1)
        , m_to((*m_piece)->end)
    {
    }

    void put(const T *from, int n) noexcept
    {
        while (n > 0) {
            if (m_to == (*m_piece)->begin) {
                --m_piece;
                m_to = (*m_piece)->end;
            }
            const int fits = qMin(n, int(m_to - (*m_piece)->begin));
            n -= fits;
            m_to -= fits;
            Relocate::move(m_to, from + n, fits);
        }
    }

private:
    Entry m_piece;
    T *m_to;
};

template<class T>
void PartitionList<T>::mergeInsert(const int *positions, T *items, int n)
{
    Q_ASSERT(std::is_sorted(positions, positions + n));
    if (n <= 0)
        return;
    if (partCount() == 0 || positions[0] == positions[n - 1]) {
        insertBlock(qMin(positions[0], count()), items, n);
        return;
    }
    const std::vector<MergeStep> steps = planMerge(positions, n);
    std::vector<PartPtr> spares;
    for (const MergeStep &step : steps) {
        const int total = part(step.part).size + step.last - step.first;
        for (int j = 1; j < step.pieces; ++j)
            spares.push_back(makePart(total / step.pieces + 1));
        if (chunk(step.part).capacity < step.capacity)
            chunk(step.part).realloc(step.capacity);
    }
    QVector<Part *> parts;
    parts.reserve(m_parts.size() + int(spares.size()));
    m_starts.reserve(size_t(parts.capacity()));

    // All memory is there: nothing below can fail.
    auto spare = spares.begin();
    Entry from = m_parts.constData(); // entries before it stand in parts
    for (const MergeStep &step : steps) {
        for (const Entry next = firstEntry() + step.part + 1; from != next; ++from)
            parts.append(*from);
        const int first = parts.size() - 1;
        for (int j = 1; j < step.pieces; ++j)
            parts.append((spare++)->release());
        mergeInto(parts.constData() + first, step, positions, items);
    }
    for (; from != m_parts.constData() + m_parts.size(); ++from)
        parts.append(*from);
    m_parts.swap(parts);
    renumber(0);
    Relocate::makeEmpty(items, n);
}

template<class T>
std::vector<typename PartitionList<T>::MergeStep> PartitionList<T>::planMerge(const int *positions,
                                                                              int n) const
{
    std::vector<MergeStep> steps;
    for (int first = 0; first < n;) {
        Q_ASSERT(positions[first] >= 0 && positions[n - 1] <= count());
        const int c = partForInsert(positions[first]);
        const int *end = std::upper_bound(positions + first, positions + n, partStart(c + 1));
        const int last = int(end - positions);
        const int total = part(c).size + last - first;
        MergeStep step{c, first, last, 1, total};
        if (total >= m_partSize) {
            if (positions[first] == positions[last - 1]) {
                step.pieces = 2;
            } else {
                step.pieces = (total + m_partSize - 2) / (m_partSize - 1);
                step.capacity = total / step.pieces; // the chunk is never longer than its piece
            }
        }
        steps.push_back(step);
        first = last;
    }
    return steps;
}

/// Merges the items of one step into its chunk, pieces[0], and on into the empty pieces after it.
/// From the back, so that no handle of the chunk is overwritten before it has moved on: the place
/// written to never lies before the handles still to be read.
template<class T>
void PartitionList<T>::mergeInto(Entry pieces, const MergeStep &step, const int *positions,
                                 T *items) noexcept
{
    const T *old = pieces[0]->begin;
    int unread = pieces[0]->size;
    const int start = partStart(step.part);
    const int total = unread + step.last - step.first;
    for (int j = 0; j < step.pieces; ++j) {
        const int pieceEnd = pieceStart(total, step.pieces, j + 1);
        pieces[j]->resize(pieceEnd - pieceStart(total, step.pieces, j));
    }
    BackWriter writer(pieces, step.pieces);
    for (int last = step.last; last > step.first;) {
        int first = last - 1;
        while (first > step.first && positions[first - 1] == positions[first])
            --first;
        const int offset = positions[first] - start;
        writer.put(old + offset, unread - offset);
        unread = offset;
        writer.put(items + first, last - first);
        last = first;
    }
    writer.put(old, unread);
}

template<class T>
void PartitionList<T>::remove(int pos)
{
    if (pos >= count())
        return;
    reserveParts(0);
    const Place place = locate(pos);
    const int c = place.part;
    Part &from = chunk(c);
    // Dropped last, when the list is whole again: the release of a row may run foreign code.
    const T removed(std::move(from.begin[place.offset]));
    std::destroy_at(from.begin + place.offset);
    from.closeGap(place.offset, 1);
    shiftStarts(c, -1);
    if (from.size == 0) {
        delete &from;
        m_parts.remove(c + 1);
        m_starts.erase(m_starts.begin() + c);
        return;
    }
    if (c + 1 < partCount() && from.size + part(c + 1).size < m_joinSize)
        joinNext(c);
    if (c > 0 && part(c - 1).size + from.size < m_joinSize)
        joinNext(c - 1);
}

/// Removes the covered positions: to out, or for good when out is null.
template<class T>
int PartitionList<T>::removeCovered(const RangeSet<int> &ranges, T *out)
{
    reserveParts(0);
    const QList<int> &bounds = ranges.bounds();
    int taken = 0;
    int pos = 0; // everything before is done; m_starts stays as it was until the end
    for (int next = 0; next < bounds.size();) {
        pos = qMax(pos, bounds.at(next));
        if (pos >= count())
            break;
        const int c = locate(pos).part;
        taken += takeFromPart(c, bounds, &next, out ? out + taken : nullptr);
        pos = partStart(c + 1);
    }
    if (taken > 0)
        dropEmpty();
    joinSmall();
    return taken;
}

/// Takes chunk c's share of the ranges from bound *next on, closes the gaps in one pass and moves
/// *next past the ranges that end here.
template<class T>
int PartitionList<T>::takeFromPart(int c, const QList<int> &bounds, int *next, T *out) noexcept
{
    Part &from = chunk(c);
    const int start = partStart(c);
    const int limit = partStart(c + 1);
    int taken = 0;
    int read = 0;    // offset of the first handle not looked at
    int written = 0; // offset of the place for the next handle that stays
    while (*next < bounds.size() && bounds.at(*next) < limit) {
        const int a = qMax(bounds.at(*next), start) - start;
        const int b = qMin(bounds.at(*next + 1), limit) - start;
        Relocate::move(from.begin + written, from.begin + read, a - read);
        written += a - read;
        read = b;
        if (out)
            Relocate::replace(out + taken, from.begin + a, b - a);
        else
            std::destroy_n(from.begin + a, b - a);
        taken += b - a;
        if (bounds.at(*next + 1) > limit)
            break; // goes on in the next chunk
        *next += 2;
    }
    Relocate::move(from.begin + written, from.begin + read, from.size - read);
    from.resize(written + from.size - read);
    return taken;
}

template<class T>
void PartitionList<T>::clear()
{
    reserveParts(0);
    while (partCount() > 0) {
        // Out of the list before its handles are dropped: the release of a row may look at it.
        const PartPtr last(&chunk(partCount() - 1));
        m_parts.remove(partCount());
        m_starts.pop_back();
    }
}

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
