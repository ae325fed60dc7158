#include "indexes/indexfixture.h"

#include <database/icore.h>
#include <database/indexes/indexdependbase.h>

#include <thread>

namespace
{

/// The listed rows, until the fuse burns down.
class ListedRows : public IndexList
{
public:
    using IndexList::IndexList;
    bool filter(const Record &record) const override
    {
        fuse.burn();
        return cellOf(record, kListed) != 0;
    }
    Fuse fuse;
};

class ListIndex : public ::testing::Test
{
protected:
    QuoteTable table;
};

TEST_F(ListIndex, removesTheRecordWhateverThePositionSays)
{
    IndexList index(&table, true);
    table.appendAll(std::vector<int>(8, 0));
    index.remove(table.at(2), 5);
    index.remove(table.at(4), 77);
    index.remove(table.at(5), 3);
    index.remove(table.at(6), -1);
    index.remove(table.row(0), 0); // another row of the same key
    EXPECT_EQ(idsOf(index), (Ids{0, 1, 3, 7}));
    EXPECT_EQ(index.indexOf(table.at(7)), 3);
    EXPECT_EQ(index.indexOf(table.at(2)), -1);
    EXPECT_TRUE(index.contains(table.at(0)));
    EXPECT_EQ(index.at(4), Record());
    EXPECT_EQ(index.getClassName(), "IndexList");
}

TEST_F(ListIndex, buildsFromTheTableInTheOrderOfItsKey)
{
    ListedRows index(&table, false);
    for (const int id : {5, 3, 9, 1})
        table.append(id, 0, id != 9);
    index.build();
    index.build();
    EXPECT_EQ(idsOf(index), (Ids{1, 3, 5}));

    index.fuse.set(2);
    EXPECT_THROW(index.build(), std::runtime_error);
    std::thread([&] {
        EXPECT_TRUE(table.tryLock()) << "the table's lock was kept";
        table.unlock();
    }).join();
}

TEST_F(ListIndex, movesBlocks)
{
    struct {
        int first, last, to;
        Ids expected;
    } cases[] = {
        {3, 4, 1, {0, 3, 4, 1, 2, 5}}, {3, 4, 0, {3, 4, 0, 1, 2, 5}}, {1, 2, 5, {0, 3, 4, 5, 1, 2}},
        {0, 0, 1, {1, 0, 2, 3, 4, 5}}, {1, 3, 1, {0, 1, 2, 3, 4, 5}}, {1, 3, 3, {0, 1, 2, 3, 4, 5}},
        {1, 2, 6, {0, 1, 2, 3, 4, 5}}, {4, 6, 0, {0, 1, 2, 3, 4, 5}}, {2, 1, 4, {0, 1, 2, 3, 4, 5}},
    };
    table.appendAll(std::vector<int>(6, 0));
    IndexList index(&table, true);
    for (const auto &c : cases) {
        index.build();
        index.move(c.first, c.last, c.to);
        EXPECT_EQ(idsOf(index), c.expected) << c.first << ".." << c.last << " to " << c.to;
    }
    EXPECT_EQ(refCountOf(table.at(1)), 2);
}

/// Knows one table by name.
class OneTableCore : public ICore
{
public:
    explicit OneTableCore(Table *table)
        : m_table(table)
    {
        setInstance(this);
    }
    ~OneTableCore() override { setInstance(nullptr); }
    bool hasTable(const QString &name) const override { return name == m_table->name(); }
    Table *table(const QString &name) const override { return hasTable(name) ? m_table : nullptr; }
    bool compressTableFiles() const override { return false; }

private:
    Table *m_table;
};

TEST_F(ListIndex, findsItsTableByName)
{
    const OneTableCore core(&table);
    const IndexList index(QStringLiteral("quotes"), true);
    EXPECT_EQ(index.table(), &table);
    EXPECT_EQ(table.indexes().size(), 1);
    EXPECT_EQ(thrownBy([] { IndexList(QStringLiteral("rates"), true); }),
              "Table 'rates' not found to create index.");
}

TEST(IndexRegistration, endsWithWhicheverGoesFirst)
{
    auto table = std::make_unique<QuoteTable>();
    auto survivor = std::make_unique<IndexList>(table.get(), true);
    {
        IndexList twice(table.get(), true);
        table->addIndex(&twice);
        table->setIndexName(QStringLiteral("a"), &twice);
        table->setIndexName(QStringLiteral("b"), &twice);
        EXPECT_EQ(table->indexes().size(), 3);
    }
    EXPECT_EQ(table->indexes(), QList<Index *>{survivor.get()});
    EXPECT_EQ(table->namedIndex(QStringLiteral("a")), nullptr);
    EXPECT_EQ(table->namedIndex(QStringLiteral("b")), nullptr);
    const Record kept = table->append(1);
    table.reset();
    EXPECT_EQ(survivor->count(), 0);
    EXPECT_EQ(refCountOf(kept), 1);
    survivor.reset();
}

// What every index inherits -----------------------------------------------------------------------

/// Writes down what it is asked to do.
class LogIndex : public Index
{
public:
    void clear() override { log.append(QStringLiteral("clear")); }
    void build() override { log.append(QStringLiteral("build")); }
    void add(const Record &record) override { note("add", record, 0); }
    void remove(const Record &record, int index) override { note("remove", record, index); }
    bool filter(const Record &record) const override { return cellOf(record, kListed) != 0; }
    bool contains(const Record &) const override { return false; }
    QString getClassName() const override { return QStringLiteral("LogIndex"); }
    void note(const char *what, const Record &record, int index)
    {
        log.append(QStringLiteral("%1 %2 %3").arg(what).arg(cellOf(record, kId)).arg(index));
    }
    QStringList log;
};

TEST(Index, carriesABatchOutInTheOrderOfItsLists)
{
    const QuoteTable table;
    LogIndex index;
    index.process({table.row(3), table.row(1)}, {table.row(4), table.row(5, 0, 0)}, 0, 3,
                  {table.row(9), table.row(8, 0, 0), table.row(7)});
    EXPECT_EQ(index.log, (QStringList{"remove 3 -1", "remove 1 -1", "remove 4 -1", "add 4 0",
                                      "remove 5 -1", "add 9 0", "add 7 0"}));
    index.log.clear();
    index.rebuild();
    EXPECT_EQ(index.log, (QStringList{"clear", "build"}));
    EXPECT_EQ(index.indexOf(table.row(3)), -1);
}

TEST(Index, sharesOutTheTotalTimeInPercent)
{
    const QuoteTable table;
    LogIndex index;
    EXPECT_EQ(index.percentElapsed(), decimal()) << "also before any time has passed";
    while (Index::nsecsElapsedTotal() < 2000000)
        index.process({table.row(1)}, {}, 0, 3, {});
    EXPECT_LE(index.nsecsElapsed(), Index::nsecsElapsedTotal());
    index.setNsecsElapsed(Index::nsecsElapsedTotal() / 10000 * 1234);
    EXPECT_EQ(index.percentElapsed().toString(), "12.34");
}

TEST(IndexDependBase, repeatsEveryCallInTheOrderOfEntry)
{
    const QuoteTable table;
    LogIndex a;
    LogIndex b;
    IndexDependBase base;
    base.addDependentIndex(&a);
    base.addDependentIndex(&b);
    base.addDependentIndex(&a);
    base.removeDependentIndex(&a);
    EXPECT_EQ(base.dependentIndexes(), (QList<Index *>{&b, &a}));
    base.clear();
    base.build();
    base.add(table.row(1, 0, 0)); // nothing is filtered on the way
    base.remove(table.row(2), 6);
    base.update(table.row(3), 0, 3, 4);
    base.process({table.row(5)}, {}, 0, 3, {});
    const QStringList expected{"clear",      "build",   "add 1 0",    "remove 2 6",
                               "remove 3 4", "add 3 0", "remove 5 -1"};
    EXPECT_EQ(a.log, expected);
    EXPECT_EQ(b.log, expected);
}

} // namespace
