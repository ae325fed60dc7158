#pragma once

#include "feed.h"

#include <deque>
#include <random>

/// A market that is made up: stocks on a random walk, each with three expiries of calls and puts
/// around its price, whose prices follow it and whose volumes grow; strikes are listed and delisted
/// as prices move.
///
/// Computed in integers from a generator whose output the language defines, so that one seed gives
/// the same market everywhere.
class SimulatedFeed : public Feed
{
public:
    SimulatedFeed(int snapshots, quint64 seed);

    int count() const override { return m_count; }
    QString name(int i) const override; ///< the time of the snapshot, "09:20"
    Snapshot next() override;

private:
    /// What is remembered of an option.
    struct Option {
        qint64 last = 0; ///< hundredths; 0 while it never traded
        qint64 openInterest = 0;
        qint64 volume = 0;
    };
    struct Strike {
        qint64 price = 0; ///< hundredths
        Option call;
        Option put;
    };
    struct Series {
        datetime expiry;
        qint64 rootOfDays;          ///< the square root of the days to expiry, in hundredths
        std::deque<Strike> strikes; ///< ascending, one step apart
    };
    struct Stock {
        QString name;
        qint64 previousClose; ///< prices in hundredths
        qint64 last;
        qint64 high;
        qint64 low;
        qint64 step;     ///< between strikes
        qint64 lot;      ///< volumes are multiples of it
        qint64 activity; ///< trades at the money per snapshot, in percent
        std::vector<Series> series;
    };

    datetime timeOf(int i) const;
    qint64 below(qint64 bound);
    qint64 between(qint64 low, qint64 high) { return low + below(high - low + 1); }
    Stock makeStock(const QString &name);
    void move(Stock &stock);
    void listAndDelist(Stock &stock, Series &series);
    void trade(const Stock &stock, const Series &series, Strike &strike, Side side);
    static qint64 fairPrice(const Stock &stock, const Series &series, qint64 strike, Side side);

    const int m_count;
    int m_next = 0;
    std::mt19937_64 m_random;
    std::vector<Stock> m_stocks; // by name
};
