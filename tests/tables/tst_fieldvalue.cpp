#include "support/tablefixture.h"

#include <database/tables/fieldvalue.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace
{

QString described(const Field &field)
{
    const TableColumnDef &column = *field.column();
    const QString type = FieldType::typeNameWithLength(column.type, column.length);
    return type + (column.nullable ? QLatin1String("? ") : QLatin1String(" ")) +
           (field.isNull() ? QStringLiteral("NULL") : QLatin1Char('=') + field.toString());
}

} // namespace

static_assert(std::has_virtual_destructor_v<FieldValue> && !std::is_polymorphic_v<Field>,
              "the destructor is the only virtual operation");

TEST(FieldValues, startAsNullAndZero)
{
    KeyedTable table;
    table.addColumn(QStringLiteral("text"), FieldType::VarChar, 3, false);
    EXPECT_EQ(described(FieldValue()), QStringLiteral("Integer? NULL"));
    EXPECT_EQ(FieldValue().column()->length, 1);
    const FieldValue values[] = {FieldValue(FieldType::VarChar, 3, false),
                                 FieldValue(table.columnDef(4)), FieldValue(&table, 4),
                                 FieldValue(&table, QStringLiteral("text"))};
    for (const FieldValue &value : values) {
        EXPECT_EQ(described(value), QStringLiteral("VarChar[3] NULL"));
        EXPECT_EQ(value.column()->table, nullptr);
        EXPECT_NE(value.column(), table.columnDef(4));
    }
    EXPECT_EQ(thrownBy([] { FieldValue(FieldType::VarChar, 0, true); }),
              QStringLiteral("QString: Length of string can't be zero"));
}

TEST(FieldValues, ownWhatTheyAreCopiedFrom)
{
    KeyedTable table;
    const Record row = newRow(table, {"1", "5"});
    FieldValue constructed(row.data(1));
    FieldValue assigned(FieldType::VarChar, 9, false);
    assigned = row.data(1); // a cell of another type and width
    FieldValue copied;
    copied = assigned;
    FieldValue null(row.data(2));
    setText(row.data(1), QStringLiteral("6"));
    for (FieldValue *value : {&constructed, &assigned, &copied}) {
        EXPECT_EQ(described(*value), QStringLiteral("Integer? =5"));
        EXPECT_EQ(value->column()->name, QStringLiteral("a"));
        value->fromText(QStringLiteral("8"));
        EXPECT_EQ(value->toText(), QStringLiteral("8"));
        EXPECT_EQ(row.data(1).toString(), QStringLiteral("6"));
    }
    EXPECT_EQ(described(null), QStringLiteral("Integer? NULL"));

    const FieldValue &alias = copied;
    copied = alias;
    copied = static_cast<const Field &>(alias);
    EXPECT_EQ(described(copied), QStringLiteral("Integer? =8"));
}

TEST(FieldConstants, carryTheirValue)
{
    struct Case {
        const char *name;
        FieldConstValue value;
        const char *described;
    };
    const Case cases[] = {
        {"nothing", FieldConstValue(), "Integer? NULL"},
        {"character", FieldConstValue(QChar('x')), "VarChar[1] =x"},
        {"text", FieldConstValue(QStringLiteral("Жук")), "VarChar[3] =Жук"},
        {"empty_text", FieldConstValue(QString()), "VarChar[0] ="},
        {"latin1", FieldConstValue("gr\xfcn"), "VarChar[4] =grün"},
        {"null_pointer", FieldConstValue(static_cast<const char *>(nullptr)), "VarChar[0] ="},
        {"decimal", FieldConstValue(decimal::fromParts(150, 2)), "Decimal[0]? =1.50"},
        {"xdecimal", FieldConstValue(xdecimal("1.50")), "XDecimal[0]? =1.50"},
        {"date", FieldConstValue(datetime(1)), "DateTime? =1970.01.01 00:00:00.001"},
        {"integer", FieldConstValue(5), "Integer? =5"},
        {"integer64", FieldConstValue(5LL), "Integer64? =5"},
        {"double", FieldConstValue(0.1), "Double? =0.1"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(described(c.value), QString::fromUtf8(c.described));
        EXPECT_EQ(described(FieldConstValue::fromValue(c.value)), QString::fromUtf8(c.described));
    }
}

TEST(FieldConstants, areNullForCellsWithoutAValueToCompare)
{
    FieldValue list(FieldType::BoardList, 0, true);
    list.setValue(boardlist());
    const FieldValue null(FieldType::Double, 0, true);
    for (const Field *field :
         {static_cast<const Field *>(&list), static_cast<const Field *>(&null)})
        EXPECT_EQ(described(FieldConstValue::fromValue(*field)), QStringLiteral("Integer? NULL"));

    FieldValue longer(FieldType::VarChar, 5, true);
    longer.fromText(QStringLiteral("ab"));
    EXPECT_EQ(described(FieldConstValue::fromValue(longer)), QStringLiteral("VarChar[2] =ab"));
}
