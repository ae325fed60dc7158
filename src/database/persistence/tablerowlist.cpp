// Row lists: the records of several tables in one stream, a section for each.

#include "database/icore.h"
#include "database/indexes/tablelocker.h"
#include "database/persistence/rowformat.h"
#include "database/persistence/rowstream.h"
#include "database/persistence/tableheader_p.h"
#include "database/tables/streamtext.h"
#include "database/tables/table.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qiodevice.h>

#include <memory>
#include <new>

namespace
{

void skipRows(QDataStream &stream, const TableIO::TableHeader &header)
{
    const qint64 rowSize = qint64(header.rowLength) + header.flagBytes;
    const qint64 size = rowSize * qMax(header.rowCount, 0);
    if (header.rowLength < 0 || header.flagBytes < 0)
        throw QStringLiteral("The row list claims rows of %1 bytes.").arg(rowSize);
    if (size > 0 && stream.device()->skip(size) != size)
        stream.setStatus(QDataStream::ReadPastEnd);
}

bool hasColumns(const Table &table, const QList<TableColumnDef> &columns)
{
    if (table.columnCount() != columns.size())
        return false;
    for (int i = 0; i < columns.size(); ++i) {
        const TableColumnDef &def = *table.columnDef(i);
        if (def.type != columns.at(i).type || def.size != columns.at(i).size)
            return false;
    }
    return true;
}

std::unique_ptr<Table> makeTable(const QString &name, const QList<TableColumnDef> &columns)
{
    auto table = std::make_unique<Table>(name, QString(), nullptr);
    for (const TableColumnDef &def : columns)
        table->addColumn(def);
    return table;
}

} // namespace

void TableIO::writeRowList(FilterProgress &progress, QDataStream &stream,
                           const PartitionList<Record> &list)
{
    if (list.count() == 0 || !stream.device())
        return;
    Table *const table = list.at(0).table();
    for (const Record &record : list) {
        if (record.isNull() || record.table() != table)
            throw QStringLiteral("A row list holds records of one table.");
    }
    stream << table->name();
    if (table->name().isEmpty())
        return;
    const TableLocker locker(*table);
    TableHeader header;
    setupHeader(header, table);
    header.rowCount = list.count();
    writeHeader(header, stream);
    const RowFormat format(header.columns);
    RowWriter writer(stream, format);
    int i = 0;
    for (const Record &record : list) {
        writer.write(record.row() + kRowHeaderSize);
        progress(i++, list.count());
    }
    writer.finish();
}

Table *TableIO::readRowList(FilterProgress &progress, QDataStream &stream,
                            PartitionList<Record> &out, bool createTable)
{
    if (!stream.device() || stream.atEnd())
        return nullptr;
    QString name;
    readText(stream, &name);
    if (name.isEmpty())
        return nullptr;
    TableHeader header;
    readHeader(header, stream);
    if (header.magic != kMagic || stream.status() != QDataStream::Ok)
        throw QStringLiteral("The row list of table '%1' is cut or damaged.").arg(name);

    const ICore &core = *ICore::instance();
    Table *table = !createTable && core.hasTable(name) ? core.table(name) : nullptr;
    if (!createTable && !table) {
        skipRows(stream, header);
        return nullptr;
    }
    verifyHeader(header, stream);
    if (table && !hasColumns(*table, header.columns)) {
        skipRows(stream, header);
        throw QStringLiteral("The row list of table '%1' has other columns than the table.")
            .arg(name);
    }
    const RowFormat format(header.columns);
    RowReader reader(stream, format, header.rowCount);
    if (header.rowCount > 0 && format.packedSize() > kBelievedRowSize && !reader.hasNext())
        throwMissingRows(format.packedSize());
    std::unique_ptr<Table> created;
    if (createTable) {
        created = makeTable(name, header.columns);
        table = created.get();
    }

    const int before = out.count();
    try {
        for (int i = 0; i < header.rowCount; ++i) {
            progress(i, header.rowCount);
            const Record record(table);
            if (record.isNull())
                throw std::bad_alloc();
            if (const uchar *packed = reader.next())
                format.unpack(record.row() + kRowHeaderSize, packed);
            if (progress.filter(record))
                out.append(record);
        }
    } catch (...) {
        RangeSet<int> added;
        added.addRange(before, out.count());
        out.removeRanges(added);
        throw;
    }
    created.release(); // NOLINT(bugprone-unused-return-value): the caller's from here on
    return table;
}
