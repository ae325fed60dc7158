#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/indexes/indexlimit.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <QtCore/qelapsedtimer.h>

#include <chrono>
#include <functional>
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

TEST_F(UpdateCycle, runsDirectCallsAsTransactions)
{
    // Whatever the call, a batch that an index submits meanwhile waits until all have heard of it.
    const auto live = [&](const char *key) { return Record(&m_table, key); };
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"add", [&] { appendTexts(m_table, {"20"}); }},
        {"add",
         [&] {
             m_table.appendList({newRow(m_table, {"21"}), newRow(m_table, {"22"})});
         }},
        {"update", [&] { m_table.updated(live("20"), 1, 1, -1); }},
        {"remove", [&] { m_table.remove(live("20"), -1); }},
        {"clear", [&] { m_table.clear(); }},
    };
    int key = 100;
    m_live.clear(); // handles are counted
    for (const auto &[where, act] : cases) {
        SCOPED_TRACE(where);
        bool done = false;
        m_a.onCall = [&, call = QString(where)](const QString &called) {
            if (called != call || std::exchange(done, true))
                return;
            RecordsTrans batch(&m_table);
            insert(batch, qPrintable(QString::number(++key)));
            if (call != "clear")
                batch.removeRow(newRow(m_table, {"21"})); // not the row: no effect
            batch.execute();
            EXPECT_NE(m_table.transactionState(), 0);
            EXPECT_FALSE(live(qPrintable(QString::number(key)))) << "it waits";
        };
        act();
        EXPECT_EQ(m_table.transactionState(), 0);
        EXPECT_TRUE(live(qPrintable(QString::number(key))));
        EXPECT_EQ(rows(m_a).size(), m_table.rowCount());
        for (const Record &record : *m_table.masterIndex()) {
            EXPECT_TRUE(m_a.contains(record) && m_b.contains(record));
            EXPECT_EQ(refCount(record), 3) << cells(record).toStdString();
        }
    }
    m_a.onCall = nullptr;
}

TEST_F(UpdateCycle, queuesRowsAndRefusesOtherDirectCallsInsideATransaction)
{
    QStringList refused;
    m_a.onCall = [&](const QString &call) {
        if (call != "process" || !refused.isEmpty())
            return;
        appendTexts(m_table, {"8"});
        m_table.remove(m_live.at(1), -1);
        for (const std::function<void()> &act :
             {std::function<void()>([&] { m_table.updatedRow(0); }),
              {[&] { m_table.clear(); }},
              {[&] { m_table.rebuild(); }},
              {[&] { m_table.process({m_live.at(0)}, 1, 1, {m_live.at(0).clone()}); }}})
            refused.append(thrownBy(act));
        EXPECT_EQ(m_table.rowCount(), 4) << "the queue waits";
    };
    executeInsertion("4");
    for (const char *call : {"updated", "clear", "rebuild", "process"})
        EXPECT_TRUE(refused.contains(QStringLiteral("QString: Table 'quotes': %1 can't be called "
                                                    "inside a transaction of the table.")
                                         .arg(call)));
    EXPECT_EQ(rows(*m_table.masterIndex()),
              (QStringList{"1 0 0 0", "3 0 0 0", "4 NULL NULL NULL", "8 NULL NULL NULL"}));
    EXPECT_EQ(rows(m_b),
              (QStringList{"1 0 0 0", "3 0 0 0", "4 NULL NULL NULL", "8 NULL NULL NULL"}));
    m_a.onCall = nullptr;
}

TEST_F(UpdateCycle, tellsEveryIndexOfADirectCallAlsoWhenOneThrows)
{
    const std::tuple<CallRecorder *, const char *, std::function<void()>, int> cases[] = {
        {&m_a, "add", [&] { appendTexts(m_table, {"4"}); }, 1},
        {m_master, "add", [&] { appendTexts(m_table, {"5"}); }, 0}, // no row of the table
        {m_master, "update", [&] { m_table.updatedRow(0); }, 1},
        {&m_a, "update", [&] { m_table.updatedRow(0); }, 1},
        {&m_a, "remove", [&] { m_table.remove(m_live.at(0), -1); }, 1},
    };
    for (const auto &[thrower, call, act, told] : cases) {
        SCOPED_TRACE(call);
        thrower->onCall = throwOnceFrom(call);
        m_log.clear();
        EXPECT_EQ(thrownBy(act), "QString: no");
        EXPECT_EQ(m_log.filter(QStringLiteral("b.") + call).size(), told);
        EXPECT_EQ(m_table.transactionState(), 0);
    }
    EXPECT_EQ(rows(*m_table.masterIndex()),
              (QStringList{"2 0 0 0", "3 0 0 0", "4 NULL NULL NULL"}));
    m_table.rebuild();
    EXPECT_EQ(rows(m_a), rows(*m_table.masterIndex()));
    EXPECT_EQ(rows(m_b), rows(*m_table.masterIndex()));
}

TEST_F(UpdateCycle, guardsTheLimitAndTimesTheOutermostCall)
{
    RecordingLimit limit(3, &m_table, &m_log);
    bool asked = false;
    limit.onCall = [&](const QString &) {
        if (!std::exchange(asked, true))
            executeInsertion("9"); // behind the batch that asks
    };
    executeInsertion("4");
    EXPECT_EQ(rows(*m_table.masterIndex()),
              (QStringList{"3 0 0 0", "4 NULL NULL NULL", "9 NULL NULL NULL"}));
    EXPECT_EQ(rows(m_b), rows(*m_table.masterIndex()));
    limit.onCall = nullptr;

    // The time in front of a batch inside counts, and that one's own does not count twice.
    m_table.setNsecsElapsed(0);
    const auto wait = [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
    bool once = false;
    m_a.onCall = [&](const QString &call) {
        if (call != "process" || std::exchange(once, true))
            return;
        wait();
        executeInsertion("5");
    };
    QElapsedTimer timer;
    timer.start();
    executeInsertion("6");
    EXPECT_GE(m_table.nsecsElapsed(), 20'000'000);
    EXPECT_LE(m_table.nsecsElapsed(), timer.nsecsElapsed());
    m_a.onCall = nullptr;
}

TEST_F(UpdateCycle, passesByDependentsThatGoInsideABracket)
{
    for (const char *where : {"dependentBeginUpdate", "dependentEndUpdate"}) {
        auto gone = std::make_unique<RecordingIndex>("left", &m_log, &m_table, false);
        m_table.removeDependentIndex(&m_e);
        m_table.addDependentIndex(gone.get());
        m_table.addDependentIndex(&m_e);
        m_d.onCall = [&](const QString &call) {
            if (call != where || !gone)
                return;
            m_table.removeDependentIndex(gone.get());
            gone.reset();
        };
        m_log.clear();
        {
            const TableUpdate bracket(m_table);
        }
        EXPECT_EQ(m_log.filter("e.dependent"),
                  (QStringList{"e.dependentBeginUpdate", "e.dependentEndUpdate"}));
        EXPECT_FALSE(m_log.contains(QStringLiteral("left.") + where));
        EXPECT_TRUE(lockIsFree());
    }
    m_d.onCall = nullptr;
}
