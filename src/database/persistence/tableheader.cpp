#include "database/persistence/tableheader_p.h"

#include "database/masterindex_struct.h"
#include "database/tables/rowlayout.h"
#include "database/tables/streamtext.h"
#include "database/tables/table.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qset.h>

#include <limits>

void TableIO::setupHeader(TableHeader &header, const Table *table)
{
    constexpr int kMostColumns = std::numeric_limits<qint16>::max();
    constexpr qint64 kLongestRow = std::numeric_limits<qint32>::max();
    if (table->columnCount() > kMostColumns || table->rowLengthUnaligned() > kLongestRow) {
        throw QStringLiteral(
            "Table '%1' is too wide for a file: %2 columns of %3 bytes, at most %4 "
            "and %5.")
            .arg(table->name())
            .arg(table->columnCount())
            .arg(table->rowLengthUnaligned())
            .arg(kMostColumns)
            .arg(kLongestRow);
    }
    header.magic = kMagic;
    header.columnCount = qint16(table->fieldDefs().size());
    header.rowCount = table->rowCount();
    header.rowLength = qint32(table->rowLengthUnaligned());
    header.flagBytes = qint32(bitmapSize(table->columnCount()));
    header.columns.clear();
    for (const TableColumnDef *def : table->fieldDefs())
        header.columns.append(TableColumnDef(nullptr, *def));
    header.keyColumns = table->masterIndex()->columnNames();
}

void TableIO::writeHeader(const TableHeader &header, QDataStream &stream)
{
    stream << header.magic << header.columnCount << header.rowCount << header.rowLength
           << header.flagBytes;
    for (const TableColumnDef &column : header.columns)
        column.write(stream);
    stream << header.keyColumns;
}

void TableIO::readHeader(TableHeader &header, QDataStream &stream)
{
    header = TableHeader();
    stream >> header.magic;
    if (header.magic != kMagic)
        return;
    stream >> header.columnCount >> header.rowCount >> header.rowLength >> header.flagBytes;
    const auto isWhole = [&] { return stream.status() == QDataStream::Ok; };
    for (int i = 0; i < header.columnCount && isWhole(); ++i) {
        TableColumnDef column(nullptr);
        column.read(stream);
        if (isWhole())
            header.columns.append(column);
    }
    quint32 keyCount = 0;
    if (isWhole())
        stream >> keyCount;
    for (quint32 i = 0; i < keyCount && isWhole(); ++i) {
        QString name;
        readText(stream, &name);
        if (isWhole())
            header.keyColumns.append(name);
    }
}

void verifyHeader(const TableIO::TableHeader &header, const QDataStream &stream)
{
    if (header.columnCount < 0)
        throw QStringLiteral("The table file claims to have %1 columns.").arg(header.columnCount);
    if (stream.status() != QDataStream::Ok)
        throw QStringLiteral("The header of the table file is cut or damaged.");
    const qint64 flagBytes = bitmapSize(header.columns.size());
    if (header.flagBytes != flagBytes) {
        throw QStringLiteral("The table file has %1 bytes of presence bits, %2 columns take %3.")
            .arg(header.flagBytes)
            .arg(header.columns.size())
            .arg(flagBytes);
    }
    QSet<QString> names;
    for (const TableColumnDef &column : header.columns) {
        if (column.name.isEmpty())
            throw QStringLiteral("Column name can't be empty.");
        if (names.contains(column.name))
            throw QStringLiteral("Column '%1' stands twice in the table file.").arg(column.name);
        names.insert(column.name);
        const qint64 size = FieldType::typeLength(column.type, column.length);
        if (column.size != size) {
            throw QStringLiteral("Column '%1' has %2 bytes in the table file, %3 takes %4.")
                .arg(column.name)
                .arg(column.size)
                .arg(FieldType::typeNameWithLength(column.type, column.length))
                .arg(size);
        }
    }
}

void throwMissingRows(qint64 rowSize)
{
    throw QStringLiteral("The table file claims rows of %1 bytes and does not hold one.")
        .arg(rowSize);
}
