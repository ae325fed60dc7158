#include "simulatedfeed.h"

#include <algorithm>
#include <array>

namespace
{

constexpr std::array<const char *, 40> kNames = {
    "AGATE",  "ALDER",  "AMBER",  "ASPEN",  "BASALT",  "BEECH",  "BERYL",   "BIRCH",
    "CEDAR",  "COBALT", "COPPER", "CORAL",  "CYPRESS", "ELM",    "FLINT",   "GARNET",
    "GNEISS", "HAZEL",  "HOLLY",  "IRON",   "JADE",    "JASPER", "JUNIPER", "LARCH",
    "LAUREL", "LINDEN", "MAPLE",  "MARBLE", "MICA",    "NICKEL", "OAK",     "ONYX",
    "OPAL",   "PINE",   "QUARTZ", "ROWAN",  "SLATE",   "SPRUCE", "TOPAZ",   "ZINC"};

constexpr qint64 kTick = 5;        // hundredths; all prices of options are multiples
constexpr int kStrikesAtOpen = 21; // per expiry
constexpr qint64 kMinute = 60'000; // milliseconds
constexpr qint64 kDay = 1440 * kMinute;
constexpr qint64 kOpen = 20514 * kDay + (9 * 60 + 15) * kMinute; // 2026-03-02 09:15
constexpr qint64 kPeriod = 5 * kMinute;                          // between snapshots

struct Expiry {
    qint64 days;
    qint64 root; // of the days, in hundredths
};
constexpr std::array<Expiry, 3> kExpiries = {{{24, 490}, {52, 721}, {87, 933}}};

qint64 toTick(qint64 hundredths)
{
    return std::max((hundredths + kTick / 2) / kTick * kTick, kTick);
}

// About a fortieth of the price, as a round number.
qint64 strikeStep(qint64 hundredths)
{
    for (const qint64 step : {100, 250, 500, 1000, 2000, 2500, 5000, 10000}) {
        if (hundredths < step * 40)
            return step;
    }
    return 20000;
}

} // namespace

SimulatedFeed::SimulatedFeed(int snapshots, quint64 seed)
    : m_count(snapshots)
    , m_random(seed)
{
    m_stocks.reserve(kNames.size());
    for (const char *name : kNames)
        m_stocks.push_back(makeStock(QLatin1String(name)));
}

datetime SimulatedFeed::timeOf(int i) const
{
    return datetime(kOpen + i * kPeriod);
}

QString SimulatedFeed::name(int i) const
{
    return timeOf(i).toString().mid(11, 5);
}

// The remainder's bias is below 1e-12 for the bounds used here.
qint64 SimulatedFeed::below(qint64 bound)
{
    return qint64(m_random() % quint64(bound));
}

SimulatedFeed::Stock SimulatedFeed::makeStock(const QString &name)
{
    Stock stock{};
    stock.name = name;
    // As many stocks between 100 and 1000 as between 1000 and 10000. Every draw is a statement of
    // its own: within an expression the order would be the compiler's.
    stock.last = between(100'00, 1000'00);
    if (below(2) == 0)
        stock.last *= 10;
    stock.previousClose = stock.last * between(980, 1020) / 1000;
    stock.high = stock.low = stock.last;
    stock.step = strikeStep(stock.last);
    stock.lot = between(1, 40) * 25;
    stock.activity = between(20, 90);
    const qint64 lowest = stock.last / stock.step * stock.step - kStrikesAtOpen / 2 * stock.step;
    for (const Expiry &expiry : kExpiries) {
        Series series{datetime(kOpen - kOpen % kDay + expiry.days * kDay), expiry.root, {}};
        for (int i = 0; i < kStrikesAtOpen; ++i)
            series.strikes.push_back({lowest + i * stock.step, {}, {}});
        stock.series.push_back(std::move(series));
    }
    return stock;
}

// Up to 0.45 percent in either direction, small moves more often than large ones.
void SimulatedFeed::move(Stock &stock)
{
    const qint64 move = between(-15, 15) + between(-15, 15) + between(-15, 15);
    stock.last = std::max(toTick(stock.last + stock.last * move / 10'000), stock.step);
    stock.high = std::max(stock.high, stock.last);
    stock.low = std::min(stock.low, stock.last);
}

// Now and then one more strike at either end, or one less; the price stays among them.
void SimulatedFeed::listAndDelist(Stock &stock, Series &series)
{
    auto &strikes = series.strikes;
    const bool top = below(2) == 0;
    switch (below(16)) {
    case 0:
        if (top)
            strikes.push_back({strikes.back().price + stock.step, {}, {}});
        else if (strikes.front().price > stock.step)
            strikes.push_front({strikes.front().price - stock.step, {}, {}});
        break;
    case 1:
        if (top && strikes.back().price > stock.last + 8 * stock.step)
            strikes.pop_back();
        else if (!top && strikes.front().price < stock.last - 8 * stock.step)
            strikes.pop_front();
        break;
    default:
        break;
    }
}

// What exercise would give now, and a time value that grows with the root of the time, is largest
// at the money and falls off with the square of the distance from it.
qint64 SimulatedFeed::fairPrice(const Stock &stock, const Series &series, qint64 strike, Side side)
{
    const qint64 gain = side == Side::Call ? stock.last - strike : strike - stock.last;
    const qint64 atMoney = stock.last * series.rootOfDays / 100 * 6 / 1000;
    const qint64 timeValue = atMoney * (atMoney * atMoney) / (atMoney * atMoney + gain * gain + 1);
    return toTick(std::max<qint64>(gain, 0) + timeValue);
}

// Options near the money and of the first expiry trade most.
void SimulatedFeed::trade(const Stock &stock, const Series &series, Strike &strike, Side side)
{
    Option &option = side == Side::Call ? strike.call : strike.put;
    const qint64 steps = std::abs(strike.price - stock.last) / stock.step;
    const qint64 chance = stock.activity * 490 / series.rootOfDays / (1 + steps / 2);
    if (below(100) >= chance)
        return;
    const qint64 lots = between(1, 20) * (1 + chance / 10);
    const qint64 fair = fairPrice(stock, series, strike.price, side);
    option.last = toTick(fair + fair * between(-10, 10) / 1000);
    option.volume += lots * stock.lot;
    option.openInterest =
        std::max<qint64>(option.openInterest + between(-lots / 2, lots) * stock.lot, 0);
}

Snapshot SimulatedFeed::next()
{
    Snapshot snapshot;
    snapshot.time = timeOf(m_next);
    for (Stock &stock : m_stocks) {
        if (m_next > 0)
            move(stock);
        const qint64 change = stock.last - stock.previousClose;
        snapshot.underlyings.push_back(
            {stock.name, price(stock.last), price(stock.high), price(stock.low),
             decimal::fromParts(change * 100'000 / stock.previousClose, kPercentScale)});
        const int underlying = int(snapshot.underlyings.size()) - 1;
        for (Series &series : stock.series) {
            if (m_next > 0)
                listAndDelist(stock, series);
            for (Strike &strike : series.strikes) {
                for (const Side side : {Side::Call, Side::Put}) {
                    trade(stock, series, strike, side);
                    const Option &option = side == Side::Call ? strike.call : strike.put;
                    snapshot.options.push_back(
                        {underlying, series.expiry, price(strike.price), side,
                         option.last ? std::make_optional(price(option.last)) : std::nullopt,
                         option.openInterest, option.volume});
                }
            }
        }
    }
    ++m_next;
    return snapshot;
}
