#include "indexes/indexfixture.h"

#include <database/indexes/indexvector.h>

#include <algorithm>

namespace
{

/// Listed rows by price.
class PriceVector : public IndexVector
{
public:
    using IndexVector::IndexVector;
    int compare(const Record &a, const Record &b) const override
    {
        fuse.burn();
        return comparePrices(a, b);
    }
    bool filter(const Record &record) const override { return cellOf(record, kListed) != 0; }

    Fuse fuse;
};

class VectorIndex : public ::testing::Test
{
protected:
    Ids ids() const { return idsOf(index.records()); }

    QuoteTable table;
    PriceVector index{&table};
};

TEST_F(VectorIndex, keepsListedRowsByPriceAndEqualOnesAsTheyCame)
{
    table.appendAll({30, 10, 20, 10, 30});
    table.append(9, 15, 0);
    EXPECT_EQ(ids(), (Ids{1, 3, 2, 0, 4}));
    index.build();
    EXPECT_EQ(ids(), (Ids{1, 3, 2, 0, 4}));

    EXPECT_EQ(index.search(table.row(-1, 10), -5), 0);
    EXPECT_EQ(index.search(table.row(-1, 10), 0), 1);
    EXPECT_EQ(index.search(table.row(-1, 10), 1), -1);
    EXPECT_TRUE(index.contains(table.row(-1, 20))) << "by key, not by row";
    EXPECT_FALSE(index.contains(table.row(3, 31)));
    EXPECT_EQ(index.indexOf(table.at(0)), -1);

    index.clear();
    EXPECT_EQ(refCountOf(table.at(0)), 1);
    EXPECT_EQ(index.getClassName(), "IndexVector");
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
    EXPECT_EQ(ids(), (Ids{5, 2, 0}));
    index.remove(table.row(2, 30), 1); // another row of the same key
    EXPECT_EQ(ids(), (Ids{5, 2, 0}));
}

TEST_F(VectorIndex, sortsAgainStablyAndNotAtAllWhenAComparisonThrows)
{
    table.appendAll(std::vector<int>(40, 7));
    const Ids before = ids();
    table.setPrice(39, 1);
    for (int questions = 0; questions < 60; ++questions) {
        index.fuse.set(questions);
        EXPECT_THROW(index.resort(), std::runtime_error);
        ASSERT_EQ(ids(), before) << "after " << questions;
    }
    index.resort();
    Ids expected = before;
    std::rotate(expected.begin(), expected.end() - 1, expected.end());
    EXPECT_EQ(ids(), expected);
}

} // namespace
