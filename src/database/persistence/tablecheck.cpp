// Looking at table files without loading them.

#include "database/persistence/qtiocompressor.h"
#include "database/persistence/rowformat.h"
#include "database/persistence/rowstream.h"
#include "database/persistence/tabledatastream.h"
#include "database/persistence/tableheader_p.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qdir.h>
#include <QtCore/qiodevice.h>

#include <array>

namespace
{

qint64 readToEnd(QIODevice &device)
{
    std::array<char, 16384> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): is read into
    qint64 total = 0;
    for (;;) {
        const qint64 n = device.read(piece.data(), piece.size());
        if (n <= 0)
            return total;
        total += n;
    }
}

void countRows(TableFileReport &report, QDataStream &stream, const RowFormat &format)
{
    if (format.packedSize() == 0) { // rows without columns take no bytes
        report.rowsPresent = report.rowsPromised;
    } else {
        RowReader reader(stream, format, report.rowsPromised);
        while (reader.next())
            ++report.rowsPresent;
        report.bytesLeftOver = reader.cutBytes();
        report.malformedCells = reader.malformedCells();
    }
    report.bytesLeftOver += readToEnd(*stream.device());
}

// What went wrong below a stream that was read to its end; empty for nothing.
QString deviceError(const QIODevice &device)
{
    const auto *compressed = qobject_cast<const QtIOCompressor *>(&device);
    if (!compressed || compressed->atStreamEnd())
        return QString();
    return compressed->hasError() ? compressed->errorString()
                                  : QStringLiteral("The compressed data is cut.");
}

// A load does not ask for the length of rows, but a file that lies about it was damaged.
QString lengthVerdict(const TableIO::TableHeader &header)
{
    qint64 length = 0;
    for (const TableColumnDef &column : header.columns)
        length += column.size;
    if (header.rowLength == length)
        return QString();
    return QStringLiteral("The header claims rows of %1 bytes, its columns take %2.")
        .arg(header.rowLength)
        .arg(length);
}

QString rowsVerdict(const TableFileReport &report)
{
    if (report.rowsPresent < report.rowsPromised) {
        return QStringLiteral("%1 of %2 rows are present, and %3 bytes of another.")
            .arg(report.rowsPresent)
            .arg(report.rowsPromised)
            .arg(report.bytesLeftOver);
    }
    if (report.bytesLeftOver > 0) {
        return QStringLiteral("All %1 rows are present, and %2 bytes too many.")
            .arg(report.rowsPresent)
            .arg(report.bytesLeftOver);
    }
    if (report.malformedCells > 0) {
        return QStringLiteral("All %1 rows are present, and %2 cells hold no value of their type.")
            .arg(report.rowsPresent)
            .arg(report.malformedCells);
    }
    return QString();
}

void conclude(TableFileReport &report, const QString &problem)
{
    report.verdict = problem.isEmpty() ? rowsVerdict(report) : problem;
    report.sound = report.verdict.isEmpty();
    if (report.sound) {
        report.verdict = QStringLiteral("Sound: %1 rows of %2 columns.")
                             .arg(report.rowsPresent)
                             .arg(report.columns.size());
    }
}

} // namespace

TableFileReport TableIO::check(QDataStream &stream)
{
    TableFileReport report;
    if (!stream.device() || stream.atEnd()) {
        report.verdict = QStringLiteral("There is nothing to read.");
        return report;
    }
    report.opened = true;
    TableHeader header;
    readHeader(header, stream);
    report.magic = header.magic;
    for (const TableColumnDef &def : qAsConst(header.columns))
        report.columns.append(def);
    report.keyColumns = header.keyColumns;
    report.rowsPromised = qMax(header.rowCount, 0);
    QString problem;
    if (header.magic != kMagic) {
        problem = QStringLiteral("This is no table file: it begins with 0x%1.")
                      .arg(quint32(header.magic), 8, 16, QLatin1Char('0'));
    } else {
        try {
            verifyHeader(header, stream);
            report.headerSound = true;
        } catch (const QString &text) {
            problem = text;
        }
    }
    if (report.headerSound) {
        countRows(report, stream, RowFormat(header.columns));
        for (const QString &verdict : {deviceError(*stream.device()), lengthVerdict(header)}) {
            if (problem.isEmpty())
                problem = verdict;
        }
    }
    conclude(report, problem);
    return report;
}

TableFileReport TableIO::check(const QDir &dir) const
{
    TableDataStreamRead stream(fileName(dir));
    TableFileReport report = check(stream);
    if (const qint64 behind = stream.bytesBehind(); behind > 0) {
        report.bytesLeftOver += behind;
        conclude(report, report.sound ? QString() : report.verdict);
    }
    return report;
}
