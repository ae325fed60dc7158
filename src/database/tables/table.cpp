#include "database/tables/table.h"

#include "database/bcdii.h"
#include "database/indexes/index.h"
#include "database/services/exception.h"
#include "database/tables/columnspan.h"
#include "database/tables/tableprivate.h"

#include <QtCore/qdebug.h>

#include <cstring>

namespace
{

constexpr size_t kRowAlignment = 8;
// Number of columns up to which the ordered map is asked for a name.
constexpr int kMapLookupColumns = 20;

} // namespace

Table::Table(const QString &name, const QString &title, QObject *parent)
    : QObject(parent)
    , d(new TablePrivate(this, name, title))
{
    d->masterIndex = std::make_unique<MasterIndexOrdered>(this);
}

Table::~Table()
{
    d->forEachIndex([](Index *index) { index->clear(); });
    d->masterIndex.reset();
    qDeleteAll(d->columns);
}

QString Table::name() const
{
    return d->name;
}

QString Table::title() const
{
    return d->title.isEmpty() ? d->name : d->title;
}

void Table::setTitle(const QString &title)
{
    d->title = title;
}

// Columns -----------------------------------------------------------------------------------------

void Table::addColumn(const QString &name, const FieldDef &def, bool nullable, const QString &title,
                      bool extraFlag, const QString &description)
{
    addColumn(name, def.type, def.length, nullable, title, extraFlag, description);
}

void Table::addColumn(const QString &name, FieldType::Type type, int length, bool nullable,
                      const QString &title, bool extraFlag, const QString &description)
{
    TableColumnDef def(this);
    def.name = name;
    def.type = type;
    def.length = length;
    def.nullable = nullable;
    def.title = title;
    def.extraFlag = extraFlag;
    def.description = description;
    addColumn(def);
}

bool Table::acceptsExisting(const TableColumnDef &existing, const TableColumnDef &def) const
{
    if (existing.type == def.type && existing.length == def.length)
        return true;
    if (existing.type == FieldType::Integer64 && def.type == FieldType::Integer)
        return true;
    return existing.type == FieldType::VarChar && def.type == FieldType::VarChar &&
           existing.length >= def.length;
}

void Table::addColumn(const TableColumnDef &def)
{
    if (def.name.isEmpty())
        throw QStringLiteral("Column name can't be empty.");
    const int existing = columnIndex(def.name);
    if (existing != -1) {
        if (acceptsExisting(*columnDef(existing), def))
            return;
        throw QStringLiteral("Column '%1' already exists for table '%2'.").arg(def.name, d->name);
    }

    auto column = std::make_unique<TableColumnDef>(this, def);
    column->size = FieldType::typeLength(def.type, def.length);
    column->offset = d->dataLength;
    const int number = columnCount();
    const qint64 newDataLength = d->dataLength + roundedCell(column->size);
    const qint64 newRowSize = kRowHeaderSize + newDataLength + bitmapSize(number + 1);

    QList<Record> records;
    records.reserve(rowCount());
    for (const Record &record : *d->masterIndex)
        records.append(record);
    d->masterIndex->clear();
    d->forEachIndex([](Index *index) { index->clear(); });
    enlargeRows(records, *column, newRowSize);

    d->columnHash.insert(def.name, number);
    d->columnMap.insert(def.name, number);
    d->columns.append(column.release());
    d->rowSize = newRowSize;
    d->dataLength = newDataLength;
    for (int i = 0; i < d->columns.size(); ++i) {
        TableColumnDef &placed = *d->columns.at(i);
        placed.index = i;
        placed.nullOffset = newDataLength + i / 8;
        placed.nullMask = quint8(1u << (i % 8));
    }

    for (const Record &record : qAsConst(records))
        d->masterIndex->add(record);
    build();
}

// Gives every row the block of the new layout. The list's handles are the only ones left in the
// table; they change their blocks without a change of any count.
void Table::enlargeRows(QList<Record> &records, const TableColumnDef &added, qint64 newRowSize)
{
    const int number = columnCount();
    const qint64 oldRowSize = d->rowSize;
    const qint64 cellWidth = roundedCell(added.size);
    const qint64 oldBitmap = kRowHeaderSize + d->dataLength;
    const qint64 newBitmap = oldBitmap + cellWidth;

    for (Record &record : records) {
        uchar *const oldRow = record.row();
        const int others = rowHeader(oldRow)->refCount.loadRelaxed() - 1;
        if (others != 0)
            qWarning("Table::addColumn : Ref count in realloc is %d", others);

        auto *row = static_cast<uchar *>(qMallocAligned(size_t(newRowSize), kRowAlignment));
        Q_CHECK_PTR(row);
        std::memcpy(row, oldRow, size_t(oldBitmap));
        std::memset(row + oldBitmap, 0, size_t(newRowSize - oldBitmap));
        std::memcpy(row + newBitmap, oldRow + oldBitmap, size_t(oldRowSize - oldBitmap));
        uchar &presence = row[newBitmap + number / 8];
        if (added.nullable)
            presence = uchar(presence & ~(1u << (number % 8)));
        rowHeader(row)->refCount.storeRelaxed(0);
        // Releases the old block: it goes at once, or with the last of the handles outside.
        record = Record(row);
    }
}

int Table::columnCount() const
{
    return d->columns.size();
}

QString Table::columnName(int column) const
{
    return columnDef(column)->name;
}

FieldType::Type Table::columnType(int column) const
{
    return columnDef(column)->type;
}

QString Table::columnTypeName(int column) const
{
    const TableColumnDef *def = columnDef(column);
    return FieldType::typeNameWithLength(def->type, def->length);
}

QString Table::columnDescription(int column) const
{
    return columnDef(column)->description;
}

QString Table::columnTitle(int column) const
{
    const TableColumnDef *def = columnDef(column);
    return def->title.isEmpty() ? def->name : def->title;
}

void Table::setColumnTitle(int column, const QString &title)
{
    columnDef(column)->title = title;
}

TableColumnDef *Table::columnDef(int column) const
{
    return d->columns.at(column);
}

TableColumnDef *Table::columnDef(const QString &name) const
{
    return columnDef(columnIndex(name));
}

int Table::columnIndex(const QString &name) const
{
    return d->columnHash.size() > kMapLookupColumns ? d->columnHash.value(name, -1)
                                                    : d->columnMap.value(name, -1);
}

QList<ColumnDef> Table::columns() const
{
    QList<ColumnDef> result;
    result.reserve(d->columns.size());
    for (const TableColumnDef *def : qAsConst(d->columns))
        result.append(*def);
    return result;
}

QList<TableColumnDef *> Table::fieldDefs() const
{
    return d->columns;
}

qint64 Table::rowLength() const
{
    return d->dataLength;
}

qint64 Table::rowLengthUnaligned() const
{
    qint64 length = 0;
    for (const TableColumnDef *def : qAsConst(d->columns))
        length += def->size;
    return length;
}

qint64 Table::rowSize() const
{
    return d->rowSize;
}

// Rows --------------------------------------------------------------------------------------------

uchar *Table::allocRow() const
{
    auto *row = static_cast<uchar *>(qMallocAligned(size_t(d->rowSize), kRowAlignment));
    if (row)
        initRow(row);
    return row;
}

void Table::initRow(uchar *row) const
{
    std::memset(row, 0, size_t(d->rowSize));
    rowHeader(row)->table = const_cast<Table *>(this);
    uchar *const data = row + kRowHeaderSize;
    for (const TableColumnDef *def : qAsConst(d->columns)) {
        if (def->type == FieldType::XDecimal) {
            uchar *const cell = data + def->offset;
            BCDIIInit(reinterpret_cast<quint16 *>(cell), 0x1a00);
            BCDIISetZero(cell);
        }
        if (!def->nullable)
            data[def->nullOffset] |= def->nullMask;
    }
}

uchar *Table::cloneRow(const uchar *row) const
{
    auto *copy = static_cast<uchar *>(qMallocAligned(size_t(d->rowSize), kRowAlignment));
    if (!copy)
        return nullptr;
    // Not the count: other threads may be changing it.
    std::memcpy(copy + sizeof(QBasicAtomicInt), row + sizeof(QBasicAtomicInt),
                size_t(d->rowSize) - sizeof(QBasicAtomicInt));
    rowHeader(copy)->refCount.storeRelaxed(0);
    return copy;
}

void Table::copyRowContent(uchar *dst, const uchar *src) const
{
    std::memcpy(dst + kRowHeaderSize, src + kRowHeaderSize, size_t(d->rowSize - kRowHeaderSize));
}

void Table::copyRowContent(uchar *dst, const uchar *src, int first, int last) const
{
    ColumnSpan(d->columns, d->dataLength, first, last).copy(dst, src);
}

void Table::freeRow(uchar *row) noexcept
{
    qFreeAligned(row);
}

void Table::appendRow()
{
    const Record record(this);
    Q_CHECK_PTR(record.row());
    appendRow(record.row());
}

void Table::appendRow(uchar *row)
{
    const Record record(row);
    if (!d->indexes.isEmpty())
        completeInserted({record});
    addToIndexes(record);
}

void Table::appendList(const QList<Record> &records)
{
    completeInserted(records);
    for (const Record &record : records)
        addToIndexes(record);
}

void Table::completeInserted(const QList<Record> &records)
{
    int first = 0;
    int last = -1;
    complete({}, {}, first, last, records);
}

void Table::addToIndexes(const Record &record)
{
    d->masterIndex->add(record);
    d->forEachIndex([&](Index *index) {
        if (index->filter(record))
            index->add(record);
    });
}

int Table::rowCount() const
{
    return d->masterIndex->count();
}

const Record &Table::at(int i) const
{
    return i >= 0 && i < rowCount() ? d->masterIndex->at(i) : Record::null;
}

Field Table::dataPtr(uchar *row, int column) const
{
    const TableColumnDef *def = columnDef(column);
    uchar *const data = row + kRowHeaderSize;
    return Field(def, data + def->offset, data + def->nullOffset, def->nullMask);
}

Field Table::data(int row, int column) const
{
    return dataPtr(at(row).row(), column);
}

Table::const_iterator Table::begin() const
{
    return d->masterIndex ? d->masterIndex->begin() : const_iterator();
}

Table::const_iterator Table::end() const
{
    return d->masterIndex ? d->masterIndex->end() : const_iterator();
}

Record Table::find(const QString &keyText) const
{
    if (!d->masterIndex)
        return Record();
    // A text that is no key names no row.
    try {
        return d->masterIndex->findByKeyText(keyText);
    } catch (const QString &) {
    } catch (const Exception &) {
    }
    return Record();
}

void Table::setNull(int row, int column)
{
    data(row, column).setNull();
}

void Table::updated(const Record &record, int first, int last, int hint)
{
    // The argument may lie in an index that moves it.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    complete({kept}, {kept}, first, last, {});
    d->masterIndex->update(kept, first, last, hint);
    d->forEachIndex([&](Index *index) { index->update(kept, first, last, -1); });
}

void Table::updatedRow(int row)
{
    updated(at(row), 0, columnCount() - 1, -1);
}

void Table::remove(const Record &record, int hint)
{
    // The argument may lie in an index that lets go of it.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Record kept = record;
    d->forEachIndex([&](Index *index) { index->remove(kept, -1); });
    d->masterIndex->remove(kept, hint);
}

void Table::clear()
{
    d->forEachIndex([](Index *index) { index->clear(); });
    d->masterIndex->clear();
}
