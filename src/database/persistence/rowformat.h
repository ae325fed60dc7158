#pragma once

#include <QtCore/qglobal.h>
#include <QtCore/qlist.h>

#include <vector>

class TableColumnDef;

/// Bytes that move together: neighbouring cells without padding between them, or the bitmap.
struct RowSpan {
    qint64 packed; ///< from the start of a packed row
    qint64 row;    ///< from the start of a row's data area
    qint64 size;
};

/// How the rows of a list of columns lie in a stream, and how they get from there into a row block
/// and back.
///
/// A packed row is every cell's bytes without padding, in column order, then the presence bitmap.
/// In a row block each cell is rounded up to 8 bytes; the bitmap follows the last of them.
class RowFormat
{
public:
    explicit RowFormat(const QList<TableColumnDef> &columns);

    qint64 packedSize() const { return m_packedSize; }
    /// Bytes of the data area and bitmap of a row block with these columns.
    qint64 rowSize() const { return m_rowSize; }
    qint64 bitmapOffset() const { return m_bitmapOffset; }                  ///< in a packed row
    qint64 cellOffset(int column) const { return m_cells[size_t(column)]; } ///< in a packed row

    /// \p data is the data area of a row block.
    void pack(uchar *packed, const uchar *data) const;
    void unpack(uchar *data, const uchar *packed) const;

    /// Makes those cells of a packed row NULL whose bytes no program of ours wrote: digits that are
    /// none, lists longer than they can be. The other types have a value for any bytes; of texts
    /// what lies behind their first 0 unit is cleared, as keys are compared by bytes. Presence bits
    /// without a column are cleared, and so is the byte that an extended decimal does not use.
    /// \return the number of cells made NULL
    int dropMalformed(uchar *packed) const;

    /// Appends a span, to the one before it when both lie next to each other on either side.
    static void appendSpan(std::vector<RowSpan> &spans, const RowSpan &span);

private:
    struct Checked {
        int column;
        bool isList; // else an extended decimal
    };

    struct Text {
        qint64 offset; // in a packed row
        int length;
    };

    std::vector<qint64> m_cells;
    std::vector<RowSpan> m_spans;
    std::vector<Checked> m_checked; // the columns that may be malformed
    std::vector<Text> m_texts;
    qint64 m_packedSize = 0;
    qint64 m_rowSize = 0;
    qint64 m_bitmapOffset = 0;
    uchar m_lastBits = 0; // the columns' bits in the last byte of the bitmap; 0 for all
};
