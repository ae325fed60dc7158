#include "indexes/indexfixture.h"

#include <database/indexes/watchindex.h>

namespace
{

TEST(WatchIndex, notesWhatHappenedSinceItWasCleared)
{
    QuoteTable table;
    table.append(0);
    WatchIndex index(&table);
    EXPECT_EQ(index.getClassName(), "WatchIndex");
    index.build();
    EXPECT_TRUE(index.added().isEmpty()) << "rows that are there already did not happen";
    table.appendAll({10, 20, 30}); // a second row of id 0 is a row like any other
    const Record gone = table.at(2);
    const Record back = table.at(3);

    for (int price = 1; price <= 2; ++price) {
        RecordsTrans batch(&table);
        batch.updateRow(table.at(0)).field(kPrice).setValue(price);
        batch.execute();
    }
    table.remove(gone, -1);
    table.remove(back, -1);
    table.appendRow(back.row());

    EXPECT_EQ(idsOf(index.added()), (Ids{0, 1, 2}));
    EXPECT_EQ(idsOf(index.removed()), (Ids{1}));
    EXPECT_EQ(idsOf(index.updated()), (Ids{0, 0, 2}));
    EXPECT_TRUE(index.contains(table.at(0)) && index.contains(back));
    EXPECT_TRUE(index.contains(gone)) << "it was added in the same period";
    EXPECT_FALSE(index.contains(table.row(0)));

    index.clear();
    EXPECT_TRUE(index.added().isEmpty() && index.removed().isEmpty() && index.updated().isEmpty());
    EXPECT_FALSE(index.contains(back));
    EXPECT_EQ(refCountOf(gone), 1);
}

} // namespace
