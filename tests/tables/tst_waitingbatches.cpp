// Batches that wait while the table goes on: filled side by side, folded into each other, run late,
// or overtaken by a new column.

#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/masterindex_fast.h>
#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace
{

/// The keys as columns compared by value, as bytes, and in an order that cannot be hashed.
enum KeyKind { ByValue, AsBytes, ByOwnOrder };

class WaitingBatches : public ::testing::TestWithParam<KeyKind>
{
protected:
    WaitingBatches()
    {
        class OwnOrder : public MasterIndex_Column_Pure
        {
            using MasterIndex_Column_Pure::MasterIndex_Column_Pure;
        };
        if (GetParam() == AsBytes)
            m_table.setMasterIndex(new MasterIndex_Fast_Pure(&m_table, QStringList("key")));
        else if (GetParam() == ByOwnOrder)
            m_table.setMasterIndex(new OwnOrder(&m_table, "key"));
        for (const char *key : {"1", "2", "3"})
            m_live.append(appendTexts(m_table, {key, "0", "0", "0"}));
    }

    /// The rows of the table, which are those of its index, by key.
    QStringList all()
    {
        QStringList listed = rows(m_index);
        listed.sort();
        QStringList held = rows(*m_table.masterIndex());
        held.sort();
        EXPECT_EQ(listed, held);
        for (const Record &record : *m_table.masterIndex())
            EXPECT_TRUE(m_index.contains(record));
        return held;
    }
    void set(RecordsTrans &batch, int row, int column, int value)
    {
        batch.updateRow(m_live.at(row)).field(column).setValue(value);
    }
    Record row(std::initializer_list<const char *> texts) const { return newRow(m_table, texts); }

    KeyedTable m_table;
    IndexList m_index{&m_table, true};
    QList<Record> m_live;
};

TEST_P(WaitingBatches, changeOnlyWhatTheyWrote)
{
    RecordsTrans first(&m_table), second(&m_table), third(&m_table);
    set(first, 0, 1, 1);
    set(second, 0, 1, 2);
    set(second, 0, 3, 2); // the range is 1..3
    set(third, 0, 2, 3);
    // An insertion widens the range of the updates beside it.
    RecordUpdater inserted = third.insertRow(row({"9"}));
    inserted = row({"9", "9", "9", "9"});
    second.execute();
    third.execute();
    EXPECT_EQ(all(), (QStringList{"1 2 3 2", "2 0 0 0", "3 0 0 0", "9 9 9 9"}));
    first.execute();
    EXPECT_EQ(cells(m_live.at(0)), "1 1 3 2");

    // Rows that are filled only in their range, beside others of other ranges.
    RecordsTrans merged(&m_table);
    merged.mergeUpdatedRow(m_live.at(0), row({"1", nullptr, "7"}), 2, 2);
    merged.mergeUpdatedRow(m_live.at(1), row({"2", "8"}), 1, 1);
    merged.mergeUpdatedRow(m_live.at(2), row({"3", "5"}), 1, 1);
    merged.mergeUpdatedRow(m_live.at(2), row({"3", nullptr, nullptr, "6"}), 3, -1);
    merged.updateRow(m_live.at(1)).field(3).setValue(4);
    set(first, 2, 2, 1);
    first.execute();
    merged.execute();
    EXPECT_EQ(all(), (QStringList{"1 1 7 2", "2 8 0 4", "3 5 1 6", "9 9 9 9"}));
}

TEST_P(WaitingBatches, ofIndexesThatAnswerInPreprocessKeepTheRunningOne)
{
    QStringList log;
    RecordingIndex a("a", &log, &m_table), b("b", &log, &m_table);
    int rounds = 0;
    const auto answer = [&](int column, int value) {
        return [=, &rounds](const QString &call) {
            if (call != "preprocess" || ++rounds > 20 ||
                m_live.at(0).data(column).value<qint32>() == value)
                return;
            RecordsTrans batch(&m_table);
            batch.updateRow(m_live.at(0)).field(column).setValue(value);
            batch.execute();
        };
    };
    a.onCall = answer(1, 1);
    b.onCall = answer(3, 3);
    RecordsTrans batch(&m_table);
    set(batch, 0, 2, 2);
    batch.execute();
    EXPECT_EQ(cells(m_live.at(0)), "1 1 2 3");
    EXPECT_LE(rounds, 6) << "answers come to an end";
    a.onCall = b.onCall = nullptr;
}

TEST_P(WaitingBatches, leaveOutRowsThatHaveGone)
{
    QStringList log;
    RecordingIndex other("other", &log, &m_table);
    other.build();
    RecordsTrans late(&m_table), removal(&m_table);
    set(late, 0, 1, 5);
    late.mergeUpdatedRow(m_live.at(1), row({"2", "5"}), 0, 1); // the key as well
    late.removeRow(m_live.at(2));
    for (const Record &record : qAsConst(m_live))
        removal.removeRow(record);
    removal.execute();
    log.clear();
    late.execute();
    EXPECT_EQ(all(), QStringList());
    EXPECT_EQ(log.filter("process").join(' '), "other.preprocess -0 ~0 +0 [0..1] "
                                               "other.process -0 ~0 +0 [0..1]");
    EXPECT_EQ(refCount(m_live.at(0)), 1);

    // A copy of a row is no row of the table either.
    appendTexts(m_table, {"7", "0", "0", "0"});
    late.updateRow(m_table.at(0).clone()).field(1).setValue(1);
    late.execute();
    EXPECT_EQ(all(), QStringList("7 0 0 0"));
}

TEST_P(WaitingBatches, countARowOnceWhoseKeyChangedMeanwhile)
{
    const auto rename = [&](const Record &live, const char *key) {
        RecordsTrans batch(&m_table);
        batch.mergeUpdatedRow(live, row({key}), 0, 0);
        batch.execute();
    };
    RecordsTrans batch(&m_table);
    set(batch, 0, 1, 1);
    rename(m_live.at(0), "5");
    set(batch, 0, 2, 2); // under its new key
    batch.execute();
    EXPECT_EQ(all(), (QStringList{"2 0 0 0", "3 0 0 0", "5 1 2 0"}));

    set(batch, 1, 1, 1);
    rename(m_live.at(1), "6");
    batch.removeRow(m_live.at(1));
    batch.execute();
    EXPECT_EQ(all(), (QStringList{"3 0 0 0", "5 1 2 0"}));
    EXPECT_EQ(refCount(m_live.at(1)), 1);
}

TEST_P(WaitingBatches, neverLeaveTwoRowsOfOneKey)
{
    using Step = std::function<void()>;
    RecordsTrans one(&m_table), two(&m_table);
    const std::pair<const char *, std::pair<Step, const char *>> cases[] = {
        {"remove and insert",
         {[&] {
              one.removeRow(m_live.at(0));
              one.insertRow(row({"1", "5"})).field(2).setValue(6);
          },
          "1 5 6 NULL"}},
        {"update and insert",
         {[&] {
              set(one, 0, 3, 3);
              one.insertRow(row({"1", "5"}));
          },
          "1 5 NULL NULL"}},
        {"remove and upsert",
         {[&] {
              one.removeRow(m_live.at(0));
              one.upsertRow(row({"1"})).field(2).setValue(6);
          },
          "1 NULL 6 NULL"}},
        {"update and upsert",
         {[&] {
              set(one, 0, 3, 3);
              one.upsertRow(row({"1", "9"})).field(2).setValue(6);
          },
          "1 0 6 3"}},
        {"a removal and an insertion that meet in the queue",
         {[&] {
              one.removeRow(m_live.at(0));
              two.insertRow(row({"1", "5"}));
              one.merge(two);
          },
          "1 5 NULL NULL"}},
        {"an insertion in place of a row that has gone",
         {[&] {
              one.removeRow(m_live.at(0));
              one.insertRow(row({"1", "5"}));
              m_table.remove(m_live.at(0), -1);
          },
          "1 5 NULL NULL"}},
        {"an upsert of a row that has gone",
         {[&] {
              one.upsertRow(row({"1"})).field(2).setValue(6);
              m_table.remove(m_live.at(0), -1);
          },
          "1 NULL 6 NULL"}},
        {"an upsert of a row that was exchanged",
         {[&] {
              one.upsertRow(row({"1"})).field(2).setValue(6);
              m_table.remove(m_live.at(0), -1);
              appendTexts(m_table, {"1", "4", "4", "4"});
          },
          "1 4 6 4"}},
    };
    for (const auto &[name, act] : cases) {
        SCOPED_TRACE(name);
        act.first();
        one.execute();
        EXPECT_EQ(all(), (QStringList{act.second, "2 0 0 0", "3 0 0 0"}));
        RecordsTrans back(&m_table);
        back.upsertRow(row({"1"})) = row({"1", "0", "0", "0"});
        back.execute();
        m_live[0] = m_table.masterIndex()->find(row({"1"}), -1);
    }
    // Two upserts of a key that comes before the second runs, one after the other or folded.
    for (const bool folded : {false, true}) {
        one.upsertRow(row({"8"})).field(1).setValue(1);
        two.upsertRow(row({"8", "9", "9"})).field(2).setValue(2);
        if (folded)
            one.merge(two);
        one.execute();
        two.execute();
        EXPECT_EQ(all().last(), "8 1 2 NULL");
        two.removeRow(m_table.masterIndex()->find(row({"8"}), -1));
        two.execute();
    }
}

TEST_P(WaitingBatches, warnOnceOfWhatTheyCannotKeepApart)
{
    static QStringList messages;
    messages.clear();
    const auto previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &text) { messages.append(text); });
    RecordsTrans batch(&m_table);
    for (const char *key : {"7", "2", "3"}) {
        batch.insertRow(row({key}));
        batch.execute();
    }
    appendTexts(m_table, {"1"});
    const int rowsHeld = m_table.rowCount();
    Table log(QStringLiteral("log"), QString()); // has no key
    log.addColumn("n", FieldType::Integer, 0);
    RecordsTrans lines(&log);
    for (const char *text : {"1", "2", "3"})
        lines.insertRow(newRow(log, {text}));
    lines.execute();
    qInstallMessageHandler(previous);
    EXPECT_EQ(messages, (QStringList{"Table 'quotes' has two rows of the key '2'",
                                     "Table 'log' has no key: the rows of a batch fold into one"}));
    EXPECT_EQ(rowsHeld, 7) << "warned of, not refused";
    EXPECT_EQ(rows(*log.masterIndex()), QStringList("3"));
}

TEST_P(WaitingBatches, throwWhenAColumnCameMeanwhile)
{
    RecordsTrans batch(&m_table);
    RecordUpdater updater = batch.updateRow(m_live.at(0));
    updater.field(1).setValue(1);
    m_live.clear();
    m_table.addColumn("d", FieldType::VarChar, 40);
    const QString thrown = "QString: A column was added to table 'quotes' while a batch of it was "
                           "being filled: clear the batch and fill it again.";
    EXPECT_EQ(thrownBy([&] { updater.field(2); }), thrown);
    EXPECT_EQ(thrownBy([&] { batch.updateRow(m_table.at(1)); }), thrown);
    EXPECT_EQ(thrownBy([&] { batch.execute(); }), thrown);
    batch.clear();
    setText(batch.updateRow(m_table.at(0)).field(4), "x");
    batch.execute();
    EXPECT_EQ(cells(m_table.at(0)), "1 0 0 0 x");

    QStringList log;
    RecordingIndex index("a", &log, &m_table);
    index.build();
    index.onCall = [&](const QString &call) {
        if (call == "process")
            m_table.addColumn("e", FieldType::Integer, 0);
    };
    batch.updateRow(m_table.at(0)).field(1).setValue(7);
    EXPECT_EQ(thrownBy([&] { batch.execute(); }),
              "QString: Table 'quotes': addColumn can't be called inside a transaction of the "
              "table.");
    EXPECT_EQ(cells(m_table.at(0)), "1 7 0 0 x");
    index.onCall = nullptr;
}

TEST_P(WaitingBatches, refuseWhatIsNoRowOfTheirTable)
{
    KeyedTable other;
    const Record foreign = appendTexts(other, {"7"});
    RecordsTrans batch(&m_table);
    const std::function<void(const Record &)> calls[] = {
        [&](const Record &row) { batch.insertRow(row); },
        [&](const Record &row) { batch.updateRow(row); },
        [&](const Record &row) { batch.removeRow(row); },
        [&](const Record &row) { batch.upsertRow(row); },
        [&](const Record &row) { batch.mergeInsertedRow(row); },
        [&](const Record &row) { batch.mergeRemovedRow(row); },
        [&](const Record &row) { batch.mergeUpdatedRow(row, m_live.at(0), 1, 1); },
        [&](const Record &row) { batch.mergeUpdatedRow(m_live.at(0), row, 1, 1); },
    };
    for (const auto &call : calls) {
        EXPECT_TRUE(thrownBy([&] { call(Record()); }).contains("Row was given a null record"));
        EXPECT_TRUE(thrownBy([&] { call(foreign); }).endsWith("the row '7' of table 'quotes'."));
    }
    EXPECT_TRUE(batch.isEmpty());
    const QString thrown = "QString: Table 'quotes' has no column 'lsat'.";
    EXPECT_EQ(thrownBy([&] { m_live.at(0).data("lsat"); }), thrown);
    EXPECT_EQ(thrownBy([&] { m_table.columnDef("lsat"); }), thrown);
    EXPECT_EQ(thrownBy([&] { batch.updateRow(m_live.at(0)).field("lsat"); }), thrown);
    EXPECT_TRUE(thrownBy([&] { Record().data("a"); }).startsWith("QString: A null record"));
}

TEST_P(WaitingBatches, areMovedWithTheirEntries)
{
    std::vector<RecordsTrans> batches;
    for (int i = 0; i < 3; ++i) {
        batches.emplace_back(&m_table);
        set(batches.back(), i, 1, i + 1);
    }
    RecordsTrans taken(std::move(batches[0]));
    EXPECT_TRUE(batches[0].isEmpty());
    set(batches[0], 1, 2, 8); // an empty batch of the same table
    batches[2] = std::move(taken);
    for (RecordsTrans &batch : batches)
        batch.execute();
    EXPECT_EQ(all(), (QStringList{"1 1 0 0", "2 2 8 0", "3 0 0 0"}));
    static_assert(std::is_nothrow_move_constructible_v<RecordsTrans>);
    static_assert(std::is_nothrow_move_assignable_v<RecordsTrans>);
}

INSTANTIATE_TEST_SUITE_P(Keys, WaitingBatches, ::testing::Values(ByValue, AsBytes, ByOwnOrder));

} // namespace
