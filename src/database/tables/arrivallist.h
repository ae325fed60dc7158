#pragma once

#include "database/record.h"
#include "database/tables/recordstrans.h"

#include <QtCore/qvarlengtharray.h>

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
///  (2) m_slots is empty while there are few entries. Otherwise its size is a power of two, at
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
    };

    /// An empty list, or null when it is not known which keys the table's master index finds equal.
    static std::unique_ptr<ArrivalList> make(const Table &table);

    /// The entry of the record's key, or null. Entries move when one is added.
    Entry *find(const Record &key);
    /// The entry of the record's key; a new one, whose kind is \p kind and which has no change,
    /// when there was none (\c second is true then).
    std::pair<Entry *, bool> enter(const Record &record, RecordsTrans::Kind kind);
    /// The entries in the order of their keys; valid until one is added.
    std::vector<Entry *> sorted();

    /// In the order in which they came.
    const QVarLengthArray<Entry, 2> &entries() const { return m_entries; }

private:
    explicit ArrivalList(const Table &table)
        : m_table(table)
    {
    }

    uint hashOf(const Record &record) const;
    Entry *find(const Record &record, uint hash);
    void makeSlots(int count);
    void place(int entry);

    const Table &m_table; // borrowed
    // The key: columns compared by value, or else bytes that are compared as such.
    std::vector<const TableColumnDef *> m_columns;
    qint64 m_keyOffset = 0;              // from the start of a row block, a multiple of 8
    qint64 m_keyLength = 0;              // a multiple of 8
    QVarLengthArray<Entry, 2> m_entries; // invariant (1)
    std::vector<quint32> m_slots;        // invariant (2)
};

Q_DECLARE_TYPEINFO(ArrivalList::Entry, Q_MOVABLE_TYPE);
