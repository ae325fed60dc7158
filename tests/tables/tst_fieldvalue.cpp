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
    return type + (column.nullable ? "? " : " ") +
           (field.isNull() ? "NULL" : "=" + field.toString());
}

} // namespace

static_assert(std::has_virtual_destructor_v<FieldValue> && !std::is_polymorphic_v<Field>,
              "the destructor is the only virtual operation");

TEST(FieldValues, startAsNullAndZero)
{
    KeyedTable table;
    table.addColumn("text", FieldType::VarChar, 3, false);
    EXPECT_EQ(described(FieldValue()), "Integer? NULL");
    const FieldValue values[] = {FieldValue(FieldType::VarChar, 3, false),
                                 FieldValue(table.columnDef(4)), FieldValue(&table, 4),
                                 FieldValue(&table, "text")};
    for (const FieldValue &value : values) {
        EXPECT_EQ(described(value), "VarChar[3] NULL");
        EXPECT_EQ(value.column()->table, nullptr);
        EXPECT_EQ(value.column()->nullOffset, 8);
    }
    EXPECT_EQ(thrownBy([] { FieldValue(FieldType::VarChar, 0, true); }),
              "QString: Length of string can't be zero");
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
    EXPECT_EQ(described(FieldValue(row.data(2))), "Integer? NULL");
    setText(row.data(1), "6");
    for (FieldValue *value : {&constructed, &assigned, &copied}) {
        EXPECT_EQ(described(*value), "Integer? =5");
        EXPECT_EQ(value->column()->name, "a");
        value->fromText("8");
        EXPECT_EQ(row.data(1).toString(), "6");
    }
    const FieldValue &alias = copied;
    copied = alias;
    copied = static_cast<const Field &>(alias);
    EXPECT_EQ(described(copied), "Integer? =8");
}

TEST(FieldConstants, carryTheirValue)
{
    FieldValue list(FieldType::BoardList, 0, true);
    list.setValue(boardlist());
    FieldValue longer(FieldType::VarChar, 5, true);
    longer.fromText("ab");
    const std::pair<FieldConstValue, const char *> cases[] = {
        {FieldConstValue(), "Integer? NULL"},
        {FieldConstValue(QChar('x')), "VarChar[1] =x"},
        {FieldConstValue(QStringLiteral("Жук")), "VarChar[3] =Жук"},
        {FieldConstValue("gr\xfcn"), "VarChar[4] =grün"},
        {FieldConstValue(static_cast<const char *>(nullptr)), "VarChar[0] ="},
        {FieldConstValue(decimal::fromParts(150, 2)), "Decimal[0]? =1.50"},
        {FieldConstValue(xdecimal("1.50")), "XDecimal[0]? =1.50"},
        {FieldConstValue(datetime(1)), "DateTime? =1970.01.01 00:00:00.001"},
        {FieldConstValue(5), "Integer? =5"},
        {FieldConstValue(5LL), "Integer64? =5"},
        {FieldConstValue(0.1), "Double? =0.1"},
        {FieldConstValue::fromValue(longer), "VarChar[2] =ab"},
        {FieldConstValue::fromValue(list), "Integer? NULL"}, // nothing to compare
        {FieldConstValue::fromValue(FieldValue(FieldType::Double, 0, true)), "Integer? NULL"},
    };
    for (const auto &[value, text] : cases) {
        EXPECT_EQ(described(value), text);
        EXPECT_EQ(described(FieldConstValue::fromValue(value)), text);
    }
}
