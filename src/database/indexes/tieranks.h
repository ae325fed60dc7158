#pragma once

#include "database/indexes/partitionlist.h"
#include "database/record.h"

#include <QtCore/qglobal.h>

#include <vector>

/// Numbers that rise along runs of records that compare equal, by which one of many is found in
/// O(log n): a key does not say where among its equals a row stands.
///
/// Hints: a row without a number, or with one that no longer rises, costs its finder a scan and
/// never leads to another row. Numbers are far apart, so that there is room between two of them.
///
/// Threads: as for a container.
class TieRanks
{
public:
    bool isEmpty() const { return m_count == 0; }
    /// Numbers the records at the positions first..last - 1, a run. Throws std::bad_alloc, and
    /// knows nothing then.
    void number(const PartitionList<Record> &list, int first, int last);
    /// Takes in a record that came to a position, or changed there; whether the ones before it and
    /// behind it compare equal.
    void came(const PartitionList<Record> &list, int position, bool tiesBefore, bool tiesBehind);
    /// Forgets a record that leaves, or takes another key.
    void forget(const Record &record);
    void clear();

    bool knows(const Record &record) const { return rankOf(record.row()) != nullptr; }
    /// The position of a record among first..last - 1, or -1 if the numbers do not lead there.
    int find(const PartitionList<Record> &list, int first, int last, const Record &record) const;

private:
    struct Rank {
        const uchar *row; // null in a free slot
        qint64 number;
    };

    size_t home(const uchar *row) const
    {
        return size_t((quint64(quintptr(row)) * Q_UINT64_C(0x9E3779B97F4A7C15)) >> m_shift);
    }
    const Rank *rankOf(const uchar *row) const;
    void put(const uchar *row, qint64 number);
    void grow(size_t count);

    std::vector<Rank> m_slots; // a power of two of them, at most half taken; linear probing
    size_t m_count = 0;
    int m_shift = 64; // 64 - log2 of the slots
};
