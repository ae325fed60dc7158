#include "indexes/countedhandle.h"

#include <cmath>
#include <cstdlib>
#include <functional>
#include <new>
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

using Values = std::vector<int>;
using Chunks = std::vector<Values>;

Chunks chunksOf(const List &list)
{
    Chunks chunks;
    for (int c = 0; c < list.partCount(); ++c) {
        chunks.emplace_back();
        for (const CountedHandle *item = list.part(c).begin; item != list.part(c).end; ++item)
            chunks.back().push_back(item->value());
    }
    return chunks;
}

QList<CountedHandle> handles(int first, int n)
{
    QList<CountedHandle> result;
    for (int i = 0; i < n; ++i)
        result.append(CountedHandle(first + i));
    return result;
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

    void merge(const Values &positions, const Values &items)
    {
        if (chunks.empty() && !items.empty())
            return insert(0, items);
        int start = 0; // of chunk c; the last chunk comes first
        for (const Values &chunk : chunks)
            start += int(chunk.size());
        size_t last = items.size();
        for (size_t c = chunks.size(); c-- > 0;) {
            start -= sizeOf(c);
            // A chunk's first place belongs to the chunk before it, if there is one.
            size_t first = last;
            for (; first > 0 && (c == 0 || positions[first - 1] > start); --first)
                chunks[c].insert(chunks[c].begin() + positions[first - 1] - start,
                                 items[first - 1]);
            if (first < last && sizeOf(c) >= shape.partSize) {
                const bool onePlace = positions[first] == positions[last - 1];
                cut(c, onePlace ? 2 : int(std::ceil(double(sizeOf(c)) / (shape.partSize - 1))));
            }
            last = first;
        }
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

    /// \return the values that were removed
    Values remove(const std::vector<bool> &doomed)
    {
        Values removed;
        Chunks kept;
        size_t pos = 0;
        for (const Values &chunk : chunks) {
            Values rest;
            for (const int value : chunk)
                (doomed[pos++] ? removed : rest).push_back(value);
            if (!rest.empty())
                kept.push_back(rest);
        }
        chunks = kept;
        for (size_t c = 0; c < chunks.size(); ++c)
            while (tryJoin(c)) {
            }
        return removed;
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
class PartitionListModel : public CountedHandles, public ::testing::WithParamInterface<Shape>
{
protected:
    int below(int n) { return int(random() % unsigned(n)); }

    void edit()
    {
        const int pos = below(list.count() + 1);
        switch (below(list.count() > 60 ? 11 : 7)) { // shrinks more often when large
        case 0:
        case 1:
        case 2:
            return insert(pos, below(3) > 0 ? 1 : 1 + below(longest));
        case 3:
            return append();
        case 4:
        case 5:
            return merge();
        case 6:
        case 7:
            if (pos < list.count())
                model.remove(pos);
            return expectCopies(0, [&] { list.remove(pos); });
        default:
            return removeMany();
        }
    }

    template<class Change>
    static void expectCopies(int needed, Change change)
    {
        const int before = CountedHandle::s_copies;
        change();
        EXPECT_EQ(CountedHandle::s_copies - before, needed) << "handles were copied, not moved";
    }

    void insert(int pos, int n)
    {
        const QList<CountedHandle> added = handles(serial, n);
        serial += n;
        model.insert(pos, valuesOf(added));
        expectCopies(n, [&] {
            if (n == 1)
                list.insert(pos, added.first());
            else
                list.insert(pos, added);
        });
    }

    void append()
    {
        const CountedHandle handle(serial);
        model.append(serial++);
        expectCopies(1, [&] { list.append(handle); });
    }

    void merge()
    {
        Values positions;
        std::vector<CountedHandle> items;
        const int n = below(longest + 4);
        const int spread = 1 + below(list.count() + 1); // often many items at few positions
        const int first = below(list.count() + 2 - spread);
        for (int i = 0; i < n; ++i) {
            positions.push_back(first + below(spread));
            items.emplace_back(serial++);
        }
        std::sort(positions.begin(), positions.end());
        model.merge(positions, valuesOf(items));
        expectCopies(0, [&] { list.mergeInsert(positions.data(), items.data(), n); });
        EXPECT_EQ(valuesOf(items), Values(items.size(), -1)) << "left behind where they came from";
    }

    void removeMany()
    {
        RangeSet<int> ranges;
        std::vector<bool> doomed(size_t(list.count()) + 40);
        for (int i = below(6); i > 0; --i) {
            const int a = below(list.count() + 10); // may lie past the end
            const int b = a + below(20);
            ranges.addRange(a, b);
            std::fill(doomed.begin() + a, doomed.begin() + qMax(a, b), true);
        }
        Values expected = model.remove(doomed);
        if (below(3) == 0)
            return expectCopies(0, [&] { list.removeRanges(ranges); });
        std::vector<CountedHandle> out(size_t(list.count()));
        expectCopies(0,
                     [&] { EXPECT_EQ(list.takeRanges(ranges, out.data()), int(expected.size())); });
        expected.resize(out.size(), -1);
        EXPECT_EQ(valuesOf(out), expected);
    }

    std::mt19937 random;
    const int longest = 3 * GetParam().partSize;
    int serial = 0;
    List list{GetParam().partSize, GetParam().joinSize};
    Model model{GetParam(), {}};
};

class PartitionListTest : public CountedHandles
{
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
            ASSERT_EQ(CountedHandle::s_alive, list.count());
            if (list.count() > 0) {
                const int pos = below(list.count());
                ASSERT_EQ(list.at(pos).value(), valuesOf(list)[size_t(pos)]);
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
    List list;
    for (int i = 0; i < 9999; ++i)
        list.append(CountedHandle(i));
    EXPECT_EQ(list.partCount(), 1);
    list.insert(0, CountedHandle(9999));
    EXPECT_EQ(list.part(0).size, 5000);
    EXPECT_EQ(list.part(1).size, 5000);
    RangeSet<int> ranges;
    ranges.addRange(0, 4999);
    list.removeRanges(ranges); // 1 and 5000 are left
    EXPECT_EQ(list.partCount(), 2);
    list.remove(5000);
    EXPECT_EQ(list.partCount(), 2) << "not fewer than 5000 together";
    list.remove(4999);
    EXPECT_EQ(list.partCount(), 1);
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
    EXPECT_EQ(valuesOf(list), (Values{0, 1}));
    EXPECT_TRUE(list.at(2).isNull());
    list.insert(0, list.at(1)); // an element of the list itself
    EXPECT_EQ(valuesOf(list), (Values{1, 0, 1}));
    EXPECT_EQ(list.at(0).references(), 2);
    list.clear();
    EXPECT_TRUE(list.verify());
    EXPECT_TRUE(list.partCount() == 0 && list.begin() == list.end());
}

TEST_F(PartitionListTest, chunksAreCreatedCutAndJoinedByHand)
{
    List list(6, 0);
    list.insert(0, handles(0, 5));
    list.split(list.parts().constData() + 1, 2);
    EXPECT_EQ(chunksOf(list), (Chunks{{0, 1}, {2, 3, 4}}));
    const List::Part *created = list.createPart(list.parts().constData() + 2);
    EXPECT_EQ(created->size, 0);
    EXPECT_EQ(list.parts().at(2), created);
    list.join(list.parts().constData() + 1);
    list.join(list.parts().constData() + 1);
    EXPECT_EQ(chunksOf(list), (Chunks{{0, 1, 2, 3, 4}}));
    EXPECT_TRUE(list.verify());
}

TEST_F(PartitionListTest, failedCopiesAndAllocationsLeaveListAndItemsAsTheyWere)
{
    const QList<CountedHandle> more = handles(10, 12);
    struct {
        const char *name;
        int copies; // that the change makes
        std::function<void(List &, std::vector<CountedHandle> &)> change;
    } const cases[] = {
        {"insert_one", 1, [&](List &list, auto &) { list.insert(3, more.first()); }},
        {"insert_many", 12, [&](List &list, auto &) { list.insert(3, more); }},
        {"append", 1, [&](List &list, auto &) { list.append(more.first()); }},
        {"merge", 0,
         [](List &list, auto &items) {
             const int positions[12] = {0, 0, 0, 3, 3, 4, 6, 6, 6, 6, 6, 9};
             list.mergeInsert(positions, items.data(), 12);
         }},
    };
    for (int *untilFailure : {&CountedHandle::s_copiesUntilThrow, &s_allocationsUntilFailure}) {
        for (const auto &c : cases) {
            int failures = 0;
            for (bool failed = true; failed; failures += int(failed)) {
                SCOPED_TRACE(::testing::Message() << c.name << " after " << failures);
                List list(4, 2);
                list.insert(0, handles(0, 9));
                const Chunks before = chunksOf(list);
                std::vector<CountedHandle> items(more.begin(), more.end());
                *untilFailure = failures + 1;
                try {
                    c.change(list, items);
                    failed = false;
                } catch (const std::exception &) {
                }
                *untilFailure = 0;
                ASSERT_TRUE(list.verify());
                ASSERT_EQ(failed, chunksOf(list) == before);
                ASSERT_TRUE(!failed || valuesOf(items) == valuesOf(more));
            }
            if (untilFailure == &s_allocationsUntilFailure)
                EXPECT_GT(failures, 1) << c.name << ": nothing was made to fail";
            else
                EXPECT_EQ(failures, c.copies) << c.name;
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
    Values model = valuesOf(list);
    std::rotate(list.begin(), list.begin() + 7, list.end());
    std::rotate(model.begin(), model.begin() + 7, model.end());
    EXPECT_EQ(valuesOf(list), model);
}
