#include "support/tablefixture.h"

#include <gtest/gtest.h>

#include <memory>
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
    EXPECT_EQ(refCount(first), 1);
    Record second = first;
    Record third(first.row());
    EXPECT_EQ(refCount(first), 3);
    Record moved(std::move(second));
    EXPECT_TRUE(second.isNull());
    third = std::move(moved);
    EXPECT_EQ(refCount(first), 2);
    const Record &alias = third;
    third = alias;
    third = std::move(const_cast<Record &>(alias));
    EXPECT_EQ(refCount(first), 2);
    const Record other(&m_table);
    third = other;
    EXPECT_EQ(refCount(first), 1);
    EXPECT_EQ(refCount(other), 2);
    {
        QList<Record> list{first, first, other};
        QVector<Record> vector(5, first);
        EXPECT_EQ(refCount(first), 8);
        list.removeFirst();
        vector.clear();
        EXPECT_EQ(refCount(first), 2);
    }
    EXPECT_EQ(refCount(first), 1);
}

TEST_F(Records, areComparedByIdentityAndShareTheirRow)
{
    const Record a = newRow(m_table, {"1", "2"});
    Record same = a;
    const Record clone = a.clone();
    EXPECT_TRUE(a == same && !(a != same) && a != clone && a != Record::null);
    EXPECT_EQ(qHash(a), qHash(same));
    EXPECT_NE(qHash(a), qHash(clone));
    EXPECT_NE(a < clone, clone < a);
    EXPECT_EQ(refCount(clone), 1);
    EXPECT_EQ(clone.table(), &m_table);
    setText(same.data("b"), "3");
    EXPECT_EQ(cells(a), "1 2 3 NULL");
    EXPECT_EQ(cells(clone), "1 2 NULL NULL");
}

TEST_F(Records, copyCells)
{
    const Record source = newRow(m_table, {"1", "2", nullptr, "4"});
    Record all = newRow(m_table, {"9", "9", "9", "9"});
    Record some = all.clone();
    all.copy(source);
    some.copy(source, 1, 2);
    EXPECT_EQ(cells(all), "1 2 NULL 4");
    EXPECT_EQ(cells(some), "9 2 NULL 9");
    all.copy(all); // a copy onto itself would be undefined
    all.copy(all, 0, 3);
    all.copy(Record::null);
    EXPECT_EQ(cells(all), "1 2 NULL 4");
    EXPECT_EQ(refCount(all), 1);
}

TEST_F(Records, areFoundByTheTextOfTheirKey)
{
    const Record one = appendTexts(m_table, {"1", "2"});
    EXPECT_EQ(Record(&m_table, "1"), one);
    for (const char *text : {"", "3", "x", "1,2"})
        EXPECT_TRUE(Record(&m_table, text).isNull()) << text;
    EXPECT_EQ(one.toString(), "1");
    EXPECT_TRUE(one.inTable());
    EXPECT_FALSE(one.clone().inTable());
    EXPECT_EQ(refCount(one), 2);
}

TEST_F(Records, dumpTheirCells)
{
    const Record row = newRow(m_table, {"1", nullptr, "7"});
    const Record second = row;
    const QString front =
        QString::asprintf("quotes:(ptr:0x%016llx ref:2) { ", quint64(quintptr(row.row())));
    EXPECT_EQ(row.dump(false), front + "key=1 a=\"\" b=7 c=\"\" }");
    EXPECT_EQ(row.dump(true), front + "key=1 b=7 }");
    Table plain("%4", QString());
    EXPECT_TRUE(Record(&plain).dump(true).startsWith("%4:(ptr:0x"));
}

TEST_F(Records, doNothingWhenNull)
{
    Record null;
    EXPECT_TRUE(null.isNull() && !null && null == Record::null && !null.table());
    EXPECT_TRUE(null.clone().isNull());
    EXPECT_FALSE(null.inTable());
    EXPECT_EQ(null.toString(), QString());
    EXPECT_EQ(null.dump(false), "{ NULL }");
    null.copy(newRow(m_table, {"1"}));
    EXPECT_TRUE(null.isNull());
}
