#include "database/indexes/tieranks.h"

namespace
{

constexpr qint64 kGap = qint64(1) << 24; // between neighbours, at first

} // namespace

void TieRanks::number(const PartitionList<Record> &list, int first, int last)
{
    try {
        grow(m_count + size_t(last - first));
    } catch (...) {
        clear();
        throw;
    }
    qint64 number = 0;
    auto record = list.iteratorAt(first);
    for (int position = first; position < last; ++position, ++record)
        put((*record).row(), number += kGap);
}

void TieRanks::came(const PartitionList<Record> &list, int position, bool tiesBefore,
                    bool tiesBehind)
{
    const Rank *const before = tiesBefore ? rankOf(list.at(position - 1).row()) : nullptr;
    const Rank *const behind = tiesBehind ? rankOf(list.at(position + 1).row()) : nullptr;
    // Among records without numbers this one would have to do without, too.
    if ((!before && !behind) || (tiesBefore && !before) || (tiesBehind && !behind))
        return;
    const qint64 low = before ? before->number : behind->number - 2 * kGap;
    const qint64 high = behind ? behind->number : before->number + 2 * kGap;
    if (high - low < 2)
        return;
    grow(m_count + 1);
    put(list.at(position).row(), low + (high - low) / 2);
}

// Moves what was displaced by the record back towards its home, so that no slot need be marked.
void TieRanks::forget(const Record &record)
{
    if (m_count == 0)
        return;
    const Rank *const rank = rankOf(record.row());
    if (!rank)
        return;
    const size_t mask = m_slots.size() - 1;
    size_t hole = size_t(rank - m_slots.data());
    for (size_t slot = (hole + 1) & mask; m_slots[slot].row; slot = (slot + 1) & mask) {
        if (((slot - home(m_slots[slot].row)) & mask) >= ((slot - hole) & mask)) {
            m_slots[hole] = m_slots[slot];
            hole = slot;
        }
    }
    m_slots[hole] = {nullptr, 0};
    if (--m_count == 0)
        clear();
}

void TieRanks::clear()
{
    if (m_slots.empty())
        return;
    std::vector<Rank>().swap(m_slots);
    m_count = 0;
}

int TieRanks::find(const PartitionList<Record> &list, int first, int last,
                   const Record &record) const
{
    constexpr int kPatience = 16; // records without a number that are passed by
    const Rank *const sought = rankOf(record.row());
    while (sought && first < last) {
        const int middle = first + (last - first) / 2;
        int probe = middle;
        const Rank *rank = nullptr;
        while (probe < last && !(rank = rankOf(list.at(probe).row()))) {
            if (++probe - middle > kPatience)
                return -1;
        }
        if (rank == sought)
            return probe;
        if (rank && rank->number < sought->number)
            first = probe + 1;
        else
            last = middle;
    }
    return -1;
}

const TieRanks::Rank *TieRanks::rankOf(const uchar *row) const
{
    if (m_count == 0)
        return nullptr;
    const size_t mask = m_slots.size() - 1;
    size_t slot = home(row);
    while (m_slots[slot].row && m_slots[slot].row != row)
        slot = (slot + 1) & mask;
    return m_slots[slot].row ? &m_slots[slot] : nullptr;
}

// There is room.
void TieRanks::put(const uchar *row, qint64 number)
{
    const size_t mask = m_slots.size() - 1;
    size_t slot = home(row);
    while (m_slots[slot].row && m_slots[slot].row != row)
        slot = (slot + 1) & mask;
    m_count += m_slots[slot].row ? 0 : 1;
    m_slots[slot] = {row, number};
}

// Makes room for so many numbers.
void TieRanks::grow(size_t count)
{
    constexpr size_t kFirst = 256;
    if (2 * count <= m_slots.size())
        return;
    size_t size = qMax(m_slots.size(), kFirst);
    int shift = 64;
    while (size < 2 * count)
        size *= 2;
    for (size_t slots = size; slots > 1; slots /= 2)
        --shift;
    std::vector<Rank> old(size, Rank{nullptr, 0});
    old.swap(m_slots);
    m_shift = shift;
    m_count = 0;
    for (const Rank &rank : old) {
        if (rank.row)
            put(rank.row, rank.number);
    }
}
