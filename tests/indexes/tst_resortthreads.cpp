#include "indexes/indexfixture.h"

#include <algorithm>
#include <numeric>

namespace
{

// Comparisons here take no lock: one would hide a race.
class ParallelSort : public ::testing::Test
{
protected:
    /// Few prices in an order far from sorted.
    static int priceOf(int id) { return id * 7919 % 13; }

    void fill(int rows)
    {
        for (int id = 0; id < rows; ++id)
            table.append(id, priceOf(id));
    }

    /// What has to come out: by price, and rows of one price by id.
    static Ids sortedIds(int rows)
    {
        Ids ids(size_t(rows), 0);
        std::iota(ids.begin(), ids.end(), 0);
        std::stable_sort(ids.begin(), ids.end(),
                         [](int a, int b) { return priceOf(a) < priceOf(b); });
        return ids;
    }

    QuoteTable table;
    QuoteSort index{&table, kPrice, false, false};
};

TEST_F(ParallelSort, isStableAndKeepsEveryReference)
{
    for (const int rows : {511, 512, 513, 25000}) {
        SCOPED_TRACE(rows);
        table.clear();
        index.clear();
        fill(rows);
        index.build();
        EXPECT_EQ(idsOf(index), sortedIds(rows));
        index.resort();
        EXPECT_EQ(idsOf(index), sortedIds(rows));
        EXPECT_TRUE(index.list().verify());
        EXPECT_TRUE(std::all_of(index.begin(), index.end(),
                                [](const Record &record) { return refCountOf(record) == 2; }));
    }
}

TEST_F(ParallelSort, sortsLargeBatchesInParallelToo)
{
    fill(20);
    index.build();
    QList<Record> inserted;
    for (int id = 20; id < 3000; ++id)
        inserted.append(table.row(id, priceOf(id)));
    index.process({}, {}, 0, 3, inserted);
    EXPECT_EQ(idsOf(index), sortedIds(3000));
}

TEST_F(ParallelSort, staysAsItWasWhenAThreadThrows)
{
    fill(2000);
    index.build();
    const Ids before = idsOf(index);
    for (int id = 0; id < 2000; ++id)
        table.setPrice(id, -priceOf(id)); // unseen: stands in the wrong order now
    for (const int questions : {0, 1000, 5000, 8000}) {
        index.fuse.set(questions);
        EXPECT_THROW(index.resort(), std::runtime_error);
        EXPECT_EQ(idsOf(index), before);
    }
}

} // namespace
