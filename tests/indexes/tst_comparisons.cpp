#include "indexes/indexfixture.h"

#include <algorithm>
#include <random>

namespace
{

constexpr int kRows = kSanitized ? 50000 : 1000000;
constexpr int kChanges = 1000;
#ifdef QT_NO_DEBUG
constexpr int kAsserted = 0;
#else
constexpr int kAsserted = 512; // that a debug build looks at behind each batch
#endif

/// What a batch costs in comparisons in indexes that were built over all rows.
class BatchCost : public ::testing::Test
{
protected:
    BatchCost()
    {
        for (int id = 0; id < kRows; ++id) {
            const Record record = table.row(id, int(rng() % 1000000), id % 2);
            record.data(kLots).setValue(id % 100); // few keys, many rows each
            table.appendRow(record.row());
        }
        for (QuoteSort *index : indexes) {
            index->build();
            table.addIndex(index);
        }
    }

    void expectComparisonsBelow(qint64 limit, RecordsTrans &batch)
    {
        for (const QuoteSort *index : indexes)
            index->comparisons = 0;
        batch.execute();
        for (const QuoteSort *index : indexes) {
            EXPECT_LT(index->comparisons, limit + kAsserted);
            EXPECT_TRUE(std::is_sorted(index->begin(), index->end(), IndexSort::LessThan(index)));
        }
        EXPECT_EQ(byPrice.count(), table.rowCount());
        EXPECT_EQ(byLots.count(), table.rowCount());
    }

    void change(RecordsTrans &batch, int id)
    {
        const RecordUpdater row = batch.updateRow(table.at(id));
        row.record().data(kPrice).setValue(int(rng() % 1000000));
        row.record().data(kLots).setValue(int(rng() % 100));
        row.record().data(kListed).setValue(int(rng() % 2));
    }

    std::mt19937 rng{11};
    QuoteTable table;
    QuoteSort byPrice{&table, kPrice, false, false};
    QuoteSort byLots{&table, kLots, false, false};
    QuoteSort listedByPrice{&table, kPrice, true, false};
    QuoteSort *const indexes[3] = {&byPrice, &byLots, &listedByPrice};
};

TEST_F(BatchCost, growsWithTheChangesNotWithTheRows)
{
    RecordsTrans changed(&table);
    for (int i = 0; i < kChanges; ++i)
        change(changed, int(rng() % kRows));
    expectComparisonsBelow(100 * kChanges, changed);

    RecordsTrans tick(&table);
    change(tick, kRows / 3);
    expectComparisonsBelow(100, tick);
}

TEST_F(BatchCost, isNothingWhereNoColumnChangesThatAnIndexReads)
{
    QuoteSort told(&table, kPrice, true, true, true);
    told.build();
    told.comparisons = 0;
    RecordsTrans batch(&table);
    for (int id = 0; id < kChanges; ++id)
        batch.updateRow(table.at(id)).field(kLots).setValue(5);
    batch.execute();
    EXPECT_EQ(told.comparisons, 0);
    EXPECT_EQ(told.nsecsElapsed(), 0);
    for (int id = 0; id < kChanges; ++id) // what the filter reads counts as well
        batch.updateRow(table.at(id)).field(kListed).setValue(0);
    const int listed = told.count();
    batch.execute();
    EXPECT_EQ(told.count(), listed - kChanges / 2);
}

} // namespace
