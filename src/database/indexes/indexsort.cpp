#include "database/indexes/indexsort.h"

#include "database/indexes/concurrentsort.h"
#include "database/indexes/sortaid.h"
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

void IndexSort::setColumns(const QList<int> &sorted, const QList<int> &filtered)
{
    m_aid = std::make_unique<SortAid>(m_list);
    for (const QList<int> &columns : {sorted, filtered})
        m_aid->columns.insert(m_aid->columns.end(), columns.begin(), columns.end());
    if (!sorted.isEmpty())
        m_aid->key.setColumns(*table(), sorted);
}

void IndexSort::setKeyBytes(const QList<int> &read, qint64 offset, qint64 length)
{
    setColumns({}, read);
    if (length > 0)
        m_aid->key.setBytes(offset, length);
}

bool IndexSort::reads(int colFrom, int colTo) const
{
    return !m_aid || m_aid->reads(colFrom, colTo);
}

// Searches ----------------------------------------------------------------------------------------

Record IndexSort::find(const Record &key, int from) const
{
    const int position = search(key, from);
    return position == -1 ? Record() : m_list.at(position);
}

int IndexSort::search(const Record &key, int from) const
{
    const int first = qMax(from, -1) + 1;
    const int position = first < count() ? bound(key, Side::Before, first, count()) : count();
    return position < count() && compare(m_list.at(position), key) == 0 ? position : -1;
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

// Keeps the signposts in step with one record that left a position and came to another, or did one
// of the two; both are positions before the change, -1 stands for none.
void IndexSort::follow(int removed, int inserted, const Record &record)
{
    if (!m_aid)
        return;
    const int before = count() + int(removed != -1) - int(inserted != -1);
    const bool learned = inserted != -1 && m_aid->key.learn(record.row());
    if (learned || m_aid->guide.count() != before || !m_aid->key.isOn()) {
        m_aid->setUp();
        return;
    }
    const SortGuide::Insertion insertion{inserted, m_aid->key(record.row())};
    m_aid->guide.update(&removed, int(removed != -1), &insertion, int(inserted != -1),
                        m_aid->digestAt());
}

void IndexSort::clear()
{
    m_notes.clear();
    IndexList::clear();
    if (m_aid)
        m_aid->reset();
}

void IndexSort::build()
{
    IndexList::build();
    resort();
}

void IndexSort::add(const Record &record)
{
    m_notes.clear();
    const int position = indexOfAdd(record);
    m_list.insert(position, record);
    follow(-1, position, m_list.at(position));
}

void IndexSort::remove(const Record &record, int index)
{
    m_notes.clear();
    if (index < 0 || m_list.at(index) != record)
        index = indexOf(record);
    if (index == -1)
        return;
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the argument may stand in the
    // list
    const Record kept = record;
    m_list.remove(index);
    follow(index, -1, kept);
}

void IndexSort::removeRanges(const RangeSet<int> &ranges)
{
    m_notes.clear();
    IndexList::removeRanges(ranges);
    if (m_aid)
        m_aid->setUp();
}

void IndexSort::move(int first, int last, int to)
{
    m_notes.clear();
    IndexList::move(first, last, to);
    if (m_aid)
        m_aid->setUp();
}

void IndexSort::resort()
{
    m_notes.clear();
    if (m_aid) {
        m_aid->reset();
        m_aid->learn(m_list);
    }
    if (m_aid && m_aid->key.isOn()) {
        sortByDigests();
        m_aid->setUp();
    } else {
        PartitionList<Record>::FlatView view(m_list);
        ConcurrentSort::stableSortHelper(view.begin(), view.end(), LessThan(this));
    }
}

void IndexSort::sortByDigests()
{
    PartitionList<Record>::FlatView view(m_list);
    using Loose = std::remove_pointer_t<decltype(view.begin())>;
    struct Keyed {
        quint64 digest;
        Loose handle;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(size_t(view.count()));
    for (const Loose &handle : view)
        keyed.push_back({m_aid->key(static_cast<const Record &>(handle).row()), handle});
    ConcurrentSort::stableSortHelper(
        keyed.begin(), keyed.end(), [this](const Keyed &a, const Keyed &b) {
            return a.digest != b.digest ? a.digest < b.digest : compare(a.handle, b.handle) < 0;
        });
    std::transform(keyed.begin(), keyed.end(), view.begin(),
                   [](const Keyed &each) { return each.handle; });
}

void IndexSort::update(const Record &record, int, int, int index)
{
    m_notes.clear();
    if (!filter(record)) {
        remove(record, -1);
        return;
    }
    // A key unlike the others needs other digests, which the old key of this record may not have.
    if (m_aid && m_aid->key.learn(record.row()))
        m_aid->guide.clear();
    if (index < 0 || m_list.at(index) != record)
        index = findByKey(record);
    if (index != -1 && inOrder(index - 1, record, index + 1)) {
        follow(index, index + 1, record); // in order, and yet it may have passed a signpost
        return;
    }
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
    const int place = down ? upperBound(record, 0, index) : upperBound(record, index + 1, count());
    // The argument may stand in the list.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    m_list.remove(index);
    m_list.insert(down ? place : place - 1, kept);
    follow(index, place, kept);
}

void IndexSort::preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                           int colTo, const QList<Record> &inserted,
                           const QList<Record> &updatedValues)
{
    const QList<Record> none;
    const bool moves = reads(colFrom, colTo);
    m_notes.clear();
    if (removed.isEmpty() && inserted.isEmpty() && (!moves || updated.isEmpty()))
        return;
    // Part of the work of the batch, so it counts as such.
    const ProcessTiming timing(*this);
    SortBatch::takeNotes(*this, removed, moves ? updated : none, inserted,
                         moves ? updatedValues : none);
}

void IndexSort::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                        int colTo, const QList<Record> &inserted)
{
    const QList<Record> none;
    const bool moves = reads(colFrom, colTo);
    if (removed.isEmpty() && inserted.isEmpty() && (!moves || updated.isEmpty()))
        return;
    const ProcessTiming timing(*this);
    SortBatch(*this, removed, moves ? updated : none, inserted).run();
}
