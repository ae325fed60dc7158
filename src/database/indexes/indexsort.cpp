#include "database/indexes/indexsort.h"

#include "database/indexes/concurrentsort.h"
#include "database/indexes/sortbatch.h"

#include <algorithm>

IndexSort::IndexSort(Table *table, bool addToTable)
    : IndexList(table, addToTable)
{
}

IndexSort::~IndexSort() = default;

QString IndexSort::getClassName() const
{
    return QStringLiteral("IndexSort");
}

// Searches ----------------------------------------------------------------------------------------

Record IndexSort::find(const Record &key, int from) const
{
    const int position = search(key, from);
    return position == -1 ? Record() : m_list.at(position);
}

int IndexSort::search(const Record &key, int from) const
{
    return searchBinary(key, from, Compare(this));
}

int IndexSort::searchLast(const Record &key, int from) const
{
    const int first = qMax(from, -1) + 1;
    const int last = first < count() ? upperBound(key, first, count()) - 1 : -1;
    return last >= first && compare(m_list.at(last), key) == 0 ? last : -1;
}

int IndexSort::searchFull(const Record &key, int from) const
{
    int steps = 0;
    const int first = qMax(from, -1) + 1;
    if (first >= count())
        return -1;
    const auto last = m_list.end();
    for (auto element = m_list.iteratorAt(first); element != last; ++element, ++steps) {
        if (compare(*element, key) == 0)
            return steps;
    }
    return -1;
}

int IndexSort::lowerBound(const Record &key) const
{
    return m_list.partitionPoint([&](const Record &element) { return compare(element, key) < 0; });
}

int IndexSort::upperBound(const Record &key, int from, int to) const
{
    return m_list.partitionPoint(from, to,
                                 [&](const Record &element) { return compare(element, key) <= 0; });
}

int IndexSort::indexOfAdd(const Record &record) const
{
    return upperBound(record, 0, count());
}

int IndexSort::indexOf(const Record &record) const
{
    const int position = findByKey(record);
    return position != -1 ? position : IndexList::indexOf(record);
}

// Whether a record fits between the records at two positions, either of which may lie outside.
bool IndexSort::inOrder(int before, const Record &record, int after) const
{
    if (before >= 0 && compare(m_list.at(before), record) > 0)
        return false;
    return after >= count() || compare(record, m_list.at(after)) <= 0;
}

// Changes -----------------------------------------------------------------------------------------

void IndexSort::build()
{
    m_notes.clear();
    IndexList::build();
    resort();
}

void IndexSort::add(const Record &record)
{
    m_notes.clear();
    m_list.insert(indexOfAdd(record), record);
}

void IndexSort::resort()
{
    m_notes.clear();
    if (count() == 0)
        return;
    PartitionList<Record>::FlatView view(m_list);
    ConcurrentSort::stableSortHelper(view.begin(), view.end(), LessThan(this));
}

void IndexSort::move(int first, int last, int to)
{
    m_notes.clear();
    IndexList::move(first, last, to);
}

void IndexSort::update(const Record &record, int, int, int index)
{
    m_notes.clear();
    if (!filter(record)) {
        remove(record, -1);
        return;
    }
    if (index < 0 || m_list.at(index) != record)
        index = findByKey(record);
    if (index != -1 && inOrder(index - 1, record, index + 1))
        return;
    if (index == -1) {
        index = IndexList::indexOf(record);
        if (index == -1) {
            add(record);
            return;
        }
        qWarning("update Full search can impact the performance");
    }
    // The place first, so that a comparison that throws leaves the record where it is.
    const bool down = index > 0 && compare(m_list.at(index - 1), record) > 0;
    const int place =
        down ? upperBound(record, 0, index) : upperBound(record, index + 1, count()) - 1;
    // The argument may stand in the list.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    m_list.remove(index);
    m_list.insert(place, kept);
}

void IndexSort::preprocess(const QList<Record> &removed, const QList<Record> &updated, int, int,
                           const QList<Record> &, const QList<Record> &)
{
    // Part of the work of the batch, so it counts as such.
    const ProcessTiming timing(*this);
    SortBatch::takeNotes(*this, removed, updated);
}

void IndexSort::process(const QList<Record> &removed, const QList<Record> &updated, int, int,
                        const QList<Record> &inserted)
{
    const ProcessTiming timing(*this);
    SortBatch(*this, removed, updated, inserted).run();
}
