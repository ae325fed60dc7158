#include <database/indexes/sortguide.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace
{

struct Shape {
    const char *name;
    int rows;    // about so many
    int batches; // changes of the sequence
    int changes; // most of one batch
    int digests; // distinct ones; few make long runs of equals
};

class SortGuideModel : public ::testing::TestWithParam<Shape>
{
protected:
    int below(int n) { return int(random() % unsigned(n)); }

    /// Takes rows out and puts others where they belong, in the sequence and in the guide.
    void change(int removals, int insertions)
    {
        std::vector<int> removed;
        for (int i = 0; i < removals && !rows.empty(); ++i)
            removed.push_back(below(3) ? below(int(rows.size())) : 0);
        std::sort(removed.begin(), removed.end());
        removed.erase(std::unique(removed.begin(), removed.end()), removed.end());
        std::vector<quint64> fresh;
        const int around = below(shape.digests);
        for (int i = 0; i < insertions; ++i) // some batches pile up in one place
            fresh.push_back(quint64(removals % 3 ? below(shape.digests) : around + below(3)));
        std::sort(fresh.begin(), fresh.end());

        std::vector<quint64> merged;
        std::vector<SortGuide::Insertion> inserted;
        size_t next = 0;
        for (int position = 0; position <= int(rows.size()); ++position) {
            // Before the first row that is greater; rows that leave do not count.
            const bool atEnd = position == int(rows.size());
            const bool leaves = std::binary_search(removed.begin(), removed.end(), position);
            while (next < fresh.size() &&
                   (atEnd || (!leaves && fresh[next] < rows[size_t(position)]))) {
                inserted.push_back({position, fresh[next]});
                merged.push_back(fresh[next++]);
            }
            if (!atEnd && !leaves)
                merged.push_back(rows[size_t(position)]);
        }
        rows = merged;
        guide.update(removed.data(), int(removed.size()), inserted.data(), int(inserted.size()),
                     digestAt);
    }

    /// Neighbours take other digests without leaving their places: any, or all of them rise or fall
    /// past signposts that stand among them.
    void changeInPlace(int most)
    {
        const int first = below(int(rows.size()));
        const int end = qMin(first + 1 + below(most), int(rows.size()));
        const quint64 low = first > 0 ? rows[size_t(first) - 1] : 0;
        const quint64 high = end < int(rows.size()) ? rows[size_t(end)] : rows.back() + 9;
        const quint64 span = below(3) ? (high - low) / 8 : high - low;
        const quint64 base = below(2) ? low : high - span;
        std::vector<int> removed;
        std::vector<SortGuide::Insertion> again;
        for (int i = first; i < end; ++i)
            rows[size_t(i)] = base + random() % (span + 1);
        std::sort(rows.begin() + first, rows.begin() + end);
        for (int i = first; i < end; ++i) {
            removed.push_back(i);
            again.push_back({i + 1, rows[size_t(i)]});
        }
        guide.update(removed.data(), end - first, again.data(), end - first, digestAt);
    }

    /// A row takes another digest and goes where that belongs, unless it is in order where it is.
    void moveOne()
    {
        const int position = below(int(rows.size()));
        const quint64 old = rows[size_t(position)];
        const quint64 digest = below(3) ? quint64(below(shape.digests)) : old + quint64(below(5));
        const SortGuide::Group from = guide.group(old);
        const SortGuide::Group to = guide.group(digest);
        int place = position + 1;
        const auto self = rows.begin() + position;
        if (std::upper_bound(rows.begin(), self, digest) != self)
            place = int(std::upper_bound(rows.begin(), self, digest) - rows.begin());
        else
            place = int(std::lower_bound(self + 1, rows.end(), digest) - rows.begin());
        if (place > position + 1)
            place = int(std::upper_bound(self + 1, rows.end(), digest) - rows.begin());
        rows[size_t(position)] = digest;
        if (place <= position)
            std::rotate(rows.begin() + place, self, self + 1);
        else
            std::rotate(self, self + 1, rows.begin() + place);
        guide.move(from, position, to, place, digest, digestAt);
    }

    void check(quint64 digest)
    {
        const auto [first, last] = std::equal_range(rows.begin(), rows.end(), digest);
        const SortGuide::Range range = guide.range(digest);
        ASSERT_LE(range.first, first - rows.begin()) << digest;
        ASSERT_GE(range.last, last - rows.begin()) << digest;
        ASSERT_LE(range.last - range.first, last - first + 4 * 32) << "a few groups at most";
    }

    /// Marks that are set are those of the group's rows. Sets most of them, to last until the next
    /// change.
    void checkMarks(quint64 digest)
    {
        const SortGuide::Group group = guide.group(digest);
        SortGuide::Marks *const marks = guide.marks(group);
        const int size = group.last - group.first;
        if (!marks)
            return;
        const quint64 *const digests = &rows[size_t(group.first)];
        if (!marks->areSet() && below(4) != 0)
            marks->set(digests, size);
        if (!marks->areSet())
            return;
        ++markedGroups;
        for (int i = 0; i < size; ++i) {
            const quint32 fitting = marks->fitting(digests[i]);
            ASSERT_TRUE(fitting >> i & 1) << digest << ", row " << i << " of " << size;
            ASSERT_EQ(quint64(fitting) >> size, 0u) << "no such rows";
        }
        strayFits += marks->fitting(digest ^ 0x5555) != 0;
    }

    const Shape shape = GetParam();
    int markedGroups = 0;
    int strayFits = 0;
    std::mt19937 random{20240815};
    std::vector<quint64> rows; // their digests
    SortGuide guide;
    const SortGuide::DigestAt digestAt = [this](int position) { return rows[size_t(position)]; };
};

TEST_P(SortGuideModel, bracketsEveryDigestThroughAllChanges)
{
    for (int step = 0; step < shape.batches; ++step) {
        SCOPED_TRACE(testing::Message() << "step " << step);
        const bool grows = int(rows.size()) < shape.rows;
        const int most = below(8) ? 3 : shape.changes;
        change(below(most + 1) / (grows ? 2 : 1), below(most + 1) + (grows ? most / 3 : 0));
        for (int i = 0; i < 3 && !rows.empty(); ++i) {
            changeInPlace(i == 0 ? 1 : shape.changes);
            moveOne();
        }
        ASSERT_EQ(guide.count(), int(rows.size()));
        ASSERT_TRUE(guide.verify(digestAt));
        for (int i = 0; i < 10; ++i) {
            const auto digest = quint64(below(shape.digests + 2));
            ASSERT_NO_FATAL_FAILURE(check(digest));
            if (!rows.empty()) {
                ASSERT_NO_FATAL_FAILURE(checkMarks(digest));
            }
        }
    }
    EXPECT_TRUE(markedGroups > shape.batches || shape.digests < 10) << "but for runs of equals";
    EXPECT_LE(strayFits, markedGroups / 4) << "most other rows are told apart";
    for (int i = 0; i < 20000; ++i)
        moveOne();
    ASSERT_TRUE(guide.verify(digestAt)) << "after many moves without another change";
    change(int(rows.size()) * 4, 0);
    EXPECT_EQ(guide.count(), int(rows.size()));
    guide.build(int(rows.size()), digestAt);
    EXPECT_TRUE(guide.verify(digestAt));
}

INSTANTIATE_TEST_SUITE_P(SortGuide, SortGuideModel,
                         ::testing::Values(Shape{"a_few_rows", 20, 3000, 20, 30},
                                           Shape{"several_blocks", 6000, 1500, 400, 100000},
                                           Shape{"many_equals", 3000, 1500, 300, 7},
                                           Shape{"dense_changes", 4000, 200, 4000, 4000}),
                         [](const auto &info) { return info.param.name; });

} // namespace
