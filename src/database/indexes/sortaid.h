#pragma once

#include "database/indexes/indexsort.h"
#include "database/indexes/partitionlist.h"
#include "database/indexes/sortguide.h"
#include "database/indexes/sortkey.h"
#include "database/record.h"

#include <algorithm>
#include <typeinfo>
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
    Run scanned; ///< many ties that had to be looked at one by one
};

/// What preprocess() found of one removed or updated record.
struct IndexSort::Note {
    const uchar *row;
    Found found;
};

/// Where a key with that digest is searched for: in the range that the guide gives for it, as far
/// as it lies among the positions from..to - 1.
struct IndexSort::Among {
    quint64 digest;
    SortGuide::Range range;
    int from;
    int to;
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
    bool isBytes = false;     ///< whether compare() reads the key's bytes and nothing else
    /// The class whose constructor told all this: it holds for objects of that class only.
    const std::type_info *toldBy = nullptr;

    bool reads(int colFrom, int colTo) const
    {
        return std::any_of(columns.begin(), columns.end(), [=](int column) {
            return column >= colFrom && (colTo < 0 || column <= colTo);
        });
    }
    /// Whether one more record that came by its digest is to be shown to compare(): of those of
    /// batches one in eight, in debug builds each. Its neighbours' cells are far apart in memory.
    bool isCheckDue()
    {
#ifdef QT_NO_DEBUG
        return ++m_unchecked % 8 == 0;
#else
        return true;
#endif
    }
    bool guides() const
    {
        return key.isOn() && guide.count() == m_list.count();
    }
    /// In debug builds: after a batch the signposts still divide the list as they say.
    void assertGuides() const
    {
        Q_ASSERT(!guides() || guide.verify(digestAt()));
    }

    /// What is known of a tick before its row changes.
    struct Tick {
        const uchar *row = nullptr; ///< the live one
        quint64 digest;             ///< the one to come
        SortGuide::Group from;      ///< where the row stands
        SortGuide::Group to;        ///< where it belongs with its new values

        /// Whether it will be out of order where it stands, since it will sort behind, or before,
        /// all of its group, and has a neighbour on that side there.
        bool rises(int position) const { return digest > from.high && position + 1 < from.last; }
        bool falls(int position) const { return digest < from.low && position > from.first; }
    };
    Tick tick; ///< of use while the index holds the note of its row

    /// Asks for the rows that a search most likely looks at next, given the handles from the start
    /// of its range on.
    void prefetchNear(const SortGuide::Search &search, const Record *stretch, int first) const
    {
        key.prefetch(stretch[search.probe() - first].row());
        for (int i = search.nearFirst(); i < search.nearEnd(); ++i)
            key.prefetch(stretch[i - first].row());
    }

    /// Takes new rows among those that have digests. \return whether the digests of all changed
    template<class Rows>
    bool learn(const Rows &rows)
    {
        constexpr int kAhead = 16;
        bool changed = false;
        auto ahead = rows.begin();
        for (int i = 0; i < kAhead && ahead != rows.end(); ++i)
            key.prefetchWhole((ahead++)->row());
        for (const Record &row : rows) {
            if (ahead != rows.end())
                key.prefetchWhole((ahead++)->row());
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
    [[maybe_unused]] quint32 m_unchecked = 0;
};

/// What the index has told, or null: while a constructor runs, the object is of its class, and
/// afterwards of the class that it was made as. So these are the same place in memory, or not the
/// same class.
inline SortAid *IndexSort::aid() const
{
    return m_aid && m_aid->toldBy == &typeid(*this) ? m_aid.get() : nullptr;
}
