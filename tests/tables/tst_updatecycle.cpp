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
        note("toRemove",
             QStringLiteral(" %1 -%2 ~%3").arg(delta).arg(removed.size()).arg(updated.size()));
        return IndexLimit::toRemove(delta, removed, updated);
    }
};

class UpdateCycle : public ::testing::Test
{
protected:
    UpdateCycle()
    {
        m_table.setMasterIndex(m_master);
        for (const char *key : {"1", "2", "3"})
            m_live.append(appendTexts(m_table, {key, "0", "0", "0"}));
        m_log.clear();
    }
    ~UpdateCycle() override { m_a.onCall = m_b.onCall = nullptr; }

    void insert(RecordsTrans &batch, const char *key) { batch.insertRow(newRow(m_table, {key})); }
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
    RecordingMaster *m_master = new RecordingMaster("master", &m_log, &m_table, "key");
    QList<Record> m_live;
};

class UpdateBracket : public UpdateCycle
{
protected:
    UpdateBracket()
    {
        m_table.addDependentIndex(&m_d);
        m_table.addDependentIndex(&m_e);
    }

    RecordingIndex m_d{"d", &m_log, &m_table, false};
    RecordingIndex m_e{"e", &m_log, &m_table, false};
    const QStringList m_closing{"master.endUpdate", "a.endUpdate", "b.endUpdate",
                                "d.dependentEndUpdate", "e.dependentEndUpdate"};
};

/// A function for onCall that throws out of one call, once.
std::function<void(const QString &)> throwOnceFrom(const QString &where, const QString &what = "no")
{
    auto done = std::make_shared<bool>(false);
    return [=](const QString &call) {
        if (call == where && !std::exchange(*done, true))
            throw what;
    };
}

} // namespace

// Batches -----------------------------------------------------------------------------------------

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
    EXPECT_EQ(m_log, (QStringList{"limit.toRemove 3 -0 ~1", "a.preprocess -1 ~1 +3 [1..1]",
                                  "b.preprocess -1 ~1 +3 [1..1]", "master.process -1 ~1 +3 [1..1]",
                                  "a.process -1 ~1 +3 [1..1]", "b.process -1 ~1 +3 [1..1]"}));
    EXPECT_EQ(seen, (QStringList{"preprocess 0 in state 1", "process 5 in state 1",
                                 "process 5 in state 2"}));
    EXPECT_EQ(m_table.transactionState(), 0);
    EXPECT_EQ(m_table.rowCount(), 5);
    EXPECT_EQ(refCount(m_live.at(1)), 1);
    batch.execute(); // empty by now
    EXPECT_EQ(m_log.size(), 6);
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
        EXPECT_TRUE(inner.isEmpty());
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
    RecordsTrans batch(&m_table);
    insert(batch, "4");
    batch.execute();
    EXPECT_EQ(m_log.filter("b."),
              (QStringList{"b.preprocess -0 ~0 +1 [0..3]", "b.process -0 ~0 +1 [0..3]",
                           "b.preprocess -1 ~1 +1 [1..2]", "b.process -1 ~1 +1 [1..2]",
                           "b.preprocess -0 ~1 +0 [1..1]", "b.process -0 ~1 +0 [1..1]"}));
    EXPECT_EQ(rows(m_table),
              (QStringList{"1 0 0 0", "2 2 9 0", "4 NULL NULL NULL", "5 55 NULL NULL"}));
    EXPECT_EQ(refCount(m_live.at(2)), 1);
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
        EXPECT_TRUE(batch.isEmpty());
        EXPECT_EQ(m_table.transactionState(), 0);
        EXPECT_TRUE(lockIsFree());
        EXPECT_EQ(refCount(m_live.at(0)), 5); // here and in four indexes

        set(batch, 0, 1, 0);
        batch.execute();
        EXPECT_EQ(cells(m_live.at(0)), "1 0 0 0");
        EXPECT_EQ(m_log.last(), "b.process -0 ~1 +0 [1..1]");
    }
}

TEST_F(UpdateCycle, runsQueuedBatchesAfterAnErrorAndReportsTheFirst)
{
    int batches = 0;
    m_a.onCall = [&](const QString &call) {
        if (call != "process")
            return;
        if (++batches <= 2) {
            RecordsTrans inner(&m_table);
            insert(inner, batches == 1 ? "8" : "9");
            inner.execute();
        }
        throw QStringLiteral("a%1").arg(batches);
    };
    m_b.onCall = throwOnceFrom("process", "b");
    RecordsTrans batch(&m_table);
    insert(batch, "7");
    EXPECT_EQ(thrownBy([&] { batch.execute(); }), "QString: a1");
    EXPECT_EQ(batches, 3);
    EXPECT_EQ(m_table.rowCount(), 6);
    EXPECT_EQ(m_b.count(), 5); // all but the row on which it threw itself
    EXPECT_EQ(m_table.transactionState(), 0);
}

TEST_F(UpdateCycle, countsTheTimeOfBatches)
{
    const qint64 total = Table::nsecsElapsedTotal();
    m_a.onCall = [](const QString &) { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    RecordsTrans batch(&m_table);
    insert(batch, "7");
    batch.execute();
    EXPECT_GE(m_table.nsecsElapsed(), 2000000);
    EXPECT_EQ(Table::nsecsElapsedTotal() - total, m_table.nsecsElapsed());
    m_table.setNsecsElapsed(Table::nsecsElapsedTotal() / 10000 * 1234);
    EXPECT_EQ(m_table.percentElapsed().toString(), "12.34");
}

// Update bracket ----------------------------------------------------------------------------------

TEST_F(UpdateBracket, opensAndClosesOnce)
{
    QStringList unlocked;
    m_e.onCall = m_a.onCall = [&](const QString &call) {
        if (lockIsFree())
            unlocked.append(call);
    };
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
    EXPECT_EQ(unlocked, (QStringList{"dependentBeginUpdate", "dependentEndUpdate"}));
}

TEST_F(UpdateBracket, closesWhatWasOpenedWhenOpeningThrows)
{
    struct Case {
        CallRecorder *thrower;
        const char *call;
        QStringList closed;
    };
    const Case cases[] = {{&m_d, "dependentBeginUpdate", {}},
                          {&m_e, "dependentBeginUpdate", m_closing.mid(3, 1)},
                          {m_master, "beginUpdate", m_closing.mid(3)},
                          {&m_b, "beginUpdate", m_closing.mid(0, 2) + m_closing.mid(3)}};
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        c.thrower->onCall = throwOnceFrom(c.call);
        m_log.clear();
        EXPECT_EQ(thrownBy([&] { const TableUpdate update(m_table); }), "QString: no");
        EXPECT_EQ(m_log.filter("ndUpdate"), c.closed);
        EXPECT_TRUE(lockIsFree());
        m_table.beginUpdate(); // and opens at the next attempt
        EXPECT_FALSE(lockIsFree());
        m_table.endUpdate();
        EXPECT_TRUE(lockIsFree());
    }
}

TEST_F(UpdateBracket, releasesTheLockWhenClosingThrows)
{
    for (auto *thrower : std::initializer_list<CallRecorder *>{m_master, &m_a, &m_d}) {
        thrower->onCall = throwOnceFrom(thrower == &m_d ? "dependentEndUpdate" : "endUpdate");
        m_table.beginUpdate();
        m_log.clear();
        EXPECT_EQ(thrownBy([&] { m_table.endUpdate(); }), "QString: no");
        EXPECT_EQ(m_log, m_closing);
        EXPECT_TRUE(lockIsFree());
    }
    // An error under way is not replaced by one of closing.
    m_a.onCall = throwOnceFrom("endUpdate");
    EXPECT_EQ(thrownBy([&] {
                  const TableUpdate update(m_table);
                  throw QStringLiteral("work");
              }),
              "QString: work");
    EXPECT_TRUE(lockIsFree());
}

// Registry ----------------------------------------------------------------------------------------

TEST_F(UpdateCycle, registersIndexesByOrderAndName)
{
    const QObject scope;
    QObject::connect(&m_table, &Table::indexAdded, &scope, [this](Index *index) {
        EXPECT_EQ(m_table.indexes().last(), index);
        m_log.append("added");
    });
    QObject::connect(&m_table, &Table::indexRemoved, &scope, [this](Index *index) {
        EXPECT_EQ(m_table.indexName(index), QString());
        m_log.append("removed");
    });
    const auto log = [this](const char *text) { return [=] { m_log.append(text); }; };
    QObject::connect(&m_table, &Table::dependentIndexAdded, &scope, log("dependent added"));
    QObject::connect(&m_table, &Table::dependentIndexRemoved, &scope, log("dependent removed"));

    m_table.setIndexName("y", &m_a);
    m_table.setIndexName("x", &m_a);
    EXPECT_EQ(m_table.indexName(&m_a), "x");
    m_table.setIndexName("x", &m_b);
    EXPECT_EQ(m_table.namedIndex("x"), &m_b);
    EXPECT_EQ(m_table.indexName(&m_a), "y");
    m_table.removeIndex(&m_a);
    EXPECT_EQ(m_table.namedIndex("y"), nullptr);
    EXPECT_EQ(m_table.namedIndex("x"), &m_b);

    m_table.addIndex(&m_a);
    m_table.addIndex(&m_b); // a second time
    EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_b, &m_a, &m_b}));
    m_table.removeIndex(&m_b);
    m_table.build();
    m_table.addDependentIndex(&m_a);
    EXPECT_EQ(m_table.dependentIndexes(), QList<Index *>{&m_a});
    m_table.removeDependentIndex(&m_a);
    EXPECT_EQ(m_log, (QStringList{"removed", "added", "added", "removed", "a.build", "b.build",
                                  "dependent added", "dependent removed"}));
}

TEST_F(UpdateCycle, letsIndexesComeAndGoInsideEveryCall)
{
    // Inside each call a destroys the index behind it and makes another, which builds itself.
    std::unique_ptr<RecordingIndex> goes;
    std::unique_ptr<IndexList> made;
    QString where;
    m_a.onCall = [&](const QString &call) {
        if (call != where || !goes)
            return;
        goes.reset();
        made = std::make_unique<IndexList>(&m_table, true);
        made->build();
    };
    int key = 10;
    const auto row = [&] { return newRow(m_table, {QByteArray::number(++key).constData()}); };
    const auto change = [&] {
        RecordsTrans batch(&m_table);
        batch.insertRow(row());
        batch.execute();
    };
    const auto bracket = [&] { const TableUpdate update(m_table); };
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"preprocess", change},
        {"process", change},
        {"add", [&] { m_table.appendList({row()}); }},
        {"update", [&] { m_table.updatedRow(0); }},
        {"remove", [&] { m_table.remove(m_table.at(m_table.rowCount() - 1), -1); }},
        {"beginUpdate", bracket},
        {"endUpdate", bracket},
        {"build", [&] { m_table.build(); }},
        {"clear", [&] { m_table.clear(); }},
    };
    for (const auto &[call, act] : cases) {
        SCOPED_TRACE(call);
        goes = std::make_unique<RecordingIndex>("gone", &m_log, &m_table);
        m_table.setIndexes({&m_a, goes.get(), &m_b});
        where = call;
        m_log.clear();
        act();
        EXPECT_EQ(goes, nullptr);
        EXPECT_EQ(m_log.filter("b." + where).size(), 1);
        EXPECT_EQ(m_log.filter("gone." + where), QStringList());
        ASSERT_EQ(m_table.indexes(), (QList<Index *>{&m_a, &m_b, made.get()}));
        // Rows are taken out of the master index last, so the new index still found those.
        if (where != "remove" && where != "clear") {
            EXPECT_EQ(rows(*made), rows(m_table));
        }
        made.reset();
    }
}

TEST(IndexRegistry, forgetsAnIndexWhicheverGoesFirst)
{
    auto table = std::make_unique<KeyedTable>();
    auto gone = std::make_unique<IndexList>(table.get(), true);
    IndexList stays(table.get(), true);
    table->addIndex(gone.get()); // a second time
    table->setIndexName("one", gone.get());
    table->setIndexName("two", gone.get());
    const Record row = appendTexts(*table, {"1"});
    EXPECT_EQ(refCount(row), 5);
    gone.reset();
    EXPECT_EQ(table->indexes(), QList<Index *>{&stays});
    EXPECT_EQ(table->namedIndex("one"), nullptr);
    EXPECT_EQ(table->namedIndex("two"), nullptr);
    table.reset();
    EXPECT_EQ(stays.count(), 0);
    EXPECT_EQ(refCount(row), 1);
}
