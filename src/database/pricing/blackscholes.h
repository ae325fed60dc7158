#pragma once

#include "database/pricing/volatility.h"

#include <cmath>

/// The arithmetic behind prices and implied volatility, to be inlined into both.
///
/// The order of the operations is fixed: whoever computes a quantity computes it here, so that all
/// agree to the last bit. The sources that include this are compiled without contraction to fused
/// multiply-adds, which would let the digits depend on the processor compiled for.
namespace BlackScholes
{

/// Two numbers that take the same operations, at the price of one.
using Pair = double __attribute__((vector_size(16)));

/// exp(-x²/2), what density and distribution have in common.
inline double bell(double x)
{
    return std::exp(-x * x / 2);
}

/// norm_pdf(x), with bell = bell(x).
inline double density(double bell)
{
    return bell * 0.3989422804014327;
}

/// norm_cdf(x), with bell = bell(x); of a number or of each of a Pair.
template<class Real>
Real distribution(Real x, Real bell)
{
    const Real zero = {};
    const Real one = zero + 1.0;
    const Real t = 1.0 / (1.0 + 0.2316419 * (x > 0.0 ? x : -x));
    const Real sum = 0.3193815 + t * (-0.3565638 + t * (1.781478 + t * (-1.821256 + t * 1.330274)));
    const Real p = t * sum * 0.3989423 * bell;
    const Real inside = x > 0.0 ? one - p : p;
    const Real belowTop = x < -10.0 ? zero : inside;
    return x > 10.0 ? one : belowTop;
}

/// d_1 with ln(S/K) given.
inline double d1(double logPrice, double s, double v)
{
    return (logPrice + 0.5 * (s * s) * (v * v)) / (s * v);
}

inline double d2(double s, double v, double d1)
{
    return d1 - v * s;
}

inline double callPrice(double S, double K, double N1, double N2)
{
    return N1 * S - N2 * K;
}

inline double putPrice(double S, double K, double call)
{
    return call - S + K;
}

inline double vega(double S, double s, double pdf)
{
    return pdf * S * s;
}

inline double gamma(double S, double s, double v, double pdf)
{
    return pdf / (v * S * s);
}

inline double theta(double S, double s, double v, double pdf)
{
    return -(v * S * pdf / (2 * s)) / 365.0;
}

/// Whether the model applies to the option.
inline bool isPriced(const VolatInputParams &p)
{
    return p.strike > 0 && p.price > 0 && p.sqrtTime > 0;
}

} // namespace BlackScholes
