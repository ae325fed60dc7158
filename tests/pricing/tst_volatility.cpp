#include <database/pricing/volatility.h>

#include <gtest/gtest.h>

#include <cmath>

using Real = long double;
constexpr double kCdfError = 2.1e-7; // of norm_cdf with its short constants, largest near 0
const auto exactCdf = [](Real x) { return std::erfc(-x / std::sqrt(Real(2))) / 2; };

const auto exactCall = [](Real K, Real S, Real T, Real v) {
    const Real deviation = v * std::sqrt(T);
    const Real d1 = std::log(S / K) / deviation + deviation / 2;
    return S * exactCdf(d1) - K * exactCdf(d1 - deviation);
};

TEST(NormalDistribution, errsByItsConstantsAndNoMore)
{
    double worst = 0;
    for (int i = -120000; i <= 120000; ++i)
        worst = std::max(worst, double(std::fabs(norm_cdf(i * 1e-4) - exactCdf(i * 1e-4))));
    EXPECT_LT(worst, kCdfError);
    EXPECT_GT(worst, 2.09e-7); // less would mean other constants, and other digits of prices
    EXPECT_NEAR(norm_pdf(2), std::exp(-2.) / std::sqrt(2 * M_PI), 1e-16);
    EXPECT_EQ(norm_cdf(10.5), 1);
    EXPECT_EQ(norm_cdf(-10.5), 0);
    EXPECT_LT(norm_cdf(0), 0.5); // 0 is the end of the left branch
}

TEST(Outputs, followTheModel)
{
    const double S = 250;
    for (double K : {150., 240., 250., 262.5, 400.})
        for (double T : {2 / 365., 0.1, 1., 3.})
            for (double vol : {8, 30, 90, 200}) {
                SCOPED_TRACE(testing::Message() << "K " << K << " T " << T << " vol " << vol);
                const double v = vol / 100;
                const VolatInputParams p = {K, S, std::sqrt(T)};
                VolatOutputParams out;
                calcVolatParams(out, p, vol);
                const Real call = exactCall(K, S, T, v);
                EXPECT_NEAR(out.call, double(call), kCdfError * (S + K));
                EXPECT_EQ(out.put, out.call - S + K);
                EXPECT_EQ(theorPriceForOutOfTheMoney(v, std::sqrt(T), true, S, K), out.put);
                // Central differences of the exact price; delta alone goes through norm_cdf.
                const auto at = [&](Real dS, Real dT, Real dv) {
                    return exactCall(K, S * (1 + dS), T * (1 + dT), v * (1 + dv));
                };
                const Real h = 1e-5L, up = at(h, 0, 0), down = at(-h, 0, 0);
                const Real vega = at(0, 0, h) - at(0, 0, -h), theta = at(0, -h, 0) - at(0, h, 0);
                EXPECT_EQ(out.delta - 1, out.deltaPut);
                EXPECT_NEAR(out.deltaPut + 1, double((up - down) / (2 * h * S)), kCdfError + 1e-7);
                EXPECT_NEAR(out.gamma, double((up - 2 * call + down) / (h * h * S * S)), 1e-7);
                EXPECT_NEAR(out.vega * 100, double(vega / (2 * h * v)), 1e-6);
                EXPECT_NEAR(out.theta, double(theta / (2 * h * T) / 365), 1e-6);
            }
    EXPECT_NEAR(theorPriceForInTheMoney(0.3, 0.5, 1), double(exactCall(1, 1, 0.25, 0.3)), 5e-7);
}

TEST(Outputs, areLeftAloneWithoutAnOptionOrAVolatility)
{
    const struct {
        const char *name;
        double K, S, s, curve, volPercent, call, put; // 7 where left alone
    } rows[] = {
        {"zero_at_the_money", 100, 100, 0.5, 30, 0, 0, 0},
        {"zero_below_the_price", 90, 100, 0.5, 30, 0, 10, 0},
        {"curve_of_zero", 110, 100, 0.5, 0, -1, 0, 10},
        {"curve_below_zero", 90, 100, 0.5, -3, -1, 0, 0},
        {"nan", 90, 100, 0.5, 30, NAN, 0, 0},
        {"no_strike", 0, 100, 0.5, 30, 30, 7, 7},
        {"negative_price", 90, -1, 0.5, 30, 0, 7, 7},
    };
    for (const auto &[name, K, S, s, curve, volPercent, call, put] : rows) {
        VolatOutputParams out = {7, 7, 7, 7, 7, 7, 7};
        calcVolatParams(out, {K, S, s, curve, 0, 1, 0, 1, 0, -5, 99}, volPercent);
        EXPECT_EQ(qMakePair(out.call, out.put), qMakePair(call, put)) << name;
        EXPECT_EQ(out.delta + out.deltaPut + out.gamma + out.vega + out.theta, 5 * 7) << name;
    }
}

TEST(Curve, hasSkewWingsAndLimits)
{
    const double e = std::exp(1.0); // ln(K/S) = 1, and 2 by the root of time
    const double both = 20 + M_PI / 4 * 6 + 8 * (1 - 1 / e);
    EXPECT_NEAR(volatByCurve({e, 1, 0.5, 20, 8, 0.25, 3, 0.5, 0, 1, 99}), both, 1e-12);
    EXPECT_NEAR(volatByCurve({e, 1, 0.5, 20, 9, 9, 9, 1, 1, 1, 99}), 20, 1e-12); // shifted
    EXPECT_EQ(volatByCurve({e, 1, 0.5, 20, 0, 1, 0, 1, 0, 25, 15}), 25); // the lower limit wins
}

TEST(TheoreticalPrice, isAWholeNumberOfTicksAndAtLeastOne)
{
    auto rounded = [out = VolatOutputParamsEx()](double K, double curve, bool put) mutable {
        calcVolatParamsEx(out, {{K, 100, 0.1, curve, 0, 1, 0, 1, 0, 0, 99}, put, 0.5});
        return out.theorPrice;
    };
    EXPECT_EQ(rounded(98.75, 0, false), 1.5); // half a tick goes up
    EXPECT_EQ(rounded(101.2, 0, true), 1);
    EXPECT_EQ(rounded(150, 30, false), 0.5);
}
