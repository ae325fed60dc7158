#pragma once

#include "fuzztarget.h"

#include <database/indexes/indexsort.h>
#include <database/masterindex_column.h>
#include <database/persistence/tableio.h>
#include <database/tables/cellcompare.h>
#include <database/tables/table.h>

#include <cmath>
#include <cstring>

/// What has to hold of a table after whatever a file did to it.

/// Cancels where rows that the file only promises would take the time or the memory; rejects every
/// third record where asked to.
class Listener : public FilterProgress
{
public:
    explicit Listener(bool rejects = false)
        : m_rejects(rejects)
    {
    }
    bool operator()(int current, int total) override
    {
        require(current >= 0 && current < total, "progress stays below its total");
        if (current >= kMaxRows || m_bytes >= kMaxBytes)
            throw Canceled();
        return false;
    }
    bool filter(const Record &record) const override
    {
        m_bytes += record.table()->rowSize();
        return !m_rejects || ++m_seen % 3 != 0;
    }

private:
    static constexpr int kMaxRows = 600; // more than are sorted on one thread
    static constexpr qint64 kMaxBytes = 32 * 1024 * 1024;

    const bool m_rejects;
    mutable int m_seen = 0;
    mutable qint64 m_bytes = 0; // of the rows so far
};

/// A master index that knows whether an update bracket is open.
template<class Base>
class Bracketed : public Base
{
public:
    template<class... Arguments>
    explicit Bracketed(int *depth, Arguments... arguments)
        : Base(arguments...)
        , m_depth(depth)
    {
    }
    void beginUpdate() override
    {
        ++*m_depth;
        Base::beginUpdate();
    }
    void endUpdate() override
    {
        --*m_depth;
        Base::endUpdate();
    }

private:
    int *m_depth; // borrowed
};

/// Sorts by one column, if the table has it.
class SortedBy : public IndexSort
{
public:
    SortedBy(Table *table, int column)
        : IndexSort(table, true)
        , m_column(column)
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        return m_column < table()->columnCount() ? compareCells(*table()->columnDef(m_column), a, b)
                                                 : 0;
    }

private:
    int m_column;
};

inline bool isNaN(const Field &cell)
{
    return cell.column()->type == FieldType::Double && std::isnan(cell.value<double>());
}

inline void checkCell(const Record &row, int column)
{
    const Field cell = row.data(column);
    const TableColumnDef &def = *cell.column();
    const QString text = cell.toString();
    require(!cell.isNull() || (text.isNull() && !cell.toVariant().isValid()),
            "NULL has neither text nor variant");
    cell.toSystemString();
    if (def.type == FieldType::VarChar)
        require(cell.asStaticString() == text, "a text reads the same in place");
    if (def.type == FieldType::BoardList)
        cell.value<boardlist>().toString();
    require(compareCells(def, row, row) == 0, "a cell equals itself");
}

inline void checkCells(const Table &table)
{
    constexpr int kRows = 100;
    for (int row = 0; row < qMin(table.rowCount(), kRows); ++row) {
        for (int column = 0; column < table.columnCount(); ++column)
            checkCell(table.at(row), column);
        table.at(row).toString();
    }
}

/// NaN equals everything, so a list with one in its key is not in an order that could be checked.
inline void checkOrder(const IndexSort &index, const QList<int> &key)
{
    const Record *before = nullptr;
    for (const Record &record : index) {
        for (const int column : key) {
            if (isNaN(record.data(column)))
                return;
        }
        require(!before || index.compare(*before, record) <= 0, "a sorted index is in order");
        before = &record;
    }
}

inline QByteArray saved(Table &table)
{
    MemoryStream stream;
    TableIO(&table).write(stream, true);
    require(stream.status() == QDataStream::Ok, "memory takes a table");
    return stream.bytes();
}

/// What a table saves, an empty table of the same key loads and saves again.
inline void checkRoundTrip(Table &table)
{
    constexpr qint64 kMaxBytes = 1024 * 1024;
    if (table.rowSize() * qMax(table.rowCount(), 1) > kMaxBytes)
        return;
    const QByteArray bytes = saved(table);
    Table copy(table.name(), QString());
    MemoryStream header(bytes);
    FilterProgressTrue progress;
    TableIO(&copy).read(progress, header, true, {}, false);
    const QStringList key = table.masterIndex()->columnNames();
    if (!key.isEmpty())
        copy.setMasterIndex(new MasterIndex_Column_Pure(&copy, key));
    MemoryStream whole(bytes);
    TableIO(&copy).read(whole, false);
    require(saved(copy) == bytes, "a saved table loads as it was");
}
