#pragma once

#include "database/record.h"
#include "database/tables/columndef.h"
#include "database/tables/prefetch.h"

#include <QtCore/qlist.h>
#include <QtCore/qnamespace.h>

#include <cmath>
#include <cstring>
#include <vector>

class Table;

/// Numbers that stand for the sort keys of rows: the digest of a row is 64 bits read from its key
/// cells, so that rows are ordered by arithmetic instead of by calls of compare().
///
/// Invariants:
///  (1) Of two rows that the key covers, the one with the smaller digest sorts first. Equal digests
///      say nothing: compare() decides.
///  (2) Digests are comparable with each other until learn() or reset() says otherwise.
///
/// A number's digest is its value. Of keys that begin with a text, or are compared as bytes, those
/// bytes are left out in which all rows agree; the others are the digits of a number, each of a
/// radix that is as large as the range of its values, as many as fit 64 bits. So digests tell most
/// keys apart and lie evenly where keys do. The ranges are learned from the rows.
///
/// A row's presence bits say whether a cell is NULL, whatever its column allows: NULL comes before
/// every value. Decimals of one scale are compared by their words; from the first one of another
/// scale on they are brought to one map, which equal values of all scales share. NaN comes behind
/// every number, as one value, though compareCells() finds it equal to everything: that is no order
/// and cannot be kept, this one can.
///
/// Threads: as for a container.
class SortKey
{
public:
    /// Keys whose first \p columns are compared with compareCells(), most significant first, all in
    /// the same direction. A first column of another type than numbers, dates and texts leaves the
    /// key off.
    void setColumns(const Table &table, const QList<int> &columns, Qt::SortOrder order);
    /// Keys compared as \p length bytes at \p offset of a row; both are multiples of 8.
    void setBytes(qint64 offset, qint64 length);

    /// Whether there are digests.
    bool isOn() const { return m_kind != Kind::None; }
    /// Forgets what was learned from rows.
    void reset();
    /// Takes a row among those that the key covers. \return whether digests changed by that: those
    /// taken before are void
    bool learn(const uchar *row);
    /// Whether the key covers the row: its digest stands in the right order to those of the rows
    /// learned from, and can be read.
    bool covers(const uchar *row) const
    {
        quint64 digest;
        return covers(row, &digest);
    }
    /// The same; reads the digest of a covered row.
    bool covers(const uchar *row, quint64 *digest) const
    {
        return read(row, digest) && (m_nulls || !isNull(row));
    }
    /// Whether rows of different digests are never equal to compareCells(); NaN is, to all doubles.
    bool isTotal() const { return m_kind != Kind::Double; }
    /// Whether the digests of covered rows are equal only where all bytes of their keys are.
    bool isWhole() const { return m_whole; }
    /// The digest of a row that the key covers.
    quint64 operator()(const uchar *row) const { return ascending(row) ^ m_flip; }
    /// The digest to search with of any row. \return whether it stands in the right order to those
    /// of the rows that the key covers
    bool read(const uchar *row, quint64 *digest) const;

    /// Asks for the cache lines that the digest of a covered row reads.
    void prefetch(const uchar *row) const
    {
        ::prefetch(row + m_near);
        ::prefetch(row + m_far);
    }
    /// The same for what learn(), covers() and read() look at.
    void prefetchWhole(const uchar *row) const
    {
        prefetch(row);
        if (m_first)
            ::prefetch(row + kRowHeaderSize + m_first->nullOffset);
    }

private:
    enum class Kind { None, Integer, Integer64, Double, Decimal, MixedDecimal, Bytes };

    /// A byte of the key, in a row, and the values that it has been seen to take; xor with flip
    /// makes it order as an unsigned number.
    struct Byte {
        int offset;
        uchar flip;
        uchar low;
        uchar high;
    };
    /// A column of the key behind the first one, and the first of its bytes.
    struct Part {
        const TableColumnDef *column; // borrowed from the table
        size_t byte;
    };
    /// A digit of the number that is the digest.
    struct Digit {
        int offset;
        uchar flip;
        uchar low;
        uint radix;
        quint64 weight;
        uint read(const uchar *row) const { return uint(uchar(row[offset] ^ flip)) - low; }
    };
    /// Bytes in which all rows agree, among eight that follow each other.
    struct Agreed {
        int offset;
        quint64 value;
        quint64 mask;
    };

    template<class T>
    static T load(const uchar *at)
    {
        T value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    static quint64 ofDouble(double value)
    {
        if (std::isnan(value))
            return kNaN;
        const quint64 bits = load<quint64>(reinterpret_cast<const uchar *>(&value));
        return bits >> 63 ? ~bits : bits | kSign;
    }
    static quint64 ofDecimal(qint64 word);
    quint64 ascending(const uchar *row) const;
    quint64 ofValue(const uchar *row) const;
    bool isNull(const uchar *row) const { return m_first && isNull(row, *m_first); }
    static bool isNull(const uchar *row, const TableColumnDef &column)
    {
        return !(row[kRowHeaderSize + column.nullOffset] & column.nullMask);
    }
    const uchar *cell(const uchar *row) const { return row + m_near; }
    quint8 scaleBits(const uchar *row) const { return load<quint64>(cell(row)) >> 56 & 0x7F; }
    void appendText(const TableColumnDef &column);
    void appendInteger(const TableColumnDef &column, int size);
    void widen(const uchar *row);
    void choose();
    void findLines();

    static constexpr quint64 kSign = quint64(1) << 63;
    static constexpr quint64 kNaN = Q_UINT64_C(0xFFF8000000000000); // above infinity's

    Kind m_kind = Kind::None;
    quint64 m_flip = 0;                      // all bits where the order is descending
    bool m_learned = false;                  // whether a row was learned from
    bool m_whole = false;                    // whether bare bytes are all in the digits
    bool m_nulls = false;                    // whether one of them was NULL there
    const TableColumnDef *m_first = nullptr; // borrowed from the table; null for bare bytes
    qint64 m_near = 0;                       // place in a row of the first byte that digests read
    qint64 m_far = 0;                        // of the last one, or of the presence byte
    quint8 m_scale = 0;                      // of the decimals, as their words hold it
    std::vector<Byte> m_bytes;               // of the key, most significant first
    size_t m_byteCount = 0;                  // of them, those before the first column with a NULL
    std::vector<Part> m_parts;               // whose bytes are in m_bytes
    size_t m_partCount = 0;                  // of them, those among the first m_byteCount bytes
    std::vector<Digit> m_digits;             // those of them that vary, as many as fit
    std::vector<Agreed> m_agreed;            // those before the last digit that do not
};

// ------------------------------------------------------------------------------------------------

// While no row was NULL, a row's presence byte is not looked at: it mostly is in another cache line
// than the value.
inline quint64 SortKey::ascending(const uchar *row) const
{
    return m_nulls && isNull(row) ? 0 : ofValue(row); // below every value, or equal to the lowest
}

inline quint64 SortKey::ofValue(const uchar *row) const
{
    switch (m_kind) {
    case Kind::Integer:
        return quint64(qint64(load<qint32>(cell(row)))) ^ kSign;
    case Kind::Integer64:
    case Kind::Decimal:
        return load<quint64>(cell(row)) ^ kSign;
    case Kind::Double:
        return ofDouble(load<double>(cell(row)) + 0.0); // the zeros are equal
    case Kind::MixedDecimal:
        return ofDecimal(load<qint64>(cell(row)));
    case Kind::Bytes:
    case Kind::None:
        break;
    }
    quint64 digest = 0;
    for (const Digit &digit : m_digits)
        digest += digit.read(row) * digit.weight;
    return digest;
}

inline bool SortKey::read(const uchar *row, quint64 *digest) const
{
    if (isNull(row)) {
        *digest = m_flip;
        return true;
    }
    if (m_kind != Kind::Bytes) {
        *digest = ofValue(row) ^ m_flip;
        return m_kind != Kind::Decimal || (m_learned && scaleBits(row) == m_scale);
    }
    quint64 differing = 0;
    for (const Agreed &agreed : m_agreed)
        differing |= (load<quint64>(row + agreed.offset) ^ agreed.value) & agreed.mask;
    bool inRange = m_learned && differing == 0;
    for (size_t i = 0; i < m_partCount; ++i)
        inRange &= !isNull(row, *m_parts[i].column);
    *digest = 0;
    for (const Digit &digit : m_digits) {
        const uint value = digit.read(row);
        inRange &= value < digit.radix;
        *digest += value * digit.weight;
    }
    *digest ^= m_flip;
    return inRange;
}
