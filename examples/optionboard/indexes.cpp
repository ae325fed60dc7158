#include "indexes.h"

#include "tables.h"

#include <database/tables/cellcompare.h>

ColumnIndex::ColumnIndex(Table *table, std::initializer_list<SortColumn> columns)
    : IndexSort(table, true)
{
    for (const SortColumn &sorted : columns)
        m_columns.push_back(
            {table->columnDef(sorted.column), sorted.direction == SortColumn::Ascending ? 1 : -1});

    // What compare() reads: the columns that share the first one's direction, and all others.
    QList<int> sorted, others;
    for (const SortColumn &each : columns) {
        const bool leads = others.isEmpty() && each.direction == columns.begin()->direction;
        (leads ? sorted : others).append(each.column);
    }
    setColumns(sorted, others,
               columns.begin()->direction == SortColumn::Ascending ? Qt::AscendingOrder
                                                                   : Qt::DescendingOrder);
    setIndependent(true);
}

int ColumnIndex::compare(const Record &a, const Record &b) const
{
    for (const Sorted &sorted : m_columns) {
        if (const int order = compareCells(*sorted.column, a, b))
            return order * sorted.sign;
    }
    return 0;
}

LatestTrades::LatestTrades(int limit, Table *table)
    : IndexLimit(limit, table)
    , m_number(table->columnDef(TradeTable::kNumber))
{
}

int LatestTrades::compare(const Record &a, const Record &b) const
{
    return compareCells(*m_number, a, b);
}
