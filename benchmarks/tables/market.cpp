#include "market.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace
{

constexpr int kBoards = 20;
constexpr std::int64_t kOpening = 1772442000000; // of the day's trade
constexpr int kDay = 8 * 3600 * 1000;            // milliseconds

template<int N>
void setText(char16_t (&cell)[N], const char *text)
{
    for (int i = 0; i < N && text[i]; ++i)
        cell[i] = char16_t(text[i]);
}

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value)
{
    hash = (hash ^ value) * 0x9E3779B97F4A7C15;
    return hash ^ (hash >> 29);
}

std::uint64_t rowHash(const Row &row)
{
    static_assert(sizeof(Row) % sizeof(std::uint64_t) == 0);
    std::uint64_t words[sizeof(Row) / sizeof(std::uint64_t)];
    std::memcpy(words, &row, sizeof words);
    std::uint64_t hash = 0;
    for (const std::uint64_t word : words)
        hash = mixed(hash, word);
    return hash;
}

} // namespace

Market::Market(int rows)
{
    m_rows.reserve(size_t(rows));
    for (int i = 0; i < rows; ++i)
        m_rows.push_back(newRow());
    m_drawn.resize(size_t(rows));
}

std::vector<Row> Market::trade(int count)
{
    std::vector<Row> changed;
    for (const int i : distinct(count)) {
        Row &row = m_rows[size_t(i)];
        row.last = double(1 + below(1000000)) / 100;
        row.volume += 1 + below(100000);
        row.time = kOpening + below(kDay);
        changed.push_back(row);
    }
    return changed;
}

std::vector<Row> Market::quote(int count)
{
    std::vector<Row> changed;
    for (const int i : distinct(count)) {
        Row &row = m_rows[size_t(i)];
        row.bid = 1 + below(1000000);
        row.ask = row.bid + 1 + below(100);
        changed.push_back(row);
    }
    return changed;
}

Replacement Market::replace(int count)
{
    Replacement result;
    for (const int i : distinct(count)) {
        Row &row = m_rows[size_t(i)];
        result.removed.push_back(row.key);
        row = newRow();
        result.inserted.push_back(row);
    }
    return result;
}

Row Market::tick()
{
    Row &row = m_rows[size_t(below(int(m_rows.size())))];
    row.last = double(1 + below(1000000)) / 100;
    return row;
}

std::vector<Key> Market::someKeys(int count)
{
    std::vector<Key> keys;
    keys.reserve(size_t(count));
    for (int i = 0; i < count; ++i)
        keys.push_back(m_rows[size_t(below(int(m_rows.size())))].key);
    return keys;
}

std::vector<int> Market::somePlaces(int count)
{
    std::vector<int> places;
    places.reserve(size_t(count));
    for (int i = 0; i < count; ++i)
        places.push_back(below(int(m_rows.size())));
    return places;
}

std::vector<int> Market::distinct(int count)
{
    ++m_batch;
    std::vector<int> drawn;
    while (int(drawn.size()) < std::min(count, int(m_rows.size()))) {
        const int i = below(int(m_rows.size()));
        if (std::exchange(m_drawn[size_t(i)], m_batch) != m_batch)
            drawn.push_back(i);
    }
    return drawn;
}

Row Market::newRow()
{
    Row row = {};
    char text[32];
    std::snprintf(text, sizeof text, "BOARD%02d", below(kBoards));
    setText(row.key.board, text);
    // Multiplying by an odd number meets every 32-bit number once: keys are unique, in no order.
    std::snprintf(text, sizeof text, "OPT%010u%c", ++m_created * 2654435769U, below(2) ? 'C' : 'P');
    setText(row.key.code, text);
    row.strike = 250.0 * (1 + below(400));
    row.bid = 1 + below(1000000);
    row.ask = row.bid + 1 + below(100);
    row.last = double(1 + below(1000000)) / 100;
    row.volume = below(10000000);
    row.time = kOpening + below(kDay);
    row.iv = 10 + double(below(5000)) / 100;
    row.flags = below(256);
    return row;
}

bool OrderChecksum::add(const Row &row)
{
    const double value = sortValue(row, m_order);
    const double before = std::exchange(m_tied, value);
    if (value != before) {
        m_sequence = mixed(m_sequence, m_ties);
        m_ties = 0;
    }
    m_ties += rowHash(row);
    return value >= before; // no value of a market is below 0
}

std::uint64_t OrderChecksum::value() const
{
    return mixed(m_sequence, m_ties);
}

double sortValue(const Row &row, Order order)
{
    switch (order) {
    case Order::Last:
        return row.last;
    case Order::Volume:
        return double(row.volume);
    case Order::Time:
        break;
    }
    return double(row.time);
}

std::uint64_t sortedChecksum(std::vector<Row> rows, Order order)
{
    std::sort(rows.begin(), rows.end(), [order](const Row &a, const Row &b) {
        return sortValue(a, order) < sortValue(b, order);
    });
    OrderChecksum checksum(order);
    for (const Row &row : rows)
        checksum.add(row);
    return checksum.value();
}
