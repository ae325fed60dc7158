#include <database/values/boardlist.h>

#include "printing.h"

#include <gtest/gtest.h>

TEST(BoardList, sortsKeysAndValuesAsTexts)
{
    boardlist list;
    EXPECT_EQ(list.toString(), QString());
    ASSERT_TRUE(list.append(2, 30));
    ASSERT_TRUE(list.append(1, 5));
    ASSERT_TRUE(list.append(2, 4));
    EXPECT_EQ(list.toString(), QStringLiteral("1:5 2:30,4"));
    ASSERT_TRUE(list.append(10, -7));
    ASSERT_TRUE(list.append(-1, 0));
    ASSERT_TRUE(list.append(2, 30));
    EXPECT_EQ(list.toString(), QStringLiteral("-1:0 10:-7 1:5 2:30,30,4"));
}

TEST(BoardList, refusesAPairWhenFullAndStaysAsItWas)
{
    boardlist list;
    for (int i = 0; i < boardlist::kCapacity; ++i)
        ASSERT_TRUE(list.append(7, i));
    EXPECT_FALSE(list.append(8, 8));
    EXPECT_EQ(list.count, boardlist::kCapacity);
    EXPECT_FALSE(list.toString().contains(QLatin1Char('8') + QStringLiteral(":")));
}

TEST(BoardList, readsNoEntryOutsideItsCells)
{
    boardlist list;
    list.count = -3;
    EXPECT_EQ(list.toString(), QString());
    list.count = 1000000;
    EXPECT_EQ(list.toString().count(QLatin1Char(',')), boardlist::kCapacity - 1);
}
