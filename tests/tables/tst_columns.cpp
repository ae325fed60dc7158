#include "support/tablefixture.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>

namespace
{

struct TypeCase {
    int type;
    const char *name, *withLength, *fieldName;
    const char *width; // of length 7, or what is thrown
};

const TypeCase kTypes[] = {
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

QString widthOf(FieldType::Type type, int length)
{
    qint64 width = 0;
    const QString thrown = thrownBy([&] { width = FieldType::typeLength(type, length); });
    return thrown == QLatin1String("nothing") ? QString::number(width) : thrown;
}

TableColumnDef definition(Table *table, const char *name, FieldType::Type type, int length)
{
    TableColumnDef def(table);
    def.name = QLatin1String(name);
    def.type = type;
    def.length = length;
    return def;
}

} // namespace

TEST(FieldTypes, haveNamesAndWidths)
{
    for (const TypeCase &c : kTypes) {
        SCOPED_TRACE(c.type);
        const auto type = static_cast<FieldType::Type>(c.type);
        TableColumnDef column(nullptr);
        column.type = type;
        uchar cell[404] = {};
        uchar presence = 0;
        EXPECT_STREQ(FieldType::typeName(type), c.name);
        EXPECT_EQ(FieldType::typeNameWithLength(type, 7), c.withLength);
        EXPECT_STREQ(Field(&column, cell, &presence, 1).typeName(), c.fieldName);
        EXPECT_EQ(widthOf(type, 7), c.width);
    }
    EXPECT_EQ(FieldType::typeNameWithLength(FieldType::XDecimal, 0), QStringLiteral("XDecimal[0]"));
    EXPECT_EQ(widthOf(FieldType::VarChar, 1), QStringLiteral("2"));
    EXPECT_EQ(widthOf(FieldType::VarChar, 0),
              QStringLiteral("QString: Length of string can't be zero"));
}

TEST(StringCells, areCutAndPaddedButNotTerminated)
{
    struct Case {
        int length;
        const char *text, *stored; // a zero unit is a dot; '#' is what stood there
    };
    for (const Case &c : {Case{3, "abcdef", "abc###"}, Case{6, "abcdef", "abcdef"},
                          Case{5, "ab", "ab...#"}, Case{2, "", "..####"}}) {
        SCOPED_TRACE(c.stored);
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

TEST(ColumnDefinition, isStreamedWithoutItsPlace)
{
    TableColumnDef written(nullptr);
    written.name = QStringLiteral("a");
    written.title = QStringLiteral("b");
    written.description = QStringLiteral("c");
    written.length = 3;
    written.type = FieldType::VarChar;
    written.size = 6;
    written.nullable = false;
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    written.write(out);
    EXPECT_EQ(bytes.toHex(), QByteArray("000000020061000000020062000000020063"
                                        "0000000305000000060001"));

    Table table(QStringLiteral("t"), QString());
    TableColumnDef read(&table);
    read.offset = read.index = read.nullOffset = read.nullMask = 8;
    bytes[22] = char(0xFF); // the type, a signed byte
    QDataStream in(bytes);
    read.read(in);
    EXPECT_EQ(int(read.type), -1);
    EXPECT_EQ(read.table, &table);
    EXPECT_EQ(read.offset + read.index + read.nullOffset + read.nullMask, 32);
    const TableColumnDef moved(nullptr, read);
    EXPECT_EQ(moved.table, nullptr);
    EXPECT_EQ(moved.offset + moved.index + moved.nullOffset + moved.nullMask, 0);
    for (const TableColumnDef *def : {static_cast<const TableColumnDef *>(&read), &moved}) {
        EXPECT_EQ(def->name + def->title + def->description, QStringLiteral("abc"));
        EXPECT_EQ(def->length, 3);
        EXPECT_EQ(def->size, 6);
        EXPECT_FALSE(def->nullable);
        EXPECT_TRUE(def->extraFlag);
    }
}

TEST(Columns, refuseWhatTheyCannotBe)
{
    Table table(QStringLiteral("quotes"), QString());
    const auto add = [&](const char *name, FieldType::Type type, int length) {
        return thrownBy([&] { table.addColumn(definition(&table, name, type, length)); });
    };
    const QString taken = QStringLiteral("QString: Column '%1' already exists for table 'quotes'.");
    EXPECT_EQ(add("n", FieldType::Integer, 0), QStringLiteral("nothing"));
    EXPECT_EQ(add("w", FieldType::Integer64, 0), QStringLiteral("nothing"));
    EXPECT_EQ(add("s%2", FieldType::VarChar, 20), QStringLiteral("nothing"));
    const qint64 size = table.rowSize();

    EXPECT_EQ(add("", FieldType::Integer, 0),
              QStringLiteral("QString: Column name can't be empty."));
    EXPECT_EQ(add("x", FieldType::Undefined, 0), QStringLiteral("QString: Type is undefined."));
    EXPECT_EQ(add("x", FieldType::VarChar, 0),
              QStringLiteral("QString: Length of string can't be zero"));
    EXPECT_EQ(add("n", FieldType::Integer64, 0), taken.arg("n"));
    EXPECT_EQ(add("n", FieldType::Integer, 1), taken.arg("n"));
    EXPECT_EQ(add("n", FieldType::VarChar, 1), taken.arg("n"));
    EXPECT_EQ(add("s%2", FieldType::VarChar, 30), taken.arg("s%2"));

    EXPECT_EQ(add("n", FieldType::Integer, 0), QStringLiteral("nothing"));
    EXPECT_EQ(add("w", FieldType::Integer, 5), QStringLiteral("nothing"));
    EXPECT_EQ(add("s%2", FieldType::VarChar, 10), QStringLiteral("nothing"));
    EXPECT_EQ(table.columnCount(), 3);
    EXPECT_EQ(table.columnType(1), FieldType::Integer64);
    EXPECT_EQ(table.columnTypeName(2), QStringLiteral("VarChar[20]"));
    EXPECT_EQ(table.rowSize(), size);
}

TEST(Columns, areFoundByNameBelowAndAboveTwentyOfThem)
{
    Table table(QStringLiteral("wide"), QString());
    for (int i = 0; i < 23; ++i) {
        EXPECT_EQ(table.columnIndex(QStringLiteral("c%1").arg(i)), -1);
        table.addColumn(QStringLiteral("c%1").arg(i), FieldType::Integer, 0);
        for (int j = 0; j <= i; ++j)
            ASSERT_EQ(table.columnIndex(QStringLiteral("c%1").arg(j)), j);
        EXPECT_EQ(table.columnIndex(QStringLiteral("C0")), -1);
    }
    EXPECT_EQ(table.columnDef(QStringLiteral("c21")), table.columnDef(21));
}

TEST(Columns, showTheirTitleOrElseTheirName)
{
    Table table(QStringLiteral("quotes"), QString());
    table.addColumn(QStringLiteral("strike"), FieldDef(FieldType::Decimal, 4), false,
                    QStringLiteral("Strike"), false, QStringLiteral("of the option"));
    table.addColumn(QStringLiteral("board"), FieldType::VarChar, 12);
    EXPECT_EQ(table.title() + table.columnTitle(0) + table.columnTitle(1),
              QStringLiteral("quotesStrikeboard"));
    table.setTitle(QStringLiteral("Quotes"));
    table.setColumnTitle(1, QStringLiteral("Board"));
    EXPECT_EQ(table.title() + table.columnTitle(1), QStringLiteral("QuotesBoard"));
    EXPECT_EQ(table.columnTypeName(0), QStringLiteral("Decimal[4]"));
    EXPECT_EQ(table.columnDescription(0), QStringLiteral("of the option"));
    const QList<ColumnDef> columns = table.columns();
    ASSERT_EQ(columns.size(), 2);
    EXPECT_FALSE(columns[0].nullable || columns[0].extraFlag);
    EXPECT_TRUE(columns[1].nullable && columns[1].extraFlag);
}
