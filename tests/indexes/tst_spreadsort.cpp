#include "database/indexes/spreadsort.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>

namespace
{

struct Item {
    quint64 digest;
    int number;
    bool operator==(const Item &other) const
    {
        return digest == other.digest && number == other.number;
    }
};

void PrintTo(const Item &item, std::ostream *out)
{
    *out << item.digest << " (" << item.number << ")";
}

struct Digests {
    const char *name;
    std::function<quint64(std::mt19937_64 &, int i)> draw;
};

class SpreadSort : public ::testing::TestWithParam<Digests>
{
};

TEST_P(SpreadSort, ordersLikeAStableSort)
{
    for (const size_t n : {0, 1, 31, 32, 33, 1000, 4096, 4097}) {
        std::mt19937_64 rng(n);
        std::vector<Item> items;
        for (size_t i = 0; i < n; ++i)
            items.push_back({GetParam().draw(rng, int(i)), int(i)});
        std::vector<Item> expected = items;
        std::stable_sort(expected.begin(), expected.end(),
                         [](const Item &a, const Item &b) { return a.digest < b.digest; });
        std::vector<Item> sorted = items;
        spreadByDigests(sorted);
        EXPECT_EQ(sorted, expected) << n;

        // Ties by something else, here the latest first.
        const auto later = [](const Item &a, const Item &b) { return a.number > b.number; };
        std::sort(expected.begin(), expected.end(), [&](const Item &a, const Item &b) {
            return a.digest != b.digest ? a.digest < b.digest : later(a, b);
        });
        spreadByDigests(items, later);
        EXPECT_EQ(items, expected) << n;
    }
}

quint64 bitsOf(double value)
{
    quint64 bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

INSTANTIATE_TEST_SUITE_P(
    Digests, SpreadSort,
    ::testing::Values(
        Digests{"over_all_bits", [](auto &rng, int) { return rng(); }},
        Digests{"both_ends", [](auto &rng, int) { return rng() % 2 ? ~quint64(0) : 0; }},
        Digests{"all_equal", [](auto &, int) { return quint64(7); }},
        Digests{"few_values", [](auto &rng, int) { return rng() % 5; }},
        Digests{"one_far_away",
                [](auto &rng, int i) { return i == 3 ? ~quint64(0) : rng() % 900; }},
        Digests{"prices", [](auto &rng, int) { return bitsOf(double(rng() % 100000) / 100); }},
        Digests{"descending", [](auto &, int i) { return quint64(1000000 - i); }},
        Digests{"crowds", [](auto &rng, int) { return rng() % 8 << 40 | rng() % 1000; }}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
