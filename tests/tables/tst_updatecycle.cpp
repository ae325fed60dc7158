#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/indexes/indexlimit.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

namespace
{

/// A limit in the order of the key.
class KeyLimit : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override
    {
        return table()->masterIndex()->compare(a, b);
    }
};

class RecordingLimit : public Recording<KeyLimit>
{
public:
    using Recording<KeyLimit>::Recording;
    int toRemove(int delta, QList<Record> &removed, const QList<Record> &updated) override
    {
        const Call call(this, "toRemove", QStringLiteral(" %1").arg(delta));
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

    void insert(RecordsTrans &batch, int key)
    {
        batch.insertRow(newRow(m_table, {QByteArray::number(key).constData()}));
    }
    void set(RecordsTrans &batch, int row, int column, int value)
    {
        batch.updateRow(m_live.at(row)).field(column).setValue(value);
    }
    QString calls() { return std::exchange(m_log, QStringList()).join(QStringLiteral(", ")); }
    /// The calls of the two passes, when every index sees them once.
    static QString passes(const QString &batch)
    {
        return QStringLiteral("a.preprocess %1, b.preprocess %1, master.process %1, "
                              "a.process %1, b.process %1")
            .arg(batch);
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
    Recording<MasterIndex_Column_Pure> *m_master =
        new Recording<MasterIndex_Column_Pure>("master", &m_log, &m_table, QStringLiteral("key"));
    RecordingIndex m_a{"a", &m_log, &m_table, true};
    RecordingIndex m_b{"b", &m_log, &m_table, true};
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
    RecordingLimit limit("limit", &m_log, 4, &m_table);
    limit.build();
    RecordsTrans batch(&m_table);
    for (const int key : {7, 8, 9})
        insert(batch, key);
    set(batch, 0, 1, 5); // updated, so it is spared
    calls();
    batch.execute();
    EXPECT_EQ(calls(), QStringLiteral("limit.toRemove 3, "
                                      "a.preprocess -1 ~1 +3 [1..1], b.preprocess -1 ~1 +3 [1..1], "
                                      "limit.preprocess -1 ~1 +3 [1..1], "
                                      "master.process -1 ~1 +3 [1..1], a.process -1 ~1 +3 [1..1], "
                                      "b.process -1 ~1 +3 [1..1], limit.process -1 ~1 +3 [1..1]"));
    EXPECT_EQ(m_table.rowCount(), 5);
    EXPECT_EQ(refCount(m_live.at(1)), 1);
}

TEST_F(UpdateCycle, showsOldValuesToPreprocessAndNewOnesToProcess)
{
    QStringList seen;
    m_a.onCall = m_master->onCall = [&](const QString &call) {
        seen.append(call + ' ' + m_live.at(0).data(1).toString() + ' ' +
                    QString::number(m_table.transactionState()));
    };
    RecordsTrans batch(&m_table);
    set(batch, 0, 1, 7);
    batch.execute();
    EXPECT_EQ(seen.join(", "), QStringLiteral("preprocess 0 1, process 7 1, process 7 2"));
    EXPECT_EQ(m_table.transactionState(), 0);
}

TEST_F(UpdateCycle, saysAllColumnsWhenABatchHasNoRange)
{
    RecordsTrans batch(&m_table);
    batch.execute();
    EXPECT_EQ(calls(), QString());
    batch.removeRow(m_live.at(0));
    batch.execute();
    EXPECT_EQ(calls(), passes("-1 ~0 +0 [0..3]"));
    batch.updateRow(m_live.at(1)).record().data(1).setValue(5);
    m_table.process(batch);
    EXPECT_EQ(calls(), passes("-0 ~1 +0 [0..3]"));
    EXPECT_EQ(rows(m_table), QStringLiteral("2 5 0 0, 3 0 0 0"));
}

TEST_F(UpdateCycle, queuesWhatIndexesWriteMeanwhile)
{
    // a writes from both passes and b after it from the second: the batches fold in that order, run
    // as one behind the first, and what that one makes a write runs behind it in turn.
    int round = 0;
    m_a.onCall = [&](const QString &call) {
        RecordsTrans inner(&m_table);
        if (call == QLatin1String("preprocess") && ++round == 1)
            insert(inner, 5);
        else if (call == QLatin1String("process") && round == 1)
            set(inner, 1, 1, 1);
        else if (call == QLatin1String("process") && round == 2)
            insert(inner, 6);
        inner.execute();
        EXPECT_TRUE(inner.isEmpty());
    };
    m_b.onCall = [&](const QString &call) {
        if (call != QLatin1String("process") || round != 1)
            return;
        RecordsTrans inner(&m_table);
        inner.removeRow(m_live.at(2));
        setText(inner.upsertRow(newRow(m_table, {"5"})).field(2), QStringLiteral("55"));
        set(inner, 1, 2, 9);
        m_table.process(inner);
    };
    RecordsTrans batch(&m_table);
    insert(batch, 4);
    batch.execute();
    EXPECT_EQ(calls(), passes("-0 ~0 +1 [0..3]") + ", " + passes("-1 ~1 +1 [1..2]") + ", " +
                           passes("-0 ~0 +1 [0..3]"));
    EXPECT_EQ(rows(m_table), QStringLiteral("1 0 0 0, 2 1 9 0, 4 NULL NULL NULL, "
                                            "5 NULL 55 NULL, 6 NULL NULL NULL"));
    EXPECT_EQ(refCount(m_live.at(2)), 1);
}

TEST_F(UpdateCycle, survivesWhatAnIndexThrows)
{
    RecordingLimit limit("limit", &m_log, 100, &m_table);
    limit.build();
    struct Case {
        CallRecorder *thrower;
        const char *call;
        int processed; // indexes that see the second pass; none when the batch is abandoned
    };
    const Case cases[] = {{&limit, "toRemove", 0}, {&m_a, "preprocess", 0},
                          {&m_b, "preprocess", 0}, {m_master, "process", 4},
                          {&m_a, "process", 4},    {&limit, "process", 4}};
    int value = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.thrower->name.toStdString() + " " + c.call);
        const int expected = c.processed ? value + 1 : value;
        c.thrower->onCall = throwOnceFrom(QLatin1String(c.call), c.thrower->name);
        m_log.clear();
        RecordsTrans batch(&m_table);
        set(batch, 0, 1, value + 1);
        EXPECT_EQ(thrownBy([&] {
                      const TableUpdate update(m_table);
                      batch.execute();
                  }),
                  QStringLiteral("QString: ") + c.thrower->name);
        EXPECT_EQ(m_log.filter(QStringLiteral(".process")).size(), c.processed);
        EXPECT_EQ(m_live.at(0).data(1).value<qint32>(), expected);
        EXPECT_TRUE(batch.isEmpty());
        EXPECT_EQ(m_table.transactionState(), 0);
        EXPECT_TRUE(lockIsFree());
        EXPECT_EQ(refCount(m_live.at(0)), 5); // here and in four indexes

        value += 10;
        set(batch, 0, 1, value);
        batch.execute(); // the next one works
        EXPECT_EQ(m_live.at(0).data(1).value<qint32>(), value);
        EXPECT_EQ(m_log.last(), QStringLiteral("limit.process -0 ~1 +0 [1..1]"));
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
            insert(inner, 7 + batches);
            inner.execute();
        }
        throw QStringLiteral("a%1").arg(batches);
    };
    m_b.onCall = throwOnceFrom(QStringLiteral("process"), QStringLiteral("b"));
    RecordsTrans batch(&m_table);
    insert(batch, 7);
    EXPECT_EQ(thrownBy([&] { batch.execute(); }), QStringLiteral("QString: a1"));
    EXPECT_EQ(batches, 3);
    EXPECT_EQ(m_table.rowCount(), 6);
    EXPECT_EQ(m_b.count(), 5); // all but the row on which it threw itself
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
    insert(batch, 7);
    batch.execute();
    EXPECT_GE(m_table.nsecsElapsed(), 2000000);
    EXPECT_EQ(Table::nsecsElapsedTotal() - total, m_table.nsecsElapsed());
    m_table.setNsecsElapsed(Table::nsecsElapsedTotal() / 10000 * 1234);
    EXPECT_EQ(m_table.percentElapsed().toString(), QStringLiteral("12.34"));
}

// Update bracket ----------------------------------------------------------------------------------

class UpdateBracket : public UpdateCycle
{
protected:
    UpdateBracket()
    {
        m_table.addDependentIndex(&m_d);
        m_table.addDependentIndex(&m_e);
    }
    const QString m_closing = QStringLiteral("master.endUpdate, a.endUpdate, b.endUpdate, "
                                             "d.dependentEndUpdate, e.dependentEndUpdate");
    RecordingIndex m_d{"d", &m_log, &m_table, false};
    RecordingIndex m_e{"e", &m_log, &m_table, false};
};

TEST_F(UpdateBracket, opensAndClosesOnce)
{
    QStringList unlocked;
    m_d.onCall = m_a.onCall = m_b.onCall = [&](const QString &call) {
        if (lockIsFree())
            unlocked.append(call);
    };
    m_table.beginUpdate();
    m_table.beginUpdate();
    m_table.endUpdate();
    EXPECT_EQ(calls(), QStringLiteral("d.dependentBeginUpdate, e.dependentBeginUpdate, "
                                      "master.beginUpdate, a.beginUpdate, b.beginUpdate"));
    EXPECT_FALSE(lockIsFree());
    m_table.endUpdate();
    EXPECT_EQ(calls(), m_closing);
    EXPECT_TRUE(lockIsFree());
    EXPECT_EQ(unlocked, (QStringList{"dependentBeginUpdate", "dependentEndUpdate"}));
}

TEST_F(UpdateBracket, closesWhatWasOpenedWhenItDoesNotOpen)
{
    struct Case {
        CallRecorder *thrower;
        const char *call, *closed;
    };
    const char *const dependents = "d.dependentEndUpdate, e.dependentEndUpdate";
    const Case cases[] = {
        {&m_d, "dependentBeginUpdate", ""},
        {&m_e, "dependentBeginUpdate", "d.dependentEndUpdate"},
        {m_master, "beginUpdate", dependents},
        {&m_a, "beginUpdate", "master.endUpdate, d.dependentEndUpdate, e.dependentEndUpdate"},
        {&m_b, "beginUpdate",
         "master.endUpdate, a.endUpdate, d.dependentEndUpdate, e.dependentEndUpdate"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.closed);
        c.thrower->onCall = throwOnceFrom(QLatin1String(c.call), QStringLiteral("no"));
        EXPECT_EQ(thrownBy([&] { const TableUpdate update(m_table); }),
                  QStringLiteral("QString: no"));
        EXPECT_EQ(m_log.filter(QRegExp("ndUpdate")).join(", "), c.closed);
        EXPECT_TRUE(lockIsFree());
        m_table.beginUpdate(); // and opens at the next attempt
        calls();
        m_table.endUpdate();
        EXPECT_EQ(calls(), m_closing);
        EXPECT_TRUE(lockIsFree());
    }
}

TEST_F(UpdateBracket, releasesTheLockWhenClosingThrows)
{
    for (CallRecorder *thrower : QList<CallRecorder *>{m_master, &m_a, &m_b, &m_d, &m_e}) {
        const bool dependent = thrower == &m_d || thrower == &m_e;
        thrower->onCall =
            throwOnceFrom(dependent ? "dependentEndUpdate" : "endUpdate", thrower->name);
        m_table.beginUpdate();
        calls();
        EXPECT_EQ(thrownBy([&] { m_table.endUpdate(); }), "QString: " + thrower->name);
        EXPECT_EQ(calls(), m_closing);
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
}

// Registry ----------------------------------------------------------------------------------------

TEST_F(UpdateCycle, registersIndexesByOrderAndName)
{
    QObject::connect(&m_table, &Table::indexAdded, [this] { m_log.append("added"); });
    QObject::connect(&m_table, &Table::indexRemoved, [this] { m_log.append("removed"); });
    QObject::connect(&m_table, &Table::indexNameUpdated, [this] { m_log.append("renamed"); });
    QObject::connect(&m_table, &Table::dependentIndexAdded, [this] { m_log.append("d added"); });
    QObject::connect(&m_table, &Table::dependentIndexRemoved,
                     [this] { m_log.append("d removed"); });

    m_table.setIndexName(QStringLiteral("y"), &m_a);
    m_table.setIndexName(QStringLiteral("x"), &m_a);
    EXPECT_EQ(m_table.indexName(&m_a), QStringLiteral("x"));
    m_table.setIndexName(QStringLiteral("x"), &m_b);
    EXPECT_EQ(m_table.namedIndex(QStringLiteral("x")), &m_b);
    EXPECT_EQ(m_table.indexName(&m_a), QStringLiteral("y"));
    m_table.removeIndex(&m_a);
    EXPECT_EQ(m_table.namedIndex(QStringLiteral("y")), nullptr);
    EXPECT_EQ(m_table.indexName(&m_a), QString());
    m_table.addIndex(&m_a);
    m_table.addIndex(&m_b); // a second time
    EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_b, &m_a, &m_b}));
    m_table.removeIndex(&m_b);
    EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_a, &m_b}));
    m_table.addDependentIndex(&m_a);
    EXPECT_EQ(m_table.dependentIndexes(), QList<Index *>{&m_a});
    m_table.removeDependentIndex(&m_a);
    EXPECT_EQ(calls(), QStringLiteral("removed, added, added, removed, d added, d removed"));
    m_table.setIndexes({&m_b, &m_a});
    m_table.build();
    EXPECT_EQ(calls(), QStringLiteral("b.build, a.build"));
}

TEST_F(UpdateCycle, letsIndexesComeAndGoInsideEveryCall)
{
    // Inside each call a destroys the index behind it and makes another, which builds itself.
    std::unique_ptr<IndexList> goes, made;
    QString where;
    m_a.onCall = [&](const QString &call) {
        if (call != where || !goes)
            return;
        goes.reset();
        made = std::make_unique<IndexList>(&m_table, true);
        made->build();
    };
    int key = 10;
    const auto change = [&] {
        RecordsTrans batch(&m_table);
        insert(batch, ++key);
        batch.execute();
    };
    struct Case {
        const char *call;
        std::function<void()> act;
        bool complete = true; // rows leave the master index last, so a new index still finds them
    };
    const Case cases[] = {
        {"preprocess", change},
        {"process", change},
        {"add", [&] { appendTexts(m_table, {QByteArray::number(++key).constData()}); }},
        {"update", [&] { m_table.updatedRow(0); }},
        {"beginUpdate", [&] { const TableUpdate update(m_table); }},
        {"endUpdate", [&] { const TableUpdate update(m_table); }},
        {"build", [&] { m_table.build(); }},
        {"remove", [&] { m_table.remove(m_table.at(3), -1); }, false},
        {"clear", [&] { m_table.clear(); }, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.call);
        goes = std::make_unique<IndexList>(&m_table, false);
        m_table.setIndexes({&m_a, goes.get(), &m_b});
        where = QLatin1String(c.call);
        calls();
        c.act();
        EXPECT_EQ(goes, nullptr);
        EXPECT_EQ(m_log.filter("a." + where).size(), m_log.filter("b." + where).size());
        EXPECT_EQ(m_table.indexes(), (QList<Index *>{&m_a, &m_b, made.get()}));
        EXPECT_EQ(rows(*made) == rows(m_table), c.complete);
    }
}

TEST(IndexRegistry, forgetsAnIndexWhicheverGoesFirst)
{
    auto table = std::make_unique<KeyedTable>();
    auto goes = std::make_unique<IndexList>(table.get(), true);
    const IndexList stays(table.get(), true);
    table->addIndex(goes.get()); // a second time
    table->setIndexName(QStringLiteral("one"), goes.get());
    table->setIndexName(QStringLiteral("two"), goes.get());
    const Record row = appendTexts(*table, {"1"});
    EXPECT_EQ(refCount(row), 5);
    goes.reset();
    EXPECT_EQ(table->indexes(), (QList<Index *>{const_cast<IndexList *>(&stays)}));
    EXPECT_EQ(table->namedIndex(QStringLiteral("one")), nullptr);
    EXPECT_EQ(table->namedIndex(QStringLiteral("two")), nullptr);
    table.reset();
    EXPECT_EQ(stays.count(), 0);
    EXPECT_EQ(refCount(row), 1); // and the handle may be dropped after the table
}
