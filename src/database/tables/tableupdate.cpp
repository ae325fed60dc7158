// What a table does with its indexes: the registry, the update bracket and the passes of a batch.

#include "database/indexes/digestsort.h"
#include "database/indexes/index.h"
#include "database/indexes/indexlimit.h"
#include "database/indexes/scratchmemory.h"
#include "database/joins/tablejoin.h"
#include "database/services/concurrently.h"
#include "database/services/threadannotations.h"
#include "database/tables/columnspan.h"
#include "database/tables/firsterror.h"
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

/// What a batch of many rows works with: threads at hand, and memory that goes from one index to
/// the next.
struct Equipment {
    Equipment() { crew.call(); }

    Concurrently::Crew crew;
    ScratchMemory::Keep memory;
};

} // namespace

qint64 Table::m_nsecsElapsedTotal = 0;

// Registry ----------------------------------------------------------------------------------------

MasterIndex *Table::masterIndex() const
{
    return d->masterIndex.get();
}

void Table::setMasterIndex(MasterIndex *index)
{
    if (index != d->masterIndex.get())
        d->masterIndex.reset(index);
}

void Table::addIndex(Index *index)
{
    d->keepWalks();
    d->indexes.append(index);
    Q_EMIT indexAdded(index);
}

void Table::removeIndex(Index *index)
{
    d->keepWalks();
    d->indexes.removeOne(index);
    d->leaveWalks(index);
    const QString name = indexName(index);
    if (namedIndex(name) == index)
        d->indexNames.remove(name);
    d->findLimit();
    Q_EMIT indexRemoved(index);
}

void Table::addDependentIndex(Index *index)
{
    d->dependentIndexes.append(index);
    Q_EMIT dependentIndexAdded(index);
}

void Table::removeDependentIndex(Index *index)
{
    d->dependentIndexes.removeOne(index);
    Q_EMIT dependentIndexRemoved(index);
}

void Table::setIndexName(const QString &name, Index *index)
{
    d->indexNames.insert(name, index);
    d->findLimit();
}

Index *Table::namedIndex(const QString &name) const
{
    return d->indexNames.value(name, nullptr);
}

QString Table::indexName(Index *index) const
{
    return d->indexNames.key(index);
}

QList<Index *> Table::indexes() const
{
    return d->indexes;
}

QList<Index *> Table::dependentIndexes() const
{
    return d->dependentIndexes;
}

void Table::setIndexes(const QList<Index *> &indexes)
{
    const QList<Index *> before = d->indexes;
    d->keepWalks();
    d->indexes = indexes;
    for (Index *index : before) {
        if (!indexes.contains(index))
            d->leaveWalks(index);
    }
}

void Table::build()
{
    FirstError error;
    for (const bool joins : {true, false}) { // other indexes may sort by what a join supplies
        d->forEachIndex([&](Index *index) {
            if (TableJoin::isJoin(index) == joins)
                error.run([&] { index->build(); });
        });
    }
    error.rethrow();
}

// Update bracket ----------------------------------------------------------------------------------

void Table::lock()
{
    d->mutex.lock();
    annotateAcquire(&d->mutex);
}

void Table::unlock()
{
    annotateRelease(&d->mutex);
    d->mutex.unlock();
}

bool Table::tryLock(int timeoutMSecs)
{
    if (!d->mutex.tryLock(timeoutMSecs))
        return false;
    annotateAcquire(&d->mutex);
    return true;
}

void Table::beginUpdate()
{
    if (d->updateDepth.fetchAndAddOrdered(1) >= 1)
        return;
    const QList<Index *> dependents = d->dependentIndexes;
    int dependentsTold = 0;
    bool locked = false;
    bool masterTold = false;
    std::optional<TablePrivate::IndexWalk> walk;
    try {
        for (Index *index : dependents) {
            index->dependentBeginUpdate(this);
            ++dependentsTold;
        }
        lock();
        locked = true;
        d->masterIndex->beginUpdate();
        masterTold = true;
        walk.emplace(*d);
        while (Index *index = walk->next())
            index->beginUpdate();
    } catch (...) {
        // Closes what was opened, in the order of endUpdate(); the error that counts is the first.
        FirstError ignored;
        if (masterTold)
            ignored.run([&] { d->masterIndex->endUpdate(); });
        if (walk) {
            walk->turnBack();
            while (Index *index = walk->next())
                ignored.run([&] { index->endUpdate(); });
            walk.reset(); // while the registry is still this thread's
        }
        d->updateDepth.fetchAndSubOrdered(1);
        if (locked)
            unlock();
        for (int i = 0; i < dependentsTold; ++i)
            ignored.run([&] { dependents.at(i)->dependentEndUpdate(this); });
        throw;
    }
}

void Table::endUpdate()
{
    if (d->updateDepth.fetchAndSubOrdered(1) >= 2)
        return;
    FirstError error;
    error.run([&] { d->masterIndex->endUpdate(); });
    d->forEachIndex([&](Index *index) { error.run([&] { index->endUpdate(); }); });
    const QList<Index *> dependents = d->dependentIndexes;
    unlock();
    for (Index *index : dependents)
        error.run([&] { index->dependentEndUpdate(this); });
    error.rethrow();
}

// Batches -----------------------------------------------------------------------------------------

void Table::process(RecordsTrans &transaction)
{
    runTransaction([&] {
        if (d->transactionState != 0)
            d->pending.merge(transaction);
        else
            processSingleTransaction(transaction);
    });
}

void Table::process(const QList<Record> &updated, int first, int last, const QList<Record> &changed)
{
    Q_ASSERT(d->transactionState == 0);
    runTransaction([&] {
        QList<Record> removed;
        QList<Record> live = updated;
        processSingleTransaction(removed, live, first, last, {}, changed);
    });
}

// Times what run does and, unless a transaction is under way, runs the batches that came meanwhile.
template<class Run>
void Table::runTransaction(Run run)
{
    m_timer.start();
    FirstError error;
    error.run(run);
    while (d->transactionState == 0 && !d->pending.isEmpty()) {
        RecordsTrans next(this);
        next.swap(d->pending);
        error.run([&] { processSingleTransaction(next); });
    }
    const qint64 elapsed = m_timer.nsecsElapsed();
    m_nsecsElapsed += elapsed;
    m_nsecsElapsedTotal += elapsed;
    error.rethrow();
}

void Table::complete(const QList<Record> &updated, const QList<Record> &values, int &first,
                     int &last, const QList<Record> &inserted)
{
    d->forEachIndex([&](Index *index) { index->complete(updated, values, first, last, inserted); });
}

void Table::processSingleTransaction(RecordsTrans &transaction)
{
    const QPair<int, int> columns = transaction.columns();
    std::optional<Equipment> equipment;
    if (transaction.size() >= kSideBySide)
        equipment.emplace(); // threads wake up while the batch is sorted
    // Emptied before the passes: whatever an index throws, the batch is spent.
    RecordsTrans::Lists lists = transaction.take();
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
    TablePrivate::IndexWalk walk(table);
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
    if (auto *limit = dynamic_cast<IndexLimit *>(d->limit))
        limit->toRemove(inserted.size() - removed.size(), removed, updated);

    struct StateGuard {
        int &state;
        ~StateGuard() { state = 0; }
    } guard{d->transactionState};

    std::optional<Equipment> equipment;
    if (removed.size() + updated.size() + inserted.size() >= kSideBySide)
        equipment.emplace();
    d->transactionState = 1;
    complete(updated, changed, first, last, inserted);
    const int rows = rowsToShare(removed, updated, inserted);
    toEachIndex(
        *d, rows, [](const auto &step) { step(); },
        [&](Index *index) { index->preprocess(removed, updated, first, last, inserted, changed); },
        [] {});

    copyRows(updated, changed, ColumnSpan(d->columns, d->dataLength, first, last));

    FirstError error;
    error.run([&] { d->masterIndex->process(removed, updated, first, last, inserted); });
    d->transactionState = 2;
    toEachIndex(
        *d, rows, [&](const auto &step) { error.run(step); },
        [&](Index *index) { index->process(removed, updated, first, last, inserted); },
        [&] { freeRows(changed); });
    error.rethrow();
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
    return m_nsecsElapsedTotal;
}

decimal Table::percentElapsed() const
{
    const qint64 unit = m_nsecsElapsedTotal / 10000;
    return unit == 0 ? decimal() : decimal::fromParts(m_nsecsElapsed / unit, 2);
}
