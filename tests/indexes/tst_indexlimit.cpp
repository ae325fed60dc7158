#include "indexes/indexfixture.h"

#include <database/indexes/indexlimit.h>

#include <algorithm>

namespace
{

/// The cheapest rows go first.
class CheapestFirst : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override { return comparePrices(a, b); }
};

struct LimitedBatch {
    const char *name;
    int limit;
    Ids inserted, removed, updated;
    Ids left; // of the rows 0..5, whose prices fall as their ids rise, and the inserted ones
    friend void PrintTo(const LimitedBatch &batch, std::ostream *out) { *out << batch.name; }
};

class LimitIndex : public ::testing::TestWithParam<LimitedBatch>
{
};

TEST_P(LimitIndex, dropsItsFirstRecordsForABatchThatExceedsTheLimit)
{
    const LimitedBatch &c = GetParam();
    QuoteTable table;
    CheapestFirst index(c.limit, &table);
    table.appendAll({60, 50, 40, 30, 20, 10});
    RecordsTrans batch(&table);
    for (const int id : c.inserted)
        batch.insertRow(table.row(id, 100 + id));
    for (const int id : c.removed)
        batch.removeRow(table.at(id));
    for (const int id : c.updated)
        batch.updateRow(table.at(id)).field(kLots).setValue(1);
    batch.execute();
    EXPECT_EQ(idsOf(*table.masterIndex()), c.left);
    Ids held = idsOf(index);
    std::sort(held.begin(), held.end());
    EXPECT_EQ(held, c.left);
}

INSTANTIATE_TEST_SUITE_P(
    IndexLimit, LimitIndex,
    ::testing::Values(LimitedBatch{"full", 6, {7, 8}, {}, {}, {0, 1, 2, 3, 7, 8}},
                      LimitedBatch{"with_room", 9, {7, 8, 9}, {}, {}, {0, 1, 2, 3, 4, 5, 7, 8, 9}},
                      LimitedBatch{"above_already", 2, {7}, {}, {}, {0, 7}},
                      LimitedBatch{"more_than_it_holds", 2, {7, 8, 9}, {}, {}, {7, 8, 9}},
                      LimitedBatch{"removals_make_room", 6, {7, 8}, {0, 1}, {}, {2, 3, 4, 5, 7, 8}},
                      LimitedBatch{
                          "removals_among_the_first_count", 5, {7}, {5}, {}, {0, 1, 2, 3, 4, 7}},
                      LimitedBatch{"updated_ones_stay", 6, {7, 8}, {}, {4}, {0, 1, 2, 3, 4, 7, 8}}),
    caseName<LimitedBatch>);

TEST(IndexLimit, addsToTheRemovalsInTheOrderOfTheMasterIndex)
{
    QuoteTable table;
    CheapestFirst index(4, &table);
    table.appendAll({60, 50, 40, 30, 20, 10});
    QList<Record> removed{table.at(0), table.at(4)};
    EXPECT_EQ(index.toRemove(2, removed, {table.at(3)}), 4); // 10, 20, 30 and 40 are looked at
    EXPECT_EQ(idsOf(removed), (Ids{0, 2, 4, 5}));
    EXPECT_EQ(index.toRemove(-2, removed, {}), 6);
    EXPECT_EQ(removed.size(), 4);
    EXPECT_TRUE(index.containsRecord(removed, table.row(2))) << "by key, not by row";
    EXPECT_FALSE(index.containsRecord(removed, table.row(3)));
    EXPECT_EQ(index.getClassName(), "IndexLimit");
    EXPECT_EQ(table.namedIndex(QStringLiteral("IndexLimit")), &index);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("Lots")));
    EXPECT_TRUE(index.containsRecord({table.row(1)}, table.row(2)))
        << "asks the master index that the table has now: both have no lots";
}

} // namespace
