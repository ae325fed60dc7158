#pragma once

#include "database/database_global.h"

#include <QtCore/qpair.h>

/// Prices and Greeks of European options, and the volatility curve they are quoted by.
///
/// The model is Black and Scholes' with an interest rate of zero: no discounting, no dividends.
///  - Strikes K, underlying prices S and option prices share one currency and one scale.
///  - Time enters as its square root, s = sqrt(T), T being the years to expiry.
///  - Volatilities are per year. An argument named volPercent is in percent (30 is 30 %), as are
///    the volatilities of the structures; an argument v is a fraction (0.3 is 30 %).
///
/// What is always true:
///  (1) No function keeps state, so all may be called from any thread at once; none throws, but for
///      the batch form, which may run out of memory.
///  (2) Every path to a result performs the same operations in the same order, so that batches,
///      threads and single calls agree to the last bit.
///  (3) An option is priced only when K, S and s are greater than zero. For any other, NaN
///      included, the functions with an output structure leave the structure as it was; the plain
///      formulas do not look.
///
/// Source of the formulas: F. Black, M. Scholes, The Pricing of Options and Corporate Liabilities,
/// Journal of Political Economy 81 (1973), 637-654, with r = 0.

/// An option, and the parameters of the volatility curve of its series.
struct VolatInputParams {
    double strike = 0;         ///< K
    double price = 0;          ///< S, the price of the underlying
    double sqrtTime = 0;       ///< s, square root of years
    double curveBase = 0;      ///< a, percent: volatility at the centre, before skew
    double curveWing = 0;      ///< b, percent: how far both wings rise
    double curveWidth = 0;     ///< c: how soon the wings rise
    double curveSkew = 0;      ///< d, percent: slope at the centre
    double curveSkewScale = 0; ///< g, not 0: how soon the slope levels out
    double curveShift = 0;     ///< of the centre, in ln(K/S)
    double curveMin = 0;       ///< percent
    double curveMax = 0;       ///< percent
};

struct VolatInputParamsEx : VolatInputParams {
    bool isPut = false;
    double tick = 0; ///< the option's price step
};

/// What the model says of the call and the put of one strike.
struct VolatOutputParams {
    double delta = 0;    ///< of the call: change of its price per unit of S
    double deltaPut = 0; ///< of the put, delta - 1
    double gamma = 0;    ///< change of delta per unit of S
    double vega = 0;     ///< change of price with volatility; see the function for its unit
    double theta = 0;    ///< change of price per calendar day that passes
    double call = 0;     ///< theoretical price
    double put = 0;      ///< theoretical price
};

struct VolatOutputParamsEx : VolatOutputParams {
    double volatility = 0; ///< percent, from the curve
    double theorPrice = 0; ///< of the call or the put, rounded to the tick
};

/// Density of the standard normal distribution: exp(-x²/2) * 0.3989422804014327.
DATABASE_EXPORT double norm_pdf(double x) noexcept;

/// Standard normal distribution function with an absolute error below 2.1e-7. The error is largest
/// near 0, where the function steps up by 3e-7.
/// Exactly 1 for x > 10 and exactly 0 for x < -10; NaN for NaN.
/// \see M. Abramowitz, I. Stegun, Handbook of Mathematical Functions, 26.2.17. The coefficients and
/// the density's constant are shorter than there, and than in norm_pdf: the digits of prices depend
/// on them.
DATABASE_EXPORT double norm_cdf(double x) noexcept;

/// (ln(S/K) + s²v²/2) / (s v). The numerator's second term is 0.5 * (s * s) * (v * v).
DATABASE_EXPORT double d_1(const VolatInputParams &p, double v) noexcept;
/// d1 - v s.
DATABASE_EXPORT double d_2(const VolatInputParams &p, double v, double d1) noexcept;

/// S s pdf, with pdf = norm_pdf(d1): change of the price of call and put for 1 of fractional
/// volatility, that is for 100 percentage points.
DATABASE_EXPORT double vega(const VolatInputParams &p, double pdf) noexcept;
/// pdf / (v S s), with pdf = norm_pdf(d1): change of delta per unit of S.
DATABASE_EXPORT double gamma(const VolatInputParams &p, double v, double pdf) noexcept;
/// -(v S pdf / (2 s)) / 365, with pdf = norm_pdf(d1): change of the price of call and put per
/// calendar day that passes.
DATABASE_EXPORT double theta(const VolatInputParams &p, double v, double pdf) noexcept;

/// The prices (call, put) with N1 = N(d1) and N2 = N(d2): call = N1 S - N2 K, and by parity
/// put = (call - S) + K.
DATABASE_EXPORT QPair<double, double> theorPriceCallPut(const VolatInputParams &p, double N1,
                                                        double N2) noexcept;
/// The prices (call, put) at the fractional volatility \p v. With the error of norm_cdf, the error
/// of a price stays below 2.1e-7 (S + K); far from the money that can make it negative.
DATABASE_EXPORT QPair<double, double> theorPriceCallPut(const VolatInputParams &p,
                                                        double v) noexcept;

/// All outputs at the fractional volatility \p v; vega is per 1 of fractional volatility. Leaves
/// \p out alone unless K, S, s and v are greater than zero.
DATABASE_EXPORT void calcVolatParamsNorm(VolatOutputParams &out, const VolatInputParams &p,
                                         double v) noexcept;

/// All outputs at \p volPercent, or at volatByCurve(p) when that is negative; vega is per
/// percentage point of volatility. Leaves \p out alone unless K, S and s are greater than zero.
///
/// At a volatility of zero, call and put become the intrinsic values, the one out of the money 0,
/// and the Greeks keep what they held. Where there is no volatility to calculate with (NaN, or a
/// curve that gives a negative one), call and put become 0 and the Greeks, vega's unit included,
/// keep what they held.
DATABASE_EXPORT void calcVolatParams(VolatOutputParams &out, const VolatInputParams &p,
                                     double volPercent) noexcept;

/// calcVolatParams(out[i], in[i], volPercent[i]) for i = 0..n - 1, with identical results. A null
/// \p volPercent stands for the curve's volatility of each option.
///
/// From 16384 options on, the work is shared with Qt's global thread pool, in stretches of 2048;
/// the caller takes part and returns when all is done. The outputs must overlap nothing else. An
/// option that is left alone does not affect the others. Throws std::bad_alloc when the pool's
/// bookkeeping finds no memory; below that size nothing is allocated.
DATABASE_EXPORT void calcVolatParams(VolatOutputParams *out, const VolatInputParams *in,
                                     const double *volPercent, int n);

/// Takes the volatility from the curve, all outputs at it as calcVolatParams does, and the
/// theoretical price of the put or the call: rounded half up to a whole number of ticks and at
/// least one tick. Leaves \p out alone unless K, S and s are greater than zero.
DATABASE_EXPORT void calcVolatParamsEx(VolatOutputParamsEx &out,
                                       const VolatInputParamsEx &p) noexcept;

/// The curve's volatility in percent, with x = ln(K/S)/s - curveShift/s:
/// atan(g x) d/g + (1 - exp(-c x²)) b + a, limited to at most curveMax, then to at least curveMin.
/// The letters are those of VolatInputParams. A curve that is not defined (g of 0) gives NaN.
DATABASE_EXPORT double volatByCurve(const VolatInputParams &p) noexcept;

/// The price of an option at the money, c N(ab/2) - c N(ab/2 - ab), where \p a times \p b is
/// volatility (a fraction) times square root of years, and \p c the price of the underlying.
DATABASE_EXPORT double theorPriceForInTheMoney(double a, double b, double c) noexcept;

/// The price of the put or the call of strike \p K at the fractional volatility \p v, \p s being
/// the square root of years and \p S the price of the underlying: theorPriceCallPut without a
/// structure. It holds for any strike.
DATABASE_EXPORT double theorPriceForOutOfTheMoney(double v, double s, bool isPut, double S,
                                                  double K) noexcept;
