#include "support/tablefixture.h"

#include <database/tables/fieldvalue.h>

#include <gtest/gtest.h>
#include <QtCore/qdatetime.h>
#include <QtCore/qdebug.h>
#include <QtCore/qlocale.h>

#include <cstdint>

namespace
{

QString text(const Field &field)
{
    return field.isNull() ? QStringLiteral("NULL") : field.toString();
}

template<class T>
void expectOneTypeFits(const T &value, const T &zero)
{
    const QString own = QLatin1String(FieldType::typeName(CellType<T>::value));
    for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type) {
        FieldValue cell(static_cast<FieldType::Type>(type), 4, true);
        const QString other = QLatin1String(FieldType::typeName(cell.column()->type));
        SCOPED_TRACE(qPrintable(own + " in " + other));
        const QString read = thrownBy([&] { (void)cell.value<T>(); });
        const QString written = thrownBy([&] { cell.setValue(value); });
        if (type != CellType<T>::value) {
            // An integer widens to 64 bits either way, and is never narrowed.
            const bool widens = std::is_same_v<T, qint32> && type == FieldType::Integer64;
            const bool widened = std::is_same_v<T, qint64> && type == FieldType::Integer;
            const QString refused = QStringLiteral("Exception: Can't convert from %1 to %2");
            EXPECT_EQ(read, widened ? "nothing" : refused.arg(other, own));
            EXPECT_EQ(written, widens ? "nothing" : refused.arg(own, other));
            EXPECT_EQ(cell.isNull(), !widens);
            continue;
        }
        EXPECT_EQ(read + written, "nothingnothing");
        const T back = cell.value<T>();
        cell.setNull();
        const T none = cell.value<T>();
        if constexpr (std::is_same_v<T, boardlist>) {
            EXPECT_EQ(back.toString() + none.toString(), value.toString());
        } else {
            EXPECT_TRUE(back == value);
            EXPECT_TRUE(none == zero);
        }
    }
}

} // namespace

TEST(TypedAccess, fitsOneColumnTypeEach)
{
    boardlist boards;
    boards.append(1, 2);
    expectOneTypeFits<qint32>(-7, 0);
    expectOneTypeFits<qint64>(Q_INT64_C(1) << 40, 0);
    expectOneTypeFits<double>(0.1, 0.0);
    expectOneTypeFits<decimal>(decimal::fromParts(125, 2), decimal());
    expectOneTypeFits<QString>(QStringLiteral("abcd"), QString());
    expectOneTypeFits<datetime>(datetime(5), datetime());
    expectOneTypeFits<boardlist>(boards, boardlist());
    expectOneTypeFits<xdecimal>(xdecimal("-1.5"), xdecimal());
}

/// A cell as any integer type, written and read.
template<class T>
QString through(FieldType::Type type, T value)
{
    FieldValue cell(type, 0, true);
    QString result;
    const QString thrown = thrownBy([&] {
        cell.setValue(value);
        result = cell.toString() + (cell.value<T>() == value ? "" : " differs");
    });
    return thrown == "nothing" ? result : thrown.mid(11);
}

TEST(IntegerCells, takeAndGiveEveryIntegerInRange)
{
    const auto narrow = FieldType::Integer;
    const auto wide = FieldType::Integer64;
    EXPECT_EQ(through(narrow, true) + through(wide, false), "10");
    EXPECT_EQ(through(narrow, 7u) + through(wide, 4294967295u), "74294967295");
    EXPECT_EQ(through(narrow, 4294967295u), "Can't convert from '4294967295'' to Integer");
    EXPECT_EQ(through(wide, std::int64_t(-5)), "-5");
    EXPECT_EQ(through(narrow, std::int64_t(-5)), "Can't convert from Integer64 to Integer");
    EXPECT_EQ(through(wide, std::uint64_t(5)), "5");
    EXPECT_EQ(through(wide, ~std::uint64_t(0)),
              "Can't convert from '18446744073709551615'' to Integer64");
    EXPECT_EQ(through(narrow, short(-3)) + through(wide, short(-3)), "-3-3");
    EXPECT_EQ(through(FieldType::Double, 5u), "Can't convert from Integer to Double");

    FieldValue cell(wide, 0, true);
    EXPECT_FALSE(cell.value<bool>()) << "of NULL";
    cell.setValue(-2); // an int
    EXPECT_EQ(cell.value<long>(), -2);
    EXPECT_EQ(thrownBy([&] { (void)cell.value<unsigned>(); }),
              "Exception: Can't convert from '-2'' to unsigned");
    EXPECT_EQ(thrownBy([&] { (void)cell.value<bool>(); }),
              "Exception: Can't convert from '-2'' to bool");
    cell.setValue(Q_INT64_C(1) << 20);
    EXPECT_EQ(thrownBy([&] { (void)cell.value<short>(); }),
              "Exception: Can't convert from '1048576'' to short");

    FieldValue word(FieldType::VarChar, 4, true);
    word.setValue("Сбер");
    EXPECT_EQ(word.value<QString>(), QStringLiteral("Сбер"));
    EXPECT_EQ(thrownBy([&] { cell.setValue("5"); }),
              "Exception: Can't convert from VarChar to Integer64");
}

TEST(FieldMessages, nameColumnAndTableWhereThereAreSuch)
{
    Table table("quotes", QString());
    const QString place = " (column 'last' of table 'quotes')";
    table.addColumn("last", FieldType::Decimal, 2);
    const Record row(&table);
    Field cell = row.data(0);
    EXPECT_EQ(thrownBy([&] { cell.setValue(1.5); }),
              "Exception: Can't convert from Double to Decimal" + place);
    EXPECT_EQ(thrownBy([&] { (void)cell.value<QString>(); }),
              "Exception: Can't convert from Decimal to VarChar" + place);
    EXPECT_EQ(thrownBy([&] { setText(cell, "abc"); }),
              "QString: Невозможно создать decimal по строке 'abc'" + place);
    EXPECT_EQ(thrownBy([&] { cell.setLocaleString("abc", QLocale("en_US")); }),
              "Exception: Can't convert from 'abc'' to Decimal" + place);
    FieldValue alone(FieldType::Integer, 0, false);
    alone.init(table.columnDef(0)); // a cell of its own that belongs to no table
    EXPECT_TRUE(alone.isNull());
    EXPECT_EQ(thrownBy([&] { alone.setValue(1.5); }),
              "Exception: Can't convert from Double to Decimal");
}

TEST(FieldFromText, storesItOrLeavesTheCellAlone)
{
    using Type = FieldType;
    constexpr const char *kUnreadable = nullptr; // throws "Can't convert from 'text'' to type"
    struct Case {
        FieldType::Type type;
        bool nullable;
        const char *text;
        const char *result; // the text of the cell afterwards, or what is thrown
    };
    const Case cases[] = {
        {Type::Integer, true, "2147483648", kUnreadable},
        {Type::Integer, false, "", kUnreadable},
        {Type::Integer, true, "%2%1", kUnreadable},
        {Type::Integer64, true, "9223372036854775808", kUnreadable},
        {Type::Double, true, "1,5", kUnreadable},
        {Type::Decimal, true, "12.50", "12.50"},
        {Type::Decimal, true, "abc", "QString: Невозможно создать decimal по строке 'abc'"},
        {Type::VarChar, true, "abcdef", "abc"},
        {Type::VarChar, true, "", "NULL"},
        {Type::DateTime, true, "2024.03.10 02:30:00.007", "2024.03.10 02:30:00.007"},
        {Type::DateTime, true, "31.01.2024", ""},
        {Type::XDecimal, true, "12345678901234567890.50", "12345678901234567890.50"},
        {Type::BoardList, true, "1:2", "Exception: Can't convert from BoardList to VarChar"},
    };
    for (const Case &c : cases) {
        const char *const typeName = FieldType::typeName(c.type);
        SCOPED_TRACE(typeName + std::string(" from ") + c.text);
        FieldValue cell(c.type, 3, c.nullable);
        if (c.type == FieldType::BoardList)
            cell.setValue(boardlist());
        else
            cell.fromText(c.type == FieldType::DateTime ? "2001-02-03" : "42");
        const QString before = text(cell);
        const QString given = QString::fromUtf8(c.text);
        const QString padded = "x" + given + "x";
        const QString thrown = thrownBy([&] { cell.fromText(padded.midRef(1, given.size())); });
        if (thrown == "nothing") {
            EXPECT_EQ(text(cell), c.result);
            continue;
        }
        EXPECT_EQ(thrown, c.result
                              ? QString(c.result)
                              : "Exception: Can't convert from '" + given + "'' to " + typeName);
        EXPECT_EQ(text(cell), before);
        cell.setNull();
        EXPECT_ANY_THROW(cell.fromText(given));
        EXPECT_TRUE(cell.isNull());
    }
}

TEST(FieldAsText, isACharacterOrAViewOnlyOfText)
{
    FieldValue letter(FieldType::VarChar, 1, true), word(FieldType::VarChar, 2, true);
    FieldValue number;
    EXPECT_EQ(letter.toChar(), QChar());
    EXPECT_EQ(thrownBy([&] { (void)letter.asChar(); }), "QString: String is null for QChar");
    letter.fromText(QStringLiteral("x"));
    EXPECT_EQ(letter.asChar(), QLatin1Char('x'));
    word.fromText(QStringLiteral("ab"));
    EXPECT_EQ(thrownBy([&] { (void)word.asChar(); }),
              "QString: String length is not 1 for QChar: 2.");
    EXPECT_EQ(word.asStaticString(), "ab");
    EXPECT_TRUE(number.asStaticString().isNull());
    number.setValue(5);
    EXPECT_EQ(thrownBy([&] { (void)number.asStaticString(); }),
              "QString: Incorrect type of field.");
    EXPECT_EQ(thrownBy([&] { (void)number.toChar(); }), "QString: Incorrect type of field.");
    QString debug;
    QDebug(&debug) << number << FieldValue();
    EXPECT_EQ(debug, "5 NULL ");
}

TEST(FieldConstants, takeTypeAndLengthFromTheirValue)
{
    const struct {
        FieldConstValue value;
        const char *expected; // type, length, nullable, text
    } cases[] = {{FieldConstValue(), "Integer[0] 1 NULL"},
                 {FieldConstValue(QChar('x')), "VarChar[1] 0 x"},
                 {FieldConstValue(QStringLiteral("long")), "VarChar[4] 0 long"},
                 {FieldConstValue("latin"), "VarChar[5] 0 latin"},
                 {FieldConstValue(static_cast<const char *>(nullptr)), "VarChar[0] 0 "},
                 {FieldConstValue(decimal::fromParts(-15, 1)), "Decimal[0] 1 -1.5"},
                 {FieldConstValue(xdecimal("0.5")), "XDecimal[0] 1 0.5"},
                 {FieldConstValue(datetime(1)), "DateTime[0] 1 1970.01.01 00:00:00.001"},
                 {FieldConstValue(5), "Integer[0] 1 5"},
                 {FieldConstValue(Q_INT64_C(5)), "Integer64[0] 1 5"},
                 {FieldConstValue(5u), "Integer64[0] 1 5"},
                 {FieldConstValue(std::int64_t(-5)), "Integer64[0] 1 -5"},
                 {FieldConstValue(true), "Integer[0] 1 1"},
                 {FieldConstValue(0.1), "Double[0] 1 0.1"}};
    for (const auto &c : cases) {
        for (const FieldConstValue &value : {c.value, FieldConstValue::fromValue(c.value)}) {
            const TableColumnDef &column = *value.column();
            const QString shown = QStringLiteral("%1[%2] %3 %4")
                                      .arg(FieldType::typeName(column.type))
                                      .arg(column.length)
                                      .arg(column.nullable)
                                      .arg(text(value));
            EXPECT_EQ(shown, c.expected);
        }
    }
}

TEST(FieldAsVariant, hasTheColumnsType)
{
    const QDateTime midnight(QDate(2024, 1, 31), QTime(0, 0), Qt::UTC);
    const std::tuple<FieldType::Type, const char *, QVariant> cases[] = {
        {FieldType::Integer64, "-5", QVariant(qlonglong(-5))},
        {FieldType::DateTime, "2024-01-31", QVariant(midnight)},
        {FieldType::DateTime, "no date", QVariant(QDateTime::fromMSecsSinceEpoch(0, Qt::UTC))},
        {FieldType::XDecimal, "2.50", xdecimal("2.50").toVariant()},
    };
    for (const auto &[type, text, variant] : cases) {
        SCOPED_TRACE(text);
        FieldValue cell(type, 2, true);
        EXPECT_FALSE(cell.toVariant().isValid());
        cell.fromText(text);
        EXPECT_EQ(cell.toVariant().userType(), variant.userType());
        EXPECT_EQ(cell.toVariant(), variant);
        EXPECT_EQ(cell.toVariant().toDateTime().timeSpec(), variant.toDateTime().timeSpec());
    }
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
    setText(row.data(1), "6");
    for (FieldValue *value : {&constructed, &assigned, &copied}) {
        EXPECT_EQ(value->value<qint32>(), 5);
        value->fromText("8");
        EXPECT_EQ(row.data(1).toString(), "6");
    }
    const FieldValue &alias = copied;
    copied = static_cast<const Field &>(alias);
    EXPECT_EQ(copied.value<qint32>(), 8);
}
