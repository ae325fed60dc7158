#include <database/indexes/indexlist.h>

#include "persistence/filefixture.h"

#include <QtCore/qdir.h>
#include <QtCore/qtemporarydir.h>

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace
{

const char kExample[] = "20151002 0002 00000002 00000008 00000001"
                        "00000004 00690064 FFFFFFFF FFFFFFFF 00000000 01 00000004 0001"
                        "00000008 0063006F00640065 00000002 0043 FFFFFFFF"
                        "00000002 05 00000004 0101"
                        "00000001 00000004 00690064"
                        "07000000 41004200 03"
                        "08000000 00000000 01";

QByteArray example()
{
    return QByteArray::fromHex(kExample);
}

void addExampleColumns(Table &table)
{
    table.addColumn("id", FieldType::Integer, 0, false);
    table.addColumn("code", FieldType::VarChar, 2, true, "C");
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QString("id")));
}

bool isUnlocked(Table &table)
{
    return std::async(std::launch::async,
                      [&] {
                          const bool locked = table.tryLock();
                          if (locked)
                              table.unlock();
                          return locked;
                      })
        .get();
}

QStringList numbered(int count)
{
    QStringList calls;
    for (int i = 0; i < count; ++i)
        calls.append(QStringLiteral("%1/%2").arg(i).arg(count));
    return calls;
}

} // namespace

TEST(TableIOTest, savesTheBytesOfTheDocumentedExample)
{
    Table table("t", QString());
    addExampleColumns(table);
    appendTexts(table, {"8", nullptr});
    appendTexts(table, {"7", "AB"});
    EXPECT_EQ(saved(table).toHex(), example().toHex());

    Table empty("t", QString());
    MemoryStream stream(example());
    TableIO(&empty).read(stream, true);
    EXPECT_EQ(rows(*empty.masterIndex()), (QStringList{"7 AB", "8 NULL"}));
    EXPECT_EQ(empty.columnTitle(1), "C");
    EXPECT_FALSE(empty.columnDef(0)->nullable);
    EXPECT_TRUE(stream.atEnd());
}

TEST(TableIOTest, endsATextAtItsFirstZero)
{
    QByteArray bytes = example();
    const int text = bytes.indexOf(QByteArray::fromHex("41004200"));
    bytes[text] = '\0'; // 0 and "B"
    Table table("t", QString());
    MemoryStream stream(bytes);
    TableIO(&table).read(stream, true);
    EXPECT_EQ(table.data(0, 1).toString(), "");
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(table.data(0, 1).bytes()), 4),
              QByteArray(4, '\0'));
}

TEST(TableIOTest, presenceBitsTakeAByteForEveryEightColumns)
{
    for (const int columns : {0, 1, 8, 9}) {
        Table table("t", QString());
        for (int i = 0; i < columns; ++i)
            table.addColumn(QString::number(i), FieldType::Integer, 0);
        table.appendRow();
        table.appendRow();
        if (columns > 0)
            table.data(1, columns - 1).setValue(9);
        const QByteArray bytes = saved(table);
        Table loaded("t", QString());
        MemoryStream stream(bytes);
        TableIO(&loaded).read(stream, true);
        EXPECT_EQ(rows(*loaded.masterIndex()), rows(*table.masterIndex())) << columns;
        EXPECT_EQ(saved(loaded), bytes);
        table.clear();
        EXPECT_EQ(bytes.size() - saved(table).size(), 2 * (4 * columns + (columns + 7) / 8));
    }
}

TEST(TableIOTest, filesKeepEveryTypeAndNeverStandInBothForms)
{
    TestCore core;
    const QTemporaryDir place;
    const QDir dir(place.path());
    Table table("quotes", QString());
    addEveryType(table);
    fillEveryType(table, 3000); // several blocks
    const TableIO io(&table);
    for (const bool compress : {false, true, true, false}) {
        core.compress = compress;
        QString error("?");
        ASSERT_TRUE(io.write(dir, &error)) << error.toStdString();
        EXPECT_EQ(dir.entryList(QDir::Files | QDir::Hidden),
                  QStringList{compress ? "quotes.gz" : "quotes"});
        const TableFileReport report = io.check(dir);
        EXPECT_EQ(report.verdict, "Sound: 3000 rows of 9 columns.");
        EXPECT_EQ(report.keyColumns, QStringList{"key"});
        Table loaded("quotes", QString());
        addEveryType(loaded);
        TableIO(&loaded).read(dir, false);
        EXPECT_EQ(saved(loaded), saved(table));
    }
    core.compress = true;
    ASSERT_TRUE(io.write(dir));
    QFile file(dir.filePath("quotes.gz"));
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("behind");
    file.close();
    EXPECT_EQ(io.check(dir).verdict, "All 3000 rows are present, and 6 bytes too many.");
    core.compress = false;
    ASSERT_TRUE(io.write(dir));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_TRUE(io.check(dir).sound) << "the plain file is not the one that counts";
}

TEST(TableIOTest, loadsWhatThereIs)
{
    QByteArray wrongMagic = example();
    wrongMagic[0] = 0x21;
    QByteArray wrongLength = example();
    wrongLength[13] = 9;
    struct Case {
        const char *name;
        QByteArray bytes;
        bool withRows;
        QStringList expected; // in a table that held "1 X"
        const char *verdict;
    };
    const Case cases[] = {
        {"end of stream", "", true, {"1 X"}, "There is nothing to read."},
        {"wrong magic", wrongMagic, true, {}, "This is no table file: it begins with 0x21151002."},
        {"columns only", example(), false, {}, "Sound: 2 rows of 2 columns."},
        {"wrong length of rows",
         wrongLength,
         true,
         {"7 AB", "8 NULL"},
         "The header claims rows of 9 bytes, its columns take 8."},
        {"more behind",
         example() + "xyz",
         true,
         {"7 AB", "8 NULL"},
         "All 2 rows are present, and 3 bytes too many."},
        {"cut",
         example().chopped(1),
         true,
         {"0 NULL", "7 AB"},
         "1 of 2 rows are present, and 8 bytes of another."},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Table table("t", QString());
        addExampleColumns(table);
        appendTexts(table, {"1", "X"});
        MemoryStream stream(c.bytes);
        FilterProgressTrue progress;
        TableIO(&table).read(progress, stream, false, {}, c.withRows);
        EXPECT_EQ(rows(*table.masterIndex()), c.expected);
        EXPECT_TRUE(isUnlocked(table));
        stream.rewind();
        stream.resetStatus();
        EXPECT_EQ(TableIO::check(stream).verdict, c.verdict);
    }
}

TEST(TableIOTest, convertsChangedColumnsAndKeepsOthersOut)
{
    Table table("t", QString());
    table.addColumn("note", FieldType::VarChar, 5); // new: stays as in a new row
    table.addColumn("code", FieldType::VarChar, 1); // narrower
    table.addColumn("id", FieldType::Integer64, 0, false);
    const TableIO::Convertors keptOut{{{"", "code"}, nullptr}, {{"", "id"}, nullptr}};
    MemoryStream stream(example());
    TableIO(&table).read(stream, true, keptOut);
    EXPECT_EQ(rows(*table.masterIndex()), (QStringList{"NULL A 7", "NULL NULL 8"}));

    Table other("t", QString());
    other.addColumn("id", FieldType::Integer, 0, false);
    stream.rewind();
    TableIO(&other).read(stream, true, keptOut);
    EXPECT_EQ(rows(*other.masterIndex()), (QStringList{"7", "8"}));
}

TEST(TableIOTest, rowsArriveByTenThousandAndReportThemselves)
{
    constexpr int kRows = 10242;
    Table table("t", QString());
    addExampleColumns(table);
    for (int i = 0; i < kRows; ++i)
        table.appendRow();
    MemoryStream stream;
    Listener writer;
    TableIO(&table).write(writer, stream, true);
    EXPECT_EQ(writer.calls, numbered(kRows));

    stream.rewind();
    Listener reader;
    QList<int> counts;
    bool rejected = false;
    reader.onRow = [&](int) {
        if (counts.isEmpty() || counts.last() != table.rowCount())
            counts.append(table.rowCount());
    };
    reader.accepts = [&](const Record &) { return std::exchange(rejected, true); };
    TableIO(&table).read(reader, stream, false, {}, true);
    EXPECT_EQ(counts, (QList<int>{0})) << "the 10241st accepted row is the last";
    EXPECT_EQ(reader.calls, numbered(kRows));
    EXPECT_EQ(table.rowCount(), kRows - 1);

    stream.rewind();
    reader.accepts = nullptr;
    TableIO(&table).read(reader, stream, false, {}, true);
    EXPECT_EQ(counts, (QList<int>{0, 10240}));
}

// More than are packed at once, so that threads take turns.
TEST(TableIOTest, keepsManyRowsInTheirOrder)
{
    constexpr int kRows = 50000;
    KeyedTable table, copy;
    for (int key = 0; key < kRows; ++key) {
        const Record row(&table);
        row.data(0).setValue(key);
        if (key % 3 != 0)
            row.data(1).setValue(7 * key);
        table.appendRow(row.row());
    }
    MemoryStream stream(saved(table));
    TableIO(&copy).read(stream, true);
    ASSERT_EQ(copy.rowCount(), kRows);
    int wrong = 0;
    for (int key = 0; key < kRows; ++key) {
        const Record &row = copy.at(key);
        wrong += row.data(0).value<int>() != key || row.data(1).isNull() != (key % 3 == 0) ||
                 (key % 3 != 0 && row.data(1).value<int>() != 7 * key);
    }
    EXPECT_EQ(wrong, 0);
}

TEST(TableIOTest, cancellingALoadLeavesTheTableInOrder)
{
    Table table("t", QString());
    addExampleColumns(table);
    appendTexts(table, {"1", "X"});
    IndexList list(&table, true);
    table.setIndexName("list", &list);
    MemoryStream stream(example());
    Listener progress;
    progress.onRow = [](int i) {
        if (i == 1)
            throw std::runtime_error("cancelled");
    };
    EXPECT_THROW(TableIO(&table).read(progress, stream, false, {}, true), std::runtime_error);
    EXPECT_EQ(table.rowCount(), list.count());
    EXPECT_EQ(table.namedIndex("list"), &list);
    EXPECT_TRUE(isUnlocked(table));

    appendTexts(table, {"1", "X"});
    appendTexts(table, {"2", "Y"});
    EXPECT_THROW(TableIO(&table).write(progress, stream, true), std::runtime_error);
    EXPECT_TRUE(isUnlocked(table));
}

TEST(TableIOTest, rowListsFollowEachOther)
{
    TestCore core;
    Table known("known", QString());
    addExampleColumns(known);
    Table other("other", QString());
    addEveryType(other);
    fillEveryType(other, 40);
    appendTexts(known, {"2", "B"});
    appendTexts(known, {"1", nullptr});
    Listener writer;
    MemoryStream stream;
    const PartitionList<Record> nothing;
    TableIO::writeRowList(writer, stream, nothing);
    EXPECT_TRUE(stream.bytes().isEmpty());
    PartitionList<Record> reversed;
    reversed.append(known.at(1));
    reversed.append(known.at(0));
    TableIO::writeRowList(writer, stream, reversed);
    TableIO::writeRowList(writer, stream, other.masterIndex()->list());
    EXPECT_EQ(writer.calls, numbered(2) + numbered(40));

    core.tables.insert("known", &known);
    PartitionList<Record> read;
    Listener reader;
    reader.accepts = [](const Record &row) { return row.data(0).toString() == "2"; };
    stream.rewind();
    EXPECT_EQ(TableIO::readRowList(reader, stream, read, false), &known);
    EXPECT_EQ(rows(read), QStringList{"2 B"});
    EXPECT_EQ(TableIO::readRowList(reader, stream, read, false), nullptr) << "unknown: skipped";
    EXPECT_TRUE(stream.atEnd());
    EXPECT_EQ(TableIO::readRowList(reader, stream, read, false), nullptr);
    EXPECT_EQ(reader.calls, numbered(2));

    reader.accepts = nullptr;
    core.tables.insert("known", &other); // other columns: refused, and the next one can be read
    stream.rewind();
    EXPECT_EQ(thrownBy([&] { TableIO::readRowList(reader, stream, read, false); }),
              "QString: The row list of table 'known' has other columns than the table.");
    PartitionList<Record> copies;
    const std::unique_ptr<Table> created(TableIO::readRowList(reader, stream, copies, true));
    ASSERT_TRUE(created);
    EXPECT_EQ(created->name(), "other");
    EXPECT_EQ(rows(copies), rows(*other.masterIndex()));

    stream.rewind();
    reader.onRow = [](int i) {
        if (i == 1)
            throw std::runtime_error("cancelled");
    };
    EXPECT_THROW(TableIO::readRowList(reader, stream, read, true), std::runtime_error);
    EXPECT_EQ(rows(read), QStringList{"2 B"}) << "as before";
    copies.clear();
}

TEST(TableIOTest, filtersInPlaceAndMeasuresMemory)
{
    Table table("t", QString());
    addExampleColumns(table);
    for (int i = 0; i < 100; ++i)
        appendTexts(table, {QByteArray::number(i).constData(), "x"});
    IndexList list(&table, true);
    Listener progress;
    progress.accepts = [](const Record &row) {
        const int id = row.data(0).value<qint32>();
        return id % 10 == 3 || id > 97;
    };
    TableIO io(&table);
    io.filterRecords(progress);
    EXPECT_EQ(progress.calls.first(), "3/100");
    EXPECT_EQ(progress.calls.size(), 12);
    EXPECT_EQ(table.rowCount(), 12);
    EXPECT_EQ(rows(list), rows(*table.masterIndex()));
    EXPECT_EQ(table.at(11).data(0).value<qint32>(), 99);

    unsigned long total = 0;
    unsigned long part = 0;
    TableIO::memoryUsage(&table, total, part);
    EXPECT_EQ(total, 12UL * (16 + 8 + 8 + 1));
    EXPECT_EQ(part, 12UL * 8);
    TableIO::memoryUsage(&list, total, part);
    EXPECT_GE(total, 12 * sizeof(Record));
    EXPECT_EQ(total - part, 12 * sizeof(Record));
}

TEST(TableIOTest, savesAndChecksAConstantTableAndDoesNotChangeIt)
{
    KeyedTable table;
    appendTexts(table, {"1", "2", "3", "4"});
    const Table &constant = table;
    TableIO io(&constant);
    MemoryStream stream;
    io.write(stream, true);
    EXPECT_EQ(stream.bytes(), saved(table));
    stream.rewind();
    EXPECT_EQ(thrownBy([&] { io.read(stream, false); }),
              "QString: Table 'quotes' is constant here.");
    FilterProgressTrue progress;
    EXPECT_EQ(thrownBy([&] { io.filterRecords(progress); }),
              "QString: Table 'quotes' is constant here.");
    EXPECT_EQ(rows(table), QStringList{"1 2 3 4"});
    EXPECT_TRUE(table.tryLock());
    table.unlock();
    unsigned long total = 0, padding = 0;
    TableIO::memoryUsage(&constant, total, padding);
    EXPECT_EQ(total, (unsigned long)(table.rowSize()));
}
