// A tick of one stock that ten thousand options of a large table hang on: the time must follow the
// ten thousand, not the table.
//
// usage: bench_joins [ROUNDS]

#include <database/joins/tablejoinmain.h>
#include <database/masterindex_column.h>
#include <database/tables/recordstrans.h>

#include <QtCore/qelapsedtimer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

constexpr int kOfStock = 10000;

/// Options and their stocks; a sorted view over the options' strikes stands for the indexes that a
/// tick does not concern.
class Market
{
public:
    explicit Market(int options)
    {
        m_stocks.addColumn("Code", FieldType::VarChar, 12, false);
        m_stocks.addColumn("Last", FieldType::Decimal, 2);
        m_stocks.addColumn("Change", FieldType::Decimal, 2);
        m_stocks.setMasterIndex(new MasterIndex_Column_Pure(&m_stocks, QString("Code")));
        m_options.addColumn("Id", FieldType::Integer, 0, false);
        m_options.addColumn("Stock", FieldType::VarChar, 12);
        m_options.addColumn("Strike", FieldType::Decimal, 2);
        m_options.setMasterIndex(new MasterIndex_Column_Pure(&m_options, QString("Id")));
        for (int i = 0; i < options / kOfStock; ++i) {
            const Record stock(&m_stocks);
            stock.data(0).setValue(QStringLiteral("STOCK%1").arg(i, 4, 10, QLatin1Char('0')));
            m_stocks.appendRow(stock.row());
        }
        const TableUpdate bracket(m_options);
        for (int i = 0; i < options; ++i) {
            const Record option(&m_options);
            option.data(0).setValue(i);
            // A stock's options lie all over the table.
            option.data(1).setValue(m_stocks.at(i % m_stocks.rowCount()).data(0).toString());
            m_options.appendRow(option.row());
        }
        m_join = std::make_unique<TableJoinMain>(&m_options);
        m_join->addTable(&m_stocks, {"Stock"}, {{"Last", "StockLast"}, {"Change", "StockChange"}});
    }

    /// Seconds that a new price of one stock takes to reach the options.
    double tick(int price)
    {
        const Record stock = m_stocks.at(price % m_stocks.rowCount());
        QElapsedTimer timer;
        timer.start();
        {
            const TableUpdate bracket(m_stocks);
            RecordsTrans batch(&m_stocks);
            RecordUpdater updater = batch.updateRow(stock);
            updater.field(1).setValue(decimal::fromParts(price, 2));
            updater.field(2).setValue(decimal::fromParts(-price, 2));
            batch.execute();
        }
        const double seconds = double(timer.nsecsElapsed()) * 1e-9;
        const int last = m_options.columnIndex("StockLast");
        int reached = 0;
        for (int i = price % m_stocks.rowCount(); i < m_options.rowCount();
             i += m_stocks.rowCount())
            reached += m_options.data(i, last).value<decimal>() == decimal::fromParts(price, 2);
        if (reached != kOfStock) {
            std::fprintf(stderr, "bench_joins: %d rows followed\n", reached);
            std::exit(1);
        }
        return seconds;
    }

private:
    Table m_stocks{"stocks", QString()};
    Table m_options{"options", QString()};
    std::unique_ptr<TableJoinMain> m_join;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 21;
    Market small(100000);
    Market large(1000000);
    std::vector<double> smallTicks;
    std::vector<double> largeTicks;
    for (int round = 0; round < rounds; ++round) {
        smallTicks.push_back(small.tick(1 + round));
        largeTicks.push_back(large.tick(1 + round));
    }
    const auto report = [](const char *rows, double seconds) {
        std::printf(
            "%9s rows: a tick with %d options %7.2f ms, %6.2f million joined cells a second\n",
            rows, kOfStock, seconds * 1e3, 2 * kOfStock * 1e-6 / seconds);
    };
    report("100000", median(smallTicks));
    report("1000000", median(largeTicks));
    std::printf("ratio %.2f (at most 2), medians of %d rounds\n",
                median(largeTicks) / median(smallTicks), rounds);
    return 0;
}
