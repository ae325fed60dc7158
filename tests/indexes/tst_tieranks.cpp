#include "indexes/indexfixture.h"

#include <database/indexes/tieranks.h>

#include <random>

namespace
{

// Records of one run that come, leave and come back, each with its neighbours' knowledge.
TEST(TieRanks, findEveryRecordOfARunThatChanges)
{
    std::mt19937 random(3);
    const auto below = [&](int n) { return int(random() % unsigned(n)); };
    QuoteTable table;
    PartitionList<Record> list(100, 50);
    for (int i = 0; i < 1000; ++i)
        list.append(table.row(i));
    TieRanks ranks;
    ranks.number(list, 0, list.count());
    int id = list.count();
    for (int step = 0; step < 5000; ++step) {
        const int from = below(list.count());
        const Record record = below(3) ? list.at(from) : table.row(++id);
        ranks.forget(list.at(from));
        list.remove(from);
        const int to =
            below(4) ? list.count() : below(list.count() + 1); // mostly behind its equals
        list.insert(to, record);
        ranks.came(list, to, to > 0, to + 1 < list.count());
        ASSERT_TRUE(ranks.knows(record)) << step;
        ASSERT_EQ(ranks.find(list, 0, list.count(), record), to) << step;
        const int other = below(list.count());
        ASSERT_EQ(ranks.find(list, 0, list.count(), list.at(other)), other) << step;
    }
    EXPECT_EQ(ranks.find(list, 0, list.count(), table.row(-1)), -1);
    for (const Record &record : list)
        ranks.forget(record);
    EXPECT_TRUE(ranks.isEmpty());
}

} // namespace
