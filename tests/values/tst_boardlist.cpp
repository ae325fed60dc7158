#include <database/values/boardlist.h>

#include "valuetest.h"

TEST(BoardList, sortsKeysAndValuesAsTexts)
{
    boardlist list;
    EXPECT_EQ(list.toString(), QString());
    for (const auto &[key, value] : {std::pair{2, 30}, {1, 5}, {2, 4}, {10, -7}, {-1, 0}, {2, 30}})
        ASSERT_TRUE(list.append(key, value));
    EXPECT_EQ(list.toString(), QStringLiteral("-1:0 10:-7 1:5 2:30,30,4"));
}

TEST(BoardList, refusesAPairWhenFullAndReadsNoEntryOutsideItsCells)
{
    boardlist list;
    for (int i = 0; i < boardlist::kCapacity; ++i)
        ASSERT_TRUE(list.append(7, i));
    const QString full = list.toString();
    EXPECT_FALSE(list.append(8, 8));
    EXPECT_EQ(list.count, boardlist::kCapacity);
    list.count = 1000000;
    EXPECT_EQ(list.toString(), full);
    list.count = -3;
    EXPECT_EQ(list.toString(), QString());
}
