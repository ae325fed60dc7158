#include <database/persistence/qtiocompressor.h>

#include "support/printing.h"

#include <gtest/gtest.h>
#include <QtCore/qbuffer.h>
#include <QtCore/qprocess.h>
#include <QtCore/qtemporarydir.h>
#include <QtCore/qtemporaryfile.h>

namespace
{

/// Carries one byte a call, delivers none in every second one, and fails once behind \c left.
struct Line : QIODevice {
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return bytes.size() + QIODevice::bytesAvailable(); }
    qint64 readData(char *data, qint64) override
    {
        if (left != 0 && (bytes.isEmpty() || ++reads % 2 == 0))
            return 0;
        *data = bytes.at(0);
        bytes.remove(0, 1);
        return left-- != 0 ? 1 : -1;
    }
    qint64 writeData(const char *data, qint64) override
    {
        bytes += *data;
        return left-- != 0 ? 1 : -1;
    }
    using QIODevice::setErrorString;
    QByteArray bytes;
    int left = -1, reads = 0;
};

QByteArray payload(int size)
{
    for (QByteArray data;; data += "strike " + QByteArray::number(data.size() * 2654435761LL, 36))
        if (data.size() >= size)
            return data.left(size);
}

QByteArray compressed(const QByteArray &data, QtIOCompressor::StreamFormat format)
{
    QBuffer buffer;
    QtIOCompressor compressor(&buffer);
    compressor.setStreamFormat(format);
    EXPECT_TRUE(compressor.open(QIODevice::WriteOnly) && compressor.write(data) == data.size());
    compressor.close();
    return buffer.data();
}

/// Reads in blocks of \p block bytes to the end, through pauses but not for ever.
QByteArray readToEnd(QIODevice &device, int block)
{
    QByteArray data;
    for (int calls = 0; calls < 99'999 && !device.atEnd(); ++calls)
        data += device.read(block);
    EXPECT_TRUE(device.atEnd());
    return data;
}

} // namespace

TEST(QtIOCompressorTest, exchangesFilesWithGzipAtEveryLevel)
{
    const QTemporaryDir dir;
    const QByteArray data = payload(300'000);
    for (int level = -1; level <= 9; ++level) {
        QFile file(dir.filePath("data.gz"));
        QtIOCompressor compressor(&file, level);
        compressor.setStreamFormat(QtIOCompressor::GzipFormat);
        ASSERT_TRUE(compressor.open(QIODevice::WriteOnly) && compressor.write(data) == data.size());
        compressor.close();
        const QString commands = "cd %1 && gzip -t data.gz && zcat data.gz >data && gzip -f%2 data";
        EXPECT_EQ(QProcess::execute("sh", {"-c", commands.arg(dir.path()).arg(qMax(level, 1))}), 0);
        ASSERT_TRUE(compressor.open(QIODevice::ReadOnly | QIODevice::Text));
        EXPECT_TRUE(compressor.readAll() == data) << level;
    }
}

TEST(QtIOCompressorTest, readsOneStreamAfterTheOtherAndLeavesTheRest)
{
    const QByteArray first = payload(40'000), second = payload(1), tail("behind both");
    for (int round = 0; round < 108; ++round) { // over all combinations of
        SCOPED_TRACE(round);                    // device, format, buffering, buffer and block size
        const auto format = QtIOCompressor::StreamFormat(round / 3 % 3);
        const auto flag = round / 9 % 2 ? QIODevice::Unbuffered : QIODevice::NotOpen;
        const auto mode = QIODevice::ReadOnly | flag;
        Line line;
        QBuffer buffer;
        QTemporaryFile file;
        QIODevice &device = *QVector<QIODevice *>{&file, &buffer, &line}.at(round % 3);
        line.bytes = compressed(first, format) + compressed(second, format) + tail;
        EXPECT_EQ(compressed(second, format).size(), QVector<int>({9, 21, 3}).at(format));
        buffer.setData(line.bytes);
        ASSERT_TRUE(file.open() && file.write(line.bytes) > 0);
        file.close();
        ASSERT_TRUE(device.open(mode));
        QtIOCompressor reader(&device, 6, round / 18 % 2 ? 65500 : -1);
        reader.setStreamFormat(format);
        for (const QByteArray &part : {first, second}) {
            ASSERT_TRUE(reader.open(mode) && reader.bytesAvailable() == 1);
            EXPECT_TRUE(readToEnd(reader, 1 + round / 36 * 9999) == part && reader.atStreamEnd());
            reader.close();
        }
        EXPECT_EQ(readToEnd(device, 100), tail);
    }
}

TEST(QtIOCompressorTest, bearsEveryFaultAtEveryByte)
{
    const QByteArray data = payload(300), whole = compressed(data, QtIOCompressor::ZlibFormat);
    Line line;
    QtIOCompressor compressor(&line, 6, 0);
    for (int at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        const auto open = [&](QIODevice::OpenMode mode, const QByteArray &in, int left = -1) {
            EXPECT_TRUE(compressor.open(mode) && !compressor.hasError());
            line.bytes = in;
            line.left = left;
            line.setErrorString("cable cut");
        };
        const auto closeExpecting = [&](const QString &error) {
            EXPECT_FALSE(compressor.atStreamEnd());
            compressor.close();
            EXPECT_EQ(compressor.hasError() ? compressor.errorString() : QString(), error);
            EXPECT_FALSE(line.isOpen());
        };
        open(QIODevice::ReadOnly | QIODevice::Unbuffered, whole, at);
        EXPECT_TRUE(data.startsWith(readToEnd(compressor, 1)) && !compressor.getChar(nullptr));
        closeExpecting("Error reading data from underlying device: cable cut");
        open(QIODevice::WriteOnly, {}, at); // told by write, flush or close, and not forgotten
        EXPECT_TRUE(compressor.write(data) == data.size() || compressor.write(data) == -1);
        EXPECT_FALSE(at % 2 && compressor.flush());
        closeExpecting("Error writing to underlying device: cable cut");
        open(QIODevice::WriteOnly, {});
        EXPECT_EQ(compressor.write(data, at), at);
        EXPECT_TRUE(at == 0 || (compressor.flush() && compressor.flush()));
        const QByteArray flushed = line.bytes;
        closeExpecting({});
        EXPECT_EQ(line.bytes.isEmpty(), at == 0);
        open(QIODevice::ReadOnly, flushed); // which is also a stream cut short
        EXPECT_EQ(readToEnd(compressor, 100), data.left(at));
        closeExpecting({});
        open(QIODevice::ReadOnly, whole);
        line.bytes.data()[at] ^= 4;
        readToEnd(compressor, 1);
        closeExpecting(compressor.hasError() ? "Internal zlib error when decompressing: data error"
                                             : ""); // it may only wait for more
    }
    QFile full("/dev/full"); // which QFile notices when it empties its own buffer
    QtIOCompressor writer(&full);
    QObject::connect(&writer, &QIODevice::aboutToClose, [&] { EXPECT_EQ(writer.write("x"), 1); });
    EXPECT_TRUE(writer.open(QIODevice::WriteOnly));
    writer.close();
    EXPECT_EQ(writer.errorString(), "Error writing to underlying device: No space left on device");
}

TEST(QtIOCompressorTest, saysWhyItDoesNotOpenAndSparesTheFile)
{
    static QString logged;
    const QString log = "QtIOCompressor::open: ";
    const std::tuple<QIODevice::OpenMode, QIODevice::OpenMode, int, QString> cases[] = {
        {QIODevice::NotOpen, QIODevice::ReadWrite, 6,
         log + "QtIOCompressor can only be opened in the ReadOnly or WriteOnly modes"},
        {QIODevice::ReadOnly, QIODevice::WriteOnly, 6,
         log + "underlying device must be open in one of the ReadOnly or WriteOnly modes"},
        {QIODevice::NotOpen, QIODevice::WriteOnly, 10, "Internal zlib error: stream error"},
        {QIODevice::NotOpen, QIODevice::WriteOnly | QIODevice::NewOnly, 6,
         "Error opening underlying device: File exists"},
    };
    const QtMessageHandler before = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &text) { logged = text; });
    QTemporaryFile created;
    ASSERT_TRUE(created.open() && created.write("kept") == 4 && created.flush());
    for (const auto &[ofFile, mode, level, said] : cases) {
        QFile file(created.fileName());
        EXPECT_TRUE(ofFile == QIODevice::NotOpen || file.open(ofFile));
        QtIOCompressor compressor(&file, level);
        EXPECT_FALSE(compressor.open(mode) || compressor.isOpen());
        EXPECT_EQ(said.startsWith(log) ? logged : compressor.errorString(), said);
        EXPECT_TRUE(file.openMode() == ofFile && file.size() == 4);
    }
    qInstallMessageHandler(before);
    for (const char *version : {"1.2", "1.2.11", "1.9", "2.0"})
        EXPECT_TRUE(QtIOCompressor::checkGzipSupport(version)) << version;
    for (const char *version : {"", "1.", "21", "0.9.9", "1.1.4", "1.x"})
        EXPECT_FALSE(QtIOCompressor::checkGzipSupport(version)) << version;
}
