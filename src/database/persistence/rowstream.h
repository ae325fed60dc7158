#pragma once

#include "database/services/concurrently.h"

#include <QtCore/qglobal.h>

#include <vector>

class QDataStream;
class RowFormat;

/// Rows on their way into a stream, packed into blocks. While one block is handed over, which the
/// thread that writes does, the next one is packed by another thread where one is at hand. Errors
/// are the stream's status.
class RowWriter
{
public:
    RowWriter(QDataStream &stream, const RowFormat &format);

    /// \p data is the data area of a row block, which stays as it is until finish().
    void write(const uchar *data);
    /// Hands over what is left. Without it the last rows are not written.
    void finish();

private:
    void turn();
    void pack();
    void handOver();

    QDataStream &m_stream;     // borrowed
    const RowFormat &m_format; // borrowed
    const size_t m_blockRows;
    std::vector<const uchar *> m_rows; // to be packed
    std::vector<uchar> m_packing;
    std::vector<uchar> m_packed; // to be handed over
    Concurrently::Crew m_crew;
};

/// Packed rows out of a stream, read in blocks: never a byte more than the rows asked for, and
/// never memory for bytes that the stream did not deliver.
class RowReader
{
public:
    RowReader(QDataStream &stream, const RowFormat &format, qint64 rowCount);

    /// The next packed row, with malformed cells made NULL, valid until the next call; null when
    /// the rows are through or the stream does not hold another whole one (its status tells).
    uchar *next();
    /// Whether there is a next row; reads it where needed.
    bool hasNext();
    /// Bytes at the end of the stream that did not make a whole row.
    qint64 cutBytes() const { return m_cut; }
    /// Cells made NULL up to now.
    qint64 malformedCells() const { return m_malformed; }

private:
    void readBlock();

    QDataStream &m_stream;     // borrowed
    const RowFormat &m_format; // borrowed
    qint64 m_left;             // rows that are not in the block yet
    std::vector<uchar> m_block;
    qint64 m_at = 0;    // the next row in the block, in bytes
    qint64 m_whole = 0; // the end of the block's whole rows
    qint64 m_cut = 0;
    qint64 m_malformed = 0;
};
