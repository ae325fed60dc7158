#include "database/persistence/rowstream.h"

#include "database/persistence/rowformat.h"
#include "database/tables/prefetch.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qiodevice.h>

#include <atomic>
#include <thread>
#include <utility>

namespace
{

// Large enough that a call of the device costs nothing against it, small enough for a second-level
// cache.
constexpr qint64 kBlockBytes = 256 * 1024;

} // namespace

RowWriter::RowWriter(QDataStream &stream, const RowFormat &format)
    : m_stream(stream)
    , m_format(format)
    , m_blockRows(size_t(qMax(kBlockBytes / qMax(format.packedSize(), qint64(1)), qint64(1))))
{
}

void RowWriter::write(const uchar *data)
{
    m_rows.push_back(data);
    if (m_rows.size() == m_blockRows)
        turn();
}

void RowWriter::finish()
{
    turn();
    handOver();
}

// Hands the packed block over and packs the next one.
void RowWriter::turn()
{
    if (m_packed.empty()) {
        pack();
    } else {
        const std::thread::id writer = std::this_thread::get_id();
        bool isHandedOver = false; // of the writing thread
        std::atomic<bool> isPacked{false};
        const auto doNext = [&] {
            if (std::this_thread::get_id() == writer && !std::exchange(isHandedOver, true))
                handOver();
            else if (!isPacked.exchange(true))
                pack();
        };
        Concurrently::forEach(
            2, [&](int) { doNext(); }, Concurrently::share);
        if (!isHandedOver) // another thread took both calls
            doNext();
    }
    m_packed.swap(m_packing);
    m_packing.clear();
    m_rows.clear();
}

// Rows lie anywhere in memory, so they are asked for some steps ahead.
void RowWriter::pack()
{
    constexpr size_t kAhead = 8;
    constexpr qint64 kLine = 64;
    const auto size = size_t(m_format.packedSize());
    m_packing.resize(m_rows.size() * size);
    for (size_t i = 0; i < m_rows.size(); ++i) {
        if (i + kAhead < m_rows.size()) {
            for (qint64 at = 0; at < m_format.rowSize(); at += kLine)
                prefetch(m_rows[i + kAhead] + at);
        }
        m_format.pack(m_packing.data() + i * size, m_rows[i]);
    }
}

void RowWriter::handOver()
{
    // A row may be longer than the stream takes at once.
    constexpr size_t kPiece = size_t(1) << 30;
    for (size_t at = 0; at < m_packed.size(); at += kPiece) {
        m_stream.writeRawData(reinterpret_cast<const char *>(m_packed.data()) + at,
                              int(qMin(m_packed.size() - at, kPiece)));
    }
    m_packed.clear();
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
    m_malformed += m_format.dropMalformed(packed);
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
