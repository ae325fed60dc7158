#include "database/tables/arrivallist.h"

#include "database/masterindex_fast.h"
#include "database/tables/prefetch.h"

#include <QtCore/qendian.h>

#include <algorithm>
#include <cstring>
#include <typeinfo>

namespace
{

// Entries up to which their hashes are compared one after the other.
constexpr int kScannedEntries = 8;
constexpr size_t kFirstSlots = 64;
// Rows whose keys are asked for before they are read.
constexpr size_t kRowsAhead = 8;

/// An entry with the word of its key by which it is being sorted.
struct Ranked {
    quint64 word;
    const uchar *key;
    ArrivalList::Entry *entry;
};

// Sorts by the words of the keys from one offset on. Keys share long beginnings (a board, zeros
// behind a short text), so comparing them whole would read the same bytes again and again.
void sortByWords(Ranked *first, Ranked *last, qint64 offset, qint64 length)
{
    for (; last - first > 1 && offset < length; offset += qint64(sizeof(quint64))) {
        bool differ = false;
        for (Ranked *ranked = first; ranked != last; ++ranked) {
            ranked->word = qFromBigEndian<quint64>(ranked->key + offset);
            differ |= ranked->word != first->word;
        }
        if (!differ)
            continue;
        std::sort(first, last, [](const Ranked &a, const Ranked &b) { return a.word < b.word; });
        while (first != last) {
            const quint64 word = first->word;
            Ranked *const next = std::find_if(
                first, last, [word](const Ranked &ranked) { return ranked.word != word; });
            sortByWords(first, next, offset + qint64(sizeof(quint64)), length);
            first = next;
        }
    }
}

} // namespace

std::unique_ptr<ArrivalList> ArrivalList::make(const MasterIndex &master)
{
    // This very class: one derived from it may compare in another way.
    if (typeid(master) != typeid(MasterIndex_Fast_Pure))
        return nullptr;
    const auto &fast = static_cast<const MasterIndex_Fast_Pure &>(master);
    return std::unique_ptr<ArrivalList>(new ArrivalList(fast.keyOffset(), fast.keyLength()));
}

// Two words a step, each multiplied on its own, so that no multiplication waits for another. Keys
// differ in few bits; multiplying carries those upwards, and the upper half is taken at the end.
uint ArrivalList::hashOf(const Record &record) const
{
    constexpr quint64 kOdd = 0x9E3779B97F4A7C15, kOtherOdd = 0xC2B2AE3D27D4EB4F;
    const uchar *word = record.row() + m_keyOffset;
    const uchar *const end = word + m_keyLength;
    quint64 even = 0, odd = 0;
    const auto mixed = [](quint64 sum, const uchar *bytes, quint64 factor) {
        sum = (sum ^ qFromUnaligned<quint64>(bytes)) * factor;
        return sum ^ (sum >> 32);
    };
    for (; end - word > 8; word += 16) {
        even = mixed(even, word, kOdd);
        odd = mixed(odd, word + 8, kOtherOdd);
    }
    if (word != end)
        even = mixed(even, word, kOdd);
    return uint(((even + odd) * kOdd) >> 32);
}

ArrivalList::Entry *ArrivalList::find(const Record &key)
{
    return find(key, hashOf(key));
}

ArrivalList::Entry *ArrivalList::find(const Record &record, uint hash)
{
    const auto isKey = [&](const Entry &entry) {
        return entry.hash == hash &&
               (entry.record == record ||
                std::memcmp(keyOf(entry), record.row() + m_keyOffset, size_t(m_keyLength)) == 0);
    };
    if (m_slots.empty()) {
        const auto entry = std::find_if(m_entries.begin(), m_entries.end(), isKey);
        return entry != m_entries.end() ? entry : nullptr;
    }
    const size_t mask = m_slots.size() - 1;
    for (size_t slot = hash & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        Entry &entry = m_entries[int(m_slots[slot] - 1)];
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
    makeSlots(m_entries.size() + 1);
    m_entries.append({record, Record(), hash, kind});
    if (!m_slots.empty())
        place(m_entries.size() - 1);
    return {&m_entries.last(), true};
}

// Makes room for slots of that many entries, and places those that are there again if it must.
void ArrivalList::makeSlots(int count)
{
    if (count <= kScannedEntries || size_t(count) * 2 <= m_slots.size())
        return;
    m_slots.assign(std::max(m_slots.size() * 4, kFirstSlots), 0);
    for (int entry = 0; entry < m_entries.size(); ++entry)
        place(entry);
}

void ArrivalList::place(int entry)
{
    const size_t mask = m_slots.size() - 1;
    size_t slot = m_entries.at(entry).hash & mask;
    while (m_slots[slot] != 0)
        slot = (slot + 1) & mask;
    m_slots[slot] = quint32(entry + 1);
}

std::vector<ArrivalList::Entry *> ArrivalList::sorted()
{
    std::vector<Ranked> ranked;
    ranked.reserve(size_t(m_entries.size()));
    for (Entry &entry : m_entries) {
        ranked.push_back({0, keyOf(entry), &entry});
        prefetch(keyOf(entry));
    }
    sortByWords(ranked.data(), ranked.data() + ranked.size(), 0, m_keyLength);
    std::vector<Entry *> result;
    result.reserve(ranked.size());
    for (const Ranked &entry : ranked)
        result.push_back(entry.entry);
    return result;
}
