#include "board.h"

#include "cellwriter.h"

#include <database/masterindex_struct.h>

#include <QtCore/qset.h>

namespace
{

/// Brings a table to a list of quotes by walking both once; the list is in the table's key order.
/// \param setKey     setKey(key, quote) puts a quote's key into a scratch row; cells that it leaves
///                   alone keep the values of the quote before
/// \param setValues  setValues(writer, quote) writes the other cells
template<class Quote, class SetKey, class SetValues>
RowCounts bringTo(Table &table, const std::vector<Quote> &quotes, SetKey setKey,
                  SetValues setValues)
{
    const TableUpdate bracket(table);
    const MasterIndex &rows = *table.masterIndex();
    RecordsTrans batch(&table);
    RowCounts counts;
    const auto remove = [&](const Record &vanished) {
        batch.removeRow(vanished);
        ++counts.removed;
    };

    Record key(&table);
    auto live = rows.begin();
    const auto end = rows.end();
    for (const Quote &quote : quotes) {
        setKey(key, quote);
        int order = 1;
        while (live != end && (order = rows.compare(*live, key)) < 0)
            remove(*live++);
        if (live != end && order == 0) {
            CellWriter writer = CellWriter::update(batch, *live++);
            setValues(writer, quote);
            counts.updated += writer.isEntered();
        } else {
            CellWriter writer = CellWriter::insertion(batch, key.clone());
            setValues(writer, quote);
            ++counts.inserted;
        }
    }
    while (live != end)
        remove(*live++);
    batch.execute();
    return counts;
}

QString letter(Side side)
{
    return QString(QLatin1Char(char(side)));
}

constexpr auto kDescending = SortColumn::Descending;

} // namespace

// The orders end with the key of the options: no two rows are equal.
Board::Board()
    : m_stockJoin(&m_options)
    , m_byVolume(&m_options, {{OptionTable::kVolume, kDescending},
                              {OptionTable::kStock},
                              {OptionTable::kExpiry},
                              {OptionTable::kStrike},
                              {OptionTable::kSide}})
    , m_byChange(&m_options, {{OptionTable::kChange, kDescending},
                              {OptionTable::kStock},
                              {OptionTable::kExpiry},
                              {OptionTable::kStrike},
                              {OptionTable::kSide}})
    , m_byStrike(&m_options, {{OptionTable::kStock},
                              {OptionTable::kStrike},
                              {OptionTable::kExpiry},
                              {OptionTable::kSide}})
    , m_byStockChange(&m_options, {{OptionTable::kStockChange, kDescending},
                                   {OptionTable::kStock},
                                   {OptionTable::kExpiry},
                                   {OptionTable::kStrike},
                                   {OptionTable::kSide}})
    , m_watch(&m_options)
    , m_latestTrades(kTradeLimit, &m_trades)
{
    m_stockJoin.addTable(&m_underlyings, {QStringLiteral("Stock")},
                         {{QStringLiteral("Last"), QStringLiteral("StockLast")},
                          {QStringLiteral("ChangePercent"), QStringLiteral("StockChange")}});
}

std::vector<Board::NamedIndex> Board::indexes() const
{
    return {{&m_underlyings, "key", m_underlyings.masterIndex()},
            {&m_options, "key", m_options.masterIndex()},
            {&m_options, "volume", &m_byVolume},
            {&m_options, "change", &m_byChange},
            {&m_options, "strike", &m_byStrike},
            {&m_options, "mover", &m_byStockChange},
            {&m_options, "join", &m_stockJoin},
            {&m_options, "watch", &m_watch},
            {&m_trades, "key", m_trades.masterIndex()},
            {&m_trades, "limit", &m_latestTrades}};
}

SnapshotCounts Board::apply(const Snapshot &snapshot)
{
    SnapshotCounts counts;
    counts.underlyings = applyUnderlyings(snapshot);
    counts.options = applyOptions(snapshot);
    counts.trades = enterTrades(snapshot.time);
    // An option may have changed by itself and with its stock.
    QSet<Record> redraws;
    for (const auto *rows : {&m_watch.added(), &m_watch.updated(), &m_watch.removed()}) {
        for (const Record &row : *rows)
            redraws.insert(row);
    }
    counts.redraws = redraws.size();
    m_watch.clear();
    return counts;
}

RowCounts Board::applyUnderlyings(const Snapshot &snapshot)
{
    return bringTo(
        m_underlyings, snapshot.underlyings,
        [](Record &key, const UnderlyingQuote &quote) {
            key.data(UnderlyingTable::kStock).setValue(quote.stock);
        },
        [&](CellWriter &row, const UnderlyingQuote &quote) {
            row.set(UnderlyingTable::kLast, quote.last);
            row.set(UnderlyingTable::kHigh, quote.high);
            row.set(UnderlyingTable::kLow, quote.low);
            row.set(UnderlyingTable::kChangePercent, quote.changePercent);
            if (row.isEntered())
                row.set(UnderlyingTable::kTime, snapshot.time);
        });
}

RowCounts Board::applyOptions(const Snapshot &snapshot)
{
    int underlying = -1; // whose name the scratch key holds
    return bringTo(
        m_options, snapshot.options,
        [&](Record &key, const OptionQuote &quote) {
            if (quote.underlying != underlying) {
                underlying = quote.underlying;
                const QString &stock = snapshot.underlyings[size_t(underlying)].stock;
                key.data(OptionTable::kStock).setValue(stock);
            }
            key.data(OptionTable::kExpiry).setValue(quote.expiry);
            key.data(OptionTable::kStrike).setValue(quote.strike);
            key.data(OptionTable::kSide).setValue(letter(quote.side));
        },
        [&](CellWriter &row, const OptionQuote &quote) { writeOption(row, quote, snapshot.time); });
}

void Board::writeOption(CellWriter &row, const OptionQuote &quote, datetime time)
{
    if (!row.inserts()) {
        // A smaller volume is a correction by the exchange, no trade. What an option had traded
        // before it came to the board cannot be dated.
        const auto before = row.row().data(OptionTable::kVolume).value<qint64>();
        if (quote.volume > before)
            m_newTrades.push_back({row.row(), quote.volume - before});
    }
    row.set(OptionTable::kLast, quote.last);
    row.set(OptionTable::kOpenInterest, quote.openInterest);
    row.set(OptionTable::kVolume, quote.volume);
    if (quote.last) {
        const Field seen = row.row().data(OptionTable::kOpen);
        const decimal open = seen.isNull() ? *quote.last : seen.value<decimal>();
        row.set(OptionTable::kOpen, open);
        row.set(OptionTable::kChange, difference(*quote.last, open));
    } else {
        row.set(OptionTable::kChange, std::optional<decimal>());
    }
    if (row.isEntered())
        row.set(OptionTable::kTime, time);
}

// The trades of one snapshot, in key order of the options that traded; returns their number.
int Board::enterTrades(datetime time)
{
    const TableUpdate bracket(m_trades);
    RecordsTrans batch(&m_trades);
    int inBatch = 0;
    for (const Trade &trade : m_newTrades) {
        Record row(&m_trades);
        row.data(TradeTable::kNumber).setValue(++m_lastTrade);
        CellWriter writer = CellWriter::insertion(batch, row);
        const auto &option = trade.option;
        writer.set(TradeTable::kTime, time);
        writer.set(TradeTable::kStock, option.data(OptionTable::kStock).value<QString>());
        writer.set(TradeTable::kExpiry, option.data(OptionTable::kExpiry).value<datetime>());
        writer.set(TradeTable::kStrike, option.data(OptionTable::kStrike).value<decimal>());
        writer.set(TradeTable::kSide, option.data(OptionTable::kSide).value<QString>());
        const Field last = option.data(OptionTable::kLast);
        if (!last.isNull())
            writer.set(TradeTable::kLast, last.value<decimal>());
        writer.set(TradeTable::kQuantity, trade.quantity);
        // The limit index makes room by removing rows of the table; it cannot hold back rows of the
        // batch itself, so no batch may bring more than the limit.
        if (++inBatch == kTradeLimit) {
            batch.execute();
            inBatch = 0;
        }
    }
    batch.execute();
    const int entered = int(m_newTrades.size());
    m_newTrades.clear();
    return entered;
}

int Board::enterModel(const std::vector<Record> &options,
                      const std::vector<std::optional<ModelValues>> &values)
{
    const TableUpdate bracket(m_options);
    RecordsTrans batch(&m_options);
    int changed = 0;
    for (size_t i = 0; i < options.size(); ++i) {
        CellWriter row = CellWriter::update(batch, options[i]);
        const auto set = [&](int column, double ModelValues::*value) {
            row.set(column, values[i] ? std::make_optional((*values[i]).*value) : std::nullopt);
        };
        set(OptionTable::kVolatility, &ModelValues::volatility);
        set(OptionTable::kDelta, &ModelValues::delta);
        set(OptionTable::kGamma, &ModelValues::gamma);
        set(OptionTable::kVega, &ModelValues::vega);
        set(OptionTable::kTheta, &ModelValues::theta);
        changed += row.isEntered();
    }
    batch.execute();
    m_watch.clear(); // whoever draws greeks knows what changed; the quotes did not
    return changed;
}
