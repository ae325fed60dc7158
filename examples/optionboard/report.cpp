#include "report.h"

#include "chain.h"
#include "smile.h"
#include "textgrid.h"

#include <database/masterindex_struct.h>

#include <functional>

namespace
{

constexpr int kChainStrikes = 11;
constexpr int kSmileStrikes = 25;
constexpr int kMovers = 3;

const QString kNothing = QStringLiteral("-");
const QString kBar = QStringLiteral("|");

/// The cell as a user reads it: numbers grouped, of dates only the day, NULL as a dash.
QString cellText(const Record &record, int column)
{
    if (record.isNull())
        return {};
    const Field field = record.data(column);
    if (field.isNull())
        return kNothing;
    switch (field.column()->type) {
    case FieldType::Decimal:
        return grouped(field.value<decimal>().toExactString());
    case FieldType::Integer64:
        return grouped(field.value<qint64>());
    case FieldType::DateTime:
        return field.value<datetime>().toString().left(10);
    default:
        return field.toString();
    }
}

/// The same with a plus sign before what is above zero.
QString changeText(const Record &record, int column)
{
    QString text = cellText(record, column);
    if (record.isNull() || record.data(column).isNull())
        return text;
    if (record.data(column).value<decimal>() > decimal())
        text.prepend(QLatin1Char('+'));
    return text;
}

/// A Double cell with some decimals, NULL as a dash.
QString fixedText(const Record &record, int column, int decimals)
{
    const Field field = record.data(column);
    return field.isNull() ? kNothing : QString::number(field.value<double>(), 'f', decimals);
}

/// How far the option is in the money, in percent of the strike; below zero it is out of it.
QString moneynessText(const Record &option)
{
    const Field stock = option.data(OptionTable::kStockLast);
    const double strike = option.data(OptionTable::kStrike).value<decimal>().toDouble();
    if (stock.isNull() || strike <= 0)
        return kNothing;
    const double call = (stock.value<decimal>().toDouble() / strike - 1) * 100;
    const bool isPut = option.data(OptionTable::kSide).toChar() == QLatin1Char(char(Side::Put));
    return QString::number(isPut ? -call : call, 'f', 1);
}

QString sideText(const Record &option)
{
    return option.data(OptionTable::kSide).toChar() == QLatin1Char(char(Side::Call))
               ? QStringLiteral("call")
               : QStringLiteral("put");
}

/// A column of the options listed, by the name that settings have for it.
struct OptionColumn {
    const char *heading;
    TextGrid::Alignment alignment;
    std::function<QString(const Record &option)> text;
};

const std::map<QString, OptionColumn> &optionColumns()
{
    using Table = OptionTable;
    const auto cell = [](int column) {
        return [=](const Record &option) { return cellText(option, column); };
    };
    const auto fixed = [](int column, int decimals) {
        return [=](const Record &option) { return fixedText(option, column, decimals); };
    };
    static const std::map<QString, OptionColumn> columns = {
        {QStringLiteral("stock"), {"stock", TextGrid::Left, cell(Table::kStock)}},
        {QStringLiteral("expiry"), {"expiry", TextGrid::Left, cell(Table::kExpiry)}},
        {QStringLiteral("strike"), {"strike", TextGrid::Right, cell(Table::kStrike)}},
        {QStringLiteral("side"), {"", TextGrid::Left, sideText}},
        {QStringLiteral("last"), {"last", TextGrid::Right, cell(Table::kLast)}},
        {QStringLiteral("change"),
         {"change", TextGrid::Right,
          [](const Record &option) { return changeText(option, Table::kChange); }}},
        {QStringLiteral("volume"), {"volume", TextGrid::Right, cell(Table::kVolume)}},
        {QStringLiteral("interest"),
         {"open interest", TextGrid::Right, cell(Table::kOpenInterest)}},
        {QStringLiteral("volatility"), {"IV %", TextGrid::Right, fixed(Table::kVolatility, 1)}},
        {QStringLiteral("delta"), {"delta", TextGrid::Right, fixed(Table::kDelta, 3)}},
        {QStringLiteral("gamma"), {"gamma", TextGrid::Right, fixed(Table::kGamma, 4)}},
        {QStringLiteral("vega"), {"vega", TextGrid::Right, fixed(Table::kVega, 3)}},
        {QStringLiteral("theta"), {"theta", TextGrid::Right, fixed(Table::kTheta, 3)}},
        {QStringLiteral("underlying"), {"stock", TextGrid::Right, cell(Table::kStockLast)}},
        {QStringLiteral("moneyness"), {"money %", TextGrid::Right, moneynessText}}};
    return columns;
}

/// What the allocator takes for a row: the block, a word in front of it for the alignment and one
/// of its own, rounded up to 16 bytes.
qint64 allocatedRow(const Table &table)
{
    return (table.rowSize() + 16 + 15) / 16 * 16;
}

/// What an index takes: its chunks of handles with their heads.
qint64 indexBytes(const Index &index)
{
    const auto *list = dynamic_cast<const IndexList *>(&index);
    if (!list)
        return 0; // the watch index is empty between snapshots
    qint64 bytes = 0;
    for (const auto *part : list->list().parts()) {
        if (part)
            bytes += qint64(sizeof(*part)) + part->capacity * qint64(sizeof(Record));
    }
    return bytes;
}

QString kibibytes(qint64 bytes)
{
    return grouped((bytes + 512) / 1024);
}

} // namespace

Report::Report(QTextStream &out, const Board &board, int nameWidth)
    : m_out(out)
    , m_board(board)
    , m_nameWidth(std::max(nameWidth, 8))
    , m_headings{QStringLiteral("inserted"),
                 QStringLiteral("updated"),
                 QStringLiteral("removed"),
                 QStringLiteral("stocks"),
                 QStringLiteral("trades"),
                 QStringLiteral("redraw"),
                 kBar,
                 QStringLiteral("read"),
                 QStringLiteral("tables")}
{
    for (const Board::NamedIndex &named : board.indexes()) {
        const QString name = QLatin1String(named.name);
        if (!m_indexNames.contains(name))
            m_indexNames.append(name);
    }
    m_headings += m_indexNames;
}

qint64 Report::tableTime() const
{
    qint64 time = 0;
    for (const Table *table : m_board.tables())
        time += table->nsecsElapsed();
    return time;
}

std::map<QString, qint64> Report::indexTimes() const
{
    std::map<QString, qint64> times;
    for (const Board::NamedIndex &named : m_board.indexes())
        times[QLatin1String(named.name)] += named.index->nsecsElapsed();
    return times;
}

// Cells stand under their headings, the counts before the bar and the times behind it.
void Report::printLine(const QString &number, const QString &name, const QStringList &cells)
{
    QString line = number.rightJustified(4) + QLatin1String("  ") + name.leftJustified(m_nameWidth);
    for (int i = 0; i < cells.size(); ++i) {
        const int width = m_headings.at(i) == kBar ? 1 : std::max(m_headings.at(i).size(), 6);
        line += QLatin1Char(' ') + cells.at(i).rightJustified(width);
    }
    m_out << line << '\n';
    m_out.flush();
}

void Report::printHeading()
{
    m_out
        << "Counts: options inserted, updated and removed, stocks updated, trades entered, options "
           "to redraw.\nMilliseconds: reading, the batches of the tables, each index.\n";
    printLine(QStringLiteral("#"), QStringLiteral("snapshot"), m_headings);
}

void Report::printSnapshot(int number, const QString &name, const SnapshotCounts &counts,
                           qint64 readTime)
{
    const qint64 table = tableTime();
    const std::map<QString, qint64> times = indexTimes();
    QStringList cells{grouped(counts.options.inserted),
                      grouped(counts.options.updated),
                      grouped(counts.options.removed),
                      grouped(counts.underlyings.updated),
                      grouped(counts.trades),
                      grouped(counts.redraws),
                      kBar,
                      milliseconds(readTime),
                      milliseconds(table - m_tableTime)};
    for (const QString &index : qAsConst(m_indexNames))
        cells.append(milliseconds(times.at(index) - m_indexTimes[index]));
    printLine(QString::number(number), name, cells);
    m_tableTime = table;
    m_indexTimes = times;
}

void Report::printSummary(const Choices &choices, datetime now, const Analytics::Totals &analytics)
{
    const std::map<QString, std::function<void()>> tables = {
        {QStringLiteral("top"), [&] { printTop(choices.top, choices.columns); }},
        {QStringLiteral("movers"), [&] { printMovers(kMovers); }},
        {QStringLiteral("chain"), [&] { printChain(now); }},
        {QStringLiteral("model"), [&] { printAnalytics(analytics); }},
        {QStringLiteral("times"), [&] { printTimes(); }},
        {QStringLiteral("memory"), [&] { printMemory(); }}};
    for (const QString &table : choices.tables)
        tables.at(table)();
    m_out.flush();
}

void Report::printTop(int count, const QStringList &columns)
{
    const ColumnIndex &index = m_board.byVolume();
    const int shown = std::min(count, index.count());
    if (shown == 0)
        return;
    m_out << "\nTop " << shown << " options by volume\n";
    QVector<TextGrid::Alignment> alignments{TextGrid::Right};
    QStringList headings{QString()};
    for (const QString &name : columns) {
        const OptionColumn &column = optionColumns().at(name);
        alignments.append(column.alignment);
        headings.append(QLatin1String(column.heading));
    }
    TextGrid grid(alignments);
    grid.add(headings);
    for (int i = 0; i < shown; ++i) {
        QStringList cells{QString::number(i + 1)};
        for (const QString &name : columns)
            cells.append(optionColumns().at(name).text(index.at(i)));
        grid.add(cells);
    }
    grid.print(m_out);
}

void Report::printMovers(int count)
{
    const ColumnIndex &index = m_board.byStockChange();
    TextGrid grid({TextGrid::Left, TextGrid::Right, TextGrid::Right, TextGrid::Right});
    grid.add({QStringLiteral("stock"), QStringLiteral("last"), QStringLiteral("change %"),
              QStringLiteral("options")});
    int position = 0;
    for (int shown = 0; shown < count && position < index.count(); ++shown) {
        const Record &option = index.at(position);
        const int from = position;
        const QString stock = option.data(OptionTable::kStock).toString();
        while (position < index.count() &&
               index.at(position).data(OptionTable::kStock).asStaticString() == stock)
            ++position;
        grid.add({stock, cellText(option, OptionTable::kStockLast),
                  changeText(option, OptionTable::kStockChange), grouped(position - from)});
    }
    m_out << "\nThe stocks that rose most, by the order of their options\n";
    grid.print(m_out);
}

void Report::printChain(datetime now)
{
    const QString busiest = busiestStock(m_board);
    const Chain chain = chainAroundMoney(m_board, busiest, now, kChainStrikes);
    if (chain.underlying.isNull())
        return;
    const Record &stock = chain.underlying;
    m_out << "\nThe busiest stock: " << cellText(stock, UnderlyingTable::kStock) << " at "
          << cellText(stock, UnderlyingTable::kLast) << " ("
          << changeText(stock, UnderlyingTable::kChangePercent) << " %, high "
          << cellText(stock, UnderlyingTable::kHigh) << ", low "
          << cellText(stock, UnderlyingTable::kLow) << "), options of "
          << chain.expiry.toString().left(10) << " around the money, calls left, puts right\n";
    TextGrid grid(QVector<TextGrid::Alignment>(9, TextGrid::Right));
    const QString last = QStringLiteral("last"), change = QStringLiteral("change"),
                  volume = QStringLiteral("volume"), interest = QStringLiteral("open interest");
    grid.add({interest, volume, change, last, QStringLiteral("[ strike ]"), last, change, volume,
              interest});
    for (const ChainRow &row : chain.rows) {
        grid.add({cellText(row.call, OptionTable::kOpenInterest),
                  cellText(row.call, OptionTable::kVolume),
                  changeText(row.call, OptionTable::kChange),
                  cellText(row.call, OptionTable::kLast),
                  QStringLiteral("[ %1 ]").arg(grouped(row.strike.toExactString())),
                  cellText(row.put, OptionTable::kLast), changeText(row.put, OptionTable::kChange),
                  cellText(row.put, OptionTable::kVolume),
                  cellText(row.put, OptionTable::kOpenInterest)});
    }
    grid.print(m_out);
    printSmile(m_out, chainAroundMoney(m_board, busiest, now, kSmileStrikes));
}

void Report::printAnalytics(const Analytics::Totals &totals)
{
    m_out << "\nThe model: " << grouped(totals.solved) << " volatilities found and "
          << grouped(totals.unsolved) << " not, by " << grouped(totals.jobs) << " jobs; "
          << grouped(totals.changed) << " rows changed by " << grouped(totals.batches)
          << " batches\n";
}

void Report::printTimes()
{
    m_out << "\nTime by index\n";
    TextGrid grid({TextGrid::Left, TextGrid::Left, TextGrid::Right, TextGrid::Right});
    const auto share = [](const decimal &percent) {
        return percent.toExactString() + QLatin1String(" %");
    };
    grid.add({QStringLiteral("table"), QStringLiteral("index"), QStringLiteral("ms"),
              QStringLiteral("share")});
    for (const Board::NamedIndex &named : m_board.indexes()) {
        grid.add({named.table->name(), QLatin1String(named.name),
                  milliseconds(named.index->nsecsElapsed()), share(named.index->percentElapsed())});
    }
    for (const Table *table : m_board.tables()) {
        grid.add({table->name(), QStringLiteral("(the table's batches)"),
                  milliseconds(table->nsecsElapsed()), share(table->percentElapsed())});
    }
    grid.print(m_out);
}

void Report::printMemory()
{
    m_out << "\nMemory in KiB\n";
    TextGrid grid(
        {TextGrid::Left, TextGrid::Left, TextGrid::Right, TextGrid::Right, TextGrid::Right});
    grid.add({QStringLiteral("table"), QString(), QStringLiteral("count"),
              QStringLiteral("bytes each"), QStringLiteral("KiB")});
    qint64 total = 0;
    const auto add = [&](const Table *table, const QString &what, int count, qint64 bytes) {
        grid.add({table->name(), what, grouped(count), QString::number(count ? bytes / count : 0),
                  kibibytes(bytes)});
        total += bytes;
    };
    for (const Table *table : m_board.tables())
        add(table, QStringLiteral("rows"), table->rowCount(),
            table->rowCount() * allocatedRow(*table));
    for (const Board::NamedIndex &named : m_board.indexes()) {
        const qint64 bytes = indexBytes(*named.index);
        const auto *list = dynamic_cast<const IndexList *>(named.index);
        add(named.table, QLatin1String(named.name), list ? list->count() : 0, bytes);
    }
    grid.add({QStringLiteral("total"), QString(), QString(), QString(), kibibytes(total)});
    grid.print(m_out);
}
