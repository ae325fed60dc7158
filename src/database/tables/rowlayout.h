#pragma once

#include <QtCore/qatomic.h>
#include <QtCore/qglobal.h>

class Table;

/// The fixed front of every row block. Behind it lie the cells in column order, each rounded up to
/// 8 bytes, and then the presence bitmap: bit (i mod 8) of byte i / 8 is set when cell i holds a
/// value.
struct RowHeader {
    QBasicAtomicInt refCount; ///< handles (Record) that share the row; changed atomically only
    qint32 reserved;          ///< zero
    Table *table;             ///< owner; not looked at when the row is freed
};
static_assert(sizeof(RowHeader) == 16, "the data area begins 16 bytes into a row");

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
