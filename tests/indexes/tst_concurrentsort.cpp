#include "indexes/indexfixture.h"

#include <database/indexes/digestsort.h>

#include <QtCore/qthreadpool.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <numeric>
#include <set>
#include <thread>
#include <tuple>

namespace
{

/// Holds each thread at its first comparison until all expected stand there.
class MeetingSort : public QuoteSort
{
public:
    using QuoteSort::QuoteSort;
    int compare(const Record &a, const Record &b) const override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        threads.insert(std::this_thread::get_id());
        m_arrival.notify_all();
        if (met)
            met = m_arrival.wait_for(lock, std::chrono::seconds(30),
                                     [&] { return threads.size() >= parties; });
        return QuoteSort::compare(a, b);
    }

    size_t parties = 1;
    mutable bool met = true;
    mutable std::set<std::thread::id> threads;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_arrival;
};

class ParallelSort : public ::testing::Test
{
protected:
    void SetUp() override { QThreadPool::globalInstance()->setMaxThreadCount(8); }

    /// Few prices in an order far from sorted.
    static int priceOf(int id) { return id * 7919 % 13; }

    void fill(int rows)
    {
        table.clear();
        table.appendAll(std::vector<int>(size_t(rows), 0));
    }

    /// Behind the back of any index.
    void changePrices()
    {
        for (int id = 0; id < table.rowCount(); ++id)
            table.setPrice(id, priceOf(id));
    }

    /// What has to come out: by price, and rows of one price by id.
    Ids sortedIds() const
    {
        Ids ids(size_t(table.rowCount()), 0);
        std::iota(ids.begin(), ids.end(), 0);
        std::stable_sort(ids.begin(), ids.end(),
                         [](int a, int b) { return priceOf(a) < priceOf(b); });
        return ids;
    }

    QuoteTable table;
};

// Comparisons take no lock here: one would hide a race.
TEST_F(ParallelSort, isStableAndKeepsEveryReference)
{
    for (const int rows : {1, 2, 510, 511, 512, 513, 519, 520, 25000}) {
        SCOPED_TRACE(rows);
        fill(rows);
        QuoteSort index(&table, kPrice, false, false);
        index.build();
        changePrices();
        index.resort();
        EXPECT_EQ(idsOf(index), sortedIds());
        EXPECT_TRUE(index.list().verify());
        EXPECT_TRUE(std::all_of(index.begin(), index.end(),
                                [](const Record &record) { return refCountOf(record) == 2; }));
    }
}

TEST_F(ParallelSort, sortsEightPiecesAtOnceFrom512On)
{
    for (const int rows : {511, 512}) {
        SCOPED_TRACE(rows);
        fill(rows);
        MeetingSort index(&table, kPrice, false, false);
        index.build();
        changePrices();
        index.threads.clear();
        index.parties = rows < 512 ? 1 : 8;
        QThreadPool::globalInstance()->waitForDone(); // so that all eight threads are free
        index.resort();
        EXPECT_TRUE(index.met) << "eight pieces were not under way at once";
        EXPECT_EQ(index.threads == std::set<std::thread::id>{std::this_thread::get_id()},
                  rows < 512);
        EXPECT_EQ(idsOf(index), sortedIds());
    }
}

TEST_F(ParallelSort, staysAsItWasWhenAThreadThrows)
{
    fill(2000);
    QuoteSort index(&table, kPrice, false, false);
    index.build();
    const Ids before = idsOf(index);
    changePrices();
    for (const int questions : {0, 1000, 5000, 8000}) {
        index.questionsLeft = questions;
        EXPECT_THROW(index.resort(), std::runtime_error);
        EXPECT_EQ(idsOf(index), before);
    }
}

TEST(DigestSort, agreesWithAStableSort)
{
    struct Item {
        quint64 digest;
        int number;
        int rank; // among items of one digest
    };
    const auto digestsOf = [](const char *order, int i, int n) -> quint64 {
        const quint64 mixed = quint64(i + 1) * Q_UINT64_C(0x9E3779B97F4A7C15);
        const std::string name = order;
        if (name == "rising")
            return quint64(i);
        if (name == "falling")
            return quint64(n - i) << 40;
        if (name == "falling, but for two")
            return quint64(i == n / 2 ? n - i + 1 : n - i);
        if (name == "few")
            return mixed >> 61;
        return name == "one" ? 7 : mixed;
    };
    for (const char *order :
         {"rising", "falling", "falling, but for two", "few", "one", "random"}) {
        for (const int n : {0, 1, 2, 100, 5000, 20000}) { // the last by several threads
            for (const int ranks : {1, 10}) {
                SCOPED_TRACE(testing::Message() << order << ", " << n << ", ranks " << ranks);
                std::vector<Item> items, buffer;
                for (int i = 0; i < n; ++i)
                    items.push_back({digestsOf(order, i, n), i, i * 7 % ranks});
                std::vector<Item> expected = items;
                std::stable_sort(expected.begin(), expected.end(),
                                 [](const Item &a, const Item &b) {
                                     return std::tie(a.digest, a.rank) < std::tie(b.digest, b.rank);
                                 });
                std::vector<int> asked(size_t(n), 0);
                std::atomic<bool> inTime{true};
                const auto less = [&](const Item &a, const Item &b) {
                    if (asked[size_t(a.number)] != 1 || asked[size_t(b.number)] != 1)
                        inTime = false;
                    return a.rank < b.rank;
                };
                sortByDigests(items, buffer, less,
                              [&](const Item &item) { ++asked[size_t(item.number)]; });
                EXPECT_TRUE(inTime);
                ASSERT_TRUE(
                    std::equal(items.begin(), items.end(), expected.begin(), expected.end(),
                               [](const Item &a, const Item &b) { return a.number == b.number; }));
            }
        }
    }
}

/// Refuses to compare once rows hold their new values.
class RefusingSort : public QuoteSort
{
public:
    using QuoteSort::QuoteSort;
    int compare(const Record &a, const Record &b) const override
    {
        if (refuses && table()->transactionState() == 2)
            throw std::runtime_error("comparison refused");
        return QuoteSort::compare(a, b);
    }
    bool refuses = false;
};

/// Independent indexes beside one that is not.
class SideBySide : public ::testing::Test
{
protected:
    SideBySide()
    {
        for (int id = 0; id < kRows; ++id)
            table.append(id, id % 97);
        for (QuoteSort *index : independent)
            index->setIndependent(true);
    }
    /// In no order of keys or addresses. \return the pending rows
    QList<Record> changeEverySecondRow()
    {
        QList<Record> pending;
        RecordsTrans batch(&table);
        for (int i = 0; i < kRows; i += 2) {
            const int id = int(qint64(i) * 7919 % kRows);
            RecordUpdater row = batch.updateRow(table.at(id));
            row.field(kPrice).setValue(1000 - id % 89);
            pending.append(row.record());
        }
        batch.execute();
        return pending;
    }

    static constexpr int kRows = 4000;
    QuoteTable table;
    QuoteSort first{&table, kPrice, false, true, true};
    QuoteSort second{&table, kPrice, true, true, true};
    QuoteSort alone{&table, kPrice, false, true, true};
    RefusingSort third{&table, kPrice, false, true, false};
    QuoteSort *const independent[3] = {&first, &second, &third};
};

TEST_F(SideBySide, endUpAsOneAfterTheOther)
{
    changeEverySecondRow();
    const Ids expected = idsOf(alone);
    for (const QuoteSort *index : independent)
        EXPECT_EQ(idsOf(*index), expected);
    EXPECT_TRUE(std::is_sorted(alone.begin(), alone.end(), IndexSort::LessThan(&alone)));
}

TEST_F(SideBySide, letGoOfTheRowsOfABatch)
{
    const auto counts = [](const auto &records) {
        std::map<int, int> result;
        for (const Record &record : records)
            ++result[refCountOf(record)];
        return result;
    };
    const std::map<int, int> before = counts(*table.masterIndex());
    EXPECT_EQ(counts(changeEverySecondRow()), (std::map<int, int>{{1, kRows / 2}}));
    EXPECT_EQ(counts(*table.masterIndex()), before);
}

TEST_F(SideBySide, oneThatThrowsKeepsTheBatchFromNobody)
{
    third.refuses = true;
    EXPECT_THROW(changeEverySecondRow(), std::runtime_error);
    ASSERT_EQ(cellOf(table.at(0), kPrice), 1000) << "threw before the rows changed";
    EXPECT_EQ(idsOf(second), idsOf(alone));
    EXPECT_TRUE(std::is_sorted(second.begin(), second.end(), IndexSort::LessThan(&second)));
    EXPECT_EQ(table.transactionState(), 0);
}

} // namespace
