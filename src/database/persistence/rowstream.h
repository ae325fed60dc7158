#pragma once

#include <QtCore/qglobal.h>

#include <vector>

class QDataStream;
class RowFormat;

/// Packed rows on their way into a stream, handed over in blocks. Errors are the stream's status.
class RowWriter
{
public:
    RowWriter(QDataStream &stream, const RowFormat &format);

    /// \p data is the data area of a row block.
    void write(const uchar *data);
    /// Hands over what is left. Without it the last rows are not written.
    void finish();

private:
    QDataStream &m_stream;     // borrowed
    const RowFormat &m_format; // borrowed
    std::vector<uchar> m_block;
    size_t m_used = 0;
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

private:
    void readBlock();

    QDataStream &m_stream;     // borrowed
    const RowFormat &m_format; // borrowed
    qint64 m_left;             // rows that are not in the block yet
    std::vector<uchar> m_block;
    qint64 m_at = 0;    // the next row in the block, in bytes
    qint64 m_whole = 0; // the end of the block's whole rows
    qint64 m_cut = 0;
};
