#include "indexes/indexfixture.h"

#include <database/indexes/indexlimit.h>
#include <database/indexes/indexvector.h>
#include <database/indexes/watchindex.h>

#include <algorithm>
#include <random>

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

// As if each record were put into the list when it is looked at.
TEST(IndexLimit, addsToTheRemovalsAsAPlainModelDoes)
{
    std::mt19937 random(6);
    const auto below = [&](int n) { return int(random() % unsigned(n)); };
    for (int step = 0; step < 200; ++step) {
        QuoteTable table;
        CheapestFirst index(20, &table);
        for (int i = 0; i < 20; ++i)
            table.append(below(15), below(10)); // some keys twice
        QList<Record> removed, updated;
        for (const Record &record : *table.masterIndex()) {
            if (const int choice = below(4); choice < 2)
                (choice ? removed : updated).append(record);
        }
        QList<Record> expected = removed;
        const int delta = below(25);
        for (int i = 0; i < qMin(delta, index.count()); ++i) {
            const auto hasItsKey = [&](const Record &other) {
                return cellOf(other, kId) == cellOf(index.at(i), kId);
            };
            if (std::any_of(updated.begin(), updated.end(), hasItsKey) ||
                std::any_of(expected.begin(), expected.end(), hasItsKey))
                continue;
            const auto place = std::upper_bound(
                expected.begin(), expected.end(), index.at(i),
                [](const Record &a, const Record &b) { return cellOf(a, kId) < cellOf(b, kId); });
            expected.insert(place, index.at(i));
        }
        EXPECT_EQ(index.toRemove(delta, removed, updated), delta > 0 ? qMin(delta, 20) : 20);
        ASSERT_EQ(removed, expected) << "step " << step;
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

// Of 1 2 3 4 the middle two rise past the last: neither may be placed by where the other stood.
TEST(IndexVector, ascendsAfterABatchThatMovesNeighbours)
{
    QuoteTable table;
    PriceVector index(&table);
    table.appendAll({1, 2, 3, 4});
    RecordsTrans batch(&table);
    batch.updateRow(table.at(1)).field(kPrice).setValue(10);
    batch.updateRow(table.at(2)).field(kPrice).setValue(11);
    batch.execute();
    EXPECT_EQ(idsOf(index.records()), (Ids{0, 3, 1, 2}));
    EXPECT_EQ(index.search(Record(), -1), -1);
    EXPECT_FALSE(index.contains(Record()));
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

// The lists as they would be if every event were carried out on them at once.
TEST(WatchIndex, keepsItsListsAsAPlainModelDoes)
{
    std::mt19937 random(5);
    const auto below = [&](int n) { return int(random() % unsigned(n)); };
    QuoteTable table;
    WatchIndex index(&table);
    QList<Record> rows, added, removed, updated;
    for (int i = 0; i < 12; ++i)
        rows.append(table.row(i));
    for (int step = 0; step < 3000; ++step) {
        const Record &record = rows.at(below(rows.size()));
        switch (below(8)) {
        case 0:
            index.update(record, 0, 1, -1);
            updated.append(record);
            break;
        case 1:
            ASSERT_EQ(index.removed(), removed) << step;
            ASSERT_EQ(index.contains(record), added.contains(record) || updated.contains(record));
            break;
        case 2:
            if (below(20) == 0) {
                index.clear();
                added = removed = updated = {};
            }
            break;
        case 3:
        case 4:
            index.add(record);
            (removed.removeOne(record) ? updated : added).append(record);
            break;
        default:
            index.remove(record, -1);
            removed.append(record);
        }
        ASSERT_EQ(index.added(), added) << step;
        ASSERT_EQ(index.updated(), updated) << step;
    }
}

} // namespace
