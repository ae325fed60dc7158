#pragma once

#include "database/database_global.h"
#include "database/record.h"

#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qpair.h>

#include <memory>

class ArrivalList;
class Table;

/// A batch of insertions, updates and removals of one table, one entry per key of the master index.
/// Several operations on one key fold into one:
///
///   operation       | no entry | inserted          | removed               | updated
///   mergeInsertedRow| insert   | the new insertion | the new insertion     | the new insertion
///   mergeRemovedRow | remove   | removal           | stays                 | removal
///   mergeUpdatedRow | update   | insertion stands  | withdrawn: an update  | columns are added
///
/// The table is asymmetric on purpose. In particular an insertion over a removal or an update of
/// the same key does not take the live row out: to replace the values of a row use upsertRow().
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
/// into one: rows of such a table come through Table::appendRow() and appendList().
///
/// The pending copy of an updated row is taken when the row enters the batch. Execute a batch
/// before other batches change the same rows: columns inside its range overwrite what came in
/// between.
///
/// Threads: one at a time; executing needs the table's update bracket.
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
    };

    explicit RecordsTrans(Table *table);
    ~RecordsTrans();
    RecordsTrans(const RecordsTrans &) = delete;
    RecordsTrans &operator=(const RecordsTrans &) = delete;
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

    /// Enters a new row whose key cells are set. \return the handle to write its other cells
    RecordUpdater insertRow(const Record &row);
    /// Enters a change of a live row. \return the handle to write its new values
    RecordUpdater updateRow(const Record &live);
    /// Enters the removal of a live row.
    void removeRow(const Record &live);
    /// The pending row of that key, else an update of the live row of that key, else the insertion
    /// of a copy of \p keyRow. The record serves as a key only and may be used again.
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
    /// Folds another batch of the same table in and leaves it empty. Its updates without a range
    /// mean all columns.
    void merge(RecordsTrans &other);

    /// Runs the batch through Table::process(); an empty one does nothing. \throws what an index
    /// throws
    void execute();
    /// Forgets all entries and the range.
    void clear();

private:
    friend class RecordUpdater;
    friend class Table;

    /// What the passes over the indexes are given, each list in key order.
    struct Lists {
        QList<Record> inserted, removed, updated, changed;
    };

    int size() const; // entries
    ArrivalList *arrivals();
    bool arrives(const Record &record, Kind kind, const Record &change);
    void settle();
    template<class Batch, class Put>
    static Lists gather(Batch &batch, Put put);
    Lists lists() const;
    Lists take();
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
};
