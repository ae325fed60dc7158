#include "joins/joinfixture.h"
#include "support/batches.h"

#include <database/persistence/tableio.h>

#include <QtCore/qbuffer.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qthreadpool.h>

#include <gtest/gtest.h>

#include <future>
#include <memory>

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

/// A table of a market with its model and what happens to it.
struct Followed {
    Followed(Table &followed, Schema schema, int keys, Random &random)
        : table(followed)
        , model(std::move(schema))
        , maker(model, keys, random, 8)
    {
    }

    Table &table;
    TableModel model; // of the columns that the application owns
    BatchMaker maker;
};

Cells numbered(int key, Random *)
{
    return {numberCell(key)};
}

Cells coded(int key, Random *)
{
    return {textCell(QStringLiteral("S%1").arg(key, 2, 10, QChar('0')))};
}

/// Draws a key of another table; some name nobody.
std::function<Cell(Random &)> keyOf(Cells (*key)(int, Random *), int keys)
{
    return [=](Random &random) { return key(random.below(keys + 2), nullptr).front(); };
}

/// Random operations on a market, and whether its joins are what recomputing them gives.
class RandomMarket : public Market
{
public:
    explicit RandomMarket(unsigned salt)
        : m_random(salt)
    {
    }

    void step()
    {
        switch (m_random.below(12)) {
        case 0:
            return load(any());
        case 1: { // several tables inside brackets of their own
            const TableUpdate outer(any().table);
            const TableUpdate inner(any().table);
            for (int i = m_random.below(4); i >= 0; --i)
                batch(any());
            return;
        }
        case 2:
        case 3: {
            Followed &followed = any();
            const Batch batch = followed.maker.next();
            applyDirectly(followed.table, batch);
            followed.model.applyDirectly(batch);
            return;
        }
        default:
            Followed &followed = any();
            if (m_random.oneIn(2))
                return batch(followed); // without a bracket
            const TableUpdate bracket(followed.table);
            batch(followed);
        }
    }

    void compare()
    {
        for (Followed &followed : m_followed) {
            SCOPED_TRACE(qPrintable(followed.table.name()));
            ASSERT_NO_FATAL_FAILURE(followed.model.compare(followed.table));
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
    Followed &any() { return m_followed[m_random.below(3)]; }
    void batch(Followed &followed)
    {
        const Batch batch = followed.maker.next();
        RecordsTrans trans(&followed.table);
        TableModel::Pending pending;
        fill(trans, batch);
        followed.model.fill(pending, batch);
        if (&followed.table == &options && m_random.oneIn(8)) { // a cell that is not ours to write
            for (const auto &[key, entry] : pending) {
                if (entry.kind == Operation::Update)
                    setText(trans.updateRow(Record(const_cast<uchar *>(entry.row->block)))
                                .field(kHedgeLast),
                            "4711");
            }
        }
        trans.execute();
        followed.model.run(pending);
        followed.model.compare(followed.table);
    }
    void load(Followed &followed)
    {
        if (!m_random.oneIn(4)) // as often as the others are too dear
            return;
        QBuffer buffer;
        buffer.open(QIODevice::ReadWrite);
        QDataStream stream(&buffer);
        TableIO io(&followed.table);
        io.write(stream, true);
        if (m_random.oneIn(2))
            followed.table.clear();
        buffer.seek(0);
        io.read(stream, false);
        followed.model.forgetBlocks();
    }

    Random m_random;
    Followed m_followed[3] = {
        {sectors,
         {{{"Id", FieldType::Integer, 0, false}, {"Name", FieldType::VarChar, 6}}, 1, numbered},
         4,
         m_random},
        {stocks,
         {{{"Code", FieldType::VarChar, 3, false},
           {"Last", FieldType::Integer},
           {"Sector", FieldType::Integer, 0, true, keyOf(numbered, 4)}},
          1,
          coded},
         8,
         m_random},
        {options,
         {{{"Id", FieldType::Integer, 0, false},
           {"Of", FieldType::VarChar, 5, true, keyOf(coded, 8)},
           {"Hedge", FieldType::VarChar, 3, true, keyOf(coded, 8)},
           {"Lots", FieldType::Integer}},
          1,
          numbered},
         24,
         m_random}};
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

// A market that lives long has seen everything.
TEST(JoinTest, followsRandomOperationsLikeRecomputingEverything)
{
    // Rows written behind the indexes' backs are found by scanning, with a warning each.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    for (unsigned salt = 0; salt < 10 && !HasFatalFailure(); ++salt) {
        RandomMarket market(salt);
        for (int step = 0; step < runSteps(2500); ++step) {
            TRACE_STEP(step);
            market.step();
            const QString difference = market.difference();
            ASSERT_TRUE(difference.isEmpty()) << difference.toStdString() << ", market " << salt;
            ASSERT_NO_FATAL_FAILURE(market.compare());
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

TEST(JoinTest, bringsTheRowsOfAllKeysUpToDateInOneTransaction)
{
    Market market;
    appendTexts(market.stocks, {"ELM", "1", nullptr});
    appendTexts(market.options, {"1", "ELM", nullptr});
    appendTexts(market.options, {"2", nullptr, "ELM"});
    QStringList log;
    RecordingIndex index("options", &log, &market.options);
    {
        const TableUpdate bracket(market.stocks);
        RecordsTrans batch(&market.stocks);
        batch.updateRow(market.stocks.at(0)).field(Market::kLast).setValue(2);
        batch.execute();
    }
    EXPECT_EQ(log.filter("options.process"), QStringList("options.process -0 ~2 +0 [4..8]"));
    EXPECT_EQ(rows(*market.options.masterIndex()),
              (QStringList{"1 ELM NULL NULL 2 NULL NULL NULL NULL",
                           "2 NULL ELM NULL NULL NULL NULL 2 NULL"}));
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
