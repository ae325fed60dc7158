#include "support/tablefixture.h"

#include <database/tables/fieldvalue.h>

#include <gtest/gtest.h>
#include <QtCore/qdatetime.h>
#include <QtCore/qdebug.h>

namespace
{

constexpr FieldType::Type kTypes[] = {
    FieldType::Integer, FieldType::Integer64, FieldType::Double,    FieldType::Decimal,
    FieldType::VarChar, FieldType::DateTime,  FieldType::BoardList, FieldType::XDecimal};

QString text(const Field &field)
{
    return field.isNull() ? QStringLiteral("NULL") : field.toString();
}

template<class T>
void expectOneTypeFits(const T &value, const T &zero)
{
    for (const FieldType::Type type : kTypes) {
        SCOPED_TRACE(FieldType::typeName(type));
        FieldValue cell(type, 4, true);
        const QString own = QLatin1String(FieldType::typeName(CellType<T>::value));
        const QString other = QLatin1String(FieldType::typeName(type));
        const QString read = thrownBy([&] { (void)cell.value<T>(); });
        const QString written = thrownBy([&] { cell.setValue(value); });
        if (type == CellType<T>::value) {
            EXPECT_EQ(read + written, QStringLiteral("nothingnothing"));
            const T back = cell.value<T>();
            cell.setNull();
            const T none = cell.value<T>();
            if constexpr (std::is_same_v<T, boardlist>) {
                EXPECT_EQ(back.toString() + none.toString(), value.toString());
            } else {
                EXPECT_TRUE(back == value);
                EXPECT_TRUE(none == zero);
            }
        } else {
            EXPECT_EQ(read,
                      QStringLiteral("Exception: Can't convert from %1 to %2").arg(other, own));
            EXPECT_EQ(written,
                      QStringLiteral("Exception: Can't convert from %1 to %2").arg(own, other));
            EXPECT_TRUE(cell.isNull());
        }
    }
}

struct TextCase {
    const char *name;
    FieldType::Type type;
    bool nullable;
    const char *text;
    const char *result; // the text of the cell afterwards, or what is thrown
};

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
    EXPECT_EQ(cell.value<QString>(), QStringLiteral("abc"));

    xdecimal null;
    uchar bytes[sizeof(xdecimal)];
    std::memcpy(bytes, &null, sizeof(bytes));
    bytes[2] = 0x7F;
    std::memcpy(static_cast<void *>(&null), bytes, sizeof(bytes));
    ASSERT_TRUE(null.isNull());
    FieldValue number(FieldType::XDecimal, 0, true);
    number.setValue(xdecimal("5"));
    number.setValue(null);
    EXPECT_TRUE(number.isNull());
    EXPECT_FALSE(number.value<xdecimal>().isNull());
}

const TextCase kTexts[] = {
    {"integer", FieldType::Integer, true, "-2147483648", "-2147483648"},
    {"integer_too_large", FieldType::Integer, true, "2147483648",
     "Exception: Can't convert from '2147483648'' to Integer"},
    {"integer_empty", FieldType::Integer, true, "", "NULL"},
    {"integer_empty_not_nullable", FieldType::Integer, false, "",
     "Exception: Can't convert from ''' to Integer"},
    {"integer_in_hexadecimal", FieldType::Integer, true, "0x10",
     "Exception: Can't convert from '0x10'' to Integer"},
    {"text_with_a_place_mark", FieldType::Integer, true, "%2%1",
     "Exception: Can't convert from '%2%1'' to Integer"},
    {"integer64", FieldType::Integer64, true, "-9223372036854775808", "-9223372036854775808"},
    {"integer64_too_large", FieldType::Integer64, true, "9223372036854775808",
     "Exception: Can't convert from '9223372036854775808'' to Integer64"},
    {"double_shortest_exact", FieldType::Double, true, "0.1", "0.1"},
    {"double_all_digits", FieldType::Double, true, "1234567.8901234567", "1234567.8901234567"},
    {"double_large", FieldType::Double, true, "1e300", "1e+300"},
    {"double_no_number", FieldType::Double, true, "1,5",
     "Exception: Can't convert from '1,5'' to Double"},
    {"decimal", FieldType::Decimal, true, "12.50", "12.50"},
    {"decimal_empty_not_nullable", FieldType::Decimal, false, "", "0"},
    {"decimal_no_number", FieldType::Decimal, true, "abc",
     "QString: Невозможно создать decimal по строке 'abc'"},
    {"text_cut", FieldType::VarChar, true, "abcdef", "abc"},
    {"text_padded", FieldType::VarChar, true, "z", "z"},
    {"text_empty", FieldType::VarChar, true, "", "NULL"},
    {"text_empty_not_nullable", FieldType::VarChar, false, "", ""},
    {"date_with_msecs", FieldType::DateTime, true, "2024.03.10 02:30:00.007",
     "2024.03.10 02:30:00.007"},
    {"date_with_seconds", FieldType::DateTime, true, "2024-03-10 02:30:01",
     "2024.03.10 02:30:01.000"},
    {"date_with_points", FieldType::DateTime, true, "2024.01.31", "2024.01.31 00:00:00.000"},
    {"date_alone", FieldType::DateTime, true, "2024-01-31", "2024.01.31 00:00:00.000"},
    {"no_date", FieldType::DateTime, true, "31.01.2024", ""},
    {"date_empty_not_nullable", FieldType::DateTime, false, "", ""},
    {"xdecimal", FieldType::XDecimal, true, "12345678901234567890.50", "12345678901234567890.50"},
    {"xdecimal_no_number", FieldType::XDecimal, true, "abc",
     "QString: Невозможно создать xdecimal по строке 'abc'"},
    {"list_empty", FieldType::BoardList, true, "", "NULL"},
    {"list", FieldType::BoardList, true, "1:2",
     "Exception: Can't convert from BoardList to VarChar"}};

TEST(FieldFromText, storesItOrLeavesTheCellAlone)
{
    for (const TextCase &c : kTexts) {
        SCOPED_TRACE(c.name);
        FieldValue cell(c.type, 3, c.nullable);
        if (c.type == FieldType::BoardList)
            cell.setValue(boardlist());
        else
            cell.fromText(c.type == FieldType::DateTime ? QStringLiteral("2001-02-03")
                                                        : QStringLiteral("42"));
        const QString before = text(cell);
        const QString given = QString::fromUtf8(c.text);
        const QString padded = QLatin1Char('x') + given + QLatin1Char('x');
        const QString thrown = thrownBy([&] { cell.fromText(padded.midRef(1, given.size())); });
        if (thrown == QLatin1String("nothing")) {
            EXPECT_EQ(text(cell), QString::fromUtf8(c.result));
        } else {
            EXPECT_EQ(thrown, QString::fromUtf8(c.result));
            EXPECT_EQ(text(cell), before);
            cell.setNull();
            EXPECT_ANY_THROW(cell.fromText(given));
            EXPECT_TRUE(cell.isNull());
        }
    }
}

TEST(FieldAsVariant, hasTheColumnsType)
{
    struct Case {
        FieldType::Type type;
        const char *text;
        QVariant variant;
    };
    const QDateTime midnight(QDate(2024, 1, 31), QTime(0, 0), Qt::UTC);
    const Case cases[] = {
        {FieldType::Integer, "-5", QVariant(-5)},
        {FieldType::Integer64, "-5", QVariant(qlonglong(-5))},
        {FieldType::Double, "2.5", QVariant(2.5)},
        {FieldType::Decimal, "2.50", decimal::fromParts(250, 2).toVariant()},
        {FieldType::VarChar, "ab", QVariant(QStringLiteral("ab"))},
        {FieldType::DateTime, "2024-01-31", QVariant(midnight)},
        {FieldType::XDecimal, "2.50", xdecimal("2.50").toVariant()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        FieldValue cell(c.type, 2, true);
        EXPECT_FALSE(cell.toVariant().isValid());
        EXPECT_TRUE(cell.toString().isNull());
        cell.fromText(QString::fromLatin1(c.text));
        EXPECT_EQ(cell.toVariant().userType(), c.variant.userType());
        EXPECT_EQ(cell.toVariant(), c.variant);
    }
    FieldValue noDate(FieldType::DateTime, 0, true);
    noDate.setValue(datetime());
    EXPECT_TRUE(noDate.toString().isNull());
    EXPECT_EQ(noDate.toVariant(), QVariant(QDateTime(QDate(1970, 1, 1), QTime(0, 0), Qt::UTC)));
    EXPECT_EQ(noDate.toVariant().toDateTime().timeSpec(), Qt::UTC);
}

TEST(FieldAsCharacter, needsATextOfLengthOne)
{
    FieldValue one(FieldType::VarChar, 1, true);
    EXPECT_EQ(thrownBy([&] { (void)one.asChar(); }),
              QStringLiteral("QString: String is null for QChar"));
    EXPECT_EQ(one.toChar(), QChar());
    one.fromText(QStringLiteral("Ж"));
    EXPECT_EQ(one.asChar(), QChar(0x416));
    EXPECT_EQ(one.toChar(), QChar(0x416));

    FieldValue two(FieldType::VarChar, 2, false);
    two.fromText(QStringLiteral("a"));
    for (const auto read : {&Field::asChar, &Field::toChar}) {
        EXPECT_EQ(thrownBy([&] { (void)(two.*read)(); }),
                  QStringLiteral("QString: String length is not 1 for QChar: 2."));
        const FieldConstValue number(5);
        EXPECT_EQ(thrownBy([&] { (void)(number.*read)(); }),
                  QStringLiteral("QString: Incorrect type of field."));
    }
}

TEST(FieldAsStaticString, refersToTheCell)
{
    FieldValue cell(FieldType::VarChar, 3, true);
    EXPECT_TRUE(cell.asStaticString().isNull());
    cell.fromText(QStringLiteral("ab"));
    const QString inPlace = cell.asStaticString();
    EXPECT_EQ(inPlace, QStringLiteral("ab"));
    cell.fromText(QStringLiteral("xy"));
    EXPECT_EQ(inPlace, QStringLiteral("xy"));
    EXPECT_EQ(thrownBy([] { (void)FieldConstValue(1.5).asStaticString(); }),
              QStringLiteral("QString: Incorrect type of field."));
}

TEST(FieldInDebugOutput, isFollowedByOneSpace)
{
    FieldValue cell(FieldType::VarChar, 3, true);
    QString spaced;
    QDebug(&spaced) << cell << 1;
    EXPECT_EQ(spaced, QStringLiteral("NULL 1 "));
    cell.fromText(QStringLiteral("a b"));
    QString plain;
    QDebug(&plain).nospace() << cell << 1;
    EXPECT_EQ(plain, QStringLiteral("a b 1"));
}
