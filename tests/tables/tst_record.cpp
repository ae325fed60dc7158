#include "support/tablefixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

TEST(Records, countTheirHandles)
{
    const KeyedTable table;
    Record first(&table);
    Record second = first;
    Record third(first.row());
    EXPECT_EQ(refCount(first), 3);
    Record moved(std::move(second));
    EXPECT_TRUE(second.isNull());
    third = std::move(moved);
    EXPECT_EQ(refCount(first), 2);
    const Record &alias = third;
    third = alias;
    third = std::move(const_cast<Record &>(alias));
    EXPECT_EQ(refCount(first), 2);
    const Record other(&table);
    third = other;
    EXPECT_EQ(refCount(other), 2);
    QList<Record> list{first, first, other};
    QVector<Record> vector(5, first);
    EXPECT_EQ(refCount(first), 8);
    list.removeFirst();
    vector.clear();
    EXPECT_EQ(refCount(first), 2);
}

TEST(Records, copyCells)
{
    const KeyedTable table;
    const Record source = newRow(table, {"1", "2", nullptr, "4"});
    Record all = newRow(table, {"9", "9", "9", "9"});
    Record some = all.clone();
    EXPECT_NE(all, some);
    all.copy(source);
    some.copy(source, 1, 2);
    all.copy(all, 0, 3); // a copy onto itself would be undefined
    all.copy(Record::null);
    EXPECT_EQ(cells(all), "1 2 NULL 4");
    EXPECT_EQ(cells(some), "9 2 NULL 9");
}

TEST(Records, readAsKeysAndForDiagnosis)
{
    KeyedTable table;
    const Record row = appendTexts(table, {"7", "1", nullptr, "-3"});
    EXPECT_EQ(Record(&table, QStringLiteral("7")), row);
    for (const char *noKey : {"", "8", "seven", "7,8"})
        EXPECT_TRUE(Record(&table, QString(noKey)).isNull()) << noKey;
    EXPECT_TRUE(row.inTable());
    EXPECT_FALSE(row.clone().inTable());
    EXPECT_EQ(row.toString(), "7");
    const QString address = QStringLiteral("%1").arg(quintptr(row.row()), 16, 16, QChar('0'));
    EXPECT_EQ(row.dump(true),
              QStringLiteral("quotes:(ptr:0x%1 ref:2) { key=7 a=1 c=-3 }").arg(address));
    EXPECT_TRUE(row.dump(false).endsWith(QStringLiteral("{ key=7 a=1 b=\"\" c=-3 }")));
    EXPECT_EQ(Record::null.dump(false) + Record::null.toString(), "{ NULL }");
    EXPECT_FALSE(Record::null.inTable());
    EXPECT_EQ(&table.at(1), &Record::null);
}

TEST(Records, readByNameAndTablesAsRanges)
{
    KeyedTable table;
    const Record seven = appendTexts(table, {"7", "1", nullptr, "-3"});
    appendTexts(table, {"5", "2", nullptr, nullptr});
    EXPECT_EQ(seven["c"].toString() + seven[1].toString(), "-31");
    EXPECT_EQ(seven.value<int>("a") + seven.value<std::int64_t>(3), -2);
    EXPECT_EQ(seven.value<int>("b"), 0);
    seven["b"].setValue(9u);

    const Table &constant = table;
    QStringList keys;
    for (const Record &row : constant)
        keys.append(row.keyText());
    EXPECT_EQ(keys.join(' '), "5 7");
    EXPECT_EQ(constant.find("7"), seven);
    for (const char *noKey : {"", "8", "seven", "7,8", "\"7", "NULL"})
        EXPECT_TRUE(constant.find(noKey).isNull()) << noKey;
    Table keyless("none", QString());
    EXPECT_TRUE(keyless.find("7").isNull());
    keyless.setMasterIndex(nullptr);
    EXPECT_TRUE(keyless.find("7").isNull());
    EXPECT_TRUE(keyless.begin() == keyless.end());
}

TEST(Records, areFreedOnceAfterAllThreadsHaveCopiedAndReadThem)
{
    // Each round the threads hold the only handles: whichever drops last frees the row, after the
    // others' reads.
    constexpr int kThreads = 4;
    const KeyedTable table;
    const Record shared = newRow(table, {"1"});
    for (int round = 0; round < 300; ++round) {
        std::vector<Record> handles(kThreads, newRow(table, {"7", "8"}));
        std::atomic<int> arrived{0};
        std::atomic<int> sum{0};
        const auto work = [&](int thread) {
            const Record own = std::move(handles[size_t(thread)]);
            ++arrived;
            while (arrived < kThreads)
                std::this_thread::yield();
            std::vector<Record> copies(20, shared);
            copies.back() = own.clone();
            sum += copies.back().data(1).value<qint32>();
        };
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back(work, i);
        for (std::thread &thread : threads)
            thread.join();
        ASSERT_EQ(sum, 8 * kThreads);
        ASSERT_EQ(refCount(shared), 1);
    }
}
