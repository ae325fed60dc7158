#pragma once

#include "database/joins/tablejoin.h"
#include "database/record.h"

#include <QtCore/qlist.h>
#include <QtCore/qobject.h>

#include <memory>

class JoinKeyIndex;
class PartnerFinder;
class TableJoinMain;

/// The side of a join that stands at a dependent table: hears of its rows and brackets, and knows
/// which rows of the main table show them.
///
/// Made and owned by TableJoinMain::addTable(). Changes gather here from the beginning to the end
/// of the dependent table's bracket; without a bracket each batch is passed on at once.
class DATABASE_EXPORT TableJoinDep : public TableJoin
{
public:
    ~TableJoinDep() override;

    TableJoinMain &join() const { return m_join; }
    const ColumnLinks &keyColumns() const { return m_keys; } ///< main column -> key column
    const ColumnLinks &columns() const { return m_columns; } ///< dependent column -> main column

    void clear() override;
    void build() override;
    void add(const Record &record) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override;
    void remove(const Record &record, int index) override;
    void update(const Record &record, int colFrom, int colTo, int index) override;
    bool filter(const Record &record) const override;
    bool contains(const Record &record) const override;
    void dependentBeginUpdate(Table *table) override;
    void dependentEndUpdate(Table *table) override;
    QString getClassName() const override;
    Table *mainTable() const override;

private:
    friend class TableJoinMain;
    friend class PartnerFinder;

    TableJoinDep(TableJoinMain &join, Table *dependent, const ColumnLinks &keys,
                 const ColumnLinks &columns);

    bool shows(int colFrom, int colTo) const;
    void pass();
    void leaveBracket();

    // For the main side; columns are those of the main table.
    bool isChanged() const;
    void forgetChanges();
    bool isKeyTouched(int colFrom, int colTo) const;
    bool isTouched(int colFrom, int colTo) const; ///< a key column or a joined one
    /// The rows of the main table that the changes concern, in the order of their keys. The changes
    /// count as dealt with.
    QList<Record> takeAffected();
    /// Writes the joined cells of rows that no index has to follow.
    void fill(const QList<Record> &rows) const;
    /// Sorts the main table's rows anew and fills them all.
    void rebuildMain();
    /// Makes room in a range for the joined columns.
    void widen(const QList<Record> &updated, const QList<Record> &values, int &colFrom,
               int &colTo) const;

    TableJoinMain &m_join;
    const ColumnLinks m_keys;
    const ColumnLinks m_columns;
    const std::unique_ptr<JoinKeyIndex> m_byKey; // the main table's rows; kept by m_join
    QList<Record> m_changed;                     // rows of the dependent table, live or removed
    bool m_allChanged = false;
    bool m_inBracket = false;   // of the dependent table, for which the main table's is open too
    bool m_isEmpty = false;     // the dependent table is being cleared
    bool m_awaitsBuild = false; // cleared for a bulk load, which ends with build()
    const uchar *m_leaving = nullptr; // a row that its master index still holds
    QObject m_guard;                  // ends the connection to the table with this object
};
