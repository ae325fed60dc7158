#pragma once

#include <database/decimal.h>
#include <database/values/datetime.h>

#include <QtCore/qstring.h>

#include <optional>
#include <vector>

/// Prices are exact to hundredths, and only to them: with one scale throughout, their differences
/// are differences of mantissas.
constexpr int kPriceScale = 2;
/// Changes in percent are exact to thousandths.
constexpr int kPercentScale = 3;

/// The most characters that a stock's name has.
constexpr int kStockLength = 24;

/// A price of so many hundredths.
inline decimal price(qint64 hundredths)
{
    return decimal::fromParts(hundredths, kPriceScale);
}

/// a - b, exactly; both have the scale of prices.
inline decimal difference(const decimal &a, const decimal &b)
{
    Q_ASSERT(a.scale() == kPriceScale && b.scale() == kPriceScale);
    return price(a.mantissa() - b.mantissa());
}

/// Call or put; the letters sort as the board lists them.
enum class Side : char { Call = 'C', Put = 'P' };

/// A stock as a snapshot shows it.
struct UnderlyingQuote {
    QString stock; ///< 1..kStockLength characters
    decimal last;
    decimal high;
    decimal low;
    decimal changePercent; ///< of last against the previous close
};

/// An option as a snapshot shows it.
struct OptionQuote {
    int underlying = 0; ///< position in Snapshot::underlyings
    datetime expiry;
    decimal strike;
    Side side = Side::Call;
    std::optional<decimal> last; ///< none while it never traded
    qint64 openInterest = 0;
    qint64 volume = 0; ///< since the session began
};

/// The whole market at one moment.
///
/// Always true: the stocks ascend by name; the options ascend by stock, expiry, strike and side; no
/// key stands twice. So a snapshot and a table in key order are compared by walking both once.
struct Snapshot {
    datetime time;
    std::vector<UnderlyingQuote> underlyings;
    std::vector<OptionQuote> options;
};

/// Where snapshots come from, one after the other.
class Feed
{
public:
    virtual ~Feed() = default;

    /// How many snapshots there are in all.
    virtual int count() const = 0;
    /// What a user calls the i-th of them.
    virtual QString name(int i) const = 0;
    /// Reads the next one; called count() times at most.
    /// \throws QString what is wrong with it, for the user; the next call reads the one behind it
    virtual Snapshot next() = 0;
};
