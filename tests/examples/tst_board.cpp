#include "board.h"
#include "simulatedfeed.h"

#include <database/masterindex_struct.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

const datetime kMorning(1772442000000); // 2026-03-02 09:00
const datetime kExpiry(1774483200000);  // 2026-03-26

Snapshot snapshotAt(int minute)
{
    Snapshot snapshot;
    snapshot.time = datetime(kMorning.toMSecsSinceEpoch() + minute * 60000);
    return snapshot;
}

void addStock(Snapshot &snapshot, const char *name, qint64 last)
{
    snapshot.underlyings.push_back(
        {QLatin1String(name), price(last), price(last), price(last), decimal::fromParts(0, 3)});
}

/// An option of the stock added last; a last price of 0 stands for one that never traded.
void addOption(Snapshot &snapshot, qint64 strike, Side side, qint64 last, qint64 openInterest,
               qint64 volume)
{
    snapshot.options.push_back({int(snapshot.underlyings.size()) - 1, kExpiry, price(strike), side,
                                last ? std::make_optional(price(last)) : std::nullopt, openInterest,
                                volume});
}

/// The rows of a table as its key order has them, each as the texts of the given columns.
std::vector<std::string> rows(const Table &table, const QList<int> &columns)
{
    std::vector<std::string> texts;
    for (const Record &record : *table.masterIndex()) {
        QStringList cells;
        for (const int column : columns)
            cells.append(record.data(column).isNull() ? QStringLiteral("NULL")
                                                      : record.data(column).toString());
        texts.push_back(cells.join(QLatin1Char(' ')).toStdString());
    }
    return texts;
}

using Rows = std::vector<std::string>;

class BoardReplay : public ::testing::Test
{
protected:
    BoardReplay()
    {
        Snapshot open = snapshotAt(0);
        addStock(open, "ASH", 1000);
        addOption(open, 900, Side::Call, 150, 10, 100);
        addOption(open, 900, Side::Put, 0, 20, 0);
        addStock(open, "OAK", 5000);
        addOption(open, 5000, Side::Call, 200, 30, 300);
        addOption(open, 5000, Side::Put, 210, 40, 400);
        counts = board.apply(open);
    }

    Rows options() const
    {
        return rows(board.options(),
                    {OptionTable::kStock, OptionTable::kStrike, OptionTable::kSide,
                     OptionTable::kLast, OptionTable::kOpenInterest, OptionTable::kVolume,
                     OptionTable::kOpen, OptionTable::kChange});
    }
    std::string timeOf(int row) const
    {
        return board.options().data(row, OptionTable::kTime).toString().mid(11, 5).toStdString();
    }

    Board board;
    SnapshotCounts counts;
};

TEST_F(BoardReplay, insertsTheFirstSnapshotWithoutTrades)
{
    EXPECT_EQ(counts.options.inserted, 4);
    EXPECT_EQ(counts.underlyings.inserted, 2);
    EXPECT_EQ(counts.redraws, 4);
    EXPECT_EQ(counts.trades, 0);
    EXPECT_EQ(options(),
              (Rows{"ASH 9.00 C 1.50 10 100 1.50 0.00", "ASH 9.00 P NULL 20 0 NULL NULL",
                    "OAK 50.00 C 2.00 30 300 2.00 0.00", "OAK 50.00 P 2.10 40 400 2.10 0.00"}));
}

TEST_F(BoardReplay, leavesRowsWithoutChangesOutOfTheBatch)
{
    Snapshot same = snapshotAt(5);
    addStock(same, "ASH", 1000);
    addOption(same, 900, Side::Call, 150, 10, 100);
    addOption(same, 900, Side::Put, 0, 20, 0);
    addStock(same, "OAK", 5000);
    addOption(same, 5000, Side::Call, 200, 30, 300);
    addOption(same, 5000, Side::Put, 210, 41, 400);
    counts = board.apply(same);
    EXPECT_EQ(counts.options.updated, 1);
    EXPECT_EQ(counts.underlyings.updated, 0);
    EXPECT_EQ(counts.redraws, 1);
    EXPECT_EQ(timeOf(2), "09:00");
    EXPECT_EQ(timeOf(3), "09:05");
}

TEST_F(BoardReplay, insertsUpdatesAndRemovesInOneBatch)
{
    const Record held = board.options().at(1);
    Snapshot next = snapshotAt(5);
    addStock(next, "ASH", 1010);
    addOption(next, 900, Side::Put, 5, 20, 50);    // trades for the first time
    addOption(next, 950, Side::Call, 70, 1, 1000); // is listed
    addStock(next, "OAK", 5000);
    addOption(next, 5000, Side::Call, 150, 30, 250);
    addOption(next, 5000, Side::Put, 210, 40, 400);
    counts = board.apply(next);

    EXPECT_EQ(counts.options.inserted, 1);
    EXPECT_EQ(counts.options.updated, 2);
    EXPECT_EQ(counts.options.removed, 1);
    EXPECT_EQ(counts.underlyings.updated, 1);
    EXPECT_EQ(counts.redraws, 4);
    EXPECT_EQ(options(),
              (Rows{"ASH 9.00 P 0.05 20 50 0.05 0.00", "ASH 9.50 C 0.70 1 1000 0.70 0.00",
                    "OAK 50.00 C 1.50 30 250 2.00 -0.50", "OAK 50.00 P 2.10 40 400 2.10 0.00"}));
    EXPECT_EQ(board.options().at(0), held) << "an updated row stays the same row";
    // Neither what a new option had traded before nor a smaller volume is a trade.
    EXPECT_EQ(rows(board.trades(),
                   {TradeTable::kNumber, TradeTable::kTime, TradeTable::kStock, TradeTable::kStrike,
                    TradeTable::kSide, TradeTable::kLast, TradeTable::kQuantity}),
              (Rows{"1 2026.03.02 09:05:00.000 ASH 9.00 P 0.05 50"}));
}

TEST_F(BoardReplay, emptiesItselfForAnEmptySnapshot)
{
    counts = board.apply(snapshotAt(5));
    EXPECT_EQ(counts.options.removed, 4);
    for (const Board::NamedIndex &named : board.indexes()) {
        if (const auto *list = dynamic_cast<const IndexList *>(named.index)) {
            EXPECT_EQ(list->count(), 0) << named.name;
        }
    }
}

/// All options, stably sorted by one column in key order.
std::vector<Record> sortedNaively(const OptionTable &options,
                                  const std::function<bool(const Record &, const Record &)> &less)
{
    const MasterIndex &rows = *options.masterIndex();
    std::vector<Record> records(rows.begin(), rows.end());
    std::stable_sort(records.begin(), records.end(), less);
    return records;
}

std::vector<Record> recordsOf(const ColumnIndex &index)
{
    return {index.begin(), index.end()};
}

template<class T>
T cell(const Record &record, int column)
{
    return record.data(column).value<T>();
}

TEST(BoardIndexes, standLikeNaiveSortsAfterEveryBatchOfAMarket)
{
    Board board;
    SimulatedFeed feed(12, 7);
    for (int i = 0; i < feed.count(); ++i) {
        const Snapshot snapshot = feed.next();
        board.apply(snapshot);
        ASSERT_EQ(size_t(board.options().rowCount()), snapshot.options.size());
        EXPECT_EQ(recordsOf(board.byVolume()),
                  sortedNaively(board.options(), [](const Record &a, const Record &b) {
                      return cell<qint64>(a, OptionTable::kVolume) >
                             cell<qint64>(b, OptionTable::kVolume);
                  }));
        EXPECT_EQ(recordsOf(board.byChange()),
                  sortedNaively(board.options(), [](const Record &a, const Record &b) {
                      const bool nullA = a.data(OptionTable::kChange).isNull();
                      const bool nullB = b.data(OptionTable::kChange).isNull();
                      if (nullA || nullB)
                          return nullA < nullB;
                      return cell<decimal>(a, OptionTable::kChange) >
                             cell<decimal>(b, OptionTable::kChange);
                  }));
        EXPECT_EQ(recordsOf(board.byStrike()),
                  sortedNaively(board.options(), [](const Record &a, const Record &b) {
                      const auto stockA = cell<QString>(a, OptionTable::kStock);
                      const auto stockB = cell<QString>(b, OptionTable::kStock);
                      return stockA != stockB ? stockA < stockB
                                              : cell<decimal>(a, OptionTable::kStrike) <
                                                    cell<decimal>(b, OptionTable::kStrike);
                  }));
    }
}

TEST(BoardTrades, keepTheLatestAlsoWhenOneSnapshotBringsMoreThanTheLimit)
{
    const int count = 2 * Board::kTradeLimit + 345;
    Board board;
    for (int minute = 0; minute < 2; ++minute) {
        Snapshot snapshot = snapshotAt(minute);
        addStock(snapshot, "ASH", 1000);
        for (int strike = 1; strike <= count; ++strike)
            addOption(snapshot, strike, Side::Call, 5, 0, minute);
        EXPECT_EQ(board.apply(snapshot).trades, minute * count);
    }
    ASSERT_EQ(board.trades().rowCount(), Board::kTradeLimit);
    ASSERT_EQ(board.latestTrades().count(), Board::kTradeLimit);
    EXPECT_EQ(cell<qint64>(board.latestTrades().at(0), TradeTable::kNumber),
              count - Board::kTradeLimit + 1);
    EXPECT_EQ(cell<qint64>(board.latestTrades().at(Board::kTradeLimit - 1), TradeTable::kNumber),
              count);
}

} // namespace
