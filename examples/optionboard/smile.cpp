#include "smile.h"

#include "textgrid.h"

#include <cmath>
#include <limits>

namespace
{

constexpr int kWidth = 48; // characters of the drawing

/// NaN where there is none.
double volatility(const Record &option)
{
    if (option.isNull() || option.data(OptionTable::kVolatility).isNull())
        return std::numeric_limits<double>::quiet_NaN();
    return option.data(OptionTable::kVolatility).value<double>();
}

QString percent(double value)
{
    return std::isnan(value) ? QStringLiteral("-") : QString::number(value, 'f', 1);
}

/// The volatilities from the left edge to the right one, in percent.
struct Scale {
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();

    bool isEmpty() const { return low > high; }
    void cover(double value)
    {
        if (std::isnan(value))
            return;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    int place(double value) const
    {
        const double span = high - low;
        return span > 0 ? int(std::lround((value - low) / span * (kWidth - 1))) : 0;
    }
};

void mark(QString &line, const Scale &scale, double value, QChar letter)
{
    if (std::isnan(value))
        return;
    const int at = scale.place(value);
    line[at] = line.at(at) == QLatin1Char(' ') ? letter : QLatin1Char('*');
}

} // namespace

void printSmile(QTextStream &out, const Chain &chain)
{
    Scale scale;
    for (const ChainRow &row : chain.rows) {
        scale.cover(volatility(row.call));
        scale.cover(volatility(row.put));
    }
    if (scale.isEmpty())
        return;
    out << "\nIts smile: implied volatility in percent from " << percent(scale.low) << " to "
        << percent(scale.high) << ", c call, p put, * both\n";
    TextGrid grid({TextGrid::Right, TextGrid::Left, TextGrid::Right, TextGrid::Right});
    grid.add({QStringLiteral("strike"), QString(), QStringLiteral("call"), QStringLiteral("put")});
    for (const ChainRow &row : chain.rows) {
        const double call = volatility(row.call);
        const double put = volatility(row.put);
        if (std::isnan(call) && std::isnan(put))
            continue;
        QString line(kWidth, QLatin1Char(' '));
        mark(line, scale, call, QLatin1Char('c'));
        mark(line, scale, put, QLatin1Char('p'));
        grid.add({grouped(row.strike.toExactString()), QStringLiteral("|%1|").arg(line),
                  percent(call), percent(put)});
    }
    grid.print(out);
}
