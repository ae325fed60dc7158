#pragma once

#include "database/joins/tablejoin.h"

#include <QtCore/qlist.h>
#include <QtCore/qpair.h>
#include <QtCore/qstringlist.h>

class Table;
class TableJoinDep;
class TableJoinMain;

/// What somebody asks a join for, checked against both tables before either changes.
class JoinRequest
{
public:
    /// \throws QString as TableJoinMain::addTable()
    JoinRequest(const TableJoinMain &join, Table *dependent, const QStringList &keyColumns,
                const QList<QPair<QString, QString>> &columns);

    /// Columns that the main table lacks.
    const QList<ColumnDef> &missingColumns() const { return m_missing; }
    // Of columns that exist, so to be asked for once the missing ones were added.
    TableJoin::ColumnLinks keyLinks() const;
    TableJoin::ColumnLinks columnLinks() const;

private:
    void checkTables() const;
    void checkKey() const;
    void checkColumns();
    void checkTarget(const TableColumnDef &from, const QString &name) const;
    QString pair() const;
    QList<TableJoinDep *> dependentsOfMain() const;

    const TableJoinMain &m_join;
    Table &m_main;
    Table *const m_dependent;
    const QStringList m_keyColumns;
    QList<QPair<QString, QString>> m_columns; // both names given
    QList<ColumnDef> m_missing;
};
