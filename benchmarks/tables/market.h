#pragma once

#include <cstdint>
#include <random>
#include <vector>

/// The rows of the workloads as plain memory, which every engine turns into its own.

/// Texts end at the first zero unit or fill their array; unused units are zero.
struct Key {
    char16_t board[12];
    char16_t code[24];
};

struct Row {
    Key key;
    double strike;
    std::int64_t bid, ask; ///< in hundredths
    double last;
    std::int64_t volume;
    std::int64_t time; ///< milliseconds since 1970
    double iv;
    std::int32_t flags;
    std::int32_t reserved; ///< 0, so that no byte of a row is undefined
};

/// What one batch takes out and puts in.
struct Replacement {
    std::vector<Key> removed;
    std::vector<Row> inserted;
};

/// The three sorted orders of every engine, each ascending.
enum class Order { Last, Volume, Time };

/// A market that trades by a fixed seed: the rows as they stand, and what changes them next.
/// Prices, volumes and times repeat, as they do on an exchange, so orders have ties.
class Market
{
public:
    explicit Market(int rows);

    const std::vector<Row> &rows() const { return m_rows; }

    // Each changes the market's own rows and returns what an engine has to do to follow.
    std::vector<Row> trade(int count);      ///< last, volume and time of distinct rows
    std::vector<Row> quote(int count);      ///< bid and ask of distinct rows
    Replacement replace(int count);         ///< rows that leave, and as many new ones
    Row tick();                             ///< last of one row
    std::vector<Key> someKeys(int count);   ///< of live rows, with repetitions
    std::vector<int> somePlaces(int count); ///< positions in an order, with repetitions

private:
    std::vector<int> distinct(int count);
    Row newRow();
    int below(int limit) { return int(m_random() % std::uint64_t(limit)); }

    std::mt19937_64 m_random{20260302};
    std::vector<Row> m_rows;
    std::vector<int> m_drawn; // by row, the last batch that drew it
    int m_batch = 0;
    std::uint32_t m_created = 0;
};

/// A fingerprint of rows in an order, the same for every arrangement of rows that tie: engines may
/// break ties as they like. It covers every field.
class OrderChecksum
{
public:
    explicit OrderChecksum(Order order)
        : m_order(order)
    {
    }
    /// The next row in the order. \return false when it sorts before the one before it
    bool add(const Row &row);
    std::uint64_t value() const;

private:
    const Order m_order;
    double m_tied = 0;            // what the rows of the last tie have in common
    std::uint64_t m_ties = 0;     // sum over the rows of the last tie
    std::uint64_t m_sequence = 0; // of the ties before
};

double sortValue(const Row &row, Order order);
/// What OrderChecksum gives for the rows once they are sorted.
std::uint64_t sortedChecksum(std::vector<Row> rows, Order order);
