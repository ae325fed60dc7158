#include "simulatedfeed.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <tuple>

namespace
{

using Key = std::tuple<QString, qint64, qint64, char>;

std::map<Key, OptionQuote> byKey(const Snapshot &snapshot)
{
    std::map<Key, OptionQuote> options;
    for (const OptionQuote &option : snapshot.options) {
        options.emplace(Key(snapshot.underlyings.at(size_t(option.underlying)).stock,
                            option.expiry.toMSecsSinceEpoch(), option.strike.mantissa(),
                            char(option.side)),
                        option);
    }
    return options;
}

TEST(SimulatedFeed, keepsSnapshotsInKeyOrderWithSensibleValues)
{
    SimulatedFeed feed(20, 3);
    for (int i = 0; i < feed.count(); ++i) {
        const Snapshot snapshot = feed.next();
        EXPECT_GT(snapshot.options.size(), 4000u);
        const auto keys = byKey(snapshot);
        ASSERT_EQ(keys.size(), snapshot.options.size()) << "a key stands twice";
        auto expected = keys.cbegin();
        for (const OptionQuote &option : snapshot.options) {
            ASSERT_EQ(std::get<2>(expected->first), option.strike.mantissa());
            ASSERT_EQ(std::get<3>(expected->first), char(option.side));
            ASSERT_EQ(option.last.has_value(), option.volume > 0);
            ASSERT_GE(option.openInterest, 0);
            if (option.last) {
                ASSERT_GT(option.last->mantissa(), 0);
            }
            ++expected;
        }
    }
}

TEST(SimulatedFeed, listsDelistsAndTradesWithVolumesThatGrow)
{
    SimulatedFeed feed(20, 3);
    auto before = byKey(feed.next());
    int listed = 0, delisted = 0, traded = 0;
    for (int i = 1; i < feed.count(); ++i) {
        const auto now = byKey(feed.next());
        for (const auto &entry : now) {
            const auto earlier = before.find(entry.first);
            if (earlier == before.end()) {
                ++listed;
                continue;
            }
            ASSERT_GE(entry.second.volume, earlier->second.volume);
            traded += entry.second.volume > earlier->second.volume;
        }
        delisted += int(std::count_if(before.cbegin(), before.cend(), [&](const auto &entry) {
            return now.find(entry.first) == now.end();
        }));
        before = now;
    }
    EXPECT_GT(listed, 100);
    EXPECT_GT(delisted, 100);
    EXPECT_GT(traded, 10'000);
}

// The figures are the generator's own: they change only when the market is meant to.
TEST(SimulatedFeed, isTheSameMarketEverywhereForOneSeed)
{
    SimulatedFeed feed(3, 20260302);
    feed.next();
    feed.next();
    const Snapshot third = feed.next();
    qint64 volume = 0, prices = 0;
    for (const OptionQuote &option : third.options) {
        volume += option.volume;
        prices += option.last ? option.last->mantissa() : 0;
    }
    EXPECT_EQ(third.options.size(), 5046u);
    EXPECT_EQ(volume, 51164525);
    EXPECT_EQ(prices, 51301355);
}

} // namespace
