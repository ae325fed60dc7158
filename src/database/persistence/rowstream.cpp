#include "database/persistence/rowstream.h"

#include "database/persistence/rowformat.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qiodevice.h>

namespace
{

// Large enough that a call of the device costs nothing against it, small enough for a second-level
// cache.
constexpr qint64 kBlockBytes = 256 * 1024;

} // namespace

RowWriter::RowWriter(QDataStream &stream, const RowFormat &format)
    : m_stream(stream)
    , m_format(format)
    , m_block(size_t(qMax(kBlockBytes, format.packedSize())))
{
}

void RowWriter::write(const uchar *data)
{
    const auto size = size_t(m_format.packedSize());
    if (m_used + size > m_block.size())
        finish();
    m_format.pack(m_block.data() + m_used, data);
    m_used += size;
}

void RowWriter::finish()
{
    // A row may be longer than the stream takes at once.
    constexpr size_t kPiece = size_t(1) << 30;
    for (size_t at = 0; at < m_used; at += kPiece) {
        m_stream.writeRawData(reinterpret_cast<const char *>(m_block.data()) + at,
                              int(qMin(m_used - at, kPiece)));
    }
    m_used = 0;
}

RowReader::RowReader(QDataStream &stream, const RowFormat &format, qint64 rowCount)
    : m_stream(stream)
    , m_format(format)
    , m_left(qMax(rowCount, qint64(0)))
{
}

bool RowReader::hasNext()
{
    if (m_at == m_whole && m_left > 0)
        readBlock();
    return m_at < m_whole;
}

uchar *RowReader::next()
{
    if (!hasNext())
        return nullptr;
    uchar *const packed = m_block.data() + m_at;
    m_at += m_format.packedSize();
    m_format.dropMalformed(packed);
    return packed;
}

void RowReader::readBlock()
{
    const qint64 size = m_format.packedSize();
    const qint64 rows = size == 0 ? 0 : qMin(m_left, qMax(kBlockBytes / size, qint64(1)));
    const qint64 wanted = rows * size;
    qint64 got = 0;
    while (got < wanted) {
        // The block grows only behind bytes that came.
        if (got == qint64(m_block.size()))
            m_block.resize(size_t(qMin(wanted, qMax(2 * got, kBlockBytes))));
        const qint64 room = qMin(wanted, qint64(m_block.size())) - got;
        const qint64 n =
            m_stream.device()->read(reinterpret_cast<char *>(m_block.data()) + got, room);
        if (n <= 0)
            break;
        got += n;
    }
    m_left -= rows;
    if (got < wanted) {
        m_stream.setStatus(QDataStream::ReadPastEnd);
        m_left = 0;
        m_cut = got % size;
    }
    m_at = 0;
    m_whole = got - m_cut;
}
