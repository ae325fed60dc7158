#include "database/tables/recordstrans.h"

#include "database/masterindex_struct.h"
#include "database/tables/arrivallist.h"
#include "database/tables/pendingrow.h"
#include "database/tables/table.h"
#include "database/tables/tableprivate.h"

#include <QtCore/qdebug.h>

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

// Where all rows have one key, rows that are not the same fold into each other all the same.
void warnWithoutKey(Table &table, const Record &one, const Record &other)
{
    if (one == other || !dynamic_cast<const MasterIndexOrdered *>(table.masterIndex()) ||
        TablePrivate::of(table).isKeyMissed.exchange(true))
        return;
    qWarning("Table '%s' has no key: the rows of a batch fold into one", qPrintable(table.name()));
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

RecordsTrans::RecordsTrans(RecordsTrans &&other) noexcept
    : RecordsTrans(other.m_table)
{
    swap(other);
}

RecordsTrans &RecordsTrans::operator=(RecordsTrans &&other) noexcept
{
    RecordsTrans taken(std::move(other));
    m_table = taken.m_table;
    swap(taken);
    return *this;
}

void RecordsTrans::swap(RecordsTrans &other) noexcept
{
    Q_ASSERT(m_table == other.m_table);
    std::swap(m_first, other.m_first);
    std::swap(m_last, other.m_last);
    m_ops.swap(other.m_ops);
    m_changes.swap(other.m_changes);
    m_arrivals.swap(other.m_arrivals);
    std::swap(m_version, other.m_version);
    std::swap(m_values, other.m_values);
    std::swap(m_layout, other.m_layout);
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

/// The entry of a key, in whichever container; it has no kind where there is none.
struct RecordsTrans::Entry {
    Record *record = nullptr;
    Record *change = nullptr; // null unless it is an update
    Kind *kind = nullptr;
    PendingRow::Range written; // of the change
    qint32 *first = nullptr;   // where that is kept
    qint32 *last = nullptr;

    explicit operator bool() const { return kind; }
    void setWritten(PendingRow::Range range)
    {
        *first = range.first;
        *last = range.last;
    }
};

int RecordsTrans::size() const
{
    return m_arrivals ? int(m_arrivals->entries().size()) : m_ops.size();
}

// Called before a record enters.
void RecordsTrans::begin(const Record &record, const char *call)
{
    if (record.isNull())
        throw QStringLiteral("Table '%1': %2 was given a null record.")
            .arg(m_table->name(), QLatin1String(call));
    if (record.table() != m_table)
        throw QStringLiteral("Table '%1': %2 was given the row '%3' of table '%4'.")
            .arg(m_table->name(), QLatin1String(call), record.toString(), record.table()->name());
    const TablePrivate &table = TablePrivate::of(*m_table);
    if (isEmpty()) {
        m_version = table.version.load(std::memory_order_relaxed);
        m_values = table.values.load(std::memory_order_relaxed);
        m_layout = table.layout.load(std::memory_order_relaxed);
    }
    checkLayout();
}

void RecordsTrans::checkLayout() const
{
    if (!isEmpty() && m_layout != TablePrivate::of(*m_table).layout.load(std::memory_order_relaxed))
        throw QStringLiteral("A column was added to table '%1' while a batch of it was being "
                             "filled: clear the batch and fill it again.")
            .arg(m_table->name());
}

// Whether rows came or went, or keys changed, since the first entry came.
bool RecordsTrans::mayMeet() const
{
    return m_version != TablePrivate::of(*m_table).version.load(std::memory_order_relaxed);
}

// Whether values changed since the first entry came.
bool RecordsTrans::mayBeStale() const
{
    return m_values != TablePrivate::of(*m_table).values.load(std::memory_order_relaxed);
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
bool RecordsTrans::arrives(const Record &record, Kind kind, const Record &change, int first,
                           int last)
{
    ArrivalList *const list = arrivals();
    if (!list)
        return false;
    const auto [entry, isNew] = list->enter(record, kind);
    if (isNew) {
        entry->change = change;
        entry->first = first;
        entry->last = last;
    } else {
        settle();
    }
    return isNew;
}

RecordsTrans::Entry RecordsTrans::find(const Record &row)
{
    Entry found;
    if (m_arrivals) {
        if (ArrivalList::Entry *const entry = m_arrivals->find(row)) {
            found = {&entry->record, entry->kind == Updated ? &entry->change : nullptr,
                     &entry->kind,   {entry->first, entry->last},
                     &entry->first,  &entry->last};
        }
        return found;
    }
    const MapKey key(row);
    const auto op = placeOf(m_ops, key);
    if (!holds(m_ops, op, key))
        return found;
    found.record = &op->record;
    found.kind = &op->kind;
    if (op->kind == Updated) {
        Op &change = *m_changes.find(key);
        found.change = &change.record;
        found.written = {change.first, change.last};
        found.first = &change.first;
        found.last = &change.last;
    }
    return found;
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
            changes.insert(changes.cend(), key, {entry.change, Updated, entry.first, entry.last});
    });
    m_ops.swap(ops);
    m_changes.swap(changes);
    m_arrivals.reset();
}

// The lists of a batch; put(list, handle) adds to one of them, by a copy or by a move.
template<class Batch, class Put>
BatchLists RecordsTrans::gather(Batch &batch, Put put)
{
    BatchLists lists;
    QList<Record> *const ofKind[] = {nullptr, &lists.inserted, &lists.removed, &lists.updated};
    const auto reserve = [&](const auto &entries) {
        int counts[Updated + 1] = {};
        for (const auto &entry : entries)
            ++counts[entry.kind];
        for (const Kind kind : {Inserted, Removed, Updated})
            ofKind[kind]->reserve(counts[kind]);
        lists.changed.reserve(counts[Updated]);
        lists.written.reserve(size_t(counts[Updated]));
    };
    if (batch.m_arrivals) { // invariant (3)
        reserve(batch.m_arrivals->entries());
        batch.m_arrivals->forEachByKey([&](ArrivalList::Entry &entry) {
            put(*ofKind[entry.kind], entry.record);
            if (entry.kind == Updated) {
                put(lists.changed, entry.change);
                lists.written.push_back({entry.first, entry.last});
            }
        });
        return lists;
    }
    reserve(qAsConst(batch.m_ops));
    for (auto &op : batch.m_ops)
        put(*ofKind[op.kind], op.record);
    for (auto &op : batch.m_changes) {
        put(lists.changed, op.record);
        lists.written.push_back({op.first, op.last});
    }
    return lists;
}

BatchLists RecordsTrans::lists() const
{
    return gather(*this, [](QList<Record> &list, const Record &record) { list.append(record); });
}

// Moves all entries out and clears the batch.
BatchLists RecordsTrans::take()
{
    // A handle that is swapped in keeps its count.
    BatchLists lists = gather(*this, [](QList<Record> &list, Record &record) {
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
    begin(row, "insertRow");
    if (arrives(row, Inserted, Record(), 0, -1))
        return RecordUpdater(this, row);
    const Entry entry = find(row);
    if (entry && *entry.kind != Inserted)
        return replace(entry, row);
    insert(row);
    return RecordUpdater(this, row);
}

RecordUpdater RecordsTrans::updateRow(const Record &live)
{
    begin(live, "updateRow");
    return RecordUpdater(this, pendingUpdate(live));
}

void RecordsTrans::removeRow(const Record &live)
{
    begin(live, "removeRow");
    mergeRemovedRow(live);
}

RecordUpdater RecordsTrans::upsertRow(const Record &keyRow)
{
    begin(keyRow, "upsertRow");
    const Entry entry = find(keyRow);
    if (entry && *entry.kind == Removed)
        return replace(entry, keyRow);
    if (entry)
        return RecordUpdater(this,
                             entry.change ? pendingUpdate(Record(*entry.record)) : *entry.record);
    const Record live = m_table->masterIndex()->find(keyRow, -1);
    Record pending;
    if (live) {
        pending = pendingUpdate(live);
    } else {
        pending = PendingRow::clone(keyRow);
        insert(pending);
    }
    rowHeader(pending.row())->flags |= kRowUpserted;
    return RecordUpdater(this, pending);
}

// A removal or an update of a live row becomes an update of all its columns; should that row be
// gone when the batch runs, a new one comes in its place.
RecordUpdater RecordsTrans::replace(const Entry &entry, const Record &row)
{
    const Record live = *entry.record;
    Record pending = PendingRow::clone(row);
    PendingRow::mark(pending, 0, lastColumn());
    rowHeader(pending.row())->flags |= kRowUpserted;
    settle();
    const MapKey key(live);
    enter(m_changes, key, {pending, Updated});
    m_ops.find(key)->kind = Updated;
    widen(0, -1);
    return RecordUpdater(this, pending);
}

Record RecordsTrans::pendingUpdate(const Record &live)
{
    if (ArrivalList *const list = arrivals()) {
        const auto [entry, isNew] = list->enter(live, Updated);
        if (isNew)
            entry->change = PendingRow::clone(live);
        if (entry->kind == Updated) {
            PendingRow::track(entry->change, {entry->first, entry->last});
            return entry->change;
        }
        if (entry->kind == Inserted)
            return entry->record;
        settle();
    }
    const MapKey key(live);
    const auto entry = placeOf(m_ops, key);
    if (!holds(m_ops, entry, key)) {
        Record copy = PendingRow::clone(live);
        enter(m_changes, key, {copy, Updated});
        m_ops.insert(entry, key, {live, Updated});
        return copy;
    }
    switch (entry->kind) {
    case Inserted:
        return entry->record;
    case Updated: {
        Op &change = *m_changes.find(key);
        PendingRow::track(change.record, {change.first, change.last});
        return change.record;
    }
    case Removed:
        break;
    }
    Record copy = PendingRow::clone(entry->record);
    enter(m_changes, key, {copy, Updated});
    entry->kind = Updated;
    return copy;
}

void RecordsTrans::mergeInsertedRow(const Record &row)
{
    begin(row, "mergeInsertedRow");
    insert(row);
}

void RecordsTrans::insert(const Record &row)
{
    if (arrives(row, Inserted, Record(), 0, -1))
        return;
    const MapKey key(row);
    auto place = placeOf(m_ops, key);
    if (holds(m_ops, place, key)) {
        warnWithoutKey(*m_table, place->record, row);
        if (place->kind == Updated)
            m_changes.remove(key);
        // Erased rather than overwritten: the key has to refer to the row that stays.
        place = m_ops.erase(place);
    }
    m_ops.insert(place, key, {row, Inserted});
}

void RecordsTrans::mergeRemovedRow(const Record &row)
{
    begin(row, "mergeRemovedRow");
    if (arrives(row, Removed, Record(), 0, -1))
        return;
    const MapKey key(row);
    const auto entry = placeOf(m_ops, key);
    if (!holds(m_ops, entry, key)) {
        m_ops.insert(entry, key, {row, Removed});
        return;
    }
    warnWithoutKey(*m_table, entry->record, row);
    if (entry->kind == Updated)
        m_changes.remove(key);
    entry->kind = Removed;
}

void RecordsTrans::mergeUpdatedRow(const Record &live, const Record &changed, int first, int last)
{
    begin(live, "mergeUpdatedRow");
    begin(changed, "mergeUpdatedRow");
    first = qMax(first, 0);
    last = last < 0 ? lastColumn() : last;
    PendingRow::mark(changed, first, last); // a row of another batch, as it stands in that
    if (update(live, changed, first, last))
        widen(first, last);
}

// The columns that the row itself tracks, or else the range, are new. Returns false where an
// insertion stands.
bool RecordsTrans::update(const Record &live, const Record &changed, int first, int last)
{
    if (arrives(live, Updated, changed, first, last))
        return true;
    const MapKey key(live);
    const auto place = placeOf(m_ops, key);
    if (!holds(m_ops, place, key)) {
        enter(m_changes, key, {changed, Updated, first, last});
        m_ops.insert(place, key, {live, Updated});
        return true;
    }
    warnWithoutKey(*m_table, place->record, live);
    Entry entry = find(live);
    if (*entry.kind == Inserted)
        return false;
    if (*entry.kind == Updated) {
        PendingRow::copyChanges(*entry.change, entry.written, changed, {first, last});
        entry.setWritten(entry.written);
        return true;
    }
    enter(m_changes, key, {changed, Updated, first, last});
    place->kind = Updated;
    return true;
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
    if (&other == this || other.isEmpty()) {
        if (&other != this)
            other.clear();
        return;
    }
    other.checkLayout();
    checkLayout();
    const quint64 version = isEmpty() ? other.m_version : qMin(m_version, other.m_version);
    const quint64 values = isEmpty() ? other.m_values : qMin(m_values, other.m_values);
    const QPair<int, int> range = other.columns();
    const BatchLists lists = other.take();
    for (const Record &record : lists.removed)
        mergeRemovedRow(record);
    for (int i = 0; i < lists.updated.size(); ++i) {
        begin(lists.updated.at(i), "merge");
        update(lists.updated.at(i), lists.changed.at(i), lists.written[size_t(i)].first,
               lists.written[size_t(i)].last);
    }
    if (!lists.updated.isEmpty())
        widen(range.first, range.second);
    for (const Record &row : lists.inserted) {
        begin(row, "merge");
        const Entry entry = find(row);
        const bool isUpsert = rowHeader(row.row())->flags & kRowUpserted;
        if (!entry) {
            insert(row);
        } else if (*entry.kind == Removed || (*entry.kind == Updated && !isUpsert)) {
            replace(entry, row);
        } else if (isUpsert) { // of a row that is pending: as much as was written into it
            Record &pending = entry.change ? *entry.change : *entry.record;
            PendingRow::Range written = entry.written;
            if (!entry.change)
                written = {0, lastColumn()}; // a new row holds all of its columns
            PendingRow::copyChanges(pending, written, row, {});
            if (entry.change)
                Entry(entry).setWritten(written);
            if (range.first <= range.second)
                widen(range.first, range.second);
        } else {
            insert(row);
        }
    }
    m_version = version;
    m_values = values;
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
    checkLayout();
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
