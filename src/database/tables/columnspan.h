#pragma once

#include "database/tables/columndef.h"
#include "database/tables/prefetch.h"
#include "database/tables/rowlayout.h"

#include <QtCore/qlist.h>

#include <cstring>

/// What copying some adjacent columns from row to row moves, worked out once for many rows: one
/// stretch of the data area, and exactly their bits of the bitmap.
class ColumnSpan
{
public:
    /// Columns \p first..last of a table; below 0 they mean the first and the last column.
    /// \param dataLength  bytes of a row's data area
    ColumnSpan(const QList<TableColumnDef *> &columns, qint64 dataLength, int first, int last);

    void copy(uchar *dst, const uchar *src) const;
    /// Asks for what copy() is about to read or write in a row.
    void prefetch(const uchar *row) const
    {
        ::prefetch(row + m_offset);
        ::prefetch(row + m_bitmap);
    }

private:
    static void mergeByte(uchar &dst, uchar src, unsigned mask)
    {
        dst = uchar((dst & ~mask) | (src & mask));
    }

    qint64 m_offset = kRowHeaderSize;
    qint64 m_length = 0;
    qint64 m_bitmap = kRowHeaderSize; // of the first byte that holds one of the bits
    int m_moreBytes = -1;             // of the bitmap, behind that one; -1 when there is no column
    unsigned m_firstMask = 0;         // of the bits in the first byte, and in the last one
    unsigned m_lastMask = 0;
};

// ------------------------------------------------------------------------------------------------

inline ColumnSpan::ColumnSpan(const QList<TableColumnDef *> &columns, qint64 dataLength, int first,
                              int last)
{
    first = qMax(first, 0);
    last = last < 0 ? columns.size() - 1 : qMin(last, columns.size() - 1);
    if (first > last)
        return;
    const TableColumnDef &lastColumn = *columns.at(last);
    m_offset += columns.at(first)->offset;
    m_length = kRowHeaderSize + lastColumn.offset + roundedCell(lastColumn.size) - m_offset;
    m_bitmap += dataLength + first / 8;
    m_moreBytes = last / 8 - first / 8;
    m_firstMask = 0xFFu << (first % 8);
    m_lastMask = 0xFFu >> (7 - last % 8);
}

inline void ColumnSpan::copy(uchar *dst, const uchar *src) const
{
    if (m_moreBytes < 0)
        return;
    std::memcpy(dst + m_offset, src + m_offset, size_t(m_length));
    uchar *const dstBits = dst + m_bitmap;
    const uchar *const srcBits = src + m_bitmap;
    if (m_moreBytes == 0) {
        mergeByte(*dstBits, *srcBits, m_firstMask & m_lastMask);
        return;
    }
    mergeByte(*dstBits, *srcBits, m_firstMask);
    std::memcpy(dstBits + 1, srcBits + 1, size_t(m_moreBytes - 1));
    mergeByte(dstBits[m_moreBytes], srcBits[m_moreBytes], m_lastMask);
}
