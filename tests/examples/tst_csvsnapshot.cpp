#include "csvsnapshot.h"

#include "fixedpoint.h"

#include <gtest/gtest.h>

namespace
{

const QByteArray kHeader = "Stock,Expiry,Strike,CE_LTP,CE_OI,CE_Volume,PE_LTP,PE_OI,PE_Volume,"
                           "Stock_LTP,Stock_High,Stock_Low,Stock_%_Change,timestamp\n";
const QByteArray kOak100 = "OAK,2026-03-26,100.0,5.25,10.0,1000,0.0,20,0,101.5,102,99,-1.5,"
                           "2026-03-02 09:15:00\n";
const QByteArray kOak110 = "OAK,2026-03-26,110.0,2,10,5,9.75,20,7,101.5,102,99,-1.5,"
                           "2026-03-02 09:15:01\n";
const QByteArray kAsh = "ASH,2026-03-26,7.5,1,2,3,4,5,6,8,9,7,0.125,2026-03-02 09:14:59\n";

Snapshot read(const QByteArray &bytes)
{
    return readCsvSnapshot(QStringLiteral("a.csv"), bytes);
}

QByteArray replaced(QByteArray text, const char *before, const char *after)
{
    return text.replace(before, after);
}

/// An option as one text, to compare all of it at once.
std::string describe(const Snapshot &snapshot, size_t i)
{
    const OptionQuote &option = snapshot.options.at(i);
    const QString last = option.last ? option.last->toExactString() : QStringLiteral("never");
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
        .arg(snapshot.underlyings.at(size_t(option.underlying)).stock,
             option.expiry.toString().left(10), option.strike.toExactString(),
             QString(QLatin1Char(char(option.side))), last, QString::number(option.openInterest),
             QString::number(option.volume))
        .toStdString();
}

TEST(CsvSnapshot, givesCallAndPutOfEveryLineInKeyOrder)
{
    const Snapshot snapshot = read(kHeader + kOak110 + kAsh + kOak100);
    ASSERT_EQ(snapshot.options.size(), 6u);
    EXPECT_EQ(describe(snapshot, 0), "ASH 2026.03.26 7.50 C 1.00 2 3");
    EXPECT_EQ(describe(snapshot, 1), "ASH 2026.03.26 7.50 P 4.00 5 6");
    EXPECT_EQ(describe(snapshot, 2), "OAK 2026.03.26 100.00 C 5.25 10 1000");
    EXPECT_EQ(describe(snapshot, 3), "OAK 2026.03.26 100.00 P never 20 0");
    EXPECT_EQ(describe(snapshot, 4), "OAK 2026.03.26 110.00 C 2.00 10 5");
    EXPECT_EQ(describe(snapshot, 5), "OAK 2026.03.26 110.00 P 9.75 20 7");
    ASSERT_EQ(snapshot.underlyings.size(), 2u);
    EXPECT_EQ(snapshot.underlyings[1].low.toExactString(), QStringLiteral("99.00"));
    EXPECT_EQ(snapshot.underlyings[1].changePercent.toExactString(), QStringLiteral("-1.500"));
    EXPECT_EQ(snapshot.time.toString(), QStringLiteral("2026.03.02 09:15:01.000"));
}

struct Form {
    const char *name;
    QByteArray bytes;
};

class CsvForm : public ::testing::TestWithParam<Form>
{
};

TEST_P(CsvForm, readsAsTheSameSnapshot)
{
    const Snapshot snapshot = read(GetParam().bytes);
    ASSERT_EQ(snapshot.options.size(), 4u);
    EXPECT_EQ(describe(snapshot, 1), "ASH 2026.03.26 7.50 P 4.00 5 6");
    EXPECT_EQ(describe(snapshot, 2), "OAK 2026.03.26 100.00 C 5.25 10 1000");
}

INSTANTIATE_TEST_SUITE_P(
    CsvSnapshot, CsvForm,
    ::testing::Values(
        Form{"crlf", replaced(kHeader + kAsh + kOak100, "\n", "\r\n")},
        Form{"no_final_newline", (kHeader + kAsh + kOak100).chopped(1)},
        Form{"empty_lines", "\n" + kHeader + "\n" + kAsh + "\r\n\n" + kOak100 + "\n\n"},
        Form{"byte_order_mark", "\xEF\xBB\xBF" + kHeader + kAsh + kOak100},
        Form{"quotes", replaced(kHeader, "Strike", "\"Strike\"") + kAsh +
                           replaced(replaced(kOak100, "OAK", "\"OAK\""), "5.25", "\"5.25\"")},
        Form{"extra_column_with_comma",
             "Note," + kHeader + "\"a, \"\"b\"\"\"," + kAsh + "," + kOak100},
        Form{"other_column_order",
             "timestamp,Stock_%_Change,Stock_Low,Stock_High,Stock_LTP,PE_Volume,PE_OI,PE_LTP,"
             "CE_Volume,CE_OI,CE_LTP,Strike,Expiry,Stock\n"
             "2026-03-02 09:15:00,0,7,9,8,6,5,4,3,2,1,7.50,2026-03-26,ASH\n"
             "2026-03-02 09:15:00,0,99,102,101.5,0,20,0,1000,10,5.25,100,2026-03-26,OAK\n"}),
    [](const auto &info) { return std::string(info.param.name); });

struct Fault {
    const char *name;
    QByteArray bytes;
    const char *message;
};

class CsvFault : public ::testing::TestWithParam<Fault>
{
};

TEST_P(CsvFault, isNamedWithFileLineAndText)
{
    try {
        read(GetParam().bytes);
        FAIL() << "nothing was thrown";
    } catch (const QString &message) {
        EXPECT_EQ(message.toStdString(), GetParam().message);
    }
}

QByteArray oakWith(const char *before, const char *after)
{
    return kHeader + kAsh + replaced(kOak100, before, after);
}

INSTANTIATE_TEST_SUITE_P(
    CsvSnapshot, CsvFault,
    ::testing::Values(
        Fault{"empty_file", "", "a.csv:1: no line with column names: ''"},
        Fault{"no_rows", kHeader + "\n", "a.csv:2: no line behind the column names: ''"},
        Fault{"missing_column", "Stock,Expiry\n",
              "a.csv:1: column 'Strike' is missing: 'Stock,Expiry'"},
        Fault{"column_twice", replaced(kHeader, "Strike", "Stock"),
              "a.csv:1: column 'Stock' stands twice: 'Stock,Expiry,Stock,CE_LTP,CE_OI,CE_Volume,"
              "PE_LTP,PE_OI,PE_Volume,Stock_LTP,Stock_High,Stock_Low,Stock_%_Change,timestamp'"},
        Fault{"short_line", kHeader + kAsh + "\nOAK,2026-03-26,100\n",
              "a.csv:4: 3 fields instead of 14: 'OAK,2026-03-26,100'"},
        Fault{"unreadable_price", oakWith("5.25", "5.2.5"),
              "a.csv:3: column 'CE_LTP' is not a price with at most 2 decimals: '5.2.5'"},
        Fault{"too_exact_price", oakWith("5.25", "5.255"),
              "a.csv:3: column 'CE_LTP' is not a price with at most 2 decimals: '5.255'"},
        Fault{"negative_price", oakWith("102", "-102"),
              "a.csv:3: column 'Stock_High' is not a price with at most 2 decimals: '-102'"},
        Fault{"broken_volume", oakWith("1000", "1000.5"),
              "a.csv:3: column 'CE_Volume' is not a whole number: '1000.5'"},
        Fault{"empty_volume", oakWith("1000", ""),
              "a.csv:3: column 'CE_Volume' is not a whole number: ''"},
        Fault{"no_percentage", oakWith("-1.5", "nan"),
              "a.csv:3: column 'Stock_%_Change' is not a percentage with at most 3 decimals: "
              "'nan'"},
        Fault{"no_date", oakWith("2026-03-26", "2026-02-30"),
              "a.csv:3: column 'Expiry' is not a date: '2026-02-30'"},
        Fault{"no_stock", oakWith("OAK", ""),
              "a.csv:3: column 'Stock' is not a name of 1 to 24 characters: ''"},
        Fault{"stock_too_long", oakWith("OAK", "ABCDEFGHIJKLMNOPQRSTUVWXY"),
              "a.csv:3: column 'Stock' is not a name of 1 to 24 characters: "
              "'ABCDEFGHIJKLMNOPQRSTUVWXY'"},
        Fault{"open_quote", oakWith("OAK", "\"OAK").chopped(1),
              "a.csv:3: a quoted field does not end: '\"OAK,2026-03-26,100.0,5.25,10.0,1000,0.0,"
              "20,0,101.5,102,99,-1.5,2026-03-02 09:15:00'"},
        Fault{"key_twice", kHeader + kOak100 + kAsh + kOak100,
              "a.csv:4: the strike stands in line 2 already: 'OAK 2026.03.26 100.00'"}),
    [](const auto &info) { return std::string(info.param.name); });

struct Number {
    const char *name, *text;
    int scale;
    std::optional<qint64> expected;
};

class FixedPoint : public ::testing::TestWithParam<Number>
{
};

TEST_P(FixedPoint, isReadExactlyOrNotAtAll)
{
    EXPECT_EQ(readFixedPoint(GetParam().text, GetParam().scale, decimal::kMaxMantissa),
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    CsvSnapshot, FixedPoint,
    ::testing::Values(
        Number{"whole", "20000", 0, 20000}, Number{"whole_with_zeros", "20000.00", 0, 20000},
        Number{"fewer_places", "2.5", 2, 250}, Number{"more_places", "0.1000", 2, 10},
        Number{"negative", "-0.05", 2, -5},
        Number{"largest", "720575940379279.35", 2, decimal::kMaxMantissa},
        Number{"too_large", "720575940379279.36", 2, std::nullopt},
        Number{"too_large_by_scale", "7205759403792794", 2, std::nullopt},
        Number{"beyond_64_bits", "99999999999999999999", 0, std::nullopt},
        Number{"lost_place", "0.001", 2, std::nullopt}, Number{"empty", "", 2, std::nullopt},
        Number{"sign_only", "-", 2, std::nullopt}, Number{"plus", "+1", 2, std::nullopt},
        Number{"no_integer", ".5", 2, std::nullopt}, Number{"no_fraction", "5.", 2, std::nullopt},
        Number{"space", " 5", 2, std::nullopt}, Number{"exponent", "1e3", 2, std::nullopt}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
