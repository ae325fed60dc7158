#include "indexes/indexfixture.h"

#include <database/masterindex_fast.h>

#include <QtCore/qnumeric.h>

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
        for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type)
            add(FieldType::typeName(FieldType::Type(type)), FieldType::Type(type), true);
        add("Series", FieldType::Integer, false);
        add("Ticker", FieldType::VarChar, false);
        add("Strike", FieldType::Double, false);
    }

    void add(const char *name, FieldType::Type type, bool nullable)
    {
        table.addColumn(name, type, FieldType::typeHasLength(type) ? 5 : 0, nullable);
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
        {"Integer", "-2", "1"},
        {"Integer64", "-9000000000", "9000000000"},
        {"Double", "-0.5", "1e300"},
        {"Decimal", "-1.50", "1.49"},
        {"Decimal", "9.5", "10.25"},
        {"VarChar", "AB", "ABC"},
        {"DateTime", "1969-12-31", "2024.02.29 12:00:00.001"},
        {"XDecimal", "-1", "12345678901234567890.12"},
        {"XDecimal", "9.5", "10.25"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.column << ": " << c.less << " < " << c.more);
        const MasterIndex_Column_Pure key(&table, QString(c.column));
        const Record rising[] = {Record(&table), row(c.column, c.less), row(c.column, c.more)};
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(key.compare(rising[i], rising[i].clone()), 0);
            for (int j = 0; j < i; ++j) {
                EXPECT_LT(key.compare(rising[j], rising[i]), 0);
                EXPECT_GT(key.compare(rising[i], rising[j]), 0);
            }
        }
    }
}

TEST_F(PrimaryKey, takesForEqualWhatHasNoOrder)
{
    const auto compare = [&](const char *column, const Record &a, const Record &b) {
        return MasterIndex_Column_Pure(&table, QString(column)).compare(a, b);
    };
    const Record odd = row("Decimal", "1.5");
    odd.data(2).setValue(qQNaN());
    odd.data(6).setValue(boardlist());
    EXPECT_EQ(compare("Decimal", odd, row("Decimal", "1.50")), 0);
    EXPECT_EQ(compare("Double", odd, row("Double", "1")), 0);
    EXPECT_EQ(compare("BoardList", odd, odd.clone()), 0);
    EXPECT_LT(compare("BoardList", Record(&table), odd), 0) << "NULL counts, the value does not";
}

TEST_F(PrimaryKey, readsBackTheTextThatItWrites)
{
    const QStringList columns{"Integer", "Integer64", "Double",  "Decimal",
                              "VarChar", "DateTime",  "XDecimal"};
    const MasterIndex_Column_Pure key(&table, columns);
    const QString text = "-7,9000000000,0.1,12.50,SBER,2024.02.29 10:11:12.013,-1.25";
    const Record record = key.fromText(text);
    EXPECT_EQ(key.toText(record), text);
    EXPECT_EQ(record.data(5).value<datetime>().toMSecsSinceEpoch(), Q_INT64_C(1709201472013));
    EXPECT_TRUE(record.data(8).value<int>() == 0 && record.data(6).isNull()) << "initial values";
    EXPECT_EQ(key.toText(Record()), "");
    EXPECT_EQ(key.columnNames(), columns);
    EXPECT_EQ(key.getClassName(), "MasterIndex");
    EXPECT_TRUE(table.indexes().isEmpty());
}

TEST_F(PrimaryKey, readsDatesInFourFormats)
{
    const MasterIndex_Column_Pure key(&table, QStringLiteral("DateTime"));
    for (const char *text :
         {"2024.02.29 00:00:00.000", "2024-02-29 00:00:00", "2024.02.29", "2024-02-29"})
        EXPECT_EQ(key.toText(key.fromText(text)), "2024.02.29 00:00:00.000") << text;
}

TEST_F(PrimaryKey, rejectsTextThatIsNoKey)
{
    struct {
        const char *columns, *text, *message;
    } cases[] = {
        {"Integer", "12x", "Can't convert from '12x'' to Integer"},
        {"Integer", "", "Can't convert from ''' to Integer"},
        {"Integer", "2147483648", "Can't convert from '2147483648'' to Integer"},
        {"Integer64", "0x10", "Can't convert from '0x10'' to Integer64"},
        {"Double", "1.2.3", "Can't convert from '1.2.3'' to Double"},
        {"Decimal", "one", "Can't convert from 'one'' to Decimal"},
        {"Decimal", "", "Can't convert from ''' to Decimal"},
        {"DateTime", "2023-02-29", "Can't convert from '2023-02-29'' to DateTime"},
        {"XDecimal", "1e99", "Can't convert from '1e99'' to XDecimal"},
        {"BoardList", "1", "Can't convert from '1'' to BoardList"},
        {"VarChar,Integer", "a,", "Can't convert from ''' to Integer"},
        {"VarChar,Integer", "a",
         "Master index can't restore from text. Incorrect columns numbers: 1 != 2"},
        {"VarChar,Integer", "a,,1",
         "Master index can't restore from text. Incorrect columns numbers: 3 != 2"},
    };
    for (const auto &c : cases) {
        const MasterIndex_Column_Pure key(&table, QString(c.columns).split(','));
        EXPECT_EQ(thrownBy([&] { key.fromText(c.text); }), c.message);
    }
    const MasterIndex_Column_Pure pair(&table, QStringList{"VarChar", "Integer"});
    EXPECT_FALSE(pair.fromText(",1").data(4).isNull()) << "an empty text is a text";
}

TEST_F(PrimaryKey, rejectsColumnsThatDoNotMakeAKey)
{
    struct {
        const char *columns, *message;
    } cases[] = {
        {"Series,Coupon,Yield", "Column 'Coupon' not found to create index."},
        {"Series,Strike", "Columns must be sequenced: 10(Strike) / 9"},
        {"Ticker,Series", "Columns must be sequenced: 8(Series) / 10"},
        {"Ticker,Strike", "Type 'Double' unsuported for Strike"},
        {"BoardList", "Type 'BoardList' unsuported for BoardList"},
        {"Integer", "Columns can't be nullable Integer"},
        {"Series,Ticker", ""},
    };
    for (const auto &c : cases) {
        const QStringList columns = QString(c.columns).split(',');
        EXPECT_EQ(thrownBy([&] { MasterIndex_Fast_Pure(&table, columns); }), c.message);
    }
    EXPECT_EQ(thrownBy([&] { MasterIndex_Column_Pure(&table, QStringLiteral("%1")); }),
              "Column '%1' not found to create index.");
    const QList<int> numbers{0, 11};
    EXPECT_EQ(thrownBy([&] { MasterIndex_Column_Pure(&table, numbers); }),
              "Column '11' not found to create index.");
}

TEST_F(PrimaryKey, comparesBytesWhenItIsFast)
{
    auto *key = new MasterIndex_Fast_Pure(&table, QStringList{"Series", "Ticker"});
    table.setMasterIndex(key);
    EXPECT_EQ(key->keyLength(), 8 + 16);
    EXPECT_EQ(key->keyOffset(), 16 + table.columnDef(8)->offset);
    for (const char *text : {"256,A", "1,B", "2,A", "1,AB"})
        table.appendRow(key->fromText(text).row());
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
        const Record record = row("Series", QString::number(series));
        table.appendRow(record.row());
    }
    EXPECT_EQ(table.at(0).data(8).value<int>(), 3);
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
