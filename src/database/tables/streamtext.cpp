#include "database/tables/streamtext.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qendian.h>
#include <QtCore/qstring.h>

namespace
{

constexpr quint32 kNullText = 0xFFFFFFFF;
constexpr int kFirstStep = 4096; // UTF-16 units

} // namespace

void readText(QDataStream &stream, QString *text)
{
    *text = QString();
    quint32 bytes = kNullText;
    stream >> bytes;
    if (stream.status() != QDataStream::Ok || bytes == kNullText)
        return;
    if (bytes % sizeof(ushort) != 0) {
        stream.setStatus(QDataStream::ReadCorruptData);
        return;
    }
    const auto length = int(bytes / sizeof(ushort));
    QString read = QLatin1String("");
    while (read.size() < length) {
        const int had = read.size();
        const int step = qMin(length - had, qMax(had, kFirstStep));
        read.resize(had + step);
        QChar *const units = read.data() + had;
        const int size = step * int(sizeof(ushort));
        if (stream.readRawData(reinterpret_cast<char *>(units), size) != size) {
            stream.setStatus(QDataStream::ReadPastEnd);
            return;
        }
        if (stream.byteOrder() == QDataStream::BigEndian)
            qFromBigEndian<ushort>(units, step, units);
        else
            qFromLittleEndian<ushort>(units, step, units);
    }
    *text = read;
}
