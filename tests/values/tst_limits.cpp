// What stands at the ends of ranges, in other types and in damaged bytes.

#include <database/decimal.h>
#include <database/values/boardlist.h>
#include <database/values/datetime.h>
#include <database/values/variant.h>
#include <database/xdecimal.h>

#include "valuetest.h"

#include <QtCore/qdatastream.h>
#include <QtCore/qdatetime.h>

#include <cmath>
#include <limits>

namespace
{

template<class Number>
QString converted(const QVariant &variant)
{
    bool ok = false;
    QString text;
    const QString thrown = thrownBy([&] { text = Number::fromVariant(variant, &ok).toString(); });
    if (thrown != "nothing thrown")
        return thrown;
    return ok ? text : text + " not known";
}

template<class Value>
QByteArray streamed(const Value &value)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << value;
    return bytes;
}

} // namespace

TEST(Variants, becomeNumbers)
{
    const struct {
        const char *name;
        QVariant variant;
        QString asDecimal, asXDecimal;
    } rows[] = {
        {"none", {}, "0", "0"},
        {"int", std::numeric_limits<int>::min(), "-2147483648.00000", "-2147483648.00000"},
        {"unsigned", 4000000000u, "4000000000.00000", "4000000000.00000"},
        {"int64", Q_INT64_C(-5), "-5.00000", "-5.00000"},
        {"unsigned64", Q_UINT64_C(18446744073709551615), "decimal:overflow",
         "18446744073709551615.00000"},
        {"double", -0.123456, "-0.12346", "-0.12346"},
        {"nan", std::nan(""), "decimal:overflow", "0.00000"},
        {"text", QString("-1.50"), "-1.50", "-1.50"},
        {"decimal", decimal(QString("1.250")).toVariant(), "1.250", "0 not known"},
        {"xdecimal", xdecimal("1.250").toVariant(), "0 not known", "1.250"},
        {"bytes", QByteArray("1"), "0 not known", "0 not known"},
        {"null_date", QDate(), "0", "0"},
    };
    for (const auto &[name, variant, asDecimal, asXDecimal] : rows) {
        EXPECT_EQ(converted<decimal>(variant), asDecimal) << name;
        EXPECT_EQ(converted<xdecimal>(variant), asXDecimal) << name;
    }
}

TEST(Variants, becomeTextsWithEveryDigit)
{
    for (const char *text : {"-123456789012345678901234.56", "0.10"})
        EXPECT_EQ(variant_convert(xdecimal(text).toVariant(), QMetaType::QString), QVariant(text));
    const QVariant date = QVariant::fromValue(datetime(QString("2024-02-29")));
    EXPECT_EQ(variant_convert(date, QMetaType::QString), QVariant("2024.02.29 00:00:00.000"));
}

TEST(Variants, ofTimesAndLettersAreOrdered)
{
    const QDate day(2024, 2, 29);
    const QVariant ascending[][2] = {{QTime(9, 59, 59, 999), QTime(10, 0)},
                                     {day, day.addDays(1)},
                                     {QDateTime(day, QTime(0, 0)), QDateTime(day, QTime(0, 1))},
                                     {QChar('B'), QChar('a')},
                                     {1.5, 2.5}};
    for (const auto &[less, more] : ascending) {
        EXPECT_LT(variant_compare(less, more, Qt::CaseSensitive), 0) << less.typeName();
        EXPECT_GT(variant_compare(more, less, Qt::CaseSensitive), 0) << less.typeName();
        EXPECT_EQ(variant_compare(more, more, Qt::CaseSensitive), 0) << less.typeName();
    }
    EXPECT_GT(variant_compare(QChar('B'), QChar('a'), Qt::CaseInsensitive), 0);
}

TEST(Numbers, endWhereTheirTypesDo)
{
    const QString digits(26, '9');
    EXPECT_EQ(xdecimal::maximum().toString(), digits + QString(62, '0'));
    EXPECT_EQ(xdecimal::minimum().toString(), '-' + digits + QString(62, '0'));
    EXPECT_LT(xdecimal::minimum(), xdecimal("-" + digits));
    decimal zero;
    zero.setScale(1000);
    EXPECT_EQ(zero.scale(), decimal::kMaxScale);
    zero.setScale(decimal::kMinScale - 1);
    EXPECT_EQ(zero.scale(), decimal::kMinScale);
    xdecimal null;
    const_cast<uchar *>(null.data())[2] = 101;
    ASSERT_TRUE(null.isNull());
    EXPECT_TRUE(std::isnan(null.toDouble()));
}

TEST(Dates, beginWithYear1)
{
    EXPECT_TRUE(datetime(QString("0000-12-31")).isNull());
    EXPECT_EQ(datetime(QString("0001-01-01")).toMSecsSinceEpoch(), Q_INT64_C(-62135596800000));
    EXPECT_TRUE(datetime(QString("2023.02.29")).isNull());
    EXPECT_EQ(datetime(QString("2024.02.29")).toString(), "2024.02.29 00:00:00.000");
}

TEST(BoardLists, fromElsewhereCountWhatTheyHold)
{
    boardlist list;
    for (int i = 0; i < boardlist::kCapacity; ++i)
        ASSERT_TRUE(list.append(7, i % 10));
    EXPECT_FALSE(list.append(8, 0));
    const QString full = list.toString();
    EXPECT_EQ(full.count(','), boardlist::kCapacity - 1);
    list.count = std::numeric_limits<qint32>::max();
    EXPECT_EQ(list.toString(), full);
    list.count = -1;
    EXPECT_EQ(list.toString(), "");
}

TEST(DamagedStreams, leaveNumbersThatCanBeComputedWith)
{
    const QByteArray whole = streamed(xdecimal("-12345678901234.56"));
    for (int size = 0; size < whole.size(); ++size) {
        QDataStream stream(whole.left(size));
        xdecimal value("1");
        stream >> value;
        EXPECT_TRUE(value.isNull()) << size;
        EXPECT_EQ(stream.status(), QDataStream::ReadPastEnd) << size;
    }
    int corrupt = 0;
    for (int place = 0; place < whole.size(); ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            QByteArray damaged = whole;
            damaged[place] = char(byte);
            QDataStream stream(damaged);
            xdecimal value("1");
            stream >> value;
            const bool isCorrupt = stream.status() == QDataStream::ReadCorruptData;
            ASSERT_TRUE(!isCorrupt || value.isNull()) << place << ' ' << byte;
            corrupt += isCorrupt;
            if (value.isNull())
                continue;
            ASSERT_TRUE(xdecimal::isNumber(value.data())) << place << ' ' << byte;
            QDataStream again(streamed(value));
            xdecimal same;
            again >> same;
            ASSERT_EQ(same.toString(), value.toString());
        }
    }
    EXPECT_GT(corrupt, 1000);
    QDataStream stream(streamed(decimal(QString("1.5"))).left(7));
    decimal value(QString("2"));
    stream >> value;
    EXPECT_EQ(value.word(), 0);
    EXPECT_EQ(stream.status(), QDataStream::ReadPastEnd);
}
