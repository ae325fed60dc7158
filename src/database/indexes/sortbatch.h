#pragma once

#include "database/indexes/indexsort.h"
#include "database/indexes/scratchmemory.h"
#include "database/indexes/sortaid.h"

#include <atomic>
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
/// Works on plain arrays whose lengths are those of the batch; lives for one process() call. Rows
/// lie all over the memory: whatever is about to be looked at is asked for ahead of its turn, for
/// many records at once.
///
/// Everything is asked of the filter and the comparison before the list changes: when one of them
/// throws, the list is as it was before the batch.
class SortBatch
{
public:
    SortBatch(IndexSort &index, const QList<Record> &removed, const QList<Record> &updated,
              const QList<Record> &inserted);

    void run();

    /// Notes where the records stand by the keys that they have now, before they change, and learns
    /// from the rows and values to come which digests will do.
    static void takeNotes(IndexSort &index, const QList<Record> &removed,
                          const QList<Record> &updated, const QList<Record> &inserted,
                          const QList<Record> &values);

private:
    /// A record of the batch that stands in the index.
    struct Affected {
        int position;
        int update; // its place in the list of updated records, -1 for a removed one
        int left;   // position of the nearest record before it that stays
        int right;  // position of the nearest record after it that stays
        bool leaves;
    };

    /// A record to merge in. The plain row stands for its handle, which is where it was.
    struct Pending {
        operator const Record &() const { return reinterpret_cast<const Record &>(row); }

        quint64 digest; // 0 where there are none
        uchar *row;
        int left;     // its place among those that leave, -1 for a record from outside the index
        int position; // before which position it belongs
    };
    class PlaceFinder;

    static std::vector<const Record *> affectedRows(const QList<Record> &removed,
                                                    const QList<Record> &updated);
    const Record &batchRecord(int slot) const;
    bool notesHold() const;
    void askFilter();
    bool readDigests(const SortAid &aid);
    void locate();
    void collectAffected();
    void decide();
    bool isPastNeighbour(size_t i) const;
    void settleNeighbours();
    int affectedAt(int from, int position) const;
    void unlink(int i);
    int compare(const Record &a, const Record &b) const;
    bool inOrder(const Affected &affected) const;
    void gatherPending();
    template<class Comes>
    void gatherByDigests(const std::vector<int> &leftOf, Comes comes);
    template<class Comes>
    void gatherByComparing(const std::vector<int> &leftOf, Comes comes);
    void findPlaces();
    void apply();
    void moveSignposts();
    void check();

    IndexSort &m_index;
    const QList<Record> &m_removed;
    const QList<Record> &m_updated;
    const QList<Record> &m_inserted;
    SortAid *m_aid = nullptr;              // the index's, if its digests cover the whole batch
    std::vector<bool> m_accepted;          // whether the filter accepts each updated record
    std::vector<const Record *> m_new;     // the inserted records that it accepts
    std::vector<quint64> m_digests;        // of the updated records, where there are digests
    IndexSort::Finds m_finds;              // the removed, then the updated records
    std::vector<Affected> m_affected;      // by position, each position once
    std::vector<int> m_leaving;            // the positions of those that leave
    ScratchVector<Pending> m_pending;      // what is merged in
    std::atomic<uchar *> m_equal{nullptr}; // one of them that has the key of one that stays
};
