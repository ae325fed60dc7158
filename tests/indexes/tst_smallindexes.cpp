#include "indexes/indexfixture.h"

#include <database/indexes/indexlimit.h>
#include <database/indexes/indexvector.h>
#include <database/indexes/watchindex.h>

#include <algorithm>

namespace
{

int comparePrices(const Record &a, const Record &b)
{
    return cellOf(a, kPrice) - cellOf(b, kPrice);
}

/// The cheapest rows go first.
class CheapestFirst : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override { return comparePrices(a, b); }
};

TEST(IndexLimit, dropsItsFirstRecordsForABatchThatExceedsTheLimit)
{
    struct {
        const char *name;
        int limit;
        Ids inserted, removed, updated;
        Ids left; // of the rows 0..5, whose prices fall as their ids rise, and the inserted ones
    } cases[] = {
        {"full", 6, {7, 8}, {}, {}, {0, 1, 2, 3, 7, 8}},
        {"with_room", 9, {7, 8, 9}, {}, {}, {0, 1, 2, 3, 4, 5, 7, 8, 9}},
        {"more_than_it_holds", 2, {7, 8, 9}, {}, {}, {7, 8, 9}},
        {"removals_among_the_first_count", 5, {7}, {5}, {}, {0, 1, 2, 3, 4, 7}},
        {"updated_ones_stay", 6, {7, 8}, {}, {4}, {0, 1, 2, 3, 4, 7, 8}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
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
}

/// Listed rows by price.
class PriceVector : public IndexVector
{
public:
    using IndexVector::IndexVector;
    int compare(const Record &a, const Record &b) const override { return comparePrices(a, b); }
    bool filter(const Record &record) const override { return cellOf(record, kListed) != 0; }
};

TEST(IndexVector, keepsListedRowsByPriceAndEqualOnesAsTheyCame)
{
    QuoteTable table;
    PriceVector index(&table);
    table.appendAll({30, 10, 20, 10, 30});
    table.append(9, 15, 0);
    EXPECT_EQ(idsOf(index.records()), (Ids{1, 3, 2, 0, 4}));
    EXPECT_EQ(index.search(table.row(-1, 10), -5), 0);
    EXPECT_EQ(index.search(table.row(-1, 10), 0), 1);
    EXPECT_EQ(index.search(table.row(-1, 10), 1), -1);
    EXPECT_TRUE(index.contains(table.row(-1, 20))) << "by key, not by row";

    RecordsTrans batch(&table);
    batch.removeRow(table.at(1));
    batch.updateRow(table.at(2)).field(kPrice).setValue(30);
    batch.updateRow(table.at(3)).field(kListed).setValue(0);
    batch.insertRow(table.row(5, 5));
    batch.execute();
    EXPECT_EQ(idsOf(index.records()), (Ids{5, 0, 4, 2}));

    table.at(0).data(kPrice).setValue(31); // unseen
    index.resort();
    EXPECT_EQ(idsOf(index.records()), (Ids{5, 4, 2, 0}));
}

TEST(WatchIndex, notesWhatHappenedSinceItWasCleared)
{
    QuoteTable table;
    table.append(0);
    WatchIndex index(&table);
    table.appendAll({10, 20, 30}); // a second row of id 0 is a row like any other
    const Record gone = table.at(2);
    const Record back = table.at(3);

    for (int price = 1; price <= 2; ++price) {
        RecordsTrans batch(&table);
        batch.updateRow(table.at(0)).field(kPrice).setValue(price);
        batch.execute();
    }
    table.remove(gone, -1);
    table.remove(back, -1);
    table.appendRow(back.row());

    EXPECT_EQ(idsOf(index.added()), (Ids{0, 1, 2}));
    EXPECT_EQ(idsOf(index.removed()), (Ids{1}));
    EXPECT_EQ(idsOf(index.updated()), (Ids{0, 0, 2}));
    EXPECT_TRUE(index.contains(gone)) << "it was added in the same period";
    index.clear();
    EXPECT_TRUE(index.added().isEmpty() && index.removed().isEmpty() && index.updated().isEmpty());
    EXPECT_EQ(refCountOf(gone), 1);
}

} // namespace
