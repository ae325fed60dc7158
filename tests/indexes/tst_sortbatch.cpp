#include "indexes/indexfixture.h"

#include <algorithm>
#include <limits>
#include <random>
#include <set>
#include <tuple>

namespace
{

/// A row of the random table together with what the test wrote into it.
struct Row {
    Record record;
    int price;
    bool listed;
    int position = -1;    // in the model's order, when a batch is drawn
    bool leaves = false;  // the batch at hand removes it
    bool changes = false; // the batch updates it
};
using Rows = std::vector<Row *>;

bool cheaper(const Row *a, const Row *b)
{
    return a->price < b->price;
}

/// The order after a batch whose rows already hold their new values, in the plainest terms: rows
/// leave in rounds until those that stay are in order, and come back one by one.
Rows orderAfter(Rows standing, const Rows &updated, const Rows &inserted, bool listedOnly)
{
    const auto accepted = [=](const Row *row) { return !listedOnly || row->listed; };
    for (size_t before = standing.size() + 1; standing.size() < before;) {
        Rows next;
        for (size_t i = 0; i < standing.size(); ++i) {
            const Row *row = standing[i];
            const bool tooHigh = i + 1 < standing.size() && cheaper(standing[i + 1], row);
            const bool tooLow = i > 0 && cheaper(row, standing[i - 1]);
            const bool out = row->changes && (!accepted(row) || tooHigh || tooLow);
            if (!row->leaves && !out)
                next.push_back(standing[i]);
        }
        before = standing.size();
        standing.swap(next);
    }
    const std::set<Row *> stays(standing.begin(), standing.end());
    Rows pending;
    for (const Rows &source : {inserted, updated}) {
        std::copy_if(source.begin(), source.end(), std::back_inserter(pending),
                     [&](Row *row) { return accepted(row) && stays.count(row) == 0; });
    }
    std::stable_sort(pending.begin(), pending.end(), cheaper);
    for (Row *row : pending)
        standing.insert(std::upper_bound(standing.begin(), standing.end(), row, cheaper), row);
    return standing;
}

/// By how much the price rises from row to row at the start, or that it is random.
enum Start { Descending = -1, AllEqual, Ascending, Random };

struct Scenario {
    const char *name;
    int rows;
    int batches;
    int changes; // most changes of one batch
    int prices;  // distinct keys
    Start start = Random;
    bool listedOnly = false;
    bool oftenUnannounced = false; // half of the batches come without preprocess
    bool inOrder = false;          // batches name records as they stand, and may turn them round
};

/// Each scenario runs over an index that compares only and over one that tells its columns.
class RandomBatches : public ::testing::TestWithParam<std::tuple<Scenario, bool>>
{
protected:
    int random(int n) { return int(rng() % unsigned(n)); }

    Row *makeRow(int price)
    {
        const int id = int(pool.size());
        const bool listed = random(4) != 0;
        pool.push_back(std::make_unique<Row>(Row{table.row(id, price, listed), price, listed}));
        return pool.back().get();
    }

    void fill()
    {
        for (int i = 0; i < scenario.rows; ++i) {
            const bool drawn = scenario.start == Random;
            Row *row = makeRow(drawn ? random(scenario.prices) : scenario.start * i);
            live.push_back(row);
            if (!index.filter(row->record))
                continue;
            order.insert(std::upper_bound(order.begin(), order.end(), row, cheaper), row);
            index.add(row->record);
        }
    }

    /// Draws a batch, puts it through the index as a table does, and through the model.
    void runBatch()
    {
        // Most batches are small; some touch every row.
        const int most = random(4) == 0 ? scenario.changes : qMin(scenario.changes, 12);
        const int touched = qMin(1 + random(most), int(live.size()));
        std::shuffle(live.begin(), live.end(), rng);
        if (scenario.inOrder)
            putInOrder(touched);
        const int turned = scenario.inOrder && random(2) ? 1000000 : 0;
        QList<Record> removed, updated, inserted, values;
        Rows updatedRows, insertedRows;
        const int removals = random(touched + 1) / 2;
        for (int i = 0; i < touched; ++i) {
            Row *row = live[size_t(i)];
            row->leaves = i < removals;
            row->changes = !row->leaves;
            (row->leaves ? removed : updated).append(row->record);
            if (row->leaves)
                continue;
            if (random(5) != 0)
                row->price = random(2) ? row->price + random(3) - 1 : random(scenario.prices);
            if (turned > 0)
                row->price = turned - row->price;
            row->listed = random(4) != 0;
            updatedRows.push_back(row);
            values.append(table.row(-1, row->price, row->listed));
        }
        const int lost = qMax(scenario.rows - int(live.size()), 0);
        for (int i = random(touched + 1) / 2 + random(lost + 1); i > 0; --i) {
            insertedRows.push_back(makeRow(random(scenario.prices)));
            inserted.append(insertedRows.back()->record);
        }

        if (!scenario.oftenUnannounced || random(2))
            index.preprocess(removed, updated, kPrice, kListed, inserted, values);
        for (int i = 0; i < updated.size(); ++i)
            updated[i].copy(values.at(i), kPrice, kListed);
        index.process(removed, updated, kPrice, kListed, inserted);

        order = orderAfter(order, updatedRows, insertedRows, scenario.listedOnly);
        live.erase(live.begin(), live.begin() + removals);
        live.insert(live.end(), insertedRows.begin(), insertedRows.end());
        for (const auto &row : pool)
            row->leaves = row->changes = false;
    }

    /// The first records of those that live, as they stand in the order.
    void putInOrder(int records)
    {
        for (size_t i = 0; i < order.size(); ++i)
            order[i]->position = int(i);
        std::sort(live.begin(), live.begin() + records,
                  [](const Row *a, const Row *b) { return a->position < b->position; });
    }

    void checkOrder()
    {
        ASSERT_TRUE(index.verify());
        Ids expected;
        for (const Row *row : order)
            expected.push_back(cellOf(row->record, kId));
        ASSERT_EQ(idsOf(index), expected);
        const std::set<const Row *> held(order.begin(), order.end());
        for (const auto &row : pool)
            ASSERT_EQ(refCountOf(row->record), 1 + int(held.count(row.get())))
                << cellOf(row->record, kId);
    }

    void checkSearches()
    {
        const int price = random(scenario.prices + 2) - 1;
        Row key{table.row(-1, price), price, true};
        const int from = random(index.count() + 8) - 4;
        const auto start = order.begin() + qBound(0, from + 1, index.count());
        const auto [low, high] = std::equal_range(start, order.end(), &key, cheaper);
        const bool found = low != high;
        EXPECT_EQ(index.search(key.record, from), found ? low - order.begin() : -1);
        EXPECT_EQ(index.searchLast(key.record, from), found ? high - order.begin() - 1 : -1);
        EXPECT_EQ(index.searchFull(key.record, from), found ? low - start : -1);
        EXPECT_EQ(index.find(key.record, from), found ? (*low)->record : Record());
        EXPECT_EQ(index.indexOfAdd(key.record),
                  std::upper_bound(order.begin(), order.end(), &key, cheaper) - order.begin());
        const QList<Record> keys{key.record, order.empty() ? key.record : order.front()->record};
        EXPECT_EQ(index.findAll(keys),
                  (QList<Record>{index.find(keys.first(), -1), index.find(keys.last(), -1)}));
        const Row *row = pool[size_t(random(int(pool.size())))].get();
        const auto place = std::find(order.begin(), order.end(), row);
        const int position = place == order.end() ? -1 : int(place - order.begin());
        EXPECT_EQ(index.indexOf(row->record), position);
        EXPECT_EQ(index.indexOfs({row->record}), (QMap<Record, int>{{row->record, position}}));
    }

    const Scenario scenario = std::get<0>(GetParam());
    const bool tellsColumns = std::get<1>(GetParam());
    const unsigned seed = 20240607;
    std::mt19937 rng{seed};
    QuoteTable table;
    QuoteSort index{&table, kPrice, scenario.listedOnly, false, tellsColumns};
    std::vector<std::unique_ptr<Row>> pool; // every row ever made, by id
    Rows live;                              // those that the table would hold
    Rows order;                             // those that the index has to hold
};

TEST_P(RandomBatches, leaveTheOrderOfThePlainModel)
{
    fill();
    ASSERT_NO_FATAL_FAILURE(checkOrder());
    const int batches = kSanitized ? qMin(scenario.batches, 100) : scenario.batches;
    for (int step = 0; step < batches && !live.empty(); ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", batch " << step);
        runBatch();
        ASSERT_NO_FATAL_FAILURE(checkOrder());
        for (int i = 0; i < 5; ++i)
            checkSearches();
        ASSERT_FALSE(HasFailure());
    }
}

INSTANTIATE_TEST_SUITE_P(
    IndexSort, RandomBatches,
    ::testing::Combine(
        ::testing::Values(
            Scenario{"a_single_row", 1, 100, 3, 3}, //
            Scenario{"a_few_rows", 20, 2000, 25, 12},
            Scenario{"a_few_rows_filtered", 20, 2000, 25, 8, Random, true, true},
            Scenario{"all_prices_equal", 300, 200, 300, 2, AllEqual},
            Scenario{"ascending", 400, 200, 400, 400, Ascending, true},
            Scenario{"descending", 400, 200, 400, 400, Descending},
            Scenario{"large_batches", 3000, 40, 2000, 50, Random, true, true},
            Scenario{"in_order", 5000, 20, 5000, 1000000, Ascending, false, false, true},
            Scenario{"several_chunks", 25000, 12, 2000, 300},
            Scenario{"ticks", 2000, 1500, 1, 3000},
            Scenario{"ticks_among_equals", 500, 1500, 1, 4, Random, true},
            Scenario{"ticks_among_many_equals", 3000, 800, 1, 2, Random, true},
            Scenario{"batches_among_many_equals", 3000, 300, 6, 2},
            Scenario{"ticks_across_chunks", 25000, 100, 1, 30000},
            Scenario{"a_large_table", 100000, 4, 2000, 1000000, Ascending, false, true}),
        ::testing::Bool()),
    [](const auto &info) {
        return std::string(std::get<0>(info.param).name) +
               (std::get<1>(info.param) ? "_by_columns" : "");
    });

/// The same rows in every batch, side by side in the order: what a feed does to a table by time.
struct Feed {
    const char *name;
    int active;  // rows that change, every one in each batch
    int apart;   // how far apart they stand at first
    int step;    // by which each of them rises or falls in a batch, up to twice that
    int spacing; // of the prices of rows that never change
    bool tick;   // one of them alone changes between two batches
};

class ActiveRows : public ::testing::TestWithParam<Feed>
{
};

TEST_P(ActiveRows, areFoundHoweverTheyMoveTogether)
{
    const Feed feed = GetParam();
    constexpr int kRows = 2000;
    QuoteTable table;
    for (int i = 0; i < kRows; ++i)
        table.append(i, i * feed.spacing);
    QuoteSort index(&table, kPrice, false, true, true);
    index.build();
    std::mt19937 rng(20241103);
    QList<Record> active;
    const int start = feed.step > 0 ? kRows / 4 : kRows * 3 / 4;
    for (int i = 0; i < feed.active; ++i)
        active.append(table.at(start + i * feed.apart));
    const auto change = [&](const QList<Record> &rows) {
        const int common = int(rng() % unsigned(qAbs(feed.step) + 1));
        QList<Record> values;
        for (const Record &row : rows) {
            const int rise = qAbs(feed.step) + common + int(rng() % 2);
            values.append(row.clone());
            values.last().data(kPrice).setValue(cellOf(row, kPrice) +
                                                (feed.step > 0 ? rise : -rise));
        }
        table.process(rows, kPrice, kPrice, values);
    };
    for (int batch = 0; batch < 60; ++batch) {
        SCOPED_TRACE(batch);
        change(active);
        if (feed.tick)
            change({active.at(int(rng() % unsigned(feed.active)))});
        int last = std::numeric_limits<int>::min();
        for (const Record &record : index) {
            ASSERT_LE(last, cellOf(record, kPrice));
            last = cellOf(record, kPrice);
        }
        ASSERT_EQ(index.findAll(active).count(Record()), 0);
        for (const Record &record : qAsConst(active)) {
            const int position = index.search(record, -1);
            ASSERT_NE(position, -1) << "of the row with the id " << cellOf(record, kId);
            ASSERT_EQ(cellOf(index.at(position), kPrice), cellOf(record, kPrice));
            ASSERT_EQ(index.at(index.indexOf(record)), record);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    IndexSort, ActiveRows,
    ::testing::Values(Feed{"the_latest_rise", 50, 1, 1000, 3, false},
                      Feed{"small_steps", 50, 1, 1, 3, true},
                      Feed{"over_others", 50, 1, 40, 3, true}, Feed{"falling", 50, 1, -40, 3, true},
                      Feed{"all_fall_by_little", 60, 1, -1, 7, false},
                      Feed{"scattered", 50, 7, 25, 3, true}, Feed{"many_ties", 80, 1, 1, 0, true},
                      Feed{"a_quarter_of_all", 480, 1, 500, 1, true},
                      Feed{"far_apart_prices", 50, 1, 90000, 100000, false},
                      Feed{"far_apart_prices_falling", 50, 1, -90000, 100000, true}),
    [](const auto &info) { return info.param.name; });

} // namespace
