// The strict look at a table file, plain and compressed, beside what a load makes of the same
// bytes.

#include "tablerules.h"

#include <database/persistence/qtiocompressor.h>

namespace
{

qint64 packedRowSize(const TableFileReport &report)
{
    qint64 size = (report.columns.size() + 7) / 8;
    for (const ColumnDef &column : report.columns)
        size += FieldType::typeLength(column.type, column.length);
    return size;
}

qint64 headerSize(const QByteArray &bytes)
{
    MemoryStream stream(bytes);
    TableIO::TableHeader header;
    TableIO::readHeader(header, stream);
    MemoryStream again;
    TableIO::writeHeader(header, again);
    return again.bytes().size();
}

void checkReport(const TableFileReport &report)
{
    require(!report.verdict.isEmpty(), "a check has a verdict");
    require(report.rowsPresent >= 0 && report.rowsPresent <= report.rowsPromised,
            "no more rows are present than promised");
    require(report.bytesLeftOver >= 0, "bytes are not counted below zero");
    require(report.opened || report.magic == 0, "nothing comes out of nothing");
    require(!report.headerSound || report.magic == TableIO::kMagic, "a sound header has its magic");
    require(!report.sound || (report.headerSound && report.rowsPresent == report.rowsPromised &&
                              report.bytesLeftOver == 0),
            "a sound file is whole");
}

bool liesAboutLength(const QByteArray &bytes)
{
    MemoryStream stream(bytes);
    TableIO::TableHeader header;
    TableIO::readHeader(header, stream);
    qint64 length = 0;
    for (const TableColumnDef &column : header.columns)
        length += column.size;
    return header.rowLength != length;
}

void checkPlain(const QByteArray &bytes, const TableFileReport &report)
{
    if (report.headerSound) {
        const qint64 rows = report.rowsPresent * packedRowSize(report);
        require(headerSize(bytes) + rows + report.bytesLeftOver == bytes.size(),
                "a check accounts for every byte");
        require(report.sound || report.rowsPresent < report.rowsPromised ||
                    report.bytesLeftOver > 0 || liesAboutLength(bytes),
                "a whole file is sound");
    }
    Table table(QStringLiteral("quotes"), QString());
    MemoryStream stream(bytes);
    Listener listener;
    const Outcome outcome =
        outcomeOf([&] { TableIO(&table).read(listener, stream, true, {}, true); });
    require(!report.sound || outcome != Outcome::Refused, "a load takes a sound file");
    if (report.sound && outcome == Outcome::Done)
        require(table.rowCount() == report.rowsPresent, "and every row of it");
    if (outcome == Outcome::Done && report.opened && report.magic == TableIO::kMagic)
        require(report.headerSound, "a load takes no unsound header");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    const bool isCompressed = input.choice() & 1;
    QByteArray bytes = input.rest();

    TableFileReport report;
    require(outcomeOf([&] {
                const AllocationLimit limit(bytes.size());
                if (!isCompressed) {
                    MemoryStream stream(bytes);
                    report = TableIO::check(stream);
                    return;
                }
                QBuffer buffer(&bytes);
                QtIOCompressor compressor(&buffer, 6, 100);
                compressor.setStreamFormat(QtIOCompressor::RawFormat); // no checksum to guess
                compressor.open(QIODevice::ReadOnly);
                QDataStream stream(&compressor);
                report = TableIO::check(stream);
            }) == Outcome::Done,
            "a check does not throw");
    checkReport(report);
    if (!isCompressed)
        checkPlain(bytes, report);
    return 0;
}
