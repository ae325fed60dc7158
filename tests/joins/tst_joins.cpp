#include "joins/joinfixture.h"

#include <database/persistence/tableio.h>

#include <QtCore/qbuffer.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qthreadpool.h>

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <random>

namespace
{

/// What a cell of the row with that key text shows, found by looking at every row.
QString shown(const Table &table, const Field &key, int column)
{
    if (!key.isNull()) {
        for (const Record &row : *table.masterIndex()) {
            if (row.data(0).toString() == key.toString())
                return row.data(column).toString();
        }
    }
    return QString();
}

/// Random operations on a market, and whether its joins are what recomputing them gives.
class RandomMarket : public Market
{
public:
    explicit RandomMarket(unsigned seed)
        : m_random(seed)
    {
    }

    void step()
    {
        switch (pick(12)) {
        case 0:
            return load(anyTable());
        case 1: { // several tables inside brackets of their own
            const TableUpdate outer(*anyTable());
            const TableUpdate inner(*anyTable());
            for (int i = pick(4); i >= 0; --i)
                batch(*anyTable());
            return;
        }
        case 2:
            return writeThrough(*anyTable());
        case 3:
            return (void)appendTo(*anyTable());
        case 4: {
            Table &table = *anyTable();
            if (table.rowCount() > 0)
                table.remove(table.at(pick(table.rowCount())), -1);
            return;
        }
        default:
            Table &table = *anyTable();
            if (pick(2) == 0)
                return batch(table); // without a bracket
            const TableUpdate bracket(table);
            batch(table);
        }
    }

    QString difference() const
    {
        for (const Record &stock : *stocks.masterIndex()) {
            if (stock.data(kStockSectorName).toString() !=
                shown(sectors, stock.data(kSector), kSectorName))
                return "stock " + cells(stock);
        }
        for (const Record &option : *options.masterIndex()) {
            if (option.data(kOfLast).toString() != shown(stocks, option.data(kOf), kLast) ||
                option.data(kOfSector).toString() !=
                    shown(stocks, option.data(kOf), kStockSectorName) ||
                option.data(kHedgeLast).toString() != shown(stocks, option.data(kHedge), kLast) ||
                option.data(kName).toString() !=
                    shown(sectors, option.data(kOfSectorId), kSectorName))
                return "option " + cells(option);
        }
        for (const IndexSort *index : {&byLast, &bySector}) {
            if (index->count() != index->table()->rowCount())
                return "count of an index";
            for (int i = 1; i < index->count(); ++i) {
                if (index->compare(index->at(i - 1), index->at(i)) >= 0)
                    return "order of an index";
            }
        }
        return QString();
    }

private:
    int pick(int n) { return int(m_random() % unsigned(n)); }
    Table *anyTable() { return std::array<Table *, 3>{&sectors, &stocks, &options}[pick(3)]; }
    int keys(const Table &table) const
    {
        return &table == &sectors ? 4 : &table == &stocks ? 8 : 24;
    }
    QString anyKey(const Table &table)
    {
        const int key = pick(keys(table) + 2); // some name nobody
        return &table == &stocks ? QString("S%1").arg(key) : QString::number(key);
    }
    /// Writes some of the columns that the application owns; now and then a joined one.
    void scribble(const Table &table, const std::function<Field(int)> &cell)
    {
        const int owned = &table == &sectors ? 2 : &table == &stocks ? 3 : 4;
        for (int column = 1; column < owned; ++column) {
            if (pick(2) == 0)
                continue;
            const bool isKey = (&table == &options && column <= kHedge) ||
                               (&table == &stocks && column == kSector);
            Field field = cell(column);
            if (pick(6) == 0)
                field.setNull();
            else
                setText(field, isKey ? anyKey(&table == &options ? stocks : sectors)
                                     : QString::number(pick(3)));
        }
        if (&table == &options && pick(8) == 0)
            setText(cell(kHedgeLast), "4711");
    }
    void batch(Table &table)
    {
        RecordsTrans trans(&table);
        for (int i = pick(5); i >= 0; --i) {
            const Record key = table.masterIndex()->fromText(anyKey(table));
            const Record live = table.masterIndex()->find(key, -1);
            if (live && pick(3) == 0) {
                trans.removeRow(live);
                continue;
            }
            RecordUpdater updater = trans.upsertRow(key);
            scribble(table, [&](int column) { return updater.field(column); });
        }
        trans.execute();
    }
    /// As an application that writes into live rows and tells afterwards.
    void writeThrough(Table &table)
    {
        if (table.rowCount() == 0)
            return;
        const Record row = table.at(pick(table.rowCount()));
        scribble(table, [&](int column) { return row.data(column); });
        table.updated(row, 1, &table == &stocks ? kSector : table.columnCount() - 1, -1);
    }
    Record appendTo(Table &table)
    {
        const Record row = table.masterIndex()->fromText(anyKey(table));
        if (table.masterIndex()->find(row, -1))
            return Record();
        scribble(table, [&](int column) { return row.data(column); });
        table.appendRow(row.row());
        return row;
    }
    void load(Table *table)
    {
        if (pick(4) != 0) // as often as the others are too dear
            return;
        QBuffer buffer;
        buffer.open(QIODevice::ReadWrite);
        QDataStream stream(&buffer);
        TableIO io(table);
        io.write(stream, true);
        if (pick(2) == 0)
            table->clear();
        buffer.seek(0);
        io.read(stream, false);
    }

    std::mt19937 m_random;
    ByColumn byLast{&options, kOfLast};
    ByColumn bySector{&stocks, kStockSectorName};
};

/// A stock with many options, and how the transactions of the options table looked.
QStringList transactionsOf(int threads)
{
    constexpr int kOptions = 5000;
    QThreadPool &pool = *QThreadPool::globalInstance();
    const int before = pool.maxThreadCount();
    pool.setMaxThreadCount(threads);
    Market market;
    appendTexts(market.stocks, {"OAK", "1", nullptr});
    appendTexts(market.stocks, {"ELM", "2", nullptr});
    QList<Record> rows;
    for (int i = 0; i < kOptions; ++i)
        rows.append(newRow(market.options, {qPrintable(QString::number(i * 7919 % kOptions)),
                                            i % 3 ? "OAK" : "ELM", i % 2 ? "ELM" : nullptr}));
    market.options.appendList(rows);
    struct Watch : IndexList {
        using IndexList::IndexList;
        void process(const QList<Record> &, const QList<Record> &updated, int from, int to,
                     const QList<Record> &) override
        {
            QString text = QString("%1..%2:").arg(from).arg(to);
            for (const Record &row : updated)
                text += ' ' + cells(row) + ';';
            seen.append(text);
        }
        QStringList seen;
    } watch(&market.options, true);
    for (int tick = 10; tick < 13; ++tick) {
        const TableUpdate bracket(market.stocks);
        for (const char *code : {"ELM", "OAK"}) {
            RecordsTrans batch(&market.stocks);
            batch.upsertRow(market.stocks.masterIndex()->fromText(code)).field(1).setValue(tick);
            batch.execute();
        }
    }
    pool.setMaxThreadCount(before);
    return watch.seen;
}

} // namespace

// 100 000 steps in all; a market that lives long has seen everything.
TEST(JoinTest, followsRandomOperationsLikeRecomputingEverything)
{
    const unsigned seed = std::random_device()();
    // Rows written behind the indexes' backs are found by scanning, with a warning each.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    for (unsigned market = 0; market < 10; ++market) {
        RandomMarket random(seed + market);
        for (int step = 0; step < 10000; ++step) {
            random.step();
            const QString difference = random.difference();
            ASSERT_TRUE(difference.isEmpty())
                << difference.toStdString() << ", step " << step << ", seed " << seed + market;
        }
    }
    qInstallMessageHandler(nullptr);
}

TEST(JoinTest, givesTheSameTransactionsOnOneThreadAndOnSixteen)
{
    const QStringList one = transactionsOf(1);
    ASSERT_EQ(one.size(), 3) << "one for each bracket, whatever the number of batches";
    EXPECT_EQ(one.first().count(';'), 5000);
    EXPECT_EQ(transactionsOf(16), one);
}

TEST(JoinTest, sendsNothingWhenNothingDiffersAndWaitsForABusyTable)
{
    Market market;
    appendTexts(market.stocks, {"OAK", "1", nullptr});
    appendTexts(market.options, {"1", "OAK", nullptr, "5"});
    QStringList log;
    RecordingIndex index("options", &log, &market.options);
    index.build();
    const auto writeLast = [&](int value) {
        RecordsTrans batch(&market.stocks);
        batch.upsertRow(market.stocks.masterIndex()->fromText("OAK"))
            .field(Market::kLast)
            .setValue(value);
        batch.execute();
    };
    log.clear();
    writeLast(1); // what it was
    EXPECT_TRUE(log.filter("process").isEmpty()) << log.join('\n').toStdString();

    // An index of the main table changes the dependent one in the middle of a batch.
    index.onCall = [&](const QString &call) {
        if (call == "process" && market.stocks.data(0, Market::kLast).value<qint32>() == 1)
            writeLast(2);
    };
    {
        const TableUpdate bracket(market.options);
        RecordsTrans batch(&market.options);
        batch.updateRow(market.options.at(0)).field(Market::kLots).setValue(6);
        batch.execute();
    }
    EXPECT_EQ(rows(*market.options.masterIndex()),
              QStringList{"1 OAK NULL 6 2 NULL NULL NULL NULL"});
}

TEST(JoinTest, widensABatchByNothingStaleAndBuildsBeforeOtherIndexes)
{
    Market market;
    ByColumn byLast(&market.options, Market::kOfLast);
    QList<Index *> order = market.options.indexes();
    order.prepend(order.takeLast()); // before the join
    market.options.setIndexes(order);
    appendTexts(market.stocks, {"ELM", "1", nullptr});
    appendTexts(market.stocks, {"OAK", "2", nullptr});
    appendTexts(market.options, {"1", "ELM", nullptr, "5"});
    appendTexts(market.options, {"2", "OAK", nullptr, "5"});
    const TableUpdate bracket(market.options);
    RecordsTrans early(&market.options);
    early.updateRow(market.options.at(0)).field(Market::kOf).setValue(QString("OAK"));
    RecordsTrans late(&market.options);
    late.updateRow(market.options.at(0)).field(Market::kLots).setValue(6);
    late.execute();
    early.execute();
    EXPECT_EQ(market.options.at(0).data(Market::kLots).value<qint32>(), 6)
        << "the joined columns lie behind it, and the early batch knows its old value";

    market.options.at(0).data(Market::kOf).setValue(QString("ELM"));
    market.options.updated(market.options.at(0), -1, -1, -1); // all columns
    EXPECT_EQ(market.options.at(0).data(Market::kOfLast).toString(), "1");
    market.options.at(0).data(Market::kOf).setValue(QString("OAK"));
    market.options.updatedRow(0);

    market.stocks.data(1, Market::kLast).setValue(9); // behind everybody's back
    market.options.at(1).data(Market::kOf).setValue(QString("ELM"));
    market.options.build();
    EXPECT_EQ(rows(byLast).first().section(' ', 0, 4), "2 ELM NULL 5 1");
}

TEST(JoinTest, survivesWhicheverGoesFirst)
{
    for (const int first : {0, 1, 2, 3}) {
        for (const bool inBracket : {false, true}) {
            auto stocks = std::make_unique<KeyedTable>();
            auto options = std::make_unique<KeyedTable>();
            auto join = std::make_unique<TableJoinMain>(options.get());
            join->addTable(stocks.get(), {"a"}, {{"b", "joined"}});
            appendTexts(*stocks, {"1", "2", "3"});
            appendTexts(*options, {"7", "1"});
            if (inBracket)
                stocks->beginUpdate();
            const QString before = cells(options->at(0));
            EXPECT_EQ(before, "7 1 NULL NULL 3");
            if (first == 0) {
                stocks.reset();
                EXPECT_EQ(cells(options->at(0)), "7 1 NULL NULL NULL");
                appendTexts(*options, {"8", "1"});
            } else if (first == 1) {
                options.reset();
                appendTexts(*stocks, {"2", "2", "4"});
            } else {
                if (first == 2)
                    join.reset();
                else
                    stocks->clear();
                appendTexts(*stocks, {"3", "2", "4"});
            }
            if (inBracket && stocks)
                stocks->endUpdate();
            EXPECT_TRUE(first != 3 || cells(options->at(0)) == "7 1 NULL NULL NULL");
            EXPECT_TRUE(!options || std::async(std::launch::async, [&] {
                                        const bool isFree = options->tryLock();
                                        if (isFree)
                                            options->unlock();
                                        return isFree;
                                    }).get());
        }
    }
}
