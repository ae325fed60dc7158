#include <database/indexes/partitionlist.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <set>
#include <utility>

Q_DECLARE_TYPEINFO(std::shared_ptr<int>, Q_MOVABLE_TYPE);

namespace
{

/// A handle that shows how many copies of it there are.
using Handle = std::shared_ptr<int>;
using List = PartitionList<Handle>;
using Values = std::vector<int>;
using Chunks = std::vector<Values>;

template<class Handles>
Values valuesOf(const Handles &handles)
{
    Values values;
    for (const Handle &handle : handles)
        values.push_back(handle ? *handle : -1);
    return values;
}

Chunks chunksOf(const List &list)
{
    Chunks chunks;
    for (int c = 0; c < list.partCount(); ++c) {
        chunks.emplace_back();
        for (const Handle *item = list.part(c).begin; item != list.part(c).end; ++item)
            chunks.back().push_back(**item);
    }
    return chunks;
}

struct Shape {
    const char *name;
    int partSize;
    int joinSize;
};

/// The list as it should be, chunk by chunk.
struct Model {
    const Shape shape;
    Chunks chunks;

    void insert(int pos, const Values &added)
    {
        size_t c = 0;
        for (; c < chunks.size() && pos > sizeOf(c); ++c)
            pos -= sizeOf(c);
        if (c == chunks.size())
            chunks.emplace_back();
        chunks[c].insert(chunks[c].begin() + pos, added.begin(), added.end());
        if (sizeOf(c) >= shape.partSize)
            cut(c, 2);
    }

    void append(int value)
    {
        if (chunks.empty() || sizeOf(chunks.size() - 1) + 1 >= shape.partSize)
            chunks.emplace_back();
        chunks.back().push_back(value);
    }

    void exchange(const std::set<int> &leaving, const Values &positions, const Values &items)
    {
        if (chunks.empty() && !items.empty())
            return insert(0, items);
        constexpr int kGone = -2;
        int start = 0; // of chunk c; the last chunk comes first
        for (Values &chunk : chunks) {
            for (int &value : chunk)
                value = leaving.count(start++) ? kGone : value;
        }
        size_t last = items.size();
        for (size_t c = chunks.size(); c-- > 0;) {
            start -= sizeOf(c);
            // A chunk's first place belongs to the chunk before it, if there is one.
            size_t first = last;
            for (; first > 0 && (c == 0 || positions[first - 1] > start); --first)
                chunks[c].insert(chunks[c].begin() + positions[first - 1] - start,
                                 items[first - 1]);
            const auto stays = std::remove(chunks[c].begin(), chunks[c].end(), kGone);
            const bool isBlock =
                stays == chunks[c].end() && first < last && positions[first] == positions[last - 1];
            chunks[c].erase(stays, chunks[c].end());
            if (first < last && sizeOf(c) >= shape.partSize)
                cut(c, isBlock ? 2 : int(std::ceil(double(sizeOf(c)) / (shape.partSize - 1))));
            last = first;
        }
        if (!leaving.empty())
            tidy();
    }

    void move(int from, int to)
    {
        const auto chunkOf = [this](int pos, bool atEndToo) {
            size_t c = 0;
            for (; pos > sizeOf(c) || (pos == sizeOf(c) && !atEndToo); ++c)
                pos -= sizeOf(c);
            return std::pair(c, pos);
        };
        const auto [c, offset] = chunkOf(from, false);
        const auto [targetChunk, target] = chunkOf(to, true);
        const int value = chunks[c][size_t(offset)];
        if (c != targetChunk) {
            remove(from);
            insert(to > from ? to - 1 : to, {value});
            return;
        }
        chunks[c].insert(chunks[c].begin() + target, value);
        chunks[c].erase(chunks[c].begin() + offset + (target <= offset ? 1 : 0));
    }

    void remove(int pos)
    {
        size_t c = 0;
        for (; pos >= sizeOf(c); ++c)
            pos -= sizeOf(c);
        chunks[c].erase(chunks[c].begin() + pos);
        if (chunks[c].empty()) {
            chunks.erase(chunks.begin() + long(c));
            return;
        }
        tryJoin(c);
        if (c > 0)
            tryJoin(c - 1);
    }

    /// Drops empty chunks and joins small ones.
    void tidy()
    {
        chunks.erase(std::remove(chunks.begin(), chunks.end(), Values()), chunks.end());
        for (size_t c = 0; c < chunks.size(); ++c)
            while (tryJoin(c)) {
            }
    }

    int sizeOf(size_t c) const { return int(chunks[c].size()); }

    void cut(size_t c, int pieces)
    {
        const Values whole = chunks[c];
        const int n = int(whole.size());
        chunks.erase(chunks.begin() + long(c));
        for (int j = pieces; j-- > 0;)
            chunks.emplace(chunks.begin() + long(c), whole.begin() + n * j / pieces,
                           whole.begin() + n * (j + 1) / pieces);
    }

    bool tryJoin(size_t c)
    {
        if (c + 1 >= chunks.size() || sizeOf(c) + sizeOf(c + 1) >= shape.joinSize)
            return false;
        chunks[c].insert(chunks[c].end(), chunks[c + 1].begin(), chunks[c + 1].end());
        chunks.erase(chunks.begin() + long(c) + 1);
        return true;
    }
};

/// A list and its model under the same random edits.
class PartitionListModel : public ::testing::TestWithParam<Shape>
{
protected:
    int below(int n) { return int(random() % unsigned(n)); }

    void edit()
    {
        const int pos = below(list.count() + 1);
        if (list.count() > 0 && below(6) == 0) {
            const int from = below(list.count());
            model.move(from, pos);
            list.move(from, pos);
            return;
        }
        const int kind = below(list.count() > 60 ? 11 : 7); // shrinks more often when large
        if (kind < 3)
            return insert(pos, below(3) > 0 ? 1 : 1 + below(longest));
        if (kind < 4)
            return append();
        if (kind < 6)
            return exchange();
        if (kind >= 8)
            return removeMany();
        if (pos < list.count())
            model.remove(pos);
        list.remove(pos);
    }

    void insert(int pos, int n)
    {
        QList<Handle> added;
        for (int i = 0; i < n; ++i)
            added.append(std::make_shared<int>(serial++));
        model.insert(pos, valuesOf(added));
        if (n == 1)
            list.insert(pos, added.first());
        else
            list.insert(pos, added);
    }

    void append()
    {
        list.append(std::make_shared<int>(serial));
        model.append(serial++);
    }

    void exchange()
    {
        std::set<int> leaving;
        for (int i = below(3) > 0 ? below(10) : 0; i > 0 && list.count() > 0; --i) {
            const int first = below(list.count());
            for (int pos = first; pos <= first + below(4) && pos < list.count(); ++pos)
                leaving.insert(pos);
        }
        const std::vector<int> left(leaving.begin(), leaving.end());
        const Values values = valuesOf(list);
        Values positions, items;
        const int n = below(longest + 4);
        const int spread = 1 + below(list.count() + 1); // often many items at few positions
        const int first = below(list.count() + 2 - spread);
        for (int i = 0; i < n; ++i)
            positions.push_back(first + below(spread));
        std::sort(positions.begin(), positions.end());
        std::vector<List::Arrival> arrivals;
        Values expected; // of those that left: some come back
        for (const int pos : left)
            expected.push_back(values[size_t(pos)]);
        for (int i = 0; i < n; ++i) {
            const int back = left.empty() ? -1 : below(int(left.size()));
            const bool comesBack = back != -1 && expected[size_t(back)] != -1 && below(2) == 0;
            items.push_back(comesBack ? std::exchange(expected[size_t(back)], -1) : serial++);
            arrivals.push_back({positions[size_t(i)], comesBack ? back : -1,
                                comesBack ? nullptr : std::make_shared<int>(items.back())});
        }
        model.exchange(leaving, positions, items);
        EXPECT_EQ(valuesOf(list.exchange(left, arrivals.data(), arrivals.data() + n)), expected);
        for (const List::Arrival &arrival : arrivals)
            EXPECT_FALSE(arrival.item) << "left behind where it came from";
    }

    void removeMany()
    {
        RangeSet<int> ranges;
        std::set<int> doomed;
        for (int i = below(6); i > 0; --i) {
            const int a = below(list.count() + 10); // may lie past the end
            const int b = a + below(20);
            ranges.addRange(a, b);
            for (int pos = a; pos < b; ++pos)
                doomed.insert(pos);
        }
        model.exchange(doomed, {}, {});
        model.tidy(); // also when there was nothing to remove
        list.removeRanges(ranges);
    }

    std::mt19937 random;
    const int longest = 3 * GetParam().partSize;
    int serial = 0;
    List list{GetParam().partSize, GetParam().joinSize};
    Model model{GetParam(), {}};
};

} // namespace

TEST_P(PartitionListModel, holdsWhatTheModelHoldsInTheSameChunks)
{
    for (unsigned seed = 1; seed <= 30; ++seed) {
        random.seed(seed);
        list.clear();
        model.chunks.clear();
        for (int step = 0; step < 400; ++step) {
            SCOPED_TRACE(::testing::Message() << "seed " << seed << " step " << step);
            edit();
            ASSERT_FALSE(HasFailure());
            ASSERT_TRUE(list.verify());
            ASSERT_EQ(chunksOf(list), model.chunks);
            if (list.count() > 0) {
                const int pos = below(list.count());
                ASSERT_EQ(*list.at(pos), valuesOf(list)[size_t(pos)]);
                ASSERT_EQ(list.at(pos).use_count(), 1);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(PartitionList, PartitionListModel,
                         ::testing::Values(Shape{"smallest", 2, 1}, Shape{"crowded", 4, 3},
                                           Shape{"even", 10, 5}, Shape{"odd", 7, 6},
                                           Shape{"never_joins", 8, 0},
                                           Shape{"joins_beyond_the_cut", 6, 20}),
                         [](const auto &info) { return info.param.name; });

TEST(PartitionList, findsPartitionPointsWithFewQuestions)
{
    List list(16, 4);
    for (int i = 0; i < 1000; ++i)
        list.append(std::make_shared<int>(i));
    const int allowed = int(std::log2(list.partCount()) + std::log2(15) + 2);
    for (int bound = 0; bound <= 1000; ++bound) {
        int asked = 0;
        const auto isBelow = [&](const Handle &handle) {
            ++asked;
            return *handle < bound;
        };
        ASSERT_EQ(list.partitionPoint(isBelow), bound);
        ASSERT_LE(asked, allowed);
        const int from = bound * 7 % 990;
        const int to = from + bound % 11;
        ASSERT_EQ(list.partitionPoint(from, to, isBelow), qBound(from, bound, to)) << from;
    }
}

TEST(PartitionList, iteratorsJumpLikeThoseOfAnArray)
{
    using It = List::iterator;
    using ConstIt = List::const_iterator;
    static_assert(std::is_convertible_v<It, ConstIt> && !std::is_convertible_v<ConstIt, It>);

    List list(4, 0);
    for (int i = 0; i < 20; ++i) // chunks of 3
        list.append(std::make_shared<int>(i));
    for (int a = 0; a <= 20; ++a) {
        for (int b = 0; b <= 20; ++b) {
            const It from = list.begin() + a;
            const ConstIt to = list.cbegin() + b;
            ASSERT_TRUE(from + (b - a) == to) << a << " to " << b;
            ASSERT_TRUE(list.iteratorAt(b) == to);
            ASSERT_EQ(to - from, b - a);
            ASSERT_EQ(from < to, a < b);
            ASSERT_EQ(from == to, a == b);
            if (b < 20) {
                ASSERT_EQ(*from[b - a], b);
            }
        }
    }
    Values model = valuesOf(list);
    std::rotate(list.begin(), list.begin() + 7, list.end());
    std::rotate(model.begin(), model.begin() + 7, model.end());
    EXPECT_EQ(valuesOf(list), model);
}

namespace
{

/// The bounds of the runs of integers in a set.
QList<int> runsOf(const std::set<int> &numbers)
{
    QList<int> runs;
    for (const int i : numbers) {
        if (!runs.isEmpty() && runs.constLast() == i)
            ++runs.last();
        else
            runs << i << i + 1;
    }
    return runs;
}

} // namespace

// Short ranges, empty and backward ones among them, that touch, bridge and repeat each other.
TEST(RangeSet, coversWhatASetOfIntegersHolds)
{
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        RangeSet<int> ranges;
        std::set<int> model;
        for (int step = 0; step < 60; ++step) {
            const int a = int(random() % 100);
            const int b = a + int(random() % (step % 9 ? 8 : 40)) - 1;
            ranges.addRange(a, b);
            for (int i = a; i < b; ++i)
                model.insert(i);
            ASSERT_EQ(ranges.bounds(), runsOf(model)) << "seed " << seed << " step " << step;
        }
    }
}
