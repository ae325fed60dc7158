#include "flatorders.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>

namespace
{

constexpr std::array<Order, 3> kOrders = {Order::Last, Order::Volume, Order::Time};

std::string bytesOf(const Key &key)
{
    return {reinterpret_cast<const char *>(&key), sizeof key};
}

} // namespace

FlatOrders::FlatOrders(const std::vector<Row> &initial, const std::vector<Row> &ticks,
                       const std::vector<std::vector<Row>> &trades)
{
    std::unordered_map<std::string, std::uint32_t> places;
    for (const Row &row : initial)
        places.emplace(bytesOf(row.key), std::uint32_t(places.size()));
    std::vector<Row> rows = initial;
    for (const Row &tick : ticks)
        rows[places.at(bytesOf(tick.key))].last = tick.last;
    for (size_t i = 0; i < kOrders.size(); ++i) {
        for (size_t row = 0; row < rows.size(); ++row)
            m_initial[i].push_back({sortValue(rows[row], kOrders[i]), std::uint32_t(row)});
        std::sort(m_initial[i].begin(), m_initial[i].end());
    }
    for (const std::vector<Row> &trade : trades) {
        m_batches.emplace_back();
        for (const Row &changed : trade) {
            const std::uint32_t place = places.at(bytesOf(changed.key));
            for (size_t i = 0; i < kOrders.size(); ++i) {
                Batch &batch = m_batches.back()[i];
                batch.before.push_back({sortValue(rows[place], kOrders[i]), place});
                batch.after.push_back({sortValue(changed, kOrders[i]), place});
            }
            rows[place] = changed;
        }
    }
}

void FlatOrders::reset()
{
    m_orders = m_initial;
    m_merged.reserve(m_initial[0].size());
}

double FlatOrders::trade()
{
    double firsts = 0;
    for (const auto &batch : m_batches) {
        for (size_t i = 0; i < m_orders.size(); ++i)
            merge(m_orders[i], batch[i]);
        firsts += m_orders[0].front().value + m_orders[1].front().value + m_orders[2].front().value;
    }
    return firsts;
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
