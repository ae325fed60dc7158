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
        , CallRecorder(QStringLiteral("limit"), log)
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        return table()->masterIndex()->compare(a, b);
    }
    int toRemove(int delta, QList<Record> &removed, const QList<Record> &updated) override
    {
        note(QStringLiteral("toRemove"),
             QStringLiteral(" %1 -%2 ~%3").arg(delta).arg(removed.size()).arg(updated.size()));
        return IndexLimit::toRemove(delta, removed, updated);
    }
};

class UpdateCycle : public ::testing::Test
{
protected:
    UpdateCycle()
    {
        m_master = new RecordingMaster(&m_table, QStringLiteral("key"), &m_log);
        m_table.setMasterIndex(m_master);
        m_table.addIndex(&m_a);
        m_table.addIndex(&m_b);
        for (const char *key : {"1", "2", "3"})
            m_live.append(appendTexts(m_table, {key, "0", "0", "0"}));
        m_log.clear();
    }
    ~UpdateCycle() override
    {
        m_a.onCall = m_b.onCall = nullptr;
        m_table.setIndexes({});
    }

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
    RecordingIndex m_a{&m_table, QStringLiteral("a"), &m_log};
    RecordingIndex m_b{&m_table, QStringLiteral("b"), &m_log};
    RecordingMaster *m_master = nullptr;
    QList<Record> m_live;
};

/// A function for onCall that throws out of one call, once.
std::function<void(const QString &)> throwOnceFrom(const QString &where, const QString &what)
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
    m_table.setIndexes({});
    RecordingLimit limit(4, &m_table, &m_log);
    m_table.setIndexes({&m_a, &limit, &m_b});
    limit.build();
    RecordsTrans batch(&m_table);
    for (const char *key : {"7", "8", "9"})
        insert(batch, key);
    set(batch, 0, 1, 5); // updated, so it is spared
    batch.execute();
    EXPECT_EQ(m_log, (QStringList{"limit.toRemove 3 -0 ~1", "a.preprocess -1 ~1 +3 [1..1]",
                                  "b.preprocess -1 ~1 +3 [1..1]", "master.process -1 ~1 +3 [1..1]",
                                  "a.process -1 ~1 +3 [1..1]", "b.process -1 ~1 +3 [1..1]"}));
    EXPECT_EQ(m_table.rowCount(), 5);
    EXPECT_FALSE(m_live.at(1).inTable());
    EXPECT_EQ(refCount(m_live.at(1)), 1);
}

TEST_F(UpdateCycle, showsOldValuesToPreprocessAndNewOnesToProcess)
{
    QStringList seen;
    const auto look = [&](const QString &call) {
        const qint32 value = m_live.at(0).data(1).value<qint32>();
        seen.append(QStringLiteral("%1 %2 in state %3")
                        .arg(call)
                        .arg(value)
                        .arg(m_table.transactionState()));
    };
    m_a.onCall = look;
    m_master->onCall = look;
    RecordsTrans batch(&m_table);
    set(batch, 0, 1, 7);
    EXPECT_EQ(m_table.transactionState(), 0);
    batch.execute();
    EXPECT_EQ(seen, (QStringList{"preprocess 0 in state 1", "process 7 in state 1",
                                 "process 7 in state 2"}));
    EXPECT_EQ(m_table.transactionState(), 0);
}

TEST_F(UpdateCycle, saysAllColumnsWhenABatchHasNoRange)
{
    RecordsTrans batch(&m_table);
    batch.removeRow(m_live.at(0));
    batch.execute();
    EXPECT_EQ(m_log.last(), QStringLiteral("b.process -1 ~0 +0 [0..3]"));
    batch.removeRow(m_live.at(1));
    m_table.process(batch);
    EXPECT_EQ(m_log.last(), QStringLiteral("b.process -1 ~0 +0 [0..3]"));

    // Also for the batch that an index queues.
    bool queued = false;
    m_a.onCall = [&](const QString &call) {
        if (call == QLatin1String("process") && !std::exchange(queued, true)) {
            RecordsTrans inner(&m_table);
            insert(inner, "9");
            inner.execute();
        }
    };
    insert(batch, "8");
    batch.execute();
    EXPECT_EQ(m_log.last(), QStringLiteral("b.process -0 ~0 +1 [0..3]"));
    EXPECT_EQ(m_table.rowCount(), 3);

    m_log.clear();
    RecordsTrans(&m_table).execute();
    EXPECT_EQ(m_log, QStringList());
}

TEST_F(UpdateCycle, queuesWhatIndexesWriteMeanwhile)
{
    // a writes from both passes and b after it from the second: the batches fold in that order, run
    // as one behind the first, and what that one makes a write runs behind it in turn.
    int round = 0;
    m_a.onCall = [&](const QString &call) {
        RecordsTrans inner(&m_table);
        if (call == QLatin1String("preprocess") && ++round == 1)
            insert(inner, "5");
        else if (call == QLatin1String("process") && round < 3)
            set(inner, 1, 1, round);
        inner.execute();
        EXPECT_TRUE(inner.isEmpty());
    };
    m_b.onCall = [&](const QString &call) {
        if (call != QLatin1String("process") || round != 1)
            return;
        RecordsTrans inner(&m_table);
        inner.removeRow(m_live.at(2));
        setText(inner.upsertRow(newRow(m_table, {"5"})).field(1), QStringLiteral("55"));
        set(inner, 1, 2, 9);
        m_table.process(inner);
    };
    RecordsTrans batch(&m_table);
    insert(batch, "4");
    batch.execute();
    EXPECT_EQ(m_log, (QStringList{"a.preprocess -0 ~0 +1 [0..3]", "b.preprocess -0 ~0 +1 [0..3]",
                                  "master.process -0 ~0 +1 [0..3]", "a.process -0 ~0 +1 [0..3]",
                                  "b.process -0 ~0 +1 [0..3]", "a.preprocess -1 ~1 +1 [1..2]",
                                  "b.preprocess -1 ~1 +1 [1..2]", "master.process -1 ~1 +1 [1..2]",
                                  "a.process -1 ~1 +1 [1..2]", "b.process -1 ~1 +1 [1..2]",
                                  "a.preprocess -0 ~1 +0 [1..1]", "b.preprocess -0 ~1 +0 [1..1]",
                                  "master.process -0 ~1 +0 [1..1]", "a.process -0 ~1 +0 [1..1]",
                                  "b.process -0 ~1 +0 [1..1]"}));
    EXPECT_EQ(rows(m_table),
              (QStringList{"1 0 0 0", "2 2 9 0", "4 NULL NULL NULL", "5 55 NULL NULL"}));
    EXPECT_EQ(refCount(m_live.at(2)), 1);
}

TEST_F(UpdateCycle, survivesWhatAnIndexThrows)
{
    struct Case {
        const char *thrower, *call;
        bool changes;        // whether the batch reaches the rows
        const char *notTold; // calls that do not happen
    };
    const Case cases[] = {
        {"limit", "toRemove", false, "preprocess process"},
        {"a", "preprocess", false, "process"},
        {"b", "preprocess", false, "process"},
        {"master", "process", true, ""},
        {"a", "process", true, ""},
        {"b", "process", true, ""},
    };
    RecordingLimit limit(100, &m_table, &m_log);
    limit.build();
    int value = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.thrower) + " " + c.call);
        const QString before = cells(m_live.at(0));
        const auto thrower = throwOnceFrom(QLatin1String(c.call), QLatin1String(c.thrower));
        QHash<QString, CallRecorder *> recorders{
            {"limit", &limit}, {"a", &m_a}, {"b", &m_b}, {"master", m_master}};
        recorders.value(QLatin1String(c.thrower))->onCall = thrower;
        m_log.clear();
        ++value;

        RecordsTrans batch(&m_table);
        set(batch, 0, 1, value);
        EXPECT_EQ(thrownBy([&] {
                      const TableUpdate update(m_table);
                      batch.execute();
                  }),
                  QStringLiteral("QString: ") + QLatin1String(c.thrower));
        EXPECT_EQ(m_log.filter(QStringLiteral(".process")).isEmpty(), !c.changes);
        if (c.changes) {
            EXPECT_EQ(m_log.filter(QStringLiteral(".process")).size(), 3);
            EXPECT_EQ(cells(m_live.at(0)), QStringLiteral("1 %1 0 0").arg(value));
        } else {
            EXPECT_EQ(cells(m_live.at(0)), before);
        }
        EXPECT_TRUE(batch.isEmpty());
        EXPECT_EQ(m_table.transactionState(), 0);
        EXPECT_TRUE(lockIsFree());
        EXPECT_EQ(refCount(m_live.at(0)), 5); // here and in four indexes

        // The next one works.
        set(batch, 0, 1, 100);
        batch.execute();
        EXPECT_EQ(cells(m_live.at(0)), QStringLiteral("1 100 0 0"));
        EXPECT_EQ(m_log.last(), QStringLiteral("b.process -0 ~1 +0 [1..1]"));
    }
}

TEST_F(UpdateCycle, runsQueuedBatchesAfterAnErrorAndReportsTheFirst)
{
    int batches = 0;
    m_a.onCall = [&](const QString &call) {
        if (call != QLatin1String("process"))
            return;
        if (++batches <= 2) {
            RecordsTrans inner(&m_table);
            insert(inner, batches == 1 ? "8" : "9");
            inner.execute();
        }
        throw QStringLiteral("a%1").arg(batches);
    };
    m_b.onCall = throwOnceFrom(QStringLiteral("process"), QStringLiteral("b"));
    RecordsTrans batch(&m_table);
    insert(batch, "7");
    EXPECT_EQ(thrownBy([&] { batch.execute(); }), QStringLiteral("QString: a1"));
    EXPECT_EQ(batches, 3);
    EXPECT_EQ(m_table.rowCount(), 6);
    EXPECT_EQ(m_b.held.size(), 5); // all but the row on which it threw itself
    EXPECT_EQ(m_table.transactionState(), 0);
}

TEST_F(UpdateCycle, countsTheTimeOfBatches)
{
    const qint64 total = Table::nsecsElapsedTotal();
    if (total < 10000) { // so it is as long as no other case ran in this process
        EXPECT_EQ(m_table.percentElapsed().toString(), QStringLiteral("0"));
    }
    m_a.onCall = [](const QString &) { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    RecordsTrans batch(&m_table);
    insert(batch, "7");
    batch.execute();
    EXPECT_GE(m_table.nsecsElapsed(), 2000000);
    EXPECT_EQ(Table::nsecsElapsedTotal() - total, m_table.nsecsElapsed());
    m_table.setNsecsElapsed(Table::nsecsElapsedTotal() / 10000 * 1234);
    EXPECT_EQ(m_table.percentElapsed().toString(), QStringLiteral("12.34"));
}

// Update bracket ----------------------------------------------------------------------------------

TEST_F(UpdateCycle, opensAndClosesTheBracketOnce)
{
    RecordingIndex dependent(&m_table, QStringLiteral("d"), &m_log);
    m_table.addDependentIndex(&dependent);
    QStringList free;
    dependent.onCall = m_a.onCall = [&](const QString &call) {
        if (lockIsFree())
            free.append(call);
    };
    m_table.beginUpdate();
    m_table.beginUpdate();
    m_table.endUpdate();
    EXPECT_EQ(m_log, (QStringList{"d.dependentBeginUpdate", "master.beginUpdate", "a.beginUpdate",
                                  "b.beginUpdate"}));
    EXPECT_FALSE(lockIsFree());
    m_log.clear();
    m_table.endUpdate();
    EXPECT_EQ(m_log, (QStringList{"master.endUpdate", "a.endUpdate", "b.endUpdate",
                                  "d.dependentEndUpdate"}));
    EXPECT_TRUE(lockIsFree());
    EXPECT_EQ(free, (QStringList{"dependentBeginUpdate", "dependentEndUpdate"}));
    m_table.removeDependentIndex(&dependent);
}

TEST_F(UpdateCycle, closesABracketThatDoesNotOpen)
{
    RecordingIndex first(&m_table, QStringLiteral("d"), &m_log);
    RecordingIndex second(&m_table, QStringLiteral("e"), &m_log);
    m_table.addDependentIndex(&first);
    m_table.addDependentIndex(&second);
    struct Case {
        CallRecorder *thrower;
        const char *call;
        QStringList closed;
    };
    const Case cases[] = {
        {&first, "dependentBeginUpdate", {}},
        {&second, "dependentBeginUpdate", {"d.dependentEndUpdate"}},
        {m_master, "beginUpdate", {"d.dependentEndUpdate", "e.dependentEndUpdate"}},
        {&m_a, "beginUpdate", {"master.endUpdate", "d.dependentEndUpdate", "e.dependentEndUpdate"}},
        {&m_b,
         "beginUpdate",
         {"master.endUpdate", "a.endUpdate", "d.dependentEndUpdate", "e.dependentEndUpdate"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.closed.size());
        c.thrower->onCall = throwOnceFrom(QLatin1String(c.call), QStringLiteral("no"));
        m_log.clear();
        EXPECT_EQ(thrownBy([&] { const TableUpdate update(m_table); }),
                  QStringLiteral("QString: no"));
        EXPECT_EQ(m_log.filter(QRegExp("ndUpdate")), c.closed);
        EXPECT_TRUE(lockIsFree());
        m_log.clear();
        m_table.beginUpdate(); // and opens at the next attempt
        EXPECT_EQ(m_log.size(), 5);
        m_table.endUpdate();
        EXPECT_TRUE(lockIsFree());
    }
    m_table.removeDependentIndex(&first);
    m_table.removeDependentIndex(&second);
}

TEST_F(UpdateCycle, releasesTheLockWhenClosingThrows)
{
    RecordingIndex dependent(&m_table, QStringLiteral("d"), &m_log);
    m_table.addDependentIndex(&dependent);
    struct Case {
        CallRecorder *thrower;
        const char *call;
    };
    for (const Case &c : {Case{m_master, "endUpdate"}, Case{&m_a, "endUpdate"},
                          Case{&m_b, "endUpdate"}, Case{&dependent, "dependentEndUpdate"}}) {
        c.thrower->onCall = throwOnceFrom(QLatin1String(c.call), QStringLiteral("no"));
        m_table.beginUpdate();
        m_log.clear();
        EXPECT_EQ(thrownBy([&] { m_table.endUpdate(); }), QStringLiteral("QString: no"));
        EXPECT_EQ(m_log, (QStringList{"master.endUpdate", "a.endUpdate", "b.endUpdate",
                                      "d.dependentEndUpdate"}));
        EXPECT_TRUE(lockIsFree());
    }
    // An error under way is not replaced by one of closing.
    m_a.onCall = throwOnceFrom(QStringLiteral("endUpdate"), QStringLiteral("closing"));
    EXPECT_EQ(thrownBy([&] {
                  const TableUpdate update(m_table);
                  throw QStringLiteral("work");
              }),
              QStringLiteral("QString: work"));
    EXPECT_TRUE(lockIsFree());
    m_table.removeDependentIndex(&dependent);
}

// Registry ----------------------------------------------------------------------------------------

TEST_F(UpdateCycle, registersIndexesByOrderAndName)
{
    QObject::connect(&m_table, &Table::indexAdded, [this](Index *index) {
        EXPECT_EQ(m_table.indexes().last(), index);
        m_log.append("added");
    });
    QObject::connect(&m_table, &Table::indexRemoved, [this](Index *index) {
        EXPECT_EQ(m_table.indexName(index), QString());
        m_log.append("removed");
    });
    QObject::connect(&m_table, &Table::indexNameUpdated, [this] { m_log.append("renamed"); });
    QObject::connect(&m_table, &Table::dependentIndexAdded, [this] { m_log.append("dep added"); });
    QObject::connect(&m_table, &Table::dependentIndexRemoved,
                     [this] { m_log.append("dep removed"); });

    EXPECT_EQ(m_table.indexName(&m_a), QString());
    EXPECT_EQ(m_table.namedIndex(QStringLiteral("x")), nullptr);
    m_table.setIndexName(QStringLiteral("y"), &m_a);
    m_table.setIndexName(QStringLiteral("x"), &m_a);
    EXPECT_EQ(m_table.indexName(&m_a), QStringLiteral("x"));
    m_table.setIndexName(QStringLiteral("x"), &m_b);
    EXPECT_EQ(m_table.namedIndex(QStringLiteral("x")), &m_b);
    EXPECT_EQ(m_table.indexName(&m_a), QStringLiteral("y"));
    m_table.removeIndex(&m_a);
    EXPECT_EQ(m_table.namedIndex(QStringLiteral("y")), nullptr);
    EXPECT_EQ(m_table.namedIndex(QStringLiteral("x")), &m_b);

    m_table.addIndex(&m_a);
    m_table.addIndex(&m_b); // a second time
    EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_b, &m_a, &m_b}));
    m_table.removeIndex(&m_b);
    EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_a, &m_b}));
    m_table.addDependentIndex(&m_a);
    EXPECT_EQ(m_table.dependentIndexes(), QList<Index *>{&m_a});
    m_table.removeDependentIndex(&m_a);
    EXPECT_EQ(m_log,
              (QStringList{"removed", "added", "added", "removed", "dep added", "dep removed"}));
    m_log.clear();
    m_table.setIndexes({&m_b, &m_a});
    m_table.build();
    EXPECT_EQ(m_log, (QStringList{"b.build", "a.build"}));
}

TEST_F(UpdateCycle, letsIndexesComeAndGoInsideEveryCall)
{
    // Inside each call a destroys the index behind it and makes another, which builds itself.
    std::unique_ptr<IndexList> made;
    auto goes = std::make_unique<RecordingIndex>(&m_table, QStringLiteral("gone"), &m_log);
    QString where;
    m_a.onCall = [&](const QString &call) {
        if (call != where || !goes)
            return;
        m_table.removeIndex(goes.get());
        goes.reset();
        made = std::make_unique<IndexList>(&m_table, true);
        made->build();
    };
    struct Case {
        const char *call;
        std::function<void()> act;
    };
    RecordsTrans batch(&m_table);
    int key = 10;
    const auto change = [&] {
        insert(batch, QByteArray::number(++key).constData());
        batch.execute();
    };
    const Case cases[] = {
        {"preprocess", change},
        {"process", change},
        {"add", [&] { appendTexts(m_table, {QByteArray::number(++key).constData()}); }},
        {"update", [&] { m_table.updatedRow(0); }},
        {"remove ", [&] { m_table.remove(m_table.at(m_table.rowCount() - 1), -1); }},
        {"beginUpdate", [&] { const TableUpdate update(m_table); }},
        {"endUpdate", [&] { const TableUpdate update(m_table); }},
        {"build", [&] { m_table.build(); }},
        {"clear", [&] { m_table.clear(); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.call);
        goes = std::make_unique<RecordingIndex>(&m_table, QStringLiteral("gone"), &m_log);
        m_table.setIndexes({&m_a, goes.get(), &m_b});
        where = QLatin1String(c.call);
        m_log.clear();
        c.act();
        EXPECT_EQ(goes, nullptr);
        EXPECT_TRUE(
            m_log.contains(QStringLiteral("b.") + m_log.filter("a." + where).last().mid(2)));
        EXPECT_EQ(m_log.filter("gone." + where), QStringList());
        ASSERT_EQ(m_table.indexes(), (QList<Index *>{&m_a, &m_b, made.get()}));
        QStringList builtRows;
        for (const Record &row : *made)
            builtRows.append(cells(row));
        // Rows are taken out of the master index last, so the new index still found those.
        if (where != QLatin1String("remove ") && where != QLatin1String("clear")) {
            EXPECT_EQ(builtRows, rows(m_table));
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
    table->setIndexName(QStringLiteral("one"), gone.get());
    table->setIndexName(QStringLiteral("two"), gone.get());
    const Record row = appendTexts(*table, {"1"});
    EXPECT_EQ(refCount(row), 5);
    gone.reset();
    EXPECT_EQ(table->indexes(), QList<Index *>{&stays});
    EXPECT_EQ(table->namedIndex(QStringLiteral("one")), nullptr);
    EXPECT_EQ(table->namedIndex(QStringLiteral("two")), nullptr);
    appendTexts(*table, {"2"});
    table.reset();
    EXPECT_EQ(stays.count(), 0);
    EXPECT_EQ(refCount(row), 1);
}
