#include "flatorders.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <unordered_map>

namespace
{

constexpr std::array<Order, 3> kOrders = {Order::Last, Order::Volume, Order::Time};

/// The place of each row in the order of the keys.
std::vector<std::uint32_t> keyRanks(const std::vector<Row> &rows)
{
    std::vector<std::uint32_t> byKey(rows.size()), ranks(rows.size());
    std::iota(byKey.begin(), byKey.end(), 0);
    std::sort(byKey.begin(), byKey.end(), [&](std::uint32_t a, std::uint32_t b) {
        return std::memcmp(&rows[a].key, &rows[b].key, sizeof(Key)) < 0;
    });
    for (size_t rank = 0; rank < byKey.size(); ++rank)
        ranks[byKey[rank]] = std::uint32_t(rank);
    return ranks;
}

std::string bytesOf(const Key &key)
{
    return {reinterpret_cast<const char *>(&key), sizeof key};
}

} // namespace

FlatOrders::FlatOrders(const std::vector<Row> &initial, int insertBatch,
                       const std::vector<Row> &ticks, const std::vector<std::vector<Row>> &trades)
{
    const std::vector<std::uint32_t> ranks = keyRanks(initial);
    for (size_t row = 0; row < initial.size(); ++row) {
        if (row % size_t(insertBatch) == 0)
            m_insertions.emplace_back();
        Change &batch = m_insertions.back();
        for (size_t i = 0; i < kSorted; ++i)
            batch[i].after.push_back({sortValue(initial[row], kOrders[i]), std::uint32_t(row)});
        batch[kSorted].after.push_back({double(ranks[row]), std::uint32_t(row)});
    }

    std::unordered_map<std::string, std::uint32_t> places;
    for (const Row &row : initial)
        places.emplace(bytesOf(row.key), std::uint32_t(places.size()));
    std::vector<Row> rows = initial;
    for (const Row &tick : ticks)
        rows[places.at(bytesOf(tick.key))].last = tick.last;
    for (size_t i = 0; i < kOrders.size(); ++i) {
        for (size_t row = 0; row < rows.size(); ++row)
            m_beforeTrades[i].push_back({sortValue(rows[row], kOrders[i]), std::uint32_t(row)});
        std::sort(m_beforeTrades[i].begin(), m_beforeTrades[i].end());
    }
    for (const std::vector<Row> &trade : trades) {
        m_trades.emplace_back();
        for (const Row &changed : trade) {
            const std::uint32_t place = places.at(bytesOf(changed.key));
            for (size_t i = 0; i < kOrders.size(); ++i) {
                Batch &batch = m_trades.back()[i];
                batch.before.push_back({sortValue(rows[place], kOrders[i]), place});
                batch.after.push_back({sortValue(changed, kOrders[i]), place});
            }
            rows[place] = changed;
        }
    }
}

double FlatOrders::insert()
{
    for (Pairs &order : m_orders)
        order.clear();
    for (const Change &batch : m_insertions) {
        for (size_t i = 0; i < kWithKeys; ++i)
            merge(m_orders[i], batch[i]);
    }
    return firsts();
}

void FlatOrders::reset()
{
    for (size_t i = 0; i < kSorted; ++i)
        m_orders[i] = m_beforeTrades[i];
    m_merged.reserve(m_orders[0].size());
}

double FlatOrders::trade()
{
    double sum = 0;
    for (const Change &batch : m_trades) {
        for (size_t i = 0; i < kSorted; ++i)
            merge(m_orders[i], batch[i]);
        sum += firsts();
    }
    return sum;
}

double FlatOrders::firsts() const
{
    return m_orders[0].front().value + m_orders[1].front().value + m_orders[2].front().value;
}

void FlatOrders::merge(Pairs &order, Batch batch)
{
    std::sort(batch.before.begin(), batch.before.end());
    std::sort(batch.after.begin(), batch.after.end());
    m_merged.clear();
    auto from = order.cbegin();
    auto leaving = batch.before.cbegin();
    auto coming = batch.after.cbegin();
    // Stretches between two changes are copied as they are.
    while (leaving != batch.before.cend() || coming != batch.after.cend()) {
        const bool leaves = coming == batch.after.cend() ||
                            (leaving != batch.before.cend() && !(*coming < *leaving));
        const auto to = std::lower_bound(from, order.cend(), leaves ? *leaving : *coming);
        m_merged.insert(m_merged.end(), from, to);
        from = to;
        if (leaves) {
            ++from;
            ++leaving;
        } else {
            m_merged.push_back(*coming++);
        }
    }
    m_merged.insert(m_merged.end(), from, order.cend());
    order.swap(m_merged);
}
