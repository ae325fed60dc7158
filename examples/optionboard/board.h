#pragma once

#include "feed.h"
#include "indexes.h"
#include "tables.h"

#include <database/indexes/watchindex.h>
#include <database/joins/tablejoinmain.h>

#include <optional>
#include <vector>

class CellWriter;

/// What a batch did to a table.
struct RowCounts {
    int inserted = 0;
    int updated = 0;
    int removed = 0;
};

/// What a snapshot did to the board.
struct SnapshotCounts {
    RowCounts underlyings;
    RowCounts options;
    int trades = 0;  ///< entered, also when the limit took them out again
    int redraws = 0; ///< options that a view would have to paint again, or to drop
};

/// What the pricing model says of an option, in the units of OptionTable's columns.
struct ModelValues {
    double volatility;
    double delta;
    double gamma;
    double vega;
    double theta;
};

/// The market in tables, kept current by one batch per snapshot, and the indexes over it.
///
/// Always true between two calls: the stocks and options are those of the latest snapshot; the
/// trades are the latest, kTradeLimit at most.
class Board
{
public:
    static constexpr int kTradeLimit = 1000;

    /// An index of one of the tables, under the name that a user knows it by.
    struct NamedIndex {
        const Table *table;
        const char *name; ///< "key" for the order that every table has
        const Index *index;
    };

    Board();

    /// Brings the tables to a snapshot: enters what is new, changes the cells that differ, takes
    /// out what vanished. Costs one walk over the rows, and one batch per table.
    SnapshotCounts apply(const Snapshot &snapshot);

    /// Enters what the model says of some rows of the options, as one batch; without a value their
    /// cells become NULL. \return how many rows that changed
    int enterModel(const std::vector<Record> &options,
                   const std::vector<std::optional<ModelValues>> &values);

    const UnderlyingTable &underlyings() const { return m_underlyings; }
    const OptionTable &options() const { return m_options; }
    const TradeTable &trades() const { return m_trades; }
    const ColumnIndex &byVolume() const { return m_byVolume; } ///< highest first
    const ColumnIndex &byChange() const { return m_byChange; } ///< highest first
    const ColumnIndex &byStrike() const { return m_byStrike; } ///< stock, strike, expiry, side
    const ColumnIndex &byStockChange() const { return m_byStockChange; } ///< highest first
    const LatestTrades &latestTrades() const { return m_latestTrades; }

    std::vector<const Table *> tables() const { return {&m_underlyings, &m_options, &m_trades}; }
    /// Every index of the board, the tables' own ones first.
    std::vector<NamedIndex> indexes() const;

private:
    struct Trade {
        Record option;
        qint64 quantity;
    };

    RowCounts applyUnderlyings(const Snapshot &snapshot);
    RowCounts applyOptions(const Snapshot &snapshot);
    void writeOption(CellWriter &row, const OptionQuote &quote, datetime time);
    int enterTrades(datetime time);

    UnderlyingTable m_underlyings;
    OptionTable m_options;
    TradeTable m_trades;
    // Declared behind the tables: a join and an index leave their tables before those go.
    TableJoinMain m_stockJoin; // the stock's price and change in every option
    ColumnIndex m_byVolume;
    ColumnIndex m_byChange;
    ColumnIndex m_byStrike;
    ColumnIndex m_byStockChange;
    WatchIndex m_watch;
    LatestTrades m_latestTrades;
    std::vector<Trade> m_newTrades; // of the snapshot that is being applied
    qint64 m_lastTrade = 0;         // number of the trade entered last
};
