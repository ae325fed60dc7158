#include "support/tablefixture.h"

#include <database/tables/fieldvalue.h>

#include <gtest/gtest.h>
#include <QtCore/qdatetime.h>
#include <QtCore/qdebug.h>

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
            const QString refused = QStringLiteral("Exception: Can't convert from %1 to %2");
            EXPECT_EQ(read, refused.arg(other, own));
            EXPECT_EQ(written, refused.arg(own, other));
            EXPECT_TRUE(cell.isNull());
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

TEST(TypedAccess, cutsTextsAndStoresTheNullNumberAsNull)
{
    FieldValue cell(FieldType::VarChar, 3, false);
    cell.setValue(QStringLiteral("abcdef"));
    EXPECT_EQ(cell.value<QString>(), "abc");

    xdecimal null;
    reinterpret_cast<uchar *>(&null)[2] = 0x7F;
    ASSERT_TRUE(null.isNull());
    FieldValue number(FieldType::XDecimal, 0, true);
    number.setValue(xdecimal("5"));
    number.setValue(null);
    EXPECT_TRUE(number.isNull());
    EXPECT_FALSE(number.value<xdecimal>().isNull());
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
        {Type::Integer, true, "-2147483648", "-2147483648"},
        {Type::Integer, true, "2147483648", kUnreadable},
        {Type::Integer, true, "", "NULL"},
        {Type::Integer, false, "", kUnreadable},
        {Type::Integer, true, "%2%1", kUnreadable},
        {Type::Integer64, true, "-9223372036854775808", "-9223372036854775808"},
        {Type::Integer64, true, "9223372036854775808", kUnreadable},
        {Type::Double, true, "1234567.8901234567", "1234567.8901234567"},
        {Type::Double, true, "1e300", "1e+300"},
        {Type::Double, true, "1,5", kUnreadable},
        {Type::Decimal, true, "12.50", "12.50"},
        {Type::Decimal, false, "", "0"},
        {Type::Decimal, true, "abc", "QString: Невозможно создать decimal по строке 'abc'"},
        {Type::VarChar, true, "abcdef", "abc"},
        {Type::VarChar, true, "", "NULL"},
        {Type::VarChar, false, "", ""},
        {Type::DateTime, true, "2024.03.10 02:30:00.007", "2024.03.10 02:30:00.007"},
        {Type::DateTime, true, "2024-01-31", "2024.01.31 00:00:00.000"},
        {Type::DateTime, true, "31.01.2024", ""},
        {Type::XDecimal, true, "12345678901234567890.50", "12345678901234567890.50"},
        {Type::XDecimal, true, "abc", "QString: Невозможно создать xdecimal по строке 'abc'"},
        {Type::BoardList, true, "", "NULL"},
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

TEST(FieldAsVariant, hasTheColumnsType)
{
    const QDateTime midnight(QDate(2024, 1, 31), QTime(0, 0), Qt::UTC);
    struct Case {
        FieldType::Type type;
        const char *text;
        QVariant variant;
    };
    const Case cases[] = {
        {FieldType::Integer, "-5", QVariant(-5)},
        {FieldType::Integer64, "-5", QVariant(qlonglong(-5))},
        {FieldType::Double, "2.5", QVariant(2.5)},
        {FieldType::Decimal, "2.50", decimal::fromParts(250, 2).toVariant()},
        {FieldType::VarChar, "ab", QVariant(QStringLiteral("ab"))},
        {FieldType::DateTime, "2024-01-31", QVariant(midnight)},
        {FieldType::DateTime, "no date", QVariant(QDateTime::fromMSecsSinceEpoch(0, Qt::UTC))},
        {FieldType::XDecimal, "2.50", xdecimal("2.50").toVariant()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        FieldValue cell(c.type, 2, true);
        EXPECT_FALSE(cell.toVariant().isValid());
        EXPECT_TRUE(cell.toString().isNull());
        cell.fromText(c.text);
        EXPECT_EQ(cell.toVariant().userType(), c.variant.userType());
        EXPECT_EQ(cell.toVariant(), c.variant);
        EXPECT_EQ(cell.toVariant().toDateTime().timeSpec(), c.variant.toDateTime().timeSpec());
    }
}

TEST(FieldAsCharacter, needsATextOfLengthOne)
{
    FieldValue one(FieldType::VarChar, 1, true);
    EXPECT_EQ(thrownBy([&] { (void)one.asChar(); }), "QString: String is null for QChar");
    EXPECT_EQ(one.toChar(), QChar());
    one.fromText("Ж");
    FieldValue two(FieldType::VarChar, 2, false);
    two.fromText("a");
    const FieldConstValue number(5);
    for (const auto read : {&Field::asChar, &Field::toChar}) {
        EXPECT_EQ((one.*read)(), QChar(0x416));
        EXPECT_EQ(thrownBy([&] { (void)(two.*read)(); }),
                  "QString: String length is not 1 for QChar: 2.");
        EXPECT_EQ(thrownBy([&] { (void)(number.*read)(); }), "QString: Incorrect type of field.");
    }
}

TEST(FieldAsStaticString, refersToTheCell)
{
    FieldValue cell(FieldType::VarChar, 3, true);
    EXPECT_TRUE(cell.asStaticString().isNull());
    cell.fromText("ab");
    const QString inPlace = cell.asStaticString();
    EXPECT_EQ(inPlace, "ab");
    cell.fromText("xy");
    EXPECT_EQ(inPlace, "xy");
    EXPECT_EQ(thrownBy([] { (void)FieldConstValue(1.5).asStaticString(); }),
              "QString: Incorrect type of field.");
}

TEST(FieldInDebugOutput, isFollowedByOneSpace)
{
    FieldValue cell(FieldType::VarChar, 3, true);
    QString spaced, plain;
    QDebug(&spaced) << cell << 1;
    EXPECT_EQ(spaced, "NULL 1 ");
    cell.fromText("a b");
    QDebug(&plain).nospace() << cell << 1;
    EXPECT_EQ(plain, "a b 1");
}
