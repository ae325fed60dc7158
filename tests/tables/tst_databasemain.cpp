#include "support/tablefixture.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qvector.h>

namespace
{

template<class T>
bool comparesAndConverts()
{
    return QMetaType::hasRegisteredComparators<T>() &&
           QMetaType::hasRegisteredConverterFunction<T, QString>();
}

/// What a static object of the application finds before main() runs.
struct BeforeMain {
    int types[6] = {QMetaType::type("datetime"),  QMetaType::type("decimal"),
                    QMetaType::type("xdecimal"),  QMetaType::type("Record"),
                    QMetaType::type("HRunnable"), QMetaType::type("QVector<int>")};
    bool datetimeWorks = comparesAndConverts<datetime>();
    bool decimalWorks = comparesAndConverts<decimal>();
    bool xdecimalWorks = comparesAndConverts<xdecimal>();
};

const BeforeMain beforeMain;

} // namespace

TEST(DatabaseMain, hasRegisteredEverythingBeforeMain)
{
    const int expected[6] = {qMetaTypeId<datetime>(), qMetaTypeId<decimal>(),
                             qMetaTypeId<xdecimal>(), qMetaTypeId<Record>(),
                             QMetaType::VoidStar,     qMetaTypeId<QVector<int>>()};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(beforeMain.types[i], expected[i]) << i;
    EXPECT_TRUE(beforeMain.datetimeWorks && beforeMain.decimalWorks && beforeMain.xdecimalWorks);
}

TEST(DatabaseMain, letsVariantsCompareByValueAndConvertToText)
{
    const auto variant = [](const auto &value) { return QVariant::fromValue(value); };
    EXPECT_EQ(variant(decimal::fromParts(150, 2)), variant(decimal::fromParts(15, 1)));
    EXPECT_LT(variant(decimal::fromParts(9, 0)), variant(decimal::fromParts(10, 0)));
    EXPECT_EQ(variant(xdecimal("1.50")), variant(xdecimal("1.5")));
    EXPECT_LT(variant(xdecimal("9")), variant(xdecimal("10")));
    EXPECT_LT(variant(datetime(-7)), variant(datetime(7)));
    EXPECT_EQ(variant(decimal::fromParts(150, 2)).toString(), QStringLiteral("1.50"));
    EXPECT_EQ(variant(xdecimal("1.50")).toString(), QStringLiteral("1.50"));
    EXPECT_EQ(variant(datetime(1)).toString(), QStringLiteral("1970.01.01 00:00:00.001"));
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
