#include "support/systemlocale.h"
#include "support/tablefixture.h"

#include <database/tables/fieldvalue.h>

#include <gtest/gtest.h>

TEST(FieldInTheSystemLocale, writesEveryType)
{
    struct Case {
        FieldType::Type type;
        const char *text, *german, *russian;
    };
    // No-break spaces group the Russian numbers.
    const Case cases[] = {
        {FieldType::Integer, "-1234567", "-1.234.567", "-1\u00A0234\u00A0567"},
        {FieldType::Integer64, "9876543210", "9.876.543.210", "9\u00A0876\u00A0543\u00A0210"},
        {FieldType::Double, "1234.56789", "1.234,57", "1\u00A0234,57"},
        {FieldType::Decimal, "1234.50", "1.234,50", "1\u00A0234,50"},
        {FieldType::VarChar, "1234.5", "1234.5", "1234.5"},
        {FieldType::DateTime, "2024-03-10 02:30:00", "10.03.24 02:30:00.000",
         "10.03.2024 02:30:00.000"},
        {FieldType::XDecimal, "1234.50", "1.234,50", "1\u00A0234,50"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(FieldType::typeName(c.type));
        FieldValue value(c.type, 10, true);
        value.fromText(c.text);
        const auto text = [&value] { return value.toSystemString(); };
        EXPECT_EQ(textInSystemLocale("de_DE.UTF-8", text), c.german);
        EXPECT_EQ(textInSystemLocale("ru_RU.UTF-8", text), c.russian);
    }
}

TEST(FieldInTheSystemLocale, writesListsButNotUnknownTypes)
{
    FieldValue list(FieldType::BoardList, 0, true);
    boardlist boards;
    boards.append(2, 30);
    boards.append(1, 5);
    boards.append(2, 4);
    EXPECT_EQ(list.toSystemString(), QString());
    list.setValue(boards);
    EXPECT_EQ(list.toString(), "[BoardList]");
    EXPECT_EQ(list.toSystemString(), "1:5 2:30,4");
    EXPECT_EQ(list.toVariant(), QVariant(QStringLiteral("1:5 2:30,4")));

    const TableColumnDef undefined(nullptr);
    uchar cell[8] = {};
    uchar presence = 1;
    const Field field(&undefined, cell, &presence, 1);
    EXPECT_EQ(thrownBy([&] { (void)field.toSystemString(); }), "QString: Incorrect type of field.");
    EXPECT_TRUE(field.toString().isNull());
    EXPECT_FALSE(field.toVariant().isValid());
}
