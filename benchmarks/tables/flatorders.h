#pragma once

#include "market.h"

#include <array>

/// Orders at their barest: each a flat sequence of (value, row) pairs, with the old and the new
/// pairs of a batch given. A batch is sorted and goes through a sequence in one pass; no row is
/// looked for, none is written, and nobody else is served meanwhile. The pass costs as much as the
/// sequence is long, so that batches that are small beside the table can do with less.
///
/// There are three orders, and for insertions one by key. Keys have been made numbers: they are
/// compared as fast as the other values.
class FlatOrders
{
public:
    /// Insertions of the initial rows, in batches of \p insertBatch; trades of those rows after the
    /// ticks.
    FlatOrders(const std::vector<Row> &initial, int insertBatch, const std::vector<Row> &ticks,
               const std::vector<std::vector<Row>> &trades);

    // Each takes all its batches in and returns a sum of first values, without those of keys.

    double insert(); ///< into nothing; the values after the last batch
    double trade();  ///< the values after each batch; comes after reset()

    /// Sorted rows, before any trade.
    void reset();

private:
    struct Pair {
        double value;
        std::uint32_t row;
        friend bool operator<(const Pair &a, const Pair &b)
        {
            return a.value < b.value || (a.value == b.value && a.row < b.row);
        }
    };
    using Pairs = std::vector<Pair>;
    struct Batch {
        Pairs before, after;
    };
    static constexpr size_t kSorted = 3, kWithKeys = 4; // the order by key comes last
    using Change = std::array<Batch, kWithKeys>;

    double firsts() const;
    void merge(Pairs &order, Batch batch);

    std::array<Pairs, kSorted> m_beforeTrades;
    std::vector<Change> m_insertions, m_trades;
    std::array<Pairs, kWithKeys> m_orders;
    Pairs m_merged;
};
