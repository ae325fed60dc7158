#include "support/tablefixture.h"

#include <gtest/gtest.h>

#include <type_traits>

static_assert(std::is_nothrow_copy_constructible_v<Record>);
static_assert(std::is_nothrow_move_constructible_v<Record>);
static_assert(std::is_nothrow_move_assignable_v<Record>);
static_assert(!QTypeInfo<Record>::isStatic && !QTypeInfo<Record>::isLarge, "lists hold pointers");

class Records : public ::testing::Test
{
protected:
    KeyedTable m_table;
};

TEST_F(Records, countTheirHandles)
{
    Record first(&m_table);
    Record second = first;
    Record third(first.row());
    EXPECT_EQ(refCount(first), 3);
    Record moved(std::move(second));
    EXPECT_TRUE(second.isNull());
    third = std::move(moved);
    EXPECT_EQ(refCount(first), 2);
    Record &alias = third;
    third = alias;
    third = std::move(alias);
    EXPECT_EQ(refCount(first), 2);
    const Record other(&m_table);
    third = other;
    EXPECT_EQ(refCount(first), 1);
    third = Record();
    EXPECT_EQ(refCount(other), 1);
    QList<Record> list{first, first, other};
    list.detach();
    list.removeFirst();
    EXPECT_EQ(refCount(first), 2);
    m_table.appendRow(first.row());
    EXPECT_EQ(refCount(first), 3);
    m_table.remove(first, -1);
    EXPECT_EQ(refCount(first), 2);
}

TEST_F(Records, areComparedByIdentity)
{
    const Record a = newRow(m_table, {"1"});
    const Record same = a;
    const Record clone = a.clone();
    EXPECT_TRUE(a == same && !(a != same) && qHash(a) == qHash(same));
    EXPECT_TRUE(a != clone && a != Record::null && (a < clone) != (clone < a));
}

TEST_F(Records, shareTheirRowButNotWithAClone)
{
    const Record a = newRow(m_table, {"1", "2"});
    Record same = a;
    const Record clone = a.clone();
    EXPECT_EQ(refCount(clone), 1);
    EXPECT_EQ(clone.table(), &m_table);
    setText(same.data(QStringLiteral("b")), QStringLiteral("3"));
    EXPECT_EQ(cells(a), QStringLiteral("1 2 3 NULL"));
    EXPECT_EQ(cells(clone), QStringLiteral("1 2 NULL NULL"));
}

TEST_F(Records, copyCells)
{
    const Record source = newRow(m_table, {"1", "2", nullptr, "4"});
    Record all = newRow(m_table, {"9", "9", "9", "9"});
    Record some = all.clone();
    Record tail = all.clone();
    all.copy(source);
    some.copy(source, 1, 2);
    tail.copy(source, 2, -1);
    EXPECT_EQ(cells(all), QStringLiteral("1 2 NULL 4"));
    EXPECT_EQ(cells(some), QStringLiteral("9 2 NULL 9"));
    EXPECT_EQ(cells(tail), QStringLiteral("9 9 NULL 4"));
    all.copy(all);
    all.copy(all, 0, 3);
    all.copy(Record::null);
    EXPECT_EQ(cells(all), QStringLiteral("1 2 NULL 4"));
    EXPECT_EQ(refCount(all), 1);
}

TEST_F(Records, areFoundByTheTextOfTheirKey)
{
    const Record one = appendTexts(m_table, {"1", "2"});
    appendTexts(m_table, {"2", "2"});
    EXPECT_EQ(Record(&m_table, QStringLiteral("1")), one);
    for (const char *text : {"", "3", "x", "1,2"})
        EXPECT_TRUE(Record(&m_table, QLatin1String(text)).isNull()) << text;
    EXPECT_EQ(one.toString(), QStringLiteral("1"));
    EXPECT_TRUE(one.inTable());
    EXPECT_FALSE(one.clone().inTable());
    EXPECT_EQ(refCount(one), 2);
}

TEST_F(Records, dumpTheirCells)
{
    const Record row = newRow(m_table, {"1", nullptr, "7"});
    const Record second = row;
    const QString address = QString::number(quintptr(row.row()), 16);
    const QString front = QStringLiteral("quotes:(ptr:0x%1%2 ref:2) { ")
                              .arg(QString(16 - address.size(), QLatin1Char('0')), address);
    EXPECT_EQ(row.dump(false), front + QStringLiteral("key=1 a=\"\" b=7 c=\"\" }"));
    EXPECT_EQ(row.dump(true), front + QStringLiteral("key=1 b=7 }"));
    Table plain(QStringLiteral("%4"), QString());
    plain.addColumn(QStringLiteral("n"), FieldType::Integer, 0);
    const QString dump = Record(&plain).dump(true);
    EXPECT_TRUE(dump.startsWith(QLatin1String("%4:(ptr:0x"))) << dump.toStdString();
    EXPECT_TRUE(dump.endsWith(QLatin1String(" ref:1) {  }"))) << dump.toStdString();
}

TEST_F(Records, doNothingWhenNull)
{
    Record null;
    EXPECT_TRUE(null.isNull() && !null && null == Record::null);
    EXPECT_TRUE(Record(static_cast<uchar *>(nullptr)).isNull());
    EXPECT_TRUE(null.clone().isNull());
    EXPECT_FALSE(null.inTable());
    EXPECT_EQ(null.toString(), QString());
    EXPECT_EQ(null.dump(false), QStringLiteral("{ NULL }"));
    null.copy(newRow(m_table, {"1"}));
    EXPECT_TRUE(null.isNull());
}
