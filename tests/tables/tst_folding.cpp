#include "support/tablemodel.h"

#include <set>
#include <string>

namespace
{

/// What a batch holds: "+inserted -removed ~live>changed [first..last]".
QString described(const RecordsTrans &batch)
{
    QStringList texts = rows(batch.insertList()).replaceInStrings(QRegExp("^"), "+");
    texts += rows(batch.removeList()).replaceInStrings(QRegExp("^"), "-");
    const QList<Record> live = batch.updateList();
    const QList<Record> changed = batch.changeList();
    for (int i = 0; i < live.size(); ++i)
        texts.append("~" + cells(live[i]) + ">" + cells(changed[i]));
    if (batch.first() <= batch.last())
        texts.append(QStringLiteral("[%1..%2]").arg(batch.first()).arg(batch.last()));
    return texts.join(", ");
}

} // namespace

class FoldingRules : public ::testing::TestWithParam<KeyKind>
{
};

TEST_P(FoldingRules, combineEveryTwoOperationsOnARow)
{
    KeyedTable table;
    table.setMasterIndex(newMaster(table, {"key"}, GetParam()));
    const Record live = appendTexts(table, {"1", "10", "20", "30"});
    struct Case {
        const char *prior;
        const char *inserted, *updated, *removed, *erased; // the batch after each
    };
    const Case cases[] = {
        {"none", "+1 101 NULL NULL", "~1 10 20 30>1 12 22 32, [2..3]", "-1 10 20 30",
         "-1 10 20 30"},
        {"inserted", "+1 101 NULL NULL", "+1 100 NULL NULL", "-1 100 NULL NULL", ""},
        {"removed", "+1 101 NULL NULL", "~1 10 20 30>1 12 22 32, [2..3]", "-1 10 20 30",
         "-1 10 20 30"},
        {"updated", "+1 101 NULL NULL, [1..1]", "~1 10 20 30>1 11 22 32, [1..3]",
         "-1 10 20 30, [1..1]", "-1 10 20 30, [1..1]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.prior);
        RecordsTrans inserted(&table), updated(&table), removed(&table), erased(&table);
        for (RecordsTrans *const batch : {&inserted, &updated, &removed, &erased}) {
            if (c.prior == QLatin1String("inserted"))
                batch->mergeInsertedRow(newRow(table, {"1", "100"}));
            if (c.prior == QLatin1String("removed"))
                batch->mergeRemovedRow(live);
            if (c.prior == QLatin1String("updated"))
                batch->mergeUpdatedRow(live, newRow(table, {"1", "11", "21", "31"}), 1, 1);
        }
        inserted.mergeInsertedRow(newRow(table, {"1", "101"}));
        EXPECT_EQ(described(inserted), c.inserted);
        updated.mergeUpdatedRow(live.clone(), newRow(table, {"1", "12", "22", "32"}), 2, -1);
        EXPECT_EQ(described(updated), c.updated);
        removed.mergeRemovedRow(live);
        EXPECT_EQ(described(removed), c.removed);
        RecordUpdater updater = erased.updateRow(live);
        for (int times = 0; times < 2; ++times) { // the second finds nothing, or a removal
            updater.remove();
            EXPECT_EQ(described(erased), c.erased);
        }
    }
    EXPECT_EQ(refCount(live), 2);
}

INSTANTIATE_TEST_SUITE_P(Keys, FoldingRules, ::testing::Values(AsBytes, ByValue, ByOwnOrder));

// Many enough to be sorted by digests, which go by the keys that came first.
TEST(BatchLists, areInTheOrderOfKeys)
{
    constexpr int kOdd = 17000; // a mixed entry whose key is unlike those before
    const auto codeOf = [](const std::string &order, int i, int n) {
        const int mixed = int(qint64(i) * 7919 % n); // each number once, in no order
        if (order == "rising" || (order == "rising at first" && i < n * 9 / 10))
            return i;
        return order == "falling" ? n - i : order == "rising at first" ? n + n - i : mixed;
    };
    for (const KeyKind kind : {AsBytes, ByValue}) {
        Table table(QStringLiteral("quotes"), QString());
        table.addColumn(QStringLiteral("board"), FieldType::VarChar, 6, kind == ByValue);
        table.addColumn(QStringLiteral("code"), FieldType::VarChar, 12, false);
        table.setMasterIndex(newMaster(table, {"board", "code"}, kind));
        for (const char *order : {"rising", "rising at first", "falling", "mixed"}) {
            for (const int n : {1, 500, 20000}) {
                SCOPED_TRACE(testing::Message() << order << ", " << n << ", kind " << kind);
                RecordsTrans batch(&table);
                std::set<const uchar *> entered;
                for (int i = 0; i < n; ++i) {
                    const bool isOdd = i == kOdd && order == std::string("mixed");
                    const int number = codeOf(order, i, n);
                    const QString board = QStringLiteral("BOARD%1").arg(number * 3 / n);
                    const QString code = QStringLiteral("%1%2")
                                             .arg(isOdd ? QChar(0x416) : QLatin1Char('O'))
                                             .arg(number, 6, 10, QLatin1Char('0'));
                    Record row = newRow(table, {qPrintable(board), qPrintable(code)});
                    if (isOdd && kind == ByValue)
                        row.data(0).setNull();
                    batch.insertRow(row);
                    entered.insert(row.row());
                    if (i % 100 == 0) {
                        ASSERT_EQ(batch.updateRow(row.clone()).record(), row); // the same key
                    }
                }
                const QList<Record> inserted = batch.insertList();
                std::set<const uchar *> listed;
                for (const Record &row : inserted)
                    listed.insert(row.row());
                EXPECT_EQ(inserted.size(), n);
                EXPECT_EQ(listed, entered);
                EXPECT_TRUE(std::is_sorted(inserted.begin(), inserted.end(),
                                           IndexSort::LessThan(table.masterIndex())));
            }
        }
    }
}

TEST(BatchKeys, areEqualByValueWhateverLiesBehindIt)
{
    Table table(QStringLiteral("quotes"), QString());
    table.addColumn(QStringLiteral("code"), FieldType::VarChar, 8);
    table.addColumn(QStringLiteral("number"), FieldType::Integer, 0);
    table.setMasterIndex(newMaster(table, {"code", "number"}, ByValue));
    RecordsTrans batch(&table);
    for (const auto &[code, number] : {std::pair("AB", "1"), {"AB", nullptr}, {nullptr, "1"}}) {
        const Record row = newRow(table, {code, number});
        const Record same = row.clone();
        same.data(0).bytes()[2 * 5] = 'x'; // behind the text, or in a cell without one
        same.data(1).bytes()[number ? 4 : 0] = 7;
        batch.insertRow(row);
        EXPECT_EQ(batch.updateRow(same).record(), row);
    }
    EXPECT_EQ(rows(batch.insertList()), (QStringList{"NULL 1", "AB NULL", "AB 1"}));
}
