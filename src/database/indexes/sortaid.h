#pragma once

#include "database/indexes/indexsort.h"
#include "database/indexes/partitionlist.h"
#include "database/indexes/sortguide.h"
#include "database/indexes/sortkey.h"
#include "database/record.h"

#include <algorithm>
#include <vector>

/// Where a record stands.
struct IndexSort::Found {
    int position;           ///< -1 where it does not stand in the index
    SortGuide::Range group; ///< records that it stood among when it was found; empty if unknown
};

/// Where many records stand, in step with them, and their numbers in an order in which positions
/// ascend as far as is known without sorting.
struct IndexSort::Finds {
    std::vector<Found> found;
    std::vector<int> order;
};

/// What preprocess() found of one removed or updated record.
struct IndexSort::Note {
    const uchar *row;
    Found found;
};

/// Asks for the first cache lines of a row but the one that its count is in.
inline void prefetchCells(const Record &record)
{
    constexpr int kLine = 64;
    prefetch(record.row() + kLine);
    prefetch(record.row() + 2 * kLine);
}

/// What a sorted index keeps beside its list once it has said which columns it reads: digests of
/// its keys, signposts along the list, and the columns themselves.
///
/// The guide is of use while it counts as many rows as the list and the key is on. Where it is not,
/// because the list was changed past it or keys have no digests, everything is left to compare();
/// the next batch sets it up again.
class SortAid
{
public:
    explicit SortAid(const PartitionList<Record> &list)
        : m_list(list)
    {
    }

    SortKey key;
    SortGuide guide;
    std::vector<int> columns; ///< that compare() and filter() read

    bool reads(int colFrom, int colTo) const
    {
        return std::any_of(columns.begin(), columns.end(), [=](int column) {
            return column >= colFrom && (colTo < 0 || column <= colTo);
        });
    }
    bool guides() const { return key.isOn() && guide.count() == m_list.count(); }

    /// Records around the place where a row most likely belongs.
    struct Vicinity {
        const Record *first;
        int size;
    };
    /// Finds that place and asks for the handles there.
    Vicinity vicinityOf(const uchar *row) const
    {
        quint64 digest;
        if (!key.read(row, &digest))
            return {nullptr, 0};
        const SortGuide::Range range = guide.range(digest);
        const Record *const stretch = m_list.stretch(range.first, range.last);
        if (!stretch)
            return {nullptr, 0};
        const int probe = SortGuide::Search(range, digest).probe();
        const int first = qMax(probe - 1, range.first);
        ::prefetch(stretch + (first - range.first));
        return {stretch + (first - range.first), qMin(probe + 2, range.last) - first};
    }
    /// Asks for the rows there.
    void prefetch(const Vicinity &vicinity) const
    {
        for (int i = 0; i < vicinity.size; ++i)
            key.prefetch(vicinity.first[i].row());
    }

    /// Takes new rows among those that have digests. \return whether the digests of all changed
    template<class Rows>
    bool learn(const Rows &rows)
    {
        constexpr int kAhead = 16;
        bool changed = false;
        auto ahead = rows.begin();
        for (int i = 0; i < kAhead && ahead != rows.end(); ++i)
            key.prefetch((ahead++)->row());
        for (const Record &row : rows) {
            if (ahead != rows.end())
                key.prefetch((ahead++)->row());
            changed |= key.learn(row.row());
        }
        return changed;
    }
    SortGuide::DigestAt digestAt() const
    {
        return [this](int position) { return key(m_list.at(position).row()); };
    }
    /// Sets the signposts anew, if there are digests.
    void setUp()
    {
        guide.clear();
        if (key.isOn())
            guide.build(m_list.count(), digestAt());
    }
    /// Forgets everything about rows.
    void reset()
    {
        key.reset();
        guide.clear();
    }

private:
    const PartitionList<Record> &m_list; // the index's own
};
