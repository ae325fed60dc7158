#include "chain.h"
#include "simulatedfeed.h"

#include <gtest/gtest.h>

#include <set>

namespace
{

constexpr qint64 kDay = 86'400'000;
const datetime kNow(20514 * kDay + 36'000'000); // 2026-03-02 10:00

struct ChainOfStrikes : ::testing::Test {
    ChainOfStrikes()
    {
        Snapshot snapshot;
        snapshot.time = kNow;
        const auto add = [&](const char *stock, qint64 last) {
            snapshot.underlyings.push_back({QLatin1String(stock), price(last), {}, {}, {}});
        };
        const auto addOption = [&](qint64 day, qint64 strike, Side side, qint64 volume) {
            snapshot.options.push_back({int(snapshot.underlyings.size()) - 1,
                                        datetime((20514 + day) * kDay), price(strike), side,
                                        price(5), 0, volume});
        };
        add("ASH", 100);
        addOption(9, 100, Side::Call, 40);
        add("OAK", 1000);
        addOption(-1, 1000, Side::Call, 1); // expired
        for (const qint64 strike : {800, 900, 1050, 1100, 1200}) {
            addOption(0, strike, Side::Call, 8);
            if (strike != 900)
                addOption(0, strike, Side::Put, 2);
        }
        addOption(30, 1000, Side::Call, 0); // of a later expiry
        add("YEW", 100);
        board.apply(snapshot);
    }

    std::vector<std::string> strikes(const char *stock, int count) const
    {
        std::vector<std::string> texts;
        for (const ChainRow &row :
             chainAroundMoney(board, QLatin1String(stock), kNow, count).rows) {
            const QString sides = QLatin1String(row.call ? "C" : "-") +
                                  QLatin1String(row.put ? "P" : "-") + QLatin1Char(' ');
            texts.push_back((sides + row.strike.toExactString()).toStdString());
        }
        return texts;
    }

    Board board;
};

using Strikes = std::vector<std::string>;

TEST_F(ChainOfStrikes, takesThoseNearestToThePriceOfTheNearestExpiry)
{
    EXPECT_EQ(strikes("OAK", 1), (Strikes{"CP 10.50"}));
    EXPECT_EQ(strikes("OAK", 2), (Strikes{"C- 9.00", "CP 10.50"})) << "the lower of two";
    EXPECT_EQ(strikes("OAK", 4), (Strikes{"CP 8.00", "C- 9.00", "CP 10.50", "CP 11.00"}));
    EXPECT_EQ(strikes("OAK", 99).size(), 5u);
    EXPECT_EQ(strikes("ASH", 99), (Strikes{"C- 1.00"}));
}

TEST_F(ChainOfStrikes, isEmptyWhereNothingIsListed)
{
    EXPECT_TRUE(strikes("YEW", 5).empty());
    EXPECT_TRUE(chainAroundMoney(board, QStringLiteral("ELM"), kNow, 5).underlying.isNull());
    EXPECT_TRUE(chainAroundMoney(Board(), QStringLiteral("OAK"), kNow, 5).underlying.isNull());
}

TEST_F(ChainOfStrikes, belongsToTheStockOfTheHighestVolumeInAll)
{
    EXPECT_EQ(busiestStock(board), QStringLiteral("OAK")); // 49 in many, against 40 in one
    EXPECT_EQ(busiestStock(Board()), QString());
}

} // namespace
