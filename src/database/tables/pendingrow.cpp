#include "database/tables/pendingrow.h"

#include "database/masterindex_struct.h"
#include "database/services/concurrently.h"
#include "database/tables/columnspan.h"
#include "database/tables/table.h"
#include "database/tables/tableprivate.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace
{

// Rows lie anywhere in memory, so they are asked for some steps ahead.
constexpr int kRowsAhead = 8;

uchar *bitsOf(const TablePrivate &table, const Record &row)
{
    return row.row() + table.rowSize;
}

bool isWritten(const TablePrivate &table, const Record &row, PendingRow::Range written, int column)
{
    if (PendingRow::tracks(row))
        return bitsOf(table, row)[column / 8] >> (column % 8) & 1;
    return column >= written.first && column <= written.last;
}

/// Calls visit(first, last) for each stretch of neighbouring columns, among first..last, of which
/// has(column) says the same as \p wanted.
template<class Has, class Visit>
void forRuns(int first, int last, bool wanted, Has has, Visit visit)
{
    for (int column = first; column <= last; ++column) {
        if (has(column) != wanted)
            continue;
        const int start = column;
        while (column < last && has(column + 1) == wanted)
            ++column;
        visit(start, column);
    }
}

/// The stretches of columns that a pending row does not hold. Batches mostly write the same columns
/// of all their rows, so they are worked out once for rows that agree.
class Gaps
{
public:
    explicit Gaps(const TablePrivate &table)
        : m_table(table)
        , m_bits(size_t(bitmapSize(table.columns.size())))
    {
    }

    void fill(const Record &pending, PendingRow::Range written, const Record &live)
    {
        if (pending == live)
            return;
        if (!agrees(pending, written))
            find(pending, written);
        for (const ColumnSpan &span : m_spans)
            span.copy(pending.row(), live.row());
    }

private:
    bool agrees(const Record &pending, PendingRow::Range written) const
    {
        if (!m_known || m_tracks != PendingRow::tracks(pending))
            return false;
        if (m_tracks)
            return std::equal(m_bits.begin(), m_bits.end(), bitsOf(m_table, pending));
        return m_written.first == written.first && m_written.last == written.last;
    }
    void find(const Record &pending, PendingRow::Range written)
    {
        m_known = true;
        m_tracks = PendingRow::tracks(pending);
        m_written = written;
        if (m_tracks)
            std::copy_n(bitsOf(m_table, pending), m_bits.size(), m_bits.begin());
        m_spans.clear();
        forRuns(
            0, m_table.columns.size() - 1, false,
            [&](int column) { return isWritten(m_table, pending, written, column); },
            [&](int first, int last) {
                m_spans.emplace_back(m_table.columns, m_table.dataLength, first, last);
            });
    }

    const TablePrivate &m_table;
    bool m_known = false; // what is known of the row before:
    bool m_tracks = false;
    PendingRow::Range m_written;
    std::vector<uchar> m_bits;
    std::vector<ColumnSpan> m_spans;
};

} // namespace

// One row -----------------------------------------------------------------------------------------

Record PendingRow::clone(const Record &row)
{
    const TablePrivate &table = TablePrivate::of(*row.table());
    const qint64 size = table.rowSize;
    const qint64 bits = bitmapSize(table.columns.size());
    auto *copy = static_cast<uchar *>(qMallocAligned(size_t(size + bits), alignof(RowHeader)));
    if (!copy)
        throw std::bad_alloc();
    rowHeader(copy)->refCount.storeRelaxed(0);
    rowHeader(copy)->flags = kRowTracks;
    rowHeader(copy)->table = row.table();
    std::memcpy(copy + kRowHeaderSize, row.row() + kRowHeaderSize, size_t(size - kRowHeaderSize));
    std::memset(copy + size, 0, size_t(bits));
    return Record(copy);
}

void PendingRow::mark(const Record &row, int first, int last)
{
    if (!tracks(row))
        return;
    uchar *const bits = bitsOf(TablePrivate::of(*row.table()), row);
    for (int column = first; column <= last; ++column)
        bits[column / 8] = uchar(bits[column / 8] | 1u << (column % 8));
}

bool PendingRow::isMarked(const Record &row, int column)
{
    return isWritten(TablePrivate::of(*row.table()), row, Range(), column);
}

void PendingRow::track(Record &row, Range written)
{
    if (tracks(row))
        return;
    Record copy = clone(row);
    mark(copy, written.first, written.last);
    rowHeader(copy.row())->flags |= kRowPartial;
    row.swap(copy);
}

void PendingRow::copyChanges(Record &target, Range &range, const Record &change, Range changes)
{
    const TablePrivate &table = TablePrivate::of(*target.table());
    // One range stays one only where the other lies in it or beside it.
    const bool isAll = range.first <= 0 && range.last + 1 >= table.columns.size();
    const bool joins =
        !tracks(change) && changes.first <= range.last + 1 && range.first <= changes.last + 1;
    if (!isAll && !joins)
        track(target, range);
    forRuns(
        0, table.columns.size() - 1, true,
        [&](int column) { return isWritten(table, change, changes, column); },
        [&](int first, int last) {
            target.copy(change, first, last);
            mark(target, first, last);
        });
    if (!tracks(target))
        range = {qMin(range.first, changes.first), qMax(range.last, changes.last)};
}

// A batch -----------------------------------------------------------------------------------------

void completeFromLive(const Table &table, const BatchLists &lists, bool mayBeStale)
{
    const TablePrivate &layout = TablePrivate::of(table);
    Concurrently::forStretches(lists.updated.size(), [&](int from, int to) {
        Gaps gaps(layout);
        for (int i = from; i < to; ++i) {
            if (i + kRowsAhead < to)
                prefetch(lists.changed.at(i + kRowsAhead).row());
            const Record &pending = lists.changed.at(i);
            const quint32 flags = rowHeader(pending.row())->flags;
            if (mayBeStale || !(flags & kRowTracks) || (flags & kRowPartial))
                gaps.fill(pending, lists.written[size_t(i)], lists.updated.at(i));
        }
    });
}

namespace
{

/// settleBatch() where something is out of the ordinary.
class BatchSettler
{
public:
    BatchSettler(Table &table, BatchLists &lists)
        : m_table(TablePrivate::of(table))
        , m_lists(lists)
    {
    }
    // Also when a comparison throws: a row that stayed named would miss its next changes.
    ~BatchSettler()
    {
        for (const Record &record : m_named)
            rowHeader(record.row())->flags &= ~quint32(kRowNamed);
    }
    BatchSettler(const BatchSettler &) = delete;
    BatchSettler &operator=(const BatchSettler &) = delete;

    void run()
    {
        BatchLists found;
        found.inserted.reserve(m_lists.inserted.size());
        for (const Record &record : qAsConst(m_lists.removed)) {
            if (m_table.isLive(record) && name(record))
                found.removed.append(record);
        }
        for (int i = 0; i < m_lists.updated.size(); ++i)
            update(m_lists.updated.at(i), m_lists.changed.at(i), m_lists.written[size_t(i)]);
        for (const Record &row : qAsConst(m_lists.inserted)) {
            const bool isUpsert = rowHeader(row.row())->flags & kRowUpserted;
            const Record live = isUpsert ? m_table.masterIndex->find(row, -1) : Record();
            if (live && !isRemoved(live))
                update(live, row, {});
            else
                found.inserted.append(row);
        }
        for (const Update &each : m_updates) {
            if (each.live) {
                found.updated.append(each.live);
                found.changed.append(each.change);
                found.written.push_back(each.written);
            } else {
                found.inserted.append(each.change);
            }
        }
        m_lists = found;
    }

private:
    struct Update {
        Record live; // null: the change is a new row
        Record change;
        PendingRow::Range written;
    };

    // Whether the row had not been named before.
    bool name(const Record &record)
    {
        quint32 &flags = rowHeader(record.row())->flags;
        if (flags & kRowNamed)
            return false;
        m_named.push_back(record);
        flags |= kRowNamed;
        return true;
    }
    bool isRemoved(const Record &live) const
    {
        return (rowHeader(live.row())->flags & kRowNamed) && !updateOf(live);
    }
    const Update *updateOf(const Record &live) const
    {
        const auto found = std::find_if(m_updates.begin(), m_updates.end(),
                                        [&](const Update &each) { return each.live == live; });
        return found != m_updates.end() ? &*found : nullptr;
    }

    void update(Record live, const Record &change, PendingRow::Range written)
    {
        if (!m_table.isLive(live)) {
            if (!(rowHeader(change.row())->flags & kRowUpserted))
                return;
            live = m_table.masterIndex->find(change, -1);
            if (!live) {
                m_updates.push_back({Record(), fresh(change), {}});
                return;
            }
        }
        if (name(live)) {
            m_updates.push_back({live, change, written});
            return;
        }
        // Twice the same row: one update of all that both write, unless it is removed.
        if (auto *const first = const_cast<Update *>(updateOf(live)))
            PendingRow::copyChanges(first->change, first->written, change, written);
    }

    // A new row of what was written for one that is gone: what that one held beside is gone too.
    Record fresh(const Record &change) const
    {
        Record row(change.table());
        if (row.isNull())
            throw std::bad_alloc();
        const QList<int> keys = m_table.masterIndex->keyColumns();
        for (int column = 0; column < m_table.columns.size(); ++column) {
            if (keys.isEmpty() || keys.contains(column) || PendingRow::isMarked(change, column))
                row.copy(change, column, column);
        }
        return row;
    }

    TablePrivate &m_table;
    BatchLists &m_lists;
    std::vector<Update> m_updates;
    std::vector<Record> m_named;
};

/// Puts lists into the order of keys again, whichever keys changed or rows were exchanged.
void sortByKey(const MasterIndex &master, BatchLists &lists)
{
    const IndexSort::LessThan less(&master);
    for (QList<Record> *list : {&lists.inserted, &lists.removed}) {
        if (!std::is_sorted(list->cbegin(), list->cend(), less))
            std::stable_sort(list->begin(), list->end(), less);
    }
    if (std::is_sorted(lists.updated.cbegin(), lists.updated.cend(), less))
        return;
    std::vector<int> order(size_t(lists.updated.size()));
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = int(i);
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return less(lists.updated.at(a), lists.updated.at(b)); });
    BatchLists sorted;
    for (const int i : order) {
        sorted.updated.append(lists.updated.at(i));
        sorted.changed.append(lists.changed.at(i));
        sorted.written.push_back(lists.written[size_t(i)]);
    }
    lists.updated.swap(sorted.updated);
    lists.changed.swap(sorted.changed);
    lists.written.swap(sorted.written);
}

} // namespace

bool settleBatch(Table &table, BatchLists &lists, bool mayMeet)
{
    const auto areInTable = [](const QList<Record> &records) {
        for (int i = 0; i < records.size(); ++i) {
            if (i + kRowsAhead < records.size())
                prefetch(records.at(i + kRowsAhead).row());
            if (!(rowHeader(records.at(i).row())->flags & kRowInTable))
                return false;
        }
        return true;
    };
    if (!mayMeet && areInTable(lists.updated) && areInTable(lists.removed))
        return false;
    BatchSettler(table, lists).run();
    sortByKey(*table.masterIndex(), lists);
    return true;
}
