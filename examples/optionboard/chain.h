#pragma once

#include "board.h"

/// One line of a chain: the call and the put of a strike, null where one is not listed.
struct ChainRow {
    decimal strike;
    Record call;
    Record put;
};

/// The strikes of one stock and one expiry around the stock's last price.
struct Chain {
    Record underlying; ///< null for a stock that is not on the board
    datetime expiry;
    std::vector<ChainRow> rows; ///< by ascending strike
};

/// The chain of the nearest expiry on or after the day of \p now with the \p strikes strikes that
/// are nearest to the stock's last price (the lower one of two that are equally near). Finds them
/// by binary search in the index by strike and looks at no others than those around the price.
Chain chainAroundMoney(const Board &board, const QString &stock, datetime now, int strikes);

/// The stock whose options have the highest volume in all, the first by name of several; empty for
/// an empty board.
QString busiestStock(const Board &board);
