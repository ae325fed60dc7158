#include <database/indexes/rangeset.h>

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <utility>
#include <vector>

namespace
{

struct Additions {
    const char *name;
    std::vector<std::pair<int, int>> ranges;
    QList<int> bounds;
};

class RangeSetAdditions : public ::testing::TestWithParam<Additions>
{
};

} // namespace

TEST_P(RangeSetAdditions, leaveTheSmallestSetOfRanges)
{
    RangeSet<int> set;
    for (const auto &range : GetParam().ranges)
        set.addRange(range.first, range.second);
    EXPECT_EQ(set.bounds(), GetParam().bounds);
}

INSTANTIATE_TEST_SUITE_P(
    RangeSet, RangeSetAdditions,
    ::testing::Values(Additions{"touching_after", {{5, 7}, {7, 9}}, {5, 9}},
                      Additions{"touching_before", {{7, 9}, {5, 7}}, {5, 9}},
                      Additions{"apart_by_one", {{5, 7}, {8, 9}}, {5, 7, 8, 9}},
                      Additions{"before_all", {{5, 7}, {1, 3}}, {1, 3, 5, 7}},
                      Additions{"fills_a_hole", {{1, 3}, {5, 7}, {3, 5}}, {1, 7}},
                      Additions{"bridges_many", {{1, 2}, {4, 5}, {7, 8}, {1, 8}}, {1, 8}},
                      Additions{"inside", {{1, 9}, {3, 4}}, {1, 9}},
                      Additions{"empty", {{4, 4}}, {}},
                      Additions{"empty_in_a_hole", {{1, 3}, {5, 7}, {4, 4}}, {1, 3, 5, 7}},
                      Additions{"backwards", {{1, 3}, {9, 2}}, {1, 3}}),
    [](const auto &info) { return info.param.name; });

TEST(RangeSetTest, coversWhatASetOfIntegersHolds)
{
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        RangeSet<int> ranges;
        std::set<int> model;
        for (int step = 0; step < 60; ++step) {
            const int a = int(random() % 100);
            const int b = a + int(random() % 8) - 1;
            ranges.addRange(a, b);
            for (int i = a; i < b; ++i)
                model.insert(i);
            QList<int> expected; // runs of the model
            for (const int i : model) {
                if (!expected.isEmpty() && expected.constLast() == i)
                    ++expected.last();
                else
                    expected << i << i + 1;
            }
            ASSERT_EQ(ranges.bounds(), expected) << "seed " << seed << " step " << step;
        }
    }
}
