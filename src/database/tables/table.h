#pragma once

#include "database/database_global.h"
#include "database/decimal.h"
#include "database/indexes/partitionlist.h"
#include "database/record.h"
#include "database/tables/columndef.h"
#include "database/tables/field.h"

#include <QtCore/qelapsedtimer.h>
#include <QtCore/qlist.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>

#include <atomic>
#include <exception>
#include <memory>

class FirstError;
class Index;
class MasterIndex;
class RecordsTrans;
struct TablePrivate;

/// A named list of typed columns, and the rows that its master index holds.
///
/// Invariants:
///  (1) A row is one block: a 16-byte RowHeader, the cells in column order (each rounded up to 8
///      bytes, so every cell is aligned), then one presence bit per column.
///  (2) The rows of the table are the records of its master index, in that index's order. Every
///      other index holds handles to the same blocks.
///  (3) Outside process() and the direct calls (appendRow() to clear()) transactionState() is 0 and
///      nothing is queued, also after an index threw.
///
/// Ownership: the table owns its columns and its master index. Secondary and dependent indexes stay
/// the application's; indexes take themselves out of the registry when they are destroyed, and a
/// table that is destroyed first clears them.
///
/// Threads: any thread may change a table inside beginUpdate()/endUpdate(), which hold its
/// recursive lock on every level, so that a second thread waits; whoever reads or fills a batch
/// while another thread may write holds lock(), or a bracket. Batches, direct calls and the
/// registry take the lock themselves. The locks of joined tables are taken from the topmost main
/// table down. An index of a class of one's own is opened and closed in a bracket, or by
/// openIndex(), while another thread updates its table: no base class can wait for the constructor
/// of a derived one.
class DATABASE_EXPORT Table : public QObject
{
    Q_OBJECT

public:
    /// An empty table without columns that keeps its rows in order of arrival.
    Table(const QString &name, const QString &title, QObject *parent = nullptr);
    ~Table() override;

    QString name() const;
    QString title() const; ///< the name while no title is set
    void setTitle(const QString &title);

    // Columns -----------------------------------------------------------------------------------

    /// Adds a column behind the others; only description, type and length of \p def are taken. Rows
    /// that the table holds are enlarged: their new cells are zero and, in a nullable column, NULL
    /// (in another column existing rows do not receive the presence mark that new rows start with).
    /// Handles to rows held outside the indexes must not be read afterwards; a warning counts them.
    /// A column of the same name is accepted, changing nothing, when it has the same type and
    /// length, is an Integer64 for a new Integer, or is a VarChar at least as long. A batch that is
    /// being filled meanwhile throws from then on, until it is cleared.
    /// \throws QString "Column name can't be empty.", "Column '%1' already exists for table '%2'.",
    /// inside a transaction of this table, and as FieldType::typeLength(); what an index throws out
    /// of clear(), and std::bad_alloc. Nothing has changed then. What an index throws out of
    /// build() comes at the end, when the column is there
    void addColumn(const TableColumnDef &def);
    /// Several columns in one pass over the rows; all of them or none. \throws as addColumn()
    void addColumns(const QList<TableColumnDef> &defs);
    void addColumn(const QString &name, const FieldDef &def, bool nullable = true,
                   const QString &title = QString(), bool extraFlag = true,
                   const QString &description = QString());
    void addColumn(const QString &name, FieldType::Type type, int length, bool nullable = true,
                   const QString &title = QString(), bool extraFlag = true,
                   const QString &description = QString());

    int columnCount() const;
    // Column numbers are not checked: callers pass valid ones.
    QString columnName(int column) const;
    FieldType::Type columnType(int column) const;
    QString columnTypeName(int column) const; ///< with the length, "VarChar[12]"
    QString columnDescription(int column) const;
    QString columnTitle(int column) const; ///< the name while the title is empty
    void setColumnTitle(int column, const QString &title);
    TableColumnDef *columnDef(int column) const; ///< the table's own; its address never changes
    /// \throws QString "Table '%1' has no column '%2'."
    TableColumnDef *columnDef(const QString &name) const;
    int columnIndex(const QString &name) const; ///< case-sensitive; -1 if there is none
    QList<ColumnDef> columns() const;
    QList<TableColumnDef *> fieldDefs() const;

    qint64 rowLength() const;          ///< bytes of a row's data area
    qint64 rowLengthUnaligned() const; ///< sum of the columns' sizes
    qint64 rowSize() const;            ///< bytes of a whole row block

    // Rows --------------------------------------------------------------------------------------

    /// A new block with initial values and reference count 0; null when the memory cannot be had.
    uchar *allocRow() const;
    /// Gives a block its initial values: nullable cells NULL, the others present and zero.
    void initRow(uchar *row) const;
    /// A copy of a block with reference count 0; null when the memory cannot be had.
    uchar *cloneRow(const uchar *row) const;
    /// Copies all values and the bitmap; the header stays.
    void copyRowContent(uchar *dst, const uchar *src) const;
    /// Copies the columns first..last with exactly their presence bits; -1 means the first and the
    /// last column.
    void copyRowContent(uchar *dst, const uchar *src, int first, int last) const;
    /// Releases a block, whatever its count.
    static void freeRow(uchar *row) noexcept;

    // Direct calls: no batch is run, so preprocess() and process() are not called. They are
    // transactions of their own: batches that indexes submit meanwhile run behind them. Every index
    // hears of the change also when one throws, and the first error is thrown at the end; only a
    // new row that the master index refuses reaches no other. Inside a transaction of this table
    // new and removed rows are queued behind it, and behind its queued batches; the other calls
    // throw a QString that names table and call.

    /// Adds a new row, a given row, given rows to the master index and to every secondary index
    /// whose filter accepts them.
    void appendRow();
    void appendRow(uchar *row);
    void appendList(const QList<Record> &records);

    int rowCount() const;
    /// The i-th record of the master index; Record::null out of range.
    const Record &at(int i) const;
    Field dataPtr(uchar *row, int column) const;
    Field data(int row, int column) const;
    /// Clears the cell's presence bit; the value bytes stay.
    void setNull(int row, int column);

    /// Tells the master index, then the others, that columns first..last of a live row changed.
    /// \p hint is the row's position in the master index, or -1.
    void updated(const Record &record, int first, int last, int hint);
    void updatedRow(int row);
    /// Takes a row out of the secondary indexes, then out of the master index.
    void remove(const Record &record, int hint);
    /// Clears every index; the columns stay.
    void clear();
    /// Sorts the master index again and builds every other index from it: what makes table and
    /// views agree after a batch that failed in the master index, for want of memory say.
    void rebuild();

    // Rows as a range ---------------------------------------------------------------------------

    using const_iterator = PartitionList<Record>::const_iterator;
    /// The rows in the order of the master index, for loops: for (const Record &row : table). A
    /// change of the table invalidates the iterators.
    const_iterator begin() const;
    const_iterator end() const;
    /// The row whose exact key text this is (MasterIndex::keyText()): find("A"), find("7,B"). Null
    /// when there is none, when the text is no key and for a table without a key. O(log n).
    Record find(const QString &keyText) const;
    Record find(int) const = delete; // a literal 0 would be an empty text

    // Batches -----------------------------------------------------------------------------------

    /// Runs a batch as one transaction; from inside a transaction of this table it is folded into
    /// the pending one, which runs right after. Leaves \p transaction empty. Takes the lock.
    ///
    /// Of an updated row only the columns that were written through its updater, or named when its
    /// values were merged, change; the others are those of the live row as the batch runs. A row
    /// that is not in the table any more is left out, and one that the batch names twice, since its
    /// key changed meanwhile, counts once; its removal wins. upsertRow() looks its key up again.
    ///
    /// What an index throws reaches the caller, and nothing else suffers: a throw from toRemove()
    /// or preprocess() abandons the batch before any row changes; after that every other index
    /// still sees the batch, queued batches still run, and the first error is thrown at the end.
    void process(RecordsTrans &transaction);
    /// Runs changes of live rows as one transaction: columns \p first..last of \p changed become
    /// those of \p updated, which stand in it once each. Nothing is folded, so a table without a
    /// key takes it too. \throws QString from inside a transaction of this table
    void process(const QList<Record> &updated, int first, int last, const QList<Record> &changed);
    void processSingleTransaction(RecordsTrans &transaction);
    /// The passes over the indexes. A row stands in \p updated once; \p removed grows by what an
    /// IndexLimit drops.
    void processSingleTransaction(QList<Record> &removed, QList<Record> &updated, int first,
                                  int last, const QList<Record> &inserted, QList<Record> changed);
    /// 0 idle, 1 while the secondary indexes preprocess, 2 while they process.
    int transactionState() const;

    // Indexes -----------------------------------------------------------------------------------

    MasterIndex *masterIndex() const;
    /// Takes over a master index and deletes the previous one. Rows are not moved over: set it on
    /// an empty table.
    void setMasterIndex(MasterIndex *index);

    // The registry is changed and read under the table's lock; an index that goes while the
    // registry is walked is passed by. Signals are sent when the lock has been released.

    /// Secondary indexes receive batches in the order of registration. No check for duplicates.
    void addIndex(Index *index);
    void removeIndex(Index *index);
    /// Indexes of other tables that are told when this one opens and closes an update bracket.
    void addDependentIndex(Index *index);
    void removeDependentIndex(Index *index);
    /// The name "IndexLimit" belongs to the index that may add to a batch's removals.
    void setIndexName(const QString &name, Index *index);
    Index *namedIndex(const QString &name) const;
    QString indexName(Index *index) const; ///< the first of its names, or empty
    QList<Index *> indexes() const;
    QList<Index *> dependentIndexes() const;
    void setIndexes(const QList<Index *> &indexes); ///< replaces the list, without signals
    /// Builds every secondary index, in the order of registration but joins first, also when one
    /// throws.
    void build();

    // Update bracket ----------------------------------------------------------------------------

    /// Takes the lock, on every level. The outermost call takes the locks of the tables above
    /// first, tells the dependent indexes before it takes its own, and tells the master index and
    /// the secondary ones then. When an index throws, the bracket is as if it had not been opened.
    void beginUpdate();
    /// Releases the lock. The outermost call tells the master index and the secondary ones before,
    /// and the dependent indexes after that; it does all of it also when one throws. Calls must
    /// pair, in the same thread.
    void endUpdate();
    /// The lock of this table and, before it, those of the tables whose joined cells it supplies,
    /// from the topmost down. May be taken again by the thread that has it.
    void lock();
    void unlock();
    bool tryLock(int timeoutMSecs = 0);

    // Time --------------------------------------------------------------------------------------

    qint64 nsecsElapsed() const; ///< nanoseconds spent in process()
    void setNsecsElapsed(const qint64 &nsecs);
    static qint64 nsecsElapsedTotal(); ///< the same over all tables
    /// This table's share of the total, in percent to hundredths; 0 below 10000 ns in total.
    decimal percentElapsed() const;

Q_SIGNALS:
    void indexAdded(Index *index);
    void indexRemoved(Index *index);
    /// Declared for applications; the library does not emit it.
    void indexNameUpdated(Index *index, const QString &name);
    void dependentIndexAdded(Index *index);
    void dependentIndexRemoved(Index *index);

private:
    Q_DISABLE_COPY(Table)

    friend struct TablePrivate;
    friend class RecordsTrans;
    friend class TableLocker;

    template<class Run>
    void runTransaction(Run run);
    template<class Run>
    void runDirectly(Run run);
    void refuseInside(const char *call) const;
    void drain(FirstError &error);
    void lockAlone();
    void unlockAlone();
    void complete(const QList<Record> &updated, const QList<Record> &values, int &first, int &last,
                  const QList<Record> &inserted);
    void completeInserted(const QList<Record> &records);
    void addToIndexes(const Record &record);
    void takeFromIndexes(const Record &record, int hint);
    void noteChange(const QList<Record> &removed, int first, int last, const QList<Record> &updated,
                    const QList<Record> &inserted, bool failed);
    bool changesKey(int first, int last) const;
    bool acceptsExisting(const TableColumnDef &existing, const TableColumnDef &def) const;

    std::unique_ptr<TablePrivate> d;
    QElapsedTimer m_timer; // restarted by the outermost process()
    qint64 m_nsecsElapsed = 0;
    static std::atomic<qint64> m_nsecsElapsedTotal; // of all threads
};

/// Opens a table's update bracket and closes it on every way out of the scope.
class TableUpdate
{
public:
    explicit TableUpdate(Table &table)
        : m_table(table)
    {
        m_table.beginUpdate();
    }
    /// Closes the bracket. \throws what an index throws, unless another exception is under way
    ~TableUpdate() noexcept(false);
    TableUpdate(const TableUpdate &) = delete;
    TableUpdate &operator=(const TableUpdate &) = delete;

private:
    Table &m_table;
    const int m_exceptions = std::uncaught_exceptions();
};

inline TableUpdate::~TableUpdate() noexcept(false)
{
    try {
        m_table.endUpdate();
    } catch (...) {
        if (std::uncaught_exceptions() == m_exceptions)
            throw;
    }
}
