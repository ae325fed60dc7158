#include "database/indexes/sortbatch.h"

#include "database/indexes/concurrentsort.h"
#include "database/tables/firsterror.h"

#include <algorithm>

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
    locate();
    m_index.m_notes.clear();
    collectAffected();
    decide();
    gatherPending();
    takeOut();
    mergePending();
}

const Record &SortBatch::batchRecord(int slot) const
{
    return slot < m_removed.size() ? m_removed.at(slot) : m_updated.at(slot - m_removed.size());
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
                          const QList<Record> &updated)
{
    const std::vector<const Record *> rows = affectedRows(removed, updated);
    // Nothing is noted when one of them throws.
    index.m_notes.clear();
    // A record that belongs here but does not stand where its key says is searched for: its key has
    // changed behind the index's back.
    const std::vector<int> positions = index.findRows(rows, false);
    index.m_notes.reserve(positions.size());
    for (size_t i = 0; i < positions.size(); ++i)
        index.m_notes.push_back({rows[i]->row(), positions[i]});
}

// Whether the notes are of this very batch and the records still stand where they were noted.
bool SortBatch::notesHold() const
{
    const auto &notes = m_index.m_notes;
    if (notes.size() != size_t(m_removed.size() + m_updated.size()))
        return false;
    for (int slot = 0; slot < int(notes.size()); ++slot) {
        const auto &note = notes[size_t(slot)];
        if (note.row != batchRecord(slot).row())
            return false;
        if (note.position != -1 && m_index.m_list.at(note.position).row() != note.row)
            return false;
    }
    return true;
}

void SortBatch::locate()
{
    if (!notesHold()) {
        m_positions = m_index.findRows(affectedRows(m_removed, m_updated), true);
        return;
    }
    m_positions.reserve(m_index.m_notes.size());
    for (const auto &note : m_index.m_notes)
        m_positions.push_back(note.position);
}

void SortBatch::collectAffected()
{
    m_affected.reserve(m_positions.size());
    for (int slot = 0; slot < int(m_positions.size()); ++slot) {
        const int position = m_positions[size_t(slot)];
        const int update = qMax(slot - m_removed.size(), -1);
        if (position != -1)
            m_affected.push_back({position, update, position - 1, position + 1, false});
    }
    // A record that is both removed and updated is removed: the removal sorts first and stays.
    std::sort(m_affected.begin(), m_affected.end(), [](const Affected &a, const Affected &b) {
        return a.position != b.position ? a.position < b.position : a.update < b.update;
    });
    m_affected.erase(
        std::unique(m_affected.begin(), m_affected.end(),
                    [](const Affected &a, const Affected &b) { return a.position == b.position; }),
        m_affected.end());
}

// Who leaves --------------------------------------------------------------------------------------

void SortBatch::decide()
{
    m_accepted.reserve(size_t(m_updated.size()));
    for (const Record &record : m_updated)
        m_accepted.push_back(m_index.filter(record));
    for (Affected &affected : m_affected) {
        affected.leaves =
            affected.update == -1 || !m_accepted[size_t(affected.update)] ||
            !m_index.inOrder(affected.left, m_updated.at(affected.update), affected.right);
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
            if (affected.leaves ||
                m_index.inOrder(affected.left, m_updated.at(affected.update), affected.right))
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

// The two passes over the list --------------------------------------------------------------------

void SortBatch::gatherPending()
{
    int taken = 0;
    std::vector<int> takenOf(size_t(m_updated.size()), -1); // places in m_taken to be
    for (const Affected &affected : m_affected) {
        if (!affected.leaves)
            continue;
        m_leaving.addRange(affected.position, affected.position + 1);
        if (affected.update != -1)
            takenOf[size_t(affected.update)] = taken;
        ++taken;
    }
    m_taken.resize(size_t(taken));

    m_pending.reserve(size_t(m_inserted.size() + m_updated.size()));
    for (const Record &record : m_inserted) {
        if (m_index.filter(record))
            m_pending.push_back({record.row(), -1});
    }
    for (int i = 0; i < m_updated.size(); ++i) {
        const bool outside = m_positions[size_t(m_removed.size() + i)] == -1;
        if (m_accepted[size_t(i)] && (outside || takenOf[size_t(i)] != -1))
            m_pending.push_back({m_updated.at(i).row(), takenOf[size_t(i)]});
    }
    ConcurrentSort::stableSortHelper(m_pending.begin(), m_pending.end(),
                                     IndexSort::LessThan(&m_index));
}

void SortBatch::takeOut()
{
    m_index.m_list.takeRanges(m_leaving, m_taken.data());
}

void SortBatch::mergePending()
{
    std::vector<Record> records;
    records.reserve(m_pending.size());
    for (const Pending &pending : m_pending) {
        if (pending.taken != -1)
            records.push_back(std::move(m_taken[size_t(pending.taken)]));
        else
            records.push_back(pending);
    }
    std::vector<int> positions(records.size(), m_index.count());
    FirstError error;
    error.run([&] {
        int cursor = 0;
        for (size_t i = 0; i < records.size(); ++i) {
            cursor = m_index.upperBound(records[i], cursor, m_index.count());
            positions[i] = cursor;
        }
    });
    m_index.m_list.mergeInsert(positions.data(), records.data(), int(records.size()));
    error.rethrow();
}
