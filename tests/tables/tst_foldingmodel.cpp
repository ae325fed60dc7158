// Random operations on batches, executed on a real table and compared cell by cell with a model
// that keeps every row as a list of texts.

#include "support/tablefixture.h"

#include <database/indexes/indexlist.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace
{

constexpr int kColumns = 11; // two bytes of presence bits
constexpr int kKeys = 12;

using Row = QStringList; // a null text for NULL

Row texts(const Record &record)
{
    Row row;
    for (int i = 0; i < kColumns; ++i)
        row.append(record.data(i).toString());
    return row;
}

/// The folding of one batch, entry by entry.
struct BatchModel {
    enum Kind { Inserted, Removed, Updated };
    struct Entry {
        Kind kind;
        Record record; // what stands for the entry in further operations
        Row row;       // of an insertion, or of a row that no table has seen
        Row change;    // of an update
    };

    void widen(int from, int to)
    {
        first = std::min(first, from);
        last = std::max(last, to);
    }
    void insert(int key, const Record &record, const Row &row)
    {
        entries[key] = {Inserted, record, row, {}};
    }
    void remove(int key, const Record &record, const Row &row)
    {
        const auto entry = entries.emplace(key, Entry{Removed, record, row, {}}).first;
        entry->second.kind = Removed;
        entry->second.change.clear();
    }
    void update(int key, const Record &record, const Row &row, const Row &change, int from, int to)
    {
        const auto entry = entries.emplace(key, Entry{Removed, record, row, {}}).first;
        Entry &known = entry->second;
        if (known.kind == Inserted)
            return;
        widen(from, to);
        if (known.kind == Removed)
            known.change = change;
        for (int i = from; i <= to; ++i)
            known.change[i] = change[i];
        known.kind = Updated;
    }
    /// The row that an updater of the key writes into.
    Row &pending(int key, const Record &record, const Row &row)
    {
        const auto entry = entries.emplace(key, Entry{Removed, record, row, {}}).first;
        Entry &known = entry->second;
        if (known.kind == Inserted)
            return known.row;
        if (known.kind == Removed)
            known.change = known.row;
        known.kind = Updated;
        return known.change;
    }
    void erase(int key)
    {
        Entry &known = entries.at(key);
        if (known.kind == Inserted)
            entries.erase(key);
        else
            remove(key, known.record, known.row);
    }
    void merge(BatchModel &other)
    {
        const bool ranged = other.first <= other.last;
        for (const auto &[key, entry] : other.entries) {
            if (entry.kind == Removed)
                remove(key, entry.record, entry.row);
        }
        for (const auto &[key, entry] : other.entries) {
            if (entry.kind == Updated)
                update(key, entry.record, entry.row, entry.change, ranged ? other.first : 0,
                       ranged ? other.last : kColumns - 1);
        }
        for (const auto &[key, entry] : other.entries) {
            if (entry.kind == Inserted)
                insert(key, entry.record, entry.row);
        }
        other = BatchModel();
    }
    void applyTo(std::map<int, Row> &table)
    {
        if (first > last)
            widen(0, kColumns - 1);
        for (const auto &[key, entry] : entries) {
            if (entry.kind == Removed) {
                table.erase(key);
                continue;
            }
            Row &row = table[key];
            row = entry.row;
            for (int i = first; entry.kind == Updated && i <= last; ++i)
                row[i] = entry.change[i];
        }
        *this = BatchModel();
    }

    int first = std::numeric_limits<int>::max();
    int last = -1;
    std::map<int, Entry> entries;
};

class FoldingModel : public ::testing::TestWithParam<unsigned>
{
protected:
    FoldingModel()
        : m_random(GetParam())
        , m_table(QStringLiteral("quotes"), QString())
        , m_index(addColumns(m_table), true)
    {
    }

    static Table *addColumns(Table &table)
    {
        const FieldType::Type types[] = {FieldType::Integer, FieldType::VarChar, FieldType::Double,
                                         FieldType::Decimal, FieldType::XDecimal};
        for (int i = 0; i < kColumns; ++i)
            table.addColumn(QStringLiteral("c%1").arg(i), types[i % 5], 3, i != 0);
        table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("c0")));
        return &table;
    }

    int below(int n) { return int(m_random() % unsigned(n)); }
    QString randomText() { return below(3) ? QString::number(below(1000)) : QString(); }

    /// A new row of a key, the other cells random.
    Record randomRow(int key)
    {
        Record row(&m_table);
        setText(row.data(0), QString::number(key));
        for (int i = 1; i < kColumns; ++i)
            setText(row.data(i), randomText());
        return row;
    }
    void writeCells(RecordUpdater updater, BatchModel &model, Row &row)
    {
        for (int n = below(3); n > 0; --n) {
            const int column = 1 + below(kColumns - 1);
            const QString text = randomText();
            setText(updater.field(column), text);
            row[column] = text.isEmpty() ? QString() : text;
            model.widen(column, column);
        }
    }

    void operate(RecordsTrans &batch, BatchModel &model);
    void run(RecordsTrans &batch, BatchModel &model);
    void compare();

    std::mt19937 m_random;
    Table m_table;
    IndexList m_index;
    std::map<int, Row> m_rows;
    QString m_step;
};

void FoldingModel::operate(RecordsTrans &batch, BatchModel &model)
{
    const int key = below(kKeys);
    const int operation = below(8);
    m_step = QStringLiteral("operation %1 on key %2").arg(operation).arg(key);
    const auto entry = model.entries.find(key);
    const bool entered = entry != model.entries.end();
    const Record live = m_table.masterIndex()->findRecord(QString::number(key));
    // Insertions of a key that the table holds would leave it with two rows of one key.
    if (!live && operation < 2) {
        const Record row = randomRow(key);
        if (operation == 0) {
            batch.mergeInsertedRow(row);
            model.insert(key, row, texts(row));
        } else {
            RecordUpdater updater = batch.insertRow(row);
            model.insert(key, row, texts(row));
            writeCells(updater, model, model.entries.at(key).row);
        }
        return;
    }
    if (operation == 2) {
        const Record source = randomRow(key);
        RecordUpdater updater = batch.upsertRow(source);
        if (!entered && !live)
            model.insert(key, updater.record(), texts(source));
        Row &row = model.pending(key, live, live ? m_rows.at(key) : texts(source));
        writeCells(updater, model, row);
        return;
    }
    const Record target = entered ? entry->second.record : live;
    if (!target)
        return;
    const Row row = entered ? entry->second.row : m_rows.at(key);
    switch (operation) {
    case 3: {
        const Record changed = randomRow(key);
        const int first = 1 + below(kColumns - 1);
        const int last = first + below(kColumns - first);
        model.update(key, target, row, texts(changed), first, last);
        batch.mergeUpdatedRow(target, changed, first, last);
        break;
    }
    case 4:
        model.remove(key, target, row);
        batch.removeRow(target);
        break;
    case 5:
        model.pending(key, target, row);
        batch.updateRow(target).remove();
        model.erase(key);
        break;
    case 6: {
        const Record source = randomRow(key);
        RecordUpdater updater = batch.updateRow(target);
        updater = source;
        model.pending(key, target, row) = texts(source);
        model.widen(0, kColumns - 1);
        break;
    }
    default:
        writeCells(batch.updateRow(target), model, model.pending(key, target, row));
    }
}

void FoldingModel::run(RecordsTrans &batch, BatchModel &model)
{
    {
        const TableUpdate update(m_table);
        batch.execute();
    }
    if (!model.entries.empty())
        model.applyTo(m_rows);
}

void FoldingModel::compare()
{
    ASSERT_EQ(m_table.rowCount(), int(m_rows.size()));
    ASSERT_EQ(m_index.count(), m_table.rowCount());
    int i = 0;
    for (const auto &[key, row] : m_rows) {
        const Record &record = m_table.at(i++);
        ASSERT_EQ(texts(record), row) << "key " << key;
        ASSERT_EQ(refCount(record), 2) << "key " << key;
        ASSERT_TRUE(m_index.contains(record)) << "key " << key;
    }
}

} // namespace

TEST_P(FoldingModel, agreesWithTheTableCellByCell)
{
    RecordsTrans batches[2]{RecordsTrans(&m_table), RecordsTrans(&m_table)};
    BatchModel models[2];
    for (int step = 0; step < 3000; ++step) {
        const int which = below(4) == 0;
        operate(batches[which], models[which]);
        SCOPED_TRACE("seed " + std::to_string(GetParam()) + " step " + std::to_string(step) + " " +
                     m_step.toStdString());
        ASSERT_EQ(batches[which].isEmpty(), models[which].entries.empty());
        if (below(12) != 0)
            continue;
        const int into = below(2);
        batches[into].merge(batches[1 - into]);
        models[into].merge(models[1 - into]);
        run(batches[into], models[into]);
        models[into] = BatchModel();
        batches[into].clear();
        ASSERT_NO_FATAL_FAILURE(compare());
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FoldingModel, ::testing::Range(1u, 7u));
