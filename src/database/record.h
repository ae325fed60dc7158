#pragma once

#include "database/database_global.h"
#include "database/tables/field.h"
#include "database/tables/rowlayout.h"

#include <QtCore/qhash.h>
#include <QtCore/qmetatype.h>
#include <QtCore/qstring.h>

#include <utility>

class RecordsTrans;
class Table;

/// A shared handle to a row: one pointer, counted inside the row block.
///
/// Invariants:
///  (1) Every non-null Record holds exactly one reference on its block; the handle that brings the
///      count to 0 frees the block. Moving a handle leaves the count alone.
///  (2) There is no copy-on-write: all handles to a row see every change. clone() makes a copy.
///  (3) Constness is the handle's, not the row's: data() of a const Record writes. Whoever writes a
///      cell of a row that stands in a table calls Table::updated() next, before anything else is
///      asked of the indexes that read the cell. Debug builds look for rows of sorted indexes that
///      are out of order and assert.
/// Threads: handles may be copied and dropped in several threads at once. Writing values is not
/// synchronised; writers hold the table's lock or work on rows that no other thread sees.
/// Lifetime: a handle keeps its row alive, not the table. After the table is gone, a handle may
/// only be copied, compared and dropped. Adding a column to a table moves its rows: handles that
/// are held outside the table's indexes across Table::addColumn() may only be dropped.
///
/// No operation but value() and data() by name throws; null handles give empty results.
class DATABASE_EXPORT Record
{
public:
    constexpr Record() noexcept = default;
    /// Shares a row block; null gives the null handle.
    explicit Record(uchar *row) noexcept
        : m_row(row)
    {
        acquire();
    }
    /// A new row of the table with its initial values; it belongs to no index yet. Null when the
    /// memory cannot be had.
    explicit Record(const Table *table);
    /// The row of the table whose key has the given text form (that of toString(), which does not
    /// find every row again: see Table::find() for keyText()); null for the empty text, for a text
    /// that does not read as a key, and when there is no such row.
    Record(const Table *table, const QString &text);

    Record(const Record &other) noexcept
        : m_row(other.m_row)
    {
        acquire();
    }
    Record(Record &&other) noexcept
        : m_row(std::exchange(other.m_row, nullptr))
    {
    }
    Record &operator=(const Record &other) noexcept
    {
        // Reference the new block before releasing the old one: assigning a record to itself must
        // not free the block in between.
        Record(other).swap(*this);
        return *this;
    }
    Record &operator=(Record &&other) noexcept
    {
        Record(std::move(other)).swap(*this);
        return *this;
    }
    ~Record() { release(); }
    void swap(Record &other) noexcept { std::swap(m_row, other.m_row); }

    /// The handle that stands for the absence of a row.
    static const Record null;

    bool isNull() const { return m_row == nullptr; }
    explicit operator bool() const { return m_row != nullptr; }
    /// The row block, borrowed.
    uchar *row() const { return m_row; }
    /// The owner of the row; null for a null handle.
    Table *table() const { return m_row ? rowHeader(m_row)->table : nullptr; }

    /// A handle to a copy of the row (values, bitmap, owner), which belongs to no index.
    Record clone() const;
    /// Copies all values and the presence bitmap from a row of the same layout.
    void copy(const Record &source);
    /// The same for the columns first..last; -1 means the first and the last column.
    void copy(const Record &source, int first, int last);

    /// The cell of a column. The handle is not null and the column exists.
    Field data(int column) const;
    /// \throws QString "Table '%1' has no column '%2'.", and for a null handle
    Field data(const QString &column) const;
    /// The same, for short.
    Field operator[](int column) const { return data(column); }
    Field operator[](const QString &column) const { return data(column); }
    /// The cell's value, as Field::value() gives it and with its exceptions; T() for NULL.
    template<class T>
    T value(int column) const
    {
        return data(column).template value<T>();
    }
    template<class T>
    T value(const QString &column) const
    {
        return data(column).template value<T>();
    }

    /// Whether the owning table's master index holds this very row.
    bool inTable() const;
    /// The row's key as the text that Table::find() finds it by, whatever is in it: see
    /// MasterIndex::keyText(). Empty for null.
    QString keyText() const;
    /// The older text form of the row's key, MasterIndex::toText(), which shows large decimals
    /// rounded and does not quote; empty for null.
    QString toString() const;
    /// The row for diagnosis: table, address, reference count and the cells.
    QString dump(bool skipNulls) const;

    /// Identity of rows, not equality of values; the order is that of the addresses.
    friend bool operator==(const Record &a, const Record &b) { return a.m_row == b.m_row; }
    friend bool operator!=(const Record &a, const Record &b) { return a.m_row != b.m_row; }
    friend bool operator<(const Record &a, const Record &b)
    {
        return std::less<const uchar *>()(a.m_row, b.m_row);
    }
    friend uint qHash(const Record &record, uint seed = 0) noexcept
    {
        return ::qHash(quintptr(record.m_row), seed);
    }

private:
    void acquire() const noexcept
    {
        if (m_row)
            rowHeader(m_row)->refCount.ref();
    }
    void release() const noexcept
    {
        if (m_row && !rowHeader(m_row)->refCount.deref())
            freeRow(m_row);
    }
    static void freeRow(uchar *row) noexcept;

    uchar *m_row = nullptr;
};

Q_DECLARE_TYPEINFO(Record, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Record)

static_assert(sizeof(Record) == sizeof(void *), "lists of records are lists of pointers");

/// The write handle on one pending row of a transaction.
///
/// For an insertion the pending row is the new row itself; for an update it is a copy whose values
/// reach the live row when the transaction runs. Valid until the transaction runs or the entry is
/// folded away by another operation on the same key.
class DATABASE_EXPORT RecordUpdater
{
public:
    RecordUpdater(RecordsTrans *transaction, Record pending);

    const Record &record() const { return m_pending; }

    /// The cell for writing; it counts as changed, and the range of changed columns widens. Key
    /// cells are read only once the row stands in the transaction (debug builds assert it).
    /// \throws QString when a column was added to the table meanwhile, and by name
    /// "Table '%1' has no column '%2'."
    Field field(int column);
    Field field(const QString &column);

    /// Copies every column of a row of the same key; the range becomes all columns.
    RecordUpdater &operator=(const Record &source);

    /// The same for the columns first..last, for helpers that write through record() themselves.
    void widen(int first, int last);

    /// Turns the entry into a removal; a row that the same transaction inserts disappears from it.
    void remove();

    /// Enters \p row as an insertion, folded into what the transaction holds for its key, and makes
    /// it the pending row.
    void insertInMap(const Record &row);
    /// Enters an update of the live row that the updater was made for: the pending row becomes the
    /// copy that the transaction keeps for it (or the row that it inserts under that key).
    void updateInMap();

    int first() const { return m_first; } ///< first changed column; above last() while none is
    int last() const { return m_last; }   ///< last changed column

private:
    Record m_pending;
    RecordsTrans *m_transaction; // borrowed
    qint32 m_first;
    qint32 m_last;
};
