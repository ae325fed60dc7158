// How changes of rows reach a table's indexes: direct calls and the passes of a batch.

#include "database/indexes/digestsort.h"
#include "database/indexes/index.h"
#include "database/indexes/indexlimit.h"
#include "database/indexes/scratchmemory.h"
#include "database/indexes/tablelocker.h"
#include "database/services/concurrently.h"
#include "database/tables/columnspan.h"
#include "database/tables/firsterror.h"
#include "database/tables/pendingrow.h"
#include "database/tables/table.h"
#include "database/tables/tableprivate.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace
{

// From so many rows on a batch is worth waking other threads for.
constexpr int kSideBySide = 512;

// Rows lie anywhere in memory, so they are asked for some steps ahead.
constexpr int kRowsAhead = 8;

// Copies columns of the i-th row of one list to the i-th of the other. No two threads write the
// same row, since a batch holds it once.
void copyRows(const QList<Record> &to, const QList<Record> &from, const ColumnSpan &span)
{
    const int pairs = qMin(to.size(), from.size());
    Concurrently::forStretches(pairs, [&](int first, int last) {
        for (int i = first; i < last; ++i) {
            if (i + kRowsAhead < last) {
                span.prefetch(to.at(i + kRowsAhead).row());
                span.prefetch(from.at(i + kRowsAhead).row());
            }
            if (to.at(i) && from.at(i) && to.at(i) != from.at(i))
                span.copy(to.at(i).row(), from.at(i).row());
        }
    });
}

// Lets go of rows that the table keeps: each is visited to count it down.
void release(QList<Record> &records)
{
    if (records.isEmpty() || !records.isDetached()) // an index may have kept the list
        return;
    Record *const record = &records.first(); // lists of records are lists of pointers
    try {
        Concurrently::forStretches(records.size(), [=](int first, int last) {
            for (int i = first; i < last; ++i) {
                if (i + kRowsAhead < last)
                    prefetch(record[i + kRowsAhead].row());
                Record().swap(record[i]);
            }
        });
    } catch (const std::bad_alloc &) {
        // The list lets go of them.
    }
}

// Brings handles that nobody else holds into the order of the rows' addresses. Freed at random, a
// block's neighbours in memory would have to be fetched for it.
void sortByAddress(QList<Record> &rows)
{
    struct Handle {
        quint64 digest; // the address
    };
    static_assert(sizeof(Handle) == sizeof(Record), "sorted as numbers, not counted");
    void *const handles = &rows.first();
    const size_t size = size_t(rows.size()) * sizeof(Handle);
    ScratchVector<Handle> sorted(static_cast<size_t>(rows.size())), buffer;
    std::memcpy(sorted.data(), handles, size);
    sortByDigests(sorted, buffer);
    std::memcpy(handles, sorted.data(), size);
}

void freeRows(QList<Record> &rows)
{
    constexpr int kMany = 1024;
    if (rows.size() >= kMany && rows.isDetached() && !std::is_sorted(rows.cbegin(), rows.cend())) {
        try {
            sortByAddress(rows);
        } catch (const std::bad_alloc &) {
            // They are freed in any order.
        }
    }
    rows.clear();
}

/// Marks a transaction as under way.
class StateGuard
{
public:
    StateGuard(int &state, int value)
        : m_state(state)
    {
        m_state = value;
    }
    ~StateGuard() { m_state = 0; }
    StateGuard(const StateGuard &) = delete;
    StateGuard &operator=(const StateGuard &) = delete;

private:
    int &m_state;
};

/// What a batch of many rows works with: threads at hand, and memory that goes from one index to
/// the next.
struct Equipment {
    Equipment() { crew.call(); }

    Concurrently::Crew crew;
    ScratchMemory::Keep memory;
};

} // namespace

std::atomic<qint64> Table::m_nsecsElapsedTotal{0};

// Direct calls ------------------------------------------------------------------------------------

// A direct call is a transaction as well: what indexes submit meanwhile waits for its end.
template<class Run>
void Table::runDirectly(Run run)
{
    FirstError error;
    error.run([&] {
        const StateGuard guard(d->transactionState, 2);
        run();
    });
    drain(error);
    error.rethrow();
}

void Table::appendRow()
{
    const Record record(this);
    Q_CHECK_PTR(record.row());
    appendRow(record.row());
}

void Table::appendRow(uchar *row)
{
    appendList({Record(row)});
}

void Table::appendList(const QList<Record> &records)
{
    const TableLocker locker(*this);
    if (d->transactionState != 0) {
        for (const Record &record : records)
            d->queued.push_back({record, true});
        return;
    }
    runDirectly([&] {
        completeInserted(records);
        FirstError error;
        for (const Record &record : records)
            error.run([&] { addToIndexes(record); });
        error.rethrow();
    });
}

void Table::completeInserted(const QList<Record> &records)
{
    if (d->indexes.list().isEmpty())
        return;
    int first = 0;
    int last = -1;
    complete({}, {}, first, last, records);
}

void Table::addToIndexes(const Record &record)
{
    d->masterIndex->add(record); // where that fails no other index holds a row without a table
    rowHeader(record.row())->flags = kRowInTable;
    d->noteRows();
    FirstError error;
    d->forEachIndex([&](Index *index) {
        error.run([&] {
            if (index->filter(record))
                index->add(record);
        });
    });
    error.rethrow();
}

void Table::takeFromIndexes(const Record &record, int hint)
{
    FirstError error;
    d->forEachIndex([&](Index *index) { error.run([&] { index->remove(record, -1); }); });
    error.run([&] { d->masterIndex->remove(record, hint); });
    rowHeader(record.row())->flags = 0;
    d->noteRows();
    error.rethrow();
}

void Table::updated(const Record &record, int first, int last, int hint)
{
    refuseInside("updated");
    const TableLocker locker(*this);
    // The argument may lie in an index that moves it.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    d->noteValues(); // they were written before
    runDirectly([&] {
        complete({kept}, {kept}, first, last, {});
        FirstError error;
        error.run([&] { d->masterIndex->update(kept, first, last, hint); });
        if (changesKey(first, last))
            d->noteRows();
        d->forEachIndex(
            [&](Index *index) { error.run([&] { index->update(kept, first, last, -1); }); });
        error.rethrow();
    });
}

void Table::updatedRow(int row)
{
    updated(at(row), 0, columnCount() - 1, -1);
}

void Table::remove(const Record &record, int hint)
{
    const TableLocker locker(*this);
    // The argument may lie in an index that lets go of it.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    if (d->transactionState != 0)
        d->queued.push_back({kept, false});
    else
        runDirectly([&] { takeFromIndexes(kept, hint); });
}

void Table::clear()
{
    refuseInside("clear");
    const TableLocker locker(*this);
    runDirectly([&] {
        FirstError error;
        d->forEachIndex([&](Index *index) { error.run([&] { index->clear(); }); });
        for (const Record &record : *d->masterIndex)
            rowHeader(record.row())->flags = 0;
        d->noteRows();
        error.run([&] { d->masterIndex->clear(); });
        error.rethrow();
    });
}

void Table::rebuild()
{
    refuseInside("rebuild");
    const TableLocker locker(*this);
    FirstError error;
    error.run([&] { d->masterIndex->resort(); });
    for (const Record &record : *d->masterIndex)
        rowHeader(record.row())->flags = kRowInTable;
    d->noteRows();
    d->forEachIndex([&](Index *index) { error.run([&] { index->clear(); }); });
    error.run([&] { build(); });
    error.rethrow();
}

bool TablePrivate::isLive(const Record &record) const
{
    quint32 &flags = rowHeader(record.row())->flags;
    if (!(flags & kRowInTable) && masterIndex->contains(record))
        flags |= kRowInTable;
    return flags & kRowInTable;
}

// Batches -----------------------------------------------------------------------------------------

// What a table refuses while it is inside a transaction of its own, in the thread that runs it.
void Table::refuseInside(const char *call) const
{
    if (d->isMine() && d->transactionState != 0)
        throw QStringLiteral("Table '%1': %2 can't be called inside a transaction of the table.")
            .arg(d->name, QLatin1String(call));
}

void Table::process(RecordsTrans &transaction)
{
    const TableLocker locker(*this);
    if (d->transactionState != 0) {
        d->pending.merge(transaction);
        return;
    }
    runTransaction([&] { processSingleTransaction(transaction); });
}

void Table::process(const QList<Record> &updated, int first, int last, const QList<Record> &changed)
{
    refuseInside("process");
    const TableLocker locker(*this);
    runTransaction([&] {
        QList<Record> removed;
        QList<Record> live = updated;
        processSingleTransaction(removed, live, first, last, {}, changed);
    });
}

// Times what run does and what it leaves in the queue. Transactions inside are part of that.
template<class Run>
void Table::runTransaction(Run run)
{
    m_timer.start();
    FirstError error;
    error.run(run);
    drain(error);
    const qint64 elapsed = m_timer.nsecsElapsed();
    m_nsecsElapsed += elapsed;
    m_nsecsElapsedTotal.fetch_add(elapsed, std::memory_order_relaxed);
    error.rethrow();
}

// Runs what came while a transaction was under way.
void Table::drain(FirstError &error)
{
    while (!d->pending.isEmpty() || !d->queued.empty()) {
        if (!d->pending.isEmpty()) {
            RecordsTrans next(this);
            next.swap(d->pending);
            error.run([&] { processSingleTransaction(next); });
            continue;
        }
        for (const TablePrivate::Queued &each : std::exchange(d->queued, {})) {
            error.run([&] {
                const StateGuard guard(d->transactionState, 2);
                if (each.comes)
                    addToIndexes(each.record);
                else
                    takeFromIndexes(each.record, -1);
            });
        }
    }
}

void Table::complete(const QList<Record> &updated, const QList<Record> &values, int &first,
                     int &last, const QList<Record> &inserted)
{
    d->forEachIndex([&](Index *index) { index->complete(updated, values, first, last, inserted); });
}

void Table::processSingleTransaction(RecordsTrans &transaction)
{
    transaction.checkLayout();
    const QPair<int, int> columns = transaction.columns();
    const bool mayMeet = transaction.mayMeet();
    const bool mayBeStale = transaction.mayBeStale();
    std::optional<Equipment> equipment;
    if (transaction.size() >= kSideBySide)
        equipment.emplace(); // threads wake up while the batch is sorted
    // Emptied before the passes: whatever an index throws, the batch is spent.
    BatchLists lists = transaction.take();
    const bool isSettled = settleBatch(*this, lists, mayMeet);
    completeFromLive(*this, lists, mayBeStale || isSettled);
    processSingleTransaction(lists.removed, lists.updated, columns.first, columns.second,
                             lists.inserted, std::move(lists.changed));
    release(lists.updated);
}

namespace
{

// The rows of a batch that indexes may take side by side, or none: where rows come, what indexes
// allocate is there to stay, and threads would take it from memory of their own each.
int rowsToShare(const QList<Record> &removed, const QList<Record> &updated,
                const QList<Record> &inserted)
{
    return inserted.isEmpty() ? removed.size() + updated.size() : 0;
}

/// Takes a batch of so many rows to every secondary index: in the order of registration, but
/// independent ones that follow each other side by side. Does something else meanwhile, \p beside,
/// that no index depends on. \p pass must bear what call throws.
template<class Pass, class Call, class Beside>
void toEachIndex(TablePrivate &table, int rows, Pass pass, Call call, Beside beside)
{
    std::vector<Index *> together;
    bool isBesideDone = false;
    const auto takeTogether = [&] {
        if (together.size() == 1)
            pass([&] { call(together.front()); });
        else if (!together.empty())
            pass([&] {
                const int n = int(together.size());
                const auto each = [&](int i) {
                    if (i < n)
                        call(together[size_t(i)]);
                    else
                        beside();
                };
                const int more = std::exchange(isBesideDone, true) ? 0 : 1;
                Concurrently::forEach(n + more, each, Concurrently::share);
            });
        together.clear();
    };
    IndexRegistry::Walk walk(table.indexes);
    while (Index *index = walk.next()) {
        if (rows >= kSideBySide && index->isIndependent()) {
            together.push_back(index);
            continue;
        }
        takeTogether();
        pass([&] { call(index); });
    }
    takeTogether();
    if (!isBesideDone)
        beside();
}

} // namespace

void Table::processSingleTransaction(QList<Record> &removed, QList<Record> &updated, int first,
                                     int last, const QList<Record> &inserted, QList<Record> changed)
{
    const StateGuard guard(d->transactionState, 1);
    if (auto *limit = dynamic_cast<IndexLimit *>(d->limit))
        limit->toRemove(inserted.size() - removed.size(), removed, updated);

    std::optional<Equipment> equipment;
    if (removed.size() + updated.size() + inserted.size() >= kSideBySide)
        equipment.emplace();
    complete(updated, changed, first, last, inserted);
    const int rows = rowsToShare(removed, updated, inserted);
    toEachIndex(
        *d, rows, [](const auto &step) { step(); },
        [&](Index *index) { index->preprocess(removed, updated, first, last, inserted, changed); },
        [] {});

    copyRows(updated, changed, ColumnSpan(d->columns, d->dataLength, first, last));
    if (!updated.isEmpty())
        d->noteValues();

    FirstError error;
    error.run([&] { d->masterIndex->process(removed, updated, first, last, inserted); });
    noteChange(removed, first, last, updated, inserted, error.caught());
    d->transactionState = 2;
    toEachIndex(
        *d, rows, [&](const auto &step) { error.run(step); },
        [&](Index *index) { index->process(removed, updated, first, last, inserted); },
        [&] { freeRows(changed); });
    error.rethrow();
}

// Keeps the flags of rows in step with the master index, and the count of what batches look up.
void Table::noteChange(const QList<Record> &removed, int first, int last,
                       const QList<Record> &updated, const QList<Record> &inserted, bool failed)
{
    for (const Record &record :
         inserted) // one that the master index refused is no row of the table
        rowHeader(record.row())->flags =
            !failed || d->masterIndex->contains(record) ? quint32(kRowInTable) : 0;
    for (const Record &record : removed)
        rowHeader(record.row())->flags = 0;
    if (!removed.isEmpty() || !inserted.isEmpty() ||
        (!updated.isEmpty() && changesKey(first, last)))
        d->noteRows();
}

bool Table::changesKey(int first, int last) const
{
    const QList<int> keys = d->masterIndex->keyColumns();
    return keys.isEmpty() || std::any_of(keys.begin(), keys.end(), [=](int column) {
               return column >= first && (last < 0 || column <= last);
           });
}

int Table::transactionState() const
{
    return d->transactionState;
}

// Time --------------------------------------------------------------------------------------------

qint64 Table::nsecsElapsed() const
{
    return m_nsecsElapsed;
}

void Table::setNsecsElapsed(const qint64 &nsecs)
{
    m_nsecsElapsed = nsecs;
}

qint64 Table::nsecsElapsedTotal()
{
    return m_nsecsElapsedTotal.load(std::memory_order_relaxed);
}

decimal Table::percentElapsed() const
{
    const qint64 unit = nsecsElapsedTotal() / 10000;
    return unit == 0 ? decimal() : decimal::fromParts(m_nsecsElapsed / unit, 2);
}
