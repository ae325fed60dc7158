#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/indexes/indexlimit.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace
{

/// A limit in the order of the key that records when it is asked.
class RecordingLimit : public IndexLimit, public CallRecorder
{
public:
    RecordingLimit(int limit, Table *table, QStringList *log)
        : IndexLimit(limit, table)
        , CallRecorder("limit", log)
    {
        build();
    }
    int compare(const Record &a, const Record &b) const override
    {
        return table()->masterIndex()->compare(a, b);
    }
    int toRemove(int delta, QList<Record> &removed, const QList<Record> &updated) override
    {
        note("toRemove", QStringLiteral(" %1").arg(delta));
        return IndexLimit::toRemove(delta, removed, updated);
    }
};

class UpdateCycle : public ::testing::Test
{
protected:
    UpdateCycle()
    {
        m_table.setMasterIndex(m_master);
        m_table.addDependentIndex(&m_d);
        m_table.addDependentIndex(&m_e);
        for (const char *key : {"1", "2", "3"})
            m_live.append(appendTexts(m_table, {key, "0", "0", "0"}));
        m_log.clear();
    }
    ~UpdateCycle() override { m_a.onCall = m_b.onCall = nullptr; }

    void insert(RecordsTrans &batch, const char *key) { batch.insertRow(newRow(m_table, {key})); }
    void executeInsertion(const char *key)
    {
        RecordsTrans batch(&m_table);
        insert(batch, key);
        batch.execute();
    }
    void set(RecordsTrans &batch, int row, int column, int value)
    {
        batch.updateRow(m_live.at(row)).field(column).setValue(value);
    }
    /// Whether another thread can have the table's lock.
    bool lockIsFree()
    {
        bool free = false;
        std::thread([&] {
            free = m_table.tryLock();
            if (free)
                m_table.unlock();
        }).join();
        return free;
    }

    QStringList m_log;
    KeyedTable m_table;
    RecordingIndex m_a{"a", &m_log, &m_table};
    RecordingIndex m_b{"b", &m_log, &m_table};
    RecordingIndex m_d{"d", &m_log, &m_table, false};
    RecordingIndex m_e{"e", &m_log, &m_table, false};
    RecordingMaster *m_master = new RecordingMaster("master", &m_log, &m_table, "key");
    QList<Record> m_live;
    const QStringList m_closing{"master.endUpdate", "a.endUpdate", "b.endUpdate",
                                "d.dependentEndUpdate", "e.dependentEndUpdate"};
};

/// A function for onCall that throws out of one call, once.
std::function<void(const QString &)> throwOnceFrom(const QString &where)
{
    auto done = std::make_shared<bool>(false);
    return [=](const QString &call) {
        if (call == where && !std::exchange(*done, true))
            throw QStringLiteral("no");
    };
}

} // namespace

TEST_F(UpdateCycle, asksTheLimitThenPreprocessesThenProcesses)
{
    RecordingLimit limit(4, &m_table, &m_log);
    QStringList seen;
    m_a.onCall = m_master->onCall = [&](const QString &call) {
        seen.append(QStringLiteral("%1 %2 in state %3")
                        .arg(call, m_live.at(0).data(1).toString())
                        .arg(m_table.transactionState()));
    };
    RecordsTrans batch(&m_table);
    for (const char *key : {"7", "8", "9"})
        insert(batch, key);
    set(batch, 0, 1, 5); // updated, so it is spared
    batch.execute();
    EXPECT_EQ(m_log, (QStringList{"limit.toRemove 3", "a.preprocess -1 ~1 +3 [1..1]",
                                  "b.preprocess -1 ~1 +3 [1..1]", "master.process -1 ~1 +3 [1..1]",
                                  "a.process -1 ~1 +3 [1..1]", "b.process -1 ~1 +3 [1..1]"}));
    EXPECT_EQ(seen, (QStringList{"preprocess 0 in state 1", "process 5 in state 1",
                                 "process 5 in state 2"}));
    EXPECT_EQ(m_table.transactionState(), 0);
    EXPECT_EQ(m_table.rowCount(), 5);
}

TEST_F(UpdateCycle, queuesWhatIndexesWriteMeanwhile)
{
    // a writes from both passes and b after it from the second: the batches fold in that order, run
    // as one behind the first, and what that one makes a write runs behind it in turn.
    int round = 0;
    m_a.onCall = [&](const QString &call) {
        RecordsTrans inner(&m_table);
        if (call == "preprocess" && ++round == 1)
            insert(inner, "5");
        else if (call == "process" && round < 3)
            set(inner, 1, 1, round);
        inner.execute();
    };
    m_b.onCall = [&](const QString &call) {
        if (call != "process" || round != 1)
            return;
        RecordsTrans inner(&m_table);
        inner.removeRow(m_live.at(2));
        setText(inner.upsertRow(newRow(m_table, {"5"})).field(1), "55");
        set(inner, 1, 2, 9);
        m_table.process(inner);
    };
    executeInsertion("4");
    EXPECT_EQ(m_log.filter("b."),
              (QStringList{"b.preprocess -0 ~0 +1 [0..3]", "b.process -0 ~0 +1 [0..3]",
                           "b.preprocess -1 ~1 +1 [1..2]", "b.process -1 ~1 +1 [1..2]",
                           "b.preprocess -0 ~1 +0 [1..1]", "b.process -0 ~1 +0 [1..1]"}));
    EXPECT_EQ(rows(*m_table.masterIndex()),
              (QStringList{"1 0 0 0", "2 2 9 0", "4 NULL NULL NULL", "5 55 NULL NULL"}));
}

TEST_F(UpdateCycle, survivesWhatAnIndexThrows)
{
    RecordingLimit limit(100, &m_table, &m_log);
    struct Case {
        CallRecorder *thrower;
        const char *call;
        int processed; // how many indexes still get the batch; its rows change with the first
    };
    const Case cases[] = {{&limit, "toRemove", 0}, {&m_a, "preprocess", 0},
                          {&m_b, "preprocess", 0}, {m_master, "process", 3},
                          {&m_a, "process", 3},    {&m_b, "process", 3}};
    RecordsTrans batch(&m_table);
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        c.thrower->onCall = throwOnceFrom(c.call);
        m_log.clear();
        set(batch, 0, 1, 5);
        EXPECT_EQ(thrownBy([&] {
                      const TableUpdate update(m_table);
                      batch.execute();
                  }),
                  "QString: no");
        EXPECT_EQ(m_log.filter(".process").size(), c.processed);
        EXPECT_EQ(cells(m_live.at(0)), c.processed ? "1 5 0 0" : "1 0 0 0");
        EXPECT_EQ(m_table.transactionState(), 0);
        EXPECT_TRUE(lockIsFree());
        EXPECT_EQ(refCount(m_live.at(0)), 5); // here and in four indexes

        set(batch, 0, 1, 0);
        batch.execute();
        EXPECT_EQ(cells(m_live.at(0)), "1 0 0 0");
    }
}

TEST_F(UpdateCycle, runsQueuedBatchesBehindAnErrorAndReportsTheFirst)
{
    int round = 0;
    m_a.onCall = [&](const QString &call) {
        if (call != "process" || ++round > 2)
            return;
        RecordsTrans queued(&m_table);
        set(queued, round, 1, 7);
        queued.execute();
        throw QStringLiteral("round %1").arg(round);
    };
    EXPECT_EQ(thrownBy([&] { executeInsertion("4"); }), "QString: round 1");
    EXPECT_EQ(rows(*m_table.masterIndex()),
              (QStringList{"1 0 0 0", "2 7 0 0", "3 7 0 0", "4 NULL NULL NULL"}));
    EXPECT_EQ(m_b.count(), 4);
    EXPECT_EQ(m_table.transactionState(), 0);
}

TEST_F(UpdateCycle, opensAndClosesABracketOnce)
{
    m_table.beginUpdate();
    m_table.beginUpdate();
    m_table.endUpdate();
    EXPECT_EQ(m_log, (QStringList{"d.dependentBeginUpdate", "e.dependentBeginUpdate",
                                  "master.beginUpdate", "a.beginUpdate", "b.beginUpdate"}));
    EXPECT_FALSE(lockIsFree());
    m_log.clear();
    m_table.endUpdate();
    EXPECT_EQ(m_log, m_closing);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(UpdateCycle, releasesTheLockWhenACallOfABracketThrows)
{
    const std::tuple<CallRecorder *, const char *, QStringList> cases[] = {
        {&m_d, "dependentBeginUpdate", {}},
        {&m_e, "dependentBeginUpdate", m_closing.mid(3, 1)},
        {m_master, "beginUpdate", m_closing.mid(3)},
        {&m_b, "beginUpdate", m_closing.mid(0, 2) + m_closing.mid(3)},
        {m_master, "endUpdate", m_closing},
        {&m_d, "dependentEndUpdate", m_closing}};
    for (const auto &[thrower, call, closed] : cases) {
        SCOPED_TRACE(call);
        thrower->onCall = throwOnceFrom(call);
        m_log.clear();
        EXPECT_EQ(thrownBy([&] {
                      m_table.beginUpdate();
                      m_table.endUpdate();
                  }),
                  "QString: no");
        EXPECT_EQ(m_log.filter("ndUpdate"), closed);
        EXPECT_TRUE(lockIsFree());
        const TableUpdate next(m_table);
        EXPECT_FALSE(lockIsFree());
    }
    // An error under way is not replaced by one of closing.
    m_a.onCall = throwOnceFrom("endUpdate");
    EXPECT_EQ(thrownBy([&] {
                  const TableUpdate update(m_table);
                  throw QStringLiteral("work");
              }),
              "QString: work");
}

TEST_F(UpdateCycle, registersIndexesByOrderAndName)
{
    const QObject scope;
    const auto log = [this](const char *text) { return [=] { m_log.append(text); }; };
    QObject::connect(&m_table, &Table::indexAdded, &scope, log("added"));
    QObject::connect(&m_table, &Table::indexRemoved, &scope, log("removed"));
    QObject::connect(&m_table, &Table::dependentIndexAdded, &scope, log("dependent added"));
    QObject::connect(&m_table, &Table::dependentIndexRemoved, &scope, log("dependent removed"));
    m_table.addDependentIndex(&m_b);
    m_table.removeDependentIndex(&m_b);
    m_table.setIndexName("y", &m_a);
    m_table.setIndexName("x", &m_a);
    EXPECT_EQ(m_table.indexName(&m_a), "x");
    m_table.setIndexName("x", &m_b);
    EXPECT_EQ(m_table.indexName(&m_a), "y");
    m_table.removeIndex(&m_a);
    EXPECT_EQ(m_table.namedIndex("y"), nullptr);
    m_table.addIndex(&m_a);
    m_table.addIndex(&m_b); // a second time
    EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_b, &m_a, &m_b}));
    m_table.removeIndex(&m_b);
    m_table.build();
    EXPECT_EQ(m_log, (QStringList{"dependent added", "dependent removed", "removed", "added",
                                  "added", "removed", "a.build", "b.build"}));
}

TEST_F(UpdateCycle, letsIndexesComeAndGoInsideEveryCall)
{
    // Inside each call a destroys the index before or behind it, or none, and makes another, which
    // builds itself.
    std::unique_ptr<RecordingIndex> goes;
    std::unique_ptr<IndexList> made;
    QString where;
    m_a.onCall = [&](const QString &call) {
        if (call != where || made)
            return;
        goes.reset();
        made = std::make_unique<IndexList>(&m_table, true);
        made->build();
    };
    int lastKey = 10;
    const auto key = [&] { return QByteArray::number(++lastKey); };
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"preprocess", [&] { executeInsertion(key()); }},
        {"process", [&] { executeInsertion(key()); }},
        {"add", [&] { m_table.appendList({newRow(m_table, {key()})}); }},
        {"beginUpdate", [&] { const TableUpdate update(m_table); }},
        {"endUpdate", [&] { const TableUpdate update(m_table); }},
    };
    enum Goer { Before, Behind, None };
    for (const Goer goer : {Before, Behind, None}) {
        for (const auto &[call, act] : cases) {
            SCOPED_TRACE(std::string(call) + " " + std::to_string(goer));
            QList<Index *> indexes{&m_a, &m_b};
            if (goer != None) {
                goes = std::make_unique<RecordingIndex>("gone", &m_log, &m_table);
                indexes.insert(goer, goes.get());
            }
            m_table.setIndexes(indexes);
            where = call;
            m_log.clear();
            act();
            EXPECT_EQ(m_log.filter("b." + where).size(), 1);
            EXPECT_EQ(m_log.filter("gone." + where).size(), goer == Before ? 1 : 0);
            ASSERT_EQ(m_table.indexes(), (QList<Index *>{&m_a, &m_b, made.get()}));
            EXPECT_EQ(rows(*made), rows(*m_table.masterIndex()));
            made.reset();
        }
    }
}
