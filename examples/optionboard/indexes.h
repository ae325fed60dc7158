#pragma once

#include <database/indexes/indexlimit.h>
#include <database/indexes/indexsort.h>
#include <database/tables/columndef.h>

#include <initializer_list>
#include <vector>

/// A column that takes part in an order, and its direction. NULL comes first in an ascending order
/// and last in a descending one.
struct SortColumn {
    enum Direction { Ascending, Descending };

    int column = 0;
    Direction direction = Ascending;
};

/// All rows of a table in the order of some columns, the most significant first.
///
/// End the list with the key: then no two rows are equal, and the index finds a row by binary
/// search alone, also among the thousands of options that never traded.
class ColumnIndex : public IndexSort
{
public:
    ColumnIndex(Table *table, std::initializer_list<SortColumn> columns);

    /// Reads the cells in place.
    int compare(const Record &a, const Record &b) const override;

private:
    struct Sorted {
        const TableColumnDef *column; // borrowed from the table
        int sign;                     // 1 ascending, -1 descending
    };
    std::vector<Sorted> m_columns;
};

/// Keeps the latest trades: those of the highest numbers, as many as the limit.
class LatestTrades : public IndexLimit
{
public:
    LatestTrades(int limit, Table *table);

    int compare(const Record &a, const Record &b) const override;

private:
    const TableColumnDef *const m_number; // borrowed from the table
};
