#include "support/tablefixture.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>

namespace
{

QString widthOf(FieldType::Type type, int length)
{
    qint64 width = 0;
    const QString thrown = thrownBy([&] { width = FieldType::typeLength(type, length); });
    return thrown == "nothing" ? QString::number(width) : thrown;
}

} // namespace

TEST(FieldTypes, haveNamesAndWidths)
{
    struct Case {
        int type;
        const char *name, *withLength, *fieldName;
        const char *width; // of length 7, or what is thrown
    };
    const Case cases[] = {
        {-1, "Undefined", "Undefined", "undefined", "QString: Type is undefined."},
        {0, "Undefined", "Undefined", "Invalid", "QString: Type is undefined."},
        {1, "Integer", "Integer", "Integer", "4"},
        {2, "Integer64", "Integer64", "Integer64", "8"},
        {3, "Double", "Double", "Double", "8"},
        {4, "Decimal", "Decimal[7]", "Decimal", "8"},
        {5, "VarChar", "VarChar[7]", "String", "14"},
        {6, "DateTime", "DateTime", "DateTime", "8"},
        {7, "BoardList", "BoardList", "undefined", "404"},
        {8, "XDecimal", "XDecimal[7]", "XDecimal", "16"},
        {9, "Undefined", "Undefined", "undefined", "QString: Type is undefined."},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.type);
        TableColumnDef column(nullptr);
        column.type = static_cast<FieldType::Type>(c.type);
        EXPECT_STREQ(FieldType::typeName(column.type), c.name);
        EXPECT_EQ(FieldType::typeNameWithLength(column.type, 7), c.withLength);
        EXPECT_STREQ(Field(&column, nullptr, nullptr, 1).typeName(), c.fieldName);
        EXPECT_EQ(widthOf(column.type, 7), c.width);
    }
    EXPECT_EQ(widthOf(FieldType::VarChar, 1), "2");
    EXPECT_EQ(widthOf(FieldType::VarChar, 0), "QString: Length of string can't be zero");
}

TEST(StringCells, areCutAndPaddedButNotTerminated)
{
    struct Case {
        int length;
        const char *text, *stored; // stored: a zero unit is a dot, the guard behind the cell '#'
    };
    for (const Case &c : {Case{3, "abcdef", "abc###"}, Case{6, "abcdef", "abcdef"},
                          Case{3, "ab", "ab.###"}, Case{2, "", "..####"}}) {
        QString units(6, QLatin1Char('#'));
        auto *cell = reinterpret_cast<uchar *>(units.data());
        const QString text = QLatin1String(c.text);
        FieldType::setString(cell, c.length, text);
        EXPECT_EQ(QString(units).replace(QChar(0), QLatin1Char('.')), c.stored);
        EXPECT_EQ(FieldType::getString(cell, c.length), text.left(c.length));
        EXPECT_EQ(FieldType::getStaticString(cell, c.length), text.left(c.length));
        EXPECT_EQ(FieldType::getString(cell, 0), QString());
    }
}

TEST(ColumnDefinition, isStreamedFieldByField)
{
    TableColumnDef written(nullptr);
    written.name = "a";
    written.title = "b";
    written.description = "c";
    written.length = 3;
    written.type = FieldType::VarChar;
    written.size = 6;
    written.nullable = false;
    written.offset = 99; // the place is the table's business
    const auto streamed = [](const TableColumnDef &def) {
        QByteArray result;
        QDataStream stream(&result, QIODevice::WriteOnly);
        def.write(stream);
        return result;
    };
    QByteArray bytes = streamed(written);
    EXPECT_EQ(bytes.toHex(), QByteArray("000000020061"
                                        "000000020062"
                                        "000000020063"
                                        "00000003"
                                        "05"
                                        "00000006"
                                        "00"
                                        "01"));
    Table table("t", QString());
    TableColumnDef read(&table);
    read.offset = 8;
    QDataStream in(bytes);
    read.read(in);
    EXPECT_EQ(streamed(read), bytes);
    EXPECT_EQ(read.table, &table);
    EXPECT_EQ(read.offset, 8);
    const TableColumnDef moved(nullptr, read);
    EXPECT_EQ(streamed(moved), bytes);
    EXPECT_EQ(moved.table, nullptr);
    EXPECT_EQ(moved.offset, 0);

    bytes[22] = char(0xFF); // the type
    QDataStream again(bytes);
    read.read(again);
    EXPECT_EQ(int(read.type), -1);
}

TEST(Columns, refuseWhatTheyCannotBe)
{
    Table table(QStringLiteral("quotes"), QString());
    const QString taken = QStringLiteral("QString: Column '%1' already exists for table 'quotes'.");
    struct Case {
        const char *name;
        FieldType::Type type;
        int length;
        QString thrown;
    };
    const Case cases[] = {
        {"n", FieldType::Integer, 0, "nothing"},
        {"w", FieldType::Integer64, 0, "nothing"},
        {"s%2", FieldType::VarChar, 20, "nothing"},
        {"", FieldType::Integer, 0, "QString: Column name can't be empty."},
        {"x", FieldType::Undefined, 0, "QString: Type is undefined."},
        {"x", FieldType::VarChar, 0, "QString: Length of string can't be zero"},
        {"n", FieldType::Integer64, 0, taken.arg("n")},
        {"n", FieldType::Integer, 1, taken.arg("n")},
        {"n", FieldType::VarChar, 1, taken.arg("n")},
        {"s%2", FieldType::VarChar, 30, taken.arg("s%2")},
        {"n", FieldType::Integer, 0, "nothing"},
        {"w", FieldType::Integer, 5, "nothing"},
        {"s%2", FieldType::VarChar, 10, "nothing"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(thrownBy([&] { table.addColumn(c.name, c.type, c.length); }), c.thrown);
    }
    EXPECT_EQ(table.columnCount(), 3);
    EXPECT_EQ(table.columnType(1), FieldType::Integer64);
    EXPECT_EQ(table.columnTypeName(2), "VarChar[20]");
    EXPECT_EQ(table.rowSize(), 16 + 8 + 8 + 40 + 1);
}

TEST(Columns, areFoundByNameBelowAndAboveTwentyOfThem)
{
    Table table(QStringLiteral("wide"), QString());
    for (int i = 0; i < 23; ++i) {
        EXPECT_EQ(table.columnIndex(QStringLiteral("c%1").arg(i)), -1);
        table.addColumn(QStringLiteral("c%1").arg(i), FieldType::Integer, 0);
        for (int j = 0; j <= i; ++j)
            ASSERT_EQ(table.columnIndex(QStringLiteral("c%1").arg(j)), j);
        EXPECT_EQ(table.columnIndex("C0"), -1);
    }
    EXPECT_EQ(table.columnDef("c21"), table.columnDef(21));
}

TEST(Columns, describeThemselves)
{
    Table table(QStringLiteral("quotes"), QString());
    table.addColumn("strike", FieldDef(FieldType::Decimal, 4), false, "Strike", false,
                    "of options");
    table.addColumn("board", FieldType::VarChar, 12);
    EXPECT_EQ(table.title() + table.columnTitle(0) + table.columnTitle(1), "quotesStrikeboard");
    EXPECT_EQ(table.columnTypeName(0), "Decimal[4]");
    EXPECT_EQ(table.columnDescription(0), "of options");
    const QList<ColumnDef> columns = table.columns();
    EXPECT_TRUE(!columns.at(0).nullable && !columns.at(0).extraFlag);
    EXPECT_TRUE(columns.at(1).nullable && columns.at(1).extraFlag);
}
