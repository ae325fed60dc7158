// Option functions beside the same work written plainly with std::erfc, and beside QuantLib: the
// full set of outputs, and implied volatility. They take turns on one thread. Every volatility that
// is found has to give its contender the price that was asked for, or the program ends with an
// error.
//
// usage: bench_pricing [--quick]

#include "report.h"

#include <database/pricing/impliedvolatility.h>

#include <ql/pricingengines/blackcalculator.hpp>
#include <ql/pricingengines/blackformula.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

constexpr int kOptions = 960; // fit the cache, and are too few for batches to use threads
constexpr int kRepeats = 100; // passes over the options in one round
constexpr double kEps = 1e-8; // of prices

double plainCdf(double x)
{
    return std::erfc(-x / std::sqrt(2.0)) / 2;
}

void plainOutputs(VolatOutputParams &out, const VolatInputParams &p, double v)
{
    const double S = p.price, K = p.strike, s = p.sqrtTime;
    const double d1 = (std::log(S / K) + 0.5 * s * s * v * v) / (s * v);
    const double pdf = std::exp(-d1 * d1 / 2) / std::sqrt(2 * 3.14159265358979323846);
    out.delta = plainCdf(d1);
    out.deltaPut = out.delta - 1;
    out.call = out.delta * S - plainCdf(d1 - v * s) * K;
    out.put = out.call - S + K;
    out.gamma = pdf / (v * S * s);
    out.vega = pdf * S * s / 100;
    out.theta = -(v * S * pdf / (2 * s)) / 365;
}

double plainImplied(const VolatInputParams &p, bool isPut, double price)
{
    VolatOutputParams out;
    double v = 0.5;
    for (int step = 0; step < 100 && v > 0; ++step) {
        plainOutputs(out, p, v);
        const double missing = price - (isPut ? out.put : out.call);
        if (std::fabs(missing) <= kEps)
            return v * 100;
        v += missing / (out.vega * 100);
    }
    return -1;
}

/// A chain of one underlying: strikes 70 to 130 % of its price, a week to a year.
struct Chain {
    VolatInputParams options[kOptions];
    bool isPut[kOptions];
    double volatility[kOptions]; // percent
    double price[kOptions];      // by the library's formulas
    double exactPrice[kOptions]; // by std::erfc

    Chain()
    {
        std::mt19937 random(20240131); // a fixed seed: the same chain in every run
        std::uniform_real_distribution<double> uniform;
        for (int i = 0; i < kOptions; ++i) {
            const double strike = 70 + 60 * uniform(random);
            const double x = std::log(strike / 100);
            options[i] = {strike, 100, std::sqrt((7 + 358 * uniform(random)) / 365)};
            isPut[i] = random() % 2;
            volatility[i] = 25 + 40 * x * x - 10 * x + 10 * uniform(random);
            const auto [call, put] = theorPriceCallPut(options[i], volatility[i] / 100);
            price[i] = isPut[i] ? put : call;
            exactPrice[i] = exact(i, volatility[i]);
        }
    }
    double exact(int i, double volPercent) const
    {
        VolatOutputParams out;
        plainOutputs(out, options[i], volPercent / 100);
        return isPut[i] ? out.put : out.call;
    }
};

namespace QL = QuantLib;

QL::Option::Type typeOf(bool isPut)
{
    return isPut ? QL::Option::Put : QL::Option::Call;
}

void quantLibOutputs(VolatOutputParams &out, const VolatInputParams &p, double v)
{
    const double S = p.price, time = p.sqrtTime * p.sqrtTime;
    const QL::BlackCalculator call(QL::Option::Call, p.strike, S, v * p.sqrtTime);
    out.call = call.value();
    out.put = out.call - S + p.strike;
    out.delta = call.delta(S);
    out.deltaPut = out.delta - 1;
    out.gamma = call.gamma(S);
    out.vega = call.vega(time) / 100;
    out.theta = call.thetaPerDay(S, time);
}

/// To the accuracy that it has by default, which is that of a standard deviation.
double quantLibImplied(const VolatInputParams &p, bool isPut, double price)
{
    return QL::blackFormulaImpliedStdDev(typeOf(isPut), p.strike, p.price, price) / p.sqrtTime *
           100;
}

void require(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "bench_pricing: failed: %s\n", what);
        std::exit(1);
    }
}

class Measured
{
    template<class Work>
    static auto eachOption(const Work &work)
    {
        return [work] {
            for (int i = 0; i < kOptions; ++i)
                work(i);
        };
    }

public:
    void round(Report &report)
    {
        m_report = &report;
        outputs();
        implied();
    }

private:
    // The peers have no functions over whole arrays: their figures stand beside both of the
    // library's.
    static constexpr const char *kOutputs[] = {"P full outputs of an option",
                                               "P full outputs, in a batch"};
    static constexpr const char *kImplied[] = {"P implied volatility",
                                               "P implied volatility, in a batch"};

    void outputs()
    {
        const VolatInputParams *in = m_chain.options;
        const double *volatility = m_chain.volatility;
        addLibrary(kOutputs[0],
                   eachOption([&](int i) { calcVolatParams(m_out[i], in[i], volatility[i]); }));
        requireOutputs("library");
        addLibrary(kOutputs[1], [&] { calcVolatParams(m_out, in, volatility, kOptions); });
        requireOutputs("library, in a batch");
        addPeer(kOutputs, "erfc",
                eachOption([&](int i) { plainOutputs(m_out[i], in[i], volatility[i] / 100); }));
        requireOutputs("erfc");
        addPeer(kOutputs, "QuantLib",
                eachOption([&](int i) { quantLibOutputs(m_out[i], in[i], volatility[i] / 100); }));
        requireOutputs("QuantLib");
    }

    void implied()
    {
        const VolatInputParams *in = m_chain.options;
        const bool *isPut = m_chain.isPut;
        const double *price = m_chain.price, *exact = m_chain.exactPrice;
        addLibrary(kImplied[0], eachOption([&](int i) {
                       m_found[i] =
                           volatByTheorPrice(in[i], isPut[i], price[i], 50, 1, 500, kEps, 1e-6);
                   }));
        requireLibraryPrices();
        addLibrary(kImplied[1], [&] {
            volatByTheorPrice(m_found, in, isPut, price, nullptr, 1, 500, kEps, 1e-6, kOptions);
        });
        requireLibraryPrices();
        addPeer(kImplied, "erfc",
                eachOption([&](int i) { m_found[i] = plainImplied(in[i], isPut[i], exact[i]); }));
        requireExactPrices(kEps, "erfc");
        addPeer(kImplied, "QuantLib", eachOption([&](int i) {
                    m_found[i] = quantLibImplied(in[i], isPut[i], exact[i]);
                }));
        requireExactPrices(1e-3, "QuantLib"); // its accuracy is one of volatility
    }

    template<class Pass>
    void addLibrary(const char *workload, const Pass &pass)
    {
        m_report->add(workload, Report::Unit::Nanoseconds, "library", nanosecondsEach(pass));
    }
    template<class Pass>
    void addPeer(const char *const (&workloads)[2], const char *peer, const Pass &pass)
    {
        const double taken = nanosecondsEach(pass);
        for (const char *workload : workloads)
            m_report->add(workload, Report::Unit::Nanoseconds, peer, taken);
    }

    template<class Pass>
    static double nanosecondsEach(const Pass &pass)
    {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kRepeats; ++i)
            pass();
        const auto taken = std::chrono::steady_clock::now() - start;
        return std::chrono::duration<double, std::nano>(taken).count() / kRepeats / kOptions;
    }

    // What passed is wiped, so that nobody passes with another's results.

    void requireOutputs(const char *contender)
    {
        for (int i = 0; i < kOptions; ++i) {
            VolatOutputParams exact;
            plainOutputs(exact, m_chain.options[i], m_chain.volatility[i] / 100);
            const VolatOutputParams out = std::exchange(m_out[i], {});
            const bool near = std::fabs(out.call - exact.call) < kModelError &&
                              std::fabs(out.put - exact.put) < kModelError &&
                              std::fabs(out.delta - exact.delta) < kModelError &&
                              std::fabs(out.gamma - exact.gamma) < kModelError &&
                              std::fabs(out.vega - exact.vega) < kModelError &&
                              std::fabs(out.theta - exact.theta) < kModelError;
            require(near, contender);
        }
    }
    void requireLibraryPrices()
    {
        for (int i = 0; i < kOptions; ++i) {
            const auto [call, put] =
                theorPriceCallPut(m_chain.options[i], std::exchange(m_found[i], 0) / 100);
            require(std::fabs((m_chain.isPut[i] ? put : call) - m_chain.price[i]) < 2 * kEps,
                    "library");
        }
    }
    void requireExactPrices(double accuracy, const char *contender)
    {
        for (int i = 0; i < kOptions; ++i)
            require(std::fabs(m_chain.exact(i, std::exchange(m_found[i], 0)) -
                              m_chain.exactPrice[i]) < 2 * accuracy,
                    contender);
    }

    // Prices of 100 by a distribution with an error of 2.1e-7.
    static constexpr double kModelError = 1e-4;

    Report *m_report = nullptr; // borrowed for a round
    const Chain m_chain;
    VolatOutputParams m_out[kOptions];
    double m_found[kOptions]; // percent
};

} // namespace

int main(int argc, char *argv[])
{
    const int rounds = argc > 1 && std::strcmp(argv[1], "--quick") == 0 ? 5 : 15;
    static Measured measured;
    Report report("library");
    for (int round = 0; round < rounds; ++round)
        measured.round(report);
    report.print("pricing, medians of " + std::to_string(rounds) + " rounds");
    return 0;
}
