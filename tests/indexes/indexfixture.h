#pragma once

#include <database/indexes/indexsort.h>
#include <database/masterindex_column.h>
#include <database/services/exception.h>
#include <database/tables/recordstrans.h>
#include <database/tables/table.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

/// The columns of a QuoteTable: the primary key, two sort keys and what filters look at.
enum QuoteColumn { kId, kPrice, kLots, kListed };

/// A table whose rows are easily told apart by their ids.
class QuoteTable : public Table
{
public:
    QuoteTable()
        : Table(QStringLiteral("quotes"), QString())
    {
        for (const char *name : {"Id", "Price", "Lots", "Listed"})
            addColumn(QLatin1String(name), FieldType::Integer, 0, false);
        setMasterIndex(new MasterIndex_Column_Pure(this, QStringLiteral("Id")));
    }

    /// A row that belongs to no index.
    Record row(int id, int price = 0, int listed = 1) const
    {
        const Record record(this);
        record.data(kId).setValue(id);
        record.data(kPrice).setValue(price);
        record.data(kListed).setValue(listed);
        return record;
    }

    /// A row that the table and its indexes hold.
    Record append(int id, int price = 0, int listed = 1)
    {
        const Record record = row(id, price, listed);
        appendRow(record.row());
        return record;
    }

    void setPrice(int id, int price) { at(id).data(kPrice).setValue(price); }

    void appendAll(const std::vector<int> &prices)
    {
        for (int i = 0; i < int(prices.size()); ++i)
            append(i, prices[size_t(i)]);
    }
};

/// Reads a cell without a Field, so that a million comparisons stay quick.
inline int cellOf(const Record &record, int column)
{
    qint32 value = 0;
    const TableColumnDef *def = record.table()->columnDef(column);
    std::memcpy(&value, record.row() + kRowHeaderSize + def->offset, sizeof value);
    return value;
}

/// Rows by one column, all of them or the listed ones. Counts comparisons and may refuse one.
class QuoteSort : public IndexSort
{
public:
    explicit QuoteSort(Table *table, QuoteColumn column = kPrice, bool listedOnly = false,
                       bool addToTable = true, bool tellsColumns = false)
        : IndexSort(table, addToTable)
        , m_column(column)
        , m_listedOnly(listedOnly)
    {
        if (tellsColumns)
            setColumns({column}, {kListed});
    }

    int compare(const Record &a, const Record &b) const override
    {
        comparisons.fetch_add(1, std::memory_order_relaxed);
        if (questionsLeft >= 0 && questionsLeft-- == 0)
            throw std::runtime_error("comparison refused");
        const int x = cellOf(a, m_column);
        const int y = cellOf(b, m_column);
        return int(x > y) - int(x < y);
    }
    bool filter(const Record &record) const override
    {
        return !m_listedOnly || cellOf(record, kListed) != 0;
    }

    mutable std::atomic<qint64> comparisons{0};
    mutable std::atomic<int> questionsLeft{-1}; // the next one throws; below 0: none does

private:
    const QuoteColumn m_column;
    const bool m_listedOnly;
};

using Ids = std::vector<int>;

/// The ids along an index, a list of records or a vector of them.
template<class Records>
Ids idsOf(const Records &records)
{
    Ids ids;
    for (const Record &record : records)
        ids.push_back(record.isNull() ? -1 : cellOf(record, kId));
    return ids;
}

inline int refCountOf(const Record &record)
{
    return rowHeader(record.row())->refCount.loadRelaxed();
}

/// What a call throws: the text of a QString or an Exception; empty when it throws nothing.
template<class Call>
std::string thrownBy(Call call)
{
    try {
        call();
    } catch (const QString &text) {
        return text.toStdString();
    } catch (const Exception &exception) {
        return exception.message.toStdString();
    }
    return {};
}
