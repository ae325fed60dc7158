#include "indexes/countedhandle.h"

#include <database/indexes/concurrentsort.h>
#include <database/indexes/partitionlist.h>

#include <QtCore/qthreadpool.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

namespace
{

using List = PartitionList<CountedHandle>;

constexpr int kKeySpan = 1 << 20;

/// A handle's value is its key above its original place, so that places tell ties apart.
int key(const CountedHandle &handle)
{
    return handle.value() / kKeySpan;
}
int place(const CountedHandle &handle)
{
    return handle.value() % kKeySpan;
}

struct KeyLess {
    bool operator()(const CountedHandle &a, const CountedHandle &b) const
    {
        return key(a) < key(b);
    }
};

void fill(List &list, int n, int keys, unsigned seed)
{
    std::mt19937 random(seed);
    QList<CountedHandle> handles;
    for (int i = 0; i < n; ++i)
        handles.append(CountedHandle(int(random() % unsigned(keys)) * kKeySpan + i));
    list.insert(0, handles);
}

std::vector<int> values(const List &list)
{
    std::vector<int> result;
    for (const CountedHandle &handle : list)
        result.push_back(handle.isNull() ? -1 : handle.value());
    return result;
}

/// Values are keys above places: sorted stably, they stand in ascending order.
void expectStablySorted(const List &list, std::vector<int> before)
{
    std::sort(before.begin(), before.end());
    EXPECT_EQ(values(list), before);
}

/// Journal of all comparisons: who compared and how far apart the eighths of the two originals lie.
class Journal
{
public:
    explicit Journal(int n)
        : m_size(n)
    {
    }

    void add(int a, int b)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_threads.insert(std::this_thread::get_id());
        m_levels.push_back(level(a, b));
    }

    /// Holds each thread at its first comparison until parties threads stand there.
    bool meet(size_t parties)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_met.insert(std::this_thread::get_id());
        if (m_met.size() >= parties)
            m_allMet.notify_all();
        return m_allMet.wait_for(lock, std::chrono::seconds(30),
                                 [&] { return m_met.size() >= parties; });
    }

    const std::set<std::thread::id> &threads() const { return m_threads; }
    const std::vector<int> &levels() const { return m_levels; }

private:
    int eighth(int place) const
    {
        int i = 7;
        while (place < m_size * i / 8)
            --i;
        return i;
    }

    /// 0: same eighth, 1: same quarter, 2: same half, 3: different halves.
    int level(int a, int b) const
    {
        int result = 0;
        for (int i = eighth(a), j = eighth(b); i != j; i /= 2, j /= 2)
            ++result;
        return result;
    }

    const int m_size;
    std::mutex m_mutex;
    std::condition_variable m_allMet;
    std::set<std::thread::id> m_threads;
    std::set<std::thread::id> m_met;
    std::vector<int> m_levels;
};

class ConcurrentSortTest : public ::testing::Test
{
protected:
    void SetUp() override { QThreadPool::globalInstance()->setMaxThreadCount(8); }
    void TearDown() override
    {
        EXPECT_EQ(CountedHandle::s_alive, 0) << "references lost or leaked";
    }
};

} // namespace

TEST_F(ConcurrentSortTest, keepsTheOrderOfEqualKeysAtEverySize)
{
    std::vector<int> sizes{100000};
    for (int n = 0; n <= 2000; n += n < 500 || n > 530 ? 19 : 1)
        sizes.push_back(n);
    for (const int n : sizes) {
        SCOPED_TRACE(n);
        List list(n > 2000 ? 10000 : 100, 50);
        fill(list, n, 7, unsigned(n));
        const std::vector<int> before = values(list);
        const int copies = CountedHandle::s_copies;
        ConcurrentSort::stableSortHelper(list.begin(), list.end(), KeyLess());
        EXPECT_EQ(CountedHandle::s_copies, copies) << "handles were copied";
        ASSERT_TRUE(list.verify());
        expectStablySorted(list, before);
    }
}

TEST_F(ConcurrentSortTest, sortsAFlatViewOfTheList)
{
    List list(100, 50);
    fill(list, 5000, 40, 1);
    const int parts = list.partCount();
    const std::vector<int> before = values(list);
    const int copies = CountedHandle::s_copies;
    {
        List::FlatView view(list);
        ConcurrentSort::stableSortHelper(view.begin(), view.end(), KeyLess());
    }
    EXPECT_EQ(CountedHandle::s_copies, copies);
    EXPECT_EQ(list.partCount(), parts);
    expectStablySorted(list, before);
}

TEST_F(ConcurrentSortTest, staysOnTheCallersThreadBelow512)
{
    List list(100, 50);
    fill(list, 511, 1000, 1);
    Journal journal(511);
    ConcurrentSort::stableSortHelper(list.begin(), list.end(),
                                     [&](const CountedHandle &a, const CountedHandle &b) {
                                         journal.add(place(a), place(b));
                                         return key(a) < key(b);
                                     });
    EXPECT_EQ(journal.threads(), std::set<std::thread::id>{std::this_thread::get_id()});
    EXPECT_FALSE(std::is_sorted(journal.levels().begin(), journal.levels().end()));
}

TEST_F(ConcurrentSortTest, sortsEightPiecesAtOnceThenMergesLevelByLevel)
{
    for (const int n : {512, 1003}) { // 1003: pieces of unequal length
        SCOPED_TRACE(n);
        List list(100, 50);
        fill(list, n, 1000, unsigned(n));
        const std::vector<int> before = values(list);
        Journal journal(n);
        std::atomic<bool> met{true};
        QThreadPool::globalInstance()->waitForDone(); // so that all eight threads are free
        ConcurrentSort::stableSortHelper(list.begin(), list.end(),
                                         [&](const CountedHandle &a, const CountedHandle &b) {
                                             if (met && !journal.meet(8))
                                                 met = false;
                                             journal.add(place(a), place(b));
                                             return key(a) < key(b);
                                         });
        EXPECT_TRUE(met) << "eight pieces were not under way at once";
        EXPECT_TRUE(std::is_sorted(journal.levels().begin(), journal.levels().end()))
            << "pieces were merged before all were sorted, or cut elsewhere";
        EXPECT_EQ(std::set<int>(journal.levels().begin(), journal.levels().end()),
                  (std::set<int>{0, 1, 2, 3}));
        expectStablySorted(list, before);
    }
}

TEST_F(ConcurrentSortTest, exceptionOfTheComparisonReachesTheCallerAsItself)
{
    struct Refusal {
        int after;
    };
    for (const int after : {1, 300, 5000, 19000, 21000}) { // in a piece, in merges
        SCOPED_TRACE(after);
        List list(100, 50);
        fill(list, 2048, 1 << 10, 1);
        const std::vector<int> before = values(list);
        std::atomic<int> calls{0};
        const auto less = [&](const CountedHandle &a, const CountedHandle &b) {
            if (++calls == after)
                throw Refusal{after};
            return key(a) < key(b);
        };
        try {
            List::FlatView view(list);
            ConcurrentSort::stableSortHelper(view.begin(), view.end(), less);
            FAIL() << "the exception was swallowed after " << calls << " calls";
        } catch (const Refusal &refusal) {
            EXPECT_EQ(refusal.after, after);
        }
        EXPECT_EQ(values(list), before) << "a failed sort must leave the list as it was";
    }
}
