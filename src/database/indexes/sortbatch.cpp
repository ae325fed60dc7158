#include "database/indexes/sortbatch.h"

#include "database/indexes/concurrentsort.h"
#include "database/indexes/sortaid.h"
#include "database/indexes/spreadsort.h"
#include "database/indexes/tieranks.h"
#include "database/services/concurrently.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>

namespace
{

// Records whose rows or neighbours are asked for ahead of their turn.
constexpr int kAhead = 12;

} // namespace

SortBatch::SortBatch(IndexSort &index, const QList<Record> &removed, const QList<Record> &updated,
                     const QList<Record> &inserted)
    : m_index(index)
    , m_removed(removed)
    , m_updated(updated)
    , m_inserted(inserted)
{
}

void SortBatch::run()
{
    askFilter();
    locate();
    collectAffected();
    decide();
    gatherPending();
    findPlaces();
    if (m_equal)
        m_index.metEqual(Record(m_equal));
    apply();
    check();
}

const Record &SortBatch::batchRecord(int slot) const
{
    return slot < m_removed.size() ? m_removed.at(slot) : m_updated.at(slot - m_removed.size());
}

void SortBatch::askFilter()
{
    m_accepted.reserve(size_t(m_updated.size()));
    for (const Record &record : m_updated)
        m_accepted.push_back(m_index.filter(record));
    m_new.reserve(size_t(m_inserted.size()));
    for (const Record &record : m_inserted) {
        if (m_index.filter(record))
            m_new.push_back(&record);
    }
    SortAid *const aid = m_index.aid();
    if (!aid)
        return;
    // Rows already hold their new values. Where preprocess() has not seen them and they need other
    // digests, the signposts mean nothing any more.
    const bool covers = readDigests(*aid);
    bool changed = !covers && aid->learn(m_updated);
    changed |= aid->learn(m_inserted);
    if (changed)
        aid->guide.clear();
    if (!aid->guides())
        return;
    m_aid = aid;
    if (changed || !covers)
        readDigests(*aid);
}

// The updated records' digests. Returns whether there are such of all of them.
bool SortBatch::readDigests(const SortAid &aid)
{
    m_digests.resize(size_t(m_updated.size()));
    std::atomic<bool> covers{true};
    Concurrently::forStretches(m_updated.size(), [&](int first, int last) {
        bool all = true;
        for (int i = first; i < last; ++i) {
            if (i + kAhead < last)
                aid.key.prefetchWhole(m_updated.at(i + kAhead).row());
            all &= aid.key.covers(m_updated.at(i).row(), &m_digests[size_t(i)]);
        }
        if (!all)
            covers = false;
    });
    return covers;
}

// Positions ---------------------------------------------------------------------------------------

std::vector<const Record *> SortBatch::affectedRows(const QList<Record> &removed,
                                                    const QList<Record> &updated)
{
    std::vector<const Record *> rows;
    rows.reserve(size_t(removed.size() + updated.size()));
    for (const Record &record : removed)
        rows.push_back(&record);
    for (const Record &record : updated)
        rows.push_back(&record);
    return rows;
}

void SortBatch::takeNotes(IndexSort &index, const QList<Record> &removed,
                          const QList<Record> &updated, const QList<Record> &inserted,
                          const QList<Record> &values)
{
    if (SortAid *aid = index.aid()) {
        bool changed = aid->learn(inserted);
        changed |= aid->learn(values);
        if (changed || !aid->guides())
            aid->setUp();
    }
    const std::vector<const Record *> rows = affectedRows(removed, updated);
    // A record that belongs here but does not stand where its key says is searched for: its key has
    // changed behind the index's back. Nothing is noted when a comparison throws.
    IndexSort::Finds finds = index.findRows(rows, false);
    index.rankTies(finds.scanned);
    index.m_notes.reserve(rows.size());
    for (size_t i = 0; i < rows.size(); ++i)
        index.m_notes.push_back({rows[i]->row(), finds.found[i]});
    index.m_noteOrder.swap(finds.order);
}

// Whether the notes are of this very batch and the records still stand where they were noted.
bool SortBatch::notesHold() const
{
    const auto &notes = m_index.m_notes;
    if (notes.size() != size_t(m_removed.size() + m_updated.size()) ||
        notes.size() != m_index.m_noteOrder.size())
        return false;
    for (const int slot : m_index.m_noteOrder) {
        const auto &note = notes[size_t(slot)];
        if (note.row != batchRecord(slot).row())
            return false;
        const int position = note.found.position;
        if (position != -1 && m_index.m_list.at(position).row() != note.row)
            return false;
    }
    return true;
}

void SortBatch::locate()
{
    if (notesHold()) {
        m_finds.found.reserve(m_index.m_notes.size());
        for (const auto &note : m_index.m_notes)
            m_finds.found.push_back(note.found);
        m_finds.order.swap(m_index.m_noteOrder);
    } else {
        m_finds = m_index.findRows(affectedRows(m_removed, m_updated), true);
    }
    m_index.m_notes.clear();
}

void SortBatch::collectAffected()
{
    m_affected.reserve(m_finds.order.size());
    for (const int slot : m_finds.order) {
        const int position = m_finds.found[size_t(slot)].position;
        const int update = qMax(slot - m_removed.size(), -1);
        if (position != -1)
            m_affected.push_back({position, update, position - 1, position + 1, false});
    }
    // A record that is both removed and updated is removed: the removal sorts first and stays.
    const auto before = [](const Affected &a, const Affected &b) {
        return a.position != b.position ? a.position < b.position : a.update < b.update;
    };
    if (!std::is_sorted(m_affected.begin(), m_affected.end(), before))
        std::sort(m_affected.begin(), m_affected.end(), before);
    m_affected.erase(
        std::unique(m_affected.begin(), m_affected.end(),
                    [](const Affected &a, const Affected &b) { return a.position == b.position; }),
        m_affected.end());
}

// Who leaves --------------------------------------------------------------------------------------

int SortBatch::compare(const Record &a, const Record &b) const
{
    if (m_aid) {
        const quint64 x = m_aid->key(a.row());
        const quint64 y = m_aid->key(b.row());
        if (x != y)
            return x < y ? -1 : 1;
    }
    return m_index.compare(a, b);
}

bool SortBatch::inOrder(const Affected &affected) const
{
    const auto &list = m_index.m_list;
    const Record &record = m_updated.at(affected.update);
    if (affected.left >= 0 && compare(list.at(affected.left), record) > 0)
        return false;
    return affected.right >= list.count() || compare(record, list.at(affected.right)) <= 0;
}

// Whether a record has left all records behind that it stood among, one of them beside it, which
// has not changed: then that one need not be looked at to know that they are out of order.
bool SortBatch::isPastNeighbour(size_t i) const
{
    const Affected &affected = m_affected[i];
    const SortGuide::Range &group = m_finds.found[size_t(m_removed.size() + affected.update)].group;
    const quint64 digest = m_digests[size_t(affected.update)];
    if (digest > group.high && affected.right < group.last)
        return i + 1 == m_affected.size() || m_affected[i + 1].position != affected.right;
    if (digest < group.low && affected.left >= group.first)
        return i == 0 || m_affected[i - 1].position != affected.left;
    return false;
}

void SortBatch::decide()
{
    std::vector<size_t> open; // whose neighbours have to be looked at
    for (size_t i = 0; i < m_affected.size(); ++i) {
        Affected &affected = m_affected[i];
        affected.leaves = affected.update == -1 || !m_accepted[size_t(affected.update)] ||
                          (m_aid && isPastNeighbour(i));
        if (!affected.leaves)
            open.push_back(i);
    }
    const auto askFor = [&](size_t i) {
        if (!m_aid || i >= open.size())
            return;
        for (const int position : {m_affected[open[i]].left, m_affected[open[i]].right}) {
            if (position >= 0 && position < m_index.count())
                m_aid->key.prefetch(m_index.m_list.at(position).row());
        }
    };
    for (size_t i = 0; i < kAhead; ++i)
        askFor(i);
    for (size_t i = 0; i < open.size(); ++i) {
        askFor(i + kAhead);
        m_affected[open[i]].leaves = !inOrder(m_affected[open[i]]);
    }
    settleNeighbours();
}

// Tests those that stay again where a neighbour left, round by round until all that stay are in
// order. Whoever fails in a round leaves at its end: of two that stand in each other's way both do,
// so that who leaves does not depend on the order of the tests. Each test follows a record that
// left, so there are at most twice as many as records.
void SortBatch::settleNeighbours()
{
    std::vector<int> leaving;
    std::vector<int> open;
    for (int i = 0; i < int(m_affected.size()); ++i) {
        if (m_affected[size_t(i)].leaves)
            leaving.push_back(i);
    }
    while (!leaving.empty()) {
        for (const int i : leaving)
            unlink(i);
        open.clear();
        for (const int i : leaving) {
            const Affected &gone = m_affected[size_t(i)];
            for (const int neighbour : {affectedAt(i, gone.left), affectedAt(i, gone.right)}) {
                if (neighbour != -1 && !m_affected[size_t(neighbour)].leaves)
                    open.push_back(neighbour);
            }
        }
        leaving.clear();
        for (const int i : open) {
            Affected &affected = m_affected[size_t(i)];
            if (affected.leaves || inOrder(affected))
                continue;
            affected.leaves = true; // its neighbours see it where it is until the round ends
            leaving.push_back(i);
        }
    }
}

// The affected record at a position that is the neighbour of the from-th one; -1 if the record
// there is not affected. All records between the two leave, so they are affected: the distance in
// positions is the distance in the array.
int SortBatch::affectedAt(int from, int position) const
{
    const int i = from + position - m_affected[size_t(from)].position;
    const bool found =
        i >= 0 && i < int(m_affected.size()) && m_affected[size_t(i)].position == position;
    return found ? i : -1;
}

void SortBatch::unlink(int i)
{
    const Affected &gone = m_affected[size_t(i)];
    const int left = affectedAt(i, gone.left);
    const int right = affectedAt(i, gone.right);
    if (left != -1)
        m_affected[size_t(left)].right = gone.right;
    if (right != -1)
        m_affected[size_t(right)].left = gone.left;
}

// Who comes ---------------------------------------------------------------------------------------

void SortBatch::gatherPending()
{
    std::vector<int> leftOf(size_t(m_updated.size()), -1); // places among those that leave
    for (const Affected &affected : m_affected) {
        if (!affected.leaves)
            continue;
        if (affected.update != -1)
            leftOf[size_t(affected.update)] = int(m_leaving.size());
        m_leaving.push_back(affected.position);
    }
    const auto comes = [&](int update) {
        const bool outside = m_finds.found[size_t(m_removed.size() + update)].position == -1;
        return m_accepted[size_t(update)] && (outside || leftOf[size_t(update)] != -1);
    };
    if (m_aid)
        gatherByDigests(leftOf, comes);
    else
        gatherByComparing(leftOf, comes);
    std::vector<const Record *>().swap(m_new); // what comes next takes the memory
}

// Sorts small items that stand for the records, as those of a large batch are moved several times.
template<class Comes>
void SortBatch::gatherByDigests(const std::vector<int> &leftOf, Comes comes)
{
    struct Ranked {
        quint64 digest;
        int number; // of the new records, then the updated ones
    };
    const int arrivals = int(m_new.size());
    const auto recordOf = [&](const Ranked &each) -> const Record & {
        return each.number < arrivals ? *m_new[size_t(each.number)]
                                      : m_updated.at(each.number - arrivals);
    };
    ScratchVector<Ranked> ranked;
    ranked.reserve(m_new.size() + m_leaving.size());
    for (const Record *record : m_new)
        ranked.push_back({m_aid->key(record->row()), int(ranked.size())});
    for (int i = 0; i < m_updated.size(); ++i) {
        if (comes(i))
            ranked.push_back({m_digests[size_t(i)], arrivals + i});
    }
    spreadByDigests(ranked, [&](const Ranked &a, const Ranked &b) {
        return m_index.compare(recordOf(a), recordOf(b)) < 0;
    });
    m_pending.reserve(ranked.size());
    for (const Ranked &each : ranked) {
        const int left = each.number < arrivals ? -1 : leftOf[size_t(each.number - arrivals)];
        m_pending.push_back({each.digest, recordOf(each).row(), left, 0});
    }
}

template<class Comes>
void SortBatch::gatherByComparing(const std::vector<int> &leftOf, Comes comes)
{
    m_pending.reserve(m_new.size() + m_leaving.size());
    for (const Record *record : m_new)
        m_pending.push_back({0, record->row(), -1, 0});
    for (int i = 0; i < m_updated.size(); ++i) {
        if (comes(i))
            m_pending.push_back({0, m_updated.at(i).row(), leftOf[size_t(i)], 0});
    }
    ConcurrentSort::stableSortHelper(
        m_pending.begin(), m_pending.end(),
        [this](const Pending &a, const Pending &b) { return m_index.compare(a, b) < 0; });
}

// The list changes --------------------------------------------------------------------------------

void SortBatch::apply()
{
    std::vector<Record> left; // dropped when signposts and list agree again
    {
        ScratchVector<PartitionList<Record>::Arrival> arrivals;
        arrivals.reserve(m_pending.size());
        for (const Pending &pending : m_pending)
            arrivals.push_back({pending.position, pending.left,
                                pending.left == -1 ? Record(pending.row) : Record()});
        left =
            m_index.m_list.exchange(m_leaving, arrivals.data(), arrivals.data() + arrivals.size());
    }
    try {
        moveSignposts();
    } catch (const std::bad_alloc &) {
        m_index.m_aid->guide.clear(); // the list has changed already, and can do without
    }
}

// Shows the index all records that came or may have another key where they are.
void SortBatch::check()
{
    if (!m_index.aid() && !m_index.m_ties)
        return;
    if (TieRanks *const ties = m_index.m_ties.get()) {
        for (const QList<Record> *records : {&m_removed, &m_updated}) {
            for (const Record &record : *records)
                ties->forget(record);
        }
    }
    SortAid *const aid = m_index.aid();
    const auto isSettled = [&](int position) {
        return !(m_index.m_ties || (aid && aid->isCheckDue())) || m_index.settled(position);
    };
    bool agrees = true;
    int shift = 0; // from a position before the batch to the one behind it
    auto pending = m_pending.begin();
    const auto comeUpTo = [&](int position) {
        for (; pending != m_pending.end() && pending->position <= position; ++pending)
            agrees = isSettled(pending->position + shift++) && agrees;
    };
    for (const Affected &affected : m_affected) {
        comeUpTo(affected.position);
        if (affected.leaves)
            --shift;
        else
            agrees = isSettled(affected.position + shift) && agrees;
    }
    comeUpTo(std::numeric_limits<int>::max());
    if (!agrees)
        m_index.distrust();
}

void SortBatch::moveSignposts()
{
    SortAid *const aid = m_index.aid();
    if (!aid)
        return;
    if (!m_aid) {
        aid->setUp();
        return;
    }
    // A record that stays may have passed a signpost: it counts as one that comes behind itself.
    std::vector<int> removed;
    ScratchVector<SortGuide::Insertion> inserted;
    removed.reserve(m_affected.size());
    inserted.reserve(m_pending.size() + m_affected.size() - m_leaving.size());
    auto pending = m_pending.begin();
    const auto comeUpTo = [&](int position) {
        for (; pending != m_pending.end() && pending->position <= position; ++pending)
            inserted.push_back({pending->position, pending->digest});
    };
    for (const Affected &affected : m_affected) {
        removed.push_back(affected.position);
        if (affected.leaves)
            continue;
        comeUpTo(affected.position);
        const Record &record = m_updated.at(affected.update);
        inserted.push_back({affected.position + 1, aid->key(record.row())});
    }
    comeUpTo(m_index.count() + int(m_leaving.size()));
    aid->guide.update(removed.data(), int(removed.size()), inserted.data(), int(inserted.size()),
                      aid->digestAt());
}
