#include "support/tablefixture.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qvector.h>

namespace
{

/// What a static object of the application finds before main() runs.
struct BeforeMain {
    int datetimeType = QMetaType::type("datetime");
    int decimalType = QMetaType::type("decimal");
    int xdecimalType = QMetaType::type("xdecimal");
    int recordType = QMetaType::type("Record");
    int taskType = QMetaType::type("HRunnable");
    int vectorType = QMetaType::type("QVector<int>");
    bool datetimeCompares = QMetaType::hasRegisteredComparators<datetime>();
    bool decimalCompares = QMetaType::hasRegisteredComparators<decimal>();
    bool xdecimalCompares = QMetaType::hasRegisteredComparators<xdecimal>();
    bool datetimeConverts = QMetaType::hasRegisteredConverterFunction<datetime, QString>();
    bool decimalConverts = QMetaType::hasRegisteredConverterFunction<decimal, QString>();
    bool xdecimalConverts = QMetaType::hasRegisteredConverterFunction<xdecimal, QString>();
};

const BeforeMain beforeMain;

} // namespace

TEST(DatabaseMain, hasRegisteredEverythingBeforeMain)
{
    EXPECT_EQ(beforeMain.datetimeType, qMetaTypeId<datetime>());
    EXPECT_EQ(beforeMain.decimalType, qMetaTypeId<decimal>());
    EXPECT_EQ(beforeMain.xdecimalType, qMetaTypeId<xdecimal>());
    EXPECT_EQ(beforeMain.recordType, qMetaTypeId<Record>());
    EXPECT_EQ(beforeMain.vectorType, qMetaTypeId<QVector<int>>());
    EXPECT_GE(beforeMain.datetimeType, int(QMetaType::User));
    EXPECT_EQ(beforeMain.taskType, int(QMetaType::VoidStar));
    EXPECT_TRUE(beforeMain.datetimeCompares && beforeMain.decimalCompares &&
                beforeMain.xdecimalCompares);
    EXPECT_TRUE(beforeMain.datetimeConverts && beforeMain.decimalConverts &&
                beforeMain.xdecimalConverts);
}

TEST(DatabaseMain, letsVariantsCompareByValue)
{
    const auto variant = [](const auto &value) { return QVariant::fromValue(value); };
    EXPECT_EQ(variant(decimal::fromParts(150, 2)), variant(decimal::fromParts(15, 1)));
    EXPECT_LT(variant(decimal::fromParts(9, 0)), variant(decimal::fromParts(10, 0)));
    EXPECT_EQ(variant(xdecimal("1.50")), variant(xdecimal("1.5")));
    EXPECT_LT(variant(xdecimal("9")), variant(xdecimal("10")));
    EXPECT_EQ(variant(datetime(7)), variant(datetime(7)));
    EXPECT_LT(variant(datetime(-7)), variant(datetime(7)));
}

TEST(DatabaseMain, letsVariantsConvertToText)
{
    EXPECT_EQ(QVariant::fromValue(decimal::fromParts(150, 2)).toString(), QStringLiteral("1.50"));
    EXPECT_EQ(QVariant::fromValue(xdecimal("1.50")).toString(), QStringLiteral("1.50"));
    EXPECT_EQ(QVariant::fromValue(datetime(1)).toString(),
              QStringLiteral("1970.01.01 00:00:00.001"));
}

TEST(DatabaseMain, letsVariantsTravelInStreams)
{
    const QVariantList sent{QVariant::fromValue(decimal::fromParts(-150, 2)),
                            QVariant::fromValue(xdecimal("12345678901234567890.5"))};
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << sent;
    EXPECT_TRUE(bytes.contains("xdecimal"));
    QVariantList received;
    QDataStream in(bytes);
    in >> received;
    ASSERT_EQ(received.size(), 2);
    EXPECT_EQ(received.at(0).userType(), qMetaTypeId<decimal>());
    EXPECT_EQ(received.at(0).value<decimal>().toString(), QStringLiteral("-1.50"));
    EXPECT_EQ(received.at(1).userType(), qMetaTypeId<xdecimal>());
    EXPECT_EQ(received.at(1).value<xdecimal>().toString(),
              QStringLiteral("12345678901234567890.5"));
}

TEST(DatabaseMain, letsVectorsBeIterated)
{
    const QVariant variant = QVariant::fromValue(QVector<int>{3, 1, 2});
    ASSERT_TRUE(variant.canConvert<QVariantList>());
    QStringList texts;
    const auto items = variant.value<QSequentialIterable>();
    for (const QVariant &item : items)
        texts.append(item.toString());
    EXPECT_EQ(texts, (QStringList{"3", "1", "2"}));
}

TEST(DatabaseMain, letsRecordsTravelInVariants)
{
    KeyedTable table;
    const Record row = newRow(table, {"1"});
    {
        const QVariant variant = QVariant::fromValue(row);
        EXPECT_EQ(variant.value<Record>(), row);
        EXPECT_EQ(refCount(row), 2);
    }
    EXPECT_EQ(refCount(row), 1);
}
