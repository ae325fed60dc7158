#pragma once

#include "market.h"

#include <database/database.h>

#include <array>

/// The columns of the market's table in the library.
enum QuotesColumn { kBoard, kCode, kStrike, kBid, kAsk, kLast, kVolume, kTime, kIv, kFlags };

constexpr int kPriceScale = 2; // of bid and ask

/// An application's own order: one column of its table, ascending.
class ByColumn : public IndexSort
{
public:
    ByColumn(Table *table, int column)
        : IndexSort(table, true)
        , m_column(*table->columnDef(column))
    {
        setColumns({column});
        setIndependent(true);
    }
    int compare(const Record &a, const Record &b) const override
    {
        return compareCells(m_column, a, b);
    }

private:
    const TableColumnDef &m_column; // the table's own
};

/// The market's rows in the library: the key is (board, code).
class QuotesTable : public Table
{
public:
    QuotesTable();

    Record newRecord(const Row &row) const; ///< in no index
    static void setKey(const Record &record, const Key &key);
    static Row rowOf(const Record &record);
};

/// The table with its three orders.
struct Quotes {
    QuotesTable table;
    std::array<ByColumn, 3> orders{
        {{&table, kLast}, {&table, kVolume}, {&table, kTime}}}; ///< by Order
};
