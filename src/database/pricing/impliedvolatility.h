#pragma once

#include "database/database_global.h"
#include "database/pricing/volatility.h"

/// The volatility at which the model gives an option's price, in percent, or -1 when the search
/// finds none. The curve parameters of \p p play no part. Does not throw.
///
/// \param price     of the put or the call
/// \param volStart  where Newton's method starts, percent; 0 (up to 1e-12 either way) for 50 %
/// \param volMin,volMax  where to look, percent, both included
/// \param priceEps  how far the model's price may be from the given one; in its unit
/// \param volEps    percent; a bisection ends when its half step falls below it
///
/// Newton's method makes at most 100 steps, as long as they stay between volMin and volMax and vega
/// exceeds 1e-12 per 1 of fractional volatility. From 50 % it takes 3 or 4 for most options. Where
/// it does not succeed, a bisection of at most 100 rounds follows. Its first trial is half the
/// width of the interval, not the middle: 90 % between 20 and 200 %. With volMin above 0, that
/// trial can discard the half that holds the solution. A bisection that ends by volEps returns
/// where it stands, and the model's price there may miss the given one by more than priceEps.
///
/// The outcome is -1 when
///  - volMin <= volMax does not hold;
///  - priceEps or volEps is not greater than zero, and Newton's method does not succeed;
///  - no volatility from volMin to volMax gives the price, to priceEps and the error of prices of
///    2.1e-7 (S + K). That is so of a price below the intrinsic value, a call's above S, a put's
///    above K, and NaN. A volatility of 0 or less stands for the intrinsic value here;
///  - K, S or s is not greater than zero, for then the model's price is 0. A price within priceEps
///    of that is matched by the first volatility tried;
///  - volEps is so small, and priceEps too, that neither is met in 100 rounds.
/// \see S. Manaster, G. Koehler, The Calculation of Implied Variances from the Black-Scholes Model:
/// A Note, Journal of Finance 37 (1982), 227-230, on the convergence of Newton's method.
DATABASE_EXPORT double volatByTheorPrice(const VolatInputParams &p, bool isPut, double price,
                                         double volStart, double volMin, double volMax,
                                         double priceEps, double volEps) noexcept;

/// out[i] = volatByTheorPrice(in[i], isPut[i], price[i], volStart[i], ...) for i = 0..n - 1, with
/// identical results; -1 for an option without a solution does not affect the others. What was
/// found last is a good start for the next search (with 0 in the place of -1, which would leave
/// only the bisection); a null \p volStart starts all at 50 %.
///
/// From 4096 options on, the work is shared with Qt's global thread pool, in stretches of 512; the
/// caller takes part and returns when all is done. \p out may be \p volStart, and must overlap
/// nothing else. Throws std::bad_alloc when the pool's bookkeeping finds no memory; below
/// that size nothing is allocated.
DATABASE_EXPORT void volatByTheorPrice(double *out, const VolatInputParams *in, const bool *isPut,
                                       const double *price, const double *volStart, double volMin,
                                       double volMax, double priceEps, double volEps, int n);
