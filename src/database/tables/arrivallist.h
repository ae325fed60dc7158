#pragma once

#include "database/indexes/scratchmemory.h"
#include "database/indexes/sortkey.h"
#include "database/record.h"
#include "database/tables/prefetch.h"
#include "database/tables/recordstrans.h"

#include <algorithm>
#include <memory>
#include <vector>

class TableColumnDef;

/// The entries of a batch in the order in which they came, one per key: what a batch is while no
/// operation has had to be folded into another.
///
/// An ordered map pays for every entry with a search by comparisons and two nodes. Here an entry
/// costs one look into a hash table, and the order by key is made once, for all entries together.
///
/// Invariants:
///  (1) No two entries have the same key, and keys that the master index finds equal have the same
///      hash.
///  (2) m_rises tells whether entries came in the order of their keys.
///  (3) m_digests is empty while entries are few or came in the order of their keys. Otherwise it
///      has the digest of each entry's key, of which the first m_unread have to be read yet.
///  (4) m_slots is empty while there are few entries. Otherwise its size is a power of two, at
///      least twice the number of entries; a slot holds an entry's number plus one, or 0. Each
///      entry stands in the first slot that was free from the one that its hash names.
class ArrivalList
{
public:
    struct Entry {
        Record record; ///< the new row, or the live one
        Record change; ///< its new values, of an update
        uint hash;
        RecordsTrans::Kind kind;
        qint32 first = 0; ///< as RecordsTrans::Op::first
        qint32 last = -1;
    };

    /// An empty list, or null when it is not known which keys the table's master index finds equal.
    static std::unique_ptr<ArrivalList> make(const Table &table);

    /// The entry of the record's key, or null. Entries move when one is added.
    Entry *find(const Record &key);
    /// The entry of the record's key; a new one, whose kind is \p kind and which has no change,
    /// when there was none (\c second is true then).
    std::pair<Entry *, bool> enter(const Record &record, RecordsTrans::Kind kind);
    /// Calls visit(entry) for each, in the order of their keys; entries must not be added
    /// meanwhile.
    template<class Visit>
    void forEachByKey(Visit visit)
    {
        if (m_rises) {
            std::for_each(m_entries.begin(), m_entries.end(), visit);
            return;
        }
        constexpr size_t kAhead = 16;
        const ScratchVector<Ranked> ranked = sorted();
        for (size_t i = 0; i < ranked.size(); ++i) {
            if (i + kAhead < ranked.size())
                prefetch(ranked[i + kAhead].entry);
            visit(*ranked[i].entry);
        }
    }

    /// In the order in which they came.
    const ScratchVector<Entry> &entries() const { return m_entries; }

private:
    /// An entry with the number by which it is being sorted: the digest of its key, or a word of
    /// it.
    struct Ranked {
        quint64 digest;
        Entry *entry;
    };

    explicit ArrivalList(const Table &table)
        : m_table(table)
    {
    }

    uint hashOf(const Record &record) const;
    Entry *find(const Record &record, uint hash);
    void makeSlots(size_t count);
    void place(size_t entry);
    void noteDigest();
    bool completeDigests();
    ScratchVector<Ranked> sorted();
    static void sortByWords(Ranked *first, Ranked *last, qint64 offset, qint64 end);

    const Table &m_table; // borrowed
    // The key: columns compared by value, or else bytes that are compared as such.
    std::vector<const TableColumnDef *> m_columns;
    qint64 m_keyOffset = 0;         // from the start of a row block, a multiple of 8
    qint64 m_keyLength = 0;         // a multiple of 8
    ScratchVector<Entry> m_entries; // invariant (1)
    bool m_rises = true;            // invariant (2)
    SortKey m_digestKey;
    ScratchVector<quint64> m_digests; // invariant (3)
    size_t m_unread = 0;              // invariant (3)
    ScratchVector<quint32> m_slots;   // invariant (4)
};

Q_DECLARE_TYPEINFO(ArrivalList::Entry, Q_MOVABLE_TYPE);
