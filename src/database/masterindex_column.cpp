#include "database/masterindex_column.h"

#include "database/tables/cellcompare.h"
#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <QtCore/qvector.h>

namespace
{

QString columnNotFound(const QString &column)
{
    return QStringLiteral("Column '%1' not found to create index.").arg(column);
}

QList<int> columnNumbers(const Table &table, const QStringList &names)
{
    QList<int> numbers;
    for (const QString &name : names) {
        const int number = table.columnIndex(name);
        if (number == -1)
            throw columnNotFound(name);
        numbers.append(number);
    }
    return numbers;
}

void readKeyPart(Field field, const QStringRef &part)
{
    const FieldType::Type type = field.column()->type;
    if (type == FieldType::VarChar) {
        field.setValue(part.toString());
        return;
    }
    qint64 msecs = 0;
    const bool unreadable =
        part.isEmpty() || type == FieldType::BoardList ||
        (type == FieldType::DateTime && !datetime::parse(part.unicode(), part.size(), &msecs));
    if (unreadable)
        field.unreadableText(part);
    try {
        field = part;
    } catch (const QString &) { // from the decimal types
        field.unreadableText(part);
    }
}

} // namespace

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table *table, const QList<int> &columns)
    : MasterIndex(table)
    , m_columns(columns)
{
    m_defs.reserve(size_t(columns.size()));
    for (const int column : columns) {
        if (column < 0 || column >= table->columnCount())
            throw columnNotFound(QString::number(column));
        m_defs.push_back(table->columnDef(column));
    }
    setColumns(columns);
    expectUniqueKeys();
}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table *table, const QString &column)
    : MasterIndex_Column_Pure(table, columnNumbers(*table, {column}))
{
}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table *table, const QStringList &columns)
    : MasterIndex_Column_Pure(table, columnNumbers(*table, columns))
{
}

int MasterIndex_Column_Pure::compare(const Record &a, const Record &b) const
{
    for (const TableColumnDef *def : m_defs) {
        if (const int order = compareCells(*def, a, b))
            return order;
    }
    return 0;
}

QString MasterIndex_Column_Pure::toText(const Record &record) const
{
    if (record.isNull())
        return QLatin1String("");
    QStringList parts;
    for (const int column : m_columns)
        parts.append(table()->dataPtr(record.row(), column).toString());
    return parts.join(QLatin1Char(','));
}

Record MasterIndex_Column_Pure::fromText(const QString &text) const
{
    const QVector<QStringRef> parts = text.splitRef(QLatin1Char(','));
    if (parts.size() != m_columns.size())
        throw QStringLiteral("Master index can't restore from text. Incorrect columns numbers: "
                             "%1 != %2")
            .arg(parts.size())
            .arg(m_columns.size());
    Record key(table());
    for (int i = 0; i < parts.size(); ++i)
        readKeyPart(key.data(m_columns.at(i)), parts.at(i));
    return key;
}

QByteArray MasterIndex_Column_Pure::keyRecord(const Record &record) const
{
    qint64 length = 0;
    for (const TableColumnDef *def : m_defs)
        length += roundedCell(def->size);
    QByteArray bytes(int(length), '\0');
    if (record.isNull())
        return bytes;
    char *to = bytes.data();
    for (const TableColumnDef *def : m_defs) {
        const qint64 width = roundedCell(def->size);
        std::memcpy(to, record.row() + kRowHeaderSize + def->offset, size_t(width));
        to += width;
    }
    return bytes;
}
