#pragma once

#include "database/indexes/indexlist.h"

#include <QtCore/qmap.h>
#include <QtCore/qnamespace.h>

#include <memory>
#include <vector>

class SortAid;
class TieRanks;

/// A table's records, as far as filter() accepts them, in the order of a comparison that a subclass
/// supplies.
///
/// Invariants:
///  (1) Along the list compare() never decreases, outside a batch and as long as keys change only
///      through the table's batches and update().
///  (2) Records of equal keys keep the order in which they came: a new record, and one whose key
///      moved it out of order, goes behind all records with its key.
///  (3) A record stands in the list at most once.
///
/// A batch of m changes over n records costs O(m log n) comparisons and one pass over the chunks
/// that it touches: preprocess() notes the positions by the old keys. A batch that comes without
/// preprocess() finds changed keys by a scan of the handles. One of an eighth of the records and
/// more goes through the whole list instead, in O(n + m log m). An index that tells by setColumns()
/// what it reads is passed by where nothing of that changes, and compares most rows by numbers
/// taken from their key cells, without calling compare().
///
/// Ties are found in O(log n) as well, however many: once a row has been searched for among many of
/// its key, those have marks of their order in the index, 32 to 64 bytes each.
///
/// Of an index of doubles that tells its columns NaN stands behind infinity and equals itself only.
/// compareCells() finds it equal to everything, which is no order: where columns are not told,
/// records beside it may stand anywhere.
///
/// build(), resort() and process() work on the list: they call neither add(), remove() nor
/// update(), which a class may override to hear of what comes singly (Table::appendRow(),
/// updated(), remove()). What is to hear of everything overrides build() and process(). Searches
/// for a null record find nothing.
///
/// Debug builds look for records out of order behind each batch and assert: somebody has written a
/// key cell without Table::updated(), or compare() reads a column that was not told.
///
/// compare() and filter() see rows that nobody writes meanwhile; compare() is called from several
/// threads at once while the index sorts and, where the index has told its columns, while it takes
/// a large batch. When one of them throws inside a batch, the batch does not reach the index: it
/// has to be rebuilt, a master index resorted.
class DATABASE_EXPORT IndexSort : public IndexList
{
public:
    /// compare(a, b) < 0, for sorts and merges.
    class LessThan
    {
    public:
        explicit LessThan(const IndexSort *index)
            : m_index(index)
        {
        }
        bool operator()(const Record &a, const Record &b) const
        {
            return m_index->compare(a, b) < 0;
        }

    private:
        const IndexSort *m_index;
    };

    /// compare(element, key), for searches.
    class Compare
    {
    public:
        explicit Compare(const IndexSort *index)
            : m_index(index)
        {
        }
        int operator()(const Record &element, const Record &key) const
        {
            return m_index->compare(element, key);
        }

    private:
        const IndexSort *m_index;
    };

    IndexSort(Table *table, bool addToTable);
    ~IndexSort() override;

    void clear() override;
    void build() override;
    void add(const Record &record) override;
    void remove(const Record &record, int index) override;
    void removeRanges(const RangeSet<int> &ranges) override;
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                    int colTo, const QList<Record> &inserted,
                    const QList<Record> &updatedValues) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override;
    /// Puts a record that already holds its new values where it belongs. A key that changed unseen
    /// is found by a scan, with a warning.
    void update(const Record &record, int colFrom, int colTo, int index) override;
    /// Position of this very row, by its key; by a scan where the key no longer fits its place.
    int indexOf(const Record &record) const override;
    QString getClassName() const override;
    /// As IndexList::move(). Only for records of equal keys does the order stay sorted.
    void move(int first, int last, int to) override;

    /// Negative if \p a sorts before \p b, 0 for equal keys, positive if after.
    virtual int compare(const Record &a, const Record &b) const = 0;
    /// The record at search(key, from), or a null record.
    virtual Record find(const Record &key, int from) const;

    /// find(key, -1) for each of many keys, in step with them. Where the index has told its columns
    /// by setColumns(), the searches go on side by side, so that they do not wait for memory one
    /// after the other.
    QList<Record> findAll(const QList<Record> &keys) const;

    // Searches look at the positions from + 1 .. count() - 1; -1 means that nothing matches.

    /// The first position that compares equal. O(log n).
    virtual int search(const Record &key, int from) const;
    /// The last position that compares equal. O(log n).
    virtual int searchLast(const Record &key, int from) const;
    /// Walks from position from + 1 to the first match and returns the number of records stepped
    /// over: counted from from + 1, not from 0.
    virtual int searchFull(const Record &key, int from) const;
    /// Sorts the whole list again, stably; 512 records and more on several threads. The call for
    /// when key cells were written unseen, or the index threw.
    virtual void resort();

    /// Where a new record would be inserted: behind all records with its key.
    int indexOfAdd(const Record &record) const;
    class RowExchange;

    /// The position of each record, -1 where it does not stand in the index. One scan at most.
    QMap<Record, int> indexOfs(const QList<Record> &records) const;

    /// Whether invariants (1) and (3), and those of what the index keeps beside the list, hold.
    /// O(n) comparisons; for tests and for looking after a fault.
    bool verify() const;

    /// The first position behind \p from whose element compares equal to \p key by
    /// \p compare(element, key), or -1.
    template<class Key, class Comparison>
    int searchBinary(const Key &key, int from, Comparison compare) const;

protected:
    // What an index tells of its comparison holds for objects of the very class whose constructor
    // tells it, as a class derived from that may override compare() and filter(). A derived class
    // inherits nothing of it: it tells again, or is compared by compare() alone and sees every
    // update.

    /// Tells, from a constructor, that compare() orders by the columns \p sorted before anything
    /// else, as compareCells() does, the most significant first, all ascending or all descending,
    /// and that apart from them compare() and filter() read \p others at most, and what never
    /// changes in a live row. Replaces what was told before; no columns at all tell nothing, as
    /// forgetColumns().
    ///
    /// Records that come to stand side by side are compared by compare() as well: all that
    /// come by add() and update(), one in eight of a batch, one in sixteen of build() and resort()
    /// (in debug builds all). Where
    /// that contradicts what was told, a warning names the class and the table, the index forgets
    /// its columns and is sorted anew. Columns that compare() reads and nobody told of are noticed
    /// only when that leaves records out of order that are compared.
    /// \throws QString that names table and column for a column that does not exist; what was told
    /// before stays then
    void setColumns(const QList<int> &sorted, const QList<int> &others = {},
                    Qt::SortOrder order = Qt::AscendingOrder);
    /// The same where compare() orders by \p length bytes at \p offset of a row, both multiples of
    /// 8, which the columns \p read lie in, and by nothing else.
    /// \throws QString as setColumns(), and for bytes outside of the cells
    void setKeyBytes(const QList<int> &read, qint64 offset, qint64 length);
    /// Takes back what was told: compare() alone decides.
    void forgetColumns();
    /// Tells, from a constructor, that no two records are to have the same key: the first that
    /// comes beside an equal one, where the index looks at that anyway, is warned of once. The
    /// index holds both all the same.
    void expectUniqueKeys() { m_isKey = true; }
    /// Whether one of the columns told lies in a range; -1 is the first and the last column. True
    /// when none were told, or by a base class only.
    bool reads(int colFrom, int colTo) const;

private:
    friend class SortBatch;
    friend class SortSweep;

    struct Found;
    struct Finds;
    struct Note;

    /// A row whose position goes to a slot of a list of positions.
    struct Wanted {
        const uchar *row;
        int slot;
    };

    /// Positions first..last - 1 of records of one key; none at first.
    struct Run {
        int first = 0;
        int last = 0;
    };

    class RowFinder;
    struct Among;
    struct KeySearch;

    /// On which side of its equals a key is looked for.
    enum class Side { Before, Behind };

    int bound(const Record &key, Side side, int from, int to) const;
    int boundAmong(const Among &among, const Record &key, Side side) const;
    int searchByDigest(quint64 digest, const Record &key, int from) const;
    bool comparesDigests() const;
    void findTile(const Record *keys, int n, QList<Record> &found) const;
    SortAid *aid() const;
    bool isMatch(int position, quint64 digest, const Record &key) const;
    int searchComparing(const Record &key, int first) const;
    bool contradicts(const Record &key, int position, int first) const;
    int findByKey(const Record &record, Run *scanned = nullptr) const;
    int findAmong(const Among &among, const Record &record, Run *scanned) const;
    int findBehind(int first, const Record &record, Run *scanned) const;
    void rankTies(const Run &run);
    int order(const Record &a, const Record &b) const;
    bool settled(int position);
    void metEqual(const Record &record);
    bool contradictsSomewhere() const;
    void distrust();
    void takeOut(const Record &record, int position);
    void assertOrder(bool isPassedBy);
    Finds findRows(const std::vector<const Record *> &rows, bool rejectedToo) const;
    int lowerBound(const Record &key) const { return bound(key, Side::Before, 0, count()); }
    int upperBound(const Record &key, int from, int to) const
    {
        return bound(key, Side::Behind, from, to);
    }
    void scanForRows(std::vector<Wanted> &wanted, std::vector<Found> &found) const;
    void resortByDigests();
    bool noteOne(const Record &record, const Record &value);
    bool processOne(const Record &record);
    void settle(const Record &record, int index, bool behindEquals);
    void settleTick(const Record &record, int index);
    int compareTick(const Record &record, int position) const;
    void follow(int removed, int inserted, const Record &record);

    std::vector<int> m_noteOrder; // the numbers of the notes, as Finds::order
    std::vector<Note> m_notes;    // a batch's removed, then updated records; empty outside a batch
    std::unique_ptr<SortAid> m_aid;   // null until the index tells its columns; see aid()
    std::unique_ptr<TieRanks> m_ties; // of runs of ties; null until one is searched
    bool m_isMoved = false;           // by hand, since it was sorted
    bool m_isKey = false;             // see expectUniqueKeys()
    bool m_isEqualTold = false;       // that two records have the same key
    int m_asserted = 0;               // where assertOrder() goes on
};

// ------------------------------------------------------------------------------------------------

template<class Key, class Comparison>
int IndexSort::searchBinary(const Key &key, int from, Comparison compare) const
{
    const int first = qMax(from, -1) + 1;
    if (first >= count())
        return -1;
    const int position = m_list.partitionPoint(
        first, count(), [&](const Record &element) { return compare(element, key) < 0; });
    return position < count() && compare(m_list.at(position), key) == 0 ? position : -1;
}
