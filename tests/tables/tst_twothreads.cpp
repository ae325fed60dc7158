// Threads that change one table, or two that are joined, each as if it were alone.

#include "support/tablefixture.h"

#include <database/indexes/indexsort.h>
#include <database/indexes/openindex.h>
#include <database/joins/tablejoinmain.h>
#include <database/tables/cellcompare.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace
{

class ByA : public IndexSort
{
public:
    explicit ByA(Table *table)
        : IndexSort(table, true)
        , m_a(table->columnDef(1))
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        return compareCells(*m_a, a, b);
    }

private:
    const TableColumnDef *m_a;
};

/// Adds one to a cell of each of some rows in a bracket of its own, many times.
void count(Table &table, int column, int rows, int rounds)
{
    for (int round = 0; round < rounds; ++round) {
        const TableUpdate bracket(table);
        RecordsTrans batch(&table);
        for (int row = 0; row < rows; ++row) {
            Field cell = batch.updateRow(table.at(row)).field(column);
            cell.setValue(cell.value<qint32>() + 1);
        }
        if (round % 8 == 0) { // a bracket inside the bracket
            const TableUpdate inner(table);
            batch.execute();
        } else {
            batch.execute();
        }
    }
}

TEST(TwoThreads, loseNoUpdateOfOneTable)
{
    constexpr int kRows = 20;
    constexpr int kRounds = 400;
    KeyedTable table;
    ByA index(&table);
    for (int i = 0; i < kRows; ++i)
        appendTexts(table, {qPrintable(QString::number(i)), "0", "0", "0"});
    const auto insertAndRemove = [&](int base) {
        for (int round = 0; round < kRounds; ++round) {
            const TableUpdate bracket(table);
            RecordsTrans batch(&table);
            batch.upsertRow(newRow(table, {qPrintable(QString::number(base))}))
                .field(1)
                .setValue(round);
            batch.execute();
            if (round % 2) {
                batch.removeRow(Record(&table, QString::number(base)));
                batch.execute();
            }
        }
    };
    std::thread threads[] = {std::thread([&] { count(table, 1, kRows, kRounds); }),
                             std::thread([&] { count(table, 1, kRows, kRounds); }),
                             std::thread([&] { count(table, 2, kRows, kRounds); }),
                             std::thread([&] { insertAndRemove(1000); }),
                             std::thread([&] { insertAndRemove(2000); })};
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(table.rowCount(), kRows);
    EXPECT_EQ(index.count(), kRows);
    for (int i = 0; i < kRows; ++i) {
        EXPECT_EQ(table.data(i, 1).value<qint32>(), 2 * kRounds);
        EXPECT_EQ(table.data(i, 2).value<qint32>(), kRounds);
    }
}

TEST(TwoThreads, openAndCloseIndexesWhileAFeedRuns)
{
    constexpr int kRows = 60;
    KeyedTable table;
    for (int i = 0; i < kRows; ++i)
        appendTexts(table, {qPrintable(QString::number(i)), "0", "0", "0"});
    std::atomic<bool> done{false};
    std::thread feed([&] {
        while (!done)
            count(table, 1, kRows, 1);
    });
    for (int i = 0; i < 150; ++i) {
        const OpenIndex<ByA> index = openIndex<ByA>(table);
        const TableUpdate bracket(table);
        ASSERT_EQ(index->count(), kRows);
        ASSERT_TRUE(std::is_sorted(index->begin(), index->end(), IndexSort::LessThan(&*index)));
        ASSERT_EQ(index->begin()->data(1).value<qint32>(), table.at(0).data(1).value<qint32>());
    }
    done = true;
    feed.join();
    EXPECT_EQ(table.indexes(), QList<Index *>());
}

// Each thread knows its own table only; the joins take the locks that are needed besides. Tables:
// options show stocks, stocks show sectors.
TEST(TwoThreads, updateJoinedTablesEachOnItsOwn)
{
    constexpr int kRounds = 150;
    KeyedTable sectors, stocks, options;
    TableJoinMain upper(&options);
    upper.addTable(&stocks, {"a"}, {{"b", "price"}, {"c", "state"}});
    TableJoinMain lower(&stocks);
    lower.addTable(&sectors, {"a"}, {{"b", "rate"}});
    for (int i = 0; i < 4; ++i) {
        appendTexts(sectors, {qPrintable(QString::number(i)), "0", "0", "0"});
        appendTexts(stocks,
                    {qPrintable(QString::number(i)), qPrintable(QString::number(i % 2)), "0", "0"});
    }
    for (int i = 0; i < 40; ++i)
        appendTexts(options,
                    {qPrintable(QString::number(i)), qPrintable(QString::number(i % 4)), "0", "0"});
    std::thread threads[] = {
        std::thread([&] { count(sectors, 2, 4, kRounds); }),
        std::thread([&] { count(stocks, 2, 4, kRounds); }),
        std::thread([&] { count(stocks, 3, 4, kRounds); }),
        std::thread([&] { count(options, 2, 40, kRounds); }), std::thread([&] {
            for (int i = 0; i < kRounds; ++i) { // a reader, as the rule asks of one
                for (Table *table :
                     {static_cast<Table *>(&stocks), static_cast<Table *>(&options)}) {
                    table->lock();
                    const QString first = cells(table->at(0));
                    table->beginUpdate();
                    ASSERT_EQ(cells(table->at(0)), first) << "nobody writes between";
                    table->endUpdate();
                    table->unlock();
                }
            }
        })};
    for (std::thread &thread : threads)
        thread.join();
    const QString all = QString::number(kRounds);
    for (const Record &stock : *stocks.masterIndex())
        EXPECT_EQ(stock.data("rate").toString(), all);
    for (const Record &option : *options.masterIndex()) {
        EXPECT_EQ(option.data(2).toString(), all);
        EXPECT_EQ(option.data("price").toString(), all);
        EXPECT_EQ(option.data("state").toString(), all);
    }
}

} // namespace
