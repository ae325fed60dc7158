#include "indexes/indexfixture.h"

#include <database/masterindex_fast.h>
#include <database/tables/cellcompare.h>
#include <database/tables/recordstrans.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <vector>

namespace
{

/// Columns 0..7 have the types Integer..XDecimal and may be NULL; 8..10 follow each other and may
/// not.
class PrimaryKey : public ::testing::Test
{
protected:
    PrimaryKey()
        : table(QStringLiteral("options"), QString())
    {
        for (int i = FieldType::Integer; i <= FieldType::XDecimal; ++i) {
            const auto type = FieldType::Type(i);
            const int length = FieldType::typeHasLength(type) ? 5 : 0;
            table.addColumn(FieldType::typeName(type), type, length, true);
        }
        table.addColumn("Series", FieldType::Integer, 0, false);
        table.addColumn("Ticker", FieldType::VarChar, 5, false);
        table.addColumn("Strike", FieldType::Double, 0, false);
    }

    Record row(const QString &column, const QString &value) const
    {
        const Record record(&table);
        record.data(column) = QStringRef(&value);
        return record;
    }

    Table table;
};

TEST_F(PrimaryKey, ordersEachTypeByValueAndNullFirst)
{
    struct {
        const char *column, *less, *more;
    } cases[] = {
        {"Integer", "-2", "1"},       {"Integer64", "-9000000000", "9000000000"},
        {"Double", "-0.5", "1e300"},  {"Decimal", "9.5", "10.25"},
        {"VarChar", "AB", "ABC"},     {"DateTime", "1969-12-31", "2024.02.29 12:00:00.001"},
        {"XDecimal", "9.5", "10.25"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.column << ": " << c.less << " < " << c.more);
        const MasterIndex_Column_Pure key(&table, QString(c.column));
        const Record less = row(c.column, c.less);
        const Record more = row(c.column, c.more);
        EXPECT_LT(key.compare(Record(&table), less), 0);
        EXPECT_LT(key.compare(less, more), 0);
        EXPECT_GT(key.compare(more, less), 0);
        EXPECT_EQ(key.compare(more, more.clone()), 0);
    }
}

TEST_F(PrimaryKey, readsBackTheTextThatItWrites)
{
    const QStringList columns{"Integer", "Integer64", "Double",  "Decimal",
                              "VarChar", "DateTime",  "XDecimal"};
    const MasterIndex_Column_Pure key(&table, columns);
    const QString text = "-7,9000000000,0.1,12.50,SBER,2024.02.29 10:11:12.013,-1.25";
    EXPECT_EQ(key.toText(key.fromText(text)), text);
    const MasterIndex_Column_Pure day(&table, QStringLiteral("DateTime"));
    for (const char *date :
         {"2024.02.29 00:00:00.000", "2024-02-29 00:00:00", "2024.02.29", "2024-02-29"})
        EXPECT_EQ(day.toText(day.fromText(date)), "2024.02.29 00:00:00.000") << date;
}

TEST_F(PrimaryKey, rejectsTextThatIsNoKey)
{
    struct {
        const char *columns, *text, *message;
    } cases[] = {
        {"Integer", "2147483648", "Can't convert from '2147483648'' to Integer"},
        {"Integer64", "0x10", "Can't convert from '0x10'' to Integer64"},
        {"Double", "1.2.3", "Can't convert from '1.2.3'' to Double"},
        {"Decimal", "one", "Can't convert from 'one'' to Decimal"},
        {"DateTime", "2023-02-29", "Can't convert from '2023-02-29'' to DateTime"},
        {"XDecimal", "1e99", "Can't convert from '1e99'' to XDecimal"},
        {"BoardList", "1", "Can't convert from '1'' to BoardList"},
        {"VarChar,Integer", "a",
         "Master index can't restore from text. Incorrect columns numbers: 1 != 2"},
    };
    for (const auto &c : cases) {
        const MasterIndex_Column_Pure key(&table, QString(c.columns).split(','));
        std::string message = c.message;
        if (message.rfind("Can't", 0) == 0)
            message += std::string(" (column '") + c.columns + "' of table 'options')";
        EXPECT_EQ(thrownBy([&] { key.fromText(c.text); }), message);
        EXPECT_TRUE(c.columns == QString("BoardList") || // any text does
                    thrownBy([&] { key.fromKeyText(c.text); }) == message);
    }
}

TEST_F(PrimaryKey, isFoundAgainByItsExactTextWhateverIsInIt)
{
    const QStringList columns{"Integer", "Integer64", "Double",   "Decimal",
                              "VarChar", "DateTime",  "XDecimal", "BoardList"};
    const struct {
        const char *column;
        QStringList texts; // and NULL
        const char *shown; // the first one's key text
    } values[] = {
        {"Integer", {"-2147483648", "0"}, "-2147483648"},
        {"Integer64", {"9223372036854775807"}, "9223372036854775807"},
        {"Double", {"0.1", "1e300", "5e-324", "-0.30000000000000004", "inf"}, "0.1"},
        {"Decimal",
         {"900719925474.0993", "-720575940379279.36", "72057594037927937", "0.00", "12.50", "5e-2",
          "7e63", "-1e-64"},
         "900719925474.0993"},
        {"VarChar",
         {"A,\"B", "NULL", "", " x", ",", "\"", "\"\",", "two\n", "Сбер", "null", "a b"},
         "\"A,\"\"B\""},
        {"DateTime",
         {"2024.02.29 10:11:12.013", "0001-01-01", "none", "9999.12.31 23:59:59.999"},
         "2024.02.29 10:11:12.013"},
        {"XDecimal",
         {"12345678901234567890123456", "-0.5", "0.00", "1.50"},
         "12345678901234567890123456"},
        {"BoardList", {}, "NULL"},
    };
    auto *key = new MasterIndex_Column_Pure(&table, columns);
    table.setMasterIndex(key);
    std::mt19937 random(31);
    QList<Record> rows;
    for (int i = 0; i < 3000; ++i) {
        Record record(&table);
        for (const auto &[column, texts, shown] : values) {
            Field cell = record.data(QString(column));
            const int choice = int(random() % uint(texts.size() + 1));
            if (choice < texts.size()) {
                cell = QStringRef(&texts.at(choice));
                if (texts.at(choice).isEmpty())
                    cell.setPresent(); // the empty text
            }
            // What texts do not say: scales below zero, and dates out of their reach.
            if (random() % 8 == 0 && cell.column()->type == FieldType::XDecimal) {
                xdecimal large = xdecimal(int(random() % 100)) * xdecimal::fromInt64(1, -30);
                cell.setValue(random() % 2 ? large : xdecimal::minimum());
            }
            if (random() % 8 == 0 && cell.column()->type == FieldType::DateTime)
                cell.setValue(datetime(random() % 2 ? -99999999999999 : 999999999999999));
        }
        if (key->search(record, -1) == -1) {
            table.appendRow(record.row());
            rows.append(record);
        }
    }
    ASSERT_GT(rows.size(), 1000);
    for (const Record &row : qAsConst(rows)) {
        const QString text = row.keyText();
        const Record copy = key->fromKeyText(text);
        ASSERT_EQ(table.find(text), row) << text.toStdString();
        for (const QString &column : columns) // not only equal by value
            ASSERT_EQ(copy[column].isNull() ? "NULL"
                                            : QByteArray((const char *)copy[column].bytes(),
                                                         int(copy[column].column()->size)),
                      row[column].isNull() ? "NULL"
                                           : QByteArray((const char *)row[column].bytes(),
                                                        int(row[column].column()->size)))
                << text.toStdString();
    }
    QStringList shown;
    Record first(&table);
    for (const auto &[column, texts, text] : values) {
        if (!texts.isEmpty())
            first[column] = QStringRef(&texts.first());
        shown.append(text);
    }
    EXPECT_EQ(key->keyText(first), shown.join(','));
}

TEST_F(PrimaryKey, exactTextsOfByteKeysKeepTheScale)
{
    Table bytes("bytes", QString());
    bytes.addColumn("d", FieldType::Decimal, 0, false);
    bytes.addColumn("x", FieldType::XDecimal, 0, false);
    bytes.setMasterIndex(new MasterIndex_Fast_Pure(&bytes, QStringList{"d", "x"}));
    for (const short scale : {-62, -7, -2, -1, 0, 1, 2, 7, 62}) {
        for (const int number : {0, 5, -50, 500}) {
            const Record record(&bytes);
            record["d"].setValue(decimal::fromParts(number, scale));
            record["x"].setValue(xdecimal::fromInt64(number, scale));
            bytes.appendRow(record.row());
        }
    }
    for (const Record &record : bytes)
        ASSERT_EQ(bytes.find(record.keyText()), record) << record.keyText().toStdString();
}

TEST_F(PrimaryKey, rejectsExactTextsWithLooseQuotesAndTextsThatWouldBeCut)
{
    const MasterIndex_Column_Pure key(&table, QStringList{"VarChar", "Integer"});
    const std::string place = " (column 'VarChar' of table 'options')";
    const struct {
        const char *text;
        std::string message;
    } cases[] = {
        {"\"a,1", "A quote is not closed in the key '\"a,1'."},
        {"\"a\"b,1", "A comma is missing behind a quote in the key '\"a\"b,1'."},
        {"abcdef,1", "Can't convert from 'abcdef'' to VarChar" + place},
        {"a,1,", "Master index can't restore from text. Incorrect columns numbers: 3 != 2"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(thrownBy([&] { key.fromKeyText(c.text); }), c.message);
    EXPECT_EQ(key.keyText(key.fromKeyText("a\"b,\"7\"")), "\"a\"\"b\",7");
    EXPECT_EQ(key.keyText(Record()), "");
}

TEST_F(PrimaryKey, rejectsColumnsThatDoNotMakeAKey)
{
    struct {
        const char *columns, *message;
    } cases[] = {
        {"Series,Coupon,Yield", "Column 'Coupon' not found to create index."},
        {"Series,Strike", "Columns must be sequenced: 10(Strike) / 9"},
        {"Ticker,Series", "Columns must be sequenced: 8(Series) / 10"},
        {"BoardList", "Type 'BoardList' unsuported for BoardList"},
        {"Integer", "Columns can't be nullable Integer"},
    };
    for (const auto &c : cases) {
        const QStringList columns = QString(c.columns).split(',');
        EXPECT_EQ(thrownBy([&] { MasterIndex_Fast_Pure(&table, columns); }), c.message);
    }
    const QList<int> numbers{0, 11};
    EXPECT_EQ(thrownBy([&] { MasterIndex_Column_Pure(&table, numbers); }),
              "Column '11' not found to create index.");
}

TEST_F(PrimaryKey, comparesBytesWhenItIsFast)
{
    auto *key = new MasterIndex_Fast_Pure(&table, QStringList{"Series", "Ticker"});
    table.setMasterIndex(key);
    for (const char *text : {"256,A", "1,B", "2,A", "1,AB"})
        table.appendRow(key->fromText(text).row());
    QStringList order;
    for (const Record &record : *key)
        order.append(key->toText(record));
    EXPECT_EQ(order.join(' '), "256,A 1,AB 1,B 2,A") << "little-endian bytes";
    EXPECT_EQ(key->findRecord(QStringLiteral("1,B")), table.at(2));
    EXPECT_EQ(key->findRecord(QStringLiteral("1,C")), Record());

    EXPECT_EQ(key->keyRecord(table.at(1)),
              QByteArray("\x01\0\0\0\0\0\0\0A\0B\0\0\0\0\0\0\0\0\0\0\0\0\0", 24));
}

/// Rows of one key by their strikes.
class KeyAndStrike : public MasterIndex_Fast_Pure
{
public:
    using MasterIndex_Fast_Pure::MasterIndex_Fast_Pure;

    int compare(const Record &a, const Record &b) const override
    {
        const int order = MasterIndex_Fast_Pure::compare(a, b);
        return order ? order : compareCells(*table()->columnDef(10), a, b);
    }
};

// Many rows of each key, so that searches meet equal bytes.
TEST_F(PrimaryKey, isSearchedForByBytesUnlessADerivedClassComparesMore)
{
    const QStringList columns{"Series", "Ticker"};
    const auto keyed = [this](int series, double strike) {
        const Record record = row("Series", QString::number(series));
        record.data(QStringLiteral("Strike")).setValue(strike);
        return record;
    };
    for (const bool derived : {false, true}) {
        SCOPED_TRACE(derived);
        MasterIndex_Fast_Pure *key = nullptr;
        if (derived)
            key = new KeyAndStrike(&table, columns);
        else
            key = new MasterIndex_Fast_Pure(&table, columns);
        table.clear();
        table.setMasterIndex(key);
        for (int i = 0; i < 3000; ++i)
            table.appendRow(keyed(2 * (i % 100), (i * 7 / 100) % 30 * 2).row());
        ASSERT_TRUE(std::is_sorted(key->begin(), key->end(), IndexSort::LessThan(key)));
        for (int series = -1; series < 202; ++series) {
            for (const double strike : {8., 9.}) {
                const Record sought = keyed(series, strike);
                const auto range =
                    std::equal_range(key->begin(), key->end(), sought, IndexSort::LessThan(key));
                const int first = int(std::distance(key->begin(), range.first));
                const int last = int(std::distance(key->begin(), range.second)) - 1;
                const bool found = first <= last;
                ASSERT_EQ(key->search(sought, -1), found ? first : -1) << series;
                ASSERT_EQ(key->searchLast(sought, -1), found ? last : -1) << series;
                ASSERT_EQ(key->search(sought, first), first < last ? first + 1 : -1) << series;
                const Record expected = found ? key->at(first) : Record();
                ASSERT_EQ(key->find(sought, -1), expected) << series;
                ASSERT_EQ(key->findAll({sought}).first(), expected) << series;
            }
        }
    }
}

/// A table whose rows have even numbers as keys.
class FoundByBytes : public PrimaryKey
{
protected:
    FoundByBytes()
    {
        table.setMasterIndex(new MasterIndex_Fast_Pure(&table, QStringList{"Series"}));
        for (int number = 0; number < kRows; ++number)
            insert(2 * number);
    }
    Record keyed(int series) const
    {
        Record record(&table);
        record.data(kSeries).setValue(series);
        return record;
    }
    void insert(int series)
    {
        rows.emplace(series, keyed(series));
        table.appendRow(rows.at(series).row());
    }
    /// \return how many keys from a number on are found wrongly
    int wrong(int from, int keys) const
    {
        int wrong = 0;
        for (int series = from; series < from + keys; ++series) {
            const auto row = rows.find(series);
            wrong += table.masterIndex()->find(keyed(series), -1) !=
                     (row != rows.end() ? row->second : Record());
        }
        return wrong;
    }

    static constexpr int kSeries = 8;
    static constexpr int kRows = 3000;
    std::map<int, Record> rows;
};

// Again and again, so that what searches leave behind is used, and made anew after changes.
TEST_F(FoundByBytes, againAndAgainWhileRowsComeAndGo)
{
    std::mt19937 random(11);
    const auto below = [&](int n) { return int(random() % unsigned(n)); };
    for (int step = 0; step < 400; ++step) {
        const int around = below(2 * kRows);
        for (int times = 0; times < 4; ++times)
            ASSERT_EQ(wrong(around, 40), 0) << "step " << step << ", keys from " << around;
        const int series = around + below(40);
        const auto row = rows.find(series);
        if (row == rows.end()) {
            insert(series);
        } else {
            table.remove(row->second, -1);
            rows.erase(row);
        }
        ASSERT_EQ(wrong(around, 40), 0) << "after step " << step << ", keys from " << around;
    }
}

TEST_F(FoundByBytes, bySeveralThreads)
{
    std::atomic<int> wrongOnes{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int times = 0; times < 5; ++times)
                wrongOnes += wrong(0, 1000);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrongOnes, 0);
}

// A feed's char[8] taken whole has zeros behind the name, and what was there before it.
TEST_F(PrimaryKey, endsATextAtItsFirstZero)
{
    const auto named = [this](int number, char rest) {
        QByteArray board = 'B' + QByteArray::number(number) + '\0' + "abcdefg";
        board[board.indexOf('\0') + 1] = rest;
        const Record record(&table);
        record.data("Ticker").setValue(QString::fromLatin1(board.constData(), 8));
        return record;
    };
    EXPECT_EQ(named(1, 'x').data("Ticker").toString().size(), 2);
    for (const bool bytewise : {false, true}) {
        SCOPED_TRACE(bytewise);
        MasterIndex *key = nullptr;
        if (bytewise)
            key = new MasterIndex_Fast_Pure(&table, QStringList{"Ticker"});
        else
            key = new MasterIndex_Column_Pure(&table, QString("Ticker"));
        table.clear();
        table.setMasterIndex(key);
        for (const char rest : {'x', 'y', '\0'}) {
            RecordsTrans batch(&table);
            for (int i = 0; i < 500; ++i)
                batch.upsertRow(named(i, rest)).field(8).setValue(int(rest));
            const TableUpdate bracket(table);
            batch.execute();
        }
        EXPECT_EQ(table.rowCount(), 500);
        int lost = 0;
        for (int i = 0; i < 500; ++i)
            lost += key->findRecord('B' + QString::number(i)).isNull();
        EXPECT_EQ(lost, 0);
    }
}

TEST_F(PrimaryKey, keepsTheOrderOfArrivalWithoutKey)
{
    MasterIndex *key = table.masterIndex();
    EXPECT_EQ(key->findRecord(QStringLiteral("any")), Record());
    for (const int series : {3, 1, 2})
        table.appendRow(row("Series", QString::number(series)).row());
    EXPECT_EQ(table.at(0).data(8).value<int>(), 3);
    EXPECT_EQ(key->findRecord(QStringLiteral("any")), table.at(0));
    EXPECT_EQ(key->toText(table.at(0)), "");
    EXPECT_EQ(key->keyText(table.at(0)), "");
    EXPECT_EQ(key->findByKeyText(QStringLiteral("any")), Record()) << "no row is named";
}

} // namespace
