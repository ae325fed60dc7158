// How a sorted index finds many records at once.

#include "database/indexes/indexsort.h"

#include <algorithm>

namespace
{

// Rows of one key that are looked at by identity before the end of the key's run is searched for.
constexpr int kProbes = 8;

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

// The position of this very row where its key says that it stands, or -1.
int IndexSort::findByKey(const Record &record) const
{
    const int first = lowerBound(record);
    const int probed = qMin(first + kProbes, count());
    const int position = scanForRow(record, first, probed);
    if (position != -1 || probed == count())
        return position;
    return scanForRow(record, probed, upperBound(record, probed, count()));
}

// The positions of these very rows, -1 where one does not stand here: by their keys, and for those
// that are not found that way, if the filter accepts them or rejected ones are wanted too, by one
// scan over the index.
std::vector<int> IndexSort::findRows(const std::vector<const Record *> &rows,
                                     bool rejectedToo) const
{
    std::vector<int> positions;
    positions.reserve(rows.size());
    std::vector<Wanted> wanted;
    int patience = count(); // handles that may be looked at one by one before a scan is cheaper
    for (const Record *record : rows) {
        const int first = lowerBound(*record);
        const int probed = qMin(first + kProbes, count());
        int position = scanForRow(*record, first, probed);
        if (position == -1) {
            const int last = probed < count() ? upperBound(*record, probed, count()) : probed;
            const bool scanned = last - probed <= patience;
            if (scanned) {
                patience -= last - probed;
                position = scanForRow(*record, probed, last);
            }
            if (position == -1 && (!scanned || rejectedToo || filter(*record)))
                wanted.push_back({record->row(), int(positions.size())});
        }
        positions.push_back(position);
    }
    scanForRows(wanted, positions);
    return positions;
}

// Looks all wanted rows up in one walk over the index; sorts them by row for that.
void IndexSort::scanForRows(std::vector<Wanted> &wanted, std::vector<int> &positions) const
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
        auto found =
            std::lower_bound(wanted.begin(), wanted.end(), Wanted{element.row(), 0}, byRow);
        for (; found != wanted.end() && found->row == element.row(); ++found)
            positions[size_t(found->slot)] = position;
    }
}

QMap<Record, int> IndexSort::indexOfs(const QList<Record> &records) const
{
    std::vector<const Record *> rows;
    rows.reserve(size_t(records.size()));
    for (const Record &record : records)
        rows.push_back(&record);
    const std::vector<int> positions = findRows(rows, true);
    QMap<Record, int> result;
    for (int i = 0; i < records.size(); ++i)
        result.insert(records.at(i), positions[size_t(i)]);
    return result;
}
