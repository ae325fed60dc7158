#include "indexes/indexfixture.h"

namespace
{

TEST(IndexList, fillsItsChunksToOneBelowTheirSizeWhenItAppends)
{
    QuoteTable table;
    IndexList index(&table, false);
    table.appendAll(std::vector<int>(10000, 0));
    index.build();
    ASSERT_EQ(index.list().partCount(), 2);
    EXPECT_EQ(index.list().part(0).size, 9999);
    EXPECT_EQ(index.list().part(1).size, 1);
}

TEST(IndexList, removesTheRecordWhateverThePositionSays)
{
    QuoteTable table;
    IndexList index(&table, true);
    table.appendAll(std::vector<int>(8, 0));
    index.remove(table.at(2), 5);
    index.remove(table.at(4), 77);
    index.remove(table.at(5), 3);
    index.remove(table.at(6), -1);
    index.remove(table.row(0), 0); // another row of the same key
    EXPECT_EQ(idsOf(index), (Ids{0, 1, 3, 7}));
}

TEST(IndexList, movesBlocks)
{
    struct {
        int first, last, to;
        Ids expected;
    } cases[] = {
        {3, 4, 1, {0, 3, 4, 1, 2, 5}}, {1, 2, 5, {0, 3, 4, 5, 1, 2}}, {0, 0, 1, {1, 0, 2, 3, 4, 5}},
        {1, 3, 3, {0, 1, 2, 3, 4, 5}}, {1, 2, 6, {0, 1, 2, 3, 4, 5}}, {2, 1, 4, {0, 1, 2, 3, 4, 5}},
    };
    QuoteTable table;
    table.appendAll(std::vector<int>(6, 0));
    IndexList index(&table, true);
    for (const auto &c : cases) {
        index.build();
        index.move(c.first, c.last, c.to);
        EXPECT_EQ(idsOf(index), c.expected) << c.first << ".." << c.last << " to " << c.to;
    }
}

TEST(IndexRegistration, endsWithWhicheverGoesFirst)
{
    auto table = std::make_unique<QuoteTable>();
    auto survivor = std::make_unique<IndexList>(table.get(), true);
    {
        IndexList twice(table.get(), true);
        table->addIndex(&twice);
        table->setIndexName(QStringLiteral("a"), &twice);
        EXPECT_EQ(table->indexes().size(), 3);
    }
    EXPECT_EQ(table->indexes(), QList<Index *>{survivor.get()});
    EXPECT_EQ(table->namedIndex(QStringLiteral("a")), nullptr);
    const Record kept = table->append(1);
    table.reset();
    EXPECT_EQ(survivor->count(), 0);
    EXPECT_EQ(refCountOf(kept), 1);
    survivor.reset();
}

} // namespace
