#pragma once

#include "database/indexes/indexsort.h"
#include "database/indexes/scratchmemory.h"
#include "database/indexes/sortaid.h"

/// One batch on its way into a sorted index of which it changes a good part.
///
/// Does what SortBatch does, with the same outcome. But where that searches for each record of the
/// batch, this goes through the whole list: who is in the batch, digests, who leaves and the merge
/// are one walk each over plain arrays, and rows are asked for some steps ahead. Nothing has to be
/// noted before the records change, and neither signposts nor the old keys are needed.
///
/// Takes O(n + m log m) for m records of a batch and n of the index. Fresh memory has to be cleared
/// by the system, which takes longer here than reading it does; so arrays are few and narrow: about
/// 50 bytes a record.
///
/// Everything is asked of the filter and the comparison before the list changes.
class SortSweep
{
public:
    SortSweep(IndexSort &index, const QList<Record> &removed, const QList<Record> &updated,
              const QList<Record> &inserted);

    /// Whether to go through an index of so many records for a batch of so many is cheaper than to
    /// search for those of the batch.
    static bool suits(int records, int batch)
    {
        return batch >= kFewest && batch >= records / kShare;
    }

    void run();

private:
    static constexpr int kFewest = 32;
    static constexpr int kShare = 8;
    // Records whose rows are asked for ahead of their turn.
    static constexpr int kAhead = 16;

    /// What a record of the list does. The order counts: from Moves on it is taken out.
    enum Fate : quint8 { Stays, MayStay, Moves, Leaves };

    /// Where a record that comes is now.
    struct Source {
        int number;   // among the batch's inserted, then updated records
        int position; // in the list, -1 for one from outside
    };
    /// A record that comes, in an order to be found; then one of the list as it will be.
    struct Item {
        quint64 digest; // 0 without a key
        union {
            Source source;
            uchar *row;
        };
        const Record &record() const { return reinterpret_cast<const Record &>(row); }
    };

    /// Reads a list at positions that mostly lie near each other.
    class Cursor
    {
    public:
        explicit Cursor(const PartitionList<Record> &list)
            : m_list(list)
        {
        }
        const Record &at(int position)
        {
            if (position < m_first || position >= m_last)
                seek(position);
            return m_items[position - m_first];
        }

    private:
        void seek(int position);

        const PartitionList<Record> &m_list;
        const Record *m_items = nullptr; // of the chunk at hand
        int m_first = 0;
        int m_last = 0;
    };

    int count() const { return m_index.count(); }
    int slots() const { return m_removed.size() + m_updated.size(); }
    const Record &atSlot(int slot) const;
    const Record &atNumber(int number) const;
    bool matchInOrder();
    void matchByRow();
    void match();
    template<class RecordAt, class Look>
    void lookAt(int n, RecordAt recordAt, Look look);
    void readDigest(const Record &record, quint64 *digest);
    void lookAtList();
    void readDigests(int from, int to);
    void lookAtOutsiders();
    void coverAll();
    int compare(int a, int b);
    int compare(int position, const Item &item);
    bool descends(int position);
    void decide();
    void settle();
    void gatherMoving();
    void sortComing();
    template<class Stay, class Come>
    void merge(Stay stay, Come come);
    void rearrange();
    void exchange();
    void startNewList();
    void noteIfChanged(int before, int after);
    void check();
    void append(quint64 digest, uchar *row);
    template<class DigestAt>
    void setSignposts(DigestAt digestAt);

    IndexSort &m_index;
    const QList<Record> &m_removed;
    const QList<Record> &m_updated;
    const QList<Record> &m_inserted;
    const SortKey *m_key = nullptr;   // of the index, if it covers all records
    Cursor m_cursor;                  // along the list
    bool m_covered = true;            // no record read so far has changed the digests of others
    bool m_onlyMoves = false;         // the records of the list stay the same
    ScratchVector<int> m_slots;       // by position: which removed, then updated record; or -1
    ScratchVector<Fate> m_fates;      // by position
    ScratchVector<quint64> m_digests; // by position; empty without digests
    ScratchVector<int> m_staying;     // positions
    ScratchVector<Item> m_coming;     // first from outside the list, then from within
    ScratchVector<Item> m_newList;    // the list as it will be; before that, room to sort in
    ScratchVector<int> m_settled;     // positions in it that check() looks at
};
