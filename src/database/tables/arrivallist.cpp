#include "database/tables/arrivallist.h"

#include "database/indexes/digestsort.h"
#include "database/indexes/sortaid.h"
#include "database/masterindex_fast.h"
#include "database/services/concurrently.h"
#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <QtCore/qendian.h>

#include <atomic>
#include <typeinfo>

namespace
{

// Entries up to which their hashes are compared one after the other.
constexpr size_t kScannedEntries = 8;
constexpr size_t kFirstSlots = 32;

// Odd, so that multiplying loses nothing.
constexpr quint64 kFactor = 0x9E3779B97F4A7C15;
constexpr quint64 kOtherFactor = 0xC2B2AE3D27D4EB4F;

// Keys differ in few bits: multiplying carries them upwards, the shift brings them down again.
quint64 mixed(quint64 sum, quint64 word, quint64 factor)
{
    sum = (sum ^ word) * factor;
    return sum ^ (sum >> 32);
}

// Two words a step, each multiplied on its own, so that no multiplication waits for another.
quint64 hashOfBytes(const uchar *word, qint64 length)
{
    const uchar *const end = word + length;
    quint64 even = 0, odd = 0;
    for (; end - word > 8; word += 16) {
        even = mixed(even, qFromUnaligned<quint64>(word), kFactor);
        odd = mixed(odd, qFromUnaligned<quint64>(word + 8), kOtherFactor);
    }
    if (word != end)
        even = mixed(even, qFromUnaligned<quint64>(word), kFactor);
    return (even + odd) * kFactor;
}

// Whether hashOfCell() tells values of a type apart. Doubles are left out because NaN equals all of
// them, decimals because equal ones may be written with different scales.
bool isHashed(FieldType::Type type)
{
    return type == FieldType::Integer || type == FieldType::Integer64 ||
           type == FieldType::DateTime || type == FieldType::VarChar;
}

// The same for cells that compareCells() finds equal, whatever lies behind a value in its cell.
quint64 hashOfCell(quint64 sum, const TableColumnDef &column, const uchar *row)
{
    const uchar *const data = row + kRowHeaderSize;
    if (!(data[column.nullOffset] & column.nullMask))
        return mixed(sum, 1, kOtherFactor);
    const uchar *const cell = data + column.offset;
    if (column.type == FieldType::Integer)
        return mixed(sum, qFromUnaligned<quint32>(cell), kFactor);
    if (column.type != FieldType::VarChar)
        return mixed(sum, qFromUnaligned<quint64>(cell), kFactor);
    const auto *text = reinterpret_cast<const ushort *>(cell);
    for (int i = 0; i < column.length && text[i] != 0; ++i)
        sum = (sum ^ text[i]) * kFactor;
    return mixed(sum, 0, kFactor);
}

} // namespace

std::unique_ptr<ArrivalList> ArrivalList::make(const Table &table)
{
    // These very classes: one derived from them may compare in another way.
    const MasterIndex &master = *table.masterIndex();
    std::unique_ptr<ArrivalList> list(new ArrivalList(table));
    if (typeid(master) == typeid(MasterIndex_Fast_Pure)) {
        const auto &fast = static_cast<const MasterIndex_Fast_Pure &>(master);
        list->m_keyOffset = fast.keyOffset();
        list->m_keyLength = fast.keyLength();
        return list;
    }
    if (typeid(master) != typeid(MasterIndex_Column_Pure))
        return nullptr;
    for (const int column : master.keyColumns()) {
        if (!isHashed(table.columnType(column)))
            return nullptr;
        list->m_columns.push_back(table.columnDef(column));
    }
    return list;
}

uint ArrivalList::hashOf(const Record &record) const
{
    quint64 hash = hashOfBytes(record.row() + m_keyOffset, m_keyLength);
    for (const TableColumnDef *column : m_columns)
        hash = hashOfCell(hash, *column, record.row());
    return uint(hash >> 32);
}

ArrivalList::Entry *ArrivalList::find(const Record &key)
{
    return find(key, hashOf(key));
}

ArrivalList::Entry *ArrivalList::find(const Record &record, uint hash)
{
    const auto isKey = [&](const Entry &entry) {
        return entry.hash == hash && (entry.record == record ||
                                      m_table.masterIndex()->compare(entry.record, record) == 0);
    };
    if (m_slots.empty()) {
        const auto entry = std::find_if(m_entries.begin(), m_entries.end(), isKey);
        return entry != m_entries.end() ? &*entry : nullptr;
    }
    const size_t mask = m_slots.size() - 1;
    for (size_t slot = hash & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        Entry &entry = m_entries[m_slots[slot] - 1];
        if (isKey(entry))
            return &entry;
    }
    return nullptr;
}

std::pair<ArrivalList::Entry *, bool> ArrivalList::enter(const Record &record,
                                                         RecordsTrans::Kind kind)
{
    const uint hash = hashOf(record);
    if (Entry *const entry = find(record, hash))
        return {entry, false};
    m_rises = m_rises && (m_entries.empty() ||
                          m_table.masterIndex()->compare(m_entries.back().record, record) < 0);
    makeSlots(m_entries.size() + 1);
    m_entries.push_back({record, Record(), hash, kind});
    if (!m_slots.empty())
        place(m_entries.size() - 1);
    noteDigest();
    return {&m_entries.back(), true};
}

// Makes room for slots of that many entries, and places those that are there again if it must.
void ArrivalList::makeSlots(size_t count)
{
    if (count <= kScannedEntries || count * 2 <= m_slots.size())
        return;
    m_slots.assign(std::max(m_slots.size() * 2, kFirstSlots), 0);
    for (size_t entry = 0; entry < m_entries.size(); ++entry)
        place(entry);
}

void ArrivalList::place(size_t entry)
{
    const size_t mask = m_slots.size() - 1;
    size_t slot = m_entries[entry].hash & mask;
    while (m_slots[slot] != 0)
        slot = (slot + 1) & mask;
    m_slots[slot] = quint32(entry + 1);
}

// Sorts by the words of the row blocks in offset..end - 1, a key. Keys share long beginnings (a
// board, zeros behind a short text), so comparing them whole would read the same bytes again and
// again.
void ArrivalList::sortByWords(Ranked *first, Ranked *last, qint64 offset, qint64 end)
{
    for (; last - first > 1 && offset < end; offset += qint64(sizeof(quint64))) {
        constexpr std::ptrdiff_t kAhead = 16;
        bool differ = false;
        bool falls = false;
        quint64 before = 0;
        for (Ranked *ranked = first; ranked != last; ++ranked) {
            if (last - ranked > kAhead)
                prefetch(ranked[kAhead].entry->record.row() + offset);
            ranked->digest = qFromBigEndian<quint64>(ranked->entry->record.row() + offset);
            differ |= ranked->digest != first->digest;
            falls |= ranked->digest < before;
            before = ranked->digest;
        }
        if (!differ)
            continue;
        if (falls) // many a batch is filled in order as far as this word goes
            std::sort(first, last,
                      [](const Ranked &a, const Ranked &b) { return a.digest < b.digest; });
        while (first != last) {
            const quint64 word = first->digest;
            Ranked *const next = std::find_if(
                first, last, [word](const Ranked &ranked) { return ranked.digest != word; });
            sortByWords(first, next, offset + qint64(sizeof(quint64)), end);
            first = next;
        }
    }
}

// Reads the digest of the last entry's key, of which enter() has just read every byte. What digests
// are made from is learned from some of the entries before; where a key does not fit that, those
// before have to be read again.
void ArrivalList::noteDigest()
{
    constexpr size_t kMany = 16384; // more do not stay in the nearer caches until they are sorted
    constexpr size_t kStep = 64;
    if (m_rises || m_entries.size() < kMany)
        return;
    const size_t count = m_entries.size();
    if (m_digests.empty()) {
        if (m_columns.empty())
            m_digestKey.setBytes(m_keyOffset, m_keyLength);
        else
            m_digestKey.setColumns(m_table, m_table.masterIndex()->keyColumns(),
                                   Qt::AscendingOrder);
        for (size_t i = 0; i < count; i += kStep)
            m_digestKey.learn(m_entries[i].record.row());
    }
    if (m_digests.size() + 1 != count) // of some entries none was noted
        m_unread = count - 1;
    m_digests.resize(count);
    const uchar *const row = m_entries.back().record.row();
    if (!m_digestKey.covers(row, &m_digests.back())) {
        m_digestKey.learn(row);
        m_unread = count;
    }
}

// Reads the digests that have to be read yet. \return false where there are none
bool ArrivalList::completeDigests()
{
    constexpr int kAhead = 16;
    if (m_digests.size() != m_entries.size())
        return false;
    const auto rowOf = [this](int i) { return m_entries[size_t(i)].record.row(); };
    std::atomic<bool> areCovered{true};
    const auto read = [&] {
        Concurrently::forStretches(int(m_unread), [&](int first, int last) {
            bool covered = true;
            for (int i = first; i < last; ++i) {
                if (i + kAhead < last)
                    m_digestKey.prefetchWhole(rowOf(i + kAhead));
                covered &= m_digestKey.covers(rowOf(i), &m_digests[size_t(i)]);
            }
            if (!covered)
                areCovered = false;
        });
    };
    read();
    if (!areCovered) {
        for (const Entry &entry : m_entries)
            m_digestKey.learn(entry.record.row());
        m_unread = m_digests.size();
        areCovered = true;
        read();
    }
    m_unread = areCovered ? 0 : m_digests.size();
    return areCovered && m_digestKey.isOn();
}

ScratchVector<ArrivalList::Ranked> ArrivalList::sorted()
{
    const bool hasDigests = completeDigests();
    ScratchVector<Ranked> result;
    result.reserve(m_entries.size());
    for (size_t i = 0; i < m_entries.size(); ++i)
        result.push_back({hasDigests ? m_digests[i] : 0, &m_entries[i]});
    const MasterIndex &master = *m_table.masterIndex();
    const auto less = [&master](const Ranked &a, const Ranked &b) {
        return master.compare(a.entry->record, b.entry->record) < 0;
    };
    if (hasDigests) {
        ScratchVector<Ranked> buffer;
        sortByDigests(result, buffer, less,
                      [](const Ranked &ranked) { prefetchCells(ranked.entry->record); });
    } else if (m_columns.empty()) {
        sortByWords(result.data(), result.data() + result.size(), m_keyOffset,
                    m_keyOffset + m_keyLength);
    } else {
        std::sort(result.begin(), result.end(), less);
    }
    return result;
}
