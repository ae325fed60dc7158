#pragma once

#include "database/database_global.h"

/// Whether two doubles are equal to about twelve significant digits.
///
/// Magnitudes up to 1e-12 count as zero, and zero equals only zero. Other numbers are equal when
/// the smaller magnitude is at least 1e12 times their difference. NaN and infinities equal nothing.
DATABASE_EXPORT bool commonFuzzyCompare(double a, double b);
