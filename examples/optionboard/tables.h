#pragma once

#include "feed.h"

#include <database/tables/table.h>

/// The three tables of the board. Their columns are numbered by the enumerations; the first ones
/// are the key, by which the rows stand in order.

/// One row per stock.
class UnderlyingTable : public Table
{
public:
    enum Column { kStock, kLast, kHigh, kLow, kChangePercent, kTime };

    UnderlyingTable();
};

/// One row per listed option.
class OptionTable : public Table
{
public:
    enum Column {
        kStock,
        kExpiry,
        kStrike,
        kSide, ///< "C" or "P"
        kLast, ///< NULL while it never traded
        kOpenInterest,
        kVolume,
        kOpen,   ///< the first price seen since the option came to the board
        kChange, ///< last - open, exactly; NULL while it never traded
        kTime,   ///< of the snapshot that changed the row last
        // What the model says; NULL while the option never traded or no volatility gives its price.
        kVolatility, ///< implied, percent per year
        kDelta,      ///< per unit of the stock's price
        kGamma,      ///< of delta, per unit of the stock's price
        kVega,       ///< per point of volatility
        kTheta,      ///< per calendar day
        // Joined: the stock's, current whatever happens.
        kStockLast,
        kStockChange ///< percent
    };

    OptionTable();
};

/// What was traded between two snapshots: one row for each option whose volume grew.
class TradeTable : public Table
{
public:
    enum Column { kNumber, kTime, kStock, kExpiry, kStrike, kSide, kLast, kQuantity };

    TradeTable();
};
