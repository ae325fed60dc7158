#include "support/tablefixture.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qvector.h>

namespace
{

/// What a static object of the application finds before main() runs.
struct BeforeMain {
    const int types[5] = {QMetaType::type("datetime"), QMetaType::type("decimal"),
                          QMetaType::type("xdecimal"), QMetaType::type("Record"),
                          QMetaType::type("QVector<int>")};
    const bool datesCompare = QMetaType::hasRegisteredComparators<datetime>();
};

const BeforeMain beforeMain;

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
        qint64 width = 0;
        const QString thrown = thrownBy([&] { width = FieldType::typeLength(column.type, 7); });
        EXPECT_EQ(thrown == "nothing" ? QString::number(width) : thrown, c.width);
    }
}

TEST(StringCells, areCutAndPaddedButNotTerminated)
{
    const std::tuple<int, QString, const char *> cases[] = {
        {3, "abcdef", "abc###"}, {3, "ab", "ab.###"}, {2, "", "..####"}};
    for (const auto &[length, text, stored] : cases) {
        QString units(6, QLatin1Char('#')); // the guard behind the cell
        auto *cell = reinterpret_cast<uchar *>(units.data());
        FieldType::setString(cell, length, text);
        EXPECT_EQ(QString(units).replace(QChar(0), QLatin1Char('.')), stored);
        EXPECT_EQ(FieldType::getString(cell, length), text.left(length));
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
    const QByteArray bytes = streamed(written);
    EXPECT_EQ(bytes.toHex(), QByteArray("000000020061" // the texts
                                        "000000020062"
                                        "000000020063"
                                        "0000000305000000060001"));
    TableColumnDef read(nullptr);
    read.offset = 8;
    QDataStream in(bytes);
    read.read(in);
    EXPECT_EQ(streamed(read), bytes);
    EXPECT_EQ(read.offset, 8);
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
        {"s%2", FieldType::VarChar, 20, "nothing"},
        {"", FieldType::Integer, 0, "QString: Column name can't be empty."},
        {"x", FieldType::Undefined, 0, "QString: Type is undefined."},
        {"x", FieldType::VarChar, 0, "QString: Length of string can't be zero"},
        {"n", FieldType::Integer64, 0, taken.arg("n")},
        {"s%2", FieldType::VarChar, 30, taken.arg("s%2")},
        {"s%2", FieldType::VarChar, 10, "nothing"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(thrownBy([&] { table.addColumn(c.name, c.type, c.length); }), c.thrown);
    }
    EXPECT_EQ(table.rowSize(), 16 + 8 + 40 + 1);
}

TEST(Columns, areFoundByNameBelowAndAboveTwentyOfThem)
{
    Table table(QStringLiteral("wide"), QString());
    for (int i = 0; i < 23; ++i) {
        EXPECT_EQ(table.columnIndex(QStringLiteral("c%1").arg(i)), -1);
        table.addColumn(QStringLiteral("c%1").arg(i), FieldType::Integer, 0);
        for (int j = 0; j <= i; ++j)
            ASSERT_EQ(table.columnIndex(QStringLiteral("c%1").arg(j)), j);
    }
}

TEST(DatabaseMain, hasRegisteredEverythingBeforeMain)
{
    const int types[] = {qMetaTypeId<datetime>(), qMetaTypeId<decimal>(), qMetaTypeId<xdecimal>(),
                         qMetaTypeId<Record>(), qMetaTypeId<QVector<int>>()};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(beforeMain.types[i], types[i]) << i;
    EXPECT_TRUE(beforeMain.datesCompare);
}
