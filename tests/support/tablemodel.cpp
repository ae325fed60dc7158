#include "support/tablemodel.h"

#include <database/masterindex_fast.h>
#include <database/tables/fieldvalue.h>

#include <QtCore/qendian.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace
{

QString meaning(const ModelColumn &column, const Cell &cell)
{
    const QString text = cell.text.left(column.length);
    return text.left(text.indexOf(QChar(0)) < 0 ? text.size() : text.indexOf(QChar(0)));
}

QString numberText(qint64 number, int scale)
{
    QString digits = QString::number(std::abs(number)).rightJustified(scale + 1, '0');
    if (scale > 0)
        digits.insert(digits.size() - scale, '.');
    return (number < 0 ? "-" : "") + digits;
}

boardlist boardsOf(qint64 number)
{
    boardlist boards;
    for (int i = 0; i < number % (boardlist::kCapacity + 1); ++i)
        boards.append(int(number), -i);
    return boards;
}

template<class T>
int order(const T &a, const T &b)
{
    return int(b < a) - int(a < b);
}

} // namespace

Cell numberCell(qint64 number, int scale)
{
    return {false, number, scale, double(number) / 8, QString()};
}

Cell textCell(const QString &text)
{
    return {false, 0, 0, 0, text};
}

void writeCell(Field field, const Cell &cell)
{
    if (cell.isNull)
        return field.setNull();
    switch (field.column()->type) {
    case FieldType::Integer:
        return field.setValue(qint32(cell.number));
    case FieldType::Integer64:
        return field.setValue(cell.number);
    case FieldType::Double:
        return field.setValue(cell.real);
    case FieldType::Decimal:
        return field.setValue(decimal::fromParts(cell.number, short(cell.scale)));
    case FieldType::VarChar:
        return field.setValue(cell.text);
    case FieldType::DateTime:
        return field.setValue(datetime(cell.number));
    case FieldType::BoardList:
        return field.setValue(boardsOf(cell.number));
    default:
        return field.setValue(xdecimal(numberText(cell.number, cell.scale)));
    }
}

bool showsCell(const Field &field, const Cell &cell)
{
    if (cell.isNull || field.isNull())
        return cell.isNull == field.isNull();
    switch (field.column()->type) {
    case FieldType::Integer:
        return field.value<qint32>() == cell.number;
    case FieldType::Integer64:
        return field.value<qint64>() == cell.number;
    case FieldType::Double: {
        const auto value = field.value<double>();
        return std::isnan(cell.real)
                   ? std::isnan(value)
                   : value == cell.real && std::signbit(value) == std::signbit(cell.real);
    }
    case FieldType::VarChar:
        return field.value<QString>() ==
               meaning({{}, FieldType::VarChar, field.column()->length}, cell);
    case FieldType::DateTime:
        return field.value<datetime>().toMSecsSinceEpoch() == cell.number;
    case FieldType::BoardList: {
        const boardlist expected = boardsOf(cell.number);
        const auto boards = field.value<boardlist>();
        return boards.count == expected.count &&
               std::equal(boards.entries, boards.entries + boards.count, expected.entries,
                          [](const auto &a, const auto &b) {
                              return a.key == b.key && a.value == b.value;
                          });
    }
    default:
        return field.toString() == numberText(cell.number, cell.scale);
    }
}

int compareCell(const ModelColumn &column, const Cell &a, const Cell &b)
{
    if (a.isNull || b.isNull)
        return int(b.isNull) - int(a.isNull);
    switch (column.type) {
    case FieldType::Double:
        return order(a.real, b.real);
    case FieldType::VarChar:
        return order(meaning(column, a), meaning(column, b));
    case FieldType::BoardList:
        return 0;
    default: {
        const auto at = [](const Cell &cell, int scale) {
            qint64 number = cell.number;
            for (int i = cell.scale; i < scale; ++i)
                number *= 10;
            return number;
        };
        const int scale = std::max(a.scale, b.scale);
        return order(at(a, scale), at(b, scale));
    }
    }
}

MasterIndex *newMaster(Table &table, const QStringList &columns, KeyKind kind)
{
    class OwnOrder : public MasterIndex_Column_Pure
    {
        using MasterIndex_Column_Pure::MasterIndex_Column_Pure;
    };
    if (kind == AsBytes)
        return new MasterIndex_Fast_Pure(&table, columns);
    return kind == ByValue ? new MasterIndex_Column_Pure(&table, columns)
                           : new OwnOrder(&table, columns);
}

// Schema -----------------------------------------------------------------------------------------

Schema Schema::ofEveryType(KeyKind kind)
{
    Schema schema;
    schema.keys = 2;
    const auto hide = [](const QString &text, Random *random) {
        return textCell(random && random->oneIn(3) ? text + QChar(0) + "junk" : text);
    };
    if (kind == AsBytes) {
        schema.columns = {{"number", FieldType::Integer, 0, false},
                          {"code", FieldType::VarChar, 4, false}};
        schema.key = [hide](int key, Random *random) { // bytes that ascend
            const auto bytes = qint32(qToBigEndian(quint32(key / 3)));
            return Cells{numberCell(bytes), hide(QStringList{"A", "AB", "B"}[key % 3], random)};
        };
    } else {
        schema.columns = {{"code", FieldType::VarChar, 9}, {"strike", FieldType::Decimal, 2}};
        schema.key = [hide](int key, Random *random) {
            const int zeros = random ? random->below(3) : 0;
            const auto strike = numberCell(qint64((key % 4 - 2) * 25 * std::pow(10, zeros)),
                                           1 + zeros); // -2.5, 0.0, 2.50
            return Cells{hide(QStringLiteral("K%1").arg(key / 4, 5, 10, QChar('0')), random),
                         key % 4 == 0 ? Cell() : strike};
        };
    }
    for (const bool nullable : {false, true}) {
        for (int i = FieldType::Integer; i <= FieldType::XDecimal; ++i) {
            const auto type = FieldType::Type(i);
            const int length = type == FieldType::VarChar       ? 7
                               : FieldType::typeHasLength(type) ? 2
                                                                : 0;
            schema.columns.push_back(
                {QLatin1String(FieldType::typeName(type)) + QLatin1String(nullable ? "" : " set"),
                 type, length, nullable});
        }
    }
    return schema;
}

void Schema::addTo(Table &table, KeyKind kind) const
{
    QStringList names;
    for (const ModelColumn &column : columns) {
        table.addColumn(column.name, column.type, column.length, column.nullable);
        names.append(column.name);
    }
    table.setMasterIndex(newMaster(table, names.mid(0, keys), kind));
}

Cell Schema::initial(int column) const
{
    return columns[size_t(column)].nullable ? Cell() : numberCell(0);
}

// Table ------------------------------------------------------------------------------------------

RowPointer TableModel::live(int key) const
{
    const auto row = rows.find(key);
    return row == rows.end() ? nullptr : row->second;
}

void TableModel::fill(Pending &pending, const Batch &batch) const
{
    for (const Operation &operation : batch.operations) {
        const RowPointer row = live(operation.key);
        const auto found = pending.find(operation.key);
        const bool isNew = found == pending.end();
        Entry &entry = pending[operation.key];
        const bool wasRemoved = entry.kind == Operation::Remove;
        switch (operation.kind) {
        case Operation::Remove:
            entry = {Operation::Remove, isNew ? row : entry.row, {}};
            continue;
        case Operation::Update:
        case Operation::Merge:
        case Operation::Upsert:
            if (isNew && row)
                entry = {Operation::Update, row, operation.cells};
            if (!isNew || row) {
                if (operation.kind == Operation::Merge && entry.kind == Operation::Insert)
                    continue;
                if (wasRemoved && !isNew)
                    entry = {Operation::Update, entry.row, {}, operation.kind == Operation::Upsert};
                for (const auto &[column, cell] : operation.cells)
                    entry.cells[column] = cell;
                continue;
            }
            break;
        case Operation::Insert:
            break;
        }
        // A row of its own; over another entry of the live row all of its columns change.
        std::map<int, Cell> cells = operation.cells;
        for (int i = 0; i < int(schema.columns.size()); ++i)
            cells.emplace(i, i < schema.keys ? operation.keyCells[size_t(i)] : schema.initial(i));
        const bool replaces = entry.row && !isNew;
        entry = {replaces ? Operation::Update : Operation::Insert, entry.row, cells, replaces};
    }
}

bool TableModel::isCurrent(const Pending &pending) const
{
    return std::all_of(pending.begin(), pending.end(),
                       [&](const auto &each) { return each.second.row == live(each.first); });
}

void TableModel::merge(Pending &into, Pending &from) const
{
    for (const auto &[key, entry] : from) {
        Entry &known = into.emplace(key, entry).first->second;
        if (entry.kind == Operation::Remove || known.kind == Operation::Remove)
            known = entry;
        for (const auto &[column, cell] : entry.cells)
            known.cells[column] = cell;
    }
    from.clear();
}

Changes TableModel::run(Pending &pending)
{
    Changes changes;
    for (const auto &[key, entry] : pending) {
        RowPointer row = live(key);
        if (entry.kind != Operation::Insert && row != entry.row && !entry.replaces)
            continue; // it has left meanwhile
        if (entry.kind == Operation::Remove) {
            rows.erase(key);
            changes.removed.push_back(row);
            continue;
        }
        (row ? changes.updated : changes.inserted).push_back(row);
        if (!row) {
            row = std::make_shared<ModelRow>(ModelRow{key, Cells(schema.columns.size())});
            rows[key] = changes.inserted.back() = row;
        }
        for (const auto &[column, cell] : entry.cells)
            row->cells[size_t(column)] = cell;
    }
    pending.clear();
    return changes;
}

void TableModel::applyDirectly(const Batch &batch)
{
    for (const Operation &operation : batch.operations) {
        if (operation.kind == Operation::Insert ? live(operation.key) != nullptr
                                                : live(operation.key) == nullptr)
            continue;
        Pending pending;
        fill(pending, {"", {operation}});
        run(pending);
    }
}

void TableModel::addColumn(Table &table, const ModelColumn &column)
{
    table.addColumn(column.name, column.type, column.length, column.nullable);
    schema.columns.push_back(column);
    for (const auto &[key, row] : rows)
        row->cells.emplace_back(); // NULL, whatever new rows start with
    forgetBlocks();
}

void TableModel::forgetBlocks()
{
    for (const auto &[key, row] : rows)
        row->block = nullptr;
}

void TableModel::compare(const Table &table)
{
    ASSERT_EQ(table.rowCount(), int(rows.size()));
    int i = 0;
    for (const auto &[key, row] : rows) {
        const Record &record = table.at(i++);
        ASSERT_TRUE(!row->block || row->block == record.row()) << "another row of key " << key;
        row->block = record.row();
        for (int column = 0; column < int(schema.columns.size()); ++column) {
            const Cell &cell = row->cells[size_t(column)];
            const Field field = record.data(column);
            if (column < schema.keys && !cell.isNull && !field.isNull())
                continue; // in one of its forms; the order tells keys apart
            ASSERT_TRUE(showsCell(field, cell))
                << field.column()->name.toStdString() << " of key " << key << ": "
                << cells(record).toStdString() << ", not " << (cell.isNull ? "NULL" : "")
                << cell.number << '|' << cell.scale << '|' << cell.real << '|'
                << cell.text.toStdString();
        }
    }
}

namespace
{

Record keyRow(const Table &table, const Operation &operation)
{
    Record row(&table);
    for (int i = 0; i < int(operation.keyCells.size()); ++i)
        writeCell(row.data(i), operation.keyCells[size_t(i)]);
    return row;
}

} // namespace

void fill(RecordsTrans &trans, const Batch &batch)
{
    Table &table = *trans.table();
    for (const Operation &operation : batch.operations) {
        const Record row = keyRow(table, operation);
        const auto writeTo = [&](RecordUpdater updater) {
            for (const auto &[column, cell] : operation.cells)
                writeCell(updater.field(column), cell);
        };
        if (operation.kind == Operation::Insert) {
            writeTo(trans.insertRow(row));
            continue;
        }
        if (operation.kind == Operation::Upsert) {
            writeTo(trans.upsertRow(row));
            continue;
        }
        const Record live = table.masterIndex()->find(row, -1);
        ASSERT_TRUE(live) << "key " << operation.key << " is not found";
        if (operation.kind == Operation::Remove) {
            trans.removeRow(live);
        } else if (operation.kind == Operation::Update) {
            writeTo(trans.updateRow(live));
        } else {
            const Record changed(&table);
            for (const auto &[column, cell] : operation.cells)
                writeCell(changed.data(column), cell);
            trans.mergeUpdatedRow(live, changed, operation.cells.begin()->first,
                                  operation.cells.rbegin()->first);
        }
    }
}

void applyDirectly(Table &table, const Batch &batch)
{
    for (const Operation &operation : batch.operations) {
        const Record row = keyRow(table, operation);
        const Record live = table.masterIndex()->find(row, -1);
        const bool inserts = operation.kind == Operation::Insert;
        if (inserts ? !live.isNull() : live.isNull())
            continue;
        if (operation.kind == Operation::Remove) {
            table.remove(live, -1);
            continue;
        }
        for (const auto &[column, cell] : operation.cells)
            writeCell((inserts ? row : live).data(column), cell);
        if (inserts)
            table.appendRow(row.row());
        else if (!operation.cells.empty())
            table.updated(live, operation.cells.begin()->first, operation.cells.rbegin()->first,
                          -1);
    }
}

// Sorted index -----------------------------------------------------------------------------------

void SortedModel::build(const TableModel &table)
{
    m_order.clear();
    Changes all;
    for (const auto &[key, row] : table.rows)
        all.inserted.push_back(row);
    apply(all);
}

void SortedModel::apply(const Changes &changes)
{
    const auto less = [this](const RowPointer &a, const RowPointer &b) { return this->less(a, b); };
    for (const RowPointer &row : changes.removed)
        row->mark = ModelRow::Leaves;
    for (const RowPointer &row : changes.updated)
        row->mark = ModelRow::Changes;
    // Rows leave in rounds until those that stay are in order, and come back one by one.
    for (size_t before = m_order.size() + 1; m_order.size() < before;) {
        std::vector<RowPointer> next;
        for (size_t i = 0; i < m_order.size(); ++i) {
            const RowPointer &row = m_order[i];
            const auto isOut = [&] {
                return !accepts(*row) || (i + 1 < m_order.size() && less(m_order[i + 1], row)) ||
                       (i > 0 && less(row, m_order[i - 1]));
            };
            if (row->mark != ModelRow::Leaves && (row->mark != ModelRow::Changes || !isOut()))
                next.push_back(row);
        }
        before = m_order.size();
        m_order.swap(next);
    }
    for (const RowPointer &row : m_order)
        row->mark = row->mark == ModelRow::Changes ? ModelRow::Stays : row->mark;
    std::vector<RowPointer> coming;
    for (const auto *rows : {&changes.inserted, &changes.updated}) {
        for (const RowPointer &row : *rows) {
            if (accepts(*row) && row->mark != ModelRow::Stays)
                coming.push_back(row);
            row->mark = ModelRow::Stands;
        }
    }
    std::stable_sort(coming.begin(), coming.end(), less);
    std::vector<RowPointer> merged; // those that come go behind their equals
    std::merge(m_order.begin(), m_order.end(), coming.begin(), coming.end(),
               std::back_inserter(merged), less);
    m_order.swap(merged);
}
