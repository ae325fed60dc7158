// Files that once did harm, as the fuzz targets and people found them.

#include "persistence/filefixture.h"

#include <gtest/gtest.h>

namespace
{

/// A file that ends behind its header.
QByteArray headerOf(const QList<TableColumnDef> &columns, int rowCount)
{
    TableIO::TableHeader header;
    header.magic = TableIO::kMagic;
    header.columnCount = qint16(columns.size());
    header.rowCount = rowCount;
    header.flagBytes = (columns.size() + 7) / 8;
    header.columns = columns;
    MemoryStream stream;
    TableIO::writeHeader(header, stream);
    return stream.bytes();
}

/// Columns of 2 GiB each, so many that no machine has the memory for one row.
QList<TableColumnDef> giantColumns()
{
    TableColumnDef def(nullptr);
    def.type = FieldType::VarChar;
    def.length = 0x3FFFFFFF;
    def.size = FieldType::typeLength(def.type, def.length);
    QList<TableColumnDef> columns;
    for (int i = 0; i < 2000; ++i) {
        def.name = QStringLiteral("c%1").arg(i);
        columns.append(def);
    }
    return columns;
}

QString loadError(Table &table, const QByteArray &bytes)
{
    MemoryStream stream(bytes);
    return thrownBy([&] { TableIO(&table).read(stream, true); });
}

} // namespace

TEST(Findings, giantRowsOfAnEmptyFileTakeNoMemory)
{
    for (const int rowCount : {0, -1}) {
        Table table("giant", "");
        EXPECT_EQ(loadError(table, headerOf(giantColumns(), rowCount)), "nothing");
    }
}

TEST(Findings, rowsWithoutColumnsTakeNoBytes)
{
    Table table("empty", ""), copy("copy", "");
    table.appendRow();
    table.appendRow();
    EXPECT_EQ(loadError(copy, saved(table)), "nothing");
    EXPECT_EQ(copy.rowCount(), 2);
}
