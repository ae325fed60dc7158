#include "support/tablefixture.h"

#include <database/tables/recordstrans.h>

#include <gtest/gtest.h>

#include <limits>

namespace
{

/// What a batch holds: "+inserted -removed ~live>changed [first..last]".
QString described(const RecordsTrans &batch)
{
    QStringList texts;
    for (const Record &row : batch.insertList())
        texts.append(QLatin1Char('+') + cells(row));
    for (const Record &row : batch.removeList())
        texts.append(QLatin1Char('-') + cells(row));
    const QList<Record> live = batch.updateList();
    const QList<Record> changed = batch.changeList();
    EXPECT_EQ(live.size(), changed.size());
    for (int i = 0; i < live.size(); ++i)
        texts.append(QLatin1Char('~') + cells(live[i]) + QLatin1Char('>') + cells(changed[i]));
    if (batch.first() <= batch.last())
        texts.append(QStringLiteral("[%1..%2]").arg(batch.first()).arg(batch.last()));
    return texts.join(QStringLiteral(", "));
}

enum Prior { None, Inserted, Removed, Updated };

class Folding : public ::testing::Test
{
protected:
    Folding()
        : m_live(appendTexts(m_table, {"1", "10", "20", "30"}))
    {
    }
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
    const Record m_live;
};

struct FoldCase {
    const char *name;
    Prior prior;
    const char *inserted, *removed, *updated; // the batch after each operation
};

const FoldCase kFolds[] = {
    {"none", None, "+1 101 NULL NULL", "-1 10 20 30", "~1 10 20 30>1 12 22 32, [2..3]"},
    {"inserted", Inserted, "+1 101 NULL NULL", "-1 100 NULL NULL", "+1 100 NULL NULL"},
    {"removed", Removed, "+1 101 NULL NULL", "-1 10 20 30", "~1 10 20 30>1 12 22 32, [2..3]"},
    {"updated", Updated, "+1 101 NULL NULL, [1..1]", "-1 10 20 30, [1..1]",
     "~1 10 20 30>1 11 22 32, [1..3]"},
};

} // namespace

TEST_F(Folding, followsTheTableOfOperations)
{
    for (const FoldCase &c : kFolds) {
        SCOPED_TRACE(c.name);
        RecordsTrans inserted(&m_table), removed(&m_table), updated(&m_table);
        for (RecordsTrans *batch : {&inserted, &removed, &updated})
            enter(*batch, c.prior);
        inserted.mergeInsertedRow(newRow(m_table, {"1", "101"}));
        removed.mergeRemovedRow(m_live.clone());
        updated.mergeUpdatedRow(m_live.clone(), newRow(m_table, {"1", "12", "22", "32"}), 2, 3);
        EXPECT_EQ(described(inserted), c.inserted);
        EXPECT_EQ(described(removed), c.removed);
        EXPECT_EQ(described(updated), c.updated);
        if (c.prior == Removed || c.prior == Updated) {
            EXPECT_EQ(removed.removeList().first(), m_live);
            EXPECT_EQ(updated.updateList().first(), m_live);
        }
    }
    EXPECT_EQ(refCount(m_live), 2);
}

TEST_F(Folding, actsAlikeThroughUpdaters)
{
    struct Case {
        Prior prior;
        const char *updated, *erased;
    };
    const Case cases[] = {
        {None, "~1 10 20 30>1 10 99 30, [2..2]", "-1 10 20 30"},
        {Inserted, "+1 100 99 NULL, [2..2]", ""},
        {Removed, "~1 10 20 30>1 10 99 30, [2..2]", "-1 10 20 30"},
        {Updated, "~1 10 20 30>1 11 99 31, [1..2]", "-1 10 20 30, [1..1]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.prior);
        RecordsTrans updated(&m_table), upserted(&m_table), erased(&m_table);
        for (RecordsTrans *batch : {&updated, &upserted, &erased})
            enter(*batch, c.prior);
        setText(updated.updateRow(m_live).field(2), QStringLiteral("99"));
        EXPECT_EQ(described(updated), c.updated);
        RecordUpdater upserter = upserted.upsertRow(newRow(m_table, {"1", "77"}));
        setText(upserter.field(QStringLiteral("b")), QStringLiteral("99"));
        EXPECT_EQ(described(upserted), c.updated);
        RecordUpdater updater = erased.updateRow(m_live);
        updater.remove();
        EXPECT_EQ(described(erased), c.erased);
        updater.remove(); // of what is no longer there, or a removal already
        EXPECT_EQ(described(erased), c.erased);
    }
    EXPECT_EQ(cells(m_live), QStringLiteral("1 10 20 30"));
    EXPECT_EQ(refCount(m_live), 2);
}

TEST_F(Folding, insertsACopyOfAnUnknownKey)
{
    RecordsTrans batch(&m_table);
    const Record key = newRow(m_table, {"5"});
    RecordUpdater updater = batch.upsertRow(key);
    setText(updater.field(1), QStringLiteral("6"));
    setText(batch.upsertRow(key).field(3), QStringLiteral("7"));
    EXPECT_EQ(described(batch), QStringLiteral("+5 6 NULL 7, [1..3]"));
    EXPECT_EQ(cells(key), QStringLiteral("5 NULL NULL NULL"));
    EXPECT_EQ(updater.first(), 1);
    EXPECT_EQ(updater.last(), 1);
    updater = newRow(m_table, {"5", nullptr, "1"});
    EXPECT_EQ(described(batch), QStringLiteral("+5 NULL 1 NULL, [0..3]"));
    EXPECT_EQ(updater.first(), 0);
    EXPECT_EQ(updater.last(), 3);
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
        EXPECT_EQ(batch.first(), std::numeric_limits<qint32>::max());
        EXPECT_EQ(batch.last(), -1);
        batch.mergeUpdatedRow(m_live, m_live.clone(), c.first, c.last);
        EXPECT_TRUE(described(batch).endsWith(QLatin1String(c.range))) << c.range;
        batch.clear();
        EXPECT_EQ(described(batch), QString());
    }
}

TEST_F(Folding, ordersTheOtherBatchsRemovalsUpdatesAndInsertions)
{
    const Record two = appendTexts(m_table, {"2", "20"});
    const Record three = appendTexts(m_table, {"3", "30"});
    RecordsTrans batch(&m_table);
    batch.removeRow(two);
    RecordsTrans other(&m_table);
    other.mergeInsertedRow(newRow(m_table, {"4", "40"}));
    other.mergeUpdatedRow(two, newRow(m_table, {"2", "21"}), 1, 1);
    other.mergeRemovedRow(three);
    batch.merge(other);
    EXPECT_EQ(described(batch), QStringLiteral("+4 40 NULL NULL, -3 30 NULL NULL, "
                                               "~2 20 NULL NULL>2 21 NULL NULL, [1..1]"));
    EXPECT_EQ(described(other), QString());
    batch.merge(batch); // itself: nothing
    EXPECT_EQ(batch.updateList(), QList<Record>{two});

    // Updates without a range mean all columns.
    RecordsTrans unranged(&m_table);
    unranged.updateRow(m_live);
    batch.merge(unranged);
    EXPECT_EQ(batch.first(), 0);
    EXPECT_EQ(batch.last(), 3);

    RecordsTrans lists(&m_table);
    const Record one = newRow(m_table, {"1", "5", "6", "7"});
    lists.merge({two}, {m_live, two}, 2, 3, {newRow(m_table, {"2", "9"})}, {one});
    EXPECT_EQ(described(lists), QStringLiteral("+2 9 NULL NULL, ~1 10 20 30>1 5 6 7, [2..3]"));
}

TEST_F(Folding, isEmptyAfterExecuting)
{
    RecordsTrans batch(&m_table);
    batch.execute(); // nothing to do, and no range is left behind
    EXPECT_EQ(described(batch), QString());
    setText(batch.updateRow(m_live).field(1), QStringLiteral("11"));
    EXPECT_EQ(described(batch), QStringLiteral("~1 10 20 30>1 11 20 30, [1..1]"));
    batch.execute();
    EXPECT_EQ(rows(m_table), QStringLiteral("1 11 20 30"));
    EXPECT_EQ(described(batch), QString());
    EXPECT_EQ(refCount(m_live), 2);
}

TEST_F(Folding, leavesOneEntryInATableWithoutAKey)
{
    Table table(QStringLiteral("t"), QString());
    table.addColumn(QStringLiteral("n"), FieldType::Integer, 0);
    RecordsTrans batch(&table);
    batch.insertRow(newRow(table, {"1"}));
    batch.insertRow(newRow(table, {"2"}));
    EXPECT_EQ(rows(batch.insertList()), QStringLiteral("2"));
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
