#include "database/tables/table.h"

#include "database/bcdii.h"
#include "database/indexes/index.h"
#include "database/indexes/rowexchange.h"
#include "database/indexes/tablelocker.h"
#include "database/services/exception.h"
#include "database/tables/columnspan.h"
#include "database/tables/firsterror.h"
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
    d->forEachIndex([](Index *index) { FirstError().run([&] { index->clear(); }); });
    d->masterIndex.reset();
    qDeleteAll(d->columns);
    while (d->isMine()) // it goes inside its own bracket
        unlock();
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
    addColumns({def});
}

namespace
{

/// The layout of a table with more columns, made beside the one that it has.
struct WiderLayout {
    explicit WiderLayout(const TablePrivate &table)
        : dataLength(table.dataLength)
        , columns(table.columns)
        , hash(table.columnHash)
        , map(table.columnMap)
    {
    }
    /// Adds the column behind the others.
    void append(std::unique_ptr<TableColumnDef> column)
    {
        column->offset = dataLength;
        dataLength += roundedCell(column->size);
        const int number = columns.size();
        hash.insert(column->name, number);
        map.insert(column->name, number);
        columns.append(column.get());
        added.push_back(std::move(column));
    }
    qint64 rowSize() const { return kRowHeaderSize + dataLength + bitmapSize(columns.size()); }

    qint64 dataLength;
    QList<TableColumnDef *> columns;
    QHash<QString, int> hash;
    QMap<QString, int> map;
    std::vector<std::unique_ptr<TableColumnDef>> added;
};

/// A copy of a row in the new layout: the cells that it did not have are zero and not present.
Record widened(const Record &row, const TablePrivate &table, const WiderLayout &layout)
{
    const qint64 bitmap = kRowHeaderSize + table.dataLength;
    const qint64 newBitmap = kRowHeaderSize + layout.dataLength;
    auto *block = static_cast<uchar *>(qMallocAligned(size_t(layout.rowSize()), kRowAlignment));
    if (!block)
        throw std::bad_alloc();
    std::memcpy(block, row.row(), size_t(bitmap));
    std::memset(block + bitmap, 0, size_t(layout.rowSize() - bitmap));
    std::memcpy(block + newBitmap, row.row() + bitmap, size_t(table.rowSize - bitmap));
    // Unused bits of the old bitmap's last byte belong to the new columns.
    for (size_t i = 0; i < layout.added.size(); ++i) {
        const int number = table.columns.size() + int(i);
        uchar &presence = block[newBitmap + number / 8];
        if (layout.added[i]->nullable)
            presence = uchar(presence & ~(1u << (number % 8)));
    }
    rowHeader(block)->refCount.storeRelaxed(0);
    rowHeader(block)->flags = kRowInTable;
    return Record(block);
}

} // namespace

// All that can fail is done before anything changes: the columns, a new block for every row, the
// master index's room for them. Then handles and layout change places with what was there.
void Table::addColumns(const QList<TableColumnDef> &defs)
{
    refuseInside("addColumn");
    const TableLocker locker(*this);
    WiderLayout layout(*d);
    for (const TableColumnDef &def : defs) {
        if (def.name.isEmpty())
            throw QStringLiteral("Column name can't be empty.");
        const int existing = layout.hash.value(def.name, -1);
        if (existing != -1) {
            if (acceptsExisting(*layout.columns.at(existing), def))
                continue;
            throw QStringLiteral("Column '%1' already exists for table '%2'.")
                .arg(def.name, d->name);
        }
        auto column = std::make_unique<TableColumnDef>(this, def);
        column->size = FieldType::typeLength(def.type, def.length);
        layout.append(std::move(column));
    }
    if (layout.added.empty())
        return;

    QList<Record> rows;
    rows.reserve(rowCount());
    for (const Record &record : *d->masterIndex)
        rows.append(widened(record, *d, layout));
    MasterIndex::RowExchange exchange(*d->masterIndex);
    FirstError error;
    d->forEachIndex([&](Index *index) { error.run([&] { index->clear(); }); });
    if (error.caught()) { // one may still hold rows of the old layout
        d->forEachIndex([&](Index *index) { FirstError().run([&] { index->build(); }); });
        error.rethrow();
    }
    exchange.commit(rows);

    for (auto &column : layout.added)
        column.release();
    d->columns.swap(layout.columns);
    d->columnHash.swap(layout.hash);
    d->columnMap.swap(layout.map);
    d->dataLength = layout.dataLength;
    d->rowSize = kRowHeaderSize + d->dataLength + bitmapSize(d->columns.size());
    for (int i = 0; i < d->columns.size(); ++i) {
        TableColumnDef &placed = *d->columns.at(i);
        placed.index = i;
        placed.nullOffset = d->dataLength + i / 8;
        placed.nullMask = quint8(1u << (i % 8));
    }
    d->layout.fetch_add(1, std::memory_order_relaxed);
    d->noteRows();
    exchange.finish();

    // The list has the old rows now, and holds each once.
    int handles = 0;
    for (const Record &row : qAsConst(rows)) {
        rowHeader(row.row())->flags = 0;
        handles += rowHeader(row.row())->refCount.loadRelaxed() - 1;
    }
    rows.clear();
    if (handles != 0)
        qWarning("Table::addColumn : Ref count in realloc is %d", handles);
    build();
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
    const int column = columnIndex(name);
    if (column == -1)
        throw QStringLiteral("Table '%1' has no column '%2'.").arg(d->name, name);
    return columnDef(column);
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
    // Not the count: other threads may be changing it. Nor the flags: no table holds the copy.
    std::memcpy(copy + kRowHeaderSize, row + kRowHeaderSize, size_t(d->rowSize - kRowHeaderSize));
    rowHeader(copy)->refCount.storeRelaxed(0);
    rowHeader(copy)->flags = 0;
    rowHeader(copy)->table = rowHeader(row)->table;
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
