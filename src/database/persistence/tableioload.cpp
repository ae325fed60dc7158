// Loading a table: from the bytes of a file to rows in the table's indexes.

#include "database/persistence/rowfiller.h"
#include "database/persistence/rowstream.h"
#include "database/persistence/tabledatastream.h"
#include "database/persistence/tableheader_p.h"
#include "database/tables/rowlayout.h"
#include "database/tables/table.h"
#include "database/tables/tableindexrebuilder.h"

#include <QtCore/qdebug.h>
#include <QtCore/qdir.h>
#include <QtCore/qset.h>

#include <cstring>
#include <memory>
#include <new>

namespace
{

constexpr int kRowsAtATime = 10240;

/// Owns the convertors of one load. An application may have entered one of its own twice.
struct LoadConvertors {
    LoadConvertors() = default;
    LoadConvertors(const LoadConvertors &) = delete;
    LoadConvertors &operator=(const LoadConvertors &) = delete;
    ~LoadConvertors() { qDeleteAll(QSet<FieldDefConvertor *>(list.begin(), list.end())); }

    QList<FieldDefConvertor *> list;
};

bool isKeptOut(const QString &column, const TableIO::Convertors &convertors)
{
    bool keptOut = false;
    for (auto it = convertors.begin(); it != convertors.end(); ++it) {
        if (it.key().first == column)
            return false;
        keptOut = keptOut || (it.key().first.isEmpty() && it.key().second == column);
    }
    return keptOut;
}

void addMissingColumns(Table &table, const QList<TableColumnDef> &columns,
                       const TableIO::Convertors &convertors)
{
    for (const TableColumnDef &def : columns) {
        const bool isMissing = table.columnIndex(def.name) == -1 && !def.name.isEmpty();
        if (isMissing && !isKeptOut(def.name, convertors)) {
            table.addColumn(def.name, def.type, def.length, def.nullable, def.title, def.extraFlag,
                            def.description);
        }
    }
}

// A change of scale alone is no agreement, although it does not change the bytes: the application
// may have derived meaning from it.
bool agree(const TableColumnDef &a, const TableColumnDef &b)
{
    return a.type == b.type && a.length == b.length && a.size == b.size && a.nullable == b.nullable;
}

std::unique_ptr<FieldDefConvertor> copyOf(qint64 size)
{
    if (size == 4)
        return std::make_unique<TableIO::FieldDefConvertor_Copy4>();
    if (size == 8)
        return std::make_unique<TableIO::FieldDefConvertor_Copy8>();
    return std::make_unique<TableIO::FieldDefConvertor_Copy>(quint64(size));
}

void copyPresence(Field &target, const Field &source)
{
    if (source.isNull())
        target.setNull();
    else
        target.setPresent();
}

} // namespace

// Convertors --------------------------------------------------------------------------------------

void TableIO::FieldDefConvertor_Copy::convert(Field &target, const Field &source)
{
    std::memcpy(target.bytes(), source.bytes(), size_t(m_size));
    copyPresence(target, source);
}

void TableIO::FieldDefConvertor_Copy4::convert(Field &target, const Field &source)
{
    std::memcpy(target.bytes(), source.bytes(), sizeof(quint32));
    copyPresence(target, source);
}

void TableIO::FieldDefConvertor_Copy8::convert(Field &target, const Field &source)
{
    std::memcpy(target.bytes(), source.bytes(), sizeof(quint64));
    copyPresence(target, source);
}

void TableIO::make_fromDefs(QList<FieldDefConvertor *> &out, const Table *source,
                            const Convertors &map) const
{
    const auto append = [&out](FieldDefConvertor *convertor, const TableColumnDef *from,
                               const TableColumnDef *to) {
        out.append(convertor);
        convertor->source = from;
        convertor->target = to;
    };
    for (const TableColumnDef *target : m_table->fieldDefs()) {
        bool isTranslated = false;
        auto it = map.lowerBound({target->name, QString()});
        for (; it != map.end() && it.key().first == target->name; ++it) {
            isTranslated = true;
            const int column = source->columnIndex(it.key().second);
            if (column == -1 || !it.value())
                qWarning("Column not found in translation.");
            else
                append(it.value(), source->columnDef(column), target);
        }
        const int column = source->columnIndex(target->name);
        if (isTranslated || column == -1)
            continue;
        const TableColumnDef *from = source->columnDef(column);
        auto convertor =
            agree(*from, *target) ? copyOf(target->size) : std::make_unique<FieldDefConvertor>();
        append(convertor.get(), from, target);
        convertor.release(); // NOLINT(bugprone-unused-return-value): the list owns it
    }
}

void TableIO::convertDefs(const QList<FieldDefConvertor *> &list, uchar *target, uchar *source)
{
    const auto cell = [](const TableColumnDef *def, uchar *row) {
        uchar *const data = row + kRowHeaderSize;
        return Field(def, data + def->offset, data + def->nullOffset, def->nullMask);
    };
    for (FieldDefConvertor *convertor : list) {
        Field to = cell(convertor->target, target);
        const Field from = cell(convertor->source, source);
        convertor->convert(to, from);
    }
}

// Reading -----------------------------------------------------------------------------------------

void TableIO::read(FilterProgress &progress, QDataStream &stream, bool addColumns,
                   const Convertors &convertors, bool withRows)
{
    Table &table = changeable();
    if (!stream.device() || stream.atEnd())
        return;
    TableIndexRebuilder rebuilder(&table);
    const TableUpdate update(*m_table);
    m_table->clear();
    TableHeader header;
    readHeader(header, stream);
    if (header.magic != kMagic)
        return;
    verifyHeader(header, stream);

    const RowFormat format(header.columns);
    RowReader reader(stream, format, withRows ? header.rowCount : 0);
    if (withRows && header.rowCount > 0 && format.packedSize() > kBelievedRowSize &&
        !reader.hasNext())
        throwMissingRows(format.packedSize());

    Table saved(QStringLiteral("saved"), QString(), nullptr);
    for (const TableColumnDef &def : qAsConst(header.columns))
        saved.addColumn(def);
    if (addColumns)
        addMissingColumns(*m_table, header.columns, convertors);
    if (!withRows)
        return;

    LoadConvertors taken;
    make_fromDefs(taken.list, &saved, convertors);
    if (header.rowCount <= 0) // nor a scratch row: nothing vouches for its size
        return;
    RowFiller filler(format, saved, *m_table, taken.list);
    QList<Record> pending;
    pending.reserve(kRowsAtATime);
    for (int i = 0; i < header.rowCount; ++i) {
        progress(i, header.rowCount);
        const Record record(m_table);
        if (record.isNull())
            throw std::bad_alloc();
        filler.fill(record.row(), reader.next());
        if (!progress.filter(record))
            continue;
        if (pending.size() >= kRowsAtATime) {
            m_table->appendList(pending);
            pending.clear();
            pending.reserve(kRowsAtATime);
        }
        pending.append(record);
    }
    if (!pending.isEmpty())
        m_table->appendList(pending);
}

void TableIO::read(QDataStream &stream, bool addColumns, const Convertors &convertors)
{
    FilterProgressTrue progress;
    read(progress, stream, addColumns, convertors, true);
}

void TableIO::read(QDataStream &stream, bool addColumns)
{
    read(stream, addColumns, Convertors());
}

void TableIO::read(FilterProgress &progress, const QDir &dir, bool addColumns)
{
    TableDataStreamRead stream(fileName(dir));
    read(progress, stream, addColumns, Convertors(), true);
}

void TableIO::read(const QDir &dir, bool addColumns)
{
    FilterProgressTrue progress;
    read(progress, dir, addColumns);
}
