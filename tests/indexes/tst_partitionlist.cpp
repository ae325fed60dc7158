#include "indexes/countedhandle.h"

#include <database/indexes/partitionlist.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>
#include <type_traits>

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
