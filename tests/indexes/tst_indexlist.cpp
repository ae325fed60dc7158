#include "indexes/indexfixture.h"
#include "support/recordingindex.h"

#include <database/icore.h>
#include <database/indexes/indexdependbase.h>

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

TEST(IndexList, findsItsTableByNameThroughTheApplication)
{
    struct Core : ICore {
        QuoteTable quotes;
        bool hasTable(const QString &name) const override { return name == quotes.name(); }
        Table *table(const QString &name) const override
        {
            return hasTable(name) ? const_cast<QuoteTable *>(&quotes) : nullptr;
        }
        bool compressTableFiles() const override { return false; }
    } core;
    ICore::setInstance(&core);
    EXPECT_EQ(IndexList(QStringLiteral("quotes"), true).table(), &core.quotes);
    ICore::setInstance(nullptr);
    EXPECT_THROW(IndexList(QStringLiteral("quotes"), true), QString);
}

TEST(IndexDependBase, repeatsEveryCallInOrderWithoutAskingTheFilter)
{
    QuoteTable table;
    QStringList log;
    Recording<IndexList> a("a", &log, &table, false), b("b", &log, &table, false);
    IndexDependBase dependents;
    for (Index *index :
         {static_cast<Index *>(&a), static_cast<Index *>(&b), static_cast<Index *>(&a)})
        dependents.addDependentIndex(index);
    dependents.removeDependentIndex(&a); // the first of the two
    const QList<Record> rows{table.row(1)};
    dependents.add(rows.first());
    dependents.update(rows.first(), 1, 2, 0);
    dependents.preprocess({}, rows, 1, 2, {}, rows);
    dependents.process({}, rows, 1, 2, {});
    dependents.remove(rows.first(), 0);
    dependents.clear();
    const QStringList calls{"add",
                            "update [1..2] 0",
                            "preprocess -0 ~1 +0 [1..2]",
                            "process -0 ~1 +0 [1..2]",
                            "remove 0",
                            "clear"};
    QStringList expected;
    for (const QString &call : calls)
        expected << "b." + call << "a." + call;
    EXPECT_EQ(log, expected);
}

} // namespace
