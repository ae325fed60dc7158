#include "database/persistence/tabledatastream.h"

#include "database/icore.h"
#include "database/persistence/qtiocompressor.h"
#include "database/persistence/replacingfile.h"

#include <QtCore/qfileinfo.h>

namespace
{

constexpr int kCompressionLevel = 6;
constexpr int kBufferSize = 65500;

QString compressedName(const QString &fileName)
{
    return fileName + QStringLiteral(".gz");
}

std::unique_ptr<QtIOCompressor> gzipDevice(QIODevice *file)
{
    auto device = std::make_unique<QtIOCompressor>(file, kCompressionLevel, kBufferSize);
    device->setStreamFormat(QtIOCompressor::GzipFormat);
    return device;
}

} // namespace

TableDataStreamWrite::TableDataStreamWrite(const QString &fileName)
    : m_fileName(fileName)
{
    const bool compressed = ICore::instance()->compressTableFiles();
    // One name for both forms: their savers keep each other out, and each takes over what the other
    // left.
    m_file = std::make_unique<ReplacingFile>(compressed ? compressedName(fileName) : fileName,
                                             fileName + QStringLiteral(".saving"));
    if (!m_file->open()) {
        fail(m_file->errorString());
        return;
    }
    if (compressed) {
        m_compressor = gzipDevice(m_file->device());
        if (!m_compressor->open(QIODevice::WriteOnly)) {
            fail(m_compressor->errorString());
            return;
        }
        setDevice(m_compressor.get());
    } else {
        setDevice(m_file->device());
    }
}

TableDataStreamWrite::~TableDataStreamWrite()
{
    if (std::uncaught_exceptions() > m_exceptions)
        cancel();
    else
        commit();
}

bool TableDataStreamWrite::commit()
{
    if (!device())
        return false;
    if (m_compressor)
        m_compressor->close();
    const QIODevice &device = *this->device();
    const bool isWritten =
        status() == QDataStream::Ok && !(m_compressor && m_compressor->hasError());
    if (!isWritten) {
        fail(device.errorString());
        return false;
    }
    setDevice(nullptr);
    if (!m_file->commit()) {
        fail(m_file->errorString());
        return false;
    }
    const QString other = m_compressor ? m_fileName : compressedName(m_fileName);
    // A plain file hides a compressed one. The other way round the save would come to nothing.
    if (QFileInfo(other).isFile() && !QFile::remove(other) && m_compressor) {
        fail(QStringLiteral("'%1' is stored, but '%2' hides it and cannot be removed")
                 .arg(compressedName(m_fileName), other));
        return false;
    }
    return true;
}

void TableDataStreamWrite::cancel()
{
    setDevice(nullptr);
    m_compressor.reset();
    m_file.reset();
}

void TableDataStreamWrite::fail(const QString &error)
{
    m_error = error;
    cancel();
}

TableDataStreamRead::TableDataStreamRead(const QString &fileName)
    : m_file(std::make_unique<QFile>(fileName))
{
    if (m_file->open(QIODevice::ReadOnly)) {
        setDevice(m_file.get());
        return;
    }
    m_file = std::make_unique<QFile>(compressedName(fileName));
    m_compressor = gzipDevice(m_file.get());
    if (m_compressor->open(QIODevice::ReadOnly))
        setDevice(m_compressor.get());
}

TableDataStreamRead::~TableDataStreamRead()
{
    setDevice(nullptr);
}

QString TableDataStreamRead::errorString() const
{
    if (m_compressor && m_compressor->hasError())
        return m_compressor->errorString();
    return m_file->error() == QFileDevice::NoError ? QString() : m_file->errorString();
}

qint64 TableDataStreamRead::bytesBehind() const
{
    return m_compressor && m_compressor->atStreamEnd() ? m_file->bytesAvailable() : 0;
}
