#include "database/masterindex_struct.h"

#include "database/tables/table.h"

#include <algorithm>

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

// An index that does not name its key columns may compare by any.
bool MasterIndex::isKeyTouched(int colFrom, int colTo) const
{
    const QList<int> key = keyColumns();
    return key.isEmpty() || colFrom < 0 || colTo < 0 ||
           std::any_of(key.begin(), key.end(),
                       [&](int column) { return column >= colFrom && column <= colTo; });
}

void MasterIndex::preprocess(const QList<Record> &removed, const QList<Record> &updated,
                             int colFrom, int colTo, const QList<Record> &inserted,
                             const QList<Record> &updatedValues)
{
    const bool touched = isKeyTouched(colFrom, colTo);
    IndexSort::preprocess(removed, touched ? updated : QList<Record>(), colFrom, colTo, inserted,
                          touched ? updatedValues : QList<Record>());
}

void MasterIndex::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                          int colTo, const QList<Record> &inserted)
{
    IndexSort::process(removed, isKeyTouched(colFrom, colTo) ? updated : QList<Record>(), colFrom,
                       colTo, inserted);
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
