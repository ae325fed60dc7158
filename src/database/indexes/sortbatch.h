#pragma once

#include "database/indexes/indexsort.h"

#include <vector>

/// One batch on its way into a sorted index.
///
/// Every removed record, every updated one that the filter no longer accepts, and every updated one
/// that is out of order where it stands is taken out in one pass; the new and the misplaced ones
/// are sorted among themselves and merged in in one pass. The result is that of removing and adding
/// each of them in turn.
///
/// An updated record stays only if it is in order with its neighbours as the batch finds them and,
/// when those leave, with the nearest ones that stay. The second half matters when neighbours
/// change together: of 1 2 3 4 with 2 -> 10 and 3 -> 11, the 11 is out of order before the 4, and
/// once it has left so is the 10.
///
/// Works on plain arrays whose lengths are those of the batch; lives for one process() call.
///
/// Everything is asked of the filter and, but for the places in the list, of the comparison before
/// the list changes: when one of them throws by then, the list is as it was before the batch. Where
/// the search for a place throws, the records that have none yet go to the end.
class SortBatch
{
public:
    SortBatch(IndexSort &index, const QList<Record> &removed, const QList<Record> &updated,
              const QList<Record> &inserted);

    void run();

    /// Notes where the records stand by the keys that they have now, before they change.
    static void takeNotes(IndexSort &index, const QList<Record> &removed,
                          const QList<Record> &updated);

private:
    /// A record of the batch that stands in the index.
    struct Affected {
        int position;
        int update; // its place in the list of updated records, -1 for a removed one
        int left;   // position of the nearest record before it that stays
        int right;  // position of the nearest record after it that stays
        bool leaves;
    };

    /// A record to merge in. The plain row stands for its handle while the records are sorted, so
    /// that a comparison which throws in the middle loses no reference.
    struct Pending {
        operator const Record &() const { return reinterpret_cast<const Record &>(row); }

        uchar *row;
        int taken; // its place among those that leave, -1 for a record from outside the index
    };

    static std::vector<const Record *> affectedRows(const QList<Record> &removed,
                                                    const QList<Record> &updated);
    const Record &batchRecord(int slot) const;
    bool notesHold() const;
    void locate();
    void collectAffected();
    void decide();
    void settleNeighbours();
    int affectedAt(int from, int position) const;
    void unlink(int i);
    void gatherPending();
    void takeOut();
    void mergePending();

    IndexSort &m_index;
    const QList<Record> &m_removed;
    const QList<Record> &m_updated;
    const QList<Record> &m_inserted;
    std::vector<int> m_positions;     // of the removed, then the updated records; -1 if not there
    std::vector<bool> m_accepted;     // whether the filter accepts each updated record
    std::vector<Affected> m_affected; // by position, each position once
    RangeSet<int> m_leaving;          // the positions of those that leave
    std::vector<Record> m_taken;      // their handles, by position
    std::vector<Pending> m_pending;   // what is merged in
};
