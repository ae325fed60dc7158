#include "analytics.h"
#include "smile.h"

#include <database/pricing/volatility.h>

#include <QtCore/qcoreapplication.h>

#include <gtest/gtest.h>

#include <cmath>

namespace
{

const datetime kNow(1772442000000);    // 2026-03-02 09:00
const datetime kExpiry(1774483200000); // 2026-03-26

/// A stock at 100.00 whose options of some strikes stand at the prices of 30 % volatility, but for
/// a call below its intrinsic value and a put that never traded.
Snapshot market(datetime now)
{
    Snapshot snapshot;
    snapshot.time = now;
    snapshot.underlyings.push_back(
        {QStringLiteral("OAK"), price(10000), price(10000), price(10000), decimal()});
    for (int strike = 60; strike <= 140; strike += 20) {
        const double s = std::sqrt(yearsToExpiry(now, kExpiry));
        for (const Side side : {Side::Call, Side::Put}) {
            const double fair = theorPriceForOutOfTheMoney(0.3, s, side == Side::Put, 100, strike);
            std::optional<decimal> last = decimal::fromDouble(fair, kPriceScale);
            if (strike == 60)
                last = side == Side::Call ? std::make_optional(price(3900)) : std::nullopt;
            snapshot.options.push_back({0, kExpiry, price(strike * 100), side, last, 1, 1});
        }
    }
    return snapshot;
}

} // namespace

TEST(AnalyticsTest, entersWhatTheModelSaysAndNothingElse)
{
    int argc = 0;
    const QCoreApplication application(argc, nullptr);
    Board board;
    Analytics analytics(board);
    board.apply(market(kNow));
    analytics.start(kNow);
    analytics.finish();
    EXPECT_EQ(analytics.totals().solved, 8);
    EXPECT_EQ(analytics.totals().unsolved, 1);
    for (const Record &option : board.byStrike()) {
        const auto strike = option.data(OptionTable::kStrike).value<decimal>().toDouble();
        const bool isPut = option.data(OptionTable::kSide).toString() == "P";
        for (int column = OptionTable::kVolatility; column <= OptionTable::kTheta; ++column)
            EXPECT_EQ(option.data(column).isNull(), strike == 60) << strike << ' ' << column;
        if (strike != 100)
            continue; // far from the money a hundredth is worth several percent
        EXPECT_NEAR(option.data(OptionTable::kVolatility).value<double>(), 30, 0.1);
        EXPECT_NEAR(option.data(OptionTable::kDelta).value<double>(), isPut ? -0.48 : 0.52, 0.01);
        EXPECT_LT(option.data(OptionTable::kTheta).value<double>(), 0);
    }
    QString drawing;
    QTextStream out(&drawing);
    printSmile(out, chainAroundMoney(board, QStringLiteral("OAK"), kNow, 9));
    EXPECT_EQ(drawing.count('|'), 8) << drawing.toStdString();
    EXPECT_TRUE(drawing.contains('*') || drawing.contains('c')) << drawing.toStdString();

    const datetime over(kExpiry.toMSecsSinceEpoch() + 86'400'000); // the day has ended
    board.apply(market(kNow));
    analytics.start(over);
    analytics.finish();
    for (const Record &option : board.byStrike())
        EXPECT_TRUE(option.data(OptionTable::kVolatility).isNull());
}
