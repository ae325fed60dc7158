#include "database/joins/joinrequest.h"

#include "database/joins/joincells.h"
#include "database/joins/tablejoindep.h"
#include "database/joins/tablejoinmain.h"
#include "database/masterindex_struct.h"
#include "database/tables/table.h"

namespace
{

/// Whether a table shows columns of another, directly or through tables in between.
bool shows(const Table &upper, const Table &lower)
{
    if (&upper == &lower)
        return true;
    for (const Index *index : lower.dependentIndexes()) {
        const auto *dep = dynamic_cast<const TableJoinDep *>(index);
        if (dep && dep->join().table() && shows(upper, *dep->join().table()))
            return true;
    }
    return false;
}

QString described(const TableColumnDef &column)
{
    return QStringLiteral("'%1' (%2)")
        .arg(column.name, FieldType::typeNameWithLength(column.type, column.length));
}

} // namespace

JoinRequest::JoinRequest(const TableJoinMain &join, Table *dependent, const QStringList &keyColumns,
                         const QList<QPair<QString, QString>> &columns)
    : m_join(join)
    , m_main(*join.table())
    , m_dependent(dependent)
    , m_keyColumns(keyColumns)
    , m_columns(columns)
{
    for (auto &column : m_columns) {
        if (column.second.isEmpty())
            column.second = column.first;
    }
    checkTables();
    checkKey();
    checkColumns();
}

// How error texts begin.
QString JoinRequest::pair() const
{
    return QStringLiteral("Table '%1' can't join '%2': ")
        .arg(m_main.name(), m_dependent ? m_dependent->name() : QString());
}

void JoinRequest::checkTables() const
{
    if (!m_dependent)
        throw pair() + QStringLiteral("there is no table to join.");
    if (m_dependent->masterIndex()->keyColumns().isEmpty())
        throw pair() + QStringLiteral("it has no key.");
    if (shows(*m_dependent, m_main))
        throw pair() + QStringLiteral("it depends on '%1' itself.").arg(m_main.name());
}

void JoinRequest::checkKey() const
{
    const QList<int> key = m_dependent->masterIndex()->keyColumns();
    if (m_keyColumns.size() != key.size()) {
        throw pair() + QStringLiteral("its key has %1 columns (%2), given are %3 (%4).")
                           .arg(key.size())
                           .arg(m_dependent->masterIndex()->columnNames().join(QLatin1String(", ")))
                           .arg(m_keyColumns.size())
                           .arg(m_keyColumns.join(QLatin1String(", ")));
    }
    for (int i = 0; i < key.size(); ++i) {
        const int column = m_main.columnIndex(m_keyColumns.at(i));
        if (column == -1) {
            throw pair() + QStringLiteral("there is no key column '%1' in '%2'.")
                               .arg(m_keyColumns.at(i), m_main.name());
        }
        const TableColumnDef &from = *m_main.columnDef(column);
        const TableColumnDef &to = *m_dependent->columnDef(key.at(i));
        if (from.type != to.type || from.type == FieldType::BoardList) {
            throw pair() + QStringLiteral("key column %1 does not match %2.")
                               .arg(described(from), described(to));
        }
        // Objects complete a batch one after the other, in the order of their registration.
        for (const TableJoinDep *other : dependentsOfMain()) {
            for (const TableJoin::ColumnLink &link : other->columns()) {
                if (link.to == &from && &other->join() != &m_join) {
                    throw pair() +
                        QStringLiteral("key column '%1' is joined by another join object.")
                            .arg(from.name);
                }
            }
        }
    }
}

// Of all joins of the main table.
QList<TableJoinDep *> JoinRequest::dependentsOfMain() const
{
    QList<TableJoinDep *> all = m_join.dependents();
    for (const Index *index : m_main.indexes()) {
        const auto *other = dynamic_cast<const TableJoinMain *>(index);
        if (other && other != &m_join)
            all += other->dependents();
    }
    return all;
}

void JoinRequest::checkColumns()
{
    QStringList targets;
    for (const auto &[name, target] : qAsConst(m_columns)) {
        const int column = m_dependent->columnIndex(name);
        if (column == -1)
            throw pair() + QStringLiteral("it has no column '%1'.").arg(name);
        if (targets.contains(target))
            throw pair() + QStringLiteral("column '%1' is to be joined twice.").arg(target);
        targets.append(target);
        const TableColumnDef &from = *m_dependent->columnDef(column);
        checkTarget(from, target);
        if (m_main.columnIndex(target) == -1) {
            ColumnDef missing = static_cast<const ColumnDef &>(from);
            missing.name = target;
            missing.nullable = true;
            m_missing.append(missing);
        }
    }
}

void JoinRequest::checkTarget(const TableColumnDef &from, const QString &name) const
{
    const int column = m_main.columnIndex(name);
    if (column == -1)
        return;
    const TableColumnDef &to = *m_main.columnDef(column);
    const auto refuse = [&](const char *why) {
        throw pair() + QStringLiteral("column %1 %2.").arg(described(to), QLatin1String(why));
    };
    if (!JoinCells::canTake(to, from)) {
        throw pair() + QStringLiteral("column %1 can't take the values of %2.")
                           .arg(described(to), described(from));
    }
    if (!to.nullable)
        refuse("is not nullable");
    if (m_main.masterIndex()->keyColumns().contains(column))
        refuse("is part of the table's key");
    if (m_keyColumns.contains(name))
        refuse("is a key column of the same join");
    for (const TableJoinDep *other : dependentsOfMain()) {
        for (const TableJoin::ColumnLink &link : other->columns()) {
            if (link.to == &to)
                refuse("is joined already");
        }
        for (const TableJoin::ColumnLink &link : other->keyColumns()) {
            if (link.from == &to)
                refuse("is a key column of an earlier join");
        }
    }
}

TableJoin::ColumnLinks JoinRequest::keyLinks() const
{
    TableJoin::ColumnLinks links;
    const QList<int> key = m_dependent->masterIndex()->keyColumns();
    for (int i = 0; i < key.size(); ++i)
        links.push_back({m_main.columnDef(m_keyColumns.at(i)), m_dependent->columnDef(key.at(i))});
    return links;
}

TableJoin::ColumnLinks JoinRequest::columnLinks() const
{
    TableJoin::ColumnLinks links;
    for (const auto &[name, target] : m_columns)
        links.push_back({m_dependent->columnDef(name), m_main.columnDef(target)});
    return links;
}
