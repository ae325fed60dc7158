// Random operations on batches, executed on a real table and compared cell by cell with a model
// that keeps every row as a list of texts. Keys that can be hashed and others enter a batch in
// different ways, and so do many keys that seldom meet and few that often do.

#include "support/tablefixture.h"

#include <database/indexes/indexlist.h>
#include <database/masterindex_fast.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>

namespace
{

constexpr int kColumns = 11; // two bytes of presence bits

/// How a table's master index compares keys; an order of the application's own is not hashed.
enum KeyKind { AsBytes, ByValue, ByOwnOrder };

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

using Row = QStringList; // a null text for NULL

Row texts(const Record &record)
{
    Row row;
    for (int i = 0; i < kColumns; ++i)
        row.append(record.data(i).toString());
    return row;
}

/// What a batch holds: "+inserted -removed ~live>changed [first..last]".
QString described(const RecordsTrans &batch)
{
    QStringList texts = rows(batch.insertList()).replaceInStrings(QRegExp("^"), "+");
    texts += rows(batch.removeList()).replaceInStrings(QRegExp("^"), "-");
    const QList<Record> live = batch.updateList();
    const QList<Record> changed = batch.changeList();
    for (int i = 0; i < live.size(); ++i)
        texts.append("~" + cells(live[i]) + ">" + cells(changed[i]));
    if (batch.first() <= batch.last())
        texts.append(QStringLiteral("[%1..%2]").arg(batch.first()).arg(batch.last()));
    return texts.join(", ");
}

/// The folding of one batch, entry by entry.
struct BatchModel {
    enum Kind { Inserted, Removed, Updated };
    struct Entry {
        Kind kind = Removed;
        Record record;         // what stands for the entry in further operations
        Row row;               // of an insertion, or of a row that no table has seen
        Row change;            // of an update
        std::set<int> written; // the columns of the change that count, or of an upserted row
        bool upserted = false; // an insertion that upsertRow() made
    };

    void widen(int from, int to)
    {
        first = std::min(first, from);
        last = std::max(last, to);
    }
    Entry &entered(int key, const Record &record, const Row &row)
    {
        return entries.emplace(key, Entry{Removed, record, row, {}, {}}).first->second;
    }
    void update(Entry &entry, const Row &change, int from, int to)
    {
        if (entry.kind == Inserted)
            return;
        widen(from, to);
        if (entry.kind == Removed)
            replace(entry, change, {});
        for (int i = from; i <= to; ++i) {
            entry.change[i] = change[i];
            entry.written.insert(i);
        }
    }
    static void replace(Entry &entry, const Row &change, const std::set<int> &written)
    {
        entry.kind = Updated;
        entry.change = change;
        entry.written = written;
    }
    /// The row that an updater of the entry writes into.
    static Row &pending(Entry &entry)
    {
        if (entry.kind == Inserted)
            return entry.row;
        if (entry.kind == Removed)
            replace(entry, entry.row, {});
        return entry.change;
    }
    /// A removal or an update takes the values of a new row.
    void replaceAll(Entry &entry, const Row &row)
    {
        replace(entry, row, {});
        for (int i = 0; i < kColumns; ++i)
            entry.written.insert(i);
        widen(0, kColumns - 1);
    }
    void merge(BatchModel &other)
    {
        const bool ranged = other.first <= other.last;
        for (const auto &[key, entry] : other.entries) {
            if (entry.kind == Updated)
                ranged ? widen(other.first, other.last) : widen(0, kColumns - 1);
            const auto [place, isNew] = entries.emplace(key, entry);
            Entry &known = place->second;
            if (isNew)
                continue;
            if (entry.kind == Removed) {
                known.kind = Removed;
            } else if (known.kind == Removed && entry.kind == Updated) {
                replace(known, entry.change, entry.written);
            } else if (entry.kind == Inserted && !entry.upserted && known.kind == Inserted) {
                known = entry;
            } else if (entry.kind == Inserted && (!entry.upserted || known.kind == Removed)) {
                replaceAll(known, entry.row);
            } else if (entry.kind == Inserted || known.kind == Updated) {
                for (const int i : entry.written) {
                    pending(known)[i] = (entry.kind == Inserted ? entry.row : entry.change)[i];
                    known.written.insert(i);
                }
                if (entry.kind == Inserted && ranged)
                    widen(other.first, other.last);
            }
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
            Row &row = table[key] = entry.row;
            for (const int i : entry.written)
                row[i] = (entry.kind == Updated ? entry.change : entry.row)[i];
        }
        *this = BatchModel();
    }
    QString described() const
    {
        const auto cells = [](Row row) {
            for (QString &text : row)
                text = text.isNull() ? QStringLiteral("NULL") : text;
            return row.join(' ');
        };
        QStringList texts;
        for (const Kind kind : {Inserted, Removed, Updated}) {
            for (const auto &[key, entry] : entries) {
                if (entry.kind == kind)
                    texts.append(QLatin1Char("+-~"[kind]) + cells(entry.row) +
                                 (kind == Updated ? ">" + cells(entry.change) : QString()));
            }
        }
        if (first <= last)
            texts.append(QStringLiteral("[%1..%2]").arg(first).arg(last));
        return texts.join(", ");
    }

    int first = std::numeric_limits<int>::max();
    int last = -1;
    std::map<int, Entry> entries;
};

class FoldingModel : public ::testing::TestWithParam<unsigned>
{
protected:
    Table *addColumns(Table &table) const
    {
        const FieldType::Type types[] = {FieldType::Integer, FieldType::VarChar, FieldType::Double,
                                         FieldType::Decimal, FieldType::XDecimal};
        for (int i = 0; i < kColumns; ++i)
            table.addColumn(QStringLiteral("c%1").arg(i), types[i % 5], 3, i != 0);
        table.setMasterIndex(newMaster(table, {"c0"}, KeyKind(GetParam() % 3)));
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
    void writeCells(RecordUpdater updater, BatchModel &model, BatchModel::Entry &entry)
    {
        Row &row = model.pending(entry);
        for (int n = below(3); n > 0; --n) {
            const int column = 1 + below(kColumns - 1);
            row[column] = randomText();
            setText(updater.field(column), row[column]);
            model.widen(column, column);
            entry.written.insert(column);
        }
    }
    void operate(RecordsTrans &batch, BatchModel &model);
    void compare();

    const int m_keys = GetParam() % 2 == 0 ? 200 : 12;
    std::mt19937 m_random{GetParam()};
    Table m_table{"quotes", QString()};
    IndexList m_index{addColumns(m_table), true};
    std::map<int, Row> m_rows;
};

void FoldingModel::operate(RecordsTrans &batch, BatchModel &model)
{
    const int key = below(m_keys);
    const int operation = below(8);
    const bool entered = model.entries.count(key) != 0;
    const Record live = m_table.masterIndex()->findRecord(QString::number(key));
    const Record source = randomRow(key);
    // Insertions of a key that the table holds would leave it with two rows of one key, unless the
    // batch takes that one out or changes it.
    const bool replaces = entered && model.entries[key].kind != BatchModel::Inserted;
    if (operation < 2 && (!live || replaces)) {
        const RecordUpdater updater = batch.insertRow(source);
        BatchModel::Entry &entry = model.entries[key];
        if (replaces)
            model.replaceAll(entry, texts(source));
        else
            entry = {BatchModel::Inserted, source, texts(source), {}, {}};
        writeCells(updater, model, entry);
        return;
    }
    if (!entered && !live) {
        if (operation == 2) {
            const RecordUpdater updater = batch.upsertRow(source);
            model.entries[key] = {
                BatchModel::Inserted, updater.record(), texts(source), {}, {}, true};
            writeCells(updater, model, model.entries[key]);
        }
        return;
    }
    BatchModel::Entry &entry = model.entered(key, live, live ? m_rows.at(key) : Row());
    const Record target = entry.record;
    // What came and went within the batch is no row to update.
    if (entry.kind == BatchModel::Removed && !live)
        return;
    switch (operation) {
    case 2: {
        const RecordUpdater updater = batch.upsertRow(source);
        if (entry.kind == BatchModel::Removed && entered)
            model.replaceAll(entry, texts(source));
        writeCells(updater, model, entry);
        break;
    }
    case 3: {
        const int first = 1 + below(kColumns - 1);
        const int last = first + below(kColumns - first);
        model.update(entry, texts(source), first, last);
        batch.mergeUpdatedRow(target, source, first, last);
        break;
    }
    case 4:
        batch.removeRow(target);
        entry.kind = BatchModel::Removed;
        break;
    case 5:
        batch.updateRow(target).remove();
        if (entry.kind == BatchModel::Inserted)
            model.entries.erase(key);
        else
            entry.kind = BatchModel::Removed;
        break;
    case 6: {
        RecordUpdater updater = batch.updateRow(target);
        updater = source;
        model.pending(entry) = texts(source);
        for (int i = 0; i < kColumns; ++i)
            entry.written.insert(i);
        model.widen(0, kColumns - 1);
        break;
    }
    default:
        writeCells(batch.updateRow(target), model, entry);
    }
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
        SCOPED_TRACE("seed " + std::to_string(GetParam()) + " step " + std::to_string(step));
        ASSERT_EQ(batches[which].isEmpty(), models[which].entries.empty());
        if (below(8) == 0) {
            ASSERT_EQ(described(batches[which]), models[which].described());
        }
        if (below(m_keys) != 0)
            continue;
        const int into = below(2);
        batches[into].merge(batches[1 - into]);
        models[into].merge(models[1 - into]);
        batches[into].execute();
        models[into].applyTo(m_rows);
        batches[into].clear(); // a range without entries
        ASSERT_NO_FATAL_FAILURE(compare());
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FoldingModel, ::testing::Range(0u, 12u));

class FoldingRules : public ::testing::TestWithParam<KeyKind>
{
};

TEST_P(FoldingRules, combineEveryTwoOperationsOnARow)
{
    KeyedTable table;
    table.setMasterIndex(newMaster(table, {"key"}, GetParam()));
    const Record live = appendTexts(table, {"1", "10", "20", "30"});
    struct Case {
        const char *prior;
        const char *inserted, *updated, *removed, *erased; // the batch after each
    };
    const Case cases[] = {
        {"none", "+1 101 NULL NULL", "~1 10 20 30>1 12 22 32, [2..3]", "-1 10 20 30",
         "-1 10 20 30"},
        {"inserted", "+1 101 NULL NULL", "+1 100 NULL NULL", "-1 100 NULL NULL", ""},
        {"removed", "+1 101 NULL NULL", "~1 10 20 30>1 12 22 32, [2..3]", "-1 10 20 30",
         "-1 10 20 30"},
        {"updated", "+1 101 NULL NULL, [1..1]", "~1 10 20 30>1 11 22 32, [1..3]",
         "-1 10 20 30, [1..1]", "-1 10 20 30, [1..1]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.prior);
        RecordsTrans inserted(&table), updated(&table), removed(&table), erased(&table);
        for (RecordsTrans *const batch : {&inserted, &updated, &removed, &erased}) {
            if (c.prior == QLatin1String("inserted"))
                batch->mergeInsertedRow(newRow(table, {"1", "100"}));
            if (c.prior == QLatin1String("removed"))
                batch->mergeRemovedRow(live);
            if (c.prior == QLatin1String("updated"))
                batch->mergeUpdatedRow(live, newRow(table, {"1", "11", "21", "31"}), 1, 1);
        }
        inserted.mergeInsertedRow(newRow(table, {"1", "101"}));
        EXPECT_EQ(described(inserted), c.inserted);
        updated.mergeUpdatedRow(live.clone(), newRow(table, {"1", "12", "22", "32"}), 2, -1);
        EXPECT_EQ(described(updated), c.updated);
        removed.mergeRemovedRow(live);
        EXPECT_EQ(described(removed), c.removed);
        RecordUpdater updater = erased.updateRow(live);
        for (int times = 0; times < 2; ++times) { // the second finds nothing, or a removal
            updater.remove();
            EXPECT_EQ(described(erased), c.erased);
        }
    }
    EXPECT_EQ(refCount(live), 2);
}

INSTANTIATE_TEST_SUITE_P(Keys, FoldingRules, ::testing::Values(AsBytes, ByValue, ByOwnOrder));

// Many enough to be sorted by digests, which go by the keys that came first.
TEST(BatchLists, areInTheOrderOfKeys)
{
    constexpr int kOdd = 17000; // a mixed entry whose key is unlike those before
    const auto codeOf = [](const std::string &order, int i, int n) {
        const int mixed = int(qint64(i) * 7919 % n); // each number once, in no order
        if (order == "rising" || (order == "rising at first" && i < n * 9 / 10))
            return i;
        return order == "falling" ? n - i : order == "rising at first" ? n + n - i : mixed;
    };
    for (const KeyKind kind : {AsBytes, ByValue}) {
        Table table(QStringLiteral("quotes"), QString());
        table.addColumn(QStringLiteral("board"), FieldType::VarChar, 6, kind == ByValue);
        table.addColumn(QStringLiteral("code"), FieldType::VarChar, 12, false);
        table.setMasterIndex(newMaster(table, {"board", "code"}, kind));
        for (const char *order : {"rising", "rising at first", "falling", "mixed"}) {
            for (const int n : {1, 500, 20000}) {
                SCOPED_TRACE(testing::Message() << order << ", " << n << ", kind " << kind);
                RecordsTrans batch(&table);
                std::set<const uchar *> entered;
                for (int i = 0; i < n; ++i) {
                    const bool isOdd = i == kOdd && order == std::string("mixed");
                    const int number = codeOf(order, i, n);
                    const QString board = QStringLiteral("BOARD%1").arg(number * 3 / n);
                    const QString code = QStringLiteral("%1%2")
                                             .arg(isOdd ? QChar(0x416) : QLatin1Char('O'))
                                             .arg(number, 6, 10, QLatin1Char('0'));
                    Record row = newRow(table, {qPrintable(board), qPrintable(code)});
                    if (isOdd && kind == ByValue)
                        row.data(0).setNull();
                    batch.insertRow(row);
                    entered.insert(row.row());
                    if (i % 100 == 0) {
                        ASSERT_EQ(batch.updateRow(row.clone()).record(), row); // the same key
                    }
                }
                const QList<Record> inserted = batch.insertList();
                std::set<const uchar *> listed;
                for (const Record &row : inserted)
                    listed.insert(row.row());
                EXPECT_EQ(inserted.size(), n);
                EXPECT_EQ(listed, entered);
                EXPECT_TRUE(std::is_sorted(inserted.begin(), inserted.end(),
                                           IndexSort::LessThan(table.masterIndex())));
            }
        }
    }
}

TEST(BatchKeys, areEqualByValueWhateverLiesBehindIt)
{
    Table table(QStringLiteral("quotes"), QString());
    table.addColumn(QStringLiteral("code"), FieldType::VarChar, 8);
    table.addColumn(QStringLiteral("number"), FieldType::Integer, 0);
    table.setMasterIndex(newMaster(table, {"code", "number"}, ByValue));
    RecordsTrans batch(&table);
    for (const auto &[code, number] : {std::pair("AB", "1"), {"AB", nullptr}, {nullptr, "1"}}) {
        const Record row = newRow(table, {code, number});
        const Record same = row.clone();
        same.data(0).bytes()[2 * 5] = 'x'; // behind the text, or in a cell without one
        same.data(1).bytes()[number ? 4 : 0] = 7;
        batch.insertRow(row);
        EXPECT_EQ(batch.updateRow(same).record(), row);
    }
    EXPECT_EQ(rows(batch.insertList()), (QStringList{"NULL 1", "AB NULL", "AB 1"}));
}
