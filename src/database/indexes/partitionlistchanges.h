#pragma once

// How a PartitionList changes: bodies of its members, included at the end of partitionlist.h.
//
// Each change follows one pattern: find the chunks, get all memory that may be needed, and only
// then move handles, which cannot fail. Sizes in the chunks are the truth; m_starts follows them.

#include "database/indexes/partitionlist.h"

// ------------------------------------------------------------------------------------------------
// Chunks

/// The first chunk with pos <= its end; partCount() if pos lies behind all of them.
template<class T>
int PartitionList<T>::partForInsert(int pos) const
{
    return pos > count() ? partCount() : qMax(countUpTo(pos - 1) - 1, 0);
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
    tail->releaseTail();
    head.resize(at);
    head.releaseTail();
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
    head.makeRoom(next->size);
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
        last.makeRoom(1);
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

template<class T>
void PartitionList<T>::move(int from, int to)
{
    Q_ASSERT(from >= 0 && from < count() && to >= 0 && to <= count());
    const Place source = locate(from);
    const int target = partForInsert(to);
    if (target != source.part) {
        if (target < partCount() && staysAfter(source.part, -1) && staysAfter(target, 1)) {
            moveAcross(source, {target, to - partStart(target)});
            return;
        }
        const T kept(at(from));
        remove(from);
        insert(to > from ? to - 1 : to, kept);
        return;
    }
    reserveParts(0);
    T *const item = chunk(source.part).begin + source.offset;
    alignas(T) unsigned char bytes[sizeof(T)];
    T *const moved = reinterpret_cast<T *>(bytes);
    Relocate::move(moved, item, 1);
    if (to > from) {
        Relocate::move(item, item + 1, to - from - 1);
        Relocate::move(item + (to - from - 1), moved, 1);
    } else {
        Relocate::move(item + (to - from) + 1, item + (to - from), from - to);
        Relocate::move(item + (to - from), moved, 1);
    }
}

/// Whether a chunk remains as it is, neither cut nor joined nor enlarged, when it comes to hold n
/// more handles, or fewer.
template<class T>
bool PartitionList<T>::staysAfter(int c, int n) const
{
    const int size = part(c).size + n;
    if (n > 0)
        return size < m_partSize && size <= part(c).capacity;
    return size > 0 && (c + 1 == partCount() || size + part(c + 1).size >= m_joinSize) &&
           (c == 0 || part(c - 1).size + size >= m_joinSize);
}

/// Moves a handle from one chunk to another, of which neither comes or goes for that.
template<class T>
void PartitionList<T>::moveAcross(Place from, Place to)
{
    reserveParts(0);
    Part &source = chunk(from.part);
    Part &target = chunk(to.part);
    target.openGap(to.offset, 1);
    Relocate::move(target.begin + to.offset, source.begin + from.offset, 1);
    source.closeGap(from.offset, 1);
    for (int c = from.part + 1; c <= to.part; ++c)
        --m_starts[size_t(c)];
    for (int c = to.part + 1; c <= from.part; ++c)
        ++m_starts[size_t(c)];
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

template<class T>
void PartitionList<T>::removeRanges(const RangeSet<int> &ranges)
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
        taken += removeFromPart(c, bounds, &next);
        pos = partStart(c + 1);
    }
    if (taken > 0)
        dropEmpty();
    joinSmall();
}

/// Removes chunk c's share of the ranges from bound *next on, closes the gaps in one pass and moves
/// *next past the ranges that end here.
template<class T>
int PartitionList<T>::removeFromPart(int c, const QList<int> &bounds, int *next) noexcept
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
