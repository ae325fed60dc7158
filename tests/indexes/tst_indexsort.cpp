#include "indexes/indexfixture.h"

#include <database/tables/cellcompare.h>

#include <algorithm>

namespace
{

class SortedIndex : public ::testing::Test
{
protected:
    QuoteTable table;
    QuoteSort index{&table};
};

TEST_F(SortedIndex, movesAnUpdatedRecordOnlyWhenItIsOutOfOrder)
{
    struct {
        const char *name;
        int id, price, hint;
        Ids expected;
    } cases[] = {
        {"equal_to_the_next", 0, 20, 0, {0, 1, 2, 3, 4}},
        {"up_behind_its_equals", 0, 30, 0, {1, 2, 3, 0, 4}},
        {"down_behind_its_equals", 4, 20, 4, {0, 1, 2, 4, 3}},
        {"with_a_wrong_hint", 0, 50, 3, {1, 2, 3, 4, 0}},
        {"with_a_hint_past_the_end", 4, 1, 77, {4, 0, 1, 2, 3}},
    };
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
    static QStringList warnings;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &text) { warnings.append(text); });
    index.update(table.at(90), kPrice, kPrice, -1);
    qInstallMessageHandler(previous);
    EXPECT_EQ(warnings, QStringList("update Full search can impact the performance"));
    EXPECT_EQ(index.indexOf(table.at(90)), 6);
    index.update(table.row(200, 3), kPrice, kPrice, -1);
    EXPECT_EQ(index.count(), 101) << "a record that is not there is added";
}

TEST_F(SortedIndex, sendsWhatAFullSearchFoundBehindItsEquals)
{
    for (int i = 0; i < 30; ++i)
        table.append(i, i < 10 ? 10 : 20);
    table.setPrice(15, 5); // unseen, and in the way of searches
    index.update(table.at(12), kPrice, kPrice, -1);
    EXPECT_EQ(idsOf(index).back(), 12);
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
    index.process({}, {}, 0, 3, {table.row(9, 30)}); // nothing was noted of this one
    EXPECT_EQ(idsOf(index), (Ids{1, 9, 3}));
}

// Every second record is enough of them for a walk through the whole index.
template<int Step>
void runBatch(QuoteSort &index, const QList<Record> &rows)
{
    QList<Record> removed, updated, values, inserted;
    for (int i = 0; i < 30; i += Step) {
        removed.append(rows.at(i));
        updated.append(rows.at(i + 1));
        values.append(rows.at(i + 1).clone());
        values.last().data(kPrice).setValue(40 - i);
        inserted.append(rows.at(40 + i));
    }
    index.preprocess(removed, updated, kPrice, kPrice, inserted, values);
    for (int i = 0; i < updated.size(); ++i)
        updated[i].copy(values.at(i), kPrice, kPrice);
    index.process(removed, updated, kPrice, kPrice, inserted);
}

void changeAndResort(QuoteSort &index, const QList<Record> &rows)
{
    for (int i = 0; i < 40; i += 3)
        rows.at(i).data(kPrice).setValue(40 - i);
    index.resort();
}

// Only rows whose prices are equal to the new one are asked for.
void runTick(QuoteSort &index, const QList<Record> &rows)
{
    const QList<Record> updated{rows.at(4)}, values{rows.at(30).clone()};
    index.preprocess({}, updated, kPrice, kPrice, {}, values);
    rows.at(4).data(kPrice).setValue(15);
    index.process({}, updated, kPrice, kPrice, {});
}

// Each batch is put through an index that searches for few records among many, and through one that
// walks past all of its few.
TEST(Batches, takeARecordThatTheyNameSeveralTimesOnce)
{
    for (const int rows : {80, 400}) {
        SCOPED_TRACE(rows);
        QuoteTable table;
        QuoteSort index(&table);
        table.appendAll(std::vector<int>(size_t(rows), 10));
        const Record moving = table.at(4);
        QList<Record> updated, values;
        for (int i = 0; i < 70; i += 2)
            updated.append(table.at(i));
        updated.append({moving, moving});
        for (const Record &record : updated)
            values.append(table.row(-1, record == moving ? 5 : 10));
        const QList<Record> removed{table.at(6), table.at(7)}; // one of them updated as well
        index.preprocess(removed, updated, kPrice, kPrice, {}, values);
        for (int i = 0; i < updated.size(); ++i)
            updated[i].copy(values.at(i), kPrice, kPrice);
        index.process(removed, updated, kPrice, kPrice, {});

        Ids expected{4};
        for (int i = 0; i < rows; ++i) {
            if (i != 4 && i != 6 && i != 7)
                expected.push_back(i);
        }
        EXPECT_EQ(idsOf(index), expected);
        EXPECT_EQ(refCountOf(moving), 3 + updated.count(moving)) << "here, index, table, batch";
    }
}

// Prices of one scale are compared by their mantissas until another scale comes.
TEST(Batches, endWhatOnlyEqualScalesAllow)
{
    Table table(QStringLiteral("prices"), QString());
    table.addColumn(QStringLiteral("Id"), FieldType::Integer, 0, false);
    table.addColumn(QStringLiteral("Price"), FieldType::Decimal, 2, false);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("Id")));
    struct ByPrice : IndexSort {
        explicit ByPrice(Table *table)
            : IndexSort(table, true)
        {
            setColumns({1});
        }
        int compare(const Record &a, const Record &b) const override
        {
            return compareCells(*table()->columnDef(1), a, b);
        }
    } index(&table);
    constexpr int kRows = 3000;
    for (int i = 0; i < kRows; ++i) {
        Record row(&table);
        row.data(0).setValue(i);
        row.data(1).setValue(decimal::fromParts(i, 2));
        table.appendRow(row.row());
    }
    RecordsTrans batch(&table);
    for (int i = 0; i < kRows; i += 2) // 10.000 - i / 1000
        batch.updateRow(table.at(i)).field(1).setValue(decimal::fromParts(10000 - i, 3));
    {
        const TableUpdate bracket(table);
        batch.execute();
    }
    ASSERT_EQ(index.count(), kRows);
    for (int i = 1; i < kRows; ++i)
        ASSERT_LE(index.compare(index.at(i - 1), index.at(i)), 0) << i;
    const int place = index.indexOf(table.at(0)); // 10.000
    EXPECT_EQ(index.at(place - 1), table.at(2)) << "9.998";
    EXPECT_EQ(index.at(place + 1), table.at(1001)) << "10.01";
}

// Runs each step on fresh tables again and again, each time letting one more question pass before
// the index throws, until the step goes through.
TEST(ThrowingIndex, losesNothing)
{
    const auto isRemoved = [](auto step, int i) {
        const bool named =
            (step == runBatch<3> && i % 3 == 0) || (step == runBatch<2> && i % 2 == 0);
        return named && i < 30;
    };
    struct {
        void (*step)(QuoteSort &, const QList<Record> &);
        bool tellsColumns;
        int questions;
    } cases[] = {{runBatch<3>, false, 20},
                 {runBatch<2>, false, 20},
                 {changeAndResort, false, 20},
                 {runTick, true, 2}};
    for (const auto &[step, tellsColumns, questions] : cases) {
        int threw = 0;
        for (bool through = false; !through; ++threw) {
            SCOPED_TRACE(testing::Message() << "throws after question " << threw);
            QuoteTable table;
            QuoteSort index(&table, kPrice, false, false, tellsColumns);
            QList<Record> rows;
            for (int i = 0; i < 70; ++i)
                rows.append(table.row(i, i / 2));
            for (int i = 0; i < 40; ++i)
                index.add(rows.at(i));
            index.questionsLeft = threw;
            try {
                step(index, rows);
                through = true;
            } catch (const std::runtime_error &) {
            }
            ASSERT_TRUE(index.list().verify());
            for (int i = 0; i < rows.size(); ++i) {
                const auto held = std::count(index.begin(), index.end(), rows.at(i));
                ASSERT_EQ(refCountOf(rows.at(i)), 1 + held) << i;
                const bool mayBeGone = i >= 40 || isRemoved(step, i);
                ASSERT_TRUE(held == 1 || (mayBeGone && held == 0)) << i;
            }
        }
        EXPECT_GT(threw, questions);
    }
}

/// By a column that may be NULL; equal rows as they came.
class ByStrike : public IndexSort
{
public:
    explicit ByStrike(Table *table)
        : IndexSort(table, true)
        , m_column(*table->columnDef(1))
    {
        setColumns({1});
    }
    int compare(const Record &a, const Record &b) const override
    {
        return compareCells(m_column, a, b);
    }

private:
    const TableColumnDef &m_column;
};

// Values as they lie in a cell mean nothing once it is NULL, in whichever way the first one comes.
TEST(NullInAnIndex, standsFirstHoweverItCame)
{
    const auto setNull = [](const Record &record) { record.data(1).setNull(); };
    for (const auto &[way, isNullable] : {std::pair{"tick", true},
                                          {"tick", false},
                                          {"batch", true},
                                          {"batch", false},
                                          {"large batch", true},
                                          {"large batch", false},
                                          {"batch without notice", false},
                                          {"insertion", true},
                                          {"append", false},
                                          {"update", false},
                                          {"build", false}}) {
        SCOPED_TRACE(testing::Message() << way << (isNullable ? "" : ", though it may not be"));
        Table table(QStringLiteral("options"), QString());
        table.addColumn(QStringLiteral("id"), FieldType::Integer, 0, false);
        table.addColumn(QStringLiteral("strike"), FieldType::Integer64, 0, isNullable);
        table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("id")));
        ByStrike index(&table);
        const auto row = [&](int id) {
            const Record record(&table);
            record.data(0).setValue(id);
            record.data(1).setValue(qint64(id * 7919 % 1000 - 500));
            return record;
        };
        for (int i = 0; i < 1000; ++i)
            table.appendRow(row(i).row());
        RecordsTrans batch(&table);
        const auto change = [&](int id) { batch.updateRow(table.at(id)).field(1).setNull(); };
        Record last = table.at(500);
        if (way == QLatin1String("tick")) {
            change(500);
        } else if (way == QLatin1String("batch") || way == QLatin1String("large batch")) {
            const int changes = way == QLatin1String("batch") ? 4 : 400;
            for (int i = 0; i < changes; ++i)
                change(i);
            last = table.at(changes - 1);
        } else if (way == QLatin1String("batch without notice")) {
            setNull(last);
            index.process({}, {last}, 1, 1, {});
        } else if (way == QLatin1String("update")) {
            setNull(last);
            table.updated(last, 1, 1, 500);
        } else if (way == QLatin1String("build")) {
            setNull(last);
            index.build();
        } else {
            last = row(1000);
            setNull(last);
            if (way == QLatin1String("append"))
                table.appendRow(last.row());
            else
                batch.mergeInsertedRow(last);
        }
        {
            const TableUpdate bracket(table);
            batch.execute();
        }
        const auto isNull = [](const Record &record) { return record.data(1).isNull(); };
        EXPECT_EQ(index.indexOf(last), std::count_if(index.begin(), index.end(), isNull) - 1);
        EXPECT_TRUE(std::is_sorted(index.begin(), index.end(), IndexSort::LessThan(&index)));
        const QList<Record> all(index.begin(), index.end());
        for (int i = 0; i < all.size(); ++i)
            ASSERT_EQ(index.indexOf(all.at(i)), i);
        EXPECT_EQ(index.find(last.clone(), -1), index.at(0));
        EXPECT_EQ(index.findAll({last}).first(), index.at(0));
        EXPECT_EQ(index.searchLast(last, -1), index.indexOf(last));
    }
}

} // namespace
