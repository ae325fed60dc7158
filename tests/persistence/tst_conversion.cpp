#include <database/persistence/tableio.h>
#include <database/tables/fieldvalue.h>

#include "support/tablefixture.h"

#include <QtCore/qbuffer.h>
#include <QtCore/qdatastream.h>

#include <gtest/gtest.h>

namespace
{

constexpr auto kInt = FieldType::Integer;
constexpr auto kInt64 = FieldType::Integer64;
constexpr auto kDouble = FieldType::Double;
constexpr auto kDecimal = FieldType::Decimal;
constexpr auto kText = FieldType::VarChar;
constexpr auto kDate = FieldType::DateTime;
constexpr auto kBoards = FieldType::BoardList;
constexpr auto kXDecimal = FieldType::XDecimal;

struct Conversion {
    const char *name;
    FieldType::Type from;
    const char *value; // null for NULL
    FieldType::Type to;
    int length; // of the target; the source has 40, which is nobody's scale
    const char *expected;
};

void PrintTo(const Conversion &conversion, std::ostream *out)
{
    *out << conversion.name;
}

class FieldConversion : public testing::TestWithParam<Conversion>
{
};

QString converted(const Conversion &c)
{
    FieldValue source(c.from == FieldType::Undefined ? kInt : c.from, 40, true);
    if (c.from == kBoards && c.value)
        source.setValue(boardlist());
    else
        source.fromText(QString::fromUtf8(c.value));
    const_cast<TableColumnDef *>(source.column())->type = c.from;
    FieldValue target(c.to == FieldType::Undefined ? kInt : c.to, c.length, true);
    const_cast<TableColumnDef *>(target.column())->type = c.to;
    target.setPresent();
    const QString thrown = thrownBy([&] { FieldDefConvertor().convert(target, source); });
    if (thrown != QLatin1String("nothing"))
        return thrown;
    return target.isNull() ? QStringLiteral("NULL") : target.toString();
}

} // namespace

TEST_P(FieldConversion, givesTheStatedValueOrError)
{
    EXPECT_EQ(converted(GetParam()), QString::fromUtf8(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, FieldConversion,
    testing::Values(
        Conversion{"integer", kInt, "-2147483648", kInt, 0, "-2147483648"},
        Conversion{"widened", kInt, "-2147483648", kInt64, 0, "-2147483648"},
        Conversion{"integer_double", kInt, "2147483647", kDouble, 0, "2147483647"},
        Conversion{"integer_decimal", kInt, "-7", kDecimal, 2, "-7.00"},
        Conversion{"integer_text_is_cut", kInt, "-12345", kText, 3, "-12"},
        Conversion{"integer_keeps_scale_0", kInt, "5", kXDecimal, 2, "5"},
        Conversion{"clamped_above", kInt64, "3000000000", kInt, 0, "2147483647"},
        Conversion{"clamped_below", kInt64, "-3000000000", kInt, 0, "-2147483648"},
        Conversion{"fits_56_bits", kInt64, "72057594037927935", kDecimal, 0, "72057594037927935"},
        Conversion{"loses_a_digit", kInt64, "72057594037927936", kDecimal, 0, "72057594037927930"},
        Conversion{"loses_three", kInt64, "9223372036854775807", kDecimal, -3,
                   "9223372036854775000"},
        Conversion{"negative_bits_cut", kInt64, "-72057594037927937", kDecimal, 0, "-1"},
        Conversion{"largest_xdecimal", kInt64, "-9223372036854775808", kXDecimal, 9,
                   "-9223372036854775808"},
        Conversion{"double_truncates", kDouble, "-2.9", kInt, 0, "-2"},
        Conversion{"double_last_int", kDouble, "-2147483648.9", kInt, 0, "-2147483648"},
        Conversion{"double_beyond_int", kDouble, "2147483648", kInt, 0, "-2147483648"},
        Conversion{"nan_is_indefinite", kDouble, "nan", kInt64, 0, "-9223372036854775808"},
        Conversion{"double_beyond_int64", kDouble, "9223372036854775808", kInt64, 0,
                   "-9223372036854775808"},
        Conversion{"double_decimal", kDouble, "1.0049999", kDecimal, 2, "1.01"},
        Conversion{"infinite_decimal", kDouble, "inf", kDecimal, 2, "QString: decimal:overflow"},
        Conversion{"double_text", kDouble, "2.5", kText, 20, "2.500000"},
        Conversion{"infinite_text", kDouble, "-inf", kText, 20, "-inf"},
        Conversion{"double_keeps_scale_6", kDouble, "2.5", kXDecimal, 2, "2.500000"},
        Conversion{"infinite_xdecimal", kDouble, "inf", kXDecimal, 2,
                   "Exception: xdecimal:overflow: column ''"},
        Conversion{"decimal_keeps_its_scale", kDecimal, "1.25", kDecimal, 4, "1.25"},
        Conversion{"decimal_integer", kDecimal, "-1.99", kInt, 0, "-1"},
        Conversion{"decimal_through_double", kDecimal, "9007199254740993", kInt64, 0,
                   "9007199254740992"},
        Conversion{"decimal_double", kDecimal, "0.1", kDouble, 0, "0.1"},
        Conversion{"decimal_xdecimal", kDecimal, "-0.05", kXDecimal, 9, "-0.05"},
        Conversion{"xdecimal_keeps_its_scale", kXDecimal, "1.250", kXDecimal, 1, "1.250"},
        Conversion{"xdecimal_indefinite", kXDecimal, "1e20", kInt64, 0, "-9223372036854775808"},
        Conversion{"xdecimal_decimal", kXDecimal, "1.250", kDecimal, 1, "1.250"},
        Conversion{"xdecimal_double", kXDecimal, "-1.5", kDouble, 1, "-1.5"},
        Conversion{"xdecimal_text", kXDecimal, "-1.50", kText, 9, "-1.50"}));

INSTANTIATE_TEST_SUITE_P(
    OthersAndErrors, FieldConversion,
    testing::Values(Conversion{"text_is_parsed", kText, "1.25", kDecimal, 4, "1.25"},
                    Conversion{"empty_text_is_null", kText, "", kText, 4, "NULL"},
                    Conversion{"text_of_no_number", kText, "1x", kInt, 0,
                               "Exception: Can't convert from '1x'' to Integer"},
                    Conversion{"text_boards", kText, "1", kBoards, 0,
                               "Exception: Can't convert from BoardList to VarChar"},
                    Conversion{"text_date", kText, "2024-01-31", kDate, 0,
                               "2024.01.31 00:00:00.000"},
                    Conversion{"date_text", kDate, "2024.01.31 23:59:59.999", kText, 30,
                               "2024.01.31 23:59:59.999"},
                    Conversion{"no_date_is_empty_text", kDate, "never", kText, 30, "NULL"},
                    Conversion{"boards", kBoards, "", kBoards, 0, "[BoardList]"},
                    Conversion{"null_of_impossible_pair", kDouble, nullptr, kDate, 0, "NULL"},
                    Conversion{"integer_date", kInt, "1", kDate, 0,
                               "Exception: Can't convert from DateTime to Integer"},
                    Conversion{"integer64_boards", kInt64, "1", kBoards, 0,
                               "Exception: Can't convert from BoardList to Integer64"},
                    Conversion{"double_date", kDouble, "1", kDate, 0,
                               "Exception: Can't convert double to datetime."},
                    Conversion{"double_undefined", kDouble, "1", FieldType::Undefined, 0,
                               "Exception: Can't convert from Undefined to Double"},
                    Conversion{"decimal_date", kDecimal, "1", kDate, 0,
                               "Exception: Can't convert from decimal to datetime."},
                    Conversion{"xdecimal_date", kXDecimal, "1", kDate, 0,
                               "Exception: Can't convert from decimal to datetime."},
                    Conversion{"xdecimal_reports_decimal", kXDecimal, "1", kBoards, 0,
                               "Exception: Can't convert from BoardList to Decimal"},
                    Conversion{"date_integer", kDate, "2024-01-31", kInt64, 0,
                               "Exception: Can't convert from Integer64 to DateTime"},
                    Conversion{"boards_text", kBoards, "", kText, 9,
                               "Exception: Can't convert from VarChar to BoardList"}));

// Every source type against every target type, in the order of the enumeration. "!a<b" stands for
// "Can't convert from a to b", "." for the source's own text.
TEST(FieldConversionMatrix, holdsForEveryPair)
{
    const char *const values[] = {"0", "7", "8", "2.5", "3.50", "9", "2024-01-31", "", "4.5"};
    const char *const expected[9][9] = {
        {"!Undefined<Undefined", "!Integer<Undefined", "!Integer64<Undefined", "!Double<Undefined",
         "!Decimal<Undefined", "!VarChar<Undefined", "!DateTime<Undefined", "!BoardList<Undefined",
         "!XDecimal<Undefined"},
        {"!Undefined<Integer", ".", ".", ".", "7.000", ".", "!DateTime<Integer",
         "!BoardList<Integer", "."},
        {"!Undefined<Integer64", ".", ".", ".", "8.000", ".", "!DateTime<Integer64",
         "!BoardList<Integer64", "."},
        {"!Undefined<Double", "2", "2", ".", "2.500", "2.5", "double to datetime.",
         "!BoardList<Double", "2.500000"},
        {"!Undefined<Decimal", "3", "3", "3.5", ".", "3.5", "from decimal to datetime.",
         "!BoardList<Decimal", "."},
        {"!Undefined<VarChar", ".", ".", ".", ".", ".", "", "!BoardList<VarChar", "."},
        {"!Undefined<DateTime", "!Integer<DateTime", "!Integer64<DateTime", "!Double<DateTime",
         "!Decimal<DateTime", "202", "2024.01.31 00:00:00.000", "!BoardList<DateTime",
         "!XDecimal<DateTime"},
        {"!Undefined<BoardList", "!Integer<BoardList", "!Integer64<BoardList", "!Double<BoardList",
         "!Decimal<BoardList", "!VarChar<BoardList", "!DateTime<BoardList", "[BoardList]",
         "!XDecimal<BoardList"},
        {"!Undefined<Decimal", "4", "4", "4.5", ".", ".", "from decimal to datetime.",
         "!BoardList<Decimal", "."}};
    for (int from = 0; from < 9; ++from) {
        for (int to = 0; to < 9; ++to) {
            QString text = QString::fromUtf8(expected[from][to]);
            if (text == ".")
                text = values[from];
            if (text.startsWith('!'))
                text = "Exception: Can't convert from " + text.mid(1).replace("<", " to ");
            else if (text.endsWith("datetime."))
                text.prepend("Exception: Can't convert ");
            EXPECT_EQ(
                converted({"", FieldType::Type(from), values[from], FieldType::Type(to), 3, ""}),
                text)
                << from << " to " << to;
        }
    }
}

namespace
{

/// Appends a letter to a text column, and tells when it is deleted.
struct Append : FieldDefConvertor {
    Append(char appended, int *living)
        : letter(QLatin1Char(appended))
        , alive(living)
    {
        ++*alive;
    }
    ~Append() override { --*alive; }
    void convert(Field &to, const Field &from) override
    {
        to.setValue(QString(to.toString() + from.toString() + letter));
    }
    const QChar letter;
    int *const alive;
};

} // namespace

TEST(ConvertorTest, applicationConvertorsRunInKeyOrderAndAreDeletedOnceTaken)
{
    Table saved("quotes", QString());
    saved.addColumn("old", kText, 4);
    saved.addColumn("gone", kInt, 0);
    saved.addColumn("same", kDecimal, 2);
    saved.addColumn("moved", kInt, 0);
    appendTexts(saved, {"x", "1", "2.50", "8"});
    QBuffer file;
    file.open(QIODevice::ReadWrite);
    QDataStream stream(&file);
    TableIO(&saved).write(stream, true);
    file.seek(0);

    Table now("quotes", QString());
    now.addColumn("new", kInt, 0, false);
    now.addColumn("moved", kInt, 0);
    now.addColumn("text", kText, 9);
    now.addColumn("same", kDecimal, 2);
    int alive = 0;
    Append *const untaken = new Append('!', &alive);
    TableIO::Convertors map{{{"text", "old"}, new Append('o', &alive)},
                            {{"text", "gone"}, new Append('g', &alive)},
                            {{"text", "never"}, untaken},
                            {{"same", "no such column"}, nullptr},
                            {{"", "gone"}, nullptr},
                            {{"", "old"}, nullptr}};
    static int s_warnings = 0;
    s_warnings = 0;
    const QtMessageHandler before =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
            s_warnings +=
                type == QtWarningMsg && text == "Column not found in translation." ? 1 : 100;
        });
    TableIO(&now).read(stream, true, map);
    qInstallMessageHandler(before);

    // Nothing feeds "new"; an entry that cannot be used keeps the copy away from "same" as well.
    EXPECT_EQ(rows(*now.masterIndex()), QStringList{"0 8 1gxo NULL"});
    EXPECT_EQ(now.columnCount(), 4);
    EXPECT_EQ(s_warnings, 2);
    EXPECT_EQ(alive, 1) << "taken convertors are the load's, the others the application's";
    delete untaken;
}
