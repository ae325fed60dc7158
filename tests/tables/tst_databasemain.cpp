#include "support/tablefixture.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qvector.h>

namespace
{

/// What a static object of the application finds before main() runs.
struct BeforeMain {
    const int types[5] = {QMetaType::type("datetime"), QMetaType::type("decimal"),
                          QMetaType::type("xdecimal"), QMetaType::type("Record"),
                          QMetaType::type("QVector<int>")};
    const int taskType = QMetaType::type("HRunnable");
    const bool datesCompare = QMetaType::hasRegisteredComparators<datetime>();
};

const BeforeMain beforeMain;

} // namespace

TEST(DatabaseMain, hasRegisteredEverythingBeforeMain)
{
    const int types[] = {qMetaTypeId<datetime>(), qMetaTypeId<decimal>(), qMetaTypeId<xdecimal>(),
                         qMetaTypeId<Record>(), qMetaTypeId<QVector<int>>()};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(beforeMain.types[i], types[i]) << i;
    EXPECT_EQ(beforeMain.taskType, int(QMetaType::VoidStar));
    EXPECT_TRUE(beforeMain.datesCompare);
}

TEST(DatabaseMain, letsVariantsCompareByValueAndConvertToText)
{
    const auto variant = [](const auto &value) { return QVariant::fromValue(value); };
    EXPECT_EQ(variant(decimal::fromParts(150, 2)), variant(decimal::fromParts(15, 1)));
    EXPECT_LT(variant(xdecimal("9")), variant(xdecimal("10")));
    EXPECT_LT(variant(datetime(-7)), variant(datetime(7)));
    EXPECT_EQ(variant(decimal::fromParts(150, 2)).toString(), "1.50");
    EXPECT_EQ(variant(xdecimal("1.50")).toString(), "1.50");
    EXPECT_EQ(variant(datetime(1)).toString(), "1970.01.01 00:00:00.001");
}

TEST(DatabaseMain, letsVariantsTravelInStreams)
{
    const QVariantList sent{QVariant::fromValue(decimal::fromParts(-150, 2)),
                            QVariant::fromValue(xdecimal("12345678901234567890.5"))};
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << sent;
    QVariantList received;
    QDataStream in(bytes);
    in >> received;
    EXPECT_EQ(received, sent);
}

TEST(DatabaseMain, letsVariantsHoldVectorsAndRecords)
{
    QStringList texts;
    const QVariant vector = QVariant::fromValue(QVector<int>{3, 1, 2});
    for (const QVariant &item : vector.value<QSequentialIterable>())
        texts.append(item.toString());
    EXPECT_EQ(texts, (QStringList{"3", "1", "2"}));

    KeyedTable table;
    const Record row = newRow(table, {"1"});
    EXPECT_EQ(QVariant::fromValue(row).value<Record>(), row);
    EXPECT_EQ(refCount(row), 1);
}
