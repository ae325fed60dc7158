#include <database/indexes/sortkey.h>
#include <database/tables/cellcompare.h>
#include <database/tables/table.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace
{

/// Columns of every type that can lead a key, NULL or not, and a second one that decides ties.
class Rows : public Table
{
public:
    Rows()
        : Table(QStringLiteral("rows"), QString())
    {
        addColumn(QStringLiteral("integer"), FieldType::Integer, 0);
        addColumn(QStringLiteral("integer64"), FieldType::Integer64, 0);
        addColumn(QStringLiteral("double"), FieldType::Double, 0);
        addColumn(QStringLiteral("decimal"), FieldType::Decimal, 2);
        addColumn(QStringLiteral("time"), FieldType::DateTime, 0);
        addColumn(QStringLiteral("text"), FieldType::VarChar, 12);
        addColumn(QStringLiteral("board"), FieldType::VarChar, 5, false);
        addColumn(QStringLiteral("number"), FieldType::Integer, 0, false);
        addColumn(QStringLiteral("precise"), FieldType::XDecimal, 2);
    }
};
enum Column { kInteger, kInteger64, kDouble, kDecimal, kTime, kText, kBoard, kNumber, kPrecise };

class SortKeys : public ::testing::Test
{
protected:
    int below(int n) { return int(random() % unsigned(n)); }
    template<class T>
    T edge()
    {
        const T edges[] = {0, 1, T(-1), std::numeric_limits<T>::max(),
                           std::numeric_limits<T>::lowest()};
        return below(4) ? T(below(2000) - 1000) : edges[below(5)];
    }
    QString text(int length)
    {
        QString result = QStringLiteral("K");
        for (int i = below(length); i > 1; --i)
            result += below(9) ? QChar('0' + below(10)) : QChar(below(2) ? 0x416 : 'a' + below(26));
        return result;
    }
    Record row()
    {
        const Record record(&table);
        if (below(5) == 0)
            return record; // NULL wherever that is allowed
        record.data(kInteger).setValue(edge<qint32>());
        record.data(kInteger64).setValue(edge<qint64>());
        record.data(kDouble).setValue(below(9) ? edge<double>() / 8 : -0.0);
        record.data(kDecimal).setValue(decimal::fromParts(below(2000) - 1000, 2));
        record.data(kTime).setValue(datetime(edge<qint64>()));
        record.data(kText).setValue(text(12));
        record.data(kBoard).setValue(text(5));
        record.data(kNumber).setValue(edge<qint32>());
        return record;
    }

    /// Learns from all rows and compares every pair.
    template<class Compare>
    void expectTheOrderOf(SortKey &key, const Compare &compare)
    {
        QList<Record> rows;
        for (int i = 0; i < 300; ++i) {
            rows.append(row());
            key.learn(rows.last().row());
        }
        ASSERT_TRUE(key.isOn());
        for (const Record &a : qAsConst(rows)) {
            ASSERT_TRUE(key.covers(a.row()));
            EXPECT_FALSE(key.learn(a.row())) << "digests change when nothing new is learned";
            for (const Record &b : qAsConst(rows)) {
                const int order = compare(a, b);
                const quint64 x = key(a.row());
                const quint64 y = key(b.row());
                ASSERT_TRUE(x == y || (x < y) == (order < 0)) << a.dump(true).toStdString() << '\n'
                                                              << b.dump(true).toStdString();
                ASSERT_TRUE(x != y || order == 0 || mayShareDigests);
            }
        }
    }

    std::mt19937 random{20240901};
    Rows table;
    bool mayShareDigests = false;
};

TEST_F(SortKeys, orderRowsAsTheirColumnsDo)
{
    const QList<QList<int>> keys = {{kInteger}, {kInteger64}, {kDouble},         {kDecimal},
                                    {kTime},    {kText},      {kBoard, kNumber}, {kText, kNumber}};
    for (const QList<int> &columns : keys) {
        SCOPED_TRACE(table.columnName(columns.first()).toStdString());
        // NULL and the lowest integer have one digest; more text varies here than fits.
        mayShareDigests = columns.first() != kInteger && columns.first() != kDouble &&
                          columns.first() != kDecimal;
        for (const int sign : {1, -1}) {
            SortKey key;
            key.setColumns(table, columns, sign > 0 ? Qt::AscendingOrder : Qt::DescendingOrder);
            expectTheOrderOf(key, [&](const Record &a, const Record &b) {
                int order = 0;
                for (const int column : columns)
                    order = order ? order : compareCells(*table.columnDef(column), a, b);
                return order * sign;
            });
        }
    }
}

TEST_F(SortKeys, orderBytesAsMemoryDoes)
{
    SortKey key;
    const qint64 offset = kRowHeaderSize + table.columnDef(kBoard)->offset;
    key.setBytes(offset, 24);
    mayShareDigests = true;
    expectTheOrderOf(key, [&](const Record &a, const Record &b) {
        return std::memcmp(a.row() + offset, b.row() + offset, 24);
    });
}

TEST_F(SortKeys, areOffForColumnsWithoutNumbers)
{
    SortKey key;
    key.setColumns(table, {kPrecise}, Qt::AscendingOrder);
    EXPECT_FALSE(key.isOn());
}

// Whatever the scale, and as one value for equal ones, also beside the word's last bits.
TEST_F(SortKeys, orderDecimalsOfAllScales)
{
    std::vector<decimal> values;
    for (const qint64 mantissa :
         {Q_INT64_C(0), Q_INT64_C(1), Q_INT64_C(9), Q_INT64_C(10), Q_INT64_C(99), Q_INT64_C(1250),
          decimal::kMaxMantissa - 1, decimal::kMaxMantissa, decimal::kMinMantissa}) {
        for (const int scale : {decimal::kMinScale, -1, 0, 1, 2, 16, 17, decimal::kMaxScale}) {
            values.push_back(decimal::fromParts(mantissa, short(scale)));
            values.push_back(decimal::fromParts(-mantissa, short(scale)));
        }
    }
    for (int i = 0; i < 60; ++i) {
        const short scale = short(below(6));
        values.push_back(decimal::fromParts(below(2000000) - 1000000, scale));
        decimal same = values.back();
        same.setScale(short(scale + 3));
        values.push_back(same);
    }
    SortKey key;
    key.setColumns(table, {kDecimal}, Qt::AscendingOrder);
    QList<Record> rows;
    int changed = 0;
    for (const decimal &value : values) {
        rows.append(Record(&table));
        rows.last().data(kDecimal).setValue(value);
        changed += key.learn(rows.last().row());
    }
    EXPECT_EQ(changed, 1);
    int shared = 0;
    for (const Record &a : qAsConst(rows)) {
        ASSERT_TRUE(key.covers(a.row()));
        ASSERT_NE(key(a.row()), 0u) << "NULL's";
        for (const Record &b : qAsConst(rows)) {
            const int order = compareCells(*table.columnDef(kDecimal), a, b);
            const quint64 x = key(a.row());
            const quint64 y = key(b.row());
            ASSERT_TRUE(order == 0 ? x == y : x == y || (x < y) == (order < 0))
                << a.data(kDecimal).toString().toStdString() << ' '
                << b.data(kDecimal).toString().toStdString();
            shared += x == y && order != 0;
        }
    }
    EXPECT_GT(shared, 0) << "the largest two mantissas";
    key.reset();
    EXPECT_FALSE(key.learn(rows.first().row())) << "begins with one scale anew";
}

TEST_F(SortKeys, putNanBehindInfinity)
{
    SortKey key;
    key.setColumns(table, {kDouble}, Qt::AscendingOrder);
    quint64 before = 0;
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double value : {-infinity, -1.5, 0.0, 1e300, infinity, nan}) {
        const Record record(&table);
        record.data(kDouble).setValue(value);
        EXPECT_FALSE(key.learn(record.row())) << value;
        EXPECT_TRUE(key.covers(record.row())) << value;
        EXPECT_GT(key(record.row()), before) << value;
        before = key(record.row());
        record.data(kDouble).setValue(-value); // of NaN the sign
        EXPECT_EQ(key(record.row()) == before, std::isnan(value) || value == 0);
    }
}

// As setNull() and rows that were there before their columns leave it.
TEST_F(SortKeys, takePresenceFromTheRowWhateverTheColumnAllows)
{
    const std::pair<QList<int>, int> cases[] = {
        {{kNumber}, kNumber}, {{kBoard, kNumber}, kNumber}, {{kBoard, kNumber}, kBoard}};
    for (const auto &[columns, nulled] : cases) {
        SortKey key;
        key.setColumns(table, columns, Qt::AscendingOrder);
        QList<Record> rows;
        for (int i = 0; i < 60; ++i) {
            rows.append(Record(&table));
            rows.last().data(kBoard).setValue(QString(QChar('A' + i % 3)));
            rows.last().data(kNumber).setValue(i % 20 - 10);
            if (i % 7 == 6)
                rows.last().data(nulled).setNull();
            key.learn(rows.last().row());
        }
        for (const Record &record : qAsConst(rows))
            ASSERT_TRUE(key.covers(record.row()));
        for (const Record &a : qAsConst(rows)) {
            for (const Record &b : qAsConst(rows)) {
                int order = 0;
                for (const int column : columns)
                    order = order ? order : compareCells(*table.columnDef(column), a, b);
                const quint64 x = key(a.row());
                const quint64 y = key(b.row());
                ASSERT_TRUE(x == y || (x < y) == (order < 0)) << a.dump(false).toStdString() << '\n'
                                                              << b.dump(false).toStdString();
            }
        }
    }
}

TEST_F(SortKeys, coverNullOnceTheyHaveSeenIt)
{
    Record plain(&table);
    plain.data(kDouble).setValue(-2.5);
    const Record null(&table);
    SortKey key;
    key.setColumns(table, {kDouble}, Qt::AscendingOrder);
    key.learn(plain.row());
    EXPECT_FALSE(key.covers(null.row()));
    quint64 digest = 1;
    EXPECT_TRUE(key.read(null.row(), &digest)) << "it may be searched for";
    EXPECT_LT(digest, key(plain.row()));
    EXPECT_FALSE(key.learn(null.row())) << "the digests of others stay";
    EXPECT_TRUE(key.covers(null.row()));
    EXPECT_EQ(key(null.row()), digest);
    key.reset();
    EXPECT_FALSE(key.covers(null.row()));
}

TEST_F(SortKeys, areWholeWhileAllBytesThatVaryFit)
{
    const qint64 board = kRowHeaderSize + table.columnDef(kBoard)->offset;
    SortKey bytes;
    bytes.setBytes(board, 24);
    SortKey columns;
    columns.setColumns(table, {kBoard}, Qt::AscendingOrder);
    EXPECT_FALSE(bytes.isWhole());
    const Record record(&table);
    for (const qint32 number : {7, 8, 300}) {
        record.data(kNumber).setValue(number);
        bytes.learn(record.row());
        columns.learn(record.row());
        EXPECT_TRUE(bytes.isWhole());
        EXPECT_FALSE(columns.isWhole()) << "what else is compared is not known";
    }
    for (int i = 0; i < 200; ++i)
        bytes.learn(row().row());
    EXPECT_FALSE(bytes.isWhole());
    bytes.reset();
    EXPECT_FALSE(bytes.isWhole());
}

} // namespace
