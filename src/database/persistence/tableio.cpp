#include "database/persistence/tableio.h"

#include "database/indexes/tablelocker.h"
#include "database/masterindex_struct.h"
#include "database/persistence/rowformat.h"
#include "database/persistence/rowstream.h"
#include "database/persistence/tabledatastream.h"
#include "database/tables/table.h"
#include "database/tables/tableindexrebuilder.h"

#include <QtCore/qdir.h>
#include <QtCore/qfileinfo.h>

TableIO::TableIO(Table *table)
    : m_table(table)
{
}

// Writing takes the table's lock, which is no change to those who see the table as constant.
TableIO::TableIO(const Table *table)
    : m_table(const_cast<Table *>(table))
    , m_isConstant(true)
{
}

Table &TableIO::changeable() const
{
    if (m_isConstant)
        throw QStringLiteral("Table '%1' is constant here.").arg(m_table->name());
    return *m_table;
}

QString TableIO::fileName(const QDir &dir) const
{
    return QFileInfo(dir, m_table->name()).filePath();
}

// Writing -----------------------------------------------------------------------------------------

void TableIO::write(FilterProgress &progress, QDataStream &stream, bool withRows) const
{
    if (!stream.device())
        return;
    const TableLocker locker(*m_table);
    TableHeader header;
    setupHeader(header, m_table);
    writeHeader(header, stream);
    if (withRows)
        writeRows(progress, header, stream);
}

void TableIO::write(QDataStream &stream, bool withRows) const
{
    FilterProgressTrue progress;
    write(progress, stream, withRows);
}

bool TableIO::write(FilterProgress &progress, const QDir &dir, bool withRows, QString *error) const
{
    TableDataStreamWrite stream(fileName(dir));
    write(progress, stream, withRows);
    const bool isStored = stream.commit();
    if (error)
        *error = stream.errorString();
    return isStored;
}

bool TableIO::write(const QDir &dir, QString *error) const
{
    FilterProgressTrue progress;
    return write(progress, dir, true, error);
}

void TableIO::writeRows(FilterProgress &progress, const TableHeader &header,
                        QDataStream &stream) const
{
    const RowFormat format(header.columns);
    const qint64 rowSize = m_table->rowSize() - kRowHeaderSize;
    if (format.rowSize() != rowSize || header.columns.size() != m_table->columnCount()) {
        throw QStringLiteral("Rows of table '%1' have %2 bytes, not %3 as the header says.")
            .arg(m_table->name())
            .arg(rowSize)
            .arg(format.rowSize());
    }
    RowWriter writer(stream, format);
    int i = 0;
    for (const Record &record : *m_table->masterIndex()) {
        writer.write(record.row() + kRowHeaderSize);
        progress(i++, header.rowCount);
    }
    writer.finish();
}

// Tables in memory --------------------------------------------------------------------------------

void TableIO::filterRecords(FilterProgress &progress)
{
    TableIndexRebuilder rebuilder(&changeable());
    const TableUpdate update(*m_table);
    RangeSet<int> rejected;
    int position = 0;
    for (const Record &record : *m_table->masterIndex()) {
        if (progress.filter(record))
            progress(position, m_table->rowCount());
        else
            rejected.addRange(position, position + 1);
        ++position;
    }
    m_table->masterIndex()->removeRanges(rejected);
}

void TableIO::memoryUsage(const Table *table, unsigned long &total, unsigned long &padding)
{
    if (!table->masterIndex())
        return;
    const auto rows = static_cast<unsigned long>(table->rowCount());
    const qint64 perRow = table->rowLength() - table->rowLengthUnaligned();
    total = rows * static_cast<unsigned long>(table->rowSize());
    padding = rows * static_cast<unsigned long>(perRow);
}

void TableIO::memoryUsage(IndexList *index, unsigned long &total, unsigned long &unused)
{
    const PartitionList<Record> &list = index->list();
    unsigned long places = 0;
    for (int c = 0; c < list.partCount(); ++c)
        places += static_cast<unsigned long>(list.part(c).capacity);
    total = places * sizeof(Record);
    unused = total - static_cast<unsigned long>(list.count()) * sizeof(Record);
}
