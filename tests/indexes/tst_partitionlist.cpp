#include "indexes/countedhandle.h"

#include <database/indexes/partitionlist.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <new>
#include <numeric>
#include <random>
#include <type_traits>

namespace
{

int s_allocationsUntilFailure = 0; // 0: allocation never fails

} // namespace

void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    if (s_allocationsUntilFailure > 0 && --s_allocationsUntilFailure == 0)
        return nullptr;
    return std::malloc(size);
}

void *operator new(size_t size)
{
    if (void *memory = operator new(size, std::nothrow))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, size_t) noexcept
{
    std::free(memory);
}

namespace
{

using List = PartitionList<CountedHandle>;

std::vector<int> values(const List &list)
{
    std::vector<int> result;
    for (const CountedHandle &handle : list)
        result.push_back(handle.value());
    return result;
}

std::vector<int> sizes(const List &list)
{
    std::vector<int> result;
    for (int c = 0; c < list.partCount(); ++c)
        result.push_back(list.part(c).size);
    return result;
}

QList<CountedHandle> handles(int first, int n)
{
    QList<CountedHandle> result;
    for (int i = 0; i < n; ++i)
        result.append(CountedHandle(first + i));
    return result;
}

/// The list as it should be: the values in one vector and the chunk sizes in another.
class Model
{
public:
    Model(int partSize, int joinSize)
        : m_partSize(partSize)
        , m_joinSize(joinSize)
    {
    }

    void insert(int pos, const std::vector<int> &added)
    {
        values.insert(values.begin() + pos, added.begin(), added.end());
        size_t c = 0;
        for (; c < sizes.size() && pos > sizes[c]; ++c)
            pos -= sizes[c];
        if (c == sizes.size())
            sizes.push_back(0);
        sizes[c] += int(added.size());
        if (sizes[c] >= m_partSize) {
            const int half = sizes[c] / 2;
            sizes.insert(sizes.begin() + long(c) + 1, sizes[c] - half);
            sizes[c] = half;
        }
    }

    void append(int value)
    {
        values.push_back(value);
        if (!sizes.empty() && sizes.back() + 1 < m_partSize)
            ++sizes.back();
        else
            sizes.push_back(1);
    }

    void remove(int pos)
    {
        values.erase(values.begin() + pos);
        size_t c = 0;
        for (; pos >= sizes[c]; ++c)
            pos -= sizes[c];
        if (--sizes[c] == 0) {
            sizes.erase(sizes.begin() + long(c));
            return;
        }
        tryJoin(c);
        if (c > 0)
            tryJoin(c - 1);
    }

    void remove(const std::vector<bool> &doomed)
    {
        std::vector<int> keptValues, keptSizes;
        size_t pos = 0;
        for (const int size : sizes) {
            keptSizes.push_back(0);
            for (int i = 0; i < size; ++i, ++pos) {
                if (pos < doomed.size() && doomed[pos])
                    continue;
                keptValues.push_back(values[pos]);
                ++keptSizes.back();
            }
        }
        values = keptValues;
        sizes.clear();
        for (const int size : keptSizes)
            if (size > 0)
                sizes.push_back(size);
        for (size_t c = 0; c < sizes.size(); ++c)
            while (tryJoin(c)) {
            }
    }

    /// One value before each position, chunk by chunk.
    void merge(const std::vector<int> &positions, const std::vector<int> &items)
    {
        std::vector<int> merged, newSizes;
        size_t next = 0;
        int begin = 0;
        if (sizes.empty() && !items.empty())
            return insert(0, items);
        for (const int size : sizes) {
            const size_t first = next;
            for (int i = 0; i <= size; ++i) {
                // The chunk's first place belongs to the chunk before it, if there is one.
                while (next < positions.size() && positions[next] == begin + i)
                    merged.push_back(items[next++]);
                if (i < size)
                    merged.push_back(values[size_t(begin + i)]);
            }
            const int total = size + int(next - first);
            int pieces = 1;
            if (next > first && total >= m_partSize)
                pieces = positions[first] == positions[next - 1]
                             ? 2
                             : int(std::ceil(double(total) / (m_partSize - 1)));
            for (int j = 0, done = 0; j < pieces; ++j) {
                const int upTo = total * (j + 1) / pieces;
                newSizes.push_back(upTo - done);
                done = upTo;
            }
            begin += size;
        }
        values = merged;
        sizes = newSizes;
    }

    std::vector<int> values;
    std::vector<int> sizes;

private:
    bool tryJoin(size_t c)
    {
        if (c + 1 >= sizes.size() || sizes[c] + sizes[c + 1] >= m_joinSize)
            return false;
        sizes[c] += sizes[c + 1];
        sizes.erase(sizes.begin() + long(c) + 1);
        return true;
    }

    const int m_partSize;
    const int m_joinSize;
};

struct Shape {
    const char *name;
    int partSize;
    int joinSize;
};

/// A list and its model under the same random edits. Each edit returns how many handles it copied
/// beyond what it had to.
class Twins
{
public:
    Twins(const Shape &shape, unsigned seed)
        : list(shape.partSize, shape.joinSize)
        , model(shape.partSize, shape.joinSize)
        , m_random(seed)
        , m_longest(3 * shape.partSize)
    {
    }

    int below(int n) { return int(m_random() % unsigned(n)); }

    int edit()
    {
        switch (below(list.count() > 60 ? 11 : 7)) { // shrinks more often when large
        case 0:
        case 1:
            return insertOne();
        case 2:
            return insertMany();
        case 3:
            return append();
        case 4:
        case 5:
            return merge();
        case 6:
        case 7:
            return removeOne();
        case 8:
            return removeMany(nullptr);
        default:
            std::vector<CountedHandle> out(size_t(list.count()));
            return removeMany(out.data());
        }
    }

    List list;
    Model model;

private:
    template<class F>
    static int copiesBeyond(int needed, F change)
    {
        const int before = CountedHandle::s_copies;
        change();
        return CountedHandle::s_copies - before - needed;
    }

    int insertOne()
    {
        const int pos = below(list.count() + 1);
        const CountedHandle handle(m_serial);
        model.insert(pos, {m_serial++});
        return copiesBeyond(1, [&] { list.insert(pos, handle); });
    }

    int insertMany()
    {
        const int pos = below(list.count() + 1);
        const int n = 1 + below(m_longest);
        std::vector<int> added(static_cast<size_t>(n));
        std::iota(added.begin(), added.end(), m_serial);
        const QList<CountedHandle> source = handles(m_serial, n);
        m_serial += n;
        model.insert(pos, added);
        return copiesBeyond(n, [&] { list.insert(pos, source); });
    }

    int append()
    {
        const CountedHandle handle(m_serial);
        model.append(m_serial++);
        return copiesBeyond(1, [&] { list.append(handle); });
    }

    int merge()
    {
        std::vector<int> positions, added;
        std::vector<CountedHandle> items;
        const int n = below(m_longest + 4);
        const int spread = 1 + below(list.count() + 1); // often many items at few positions
        const int first = below(list.count() + 2 - spread);
        for (int i = 0; i < n; ++i) {
            positions.push_back(first + below(spread));
            added.push_back(m_serial);
            items.emplace_back(m_serial++);
        }
        std::sort(positions.begin(), positions.end());
        model.merge(positions, added);
        const int copies =
            copiesBeyond(0, [&] { list.mergeInsert(positions.data(), items.data(), n); });
        for (const CountedHandle &item : items)
            EXPECT_TRUE(item.isNull());
        return copies;
    }

    int removeOne()
    {
        if (list.count() == 0)
            return 0;
        const int pos = below(list.count());
        model.remove(pos);
        return copiesBeyond(0, [&] { list.remove(pos); });
    }

    int removeMany(CountedHandle *out)
    {
        const int n = list.count();
        RangeSet<int> ranges;
        std::vector<bool> doomed(size_t(n) + 40);
        for (int i = below(6); i > 0; --i) {
            const int a = below(n + 10);
            const int b = a + below(20);
            ranges.addRange(a, b);
            for (int k = a; k < b; ++k)
                doomed[size_t(k)] = true;
        }
        std::vector<int> expected, taken;
        for (int k = 0; k < n; ++k)
            if (doomed[size_t(k)])
                expected.push_back(model.values[size_t(k)]);
        model.remove(doomed);
        if (!out)
            return copiesBeyond(0, [&] { list.removeRanges(ranges); });
        int count = 0;
        const int copies = copiesBeyond(0, [&] { count = list.takeRanges(ranges, out); });
        for (int i = 0; i < count; ++i)
            taken.push_back(out[i].value());
        EXPECT_EQ(taken, expected);
        return copies;
    }

    std::mt19937 m_random;
    const int m_longest;
    int m_serial = 0;
};

class PartitionListTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(CountedHandle::s_alive, 0) << "references lost or leaked";
    }
};

class PartitionListModel : public PartitionListTest, public ::testing::WithParamInterface<Shape>
{
};

} // namespace

TEST_P(PartitionListModel, holdsWhatTheModelHoldsInTheSameChunks)
{
    for (unsigned seed = 1; seed <= 30; ++seed) {
        Twins twins(GetParam(), seed);
        const List &list = twins.list;
        for (int step = 0; step < 400; ++step) {
            SCOPED_TRACE(::testing::Message() << "seed " << seed << " step " << step);
            ASSERT_EQ(twins.edit(), 0) << "handles were copied instead of moved";
            ASSERT_FALSE(HasFailure());
            ASSERT_TRUE(list.verify());
            ASSERT_EQ(values(list), twins.model.values);
            ASSERT_EQ(sizes(list), twins.model.sizes);
            ASSERT_EQ(CountedHandle::s_alive, list.count());
            if (list.count() > 0) {
                const int pos = twins.below(list.count());
                ASSERT_EQ(list.at(pos).value(), twins.model.values[size_t(pos)]);
                ASSERT_EQ(list.at(pos).references(), 1);
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

TEST_F(PartitionListTest, cutsAndJoinsAtTheDefaultSizes)
{
    const auto after = [](auto change) {
        List list;
        change(list);
        EXPECT_TRUE(list.verify());
        return sizes(list);
    };
    const auto removeFirst = [](List &list, int n) {
        RangeSet<int> ranges;
        ranges.addRange(0, n);
        list.removeRanges(ranges);
    };
    using Sizes = std::vector<int>;
    EXPECT_EQ(after([](List &list) {
                  for (int i = 0; i < 10000; ++i)
                      list.insert(list.count(), CountedHandle(i));
              }),
              (Sizes{5000, 5000}));
    EXPECT_EQ(after([](List &list) { list.insert(0, handles(0, 30000)); }), (Sizes{15000, 15000}));
    EXPECT_EQ(after([](List &list) {
                  for (int i = 0; i < 10000; ++i)
                      list.append(CountedHandle(i));
              }),
              (Sizes{9999, 1}));
    EXPECT_EQ(after([&](List &list) {
                  list.insert(0, handles(0, 9999 + 1));
                  removeFirst(list, 5000 - 1); // 1 and 5000 together: not fewer than 5000
              }),
              (Sizes{1, 5000}));
    EXPECT_EQ(after([&](List &list) {
                  list.insert(0, handles(0, 10000));
                  removeFirst(list, 4999);
                  list.remove(5000); // 1 and 4999 together
                  EXPECT_EQ(list.count(), 5000);
              }),
              (Sizes{1, 4999}));
    EXPECT_EQ(after([&](List &list) {
                  list.insert(0, handles(0, 10000));
                  removeFirst(list, 4999);
                  list.remove(5000);
                  list.remove(4999);
              }),
              (Sizes{4999}));
}

TEST_F(PartitionListTest, forgivesPositionsPastTheEnd)
{
    List list(4, 2);
    list.insert(0, handles(0, 3));
    list.remove(3);
    list.insert(0, QList<CountedHandle>());
    RangeSet<int> ranges;
    ranges.addRange(-3, 0);
    ranges.addRange(2, 9);
    list.removeRanges(ranges);
    EXPECT_EQ(values(list), (std::vector<int>{0, 1}));
    EXPECT_TRUE(list.at(2).isNull());
    EXPECT_EQ(&list.at(2), &list.at(1000));
    list.insert(0, list.at(1)); // an element of the list itself
    EXPECT_EQ(values(list), (std::vector<int>{1, 0, 1}));
    EXPECT_EQ(list.at(0).references(), 2);
    list.clear();
    EXPECT_TRUE(list.verify());
    EXPECT_EQ(list.parts(), QVector<List::Part *>(2, nullptr));
    EXPECT_TRUE(list.begin() == list.end());
}

TEST_F(PartitionListTest, chunksAreCreatedCutAndJoinedByHand)
{
    List list(6, 0);
    list.insert(0, handles(0, 5));
    list.split(list.parts().constData() + 1, 2);
    EXPECT_EQ(sizes(list), (std::vector<int>{2, 3}));
    const QVector<List::Part *> copy = list.parts(); // must not see what happens next
    List::Part *created = list.createPart(list.parts().constData() + 2);
    EXPECT_EQ(created->size, 0);
    EXPECT_EQ(created->capacity, 8);
    EXPECT_EQ(list.parts().at(2), created);
    list.join(list.parts().constData() + 1);
    list.join(list.parts().constData() + 1);
    EXPECT_EQ(sizes(list), (std::vector<int>{5}));
    EXPECT_TRUE(list.verify());
    EXPECT_EQ(copy.size(), 4);
    EXPECT_EQ(values(list), (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(PartitionListTest, growsAChunkToExactlyWhatIsNeeded)
{
    List list(10, 0);
    list.insert(0, handles(0, 30));
    EXPECT_EQ(list.part(0).capacity, 30); // held all before the cut
    EXPECT_EQ(list.part(1).capacity, 15);
    list.part(1).owner->insert(30, CountedHandle(30));
    EXPECT_EQ(list.part(1).capacity, 16);
    EXPECT_EQ(sizes(list), (std::vector<int>{15, 8, 8}));
    EXPECT_EQ(list.part(2).capacity, 12);
}

TEST_F(PartitionListTest, failedCopyLeavesTheListAsItWas)
{
    List list(4, 2);
    list.insert(0, handles(0, 7));
    const std::vector<int> before = sizes(list);
    const QList<CountedHandle> more = handles(7, 9);
    const CountedHandle one(99);
    for (const int copies : {1, 5, 9}) {
        CountedHandle::s_copiesUntilThrow = copies;
        EXPECT_THROW(list.insert(3, more), std::runtime_error);
    }
    CountedHandle::s_copiesUntilThrow = 1;
    EXPECT_THROW(list.insert(3, one), std::runtime_error);
    CountedHandle::s_copiesUntilThrow = 1;
    EXPECT_THROW(list.append(one), std::runtime_error);
    EXPECT_TRUE(list.verify());
    EXPECT_EQ(sizes(list), before);
    EXPECT_EQ(list.count(), 7);
}

TEST_F(PartitionListTest, failedAllocationLeavesListAndItemsAsTheyWere)
{
    for (const bool severalPlaces : {false, true}) {
        for (int allocations = 0;; ++allocations) {
            SCOPED_TRACE(allocations);
            List list(4, 2);
            list.insert(0, handles(0, 7));
            const std::vector<int> layout = sizes(list);
            std::vector<CountedHandle> items;
            std::vector<int> positions;
            for (int i = 0; i < 12; ++i) {
                items.emplace_back(100 + i);
                positions.push_back(severalPlaces ? i / 2 : 3);
            }
            bool failed = false;
            s_allocationsUntilFailure = allocations + 1;
            try {
                list.mergeInsert(positions.data(), items.data(), 12);
            } catch (const std::bad_alloc &) {
                failed = true;
            }
            s_allocationsUntilFailure = 0;
            ASSERT_TRUE(list.verify());
            if (!failed) {
                EXPECT_GT(allocations, 1) << "nothing was made to fail";
                EXPECT_EQ(list.count(), 19);
                break;
            }
            ASSERT_EQ(sizes(list), layout);
            ASSERT_EQ(values(list), (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
            for (int i = 0; i < 12; ++i)
                ASSERT_EQ(items[size_t(i)].value(), 100 + i);
        }
    }
}

TEST_F(PartitionListTest, findsPartitionPointsWithFewQuestions)
{
    List list(16, 4);
    for (int i = 0; i < 1000; ++i)
        list.append(CountedHandle(i));
    const int allowed = int(std::log2(list.partCount()) + std::log2(15) + 2);
    for (int bound = 0; bound <= 1000; ++bound) {
        int asked = 0;
        const auto isBelow = [&](const CountedHandle &handle) {
            ++asked;
            return handle.value() < bound;
        };
        ASSERT_EQ(list.partitionPoint(isBelow), bound);
        ASSERT_LE(asked, allowed);
        const int from = bound * 7 % 990;
        const int to = from + bound % 11;
        ASSERT_EQ(list.partitionPoint(from, to, isBelow), qBound(from, bound, to)) << from;
    }
    EXPECT_EQ(List().partitionPoint([](const CountedHandle &) { return true; }), 0);
}

TEST_F(PartitionListTest, iteratorsJumpLikeThoseOfAnArray)
{
    using It = List::iterator;
    using ConstIt = List::const_iterator;
    using Traits = std::iterator_traits<It>;
    static_assert(std::is_same_v<Traits::iterator_category, std::random_access_iterator_tag>);
    static_assert(std::is_same_v<Traits::reference, CountedHandle &>);
    static_assert(std::is_same_v<std::iterator_traits<ConstIt>::reference, const CountedHandle &>);
    static_assert(std::is_convertible_v<It, ConstIt> && !std::is_convertible_v<ConstIt, It>);
    static_assert(std::is_nothrow_swappable_v<It> && std::is_default_constructible_v<It>);

    List list(4, 0);
    for (int i = 0; i < 20; ++i) // chunks of 3
        list.append(CountedHandle(i));
    for (int a = 0; a <= 20; ++a) {
        for (int b = 0; b <= 20; ++b) {
            const It from = list.begin() + a;
            const ConstIt to = list.cbegin() + b;
            ASSERT_TRUE(from + (b - a) == to) << a << " to " << b;
            ASSERT_TRUE(list.iteratorAt(b) == to);
            ASSERT_EQ(to - from, b - a);
            ASSERT_EQ(from < to, a < b);
            ASSERT_EQ(from >= to, a >= b);
            ASSERT_EQ(from == to, a == b);
            if (b < 20) {
                ASSERT_EQ(from[b - a].value(), b);
            }
        }
    }
    int expected = 20;
    for (ConstIt it = list.end(); it != list.begin();)
        ASSERT_EQ((--it)->value(), --expected);
}

TEST_F(PartitionListTest, standardAlgorithmsWorkAcrossChunks)
{
    std::mt19937 random(1);
    const auto less = [](const CountedHandle &a, const CountedHandle &b) {
        return a.value() / 4 < b.value() / 4;
    };
    const auto lessInt = [](int a, int b) { return a / 4 < b / 4; };
    for (const int n : {0, 1, 7, 60, 500}) {
        SCOPED_TRACE(n);
        List list(8, 3);
        std::vector<int> model;
        for (int i = 0; i < n; ++i) {
            model.push_back(int(random() % 200));
            list.append(CountedHandle(model.back()));
        }
        const int copies = CountedHandle::s_copies;
        const int middle = n / 3;
        std::rotate(list.begin(), list.begin() + middle, list.end());
        std::rotate(model.begin(), model.begin() + middle, model.end());
        std::reverse(list.begin(), list.end());
        std::reverse(model.begin(), model.end());
        EXPECT_EQ(values(list), model);
        std::stable_sort(list.begin(), list.begin() + middle, less);
        std::stable_sort(model.begin(), model.begin() + middle, lessInt);
        std::stable_sort(list.begin() + middle, list.end(), less);
        std::stable_sort(model.begin() + middle, model.end(), lessInt);
        std::inplace_merge(list.begin(), list.begin() + middle, list.end(), less);
        std::inplace_merge(model.begin(), model.begin() + middle, model.end(), lessInt);
        EXPECT_EQ(values(list), model);
        EXPECT_EQ(CountedHandle::s_copies, copies);
        const auto found = std::lower_bound(list.cbegin(), list.cend(), CountedHandle(100), less);
        EXPECT_EQ(found - list.cbegin(),
                  std::lower_bound(model.begin(), model.end(), 100, lessInt) - model.begin());
        EXPECT_TRUE(list.verify());
    }
}
