#include "database/masterindex_struct.h"

#include "database/tables/table.h"

MasterIndex::MasterIndex(Table *table)
    : IndexSort(table, false)
{
}

QString MasterIndex::getClassName() const
{
    return QStringLiteral("MasterIndex");
}

QList<int> MasterIndex::keyColumns() const
{
    return {};
}

Record MasterIndex::findRecord(const QString &text) const
{
    return find(fromText(text), -1);
}

QStringList MasterIndex::columnNames() const
{
    QStringList names;
    for (const int column : keyColumns())
        names.append(table()->columnName(column));
    return names;
}

MasterIndexOrdered::MasterIndexOrdered(Table *table)
    : MasterIndex(table)
{
}

int MasterIndexOrdered::compare(const Record &, const Record &) const
{
    return 0;
}

QString MasterIndexOrdered::toText(const Record &) const
{
    return QLatin1String("");
}

Record MasterIndexOrdered::fromText(const QString &) const
{
    return Record(table());
}
