#include "database/persistence/qtiocompressor.h"

#include <QtCore/qdebug.h>
#include <QtCore/qfiledevice.h>

#include <zlib.h>

#include <algorithm>
#include <limits>

namespace
{

// A sync flush that exactly fills the buffer is asked for again and writes its marker of up to six
// bytes again: a buffer of that size would never be left with room, and flush() never end.
constexpr int kMinBufferSize = 16;

// zlib counts the bytes of one call in 32 bits; larger blocks are handed over in slices.
constexpr qint64 kMaxSlice = std::numeric_limits<uInt>::max();

constexpr int kMemoryLevel = 8; // zlib's default

constexpr char kOpening[] = "Error opening underlying device: ";
constexpr char kReading[] = "Error reading data from underlying device: ";
constexpr char kWriting[] = "Error writing to underlying device: ";
constexpr char kInternal[] = "Internal zlib error: ";
constexpr char kCompressing[] = "Internal zlib error when compressing: ";
constexpr char kDecompressing[] = "Internal zlib error when decompressing: ";

QString zlibMessage(int code)
{
    const QString text = QString::fromLatin1(zError(code));
    return text.isEmpty() ? QStringLiteral(" Unknown error, code %1").arg(code) : text;
}

/// What zlib calls window bits: the size of the window, and the kind of stream around the data.
int windowBits(QtIOCompressor::StreamFormat format)
{
    switch (format) {
    case QtIOCompressor::GzipFormat:
        return MAX_WBITS + 16;
    case QtIOCompressor::RawFormat:
        return -MAX_WBITS;
    case QtIOCompressor::ZlibFormat:
        break;
    }
    return MAX_WBITS;
}

} // namespace

class QtIOCompressorPrivate
{
public:
    enum State {
        ReadStart,  // open for reading, nothing decompressed yet
        Reading,    // inside the compressed stream
        ReadEnd,    // behind it
        WriteStart, // open for writing, nothing written yet
        Writing,    // zlib holds, or has given out, a part of a stream that must be finished
        Closed,
        Error, // kept after close(), for whoever asks then
    };

    QtIOCompressorPrivate(QtIOCompressor *owner, QIODevice *underlying, int compressionLevel,
                          int size)
        : q(owner)
        , device(underlying)
        , level(compressionLevel)
        , bufferSize(std::max(size, kMinBufferSize))
        , buffer(new Bytef[std::size_t(bufferSize)])
    {
    }

    int beginStream(bool reading);
    void endStream(bool reading);
    bool refill();
    void pushBackInput();
    bool compress(int flushMode);
    bool flushDevice();
    bool fail(const char *action, const QString &reason);

    QtIOCompressor *const q;
    QIODevice *const device;   // borrowed
    bool openedDevice = false; // so close() has to close it
    z_stream stream = {};      // its input lies in buffer when reading, its output when writing
    const int level;
    const int bufferSize;
    const std::unique_ptr<Bytef[]> buffer;
    State state = Closed;
    QString error; // what led to the state of that name
    QtIOCompressor::StreamFormat format = QtIOCompressor::ZlibFormat;

private:
    bool writeOut(qint64 size);
};

int QtIOCompressorPrivate::beginStream(bool reading)
{
    stream = {};
    return reading ? inflateInit2(&stream, windowBits(format))
                   : deflateInit2(&stream, level, Z_DEFLATED, windowBits(format), kMemoryLevel,
                                  Z_DEFAULT_STRATEGY);
}

void QtIOCompressorPrivate::endStream(bool reading)
{
    if (reading)
        inflateEnd(&stream);
    else
        deflateEnd(&stream);
}

/// Reads the next input. \return false when there is none, for now or for good, or after a failure
bool QtIOCompressorPrivate::refill()
{
    const qint64 size = device->read(reinterpret_cast<char *>(buffer.get()), bufferSize);
    if (size < 0)
        return fail(kReading, device->errorString());
    stream.next_in = buffer.get();
    stream.avail_in = uInt(size);
    if (size > 0)
        state = Reading;
    return size > 0;
}

/// Gives back what was read past the end of the compressed stream.
void QtIOCompressorPrivate::pushBackInput()
{
    while (stream.avail_in > 0)
        device->ungetChar(char(stream.next_in[--stream.avail_in]));
}

/// Compresses all input and writes out what zlib gives. \return false after a failure
bool QtIOCompressorPrivate::compress(int flushMode)
{
    int status = Z_OK;
    do {
        stream.next_out = buffer.get();
        stream.avail_out = uInt(bufferSize);
        status = deflate(&stream, flushMode);
        // A buffer error only says that there was nothing to do, as in a second flush.
        if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR)
            return fail(kCompressing, zlibMessage(status));
        // Not only when output comes: zlib gathers, and what it has taken must be finished.
        state = Writing;
        if (!writeOut(bufferSize - qint64(stream.avail_out)))
            return false;
    } while (stream.avail_out == 0 && status != Z_STREAM_END);
    return true;
}

/// Writes the first \p size bytes of the buffer, in as many steps as the device takes.
bool QtIOCompressorPrivate::writeOut(qint64 size)
{
    for (qint64 done = 0; done < size;) {
        const qint64 step =
            device->write(reinterpret_cast<const char *>(buffer.get()) + done, size - done);
        if (step <= 0) // nor is waiting for a device that takes nothing: it may never
            return fail(kWriting, device->errorString());
        done += step;
    }
    return true;
}

/// A file reports a full disk when it empties its own buffer, not when it is written to.
bool QtIOCompressorPrivate::flushDevice()
{
    auto *const file = qobject_cast<QFileDevice *>(device);
    return !file || file->flush() || fail(kWriting, file->errorString());
}

bool QtIOCompressorPrivate::fail(const char *action, const QString &reason)
{
    state = Error;
    error = QLatin1String(action) + reason;
    q->setErrorString(error);
    return false;
}

QtIOCompressor::QtIOCompressor(QIODevice *device, int compressionLevel, int bufferSize)
    : m_d(std::make_unique<QtIOCompressorPrivate>(this, device, compressionLevel, bufferSize))
{
}

QtIOCompressor::~QtIOCompressor()
{
    QtIOCompressor::close();
}

QtIOCompressor::StreamFormat QtIOCompressor::streamFormat() const
{
    return m_d->format;
}

void QtIOCompressor::setStreamFormat(StreamFormat format)
{
    if (format == GzipFormat && !checkGzipSupport(ZLIB_VERSION))
        qWarning("QtIOCompressor::setStreamFormat: zlib 1.2.x or higher is required to use the "
                 "gzip format. Current version is: %s",
                 ZLIB_VERSION);
    m_d->format = format;
}

bool QtIOCompressor::isGzipSupported()
{
    return checkGzipSupport(zlibVersion());
}

bool QtIOCompressor::checkGzipSupport(const char *version)
{
    if (qstrlen(version) < 3 || version[0] == '0')
        return false;
    return version[0] != '1' || (version[2] > '1' && version[2] <= '9');
}

bool QtIOCompressor::open(OpenMode mode)
{
    if (isOpen()) {
        qWarning("QtIOCompressor::open: device already open");
        return false;
    }
    m_d->state = QtIOCompressorPrivate::Closed;
    setErrorString(QString());
    const OpenMode direction = mode & ReadWrite;
    if (direction != ReadOnly && direction != WriteOnly) {
        qWarning("QtIOCompressor::open: QtIOCompressor can only be opened in the ReadOnly or "
                 "WriteOnly modes");
        return false;
    }
    if (m_d->device->isOpen() && !(m_d->device->openMode() & direction)) {
        qWarning("QtIOCompressor::open: underlying device must be open in one of the ReadOnly or "
                 "WriteOnly modes");
        return false;
    }

    const bool reading = direction == ReadOnly;
    if (m_d->format == GzipFormat && !isGzipSupported()) {
        setErrorString(QStringLiteral("The gzip format not supported in this version of zlib."));
        return false;
    }
    if (const int status = m_d->beginStream(reading); status != Z_OK) {
        setErrorString(QLatin1String(kInternal) + zlibMessage(status));
        return false;
    }
    m_d->openedDevice = !m_d->device->isOpen();
    // Text mode is for what comes out of here; compressed bytes must not be touched.
    if (m_d->openedDevice && !m_d->device->open(mode & ~OpenMode(Text))) {
        m_d->endStream(reading);
        setErrorString(QLatin1String(kOpening) + m_d->device->errorString());
        return false;
    }
    m_d->state = reading ? QtIOCompressorPrivate::ReadStart : QtIOCompressorPrivate::WriteStart;
    return QIODevice::open(mode);
}

void QtIOCompressor::close()
{
    if (!isOpen())
        return;
    const bool reading = openMode() & ReadOnly;
    // First, because it tells those who still have something to write, text streams among them.
    QIODevice::close();
    if (m_d->state == QtIOCompressorPrivate::Writing && m_d->compress(Z_FINISH))
        m_d->flushDevice();
    m_d->endStream(reading);
    if (m_d->openedDevice)
        m_d->device->close();
    if (hasError())
        setErrorString(m_d->error); // QIODevice::close() forgot it
    else
        m_d->state = QtIOCompressorPrivate::Closed;
}

bool QtIOCompressor::flush()
{
    return (openMode() & WriteOnly) && !hasError() && m_d->compress(Z_SYNC_FLUSH) &&
           m_d->flushDevice();
}

bool QtIOCompressor::isSequential() const
{
    return true;
}

qint64 QtIOCompressor::bytesAvailable() const
{
    if (!(openMode() & ReadOnly))
        return 0;
    qint64 expected = 0;
    if (m_d->state == QtIOCompressorPrivate::ReadStart)
        expected = m_d->device->bytesAvailable();
    else if (m_d->state == QtIOCompressorPrivate::Reading)
        expected = 1;
    return expected + QIODevice::bytesAvailable() > 0 ? 1 : 0;
}

bool QtIOCompressor::atEnd() const
{
    // A truncated stream never ends for zlib. It is over when zlib has used all input, had room for
    // more output than that gave, and the device will deliver no more.
    const bool truncated = m_d->state == QtIOCompressorPrivate::Reading &&
                           m_d->stream.avail_in == 0 && m_d->stream.avail_out > 0 &&
                           m_d->device->atEnd();
    return QIODevice::atEnd() || (truncated && QIODevice::bytesAvailable() == 0);
}

bool QtIOCompressor::atStreamEnd() const
{
    return m_d->state == QtIOCompressorPrivate::ReadEnd;
}

bool QtIOCompressor::hasError() const
{
    return m_d->state == QtIOCompressorPrivate::Error;
}

qint64 QtIOCompressor::readData(char *data, qint64 maxSize)
{
    if (hasError())
        return -1;
    if (maxSize < 1 || atStreamEnd())
        return 0;
    z_stream &stream = m_d->stream;
    stream.next_out = reinterpret_cast<Bytef *>(data);
    qint64 left = maxSize;
    while (left > 0) {
        const qint64 slice = std::min(left, kMaxSlice);
        stream.avail_out = uInt(slice);
        // Before any reading: zlib may hold output for which the last call had no room, and the
        // device may make its reader wait.
        const int status = inflate(&stream, Z_SYNC_FLUSH);
        left -= slice - qint64(stream.avail_out);
        if (status == Z_STREAM_END) {
            m_d->state = QtIOCompressorPrivate::ReadEnd;
            m_d->pushBackInput();
            break;
        }
        if (status != Z_OK && status != Z_BUF_ERROR) { // the latter wants input
            m_d->fail(kDecompressing, zlibMessage(status));
            break;
        }
        if (stream.avail_in == 0 && stream.avail_out > 0 && !m_d->refill())
            break;
    }
    return hasError() ? -1 : maxSize - left;
}

qint64 QtIOCompressor::writeData(const char *data, qint64 maxSize)
{
    if (maxSize < 1)
        return 0;
    if (hasError())
        return -1;
    // zlib does not write to its input; its interface is only older than const.
    m_d->stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data));
    for (qint64 left = maxSize; left > 0;) {
        const qint64 slice = std::min(left, kMaxSlice);
        m_d->stream.avail_in = uInt(slice);
        if (!m_d->compress(Z_NO_FLUSH))
            return -1;
        left -= slice;
    }
    return maxSize;
}
