#include "database/indexes/sortsweep.h"

#include "database/indexes/concurrentsort.h"
#include "database/indexes/digestsort.h"
#include "database/indexes/tieranks.h"
#include "database/services/concurrently.h"

#include <algorithm>
#include <atomic>
#include <new>

SortSweep::SortSweep(IndexSort &index, const QList<Record> &removed, const QList<Record> &updated,
                     const QList<Record> &inserted)
    : m_index(index)
    , m_removed(removed)
    , m_updated(updated)
    , m_inserted(inserted)
    , m_cursor(index.m_list)
{
}

void SortSweep::run()
{
    m_index.m_notes.clear();
    m_index.m_ties.reset();
    match();
    lookAtList();
    lookAtOutsiders();
    coverAll();
    decide();
    gatherMoving();
    sortComing();
    if (m_onlyMoves)
        rearrange();
    else
        exchange();
    check();
}

void SortSweep::Cursor::seek(int position)
{
    const auto place = m_list.locate(position);
    m_items = m_list.part(place.part).begin;
    m_first = m_list.partStart(place.part);
    m_last = m_list.partStart(place.part + 1);
}

const Record &SortSweep::atSlot(int slot) const
{
    return slot < m_removed.size() ? m_removed.at(slot) : m_updated.at(slot - m_removed.size());
}

const Record &SortSweep::atNumber(int number) const
{
    return number < m_inserted.size() ? m_inserted.at(number)
                                      : m_updated.at(number - m_inserted.size());
}

// Who is in the batch -----------------------------------------------------------------------------

// Batches come by key, and many an index stands in that order, or has it among equals: then one
// walk along both finds everything.
bool SortSweep::matchInOrder()
{
    int removal = 0;
    int update = 0;
    int *slot = m_slots.data();
    for (const Record &record : m_index.m_list) {
        if (removal < m_removed.size() && m_removed.at(removal) == record)
            *slot = removal++;
        else if (update < m_updated.size() && m_updated.at(update) == record)
            *slot = m_removed.size() + update++;
        else
            *slot = -1;
        ++slot;
    }
    return removal + update == slots();
}

// Otherwise through a hash table of the batch's rows. Of a row that the batch holds several times
// the first slot counts: the removal, if there is one.
void SortSweep::matchByRow()
{
    int bits = 4;
    while ((size_t(1) << bits) < size_t(slots()) * 2)
        ++bits;
    const size_t mask = (size_t(1) << bits) - 1;
    const auto homeOf = [=](const Record &record) {
        return size_t(quint64(quintptr(record.row())) * Q_UINT64_C(0x9E3779B97F4A7C15) >>
                      (64 - bits));
    };
    ScratchVector<int> table(mask + 1, -1);
    const auto placeOf = [&](const Record &record) {
        size_t place = homeOf(record);
        while (table[place] != -1 && atSlot(table[place]) != record)
            place = (place + 1) & mask;
        return place;
    };
    // In the list, or the same as an earlier one.
    ScratchVector<uchar> isKnown;
    isKnown.assign(size_t(slots()), false);
    for (int slot = 0; slot < slots(); ++slot) {
        if (slot + kAhead < slots())
            prefetch(&table[homeOf(atSlot(slot + kAhead))]);
        int &entry = table[placeOf(atSlot(slot))];
        if (entry == -1)
            entry = slot;
        else
            isKnown[size_t(slot)] = true;
    }
    // No two positions have the same slot.
    Concurrently::forStretches(count(), [&](int first, int last) {
        Cursor cursor(m_index.m_list);
        for (int position = first; position < last; ++position) {
            // The place in the table first, then what it refers to.
            if (position + 2 * kAhead < last)
                prefetch(&table[homeOf(cursor.at(position + 2 * kAhead))]);
            if (position + kAhead < last) {
                const int slot = table[homeOf(cursor.at(position + kAhead))];
                prefetch(slot != -1 ? &atSlot(slot) : nullptr);
            }
            const int slot = table[placeOf(cursor.at(position))];
            m_slots[size_t(position)] = slot;
            if (slot != -1)
                isKnown[size_t(slot)] = true;
        }
    });
    for (int i = 0; i < m_updated.size(); ++i) {
        if (!isKnown[size_t(m_removed.size() + i)])
            m_coming.push_back({0, {{m_inserted.size() + i, -1}}});
    }
}

void SortSweep::match()
{
    m_coming.reserve(size_t(m_inserted.size()));
    for (int i = 0; i < m_inserted.size(); ++i)
        m_coming.push_back({0, {{i, -1}}});
    m_slots.resize(size_t(count()));
    if (!matchInOrder())
        matchByRow();
}

// Filter and digests ------------------------------------------------------------------------------

/// Calls look(i, record) for each of some records, whose rows are asked for some steps ahead.
template<class RecordAt, class Look>
void SortSweep::lookAt(int n, RecordAt recordAt, Look look)
{
    const SortAid *const aid = m_index.aid();
    for (int i = 0; i < n; ++i) {
        if (aid && i + kAhead < n)
            aid->key.prefetchWhole(recordAt(i + kAhead).row());
        look(size_t(i), recordAt(i));
    }
}

// A record that the key does not cover is learned: then all digests have to be read again.
void SortSweep::readDigest(const Record &record, quint64 *digest)
{
    SortAid *const aid = m_index.aid();
    if (!aid || !aid->key.isOn() || aid->key.covers(record.row(), digest))
        return;
    aid->key.learn(record.row());
    aid->guide.clear(); // its digests may not be those of the key any more
    m_covered = false;
}

// The filter, which one thread asks, finds rows in the cache where their digests have just been
// read by several.
void SortSweep::lookAtList()
{
    constexpr int kTile = 8192;
    m_fates.resize(size_t(count()));
    const SortAid *const aid = m_index.aid();
    if (aid && aid->key.isOn())
        m_digests.resize(size_t(count()));
    else
        m_digests.assign(size_t(count()), 0);
    for (int first = 0; first < count(); first += kTile) {
        const int last = qMin(first + kTile, count());
        readDigests(first, last);
        for (int position = first; position < last; ++position) {
            const int slot = m_slots[size_t(position)];
            Fate &fate = m_fates[size_t(position)];
            if (slot < m_removed.size())
                fate = slot == -1 ? Stays : Leaves;
            else
                fate = m_index.filter(m_cursor.at(position)) ? MayStay : Leaves;
        }
    }
}

// Of the records at some positions. Those that the key does not cover are left to coverAll().
void SortSweep::readDigests(int from, int to)
{
    const SortAid *const aid = m_index.aid();
    if (!aid || !aid->key.isOn())
        return;
    std::atomic<bool> areCovered{true};
    Concurrently::forStretches(to - from, [&](int first, int last) {
        Cursor cursor(m_index.m_list);
        bool covered = true;
        for (int position = from + first; position < from + last; ++position) {
            if (position + kAhead < to)
                aid->key.prefetchWhole(cursor.at(position + kAhead).row());
            covered &= aid->key.covers(cursor.at(position).row(), &m_digests[size_t(position)]);
        }
        if (!covered)
            areCovered = false;
    });
    m_covered = m_covered && areCovered;
}

// Drops those that the filter does not accept.
void SortSweep::lookAtOutsiders()
{
    size_t accepted = 0;
    lookAt(
        int(m_coming.size()),
        [this](int i) -> const Record & { return atNumber(m_coming[size_t(i)].source.number); },
        [&](size_t i, const Record &record) {
            if (!m_index.filter(record))
                return;
            Item &item = m_coming[accepted++] = m_coming[i];
            readDigest(record, &item.digest);
        });
    m_coming.resize(accepted);
}

// Sees to it that all digests are of one kind.
void SortSweep::coverAll()
{
    while (!m_covered) {
        m_covered = true;
        lookAt(
            count(), [this](int i) -> const Record & { return m_cursor.at(i); },
            [this](size_t i, const Record &record) { readDigest(record, &m_digests[i]); });
        lookAt(
            int(m_coming.size()),
            [this](int i) -> const Record & { return atNumber(m_coming[size_t(i)].source.number); },
            [this](size_t i, const Record &record) { readDigest(record, &m_coming[i].digest); });
    }
    const SortAid *const aid = m_index.aid();
    if (aid && aid->key.isOn())
        m_key = &aid->key;
}

// Who leaves --------------------------------------------------------------------------------------

int SortSweep::compare(int a, int b)
{
    if (m_key && m_digests[size_t(a)] != m_digests[size_t(b)])
        return m_digests[size_t(a)] < m_digests[size_t(b)] ? -1 : 1;
    return m_index.compare(m_cursor.at(a), m_cursor.at(b));
}

// Whether a record and the one behind it are out of order, one of which may stay.
bool SortSweep::descends(int position)
{
    const size_t i = size_t(position);
    return position + 1 < count() && (m_fates[i] == MayStay || m_fates[i + 1] == MayStay) &&
           compare(position, position + 1) > 0;
}

void SortSweep::decide()
{
    m_staying.reserve(size_t(count()));
    bool descended = false;
    for (int position = 0; position < count(); ++position) {
        const bool descending = descends(position);
        Fate &fate = m_fates[size_t(position)];
        if (fate == MayStay && (descended || descending))
            fate = Moves;
        if (fate < Moves)
            m_staying.push_back(position);
        descended = descending;
    }
    if (int(m_staying.size()) < count())
        settle();
}

// Tests those that may stay again where a neighbour left, round by round until all that stay are in
// order. Whoever fails in a round leaves at its end: of two that stand in each other's way both do.
void SortSweep::settle()
{
    struct Links {
        int left;
        int right;
    };
    const int n = int(m_staying.size());
    ScratchVector<Links> links;
    std::vector<int> open;
    links.reserve(size_t(n));
    for (int i = 0; i < n; ++i) {
        links.push_back({i - 1, i + 1});
        const int position = m_staying[size_t(i)];
        const int before = i > 0 ? m_staying[size_t(i) - 1] : -1;
        const int behind = i + 1 < n ? m_staying[size_t(i) + 1] : count();
        if (position - before > 1 || behind - position > 1)
            open.push_back(i);
    }
    const auto fateOf = [&](int i) -> Fate & { return m_fates[size_t(m_staying[size_t(i)])]; };
    const auto inOrder = [&](int a, int b) {
        return a < 0 || b >= n || compare(m_staying[size_t(a)], m_staying[size_t(b)]) <= 0;
    };
    std::vector<int> moving;
    while (!open.empty()) {
        moving.clear();
        for (const int i : open) {
            const Links &link = links[size_t(i)];
            if (fateOf(i) != MayStay || (inOrder(link.left, i) && inOrder(i, link.right)))
                continue;
            fateOf(i) = Moves; // its neighbours see it where it is until the round ends
            moving.push_back(i);
        }
        for (const int i : moving) {
            const Links link = links[size_t(i)];
            if (link.left >= 0)
                links[size_t(link.left)].right = link.right;
            if (link.right < n)
                links[size_t(link.right)].left = link.left;
        }
        open.clear();
        for (const int i : moving) {
            for (const int neighbour : {links[size_t(i)].left, links[size_t(i)].right}) {
                if (neighbour >= 0 && neighbour < n)
                    open.push_back(neighbour);
            }
        }
    }
    const auto isGone = [&](int position) { return m_fates[size_t(position)] >= Moves; };
    m_staying.erase(std::remove_if(m_staying.begin(), m_staying.end(), isGone), m_staying.end());
}

// Who comes ---------------------------------------------------------------------------------------

void SortSweep::gatherMoving()
{
    const auto does = [this](Fate what) {
        return size_t(std::count(m_fates.begin(), m_fates.end(), what));
    };
    m_onlyMoves = m_coming.empty() && does(Leaves) == 0;
    // Both as long as the list will be: they change places while they are sorted, and what is not
    // touched costs nothing.
    const size_t length = m_staying.size() + m_coming.size() + does(Moves);
    m_coming.reserve(length);
    m_newList.reserve(length);
    for (int position = 0; position < count(); ++position) {
        if (m_fates[size_t(position)] != Moves)
            continue;
        const int number = m_inserted.size() + m_slots[size_t(position)] - m_removed.size();
        m_coming.push_back({m_digests[size_t(position)], {{number, position}}});
    }
}

// Equals in the order in which the batch brings them.
void SortSweep::sortComing()
{
    const auto less = [this](const Item &a, const Item &b) {
        const int order = m_index.compare(atNumber(a.source.number), atNumber(b.source.number));
        return order != 0 ? order < 0 : a.source.number < b.source.number;
    };
    const auto askFor = [this](const Item &item) {
        m_key->prefetchWhole(atNumber(item.source.number).row());
    };
    if (m_key)
        sortByDigests(m_coming, m_newList, less, askFor);
    else
        ConcurrentSort::stableSortHelper(m_coming.begin(), m_coming.end(), less);
}

int SortSweep::compare(int position, const Item &item)
{
    if (m_key && m_digests[size_t(position)] != item.digest)
        return m_digests[size_t(position)] < item.digest ? -1 : 1;
    const int order = m_index.compare(m_cursor.at(position), atNumber(item.source.number));
    if (order == 0)
        m_index.metEqual(atNumber(item.source.number));
    return order;
}

// Calls stay(position) for those that stay and come(item, position) for those that come before a
// position, in their order to be.
template<class Stay, class Come>
void SortSweep::merge(Stay stay, Come come)
{
    auto stayer = m_staying.cbegin();
    const auto keep = [&](int position) {
        noteIfChanged(position, int(m_newList.size()));
        stay(position);
    };
    for (const Item &item : m_coming) {
        for (; stayer != m_staying.cend() && compare(*stayer, item) <= 0; ++stayer)
            keep(*stayer);
        if (m_key && m_index.aid()->isCheckDue())
            m_settled.push_back(int(m_newList.size()));
        come(item, stayer != m_staying.cend() ? *stayer : count());
    }
    std::for_each(stayer, m_staying.cend(), keep);
}

// The list changes --------------------------------------------------------------------------------

// Writes handles over handles where the records of the list are the same before and after.
void SortSweep::rearrange()
{
    if (m_coming.empty()) {
        for (int position = 0; position < count(); ++position)
            noteIfChanged(position, position);
        setSignposts([this](int position) { return m_digests[size_t(position)]; });
        return;
    }
    startNewList();
    merge(
        [this](int position) { append(m_digests[size_t(position)], m_cursor.at(position).row()); },
        [this](const Item &item, int) { append(item.digest, atNumber(item.source.number).row()); });
    m_index.m_list.reorder(
        [this](int i) -> const Record & { return m_newList[size_t(i)].record(); });
    setSignposts([this](int position) { return m_newList[size_t(position)].digest; });
}

void SortSweep::exchange()
{
    std::vector<int> leaving;
    auto &ranks = m_slots; // whose work is done: by position, its place in leaving
    for (int position = 0; position < count(); ++position) {
        if (m_fates[size_t(position)] < Moves)
            continue;
        ranks[size_t(position)] = int(leaving.size());
        leaving.push_back(position);
    }
    ScratchVector<PartitionList<Record>::Arrival> arrivals;
    arrivals.reserve(m_coming.size());
    startNewList();
    // Handles from outside are counted in their rows. They are asked for where the batch names
    // them, then the rows.
    const auto askFor = [this](const Item *item) {
        const Item *const end = m_coming.data() + m_coming.size();
        if (item + 2 * kAhead < end && item[2 * kAhead].source.position == -1)
            prefetch(&atNumber(item[2 * kAhead].source.number));
        if (item + kAhead < end && item[kAhead].source.position == -1)
            prefetch(atNumber(item[kAhead].source.number).row());
    };
    merge([this](int position) { append(m_digests[size_t(position)], nullptr); },
          [&](const Item &item, int position) {
              askFor(&item);
              const auto [number, from] = item.source;
              const int left = from == -1 ? -1 : ranks[size_t(from)];
              arrivals.push_back({position, left, left == -1 ? atNumber(number) : Record()});
              append(item.digest, nullptr);
          });
    // Dropped when signposts and list agree again.
    const std::vector<Record> left =
        m_index.m_list.exchange(leaving, arrivals.data(), arrivals.data() + arrivals.size());
    setSignposts([this](int position) { return m_newList[size_t(position)].digest; });
}

// Notes where a record that stays in the list will stand if it may have another key.
void SortSweep::noteIfChanged(int before, int after)
{
    if (m_fates[size_t(before)] == MayStay && m_key && m_index.aid()->isCheckDue())
        m_settled.push_back(after);
}

// Shows the index what it has not compared: records that came or changed stand where they do by
// digests alone.
void SortSweep::check()
{
    if (!m_key)
        return;
    for (const int position : m_settled) {
        if (!m_index.settled(position)) {
            m_index.distrust();
            return;
        }
    }
}

void SortSweep::startNewList()
{
    m_newList.clear();
    m_newList.reserve(m_staying.size() + m_coming.size());
}

void SortSweep::append(quint64 digest, uchar *row)
{
    Item item{digest, {}};
    item.row = row;
    m_newList.push_back(item);
}

template<class DigestAt>
void SortSweep::setSignposts(DigestAt digestAt)
{
    SortAid *const aid = m_index.aid();
    if (!aid)
        return;
    aid->guide.clear();
    if (m_key) {
        try {
            aid->guide.build(count(), digestAt);
        } catch (const std::bad_alloc &) {
            aid->guide.clear(); // the list has changed already, and can do without
        }
    }
}
