#include <database/pricing/impliedvolatility.h>

#include <gtest/gtest.h>
#include <QtCore/qthreadpool.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

constexpr double kEps = 1e-8; // of prices and of volatilities in percent

/// The search between 0 and 200 % in its plainest form, with all outputs at every step.
static double plainSearch(const VolatInputParams &p, bool isPut, double price, double volStart,
                          double priceEps = kEps, double volEps = kEps)
{
    VolatOutputParams out;
    const auto missing = [&](double v) {
        calcVolatParamsNorm(out, p, v);
        return price - (isPut ? out.put : out.call);
    };
    double lo = 0, hi = 2, v = volStart == 0 ? 0.5 : volStart / 100;
    for (int step = 0; lo <= v && v <= hi; v += missing(v) / out.vega, ++step) {
        if (std::fabs(missing(v)) <= priceEps)
            return v * 100;
        if (std::fabs(out.vega) <= 1e-12 || step == 100)
            break;
    }
    v = (hi - lo) / 2;
    for (int round = 0; round < 100; v = (lo + hi) / 2, ++round) {
        const double halfStep = (hi - lo) / 2;
        if (halfStep < volEps / 100 || std::fabs(missing(v)) < priceEps)
            return v * 100;
        missing(v) > 0 ? lo += halfStep : hi -= halfStep;
    }
    return -1;
}

TEST(ImpliedVolatility, findsTheVolatilityOfAPrice)
{
    for (double K : {70., 85., 97., 100., 104., 115., 130.})
        for (double T : {7 / 365., 30 / 365., 0.5, 1.})
            for (double vol : {5., 20., 50., 110., 190.})
                for (double start : {0., 3., 250.}) { // 250 is outside: bisection only
                    const VolatInputParams p = {K, 100, std::sqrt(T)};
                    VolatOutputParams out;
                    calcVolatParams(out, p, vol);
                    const bool put = K < 100;
                    const double price = put ? out.put : out.call;
                    const double tolerance = out.vega < 1e-4 ? 200 : kEps + 2e-8 / out.vega;
                    const double found =
                        volatByTheorPrice(p, put, price, start, 0, 200, kEps, kEps);
                    ASSERT_EQ(found, plainSearch(p, put, price, start));
                    ASSERT_NEAR(found, vol, tolerance) << K << ' ' << T << ' ' << start;
                }
}

// Where the price hardly answers, Newton's method is given up; what bisection finds differs.
TEST(ImpliedVolatility, goesByNewtonsMethodWhereThePriceHasAVega)
{
    const VolatInputParams p = {200, 100, 0.1};
    VolatOutputParams out;
    int given[2] = {};
    for (double v = 0.5; v < 2; v *= 1.01) {
        calcVolatParamsNorm(out, p, v);
        const bool isFlat = std::fabs(out.vega) <= 1e-12;
        if (out.vega < 1e-14 || out.vega > 1e-10)
            continue;
        const double price = out.call + out.vega * 0.1; // a little higher
        const double found = volatByTheorPrice(p, false, price, v * 100, 0, 200, 1e-15, 5);
        EXPECT_EQ(found, plainSearch(p, false, price, v * 100, 1e-15, 5)) << v;
        const double bisected = volatByTheorPrice(p, false, price, 300, 0, 200, 1e-15, 5);
        given[isFlat] += (found == bisected) == isFlat;
    }
    EXPECT_GT(given[false], 0);
    EXPECT_GT(given[true], 0);
}

TEST(ImpliedVolatility, beginsAndEndsWhereItShould)
{
    const struct {
        const char *name;
        double K, price, volStart, volMin, volMax, priceEps, volEps, expected;
    } rows[] = {
        {"default_start", 100, 8, 1e-13, 0, 200, 999, 1e-6, 50}, // 999 accepts the first trial
        {"default_start_at_its_limit", 100, 8, 1e-12, 0, 200, 999, 1e-6, 50},
        {"found_in_the_last_round", 100, -1e-9, -1, 0, 200, 1e-30, 2e-28, 0},
        {"half_the_width_below_the_middle", 100, 8, -1, 20, 200, 999, 1e-6, 90},
        {"half_the_width_within_volEps", 100, 8, -1, 20, 200, 1e-8, 91, 90},
        {"solution_discarded_with_its_half", 100, 39.9, -1, 20, 200, 1e-8, 1e-3, 110},
        {"priceEps_itself_accepted_by_newton", 0, 0.5, 50, 0, 200, 0.5, 1e-6, 50},
        {"priceEps_itself_refused_by_bisection", 0, 0.5, -1, 0, 200, 0.5, 1e-3, 200},
        // Nothing found, because
        {"price_below_the_intrinsic_value", 80, 19, 0, 0, 200, 1e-8, 1e-6, -1},
        {"solution_above_volMax", 100, 30, 0, 0, 60, 1e-8, 1e-6, -1},
        {"solution_below_volMin", 100, 8, 0, 50, 200, 1e-8, 1e-6, -1},
        {"nan_price", 100, NAN, 0, 0, 200, 1e-8, 1e-6, -1},
        {"no_strike_so_the_model_gives_0", 0, 8, 0, 0, 200, 1e-8, 1e-6, -1},
        {"no_strike_and_a_price_near_0", 0, 0.5, 0, 0, 200, 1e-8, 1e-6, -1},
        {"found_a_round_too_late", 100, -1e-9, -1, 0, 200, 1e-30, 1e-28, -1},
        {"volMin_above_volMax", 100, 8, 30, 200, 20, 999, 1e-6, -1},
        {"no_bisection_without_volEps", 100, 8, -1, 0, 200, 1e-8, 0, -1},
        {"rounds_used_up", 100, -1, 0, 0, 200, 1e-8, 1e-30, -1},
    };
    for (const auto &[name, K, price, start, lo, hi, eps, volEps, expected] : rows) {
        const double vol = volatByTheorPrice({K, 100, 1}, false, price, start, lo, hi, eps, volEps);
        EXPECT_NEAR(vol, expected, expected > 100 || expected == 0 ? 2 * volEps : 0) << name;
    }
}

TEST(OptionBatch, givesEveryBitOfTheSingleCalls)
{
    QThreadPool::globalInstance()->setMaxThreadCount(4);
    std::mt19937 random(7);
    const auto any = [&](std::initializer_list<double> values) {
        return values.begin()[random() % values.size()];
    };
    for (int n : {0, 1, 32, 33, 1022, 4095, 4096, 16417}) { // what stands behind n is left alone
        std::vector<VolatInputParams> in(n);
        std::vector<VolatOutputParams> out(n + 1, {7, 7, 7, 7, 7, 7, 7}), out1 = out;
        std::vector<double> vol(n), ask(n), iv(n + 1, 7), iv1 = iv;
        const auto put = std::make_unique<bool[]>(n);
        const double *given = n % 2 ? vol.data() : nullptr;
        for (int i = 0; i < n; ++i) {
            in[i] = {any({0, 99}), 100, any({.1, 1, NAN}), any({30, -9}), 0, 0, 0, 1, 0, -5, 90};
            vol[i] = any({0, -1, 1e-3, 20, 55.5, NAN});
            ask[i] = any({0, 2, 11, 31, 200, NAN});
            put[i] = random() % 2;
            calcVolatParams(out1[i], in[i], given ? vol[i] : -1);
            iv1[i] = volatByTheorPrice(in[i], put[i], ask[i], given ? vol[i] : 0, 1, 300, kEps, 1);
        }
        calcVolatParams(out.data(), in.data(), given, n);
        volatByTheorPrice(iv.data(), in.data(), put.get(), ask.data(), given, 1, 300, kEps, 1, n);
        EXPECT_EQ(memcmp(out.data(), out1.data(), out.size() * sizeof out[0]), 0) << n;
        EXPECT_EQ(memcmp(iv.data(), iv1.data(), iv.size() * sizeof iv[0]), 0) << n;
    }
}
