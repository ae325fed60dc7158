#include "engine.h"
#include "files.h"

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index/ranked_index.hpp>
#include <boost/multi_index_container.hpp>

#include <algorithm>
#include <cstring>

namespace
{

namespace mi = boost::multi_index;

// Keys are compared and hashed as bytes, the fastest that a total order can be had.

struct KeyLess {
    bool operator()(const Key &a, const Key &b) const { return std::memcmp(&a, &b, sizeof a) < 0; }
};

struct KeyEqual {
    bool operator()(const Key &a, const Key &b) const { return std::memcmp(&a, &b, sizeof a) == 0; }
};

struct KeyHash {
    size_t operator()(const Key &key) const
    {
        static_assert(sizeof(Key) % sizeof(std::uint64_t) == 0);
        std::uint64_t words[sizeof(Key) / sizeof(std::uint64_t)];
        std::memcpy(words, &key, sizeof words);
        std::uint64_t hash = 0;
        for (const std::uint64_t word : words) {
            hash = (hash ^ word) * 0x9E3779B97F4A7C15;
            hash ^= hash >> 32;
        }
        return hash;
    }
};

using ByKey = mi::member<Row, Key, &Row::key>;
struct Ordered {
    static constexpr const char *kName = "ordered";
    using Index = mi::ordered_unique<ByKey, KeyLess>;
};
struct Hashed {
    static constexpr const char *kName = "hashed";
    using Index = mi::hashed_unique<ByKey, KeyHash, KeyEqual>;
};

enum { kByKey, kByLast, kByVolume, kByTime };

template<class Primary>
class MultiIndexEngine : public Engine
{
public:
    std::string name() const override { return Primary::kName; }
    int share(Workload workload) const override { return workload == Workload::Pack ? 0 : 1; }

    void insert(const Row *rows, int count) override
    {
        for (int i = 0; i < count; ++i)
            require(m_rows.insert(rows[i]).second, "inserting a row");
    }
    void trade(const std::vector<Row> &rows) override
    {
        change(rows, [](Row &row, const Row &values) {
            row.last = values.last;
            row.volume = values.volume;
            row.time = values.time;
        });
    }
    void quote(const std::vector<Row> &rows) override
    {
        change(rows, [](Row &row, const Row &values) {
            row.bid = values.bid;
            row.ask = values.ask;
        });
    }
    void replace(const Replacement &replacement) override
    {
        for (const Key &key : replacement.removed)
            m_rows.erase(live(key));
        insert(replacement.inserted.data(), int(replacement.inserted.size()));
    }
    void tick(const Row &row) override
    {
        m_rows.modify(live(row.key), [&](Row &each) { each.last = row.last; });
    }

    Firsts firsts() override
    {
        return {m_rows.template get<kByLast>().begin()->last,
                m_rows.template get<kByVolume>().begin()->volume,
                m_rows.template get<kByTime>().begin()->time};
    }
    std::int64_t find(const Key *keys, int count) override
    {
        std::int64_t sum = 0;
        for (int i = 0; i < count; ++i)
            sum += live(keys[i])->volume;
        return sum;
    }
    double at(const int *places, int count) override
    {
        const auto &byLast = m_rows.template get<kByLast>();
        double sum = 0;
        for (int i = 0; i < count; ++i)
            sum += byLast.nth(size_t(places[i]))->last;
        return sum;
    }
    void hold(const std::vector<Key> &keys) override
    {
        m_held.clear();
        for (const Key &key : keys)
            m_held.push_back(m_rows.template project<kByLast>(live(key)));
    }
    std::int64_t ranks(int count) override
    {
        const auto &byLast = m_rows.template get<kByLast>();
        std::int64_t sum = 0;
        for (int i = 0; i < count; ++i)
            sum += std::int64_t(byLast.rank(m_held[size_t(i)]));
        return sum;
    }
    bool ranksAreTrue(int count) override
    {
        const auto &byLast = m_rows.template get<kByLast>();
        return std::all_of(m_held.begin(), m_held.begin() + count, [&](const auto &place) {
            return byLast.nth(byLast.rank(place)) == place;
        });
    }
    std::int64_t walk() override
    {
        std::int64_t sum = 0;
        for (const Row &row : m_rows.template get<kByLast>())
            sum += row.volume;
        return sum;
    }

    /// The rows as they are, in the order of the first index.
    void save(const std::string &directory, bool) override
    {
        std::vector<Row> rows(m_rows.begin(), m_rows.end());
        writeFile(directory + '/' + Primary::kName, rows.data(), rows.size() * sizeof(Row));
    }
    void load(const std::string &directory) override
    {
        const std::vector<char> bytes = readFile(directory + '/' + Primary::kName);
        const size_t count = bytes.size() / sizeof(Row);
        if constexpr (std::is_same_v<Primary, Hashed>)
            m_rows.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            Row row;
            std::memcpy(&row, bytes.data() + i * sizeof(Row), sizeof row);
            m_rows.insert(m_rows.end(), row); // where it belongs, for rows in the order of the key
        }
    }

    void visit(Order order, const std::function<void(const Row &)> &visitor) override
    {
        const auto all = [&](const auto &index) {
            std::for_each(index.begin(), index.end(), visitor);
        };
        if (order == Order::Last)
            all(m_rows.template get<kByLast>());
        else if (order == Order::Volume)
            all(m_rows.template get<kByVolume>());
        else
            all(m_rows.template get<kByTime>());
    }

private:
    using Rows = mi::multi_index_container<
        Row, mi::indexed_by<typename Primary::Index,
                            mi::ranked_non_unique<mi::member<Row, double, &Row::last>>,
                            mi::ranked_non_unique<mi::member<Row, std::int64_t, &Row::volume>>,
                            mi::ranked_non_unique<mi::member<Row, std::int64_t, &Row::time>>>>;

    auto live(const Key &key) const { return m_rows.find(key); }
    template<class Change>
    void change(const std::vector<Row> &rows, const Change &change)
    {
        for (const Row &row : rows)
            m_rows.modify(live(row.key), [&](Row &each) { change(each, row); });
    }

    Rows m_rows;
    std::vector<typename Rows::template nth_index<kByLast>::type::const_iterator> m_held;
};

template<class Primary>
EngineMaker maker()
{
    return [] { return std::make_unique<MultiIndexEngine<Primary>>(); };
}

} // namespace

EngineMaker orderedEngine()
{
    return maker<Ordered>();
}

EngineMaker hashedEngine()
{
    return maker<Hashed>();
}
