#include "indexes/indexfixture.h"

#include <database/indexes/indexvector.h>

namespace
{

using Ids = std::vector<int>;

/// Listed rows by price.
class PriceVector : public IndexVector
{
public:
    using IndexVector::IndexVector;
    int compare(const Record &a, const Record &b) const override
    {
        fuse.burn();
        return cellOf(a, kPrice) - cellOf(b, kPrice);
    }
    bool filter(const Record &record) const override { return cellOf(record, kListed) != 0; }

    Fuse fuse;
};

class VectorIndex : public ::testing::Test
{
protected:
    QuoteTable table;
    PriceVector index{&table};
};

TEST_F(VectorIndex, keepsListedRowsByPriceAndEqualOnesAsTheyCame)
{
    table.appendAll({30, 10, 20, 10, 30});
    table.append(9, 15, 0);
    EXPECT_EQ(idsOf(index.records()), (Ids{1, 3, 2, 0, 4}));
    index.build();
    index.build();
    EXPECT_EQ(idsOf(index.records()), (Ids{1, 3, 2, 0, 4}));
    EXPECT_EQ(index.getClassName(), "IndexVector");
    EXPECT_EQ(index.table(), &table);
    index.clear();
    EXPECT_EQ(refCountOf(table.at(0)), 1);
}

TEST_F(VectorIndex, searchesBehindAPosition)
{
    table.appendAll({10, 20, 20, 30});
    EXPECT_EQ(index.search(table.row(-1, 20), -1), 1);
    EXPECT_EQ(index.search(table.row(-1, 20), 1), 2);
    EXPECT_EQ(index.search(table.row(-1, 20), 2), -1);
    EXPECT_EQ(index.search(table.row(-1, 25), -5), -1);
    EXPECT_TRUE(index.contains(table.row(-1, 30))) << "by key, not by row";
    EXPECT_FALSE(index.contains(table.row(3, 31)));
    EXPECT_EQ(index.indexOf(table.at(0)), -1);
}

TEST_F(VectorIndex, followsATransaction)
{
    table.appendAll({10, 20, 30, 40});
    RecordsTrans batch(&table);
    batch.removeRow(table.at(1));
    batch.updateRow(table.at(0)).field(kPrice).setValue(30);
    batch.updateRow(table.at(3)).field(kListed).setValue(0);
    batch.insertRow(table.row(5, 5));
    batch.execute();
    EXPECT_EQ(idsOf(index.records()), (Ids{5, 2, 0}));
    index.remove(table.row(2, 30), 1); // another row of the same key
    EXPECT_EQ(index.records().size(), 3);
}

TEST_F(VectorIndex, sortsAgainStably)
{
    table.appendAll({10, 20, 30, 40});
    table.at(0).data(kPrice).setValue(30);
    table.at(3).data(kPrice).setValue(1);
    index.resort();
    EXPECT_EQ(idsOf(index.records()), (Ids{3, 1, 0, 2}));
}

TEST_F(VectorIndex, staysAsItIsWhenAComparisonThrowsWhileItSorts)
{
    table.appendAll(std::vector<int>(40, 7));
    table.at(39).data(kPrice).setValue(1);
    for (int questions = 0; questions < 60; ++questions) {
        index.fuse.set(questions);
        EXPECT_THROW(index.resort(), std::runtime_error);
        index.fuse.set(-1);
        ASSERT_EQ(index.records().size(), 40);
        for (int i = 0; i < 40; ++i)
            ASSERT_EQ(index.records().at(i), table.at(i)) << "after " << questions;
    }
    index.resort();
    EXPECT_EQ(index.records().first(), table.at(39));
}

} // namespace
