#include "database/tables/recordstrans.h"

#include "database/masterindex_struct.h"
#include "database/tables/arrivallist.h"
#include "database/tables/table.h"

#include <limits>

namespace
{
constexpr qint32 kNoFirst = std::numeric_limits<qint32>::max();
constexpr qint32 kNoLast = -1;

using Ops = QMap<RecordsTrans::MapKey, RecordsTrans::Op>;

// The entry of a key, or the place where it belongs. Comparing keys is what filling a batch costs,
// and batches often arrive in key order: behind the last entry is looked first.
Ops::iterator placeOf(Ops &ops, const RecordsTrans::MapKey &key)
{
    return ops.isEmpty() || ops.lastKey() < key ? ops.end() : ops.lowerBound(key);
}

bool holds(const Ops &ops, Ops::const_iterator place, const RecordsTrans::MapKey &key)
{
    return place != ops.cend() && !(key < place.key());
}

void enter(Ops &ops, const RecordsTrans::MapKey &key, const RecordsTrans::Op &op)
{
    const Ops::iterator place = placeOf(ops, key);
    if (holds(ops, place, key))
        *place = op;
    else
        ops.insert(place, key, op);
}

} // namespace

bool operator<(const RecordsTrans::MapKey &a, const RecordsTrans::MapKey &b)
{
    return a.m_record.table()->masterIndex()->compare(a.m_record, b.m_record) < 0;
}

RecordsTrans::RecordsTrans(Table *table)
    : m_first(kNoFirst)
    , m_last(kNoLast)
    , m_table(table)
{
}

RecordsTrans::~RecordsTrans() = default;

void RecordsTrans::swap(RecordsTrans &other) noexcept
{
    Q_ASSERT(m_table == other.m_table);
    std::swap(m_first, other.m_first);
    std::swap(m_last, other.m_last);
    m_ops.swap(other.m_ops);
    m_changes.swap(other.m_changes);
    m_arrivals.swap(other.m_arrivals);
}

QPair<int, int> RecordsTrans::columns() const
{
    if (m_first <= m_last)
        return {m_first, m_last};
    return {0, lastColumn()};
}

int RecordsTrans::lastColumn() const
{
    return m_table->columnCount() - 1;
}

// Entries ----------------------------------------------------------------------------------------

int RecordsTrans::size() const
{
    return m_arrivals ? int(m_arrivals->entries().size()) : m_ops.size();
}

// Where a new key goes first; null when it goes into the maps.
ArrivalList *RecordsTrans::arrivals()
{
    if (!m_arrivals && m_ops.isEmpty())
        m_arrivals = ArrivalList::make(*m_table);
    return m_arrivals.get();
}

// Enters an operation on a key that the batch does not hold. Otherwise, false, the operation is to
// be folded into what stands in the maps.
bool RecordsTrans::arrives(const Record &record, Kind kind, const Record &change)
{
    ArrivalList *const list = arrivals();
    if (!list)
        return false;
    const auto [entry, isNew] = list->enter(record, kind);
    if (isNew)
        entry->change = change;
    else
        settle();
    return isNew;
}

void RecordsTrans::settle()
{
    if (!m_arrivals)
        return;
    QMap<MapKey, Op> ops, changes;
    m_arrivals->forEachByKey([&](const ArrivalList::Entry &entry) {
        const MapKey key(entry.record);
        ops.insert(ops.cend(), key, {entry.record, entry.kind});
        if (entry.kind == Updated)
            changes.insert(changes.cend(), key, {entry.change, Updated});
    });
    m_ops.swap(ops);
    m_changes.swap(changes);
    m_arrivals.reset();
}

// The lists of a batch; put(list, handle) adds to one of them, by a copy or by a move.
template<class Batch, class Put>
RecordsTrans::Lists RecordsTrans::gather(Batch &batch, Put put)
{
    Lists lists;
    QList<Record> *const ofKind[] = {nullptr, &lists.inserted, &lists.removed, &lists.updated};
    const auto reserve = [&](const auto &entries) {
        int counts[Updated + 1] = {};
        for (const auto &entry : entries)
            ++counts[entry.kind];
        for (const Kind kind : {Inserted, Removed, Updated})
            ofKind[kind]->reserve(counts[kind]);
        lists.changed.reserve(counts[Updated]);
    };
    if (batch.m_arrivals) { // invariant (3)
        reserve(batch.m_arrivals->entries());
        batch.m_arrivals->forEachByKey([&](ArrivalList::Entry &entry) {
            put(*ofKind[entry.kind], entry.record);
            if (entry.kind == Updated)
                put(lists.changed, entry.change);
        });
        return lists;
    }
    reserve(qAsConst(batch.m_ops));
    for (auto &op : batch.m_ops)
        put(*ofKind[op.kind], op.record);
    for (auto &op : batch.m_changes)
        put(lists.changed, op.record);
    return lists;
}

RecordsTrans::Lists RecordsTrans::lists() const
{
    return gather(*this, [](QList<Record> &list, const Record &record) { list.append(record); });
}

// Moves all entries out and clears the batch.
RecordsTrans::Lists RecordsTrans::take()
{
    // A handle that is swapped in keeps its count.
    Lists lists = gather(*this, [](QList<Record> &list, Record &record) {
        list.append(Record());
        list.last().swap(record);
    });
    clear();
    return lists;
}

QList<Record> RecordsTrans::insertList() const
{
    return lists().inserted;
}

QList<Record> RecordsTrans::removeList() const
{
    return lists().removed;
}

QList<Record> RecordsTrans::updateList() const
{
    return lists().updated;
}

QList<Record> RecordsTrans::changeList() const
{
    return lists().changed;
}

// Operations -------------------------------------------------------------------------------------

RecordUpdater RecordsTrans::insertRow(const Record &row)
{
    mergeInsertedRow(row);
    return RecordUpdater(this, row);
}

RecordUpdater RecordsTrans::updateRow(const Record &live)
{
    return RecordUpdater(this, pendingUpdate(live));
}

void RecordsTrans::removeRow(const Record &live)
{
    mergeRemovedRow(live);
}

RecordUpdater RecordsTrans::upsertRow(const Record &keyRow)
{
    if (m_arrivals) {
        if (const ArrivalList::Entry *entry = m_arrivals->find(keyRow))
            return updateRow(Record(entry->record));
    } else {
        const MapKey key(keyRow);
        const auto entry = placeOf(m_ops, key);
        if (holds(m_ops, entry, key))
            return updateRow(entry->record);
    }
    const Record live = m_table->masterIndex()->find(keyRow, -1);
    return live ? updateRow(live) : insertRow(keyRow.clone());
}

Record RecordsTrans::pendingUpdate(const Record &live)
{
    if (ArrivalList *const list = arrivals()) {
        const auto [entry, isNew] = list->enter(live, Updated);
        if (isNew)
            entry->change = live.clone();
        if (entry->kind == Updated)
            return entry->change;
        if (entry->kind == Inserted)
            return entry->record;
        settle();
    }
    const MapKey key(live);
    const auto entry = placeOf(m_ops, key);
    if (!holds(m_ops, entry, key)) {
        Record copy = live.clone();
        enter(m_changes, key, {copy, Updated});
        m_ops.insert(entry, key, {live, Updated});
        return copy;
    }
    switch (entry->kind) {
    case Inserted:
        return entry->record;
    case Updated:
        return m_changes.find(key)->record;
    case Removed:
        break;
    }
    Record copy = entry->record.clone();
    enter(m_changes, key, {copy, Updated});
    entry->kind = Updated;
    return copy;
}

void RecordsTrans::mergeInsertedRow(const Record &row)
{
    if (arrives(row, Inserted, Record()))
        return;
    const MapKey key(row);
    auto place = placeOf(m_ops, key);
    if (holds(m_ops, place, key)) {
        if (place->kind == Updated)
            m_changes.remove(key);
        // Erased rather than overwritten: the key has to refer to the row that stays.
        place = m_ops.erase(place);
    }
    m_ops.insert(place, key, {row, Inserted});
}

void RecordsTrans::mergeRemovedRow(const Record &row)
{
    if (arrives(row, Removed, Record()))
        return;
    const MapKey key(row);
    const auto entry = placeOf(m_ops, key);
    if (!holds(m_ops, entry, key)) {
        m_ops.insert(entry, key, {row, Removed});
        return;
    }
    if (entry->kind == Updated)
        m_changes.remove(key);
    entry->kind = Removed;
}

void RecordsTrans::mergeUpdatedRow(const Record &live, const Record &changed, int first, int last)
{
    if (arrives(live, Updated, changed)) {
        widen(first, last);
        return;
    }
    const MapKey key(live);
    const auto entry = placeOf(m_ops, key);
    const bool found = holds(m_ops, entry, key);
    if (found && entry->kind == Inserted)
        return;
    widen(first, last);
    if (found && entry->kind == Updated) {
        m_changes.find(key)->record.copy(changed, first, last);
        return;
    }
    enter(m_changes, key, {changed, Updated});
    if (found)
        entry->kind = Updated;
    else
        m_ops.insert(entry, key, {live, Updated});
}

void RecordsTrans::merge(const QList<Record> &removed, const QList<Record> &updated, int first,
                         int last, const QList<Record> &inserted, const QList<Record> &changed)
{
    for (const Record &record : removed)
        mergeRemovedRow(record);
    const int pairs = qMin(updated.size(), changed.size());
    for (int i = 0; i < pairs; ++i)
        mergeUpdatedRow(updated.at(i), changed.at(i), first, last);
    for (const Record &record : inserted)
        mergeInsertedRow(record);
    if (!changed.isEmpty())
        widen(first, last);
}

void RecordsTrans::merge(RecordsTrans &other)
{
    if (&other == this)
        return;
    const QPair<int, int> range = other.columns();
    const Lists lists = other.lists();
    merge(lists.removed, lists.updated, range.first, range.second, lists.inserted, lists.changed);
    other.clear();
}

void RecordsTrans::execute()
{
    if (!isEmpty())
        m_table->process(*this);
}

void RecordsTrans::clear()
{
    m_arrivals.reset();
    m_ops.clear();
    m_changes.clear();
    m_first = kNoFirst;
    m_last = kNoLast;
}

void RecordsTrans::removePending(const Record &pending)
{
    settle();
    const MapKey key(pending);
    const auto entry = m_ops.find(key);
    if (entry == m_ops.end())
        return;
    if (entry->kind == Inserted)
        m_ops.erase(entry);
    else
        mergeRemovedRow(pending);
}
