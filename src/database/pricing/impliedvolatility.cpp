#include "database/pricing/impliedvolatility.h"

#include "database/pricing/blackscholes.h"
#include "database/pricing/optionbatch.h"

#include <algorithm>
#include <cmath>

namespace
{

using BlackScholes::Pair;
using OptionBatch::kBlock;

constexpr int kStretch = 512; // options that a thread takes at a time

/// One option's model price and vega at one volatility after another. They are the values that
/// calcVolatParamsNorm would leave in a structure of zeros, stale where it leaves them alone.
class Model
{
public:
    Model() = default;
    Model(const VolatInputParams &p, bool isPut)
        : m_isPut(isPut)
        , m_isPriced(BlackScholes::isPriced(p))
        , m_strike(p.strike)
        , m_underlying(p.price)
        , m_sqrtTime(p.sqrtTime)
        , m_logPrice(m_isPriced ? std::log(p.price / p.strike) : 0)
    {
    }

    double price() const { return m_price; }
    double vega() const { return m_vega; }
    double volatility() const { return m_volatility; } // the one moved to last

    void moveTo(double v)
    {
        if (aim(v))
            settle(BlackScholes::bell(m_d1), BlackScholes::bell(m_d2));
    }

    /// The parts of moveTo, which a batch does for many options each before the next. What stands
    /// between them is needed only where aim returns true.
    bool aim(double v)
    {
        if (v == m_volatility)
            return false;
        m_volatility = v;
        if (!(m_isPriced && v > 0))
            return false;
        m_d1 = BlackScholes::d1(m_logPrice, m_sqrtTime, v);
        m_d2 = BlackScholes::d2(m_sqrtTime, v, m_d1);
        return true;
    }
    double d1() const { return m_d1; }
    double d2() const { return m_d2; }
    void settle(double bell1, double bell2)
    {
        const auto N = BlackScholes::distribution(Pair{m_d1, m_d2}, Pair{bell1, bell2});
        const double call = BlackScholes::callPrice(m_underlying, m_strike, N[0], N[1]);
        m_price = m_isPut ? BlackScholes::putPrice(m_underlying, m_strike, call) : call;
        m_vega = BlackScholes::vega(m_underlying, m_sqrtTime, BlackScholes::density(bell1));
    }

    /// The price at \p v, which it moves to; the intrinsic value where there is no volatility.
    double priceAt(double v)
    {
        if (v > 0 || !m_isPriced) {
            moveTo(v);
            return m_price;
        }
        return std::max(m_isPut ? m_strike - m_underlying : m_underlying - m_strike, 0.0);
    }

    /// A bound of the error that norm_cdf brings into the price.
    double error() const { return m_isPriced ? 2.1e-7 * (m_underlying + m_strike) : 0; }

private:
    bool m_isPut = false;
    bool m_isPriced = false;
    double m_strike = 0;
    double m_underlying = 0;
    double m_sqrtTime = 0;
    double m_logPrice = 0; // ln(S/K), the same at every volatility
    double m_volatility = -1;
    double m_d1 = 0;
    double m_d2 = 0;
    double m_price = 0;
    double m_vega = 0;
};

/// What all options of a batch share; volatilities as fractions.
struct Limits {
    double lo;
    double hi;
    double priceEps;
    double volEps;

    bool include(double v) const { return lo <= v && v <= hi; } // not NaN
};

enum class Outcome { Open, Found, NotFound };

/// One option on its way to its volatility v.
struct Search {
    Model model;
    double price = 0;
    double v = 0;
    int steps = 0;
};

constexpr int kRounds = 100;      // of either method
constexpr double kNoVega = 1e-12; // too flat for Newton's method

Search startSearch(const VolatInputParams &p, bool isPut, double price, double volStart)
{
    return {Model(p, isPut), price, std::fabs(volStart) <= 1e-12 ? 0.5 : volStart / 100, 0};
}

/// Judges v, which the model has moved to, and makes Newton's next step if that is to go on.
inline Outcome stepOn(Search &search, const Limits &limits)
{
    const Model &model = search.model;
    const double missing = search.price - model.price();
    if (std::fabs(missing) <= limits.priceEps)
        return Outcome::Found;
    if (std::fabs(model.vega()) <= kNoVega || search.steps == kRounds)
        return Outcome::NotFound;
    ++search.steps;
    search.v += missing / model.vega();
    // Where v stands still, so would all steps that are left.
    const bool goesOn = limits.include(search.v) && search.v != model.volatility();
    return goesOn ? Outcome::Open : Outcome::NotFound;
}

Outcome solveByNewton(Search &search, const Limits &limits)
{
    Outcome outcome = limits.include(search.v) ? Outcome::Open : Outcome::NotFound;
    while (outcome == Outcome::Open) {
        search.model.moveTo(search.v);
        outcome = stepOn(search, limits);
    }
    return outcome;
}

/// Whether the model gives the price somewhere within the limits, as far as its accuracy tells.
bool isReachable(Search &search, const Limits &limits)
{
    const double lowest = search.model.priceAt(limits.lo);
    const double highest = search.model.priceAt(limits.hi);
    const double tolerance = limits.priceEps + search.model.error();
    return search.price >= lowest - tolerance && search.price <= highest + tolerance; // not NaN
}

/// Moves v to where the interval has shrunk to, or to where the model gives the price.
Outcome solveByBisection(Search &search, const Limits &limits)
{
    double lo = limits.lo;
    double hi = limits.hi;
    double halfStep = (hi - lo) / 2;
    search.v = halfStep; // not the middle: what a search that ends early returns depends on it
    for (int round = 0; round < kRounds; ++round) {
        // An interval shrinks towards an end also when the solution lies beyond it.
        if (std::fabs(halfStep) < limits.volEps)
            return isReachable(search, limits) ? Outcome::Found : Outcome::NotFound;
        search.model.moveTo(search.v);
        const double missing = search.price - search.model.price();
        if (std::fabs(missing) < limits.priceEps)
            return Outcome::Found;
        if (missing > 0)
            lo += halfStep;
        else
            hi -= halfStep;
        search.v = (lo + hi) / 2;
        halfStep = (hi - lo) / 2;
    }
    return Outcome::NotFound;
}

/// The volatility in percent, with what Newton's method came to given.
double conclude(Search &search, Outcome outcome, const Limits &limits)
{
    const bool canEnd = limits.lo <= limits.hi && limits.volEps > 0 && limits.priceEps > 0;
    if (outcome == Outcome::NotFound && canEnd)
        outcome = solveByBisection(search, limits);
    return outcome == Outcome::Found ? search.v * 100 : -1;
}

Limits limitsOf(double volMin, double volMax, double priceEps, double volEps)
{
    return {volMin / 100, volMax / 100, priceEps, volEps / 100};
}

/// volatByTheorPrice for up to kBlock options, whose Newton steps are made side by side.
void solveBlock(double *out, const VolatInputParams *in, const bool *isPut, const double *price,
                const double *volStart, const Limits &limits, int n)
{
    Search searches[kBlock];
    Outcome outcomes[kBlock];
    int open[kBlock];  // numbers of the searches that Newton's method goes on with
    int moved[kBlock]; // those of them whose model is to be evaluated
    double bell1[kBlock];
    double bell2[kBlock];
    int count = 0;
    for (int i = 0; i < n; ++i) {
        searches[i] = startSearch(in[i], isPut[i], price[i], volStart ? volStart[i] : 0);
        outcomes[i] = Outcome::NotFound;
        if (limits.include(searches[i].v))
            open[count++] = i;
    }
    while (count > 0) {
        int aimed = 0;
        for (int k = 0; k < count; ++k) {
            Search &search = searches[open[k]];
            if (search.model.aim(search.v))
                moved[aimed++] = open[k];
        }
        for (int k = 0; k < aimed; ++k) {
            bell1[k] = BlackScholes::bell(searches[moved[k]].model.d1());
            bell2[k] = BlackScholes::bell(searches[moved[k]].model.d2());
        }
        for (int k = 0; k < aimed; ++k)
            searches[moved[k]].model.settle(bell1[k], bell2[k]);
        int left = 0;
        for (int k = 0; k < count; ++k) {
            const int i = open[k];
            outcomes[i] = stepOn(searches[i], limits);
            if (outcomes[i] == Outcome::Open)
                open[left++] = i;
        }
        count = left;
    }
    for (int i = 0; i < n; ++i)
        out[i] = conclude(searches[i], outcomes[i], limits);
}

} // namespace

double volatByTheorPrice(const VolatInputParams &p, bool isPut, double price, double volStart,
                         double volMin, double volMax, double priceEps, double volEps) noexcept
{
    const Limits limits = limitsOf(volMin, volMax, priceEps, volEps);
    Search search = startSearch(p, isPut, price, volStart);
    const Outcome outcome = solveByNewton(search, limits);
    return conclude(search, outcome, limits);
}

void volatByTheorPrice(double *out, const VolatInputParams *in, const bool *isPut,
                       const double *price, const double *volStart, double volMin, double volMax,
                       double priceEps, double volEps, int n)
{
    const Limits limits = limitsOf(volMin, volMax, priceEps, volEps);
    OptionBatch::forBlocks(n, kStretch, [=](int first, int count) {
        solveBlock(out + first, in + first, isPut + first, price + first,
                   volStart ? volStart + first : nullptr, limits, count);
    });
}
