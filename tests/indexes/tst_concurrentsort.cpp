#include "indexes/countedhandle.h"

#include <database/indexes/concurrentsort.h>

#include <QtCore/qthreadpool.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <set>
#include <thread>

namespace
{

constexpr int kKeySpan = 1 << 20;

/// A handle's value is its key above its original place: sorted stably, values ascend.
int key(const CountedHandle &handle)
{
    return handle.value() / kKeySpan;
}
int place(const CountedHandle &handle)
{
    return handle.value() % kKeySpan;
}

bool keyLess(const CountedHandle &a, const CountedHandle &b)
{
    return key(a) < key(b);
}

/// Fills the list at random; \return its values in the order that a stable sort by key gives.
std::vector<int> fill(List &list, int n, int keys, unsigned seed)
{
    std::mt19937 random(seed);
    QList<CountedHandle> handles;
    for (int i = 0; i < n; ++i)
        handles.append(CountedHandle(int(random() % unsigned(keys)) * kKeySpan + i));
    list.insert(0, handles);
    std::vector<int> sorted = valuesOf(list);
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

/// Journal of all comparisons: who compared and how far apart the eighths of the two originals lie.
class Journal
{
public:
    Journal(int records, size_t parties)
        : m_records(records)
        , m_parties(parties)
    {
    }

    /// Holds each thread at its first comparison until so many parties stand there.
    void add(int a, int b)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        threads.insert(std::this_thread::get_id());
        int level = 0; // 0: same eighth, 1: same quarter, 2: same half, 3: different halves
        for (int i = eighth(a), j = eighth(b); i != j; i /= 2, j /= 2)
            ++level;
        levels.push_back(level);
        m_arrival.notify_all();
        if (met)
            met = m_arrival.wait_for(lock, std::chrono::seconds(30),
                                     [&] { return threads.size() >= m_parties; });
    }

    bool met = true;
    std::set<std::thread::id> threads;
    std::vector<int> levels;

private:
    int eighth(int place) const { return (8 * place + 7) / m_records; } // cut at i * records / 8

    const int m_records;
    const size_t m_parties;
    std::mutex m_mutex;
    std::condition_variable m_arrival;
};

class ConcurrentSortTest : public CountedHandles
{
protected:
    void SetUp() override { QThreadPool::globalInstance()->setMaxThreadCount(8); }
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
        const std::vector<int> sorted = fill(list, n, 7, unsigned(n));
        const int copies = CountedHandle::s_copies;
        ConcurrentSort::stableSortHelper(list.begin(), list.end(), keyLess);
        EXPECT_EQ(CountedHandle::s_copies, copies) << "handles were copied";
        ASSERT_TRUE(list.verify());
        EXPECT_EQ(valuesOf(list), sorted);
    }
}

TEST_F(ConcurrentSortTest, sortsEightPiecesAtOnceFrom512OnThenMergesLevelByLevel)
{
    for (const int n : {511, 512, 1003}) { // 1003: pieces of unequal length
        SCOPED_TRACE(n);
        const bool parallel = n >= 512;
        List list(100, 50);
        const std::vector<int> sorted = fill(list, n, 1000, unsigned(n));
        Journal journal(n, parallel ? 8 : 1);
        QThreadPool::globalInstance()->waitForDone(); // so that all eight threads are free
        ConcurrentSort::stableSortHelper(list.begin(), list.end(),
                                         [&](const CountedHandle &a, const CountedHandle &b) {
                                             journal.add(place(a), place(b));
                                             return keyLess(a, b);
                                         });
        EXPECT_TRUE(journal.met) << "eight pieces were not under way at once";
        EXPECT_EQ(journal.threads == std::set<std::thread::id>{std::this_thread::get_id()},
                  !parallel);
        EXPECT_EQ(std::is_sorted(journal.levels.begin(), journal.levels.end()), parallel)
            << "pieces were merged before all were sorted, or cut elsewhere";
        EXPECT_EQ(std::set<int>(journal.levels.begin(), journal.levels.end()).size(), 4u);
        EXPECT_EQ(valuesOf(list), sorted);
    }
}
