#include "indexes/indexfixture.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <thread>

namespace
{

/// Remembers the threads that compared.
class WitnessSort : public QuoteSort
{
public:
    using QuoteSort::QuoteSort;

    int compare(const Record &a, const Record &b) const override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        threads.insert(std::this_thread::get_id());
        return QuoteSort::compare(a, b);
    }

    mutable std::mutex mutex;
    mutable std::set<std::thread::id> threads;
};

class ParallelSort : public ::testing::Test
{
protected:
    /// Rows of few prices in an order far from sorted.
    void fill(int rows)
    {
        for (int id = 0; id < rows; ++id)
            table.append(id, id * 7919 % 13);
    }

    /// What has to come out: by price, and rows of one price by id.
    static std::vector<int> sortedIds(int rows)
    {
        std::vector<int> ids(size_t(rows), 0);
        for (int id = 0; id < rows; ++id)
            ids[size_t(id)] = id;
        std::stable_sort(ids.begin(), ids.end(),
                         [](int a, int b) { return a * 7919 % 13 < b * 7919 % 13; });
        return ids;
    }

    QuoteTable table;
};

TEST_F(ParallelSort, staysOnTheCallersThreadBelow512Records)
{
    fill(511);
    WitnessSort index(&table);
    index.build();
    EXPECT_EQ(index.threads, std::set<std::thread::id>{std::this_thread::get_id()});
    EXPECT_EQ(idsOf(index), sortedIds(511));
}

// Plain comparisons: a lock in them would hide a race.
TEST_F(ParallelSort, isStableAndKeepsEveryReference)
{
    for (const int rows : {512, 513, 25000}) {
        SCOPED_TRACE(rows);
        table.clear();
        fill(rows);
        QuoteSort index(&table, kPrice, false, false);
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
    QuoteSort index(&table);
    index.build();
    QList<Record> inserted;
    for (int id = 20; id < 3000; ++id)
        inserted.append(table.row(id, id * 7919 % 13));
    index.process({}, {}, 0, 3, inserted);
    EXPECT_EQ(idsOf(index), sortedIds(3000));
}

TEST_F(ParallelSort, keepsItsRecordsWhenAThreadThrows)
{
    fill(2000);
    QuoteSort index(&table);
    index.build();
    for (const int questions : {0, 1000, 5000, 12000}) {
        index.fuse.set(questions);
        EXPECT_THROW(index.resort(), std::runtime_error);
        index.fuse.set(-1);
        EXPECT_TRUE(std::all_of(table.masterIndex()->begin(), table.masterIndex()->end(),
                                [&](const Record &record) {
                                    return refCountOf(record) == 2 && index.contains(record);
                                }));
    }
    index.rebuild();
    EXPECT_EQ(idsOf(index), sortedIds(2000));
}

} // namespace
