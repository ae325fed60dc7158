#include "indexes/indexfixture.h"

#include <limits>
#include <random>

namespace
{

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
