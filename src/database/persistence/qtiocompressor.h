#pragma once

#include "database/database_global.h"

#include <QtCore/qiodevice.h>

#include <memory>

class QtIOCompressorPrivate;

/// A sequential device that compresses what is written to it, and decompresses what is read from
/// it, over another device.
///
/// Invariants:
///  (1) While it is open it has exactly one direction and one compressed stream, which begins where
///      the underlying device stood when the first byte passed.
///  (2) A stream that failed stays failed: until the next open() every read and write returns -1
///      and errorString() tells the first cause.
///  (3) The underlying device is closed with this one when this one opened it, and stays open when
///      it was open before.
///  (4) Once atStreamEnd(), no byte behind the compressed stream has been taken from the
///      underlying device.
///
/// Ownership: the underlying device stays the caller's and outlives this object, whose destructor
/// still writes to it. While both are open only this object uses it, and its text mode is off,
/// which would drop bytes.
///
/// Threads: as every QIODevice, one thread at a time.
///
/// Cost: data goes straight between the caller's memory, zlib and the buffer. zlib keeps about 40
/// KiB for reading and 270 KiB for writing while the device is open. Reads of less than 16 KiB pass
/// through QIODevice's own buffer, unless it is opened Unbuffered; writes do not, so hand them over
/// in large blocks.
class DATABASE_EXPORT QtIOCompressor : public QIODevice
{
    Q_OBJECT

public:
    enum StreamFormat {
        ZlibFormat, ///< zlib's header and checksum
        GzipFormat, ///< what the program gzip reads and writes
        RawFormat,  ///< bare deflate data: neither header nor checksum
    };

    /// A closed device with the zlib format.
    /// \param device            borrowed, not null; open or closed
    /// \param compressionLevel  0 (stored) to 9 (smallest), or -1 for zlib's default; any
    ///                          other makes open() for writing fail
    /// \param bufferSize        bytes between zlib and the device, taken at once; at least 16 are
    explicit QtIOCompressor(QIODevice *device, int compressionLevel = 6, int bufferSize = 65500);
    /// Closes the device, which may write as much as the buffer and zlib's window hold, and whose
    /// failure nobody hears of any more: where it matters whether everything arrived, call close()
    /// and ask hasError().
    ~QtIOCompressor() override;

    StreamFormat streamFormat() const;
    /// The format of the streams that are opened from now on; one that is open keeps its own.
    void setStreamFormat(StreamFormat format);
    /// Whether the zlib that runs knows the gzip format.
    static bool isGzipSupported();
    /// Whether the zlib of that version ("1.2.11") knows it: 1.2 and later do.
    static bool checkGzipSupport(const char *version);

    /// Begins a stream. A closed underlying device is opened in the same mode, Text excepted, but
    /// not before zlib is ready, so that no file is truncated for settings that zlib refuses.
    /// \param mode  exactly one of ReadOnly and WriteOnly; other flags may come with it
    /// \return false with a logged warning for a mode that does not fit, else with errorString();
    ///         neither device is open then unless it was before
    bool open(OpenMode mode) override;
    /// Ends the stream, and when writing hands everything to the underlying device and flushes that
    /// if it is a file. aboutToClose() comes first: what its slots write belongs to the stream. A
    /// writer that received nothing and was not flushed leaves no byte behind.
    /// \note hasError() and errorString() outlast the call if the stream has failed, now or before
    void close() override;
    /// Brings everything written so far to the underlying device, in a form that can be
    /// decompressed up to here, and flushes that if it is a file. Each call costs some compression.
    ///
    /// \return false when not open for writing or failed
    bool flush();

    bool isSequential() const override; ///< true
    /// 1 when something may be there to read, else 0; how much is not known in advance.
    qint64 bytesAvailable() const override;
    /// Whether reading gives nothing more: behind the compressed stream, after a failure, or while
    /// the underlying device is at its end in the middle of the stream.
    bool atEnd() const override;
    /// Whether reading has met the end of the compressed stream, and its checksum held; bytes of it
    /// may still wait in QIODevice's buffer. A reader that took no more than the stream's bytes may
    /// have to read once more, which gives 0, to meet it. False at the end of a truncated stream.
    bool atStreamEnd() const;
    /// Whether reading, writing, flushing or closing has failed since the last open().
    bool hasError() const;

protected:
    /// Fills \p data as far as the underlying device delivers now.
    /// \return the bytes placed, less than \p maxSize only at an end, or when the device has
    ///         nothing to give for now; -1 after a failure, of which what the same call had
    ///         decompressed is lost
    qint64 readData(char *data, qint64 maxSize) override;
    /// \return maxSize, or -1 after a failure; how much of the data arrived is then unknown
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    friend class QtIOCompressorPrivate;
    Q_DISABLE_COPY(QtIOCompressor)

    const std::unique_ptr<QtIOCompressorPrivate> m_d;
};
