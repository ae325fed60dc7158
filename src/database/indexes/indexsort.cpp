#include "database/indexes/indexsort.h"

#include "database/indexes/concurrentsort.h"
#include "database/indexes/digestsort.h"
#include "database/indexes/scratchmemory.h"
#include "database/indexes/sortaid.h"
#include "database/indexes/sortbatch.h"
#include "database/indexes/sortsweep.h"
#include "database/indexes/tablelocker.h"
#include "database/indexes/tieranks.h"
#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <algorithm>
#include <new>

IndexSort::IndexSort(Table *table, bool addToTable)
    : IndexList(table, addToTable)
{
}

IndexSort::~IndexSort()
{
    leaveTable();
}

QString IndexSort::getClassName() const
{
    return QStringLiteral("IndexSort");
}

void IndexSort::setColumns(const QList<int> &sorted, const QList<int> &others, Qt::SortOrder order)
{
    for (const int column : sorted + others) {
        if (column < 0 || column >= table()->columnCount())
            throw QStringLiteral("Column %1 not found in table '%2' to sort an index by.")
                .arg(QString::number(column), table()->name());
    }
    forgetColumns();
    if (sorted.isEmpty() && others.isEmpty())
        return;
    auto aid = std::make_unique<SortAid>(m_list);
    for (const QList<int> &columns : {sorted, others})
        aid->columns.insert(aid->columns.end(), columns.begin(), columns.end());
    if (!sorted.isEmpty())
        aid->key.setColumns(*table(), sorted, order);
    aid->toldBy = &typeid(*this);
    m_aid = std::move(aid);
    if (count() > 0)
        IndexSort::resort();
}

void IndexSort::setKeyBytes(const QList<int> &read, qint64 offset, qint64 length)
{
    constexpr qint64 kWord = 8;
    if (offset % kWord != 0 || length % kWord != 0 || length < 0 ||
        (length > 0 &&
         (offset < kRowHeaderSize || offset + length > kRowHeaderSize + table()->rowLength())))
        throw QStringLiteral("Bytes %1..%2 are no cells of table '%3' to sort an index by.")
            .arg(QString::number(offset), QString::number(offset + length), table()->name());
    setColumns({}, read);
    if (length == 0 || !m_aid)
        return;
    m_aid->key.setBytes(offset, length);
    m_aid->isBytes = true;
    if (count() > 0)
        IndexSort::resort();
}

void IndexSort::forgetColumns()
{
    m_notes.clear();
    m_aid.reset();
}

bool IndexSort::reads(int colFrom, int colTo) const
{
    const SortAid *const told = aid();
    return !told || told->reads(colFrom, colTo);
}

// Searches ----------------------------------------------------------------------------------------

Record IndexSort::find(const Record &key, int from) const
{
    const int position = search(key, from);
    if (position == -1)
        return {};
    const Record &record = m_list.at(position);
    prefetchCells(record); // who looks for a record will read it
    return record;
}

int IndexSort::search(const Record &key, int from) const
{
    const int first = qMax(from, -1) + 1;
    if (first >= count() || key.isNull())
        return -1;
    quint64 digest;
    const SortAid *const told = aid();
    if (!told || !told->guides() || !told->key.read(key.row(), &digest))
        return searchComparing(key, first);
    if (comparesDigests())
        return searchByDigest(digest, key, first);
    const int position =
        boundAmong({digest, told->guide.range(digest), first, count()}, key, Side::Before);
    if (isMatch(position, digest, key))
        return position;
    return contradicts(key, position, first) ? searchComparing(key, first) : -1;
}

int IndexSort::searchLast(const Record &key, int from) const
{
    const int first = qMax(from, -1) + 1;
    if (first >= count() || key.isNull())
        return -1;
    const int last = upperBound(key, first, count()) - 1;
    if (last < first)
        return -1;
    quint64 digest;
    const SortAid *const told = aid();
    const bool guided = told && told->guides() && told->key.read(key.row(), &digest);
    const bool found = guided ? isMatch(last, digest, key) : compare(m_list.at(last), key) == 0;
    return found ? last : -1;
}

int IndexSort::searchFull(const Record &key, int from) const
{
    int steps = 0;
    const int first = qMax(from, -1) + 1;
    if (first >= count() || key.isNull())
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
    if (record.isNull())
        return -1;
    const int position = findByKey(record);
    return position != -1 ? position : IndexList::indexOf(record);
}

// Changes -----------------------------------------------------------------------------------------

// Keeps the signposts in step with one record that left a position and came to another, or did one
// of the two; both are positions before the change, -1 stands for none.
void IndexSort::follow(int removed, int inserted, const Record &record)
{
    SortAid *const told = aid();
    if (!told)
        return;
    try {
        const int before = count() + int(removed != -1) - int(inserted != -1);
        const bool learned = inserted != -1 && told->key.learn(record.row());
        if (learned || told->guide.count() != before || !told->key.isOn()) {
            told->setUp();
            return;
        }
        const SortGuide::Insertion insertion{inserted, told->key(record.row())};
        told->guide.update(&removed, int(removed != -1), &insertion, int(inserted != -1),
                           told->digestAt());
    } catch (const std::bad_alloc &) {
        told->guide.clear(); // the list has changed already, and can do without
    }
}

void IndexSort::clear()
{
    m_notes.clear();
    m_ties.reset();
    m_isMoved = false;
    IndexList::clear();
    if (m_aid)
        m_aid->reset();
}

void IndexSort::build()
{
    const TableLocker locker(*table());
    m_ties.reset();
    collect();
    resort();
}

void IndexSort::add(const Record &record)
{
    m_notes.clear();
    const int position = indexOfAdd(record);
    if (m_isKey && !m_isEqualTold && position > 0 && order(m_list.at(position - 1), record) == 0)
        metEqual(record);
    m_list.insert(position, record);
    follow(-1, position, m_list.at(position));
    if (!settled(position))
        distrust();
}

void IndexSort::remove(const Record &record, int index)
{
    m_notes.clear();
    if (index < 0 || m_list.at(index) != record) {
        Run scanned;
        index = record.isNull() ? -1 : findByKey(record, &scanned);
        rankTies(scanned);
        if (index == -1)
            index = IndexList::indexOf(record);
    }
    if (index != -1 && index < count())
        takeOut(record, index);
}

// Takes out the record that stands at a position.
void IndexSort::takeOut(const Record &record, int position)
{
    // The argument may stand in the list.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    if (m_ties)
        m_ties->forget(kept);
    m_list.remove(position);
    follow(position, -1, kept);
}

void IndexSort::removeRanges(const RangeSet<int> &ranges)
{
    m_notes.clear();
    m_ties.reset();
    IndexList::removeRanges(ranges);
    if (SortAid *const told = aid())
        told->setUp();
}

void IndexSort::move(int first, int last, int to)
{
    m_notes.clear();
    m_ties.reset();
    m_isMoved = true;
    IndexList::move(first, last, to);
    if (SortAid *const told = aid())
        told->setUp();
}

void IndexSort::resort()
{
    m_notes.clear();
    m_ties.reset();
    m_isMoved = false;
    SortAid *const told = aid();
    if (told) {
        told->reset();
        told->learn(m_list);
    }
    if (!told || !told->key.isOn()) {
        PartitionList<Record>::FlatView view(m_list);
        ConcurrentSort::stableSortHelper(view.begin(), view.end(), LessThan(this));
        return;
    }
    resortByDigests();
    if (contradictsSomewhere())
        distrust();
    else
        told->setUp();
}

void IndexSort::resortByDigests()
{
    const SortAid &told = *aid();
    PartitionList<Record>::FlatView view(m_list);
    using Loose = std::remove_pointer_t<decltype(view.begin())>;
    struct Keyed {
        quint64 digest;
        Loose handle;
    };
    ScratchVector<Keyed> keyed;
    ScratchVector<Keyed> buffer;
    keyed.reserve(size_t(view.count()));
    for (const Loose &handle : view)
        keyed.push_back({told.key(static_cast<const Record &>(handle).row()), handle});
    sortByDigests(
        keyed, buffer,
        [this](const Keyed &a, const Keyed &b) { return compare(a.handle, b.handle) < 0; },
        [&](const Keyed &each) {
            told.key.prefetchWhole(static_cast<const Record &>(each.handle).row());
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
    if (SortAid *const told = aid()) {
        if (told->key.learn(record.row()))
            told->guide.clear();
    }
    if (index < 0 || m_list.at(index) != record) {
        Run scanned;
        index = findByKey(record, &scanned);
        rankTies(scanned);
    }
    if (index == -1) {
        index = IndexList::indexOf(record);
        if (index == -1) {
            add(record);
            return;
        }
        qWarning("update Full search can impact the performance");
        settle(record, index, true);
        return;
    }
    settle(record, index, false);
}

// Puts a record that stands at a position and holds its new values where it belongs: if it is in
// order it stays, unless it is to go behind its equals in any case.
void IndexSort::settle(const Record &record, int index, bool behindEquals)
{
    // The argument may stand in the list.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    int place = index + 1;
    // The place first, so that a comparison that throws leaves the record where it is.
    if (index > 0 && order(m_list.at(index - 1), kept) > 0)
        place = upperBound(kept, 0, index);
    else if (index + 1 < count() && (behindEquals || order(kept, m_list.at(index + 1)) > 0))
        place = upperBound(kept, index + 1, count());
    if (m_ties)
        m_ties->forget(kept);
    if (place != index + 1)
        m_list.move(index, place);
    follow(index, place, kept); // one that stays may have passed a signpost, too
    if (!settled(place > index ? place - 1 : place))
        distrust();
}

// Batches -----------------------------------------------------------------------------------------

// A tick, one row that changes, goes the short way: no lists are made for it, and the signposts are
// asked once for its old and its new place. Where something is unusual it is a batch like others;
// both then return false.

bool IndexSort::noteOne(const Record &record, const Record &value)
{
    SortAid::Tick tick;
    quint64 digest;
    SortAid *const told = aid();
    if (!told || !told->guides() || !told->key.covers(value.row(), &tick.digest) ||
        !told->key.read(record.row(), &digest))
        return false;
    // What processOne() will look at is on its way while the record is searched for.
    tick.to = m_aid->guide.group(tick.digest);
    const SortGuide::Search search(tick.to, tick.digest);
    const Record *const stretch = m_list.stretch(tick.to.first, tick.to.last);
    if (stretch)
        prefetch(stretch + (search.probe() - tick.to.first));
    tick.from = m_aid->guide.group(digest);
    constexpr int kMany = 64;
    if (tick.from.last - tick.from.first > kMany && !filter(record))
        return false; // it is not here, and not to be looked for among many
    Run scanned;
    const int position = findAmong({digest, tick.from, 0, count()}, record, &scanned);
    if (position == -1)
        return false;
    rankTies(scanned);
    if (stretch)
        m_aid->prefetchNear(search, stretch, tick.to.first);
    if (!tick.rises(position) && !tick.falls(position)) {
        for (const int neighbour : {position - 1, position + 1}) {
            if (neighbour >= 0 && neighbour < count())
                m_aid->key.prefetch(m_list.at(neighbour).row());
        }
    }
    tick.row = record.row();
    m_aid->tick = tick;
    m_notes.push_back({record.row(), {position, tick.from}});
    m_noteOrder.assign(1, 0);
    return true;
}

bool IndexSort::processOne(const Record &record)
{
    if (m_notes.size() != 1 || m_notes.front().row != record.row() || !aid() || !m_aid->guides() ||
        m_aid->tick.row != record.row())
        return false;
    SortAid::Tick &tick = m_aid->tick;
    const int position = m_notes.front().found.position;
    quint64 digest;
    if (m_list.at(position) != record || !m_aid->key.covers(record.row(), &digest))
        return false;
    if (digest != tick.digest) { // the batch changes less than its values do
        tick.digest = digest;
        tick.to = m_aid->guide.group(digest);
    }
    m_notes.clear();
    if (filter(record))
        settleTick(record, position);
    else
        takeOut(record, position);
    return true;
}

// compare(record, the one at a position), where the record is that of the tick.
int IndexSort::compareTick(const Record &record, int position) const
{
    const Record &other = m_list.at(position);
    const quint64 digest = m_aid->key(other.row());
    if (digest != m_aid->tick.digest)
        return m_aid->tick.digest < digest ? -1 : 1;
    return compare(record, other);
}

// As settle(), by what the tick knows.
void IndexSort::settleTick(const Record &record, int index)
{
    const SortAid::Tick &tick = m_aid->tick;
    bool falls = tick.falls(index);
    bool rises = tick.rises(index);
    if (!falls && !rises) {
        falls = index > 0 && compareTick(record, index - 1) < 0;
        rises = !falls && index + 1 < count() && compareTick(record, index + 1) > 0;
    }
    int place = index + 1;
    if (falls)
        place = boundAmong({tick.digest, tick.to, 0, index}, record, Side::Behind);
    else if (rises)
        place = boundAmong({tick.digest, tick.to, index + 1, count()}, record, Side::Behind);
    if (m_ties)
        m_ties->forget(record);
    if (place != index + 1)
        m_list.move(index, place);
    try {
        m_aid->guide.move(tick.from, index, tick.to, place, tick.digest, m_aid->digestAt());
    } catch (const std::bad_alloc &) {
        m_aid->guide.clear(); // the list has changed already, and can do without
    }
    if ((m_ties || m_aid->isCheckDue()) && !settled(place > index ? place - 1 : place))
        distrust();
}

void IndexSort::preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                           int colTo, const QList<Record> &inserted,
                           const QList<Record> &updatedValues)
{
    const QList<Record> none;
    const bool moves = reads(colFrom, colTo);
    m_notes.clear();
    if (m_aid)
        m_aid->tick.row = nullptr;
    const bool onlyUpdates = removed.isEmpty() && inserted.isEmpty();
    if (onlyUpdates && (!moves || updated.isEmpty()))
        return;
    const int changes = removed.size() + (moves ? updated.size() : 0) + inserted.size();
    if (SortSweep::suits(count(), changes))
        return;
    // Part of the work of the batch, so it counts as such.
    const ProcessTiming timing(*this);
    const bool isTick = onlyUpdates && updated.size() == 1 && updatedValues.size() == 1;
    if (isTick && noteOne(updated.first(), updatedValues.first()))
        return;
    SortBatch::takeNotes(*this, removed, moves ? updated : none, inserted,
                         moves ? updatedValues : none);
}

void IndexSort::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                        int colTo, const QList<Record> &inserted)
{
    const QList<Record> none;
    const bool moves = reads(colFrom, colTo);
    const bool onlyUpdates = removed.isEmpty() && inserted.isEmpty();
    const bool isPassedBy = onlyUpdates && (!moves || updated.isEmpty());
    if (!isPassedBy) {
        const ProcessTiming timing(*this);
        const QList<Record> &moved = moves ? updated : none;
        if (!onlyUpdates || updated.size() != 1 || !processOne(updated.first())) {
            if (SortSweep::suits(count(), removed.size() + moved.size() + inserted.size()))
                SortSweep(*this, removed, moved, inserted).run();
            else
                SortBatch(*this, removed, moved, inserted).run();
        }
    }
    assertOrder(isPassedBy);
}
