#include "indexes/indexfixture.h"

#include <algorithm>

namespace
{

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
    QuoteTable table;
    QuoteSort index{&table};
};

TEST_F(SortedIndex, findsRowsByIdentityNotByKey)
{
    table.appendAll(std::vector<int>(30, 5)); // a run longer than what is probed at once
    const Record stranger = table.row(4, 5);
    table.setPrice(20, 99); // unseen: stands among smaller keys now

    EXPECT_EQ(index.indexOf(table.at(20)), 20);
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
        {"within_its_neighbours", 2, 25, 2, {0, 1, 2, 3, 4}},
        {"equal_to_the_next", 0, 20, 0, {0, 1, 2, 3, 4}},
        {"up_behind_its_equals", 0, 30, 0, {1, 2, 3, 0, 4}},
        {"down_behind_its_equals", 4, 20, 4, {0, 1, 2, 4, 3}},
        {"to_the_front", 3, 1, 3, {3, 0, 1, 2, 4}},
        {"with_a_wrong_hint", 0, 50, 3, {1, 2, 3, 4, 0}},
        {"with_a_hint_past_the_end", 4, 1, 77, {4, 0, 1, 2, 3}},
    };
    const Warnings warnings;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        table.clear();
        table.appendAll({10, 20, 20, 30, 40});
        table.setPrice(c.id, c.price);
        index.update(index.at(c.id), kPrice, kPrice, c.hint); // an argument inside the list
        EXPECT_EQ(idsOf(index), c.expected);
        EXPECT_EQ(refCountOf(table.at(c.id)), 2);
    }
}

TEST_F(SortedIndex, warnsWhenAnUnseenChangeCostsAFullSearch)
{
    for (int i = 0; i < 100; ++i)
        table.append(i, i);
    table.setPrice(90, 5);
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

TEST_F(SortedIndex, ignoresRecordsOfABatchThatItDoesNotHold)
{
    table.appendAll({10, 20, 30});
    const Record stranger = table.row(1, 20);
    index.process({stranger, table.at(0), table.at(0)}, {table.at(0), table.at(1)}, 0, 3, {});
    EXPECT_EQ(idsOf(index), (Ids{1, 2}));
    EXPECT_GT(index.nsecsElapsed(), 0);
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
    table.setPrice(2, 5);
    index.process({}, updated, 0, 3, {});
    EXPECT_EQ(idsOf(index), (Ids{2, 1, 3}));
}

TEST_F(SortedIndex, sortsAgainAfterChangesThatItDidNotSee)
{
    table.appendAll({10, 20, 30, 40});
    table.setPrice(0, 30);
    table.setPrice(3, 5);
    index.resort();
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
    using MasterIndex_Column_Pure::MasterIndex_Column_Pure;
    int compare(const Record &a, const Record &b) const override
    {
        fuse.burn();
        return MasterIndex_Column_Pure::compare(a, b);
    }
    Fuse fuse;
};

/// A table with a sorted index and the rows that it began with.
struct Quotes {
    Quotes()
    {
        master = new FusedMaster(&table, QStringLiteral("Id"));
        table.setMasterIndex(master);
        for (int i = 0; i < 40; ++i)
            rows.append(table.append(i, i / 2, i % 5));
    }

    /// The list of rows holds one reference to each.
    int holders(const Record &record) const
    {
        return 1 + int(std::count(master->begin(), master->end(), record)) +
               int(std::count(index.begin(), index.end(), record));
    }

    QuoteTable table;
    FusedMaster *master;
    QuoteSort index{&table, kPrice, true};
    QList<Record> rows;
};

void runBatch(Quotes &quotes, int questions)
{
    RecordsTrans batch(&quotes.table);
    for (int i = 0; i < 30; i += 3) {
        batch.removeRow(quotes.rows.at(i));
        batch.updateRow(quotes.rows.at(i + 1)).field(kPrice).setValue(40 - i);
        batch.updateRow(quotes.rows.at(i + 2)).field(kListed).setValue((i + 1) % 5);
        batch.insertRow(quotes.table.row(100 + i, i));
    }
    quotes.index.fuse.set(questions);
    quotes.table.process(batch);
}

void changeKeys(Quotes &quotes, int questions)
{
    QList<Record> removed, updated, inserted;
    for (int i = 0; i < 30; i += 3) {
        removed.append(quotes.rows.at(i));
        updated.append(quotes.rows.at(i + 1));
        updated.last().data(kId).setValue(200 - i);
        inserted.append(quotes.table.row(100 + i, i));
    }
    quotes.master->fuse.set(questions);
    quotes.master->process(removed, updated, 0, 3, inserted);
}

void updateSingly(Quotes &quotes, int questions)
{
    quotes.index.fuse.set(questions);
    for (int i = 31; i < 40; i += 2) {
        const Record &row = quotes.rows.at(i);
        row.data(kPrice).setValue(100 - 3 * i);
        quotes.index.update(row, kPrice, kPrice, -1);
    }
}

struct Step {
    const char *name;
    void (*run)(Quotes &quotes, int questions);
    friend void PrintTo(const Step &step, std::ostream *out) { *out << step.name; }
};

class ThrowingIndex : public ::testing::TestWithParam<Step>
{
};

// Runs the step on fresh tables again and again, each time letting one more question pass before
// the index throws, until the step goes through.
TEST_P(ThrowingIndex, losesNothing)
{
    const Warnings ignored;
    int threw = 0;
    for (bool through = false; !through; ++threw) {
        SCOPED_TRACE(testing::Message() << "throws after question " << threw);
        ASSERT_LT(threw, 5000);
        Quotes quotes;
        try {
            GetParam().run(quotes, threw);
            through = true;
        } catch (const std::runtime_error &) {
        }
        quotes.master->fuse.set(-1);
        quotes.index.fuse.set(-1);
        ASSERT_TRUE(quotes.master->list().verify() && quotes.index.list().verify());
        ASSERT_EQ(quotes.holders(Record()), 1) << "an emptied record stands in an index";
        quotes.master->resort();
        for (int i = 0; i < quotes.rows.size(); ++i) {
            const Record &row = quotes.rows.at(i);
            const bool removed = i < 30 && i % 3 == 0;
            const bool relisted = i < 30 && i % 3 == 2;
            ASSERT_EQ(refCountOf(row), quotes.holders(row)) << i;
            ASSERT_TRUE(removed || quotes.master->contains(row)) << i;
            ASSERT_TRUE(removed || relisted || i % 5 == 0 || quotes.index.contains(row)) << i;
        }
        quotes.index.rebuild();
        EXPECT_TRUE(std::is_sorted(quotes.index.begin(), quotes.index.end(),
                                   IndexSort::LessThan(&quotes.index)));
        EXPECT_EQ(quotes.index.count(),
                  std::count_if(quotes.master->begin(), quotes.master->end(),
                                [](const Record &row) { return cellOf(row, kListed) != 0; }));
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(threw, 20);
}

INSTANTIATE_TEST_SUITE_P(IndexSort, ThrowingIndex,
                         ::testing::Values(Step{"in_a_batch", runBatch},
                                           Step{"as_the_master_index", changeKeys},
                                           Step{"when_one_record_is_updated", updateSingly}),
                         caseName<Step>);

} // namespace
