// How a sorted index finds many records at once.

#include "database/indexes/indexsort.h"
#include "database/indexes/sortaid.h"
#include "database/indexes/spreadsort.h"
#include "database/indexes/tieranks.h"
#include "database/services/concurrently.h"

#include <QtCore/qalgorithms.h>

#include <algorithm>

namespace
{

// Rows of one key that are looked at by identity before the end of the key's run is searched for.
constexpr int kProbes = 8;
// Handles that are compared by identity rather than divided further.
constexpr int kScanned = 64;
// Records whose cells and places are asked for ahead of their turn.
constexpr int kAhead = 12;
// Searches by key that wait for memory together.
constexpr int kSideBySide = 32;

/// Turns away most rows that are not in a set, with few bits of memory per row.
class RowSieve
{
public:
    explicit RowSieve(size_t rows)
    {
        while ((size_t(1) << (64 - m_shift)) < 16 * rows)
            --m_shift;
        m_bits.resize(size_t(1) << (64 - m_shift));
    }
    void add(const uchar *row) { m_bits[slot(row)] = true; }
    bool mayHold(const uchar *row) const { return m_bits[slot(row)]; }

private:
    size_t slot(const uchar *row) const
    {
        return size_t((quint64(quintptr(row)) * Q_UINT64_C(0x9E3779B97F4A7C15)) >> m_shift);
    }

    int m_shift = 58;
    std::vector<bool> m_bits;
};

} // namespace

// Whether records whose digests are equal need not be compared.
bool IndexSort::comparesDigests() const
{
    const SortAid *const told = aid();
    return told && told->isBytes && told->key.isWhole();
}

// The first position from..to - 1 whose record does not sort before the key, or whose record sorts
// behind it; to if there is none.
int IndexSort::bound(const Record &key, Side side, int from, int to) const
{
    quint64 digest;
    const SortAid *const told = aid();
    if (told && told->guides() && told->key.read(key.row(), &digest))
        return boundAmong({digest, told->guide.range(digest), from, to}, key, side);
    return m_list.partitionPoint(from, to, [&](const Record &element) {
        const int order = compare(element, key);
        return side == Side::Behind ? order <= 0 : order < 0;
    });
}

// The same with the help of the guide.
int IndexSort::boundAmong(const Among &among, const Record &key, Side side) const
{
    const SortKey &keys = m_aid->key;
    SortGuide::Range range = among.range;
    range.first = qBound(among.from, range.first, among.to);
    range.last = qBound(range.first, range.last, among.to);
    SortGuide::Search search(range, among.digest);
    const Record *const stretch = m_list.stretch(range.first, range.last);
    const auto at = [&](int position) -> const Record & {
        return stretch ? stretch[position - range.first] : m_list.at(position);
    };
    const bool isWhole = comparesDigests();
    while (search.isOpen()) {
        if (stretch && search.isGuess())
            m_aid->prefetchNear(search, stretch, range.first);
        const Record &element = at(search.probe());
        const quint64 digest = keys(element.row());
        bool precedes = digest < among.digest;
        if (digest == among.digest) {
            const int order = isWhole ? 0 : compare(element, key);
            precedes = side == Side::Behind ? order <= 0 : order < 0;
        }
        search.narrow(precedes, digest);
    }
    return search.place();
}

// search() by compare() alone.
int IndexSort::searchComparing(const Record &key, int first) const
{
    const int position = m_list.partitionPoint(
        first, count(), [&](const Record &element) { return compare(element, key) < 0; });
    return position < count() && compare(m_list.at(position), key) == 0 ? position : -1;
}

// search() among the positions from..count() - 1 where equal digests are equal keys. Of a group
// that is asked for often only those rows are looked at whose marks fit: mostly the one.
int IndexSort::searchByDigest(quint64 digest, const Record &key, int from) const
{
    const SortKey &keys = m_aid->key;
    const SortGuide::Group group = m_aid->guide.group(digest);
    SortGuide::Marks *const marks = m_aid->guide.marks(group);
    const Record *const stretch = marks ? m_list.stretch(group.first, group.last) : nullptr;
    if (!stretch || (!marks->areSet() && !marks->areDue())) {
        const int position = boundAmong({digest, group, from, count()}, key, Side::Before);
        return position < count() && compare(m_list.at(position), key) == 0 ? position : -1;
    }
    if (!marks->areSet()) {
        const int rows = group.last - group.first;
        quint64 digests[SortGuide::Marks::kMost];
        std::for_each_n(stretch, rows, [&](const Record &record) { keys.prefetch(record.row()); });
        std::transform(stretch, stretch + rows, digests,
                       [&](const Record &record) { return keys(record.row()); });
        marks->set(digests, rows);
    }
    for (quint32 fitting = marks->fitting(digest); fitting != 0; fitting &= fitting - 1) {
        const int i = int(qCountTrailingZeroBits(fitting));
        keys.prefetch(stretch[i].row());
        if (group.first + i >= from && keys(stretch[i].row()) == digest)
            return group.first + i;
    }
    return -1;
}

/// One of several searches by key that go on side by side.
struct IndexSort::KeySearch {
    quint64 digest;
    int first; // of the range that the guide gave
    SortGuide::Search probes;
    const Record *stretch; // the records of the range; null where the guide is of no help
    const Record *probed;
};

QList<Record> IndexSort::findAll(const QList<Record> &keys) const
{
    QList<Record> found;
    found.reserve(keys.size());
    for (int i = 0; i < keys.size(); i += kSideBySide)
        findTile(&keys.at(i), qMin(keys.size() - i, kSideBySide), found);
    return found;
}

void IndexSort::findTile(const Record *keys, int n, QList<Record> &found) const
{
    KeySearch searches[kSideBySide];
    const SortAid *const told = aid();
    const bool guided = told && told->guides();
    for (int i = 0; i < n; ++i) {
        KeySearch &search = searches[i] = {};
        if (!guided || keys[i].isNull() || !m_aid->key.read(keys[i].row(), &search.digest))
            continue;
        const SortGuide::Range range = m_aid->guide.range(search.digest);
        search.first = range.first;
        search.probes = {range, search.digest};
        search.stretch = m_list.stretch(range.first, range.last);
        if (search.stretch)
            ::prefetch(search.stretch + (search.probes.probe() - range.first));
    }
    for (bool open = guided; open;) {
        open = false;
        for (int i = 0; i < n; ++i) {
            KeySearch &search = searches[i];
            if (!search.stretch || !search.probes.isOpen())
                continue;
            search.probed = search.stretch + (search.probes.probe() - search.first);
            m_aid->key.prefetch(search.probed->row());
            open = true;
        }
        for (int i = 0; i < n; ++i) {
            KeySearch &search = searches[i];
            if (!search.stretch || !search.probes.isOpen())
                continue;
            const quint64 digest = m_aid->key(search.probed->row());
            search.probes.narrow(digest != search.digest ? digest < search.digest
                                                         : compare(*search.probed, keys[i]) < 0,
                                 digest);
        }
    }
    for (int i = 0; i < n; ++i) {
        if (!searches[i].stretch) {
            found.append(find(keys[i], -1));
            continue;
        }
        const int place = searches[i].probes.place();
        const Record &record = m_list.at(place);
        prefetchCells(record);
        found.append(isMatch(place, searches[i].digest, keys[i]) ? record : Record());
    }
}

// The position of this very row where its key says that it stands, or -1.
// \param[out] scanned  the ties, when many had to be looked at one by one; may be null
int IndexSort::findByKey(const Record &record, Run *scanned) const
{
    quint64 digest;
    const SortAid *const told = aid();
    if (told && told->guides() && told->key.read(record.row(), &digest))
        return findAmong({digest, told->guide.range(digest), 0, count()}, record, scanned);
    return findBehind(lowerBound(record), record, scanned);
}

int IndexSort::findAmong(const Among &among, const Record &record, Run *scanned) const
{
    const SortGuide::Range &range = among.range;
    if (range.last - range.first <= kScanned) {
        const Record *const stretch = m_list.stretch(range.first, range.last);
        if (!stretch)
            return scanForRow(record, range.first, range.last);
        const Record *const end = stretch + (range.last - range.first);
        const Record *const found = std::find(stretch, end, record);
        return found != end ? range.first + int(found - stretch) : -1;
    }
    // Mostly no other run with numbers reaches into the range.
    const int position = m_ties ? m_ties->find(m_list, range.first, range.last, record) : -1;
    if (position != -1)
        return position;
    return findBehind(boundAmong(among, record, Side::Before), record, scanned);
}

// The same among the records of its key, the first of which is known.
int IndexSort::findBehind(int first, const Record &record, Run *scanned) const
{
    const int probed = qMin(first + kProbes, count());
    int position = scanForRow(record, first, probed);
    if (position != -1 || probed == count())
        return position;
    const int last = upperBound(record, probed, count());
    position = m_ties ? m_ties->find(m_list, first, last, record) : -1;
    if (position != -1)
        return position;
    if (scanned && last - probed > kScanned)
        *scanned = {first, last};
    return scanForRow(record, probed, last);
}

/// Finds many rows by their keys.
class IndexSort::RowFinder
{
public:
    RowFinder(const IndexSort &index, const std::vector<const Record *> &rows, bool rejectedToo)
        : m_index(index)
        , m_rows(rows)
        , m_rejectedToo(rejectedToo)
        , m_patience(index.count())
    {
    }

    Finds find()
    {
        m_finds.found.resize(m_rows.size(), {-1, {}});
        m_finds.order.reserve(m_rows.size());
        const SortAid *aid = m_index.aid();
        if (aid && aid->guides()) {
            findGuided(*aid);
        } else {
            for (int i = 0; i < int(m_rows.size()); ++i) {
                m_finds.order.push_back(i);
                findByKey(i);
            }
        }
        m_index.scanForRows(m_wanted, m_finds.found);
        return std::move(m_finds);
    }

private:
    /// A row to find: small, as many of them are sorted.
    struct Sought {
        quint64 digest;
        int number;
    };
    /// Where the guide says that it stands.
    struct Place {
        const Record *stretch; // null where the guide does not say enough
        SortGuide::Range range;
    };

    // In the order of the digests, which is that of the positions: neighbouring records share
    // signposts and cache lines. Cells, then places in the list are asked for ahead of their turn.
    void findGuided(const SortAid &aid)
    {
        const int n = int(m_rows.size());
        std::vector<Sought> sought(m_rows.size());
        Concurrently::forStretches(n, [&](int first, int last) {
            for (int i = first; i < qMin(first + kAhead, last); ++i)
                aid.key.prefetchWhole(m_rows[size_t(i)]->row());
            for (int i = first; i < last; ++i) {
                if (i + kAhead < last)
                    aid.key.prefetchWhole(m_rows[size_t(i + kAhead)]->row());
                Sought &each = sought[size_t(i)];
                each.number = aid.key.read(m_rows[size_t(i)]->row(), &each.digest) ? i : -1;
            }
        });
        for (int i = 0; i < n; ++i) {
            if (sought[size_t(i)].number == -1) {
                m_finds.order.push_back(i);
                findByKey(i);
            }
        }
        const auto isMissing = [](const Sought &each) { return each.number == -1; };
        sought.erase(std::remove_if(sought.begin(), sought.end(), isMissing), sought.end());
        spreadByDigests(sought);
        Concurrently::forStretches(int(sought.size()), [&](int first, int last) {
            SortGuide::Walk walk(aid.guide);
            Place places[kAhead]; // of those that are being asked for
            for (int i = first; i < last + kAhead; ++i) {
                if (i - first >= kAhead)
                    scan(sought[size_t(i - kAhead)].number, places[i % kAhead]);
                if (i < last)
                    places[i % kAhead] = placeOf(sought[size_t(i)].digest, walk);
            }
        });
        for (const Sought &each : sought) {
            m_finds.order.push_back(each.number);
            if (m_finds.found[size_t(each.number)].position == -1)
                findByKey(each.number);
        }
    }
    Place placeOf(quint64 digest, SortGuide::Walk &walk) const
    {
        const SortGuide::Range range = walk.range(digest);
        const int size = range.last - range.first;
        if (size > kScanned)
            return {nullptr, range};
        const Record *const stretch = m_index.m_list.stretch(range.first, range.last);
        for (int i = 0; stretch && i < size; i += 8)
            ::prefetch(stretch + i);
        return {stretch, range};
    }
    void scan(int number, const Place &place)
    {
        const int size = place.stretch ? place.range.last - place.range.first : 0;
        const Record *const end = place.stretch + size;
        const Record *const found = std::find(place.stretch, end, *m_rows[size_t(number)]);
        if (found != end)
            m_finds.found[size_t(number)] = {place.range.first + int(found - place.stretch),
                                             place.range};
    }
    void findByKey(int number)
    {
        const Record &record = *m_rows[size_t(number)];
        const int first = m_index.lowerBound(record);
        const int probed = qMin(first + kProbes, m_index.count());
        int position = m_index.scanForRow(record, first, probed);
        if (position == -1) {
            const int last = probed < m_index.count()
                                 ? m_index.upperBound(record, probed, m_index.count())
                                 : probed;
            const TieRanks *const ties = m_index.m_ties.get();
            const bool areMany = last - probed > kScanned;
            position = ties ? ties->find(m_index.m_list, first, last, record) : -1;
            // One that does not belong here is not looked for among many.
            const bool isAbsent =
                position == -1 && areMany && !m_rejectedToo && !m_index.filter(record);
            const bool scanned = position == -1 && !isAbsent && last - probed <= m_patience;
            if (scanned) {
                m_patience -= last - probed;
                position = m_index.scanForRow(record, probed, last);
                if (areMany)
                    m_finds.scanned = {first, last};
            }
            if (position == -1 && !isAbsent &&
                (!scanned || m_rejectedToo || m_index.filter(record)))
                m_wanted.push_back({record.row(), number});
        }
        m_finds.found[size_t(number)] = {position, {}};
    }

    const IndexSort &m_index;
    const std::vector<const Record *> &m_rows;
    const bool m_rejectedToo;
    int m_patience; // handles that may be looked at one by one before a scan is cheaper
    Finds m_finds;
    std::vector<Wanted> m_wanted;
};

// The positions of these very rows, -1 where one does not stand here: by their keys, and for those
// that are not found that way, if the filter accepts them or rejected ones are wanted too, by one
// scan over the index.
IndexSort::Finds IndexSort::findRows(const std::vector<const Record *> &rows,
                                     bool rejectedToo) const
{
    return RowFinder(*this, rows, rejectedToo).find();
}

// Looks all wanted rows up in one walk over the index; sorts them by row for that.
void IndexSort::scanForRows(std::vector<Wanted> &wanted, std::vector<Found> &found) const
{
    if (wanted.empty())
        return;
    const auto byRow = [](const Wanted &a, const Wanted &b) {
        return std::less<const uchar *>()(a.row, b.row);
    };
    std::sort(wanted.begin(), wanted.end(), byRow);
    RowSieve sieve(wanted.size());
    for (const Wanted &row : wanted)
        sieve.add(row.row);
    int position = -1;
    for (const Record &element : m_list) {
        ++position;
        if (!sieve.mayHold(element.row()))
            continue;
        auto row = std::lower_bound(wanted.begin(), wanted.end(), Wanted{element.row(), 0}, byRow);
        for (; row != wanted.end() && row->row == element.row(); ++row)
            found[size_t(row->slot)].position = position;
    }
}

QMap<Record, int> IndexSort::indexOfs(const QList<Record> &records) const
{
    std::vector<const Record *> rows;
    rows.reserve(size_t(records.size()));
    for (const Record &record : records) {
        if (!record.isNull())
            rows.push_back(&record);
    }
    const std::vector<Found> found = findRows(rows, true).found;
    QMap<Record, int> result;
    if (rows.size() < size_t(records.size()))
        result.insert(Record(), -1);
    for (size_t i = 0; i < rows.size(); ++i)
        result.insert(*rows[i], found[i].position);
    return result;
}
