#include "chain.h"

#include <database/masterindex_struct.h>

namespace
{

constexpr qint64 kDay = 86'400'000; // milliseconds

qint64 distance(const decimal &a, const decimal &b)
{
    return std::abs(difference(a, b).mantissa());
}

/// Steps along the index by strike from one listed strike of a stock and an expiry to the next.
class StrikeWalk
{
public:
    StrikeWalk(const Board &board, const QString &stock, datetime expiry, int position, int step)
        : m_index(board.byStrike())
        , m_stock(stock)
        , m_expiry(expiry)
        , m_position(position)
        , m_step(step)
    {
        settle();
    }

    bool atEnd() const { return m_record.isNull(); }
    decimal strike() const { return m_record.data(OptionTable::kStrike).value<decimal>(); }

    /// Gives both sides of the strike, which stand next to each other, and goes to the next one.
    ChainRow take()
    {
        ChainRow row{strike(), {}, {}};
        while (!atEnd() && strike() == row.strike) {
            const bool isCall =
                m_record.data(OptionTable::kSide).toChar() == QLatin1Char(char(Side::Call));
            (isCall ? row.call : row.put) = m_record;
            m_position += m_step;
            settle();
        }
        return row;
    }

private:
    // Goes on to the next row of the expiry; the record is null where the stock ends.
    void settle()
    {
        for (;; m_position += m_step) {
            m_record = m_position < 0 ? Record() : m_index.at(m_position);
            if (atEnd())
                return;
            if (m_record.data(OptionTable::kStock).asStaticString() != m_stock) {
                m_record = Record();
                return;
            }
            if (m_record.data(OptionTable::kExpiry).value<datetime>() == m_expiry)
                return;
        }
    }

    const ColumnIndex &m_index;
    const QString &m_stock;
    const datetime m_expiry;
    int m_position;
    const int m_step;
    Record m_record;
};

} // namespace

Chain chainAroundMoney(const Board &board, const QString &stock, datetime now, int strikes)
{
    Chain chain;
    Record name(&board.underlyings());
    name.data(UnderlyingTable::kStock).setValue(stock);
    chain.underlying = board.underlyings().masterIndex()->find(name, -1);
    if (chain.underlying.isNull())
        return chain;
    const auto last = chain.underlying.data(UnderlyingTable::kLast).value<decimal>();

    // A key that stands before every option of the stock which expires today or later.
    Record key(&board.options());
    const qint64 msecs = now.toMSecsSinceEpoch();
    key.data(OptionTable::kStock).setValue(stock);
    key.data(OptionTable::kExpiry).setValue(datetime(msecs - msecs % kDay));
    const MasterIndex &rows = *board.options().masterIndex();
    const Record &nearest = rows.at(rows.indexOfAdd(key));
    if (nearest.isNull() || nearest.data(OptionTable::kStock).asStaticString() != stock)
        return chain;
    chain.expiry = nearest.data(OptionTable::kExpiry).value<datetime>();

    // With no expiry it stands before every option of its strike.
    key.data(OptionTable::kStrike).setValue(last);
    key.data(OptionTable::kExpiry).setValue(datetime());
    const int atMoney = board.byStrike().indexOfAdd(key);
    StrikeWalk below(board, stock, chain.expiry, atMoney - 1, -1);
    StrikeWalk above(board, stock, chain.expiry, atMoney, 1);
    for (int i = 0; i < strikes && !(below.atEnd() && above.atEnd()); ++i) {
        const bool takeBelow =
            above.atEnd() ||
            (!below.atEnd() && distance(last, below.strike()) <= distance(above.strike(), last));
        if (takeBelow)
            chain.rows.insert(chain.rows.begin(), below.take());
        else
            chain.rows.push_back(above.take());
    }
    return chain;
}

QString busiestStock(const Board &board)
{
    // The rows of a stock follow each other in the order of the key.
    QString busiest, stock;
    qint64 highest = -1, volume = -1;
    const auto settle = [&] {
        if (volume > highest) {
            highest = volume;
            busiest = stock;
        }
    };
    for (const Record &option : *board.options().masterIndex()) {
        const Field name = option.data(OptionTable::kStock);
        if (name.asStaticString() != stock) {
            settle();
            stock = name.value<QString>();
            volume = 0;
        }
        volume += option.data(OptionTable::kVolume).value<qint64>();
    }
    settle();
    return busiest;
}
