#pragma once

#include <QtCore/qatomic.h>
#include <QtCore/qglobal.h>

class Table;

/// The fixed front of every row block. Behind it lie the cells in column order, each rounded up to
/// 8 bytes, and then the presence bitmap: bit (i mod 8) of byte i / 8 is set when cell i holds a
/// value.
struct RowHeader {
    QBasicAtomicInt refCount; ///< handles (Record) that share the row; changed atomically only
    quint32 flags; ///< RowFlag; written under the table's lock, or by a row's only holder
    Table *table;  ///< owner; not looked at when the row is freed
};
static_assert(sizeof(RowHeader) == 16, "the data area begins 16 bytes into a row");

/// What a table and its batches know about a row. A row without flags may still stand in the table:
/// one that was put into the master index behind the table's back.
enum RowFlag : quint32 {
    kRowInTable = 1,  ///< the master index holds it
    kRowNamed = 2,    ///< the batch at hand has named it already
    kRowTracks = 4,   ///< pending: behind the presence bitmap, a bit per column that was written
    kRowUpserted = 8, ///< pending: meant for whichever row has its key when the batch runs
    kRowPartial = 16, ///< pending: holds nothing but what was written, and is no copy of a live row
};

constexpr qint64 kRowHeaderSize = qint64(sizeof(RowHeader));

inline RowHeader *rowHeader(uchar *row)
{
    return reinterpret_cast<RowHeader *>(row);
}
inline const RowHeader *rowHeader(const uchar *row)
{
    return reinterpret_cast<const RowHeader *>(row);
}

/// Bytes that a cell of the given size occupies in a row.
constexpr qint64 roundedCell(qint64 size)
{
    return (size + 7) & ~qint64(7);
}

/// Bytes of the presence bitmap of a row with that many columns.
constexpr qint64 bitmapSize(qint64 columnCount)
{
    return (columnCount + 7) / 8;
}
