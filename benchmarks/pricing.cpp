// Option functions beside the same work written plainly with std::erfc: the full set of outputs,
// and implied volatility by Newton's method from 50 %. Both take turns on one thread; medians.

#include <database/pricing/impliedvolatility.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace
{

constexpr int kRounds = 15, kMiddle = kRounds / 2;
constexpr int kOptions = 960; // fit the cache, and are too few for batches to use threads
constexpr int kRepeats = 100; // passes over the options in one round
constexpr double kEps = 1e-8; // of prices

/// A chain of one underlying: strikes 70 to 130 % of its price, a week to a year.
struct Chain {
    VolatInputParams options[kOptions];
    bool isPut[kOptions];
    double volatility[kOptions]; // percent
    double price[kOptions];

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
        }
    }
};

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

template<class Plain, class Ours>
void compare(const char *what, const Plain &plain, const Ours &ours)
{
    const auto nsPerOption = [](const auto &pass) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kRepeats; ++i)
            pass();
        const auto taken = std::chrono::steady_clock::now() - start;
        return std::chrono::duration<double, std::nano>(taken).count() / kRepeats / kOptions;
    };
    double oursNs[kRounds], plainNs[kRounds], ratio[kRounds];
    for (int round = 0; round < kRounds; ++round) {
        oursNs[round] = nsPerOption(ours);
        plainNs[round] = nsPerOption(plain);
        ratio[round] = plainNs[round] / oursNs[round];
    }
    for (double *times : {oursNs, plainNs, ratio})
        std::sort(times, times + kRounds);
    std::printf("%-15s %6.1f ns an option, %5.2f million a second; plainly %6.1f ns, ratio %.2f\n",
                what, oursNs[kMiddle], 1e3 / oursNs[kMiddle], plainNs[kMiddle], ratio[kMiddle]);
}

} // namespace

int main()
{
    static const Chain chain;
    const VolatInputParams *in = chain.options;
    const bool *isPut = chain.isPut;
    const double *vol = chain.volatility, *price = chain.price;
    std::vector<VolatOutputParams> out(kOptions);
    std::vector<double> found(kOptions);
    double checksum = 0; // of every pass, so that none can be left out
    const auto each = [&](auto work) {
        return [&checksum, &out, &found, work] {
            for (int i = 0; i < kOptions; ++i)
                work(i);
            checksum += out[kOptions / 2].theta + found[kOptions / 2];
        };
    };
    const auto outputs = each([&](int i) { plainOutputs(out[i], in[i], vol[i] / 100); });
    compare("outputs", outputs, each([&](int i) { calcVolatParams(out[i], in[i], vol[i]); }));
    compare("outputs, batch", outputs, [&] { calcVolatParams(out.data(), in, vol, kOptions); });
    const auto implied = each([&](int i) { found[i] = plainImplied(in[i], isPut[i], price[i]); });
    compare("implied", implied, each([&](int i) {
                found[i] = volatByTheorPrice(in[i], isPut[i], price[i], 50, 1, 500, kEps, 1e-6);
            }));
    compare("implied, batch", implied, [&] {
        volatByTheorPrice(found.data(), in, isPut, price, nullptr, 1, 500, kEps, 1e-6, kOptions);
    });
    std::printf("checksum %.12g\n", checksum);
}
