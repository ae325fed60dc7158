#include "database/pricing/volatility.h"

#include "database/pricing/blackscholes.h"
#include "database/pricing/optionbatch.h"

#include <algorithm>
#include <cmath>

namespace
{

using BlackScholes::Pair;
using OptionBatch::kBlock;

constexpr int kStretch = 2048; // options that a thread takes at a time

inline double logPrice(const VolatInputParams &p)
{
    return std::log(p.price / p.strike);
}

double roundedToTick(double price, double tick)
{
    // In doubles: the number of ticks need not fit an integer. A count that is not a number (a tick
    // of 0) loses against the tick.
    return std::max(tick, std::floor(price / tick + 0.5) * tick);
}

/// All outputs, with bell1 and bell2 those of d1 and d2; vega is per 1/vegaUnits of fractional
/// volatility.
inline void fill(VolatOutputParams &out, const VolatInputParams &p, double v, double vegaUnits,
                 double d1, double d2, double bell1, double bell2)
{
    const double S = p.price;
    const double K = p.strike;
    const double s = p.sqrtTime;
    const auto N = BlackScholes::distribution(Pair{d1, d2}, Pair{bell1, bell2});
    const double pdf = BlackScholes::density(bell1);
    out.delta = N[0];
    out.deltaPut = N[0] - 1;
    out.gamma = BlackScholes::gamma(S, s, v, pdf);
    out.vega = BlackScholes::vega(S, s, pdf) / vegaUnits;
    out.theta = BlackScholes::theta(S, s, v, pdf);
    out.call = BlackScholes::callPrice(S, K, N[0], N[1]);
    out.put = BlackScholes::putPrice(S, K, out.call);
}

inline void fill(VolatOutputParams &out, const VolatInputParams &p, double v, double vegaUnits)
{
    const double d1 = BlackScholes::d1(logPrice(p), p.sqrtTime, v);
    const double d2 = BlackScholes::d2(p.sqrtTime, v, d1);
    fill(out, p, v, vegaUnits, d1, d2, BlackScholes::bell(d1), BlackScholes::bell(d2));
}

/// What calcVolatParams does before the formulas.
/// \return the fractional volatility to fill \p out at; 0 when that is not to be
inline double prepare(VolatOutputParams &out, const VolatInputParams &p, double volPercent)
{
    if (!BlackScholes::isPriced(p))
        return 0;
    if (volPercent < 0)
        volPercent = volatByCurve(p);
    out.call = 0;
    out.put = 0;
    if (volPercent == 0) {
        if (p.price >= p.strike)
            out.call = p.price - p.strike;
        if (p.strike >= p.price)
            out.put = p.strike - p.price;
    }
    const double v = volPercent / 100;
    return v > 0 ? v : 0;
}

/// calcVolatParams for up to kBlock options.
void fillBlock(VolatOutputParams *out, const VolatInputParams *in, const double *volPercent, int n)
{
    int option[kBlock]; // those to be filled
    double v[kBlock];
    double d1[kBlock];
    double d2[kBlock];
    double bell1[kBlock];
    double bell2[kBlock];
    int count = 0;
    for (int i = 0; i < n; ++i) {
        option[count] = i;
        v[count] = prepare(out[i], in[i], volPercent ? volPercent[i] : -1);
        count += v[count] > 0;
    }
    for (int k = 0; k < count; ++k)
        d1[k] = logPrice(in[option[k]]);
    for (int k = 0; k < count; ++k) {
        const double s = in[option[k]].sqrtTime;
        d1[k] = BlackScholes::d1(d1[k], s, v[k]);
        d2[k] = BlackScholes::d2(s, v[k], d1[k]);
    }
    for (int k = 0; k < count; ++k) {
        bell1[k] = BlackScholes::bell(d1[k]);
        bell2[k] = BlackScholes::bell(d2[k]);
    }
    for (int k = 0; k < count; ++k)
        fill(out[option[k]], in[option[k]], v[k], 100, d1[k], d2[k], bell1[k], bell2[k]);
}

} // namespace

double norm_pdf(double x) noexcept
{
    return BlackScholes::density(BlackScholes::bell(x));
}

double norm_cdf(double x) noexcept
{
    return BlackScholes::distribution(x, BlackScholes::bell(x));
}

double d_1(const VolatInputParams &p, double v) noexcept
{
    return BlackScholes::d1(logPrice(p), p.sqrtTime, v);
}

double d_2(const VolatInputParams &p, double v, double d1) noexcept
{
    return BlackScholes::d2(p.sqrtTime, v, d1);
}

double vega(const VolatInputParams &p, double pdf) noexcept
{
    return BlackScholes::vega(p.price, p.sqrtTime, pdf);
}

double gamma(const VolatInputParams &p, double v, double pdf) noexcept
{
    return BlackScholes::gamma(p.price, p.sqrtTime, v, pdf);
}

double theta(const VolatInputParams &p, double v, double pdf) noexcept
{
    return BlackScholes::theta(p.price, p.sqrtTime, v, pdf);
}

QPair<double, double> theorPriceCallPut(const VolatInputParams &p, double N1, double N2) noexcept
{
    const double call = BlackScholes::callPrice(p.price, p.strike, N1, N2);
    return {call, BlackScholes::putPrice(p.price, p.strike, call)};
}

QPair<double, double> theorPriceCallPut(const VolatInputParams &p, double v) noexcept
{
    const double d1 = d_1(p, v);
    return theorPriceCallPut(p, norm_cdf(d1), norm_cdf(d_2(p, v, d1)));
}

void calcVolatParamsNorm(VolatOutputParams &out, const VolatInputParams &p, double v) noexcept
{
    if (BlackScholes::isPriced(p) && v > 0)
        fill(out, p, v, 1);
}

void calcVolatParams(VolatOutputParams &out, const VolatInputParams &p, double volPercent) noexcept
{
    const double v = prepare(out, p, volPercent);
    if (v > 0)
        fill(out, p, v, 100);
}

void calcVolatParams(VolatOutputParams *out, const VolatInputParams *in, const double *volPercent,
                     int n)
{
    OptionBatch::forBlocks(n, kStretch, [=](int first, int count) {
        fillBlock(out + first, in + first, volPercent ? volPercent + first : nullptr, count);
    });
}

void calcVolatParamsEx(VolatOutputParamsEx &out, const VolatInputParamsEx &p) noexcept
{
    if (!BlackScholes::isPriced(p))
        return;
    out.volatility = volatByCurve(p);
    calcVolatParams(out, p, out.volatility);
    out.theorPrice = roundedToTick(p.isPut ? out.put : out.call, p.tick);
}

double volatByCurve(const VolatInputParams &p) noexcept
{
    const double x = std::log(p.strike / p.price) / p.sqrtTime - p.curveShift / p.sqrtTime;
    const double skew = std::atan(p.curveSkewScale * x) * p.curveSkew / p.curveSkewScale;
    const double wings = (1 - std::exp(-p.curveWidth * (x * x))) * p.curveWing;
    const double vol = skew + wings + p.curveBase;
    // Not std::clamp: with crossed limits the lower one wins. NaN passes through both.
    return std::max(std::min(vol, p.curveMax), p.curveMin);
}

double theorPriceForInTheMoney(double a, double b, double c) noexcept
{
    return c * norm_cdf(a * b / 2) - c * norm_cdf(a * b / 2 - a * b);
}

double theorPriceForOutOfTheMoney(double v, double s, bool isPut, double S, double K) noexcept
{
    const VolatInputParams p = {K, S, s, 50, 0, 1, 0, 1, 0, 0.01, 1000};
    const auto [call, put] = theorPriceCallPut(p, v);
    return isPut ? put : call;
}
