#pragma once

#include "market.h"

#include <array>

/// Orders at their barest: each a flat sequence of (value, row) pairs, with the old and the new
/// pairs of a batch given. A batch is sorted and goes through a sequence in one pass; no row is
/// looked for, none is written, and nobody else is served meanwhile. The pass costs as much as the
/// sequence is long, so that batches that are small beside the table can do with less.
class FlatOrders
{
public:
    /// Orders after the ticks. The rows traded are among the initial ones.
    FlatOrders(const std::vector<Row> &initial, const std::vector<Row> &ticks,
               const std::vector<std::vector<Row>> &trades);

    /// Sorted rows, before any trade.
    void reset();
    /// Takes all batches in. \return the sum of the first values after each, as engines answer it
    double trade();

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

    void merge(Pairs &order, Batch batch);

    std::array<Pairs, 3> m_initial, m_orders;
    std::vector<std::array<Batch, 3>> m_batches;
    Pairs m_merged;
};
