#include "indexes/indexfixture.h"

#include <database/masterindex_fast.h>

#include <QtCore/qnumeric.h>

namespace
{

using Ids = std::vector<int>;

/// Columns 0..7 have the types Integer..XDecimal and may be NULL; 8..10 follow each other and may
/// not.
class PrimaryKey : public ::testing::Test
{
protected:
    PrimaryKey()
        : table(QStringLiteral("options"), QString())
    {
        for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type)
            add(QLatin1String(FieldType::typeName(FieldType::Type(type))), FieldType::Type(type), 5,
                true);
        add(QStringLiteral("Series"), FieldType::Integer, 0, false);
        add(QStringLiteral("Ticker"), FieldType::VarChar, 5, false);
        add(QStringLiteral("Strike"), FieldType::Double, 0, false);
    }

    void add(const QString &name, FieldType::Type type, int length, bool nullable)
    {
        table.addColumn(name, type, FieldType::typeHasLength(type) ? length : 0, nullable);
    }

    Record row(const QString &column, const QString &value) const
    {
        const Record record(&table);
        if (!value.isEmpty())
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
        {"Integer", "-2", "1"},
        {"Integer64", "-9000000000", "9000000000"},
        {"Double", "-0.5", "1e300"},
        {"Decimal", "-1.50", "1.49"},
        {"Decimal", "9.5", "10.25"},
        {"VarChar", "AB", "ABC"},
        {"VarChar", "Z", "a"},
        {"DateTime", "1969-12-31", "2024.02.29 12:00:00.001"},
        {"XDecimal", "-1", "12345678901234567890.12"},
        {"XDecimal", "9.5", "10.25"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.column << ": " << c.less << " < " << c.more);
        const QString column = QLatin1String(c.column);
        const MasterIndex_Column_Pure key(&table, column);
        const Record less = row(column, QLatin1String(c.less));
        const Record more = row(column, QLatin1String(c.more));
        const Record null = row(column, QString());
        EXPECT_LT(key.compare(less, more), 0);
        EXPECT_GT(key.compare(more, less), 0);
        EXPECT_EQ(key.compare(less, less.clone()), 0);
        EXPECT_LT(key.compare(null, less), 0);
        EXPECT_GT(key.compare(less, null), 0);
        EXPECT_EQ(key.compare(null, null.clone()), 0);
    }
    const MasterIndex_Column_Pure key(&table, QStringLiteral("Double"));
    const Record nan(&table);
    nan.data(2).setValue(qQNaN());
    EXPECT_EQ(key.compare(nan, row(QStringLiteral("Double"), QStringLiteral("1"))), 0);
    const MasterIndex_Column_Pure scaled(&table, QStringLiteral("Decimal"));
    EXPECT_EQ(scaled.compare(row(QStringLiteral("Decimal"), QStringLiteral("1.5")),
                             row(QStringLiteral("Decimal"), QStringLiteral("1.50"))),
              0);
    const MasterIndex_Column_Pure boards(&table, QStringLiteral("BoardList"));
    const Record board(&table);
    board.data(6).setValue(boardlist());
    EXPECT_LT(boards.compare(Record(&table), board), 0) << "NULL counts, the value does not";
    EXPECT_EQ(boards.compare(board, board.clone()), 0);
}

TEST_F(PrimaryKey, readsBackTheTextThatItWrites)
{
    const QStringList texts{"-7",   "9000000000", "0.1", "12.50", "SBER", "2024.02.29 10:11:12.013",
                            "-1.25"};
    const QList<int> columns{0, 1, 2, 3, 4, 5, 7};
    const MasterIndex_Column_Pure key(&table, columns);
    const QString text = texts.join(QLatin1Char(','));
    const Record record = key.fromText(text);
    EXPECT_EQ(key.toText(record), text);
    EXPECT_EQ(key.compare(record, key.fromText(key.toText(record))), 0);
    EXPECT_EQ(record.data(5).value<datetime>().toMSecsSinceEpoch(), Q_INT64_C(1709201472013));
    EXPECT_TRUE(record.data(8).value<int>() == 0 && record.data(6).isNull()) << "initial values";
    EXPECT_EQ(key.toText(Record()), "");
    EXPECT_EQ(key.columnNames().join(' '),
              "Integer Integer64 Double Decimal VarChar DateTime XDecimal");
    EXPECT_EQ(key.keyColumns(), columns);
    EXPECT_EQ(key.getClassName(), "MasterIndex");
    EXPECT_TRUE(table.indexes().isEmpty());
}

TEST_F(PrimaryKey, readsDatesInFourFormats)
{
    const MasterIndex_Column_Pure key(&table, QStringLiteral("DateTime"));
    for (const char *text :
         {"2024.02.29 00:00:00.000", "2024-02-29 00:00:00", "2024.02.29", "2024-02-29"}) {
        EXPECT_EQ(key.toText(key.fromText(QLatin1String(text))), "2024.02.29 00:00:00.000") << text;
    }
}

TEST_F(PrimaryKey, rejectsTextThatIsNoKey)
{
    struct {
        const char *column, *text, *message;
    } cases[] = {
        {"Integer", "12x", "Can't convert from '12x'' to Integer"},
        {"Integer", "", "Can't convert from ''' to Integer"},
        {"Integer", "2147483648", "Can't convert from '2147483648'' to Integer"},
        {"Integer64", "0x10", "Can't convert from '0x10'' to Integer64"},
        {"Double", "1.2.3", "Can't convert from '1.2.3'' to Double"},
        {"Decimal", "one", "Can't convert from 'one'' to Decimal"},
        {"Decimal", "", "Can't convert from ''' to Decimal"},
        {"DateTime", "29.02.2024", "Can't convert from '29.02.2024'' to DateTime"},
        {"DateTime", "2023-02-29", "Can't convert from '2023-02-29'' to DateTime"},
        {"XDecimal", "1e99", "Can't convert from '1e99'' to XDecimal"},
        {"XDecimal", "--1", "Can't convert from '--1'' to XDecimal"},
        {"BoardList", "1", "Can't convert from '1'' to BoardList"},
        {"VarChar", "a,b",
         "Master index can't restore from text. Incorrect columns numbers: 2 != 1"},
    };
    for (const auto &c : cases) {
        const MasterIndex_Column_Pure key(&table, QString(QLatin1String(c.column)));
        EXPECT_EQ(thrownBy([&] { key.fromText(QLatin1String(c.text)); }), c.message);
    }
    const MasterIndex_Column_Pure pair(&table, QStringList{"VarChar", "Integer"});
    EXPECT_EQ(thrownBy([&] { pair.fromText(QStringLiteral("a")); }),
              "Master index can't restore from text. Incorrect columns numbers: 1 != 2");
    EXPECT_EQ(thrownBy([&] { pair.fromText(QStringLiteral("a,,1")); }),
              "Master index can't restore from text. Incorrect columns numbers: 3 != 2");
    const Record empty = pair.fromText(QStringLiteral(",1"));
    EXPECT_FALSE(empty.data(4).isNull()) << "an empty text is a text";
    EXPECT_THROW(pair.fromText(QStringLiteral("a,")), Exception);
}

TEST_F(PrimaryKey, rejectsColumnsThatDoNotMakeAKey)
{
    const auto fast = [&](const QList<int> &columns) {
        return thrownBy([&] { MasterIndex_Fast_Pure(&table, columns); });
    };
    const auto pure = [&](const QStringList &columns) {
        return thrownBy([&] { MasterIndex_Column_Pure(&table, columns); });
    };
    EXPECT_EQ(pure({"Integer", "Coupon", "Yield"}), "Column 'Coupon' not found to create index.");
    EXPECT_EQ(thrownBy([&] { MasterIndex_Column_Pure(&table, QStringLiteral("%1")); }),
              "Column '%1' not found to create index.");
    EXPECT_EQ(thrownBy([&] {
                  MasterIndex_Column_Pure(&table, QList<int>{0, 11});
              }),
              "Column '11' not found to create index.");
    EXPECT_EQ(thrownBy([&] { MasterIndex_Fast_Pure(&table, QStringList{"Coupon"}); }),
              "Column 'Coupon' not found to create index.");
    EXPECT_EQ(fast({8, 10}), "Columns must be sequenced: 10(Strike) / 9");
    EXPECT_EQ(fast({9, 8}), "Columns must be sequenced: 8(Series) / 10");
    EXPECT_EQ(fast({9, 10}), "Type 'Double' unsuported for Strike");
    EXPECT_EQ(fast({6}), "Type 'BoardList' unsuported for BoardList");
    EXPECT_EQ(fast({0}), "Columns can't be nullable Integer");
    EXPECT_EQ(fast({8, 9}), "");
}

TEST_F(PrimaryKey, comparesBytesWhenItIsFast)
{
    auto *key = new MasterIndex_Fast_Pure(&table, QStringList{"Series", "Ticker"});
    table.setMasterIndex(key);
    EXPECT_EQ(key->keyLength(), 8 + 16);
    EXPECT_EQ(key->keyOffset(), 16 + table.columnDef(8)->offset);
    for (const char *text : {"256,A", "1,B", "2,A", "1,AB"})
        table.appendRow(key->fromText(QLatin1String(text)).row());
    QStringList order;
    for (const Record &record : *key)
        order.append(key->toText(record));
    EXPECT_EQ(order.join(' '), "256,A 1,AB 1,B 2,A") << "little-endian bytes";
    EXPECT_EQ(key->findRecord(QStringLiteral("1,B")), table.at(2));
    EXPECT_EQ(key->findRecord(QStringLiteral("1,C")), Record());

    const QByteArray bytes = key->keyRecord(table.at(1));
    EXPECT_EQ(bytes, QByteArray("\x01\0\0\0\0\0\0\0A\0B\0\0\0\0\0\0\0\0\0\0\0\0\0", 24));
    EXPECT_EQ(key->keyRecord(Record()), QByteArray(24, '\0'));
}

TEST_F(PrimaryKey, keepsTheOrderOfArrivalWithoutKey)
{
    MasterIndex *key = table.masterIndex();
    EXPECT_EQ(key->findRecord(QStringLiteral("any")), Record());
    for (const int series : {3, 1, 2}) {
        const Record record(&table);
        record.data(8).setValue(series);
        table.appendRow(record.row());
    }
    EXPECT_EQ(table.at(0).data(8).value<int>(), 3);
    EXPECT_EQ(table.at(2).data(8).value<int>(), 2);
    EXPECT_EQ(key->findRecord(QStringLiteral("any")), table.at(0));
    EXPECT_EQ(key->fromText(QString()).table(), &table);
    EXPECT_EQ(key->toText(table.at(0)), "");
    EXPECT_TRUE(key->columnNames().isEmpty());
    EXPECT_EQ(key->getClassName(), "MasterIndex");
}

TEST(MasterIndex, keepsItsRowsWhenItIsBuilt)
{
    QuoteTable table;
    table.appendAll({1, 2, 3});
    table.masterIndex()->build();
    EXPECT_EQ(idsOf(*table.masterIndex()), (Ids{0, 1, 2}));
}

} // namespace
