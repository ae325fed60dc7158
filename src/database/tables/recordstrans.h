#pragma once

#include "database/database_global.h"
#include "database/record.h"

#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qpair.h>

#include <memory>

class ArrivalList;
struct BatchLists;
class Table;

/// A batch of insertions, updates and removals of one table, one entry per key of the master index.
/// Several operations on one key fold into one:
///
///   operation       | no entry | inserted          | removed               | updated
///   mergeInsertedRow| insert   | the new insertion | the new insertion     | the new insertion
///   mergeRemovedRow | remove   | removal           | stays                 | removal
///   mergeUpdatedRow | update   | insertion stands  | withdrawn: an update  | columns are added
///
/// The table is asymmetric on purpose. In particular mergeInsertedRow() over a removal or an update
/// of the same key does not take the live row out. insertRow() and upsertRow() do what one means:
/// over a removal or an update they become an update of all columns of the live row.
///
/// Invariants:
///  (1) Every entry of kind Updated in ops has one in changes under the same key, and no other key
///      stands in changes. So updateList() and changeList() run in step.
///  (2) first > last means that no range of changed columns is set; processing takes all columns.
///  (3) Entries stand either all in the maps or all in the list of arrivals, which is null rather
///      than empty. A batch begins with the list, where keys can be hashed, and settles into the
///      maps once an operation has to be folded into another.
///
/// A table without a key (MasterIndexOrdered) has one key only, so a batch folds all its operations
/// into one, and warns: rows of such a table come through Table::appendRow() and appendList().
///
/// Each entry knows which of its columns changed. When the batch runs, all others are those of the
/// live row by then, whatever other batches did in between; a row that left the table meanwhile is
/// left out, and an upsert looks its key up again. Indexes are given one range for all entries.
///
/// A record that is null or of another table is refused with a QString that names table and call.
/// A column that is added to the table while the batch holds entries makes every further call but
/// clear() throw a QString: the pending rows have the old layout.
///
/// Threads: one at a time, and under the table's lock (a bracket, say) where another thread may
/// change the table, since filling looks at its rows.
class DATABASE_EXPORT RecordsTrans
{
public:
    /// Orders records by the master index of their table: equal keys are the same key.
    class DATABASE_EXPORT MapKey
    {
    public:
        explicit MapKey(const Record &record)
            : m_record(record)
        {
        }
        const Record &record() const { return m_record; }
        friend DATABASE_EXPORT bool operator<(const MapKey &a, const MapKey &b);

    private:
        Record m_record;
    };

    enum Kind : qint32 { Inserted = 1, Removed = 2, Updated = 3 };

    struct Op {
        Record record;
        Kind kind;
        /// In changes: the columns that the record holds new values for, unless it tracks them.
        qint32 first = 0;
        qint32 last = -1;
    };

    explicit RecordsTrans(Table *table);
    ~RecordsTrans();
    RecordsTrans(const RecordsTrans &) = delete;
    RecordsTrans &operator=(const RecordsTrans &) = delete;
    /// Leaves an empty batch of the same table behind. Updaters belong to the batch that they were
    /// made by, not to one that it was moved to.
    RecordsTrans(RecordsTrans &&other) noexcept;
    RecordsTrans &operator=(RecordsTrans &&other) noexcept;
    void swap(RecordsTrans &other) noexcept;

    Table *table() const { return m_table; }
    bool isEmpty() const { return !m_arrivals && m_ops.isEmpty(); }
    int first() const { return m_first; } ///< first changed column, 2147483647 while none is set
    int last() const { return m_last; }   ///< last changed column, -1 while none is set
    /// first() and last(), or all columns while no range is set.
    QPair<int, int> columns() const;

    // Each sorts the entries, unless operations have been folded.
    QList<Record> insertList() const; ///< new rows, in key order
    QList<Record> removeList() const; ///< live rows to remove, in key order
    QList<Record> updateList() const; ///< live rows that change, in key order
    QList<Record> changeList() const; ///< their new values, in step with updateList()

    /// Enters a new row whose key cells are set. Where the batch holds a removal or an update of
    /// its key, that becomes an update of all columns by the values of \p row, and the handle
    /// writes into a copy. \return the handle to write its other cells
    RecordUpdater insertRow(const Record &row);
    /// Enters a change of a live row. \return the handle to write its new values
    RecordUpdater updateRow(const Record &live);
    /// Enters the removal of a live row.
    void removeRow(const Record &live);
    /// The pending row of that key, else an update of the live row of that key, else the insertion
    /// of a copy of \p keyRow. Over a removal of the key it becomes an update of all columns, by
    /// the values of such a copy. When the batch runs the key is looked up again: what was to be an
    /// insertion updates the columns that were written if the key has come meanwhile, and the
    /// update of a row that has gone inserts one. The record serves as a key only and may be used
    /// again.
    RecordUpdater upsertRow(const Record &keyRow);

    /// Fold one operation in, by the table above. Columns \p first..last of \p changed hold the new
    /// values; -1 means the first and the last column. Widens the range of the batch.
    void mergeInsertedRow(const Record &row);
    void mergeRemovedRow(const Record &row);
    void mergeUpdatedRow(const Record &live, const Record &changed, int first, int last);

    /// Folds whole lists in: the removals, then the pairs of updated and changed rows, then the
    /// insertions.
    void merge(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
               const QList<Record> &inserted, const QList<Record> &changed);
    /// Folds another batch of the same table in and leaves it empty: its removals, its updates, and
    /// its insertions as insertRow() and upsertRow() would.
    void merge(RecordsTrans &other);

    /// Runs the batch through Table::process(); an empty one does nothing. \throws what an index
    /// throws
    void execute();
    /// Forgets all entries and the range.
    void clear();

private:
    friend class RecordUpdater;
    friend class Table;

    struct Entry; // of either kind of container

    int size() const; // entries
    void begin(const Record &record, const char *call);
    void checkLayout() const;
    bool mayMeet() const;
    bool mayBeStale() const;
    ArrivalList *arrivals();
    bool arrives(const Record &record, Kind kind, const Record &change, int first, int last);
    Entry find(const Record &key);
    RecordUpdater replace(const Entry &entry, const Record &row);
    bool update(const Record &live, const Record &changed, int first, int last);
    void insert(const Record &row);
    void settle();
    template<class Batch, class Put>
    static BatchLists gather(Batch &batch, Put put);
    BatchLists lists() const;
    BatchLists take();
    void widen(int first, int last)
    {
        m_first = qMin(m_first, qMax(first, 0));
        m_last = qMax(m_last, last < 0 ? lastColumn() : last);
    }
    int lastColumn() const;
    void removePending(const Record &pending);
    Record pendingUpdate(const Record &live);

    qint32 m_first; // invariant (2)
    qint32 m_last;
    QMap<MapKey, Op> m_ops;                  // invariant (1)
    QMap<MapKey, Op> m_changes;              // invariant (1)
    Table *m_table;                          // borrowed
    std::unique_ptr<ArrivalList> m_arrivals; // invariant (3)
    quint64 m_version = 0;                   // of the table's rows, when the first entry came
    quint64 m_values = 0;                    // of the table's values, the same
    quint32 m_layout = 0;                    // of the table's rows, the same
};
