#include "database/values/fuzzycompare.h"

#include <algorithm>
#include <cmath>

bool commonFuzzyCompare(double a, double b)
{
    constexpr double kZero = 1e-12;
    constexpr double kPrecision = 1e12;
    const double aMagnitude = std::abs(a);
    const double bMagnitude = std::abs(b);
    const bool aIsZero = aMagnitude <= kZero;
    const bool bIsZero = bMagnitude <= kZero;
    if (aIsZero || bIsZero)
        return aIsZero && bIsZero;
    return std::min(aMagnitude, bMagnitude) >= std::abs(a - b) * kPrecision;
}
