#pragma once

#include "database/joins/tablejoin.h"

#include <QtCore/qlist.h>
#include <QtCore/qpair.h>
#include <QtCore/qstringlist.h>

#include <memory>
#include <vector>

class TableJoinDep;

/// Copies columns of other tables into the rows of a main table, and keeps them current: a row
/// shows its underlying's last price although nobody copies it.
///
/// A row's partner in a dependent table is the row whose key its key columns name. Always true
/// between two batches, outside the brackets of the dependent tables:
///  (1) A joined cell is its partner's cell; NULL where there is no partner, a key column is NULL,
///      or the partner's cell is.
///  (2) A joined column belongs to one join and is not written by anybody else; what a batch writes
///      into it is put right before the batch runs.
/// New rows carry their joined values before any index sees them. Changes of a dependent table
/// reach the main table as one transaction for its outermost bracket, or for a batch without one,
/// of the cells that differ; none is run when none differs.
///
/// Costs: a changed partner of k rows takes O(log n) comparisons to find them among n, whatever n,
/// and a batch of k rows; beyond 512 rows their values are gathered on Qt's global pool.
///
/// Ownership: borrows the tables, owns its TableJoinDep objects. Tables and join may go in any
/// order; joined cells stay as they are when the join goes, and become NULL when a dependent table
/// does. Columns and master indexes of the tables must stay while the join lives.
/// Threads: a batch locks the main table before the dependent ones, and so does a bracket of a
/// dependent table, which opens the main table's for its time.
class DATABASE_EXPORT TableJoinMain : public TableJoin
{
public:
    /// A join without dependent tables. One that is not added to the main table is not kept current
    /// with its rows.
    explicit TableJoinMain(Table *main, bool addToTable = true);
    ~TableJoinMain() override;

    /// Joins a table. Rows that the main table holds get their values in one transaction.
    /// \param keyColumns  the main table's columns that hold the key of the dependent table's
    ///                    master index, in its order; of the same types, but texts may differ in
    ///                    length. They may be joined themselves, by an earlier call
    /// \param columns     pairs of a dependent column and the main column that shows it; an empty
    ///                    second name is the same name. A main column that does not exist is
    ///                    created, nullable; one that exists is nullable and has the same type (an
    ///                    Integer64 takes an Integer), a text at least the length
    /// \throws QString naming tables and columns, before anything has changed: a column that does
    /// not exist or does not fit, a table without a key, a joined column that is part of the main
    /// table's key, names its own partner or is joined already, tables that depend on each other
    TableJoinDep *addTable(Table *dependent, const QStringList &keyColumns,
                           const QList<QPair<QString, QString>> &columns);

    QList<TableJoinDep *> dependents() const; ///< in the order of addTable(); owned here

    void clear() override;
    /// Writes the joined cells straight into the rows: indexes over them are to be built after it,
    /// as Table::build() and TableIndexRebuilder do.
    void build() override;
    void add(const Record &record) override;
    void complete(const QList<Record> &updated, const QList<Record> &values, int &colFrom,
                  int &colTo, const QList<Record> &inserted) override;
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                    int colTo, const QList<Record> &inserted,
                    const QList<Record> &updatedValues) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override;
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    bool contains(const Record &record) const override;
    void update(const Record &record, int colFrom, int colTo, int index) override;
    void endUpdate() override;
    QString getClassName() const override;

private:
    friend class TableJoinDep;
    struct Changes;

    void openBracket();
    void closeBracket();
    void flush();
    Changes changes(const std::vector<TableJoinDep *> &deps) const;

    std::vector<std::unique_ptr<TableJoinDep>> m_deps;
    int m_brackets = 0; // of dependent tables, open
    // Those whose changes the running batch brings: their cells need no second look.
    std::vector<TableJoinDep *> m_flushing;
};
