#include "support/tablefixture.h"

#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

namespace
{

/// What a batch holds: "+inserted -removed ~live>changed [first..last]".
QString described(const RecordsTrans &batch)
{
    QStringList texts = rows(batch.insertList()).replaceInStrings(QRegExp("^"), "+");
    texts += rows(batch.removeList()).replaceInStrings(QRegExp("^"), "-");
    const QList<Record> live = batch.updateList();
    const QList<Record> changed = batch.changeList();
    EXPECT_EQ(live.size(), changed.size());
    for (int i = 0; i < live.size(); ++i)
        texts.append("~" + cells(live[i]) + ">" + cells(changed[i]));
    if (batch.first() <= batch.last())
        texts.append(QStringLiteral("[%1..%2]").arg(batch.first()).arg(batch.last()));
    return texts.join(", ");
}

enum Prior { None, Inserted, Removed, Updated };

class Folding : public ::testing::Test
{
protected:
    void enter(RecordsTrans &batch, Prior prior)
    {
        if (prior == Inserted)
            batch.mergeInsertedRow(newRow(m_table, {"1", "100"}));
        if (prior == Removed)
            batch.mergeRemovedRow(m_live);
        if (prior == Updated)
            batch.mergeUpdatedRow(m_live, newRow(m_table, {"1", "11", "21", "31"}), 1, 1);
    }

    KeyedTable m_table;
    const Record m_live = appendTexts(m_table, {"1", "10", "20", "30"});
};

} // namespace

TEST_F(Folding, followsTheTableOfOperations)
{
    struct Case {
        Prior prior;
        const char *inserted, *removed, *updated, *written, *erased; // the batch after each
    };
    const Case cases[] = {
        {None, "+1 101 NULL NULL", "-1 10 20 30", "~1 10 20 30>1 12 22 32, [2..3]",
         "~1 10 20 30>1 10 99 30, [2..2]", "-1 10 20 30"},
        {Inserted, "+1 101 NULL NULL", "-1 100 NULL NULL", "+1 100 NULL NULL",
         "+1 100 99 NULL, [2..2]", ""},
        {Removed, "+1 101 NULL NULL", "-1 10 20 30", "~1 10 20 30>1 12 22 32, [2..3]",
         "~1 10 20 30>1 10 99 30, [2..2]", "-1 10 20 30"},
        {Updated, "+1 101 NULL NULL, [1..1]", "-1 10 20 30, [1..1]",
         "~1 10 20 30>1 11 22 32, [1..3]", "~1 10 20 30>1 11 99 31, [1..2]", "-1 10 20 30, [1..1]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.prior);
        RecordsTrans inserted(&m_table), removed(&m_table), updated(&m_table), written(&m_table),
            upserted(&m_table), erased(&m_table);
        for (auto *batch : {&inserted, &removed, &updated, &written, &upserted, &erased})
            enter(*batch, c.prior);
        inserted.mergeInsertedRow(newRow(m_table, {"1", "101"}));
        EXPECT_EQ(described(inserted), c.inserted);
        removed.mergeRemovedRow(m_live.clone());
        EXPECT_EQ(described(removed), c.removed);
        updated.mergeUpdatedRow(m_live.clone(), newRow(m_table, {"1", "12", "22", "32"}), 2, 3);
        EXPECT_EQ(described(updated), c.updated);
        if (c.prior == Removed || c.prior == Updated) {
            EXPECT_EQ(removed.removeList(), QList<Record>{m_live});
            EXPECT_EQ(updated.updateList(), QList<Record>{m_live});
        }
        setText(written.updateRow(m_live).field(2), "99");
        EXPECT_EQ(described(written), c.written);
        setText(upserted.upsertRow(newRow(m_table, {"1", "77"})).field("b"), "99");
        EXPECT_EQ(described(upserted), c.written);
        RecordUpdater updater = erased.updateRow(m_live);
        for (int times = 0; times < 2; ++times) { // the second finds nothing, or a removal
            updater.remove();
            EXPECT_EQ(described(erased), c.erased);
        }
    }
    EXPECT_EQ(cells(m_live), "1 10 20 30");
    EXPECT_EQ(refCount(m_live), 2);
}

TEST_F(Folding, insertsACopyOfAnUnknownKey)
{
    RecordsTrans batch(&m_table);
    const Record key = newRow(m_table, {"5"});
    RecordUpdater updater = batch.upsertRow(key);
    setText(updater.field(1), "6");
    setText(batch.upsertRow(key).field(3), "7");
    EXPECT_EQ(described(batch), "+5 6 NULL 7, [1..3]");
    EXPECT_EQ(cells(key), "5 NULL NULL NULL");
    EXPECT_TRUE(updater.first() == 1 && updater.last() == 1);
    updater = newRow(m_table, {"5", nullptr, "1"});
    EXPECT_EQ(described(batch), "+5 NULL 1 NULL, [0..3]");
    EXPECT_TRUE(updater.first() == 0 && updater.last() == 3);
    updater.remove();
    EXPECT_TRUE(batch.isEmpty());
}

TEST_F(Folding, takesRangesToTheEdgesOfTheTable)
{
    struct Case {
        int first, last;
        const char *range;
    };
    for (const Case &c : {Case{-1, 1, "[0..1]"}, Case{2, -1, "[2..3]"}, Case{-1, -1, "[0..3]"}}) {
        RecordsTrans batch(&m_table);
        batch.mergeUpdatedRow(m_live, m_live.clone(), c.first, c.last);
        EXPECT_TRUE(described(batch).endsWith(c.range)) << c.range;
        batch.clear();
        EXPECT_EQ(described(batch), "");
        EXPECT_EQ(batch.first(), std::numeric_limits<qint32>::max());
        EXPECT_EQ(batch.last(), -1);
    }
}

TEST_F(Folding, ordersTheOtherBatchsRemovalsUpdatesAndInsertions)
{
    const Record two = appendTexts(m_table, {"2", "20"});
    const Record three = appendTexts(m_table, {"3", "30"});
    RecordsTrans batch(&m_table);
    batch.removeRow(two);
    RecordsTrans other(&m_table);
    for (const char *key : {"5", "-4", "4"})
        other.mergeInsertedRow(newRow(m_table, {key, "40"}));
    other.mergeUpdatedRow(two, newRow(m_table, {"2", "21"}), 1, 1);
    other.mergeRemovedRow(three);
    batch.merge(other);
    EXPECT_EQ(described(batch), "+-4 40 NULL NULL, +4 40 NULL NULL, +5 40 NULL NULL, "
                                "-3 30 NULL NULL, ~2 20 NULL NULL>2 21 NULL NULL, [1..1]");
    EXPECT_EQ(described(other), "");
    batch.merge(batch); // itself: nothing
    EXPECT_EQ(batch.updateList(), QList<Record>{two});

    // Of one key in several lists the insertion is the last.
    const Record one = newRow(m_table, {"1", "5", "6", "7"});
    other.merge({two}, {m_live, two}, 2, 3, {newRow(m_table, {"2", "9"})}, {one});
    EXPECT_EQ(described(other), "+2 9 NULL NULL, ~1 10 20 30>1 5 6 7, [2..3]");
}

TEST_F(Folding, copiesAllColumnsWithoutARange)
{
    RecordsTrans batch(&m_table);
    setText(batch.updateRow(m_live).field(1), "11");
    batch.execute();
    EXPECT_EQ(rows(m_table), QStringList{"1 11 20 30"});
    EXPECT_EQ(described(batch), "");

    RecordsTrans merged(&m_table);
    batch.updateRow(m_live).record().data(3).setValue(33);
    merged.merge(batch);
    merged.execute();
    EXPECT_EQ(rows(m_table), QStringList{"1 11 20 33"});
    batch.updateRow(m_live).record().data(2).setValue(22);
    m_table.process(batch);
    EXPECT_EQ(rows(m_table), QStringList{"1 11 22 33"});
    EXPECT_EQ(refCount(m_live), 2);
}

#ifndef QT_NO_DEBUG
TEST_F(Folding, refusesToWriteKeyCells)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    RecordsTrans batch(&m_table);
    RecordUpdater updater = batch.updateRow(m_live);
    EXPECT_DEATH(updater.field(0), "keyColumns");
    EXPECT_DEATH(updater = newRow(m_table, {"2"}), "compare");
}
#endif
