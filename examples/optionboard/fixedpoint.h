#pragma once

#include <QtCore/qglobal.h>

#include <optional>
#include <string_view>

/// Reads "-12.50" as a whole number of units of 10^-scale: 1250 hundredths at scale 2 with the
/// sign.
///
/// The text is a sign "-" or none, digits, and a point with digits or none; nothing else. Digits
/// behind the scale must be zeros, so that nothing is ever rounded. No value, also for a magnitude
/// beyond \p limit, which is 10^18 at most.
std::optional<qint64> readFixedPoint(std::string_view text, int scale, qint64 limit);
