// Batches as feeds and people make them, run on a table and on a naive model of it, which are
// compared cell by cell. Keys that can be hashed and others enter a batch in different ways, and so
// do many keys that seldom meet and few that often do.

#include "support/batches.h"

#include <database/indexes/indexlist.h>

#include <stdexcept>
#include <thread>
#include <utility>

namespace
{

struct Kind {
    KeyKind keys;
    int count;
};

class Batches : public ::testing::TestWithParam<Kind>
{
protected:
    Batches() { model.schema.addTo(table, GetParam().keys); }

    Table table{QStringLiteral("quotes"), QString()};
    TableModel model{Schema::ofEveryType(GetParam().keys)};
    Random random{unsigned(GetParam().keys * 100 + GetParam().count)};
    BatchMaker maker{model, GetParam().count, random};
};

/// Does for once what a test wants when the table calls.
struct Meddler : IndexList {
    using IndexList::IndexList;

    void preprocess(const QList<Record> &, const QList<Record> &, int, int, const QList<Record> &,
                    const QList<Record> &) override
    {
        if (const auto act = std::exchange(onPreprocess, nullptr))
            act();
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int from, int to,
                 const QList<Record> &inserted) override
    {
        IndexList::process(removed, updated, from, to, inserted);
        if (const auto act = std::exchange(onProcess, nullptr))
            act();
    }

    std::function<void()> onPreprocess, onProcess;
};

} // namespace

// Each entry changes what it names and nothing else, in whatever order the batches run.
TEST_P(Batches, leaveTheTableOfThePlainModel)
{
    IndexList index(&table, true);
    const bool sideBySide = maker.has(Pattern::SideBySide);
    RecordsTrans batches[2]{RecordsTrans(&table), RecordsTrans(&table)};
    TableModel::Pending pending[2];
    for (int step = 0; step < runSteps(1000); ++step) {
        TRACE_STEP(step);
        if (step % 200 == 199 && pending[0].empty() && pending[1].empty())
            model.addColumn(table, {QString::number(step), FieldType::Type(1 + step / 200 % 8), 3,
                                    random.oneIn(2)});
        const int which = sideBySide ? random.below(2) : 0;
        const Batch batch = maker.next(pending[which]);
        SCOPED_TRACE(batch.pattern);
        ASSERT_NO_FATAL_FAILURE(fill(batches[which], batch));
        model.fill(pending[which], batch);
        ASSERT_EQ(batches[which].isEmpty(), pending[which].empty());
        const int ready = sideBySide ? random.below(2) : 0;
        if (random.oneIn(3)) // the batch takes more in
            continue;
        if (random.oneIn(4) && model.isCurrent(pending[0]) && model.isCurrent(pending[1])) {
            batches[ready].merge(batches[1 - ready]);
            model.merge(pending[ready], pending[1 - ready]);
        }
        const bool inBracket = random.oneIn(2);
        if (inBracket)
            table.beginUpdate();
        batches[ready].execute();
        if (inBracket)
            table.endUpdate();
        model.run(pending[ready]);
        ASSERT_NO_FATAL_FAILURE(model.compare(table));
        ASSERT_EQ(index.count(), table.rowCount());
        for (int i = 0; i < table.rowCount(); ++i)
            ASSERT_TRUE(index.contains(table.at(i))) << i;
    }
    for (RecordsTrans &batch : batches)
        batch.clear();
    for (const Record &record : index)
        ASSERT_EQ(refCount(record), 2) << "the table's and the list's";
}

// What throws before the new values are in keeps the batch out, and what throws later keeps nothing
// out; a batch that answers another runs right behind it.
TEST_P(Batches, surviveIndexesThatThrowAndAnswer)
{
    Meddler meddler(&table, true);
    const auto refuse = [] { throw std::runtime_error("refused"); };
    for (int step = 0; step < runSteps(600); ++step) {
        TRACE_STEP(step);
        const Batch batch = maker.next();
        SCOPED_TRACE(batch.pattern);
        RecordsTrans trans(&table), answer(&table);
        TableModel::Pending pending, answered;
        ASSERT_NO_FATAL_FAILURE(fill(trans, batch));
        model.fill(pending, batch);
        const auto makeAnswer = [&] {
            const Batch reply = maker.next();
            fill(answer, reply);
            model.fill(answered, reply);
            answer.execute();
        };
        const int act = trans.isEmpty() ? 4 : random.below(maker.has(Pattern::SideBySide) ? 5 : 4);
        if (act == 0)
            meddler.onPreprocess = refuse;
        else if (act == 1)
            meddler.onProcess = refuse;
        else if (act == 2)
            meddler.onProcess = [&] {
                model.run(pending);
                makeAnswer();
            };
        else if (act == 4)
            meddler.onPreprocess = makeAnswer;
        try {
            trans.execute();
            ASSERT_GE(act, 2);
        } catch (const std::runtime_error &) {
            ASSERT_LE(act, 1);
        }
        if (act == 0)
            pending.clear();
        model.run(pending);
        model.run(answered);
        meddler.onPreprocess = nullptr;
        ASSERT_NO_FATAL_FAILURE(model.compare(table));
        ASSERT_EQ(meddler.count(), table.rowCount());
    }
}

TEST_P(Batches, ofSeveralFeedsLeaveTheRowsOfEach)
{
    constexpr int kFeeds = 3;
    std::vector<TableModel> models(kFeeds, model);
    std::vector<std::thread> threads;
    for (int feed = 0; feed < kFeeds; ++feed) {
        threads.emplace_back([&, feed] {
            TableModel &own = models[size_t(feed)];
            Random chance{unsigned(feed)};
            BatchMaker feedMaker(own, GetParam().count, chance);
            feedMaker.setKeys(feed, kFeeds);
            for (int step = 0; step < runSteps(200); ++step) {
                const Batch batch = feedMaker.next();
                TableModel::Pending pending;
                {
                    const TableUpdate bracket(table);
                    RecordsTrans trans(&table);
                    fill(trans, batch);
                    trans.execute();
                }
                own.fill(pending, batch);
                own.run(pending);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    for (const TableModel &own : models)
        model.rows.insert(own.rows.begin(), own.rows.end());
    EXPECT_NO_FATAL_FAILURE(model.compare(table)) << "DATABASE_SEED=" << runSeed();
}

INSTANTIATE_TEST_SUITE_P(Tables, Batches,
                         ::testing::Values(Kind{AsBytes, 200}, Kind{ByValue, 200},
                                           Kind{ByOwnOrder, 200}, Kind{AsBytes, 12},
                                           Kind{ByValue, 12}, Kind{ByOwnOrder, 12}));
