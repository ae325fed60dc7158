#include "indexes/indexfixture.h"

#include <algorithm>

namespace
{

using Ids = std::vector<int>;

/// Collects what goes to Qt's warning channel during its life.
class Warnings
{
public:
    Warnings()
    {
        s_texts.clear();
        m_previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &,
                                               const QString &text) { s_texts.append(text); });
    }
    ~Warnings() { qInstallMessageHandler(m_previous); }
    QStringList texts() const { return s_texts; }

private:
    static inline QStringList s_texts;
    QtMessageHandler m_previous;
};

class SortedIndex : public ::testing::Test
{
protected:
    void setPrice(int id, int price) { table.at(id).data(kPrice).setValue(price); }

    QuoteTable table;
    QuoteSort index{&table};
};

TEST_F(SortedIndex, keepsEqualKeysInOrderOfArrival)
{
    table.appendAll({3, 1, 3, 2, 1, 3});

    EXPECT_EQ(idsOf(index), (Ids{1, 4, 3, 0, 2, 5}));
    EXPECT_EQ(index.getClassName(), "IndexSort");
}

TEST_F(SortedIndex, searchesBehindTheGivenPosition)
{
    table.appendAll({10, 20, 20, 20, 30, 30, 40});
    struct {
        int price, from, first, last, steps;
    } cases[] = {
        {20, -1, 1, 3, 1},   {20, -7, 1, 3, 1},   {20, 1, 2, 3, 0},    {20, 3, -1, -1, -1},
        {40, 2, 6, 6, 3},    {10, -1, 0, 0, 0},   {10, 0, -1, -1, -1}, {25, -1, -1, -1, -1},
        {5, -1, -1, -1, -1}, {50, 2, -1, -1, -1}, {40, 6, -1, -1, -1}, {40, 90, -1, -1, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.price << " behind " << c.from);
        const Record key = table.row(-1, c.price);
        EXPECT_EQ(index.search(key, c.from), c.first);
        EXPECT_EQ(index.searchLast(key, c.from), c.last);
        EXPECT_EQ(index.searchFull(key, c.from), c.steps);
        EXPECT_EQ(index.find(key, c.from), c.first == -1 ? Record() : index.at(c.first));
    }
    EXPECT_EQ(index.indexOfAdd(table.row(-1, 20)), 4);
    EXPECT_EQ(index.indexOfAdd(table.row(-1, 99)), 7);
}

TEST_F(SortedIndex, findsRowsByIdentityNotByKey)
{
    table.appendAll(std::vector<int>(30, 5)); // a run longer than what is probed at once
    const Record stranger = table.row(4, 5);
    setPrice(20, 99); // unseen: stands among smaller keys now

    EXPECT_EQ(index.indexOf(table.at(17)), 17);
    EXPECT_EQ(index.indexOf(table.at(20)), 20);
    EXPECT_EQ(index.indexOf(stranger), -1);
    EXPECT_FALSE(index.contains(stranger));
    EXPECT_EQ(index.indexOfs({table.at(29), stranger, table.at(20), table.at(0)}),
              (QMap<Record, int>{
                  {table.at(29), 29}, {stranger, -1}, {table.at(20), 20}, {table.at(0), 0}}));
}

TEST_F(SortedIndex, movesAnUpdatedRecordOnlyWhenItIsOutOfOrder)
{
    struct {
        const char *name;
        int id, price, hint;
        Ids expected;
    } cases[] = {
        {"unchanged", 2, 20, 2, {0, 1, 2, 3, 4}},
        {"within_its_neighbours", 2, 25, 2, {0, 1, 2, 3, 4}},
        {"within_its_neighbours_by_key", 1, 15, -1, {0, 1, 2, 3, 4}},
        {"equal_to_the_next", 0, 20, 0, {0, 1, 2, 3, 4}},
        {"up_behind_its_equals", 0, 30, 0, {1, 2, 3, 0, 4}},
        {"down_behind_its_equals", 4, 20, 4, {0, 1, 2, 4, 3}},
        {"to_the_front", 3, 1, 3, {3, 0, 1, 2, 4}},
        {"to_the_end", 0, 50, 0, {1, 2, 3, 4, 0}},
        {"with_a_wrong_hint", 0, 50, 3, {1, 2, 3, 4, 0}},
        {"with_a_hint_past_the_end", 4, 1, 77, {4, 0, 1, 2, 3}},
    };
    const Warnings warnings;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        table.clear();
        table.appendAll({10, 20, 20, 30, 40});
        setPrice(c.id, c.price);
        index.update(index.at(c.id), kPrice, kPrice, c.hint); // an argument inside the list
        EXPECT_EQ(idsOf(index), c.expected);
        EXPECT_EQ(refCountOf(table.at(c.id)), 2);
    }
}

TEST_F(SortedIndex, warnsWhenAnUnseenChangeCostsAFullSearch)
{
    for (int i = 0; i < 100; ++i)
        table.append(i, i);
    setPrice(90, 5);
    const Warnings warnings;
    index.update(table.at(90), kPrice, kPrice, -1);
    EXPECT_EQ(warnings.texts(), QStringList("update Full search can impact the performance"));
    EXPECT_EQ(index.indexOf(table.at(90)), 6);
    index.update(table.row(200, 3), kPrice, kPrice, -1);
    EXPECT_EQ(warnings.texts().size(), 1) << "a record that is not there is added";
    EXPECT_EQ(index.count(), 101);
}

TEST_F(SortedIndex, updateAddsAndDropsByTheFilter)
{
    QuoteSort listed(&table, kPrice, true);
    table.appendAll({10, 20, 30});
    table.at(1).data(kListed).setValue(0);
    listed.update(table.at(1), kListed, kListed, -1);
    EXPECT_EQ(idsOf(listed), (Ids{0, 2}));
    table.at(1).data(kListed).setValue(1);
    listed.update(table.at(1), kListed, kListed, -1);
    EXPECT_EQ(idsOf(listed), (Ids{0, 1, 2}));
}

// 10 fits before 11 and only fails once 11 has left: see SortBatch.
TEST_F(SortedIndex, staysSortedWhenNeighboursChangeTogether)
{
    table.appendAll({1, 2, 3, 4});
    RecordsTrans batch(&table);
    batch.updateRow(table.at(1)).field(kPrice).setValue(10);
    batch.updateRow(table.at(2)).field(kPrice).setValue(11);
    batch.execute();

    EXPECT_EQ(idsOf(index), (Ids{0, 3, 1, 2}));
}

TEST_F(SortedIndex, goesThroughATransactionOfItsTable)
{
    QuoteSort listed(&table, kPrice, true);
    table.appendAll({50, 40, 30, 20, 10});
    RecordsTrans batch(&table);
    batch.insertRow(table.row(7, 35));
    batch.insertRow(table.row(8, 35, 0));
    batch.removeRow(table.at(0));
    batch.updateRow(table.at(4)).field(kPrice).setValue(40);
    batch.updateRow(table.at(3)).field(kListed).setValue(0);
    batch.execute();

    EXPECT_EQ(idsOf(*table.masterIndex()), (Ids{1, 2, 3, 4, 7, 8}));
    EXPECT_EQ(idsOf(index), (Ids{3, 2, 7, 8, 1, 4}));
    EXPECT_EQ(idsOf(listed), (Ids{2, 7, 1, 4}));
    EXPECT_GT(index.nsecsElapsed(), 0);
}

TEST_F(SortedIndex, ignoresRecordsOfABatchThatItDoesNotHold)
{
    table.appendAll({10, 20, 30});
    const Record stranger = table.row(1, 20);
    index.process({stranger, table.at(0), table.at(0)}, {table.at(0), table.at(1)}, 0, 3, {});

    EXPECT_EQ(idsOf(index), (Ids{1, 2}));
}

// Notes of a batch that never came must not be taken for those of the next one.
TEST_F(SortedIndex, forgetsABatchThatWasAbandoned)
{
    table.appendAll({10, 20, 30, 40});
    const QList<Record> removed{table.at(2)};
    index.preprocess(removed, {}, 0, 3, {}, {});
    index.remove(table.at(0), -1);
    index.process(removed, {}, 0, 3, {});
    EXPECT_EQ(idsOf(index), (Ids{1, 3}));

    const QList<Record> updated{table.at(2)};
    index.preprocess({}, updated, 0, 3, {}, {});
    index.add(table.at(2));
    setPrice(2, 5);
    index.process({}, updated, 0, 3, {});
    EXPECT_EQ(idsOf(index), (Ids{2, 1, 3}));
}

TEST_F(SortedIndex, sortsAgainAfterChangesThatItDidNotSee)
{
    table.appendAll({10, 20, 30, 40});
    setPrice(0, 30);
    setPrice(3, 5);
    index.resort();
    EXPECT_EQ(idsOf(index), (Ids{3, 1, 0, 2}));
    index.rebuild();
    EXPECT_EQ(idsOf(index), (Ids{3, 1, 0, 2}));
    index.move(2, 2, 3);
    EXPECT_EQ(idsOf(index), (Ids{3, 1, 2, 0}));
    index.build();
    EXPECT_EQ(idsOf(index), (Ids{3, 1, 0, 2})) << "by key, then in the order of the master index";
}

// Throwing ----------------------------------------------------------------------------------------

/// The primary key, with a fuse.
class FusedMaster : public MasterIndex_Column_Pure
{
public:
    explicit FusedMaster(Table *table)
        : MasterIndex_Column_Pure(table, QStringLiteral("Id"))
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        fuse.burn();
        return MasterIndex_Column_Pure::compare(a, b);
    }
    Fuse fuse;
};

/// Runs a step on fresh tables again and again, each time letting one more question pass before the
/// index throws, until the step goes through.
class ThrowingIndex : public ::testing::Test
{
protected:
    struct Quotes {
        Quotes()
        {
            master = new FusedMaster(&table);
            table.setMasterIndex(master);
            for (int i = 0; i < 40; ++i)
                rows.append(table.append(i, i / 2, i % 5));
        }
        int holders(const Record &record) const
        {
            const auto in = [&](const IndexList &list) {
                return int(std::count(list.begin(), list.end(), record));
            };
            return 1 + in(*master) + in(index);
        }

        QuoteTable table;
        FusedMaster *master;
        QuoteSort index{&table, kPrice, true};
        QList<Record> rows;
    };

    template<class Step>
    void forEachQuestion(Step step)
    {
        const Warnings ignored;
        int threw = 0;
        for (bool through = false; !through; ++threw) {
            SCOPED_TRACE(testing::Message() << "throws after question " << threw);
            ASSERT_LT(threw, 5000);
            Quotes quotes;
            try {
                step(quotes, threw);
                through = true;
            } catch (const std::runtime_error &) {
            }
            quotes.master->fuse.set(-1);
            quotes.index.fuse.set(-1);
            for (const IndexList *list : {static_cast<IndexList *>(quotes.master),
                                          static_cast<IndexList *>(&quotes.index)}) {
                ASSERT_TRUE(list->list().verify());
                ASSERT_EQ(std::count(list->begin(), list->end(), Record()), 0);
            }
            for (const Record &record : quotes.rows) // the list holds one reference to each
                ASSERT_EQ(refCountOf(record), quotes.holders(record)) << cellOf(record, kId);
            check(quotes);
            ASSERT_FALSE(HasFailure());
        }
        EXPECT_GT(threw, 20);
    }

    static void runBatch(Quotes &quotes)
    {
        RecordsTrans batch(&quotes.table);
        for (int i = 0; i < 30; i += 3) {
            batch.removeRow(quotes.rows.at(i));
            batch.updateRow(quotes.rows.at(i + 1)).field(kPrice).setValue(40 - i);
            batch.updateRow(quotes.rows.at(i + 2)).field(kListed).setValue((i + 1) % 5);
            batch.insertRow(quotes.table.row(100 + i, i));
        }
        quotes.table.process(batch);
    }

    /// Whatever happened, what the step did not take out of the index is still there, no row is
    /// lost to the table, and the index is right again when it is built again.
    void check(Quotes &quotes)
    {
        quotes.master->resort();
        Ids expected;
        for (int i = 0; i < quotes.rows.size(); ++i) {
            const bool removed = i < 30 && i % 3 == 0;
            const bool relisted = i < 30 && i % 3 == 2;
            const Record &row = quotes.rows.at(i);
            EXPECT_TRUE(removed || quotes.master->contains(row)) << i;
            EXPECT_TRUE(removed || relisted || i % 5 == 0 || quotes.index.contains(row)) << i;
        }
        quotes.index.rebuild();
        for (int i = 0; i < quotes.table.rowCount(); ++i) {
            if (cellOf(quotes.table.at(i), kListed) != 0)
                expected.push_back(cellOf(quotes.table.at(i), kId));
        }
        Ids ids = idsOf(quotes.index);
        EXPECT_TRUE(std::is_sorted(quotes.index.begin(), quotes.index.end(),
                                   IndexSort::LessThan(&quotes.index)));
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids, expected);
    }
};

TEST_F(ThrowingIndex, losesNothingInABatch)
{
    forEachQuestion([](Quotes &quotes, int questions) {
        quotes.index.fuse.set(questions);
        runBatch(quotes);
    });
}

TEST_F(ThrowingIndex, losesNoRowOfTheTableWhenItIsTheMasterIndex)
{
    forEachQuestion([](Quotes &quotes, int questions) {
        QList<Record> removed;
        QList<Record> updated;
        QList<Record> inserted;
        for (int i = 0; i < 30; i += 3) {
            removed.append(quotes.rows.at(i));
            updated.append(quotes.rows.at(i + 1));
            updated.last().data(kId).setValue(200 - i);
            inserted.append(quotes.table.row(100 + i, i));
        }
        quotes.master->fuse.set(questions);
        quotes.master->process(removed, updated, 0, 3, inserted);
    });
}

TEST_F(ThrowingIndex, losesNothingWhenOneRecordIsUpdated)
{
    forEachQuestion([](Quotes &quotes, int questions) {
        quotes.index.fuse.set(questions);
        for (int i = 31; i < 40; i += 2) {
            const Record &row = quotes.rows.at(i);
            row.data(kPrice).setValue(100 - 3 * i);
            quotes.index.update(row, kPrice, kPrice, -1);
        }
    });
}

TEST_F(ThrowingIndex, losesNothingWhenItSorts)
{
    forEachQuestion([](Quotes &quotes, int questions) {
        quotes.index.fuse.set(questions);
        quotes.index.resort();
    });
}

} // namespace
