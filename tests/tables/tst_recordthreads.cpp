#include "support/tablefixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace
{
constexpr int kThreads = 4;

template<class Work>
void inThreads(Work work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    for (std::thread &thread : threads)
        thread.join();
}
} // namespace

TEST(RecordThreads, copyAndDropSharedHandles)
{
    const KeyedTable table;
    const Record shared[] = {newRow(table, {"1"}), newRow(table, {"1"}), newRow(table, {"1"})};
    inThreads([&](int thread) {
        std::vector<Record> own;
        for (int step = 0; step < 5000; ++step) {
            own.push_back(shared[(step + thread) % 3]);
            const Record clone = own.back().clone();
            own.back() = own.front();
            clone.data(1).setValue(step);
            if (own.size() > 20)
                own.clear();
        }
    });
    for (const Record &record : shared)
        EXPECT_EQ(refCount(record), 1);
}

TEST(RecordThreads, freeARowOnceAfterAllHaveReadIt)
{
    // Each round the threads hold the only handles: whichever drops last frees the row, after the
    // others' reads.
    const KeyedTable table;
    for (int round = 0; round < 300; ++round) {
        std::vector<Record> handles(kThreads, newRow(table, {"7", "8"}));
        std::atomic<int> arrived{0};
        std::atomic<int> sum{0};
        inThreads([&](int thread) {
            const Record own = std::move(handles[size_t(thread)]);
            ++arrived;
            while (arrived < kThreads)
                std::this_thread::yield();
            sum += own.data(1).value<qint32>();
        });
        ASSERT_EQ(sum, 8 * kThreads);
    }
}

TEST(RecordThreads, writeUnderTheTablesLock)
{
    KeyedTable table;
    const Record row = appendTexts(table, {"1", "0"});
    inThreads([&](int) {
        for (int step = 0; step < 500; ++step) {
            table.lock();
            table.lock(); // recursive
            const Record mine = table.at(0);
            mine.data(1).setValue(mine.data(1).value<qint32>() + 1);
            table.unlock();
            table.unlock();
        }
    });
    EXPECT_EQ(row.data(1).value<qint32>(), kThreads * 500);
    EXPECT_EQ(refCount(row), 2);
}
