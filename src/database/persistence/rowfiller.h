#pragma once

#include "database/persistence/rowformat.h"
#include "database/persistence/tableio.h"

#include <vector>

/// Makes rows of a table from packed rows of a file with other columns.
///
/// Columns that agree are copied from the packed row, neighbours in one stretch. Only the columns
/// of other convertors pass through a scratch row with the file's layout.
class RowFiller
{
public:
    /// \param saved       an empty table with the columns of \p format
    /// \param convertors  from \p saved to \p target, as TableIO::make_fromDefs() gives them
    /// \throws std::bad_alloc
    RowFiller(const RowFormat &format, const Table &saved, const Table &target,
              const QList<FieldDefConvertor *> &convertors);

    /// \param row     a new row block of the target
    /// \param packed  a row of the file, or null for one that the file does not hold: every
    ///                convertor sees the values of a new row then
    void fill(uchar *row, const uchar *packed);

private:
    struct Presence {
        qint64 packedByte;
        qint64 rowByte; // in the data area
        quint8 packedMask;
        quint8 rowMask;
    };

    void planCopies(const RowFormat &format, const Table &target,
                    const QList<TableIO::Range> &copies);

    const RowFormat &m_format; // borrowed
    Record m_scratch;
    std::vector<uchar> m_initial; // the packed form of a new row
    std::vector<RowSpan> m_spans;
    std::vector<Presence> m_presence;
    QList<FieldDefConvertor *> m_convertors; // those that do more than copying
};
