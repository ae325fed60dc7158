#include <database/indexes/rangeset.h>

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

namespace
{

/// The bounds of the runs of integers in a set.
QList<int> runsOf(const std::set<int> &numbers)
{
    QList<int> runs;
    for (const int i : numbers) {
        if (!runs.isEmpty() && runs.constLast() == i)
            ++runs.last();
        else
            runs << i << i + 1;
    }
    return runs;
}

} // namespace

// Short ranges, empty and backward ones among them, that touch, bridge and repeat each other.
TEST(RangeSetTest, coversWhatASetOfIntegersHolds)
{
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        RangeSet<int> ranges;
        std::set<int> model;
        for (int step = 0; step < 60; ++step) {
            const int a = int(random() % 100);
            const int b = a + int(random() % (step % 9 ? 8 : 40)) - 1;
            ranges.addRange(a, b);
            for (int i = a; i < b; ++i)
                model.insert(i);
            ASSERT_EQ(ranges.bounds(), runsOf(model)) << "seed " << seed << " step " << step;
        }
    }
}
