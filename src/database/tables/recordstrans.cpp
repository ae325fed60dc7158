#include "database/tables/recordstrans.h"

#include "database/masterindex_struct.h"
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

void RecordsTrans::swap(RecordsTrans &other) noexcept
{
    Q_ASSERT(m_table == other.m_table);
    std::swap(m_first, other.m_first);
    std::swap(m_last, other.m_last);
    m_ops.swap(other.m_ops);
    m_changes.swap(other.m_changes);
}

QPair<int, int> RecordsTrans::columns() const
{
    if (m_first <= m_last)
        return {m_first, m_last};
    return {0, m_table->columnCount() - 1};
}

QList<Record> RecordsTrans::recordsOf(Kind kind) const
{
    QList<Record> records;
    for (const Op &op : m_ops) {
        if (op.kind == kind)
            records.append(op.record);
    }
    return records;
}

QList<Record> RecordsTrans::insertList() const
{
    return recordsOf(Inserted);
}

QList<Record> RecordsTrans::removeList() const
{
    return recordsOf(Removed);
}

QList<Record> RecordsTrans::updateList() const
{
    return recordsOf(Updated);
}

QList<Record> RecordsTrans::changeList() const
{
    QList<Record> records;
    records.reserve(m_changes.size());
    for (const Op &op : m_changes)
        records.append(op.record);
    return records;
}

RecordUpdater RecordsTrans::insertRow(const Record &row)
{
    RecordUpdater updater(this, row);
    updater.insertInMap(row);
    return updater;
}

RecordUpdater RecordsTrans::updateRow(const Record &live)
{
    RecordUpdater updater(this, live);
    updater.updateInMap();
    return updater;
}

void RecordsTrans::removeRow(const Record &live)
{
    mergeRemovedRow(live);
}

RecordUpdater RecordsTrans::upsertRow(const Record &keyRow)
{
    const MapKey key(keyRow);
    const auto entry = placeOf(m_ops, key);
    if (holds(m_ops, entry, key))
        return updateRow(entry->record);
    const Record live = m_table->masterIndex()->find(keyRow, -1);
    return live ? updateRow(live) : insertRow(keyRow.clone());
}

Record RecordsTrans::pendingUpdate(const Record &live)
{
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
    merge(other.removeList(), other.updateList(), range.first, range.second, other.insertList(),
          other.changeList());
    other.clear();
}

void RecordsTrans::execute()
{
    if (!m_ops.isEmpty())
        m_table->process(*this);
}

void RecordsTrans::clear()
{
    m_ops.clear();
    m_changes.clear();
    m_first = kNoFirst;
    m_last = kNoLast;
}

void RecordsTrans::widen(int first, int last)
{
    m_first = qMin(m_first, qMax(first, 0));
    m_last = qMax(m_last, last < 0 ? m_table->columnCount() - 1 : last);
}

void RecordsTrans::removePending(const Record &pending)
{
    const MapKey key(pending);
    const auto entry = m_ops.find(key);
    if (entry == m_ops.end())
        return;
    if (entry->kind == Inserted)
        m_ops.erase(entry);
    else
        mergeRemovedRow(pending);
}
