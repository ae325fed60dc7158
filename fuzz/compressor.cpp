// Decompressing any bytes, through any sizes of buffers and pieces, beside zlib in one go.

#include "fuzztarget.h"

#include <database/persistence/qtiocompressor.h>

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace
{

constexpr int kMaxOutput = 2 * 1024 * 1024;

/// Gives bytes in pieces as a socket or a slow file does, then ends or fails.
class PieceDevice : public QIODevice
{
public:
    PieceDevice(const QByteArray &bytes, int piece, bool sequential, bool fails)
        : m_bytes(bytes)
        , m_piece(piece)
        , m_sequential(sequential)
        , m_fails(fails)
    {
        open(ReadOnly | Unbuffered);
    }
    bool isSequential() const override { return m_sequential; }
    qint64 size() const override { return m_bytes.size(); }
    bool atEnd() const override { return bytesAvailable() == 0; }
    qint64 bytesAvailable() const override
    {
        const qint64 own = m_sequential ? m_bytes.size() - m_at : 0; // else counted by the base
        return own + QIODevice::bytesAvailable();
    }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        if (!m_sequential)
            m_at = int(pos());
        const int n = int(std::min({size, qint64(m_piece), qint64(m_bytes.size() - m_at)}));
        if (n == 0 && m_fails && size > 0) {
            setErrorString(QStringLiteral("torn off"));
            return -1;
        }
        if (n == 0) // where to need not be anywhere then
            return 0;
        std::memcpy(data, m_bytes.constData() + m_at, size_t(n));
        m_at += n;
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QByteArray m_bytes;
    const int m_piece;
    const bool m_sequential;
    const bool m_fails;
    int m_at = 0;
};

enum class End { Whole, Cut, Damaged, TooLong };

struct Inflated {
    QByteArray data;
    int used = 0; // bytes of the input
    End end = End::Cut;
};

Inflated inflated(const QByteArray &bytes, QtIOCompressor::StreamFormat format)
{
    static constexpr int kBits[] = {15, 31, -15}; // by format
    Inflated result;
    static QByteArray out(kMaxOutput, Qt::Uninitialized); // dear to make anew for each input
    z_stream stream = {};
    require(inflateInit2(&stream, kBits[format]) == Z_OK, "zlib starts");
    QByteArray in = bytes;
    stream.next_in = reinterpret_cast<Bytef *>(in.data());
    stream.avail_in = uInt(in.size());
    stream.next_out = reinterpret_cast<Bytef *>(out.data());
    stream.avail_out = kMaxOutput;
    const int status = inflate(&stream, Z_SYNC_FLUSH);
    if (status == Z_STREAM_END)
        result.end = End::Whole;
    else if (status != Z_OK && status != Z_BUF_ERROR)
        result.end = End::Damaged;
    else if (stream.avail_out == 0)
        result.end = End::TooLong;
    result.used = in.size() - int(stream.avail_in);
    result.data = out.left(kMaxOutput - int(stream.avail_out));
    inflateEnd(&stream);
    return result;
}

QByteArray readInPieces(QtIOCompressor &compressor, int piece)
{
    QByteArray out;
    QByteArray buffer(piece, Qt::Uninitialized);
    while (out.size() < kMaxOutput) {
        require(compressor.bytesAvailable() <= 1, "bytesAvailable() is a yes or a no");
        const qint64 n = compressor.read(buffer.data(), piece);
        require(n <= piece, "a read gives no more than asked for");
        if (n <= 0)
            break;
        out.append(buffer.constData(), int(n));
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static constexpr int kBufferSizes[] = {-1, 1, 16, 17, 100, 4096, 65500};
    static constexpr int kPieces[] = {1, 3, 16, 100, 5000, 20000};
    Input input(data, size);
    const int flags = input.choice();
    const auto format = QtIOCompressor::StreamFormat(flags % 3);
    const bool fails = flags & 16;
    const int bufferSize = kBufferSizes[input.choice() % 7];
    const int devicePiece = kPieces[input.choice() % 6];
    const int readPiece = kPieces[input.choice() % 6];
    const QByteArray bytes = input.rest();

    const Inflated expected = inflated(bytes, format);
    if (expected.end == End::TooLong)
        return 0;
    PieceDevice device(bytes, devicePiece, flags & 32, fails);
    const AllocationLimit limit(bytes.size());
    QtIOCompressor compressor(&device, 6, bufferSize);
    compressor.setStreamFormat(format);
    const auto unbuffered = flags & 64 ? QIODevice::Unbuffered : QIODevice::NotOpen;
    require(compressor.open(QIODevice::ReadOnly | unbuffered), "an open device opens");
    const QByteArray out = readInPieces(compressor, readPiece);

    // What a read had decompressed before it failed is lost, so only the whole is known then.
    require(expected.data.startsWith(out), "what comes out is what went in");
    char none = 0;
    require(compressor.read(&none, 1) <= 0 && compressor.atEnd(), "behind the end nothing comes");
    require(compressor.atStreamEnd() == (expected.end == End::Whole), "a whole stream has an end");
    if (compressor.hasError()) {
        require(expected.end == End::Damaged || fails, "only what is damaged fails");
        require(compressor.read(&none, 1) == -1, "what failed stays failed");
        require(!compressor.errorString().isEmpty(), "an error has a text");
    } else {
        require(expected.end != End::Damaged, "damage is an error");
        require(out == expected.data, "all comes out");
    }
    if (expected.end == End::Whole) {
        QByteArray behind;
        for (QByteArray more; !(more = device.read(1000)).isEmpty();)
            behind += more;
        require(behind == bytes.mid(expected.used), "bytes behind the stream stay in the device");
    }
    return 0;
}
