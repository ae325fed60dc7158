// Sorted indexes over columns of every type, in step with models that sort in the plainest way.

#include "support/batches.h"

#include <database/indexes/indexsort.h>
#include <database/tables/cellcompare.h>

#include <algorithm>
#include <memory>

namespace
{

constexpr int kFirst = 2; // the columns behind the key: one of each type, not nullable
constexpr int kNullable = 10;

/// What an index goes by; the columns of ofEveryType().
struct Order {
    std::vector<int> columns;
    bool tellsColumns = false;
    Qt::SortOrder direction = Qt::AscendingOrder;
    bool filters = false;  // by the first integer
    bool isMissed = false; // half of the batches come without preprocess()
};

constexpr int columnOf(FieldType::Type type, bool nullable)
{
    return (nullable ? kNullable : kFirst) + type - FieldType::Integer;
}

bool isListed(qint64 number)
{
    return number % 4 != 0;
}

class Sorted : public IndexSort
{
public:
    Sorted(Table *table, const Order &order)
        : IndexSort(table, true)
        , m_order(order)
    {
        if (order.tellsColumns)
            setColumns(QVector<int>(order.columns.begin(), order.columns.end()).toList(),
                       order.filters ? QList<int>{kFirst} : QList<int>(), order.direction);
    }
    int compare(const Record &a, const Record &b) const override
    {
        for (const int column : m_order.columns) {
            if (const int order = compareCells(*table()->columnDef(column), a, b))
                return m_order.direction == Qt::AscendingOrder ? order : -order;
        }
        return 0;
    }
    bool filter(const Record &row) const override
    {
        return !m_order.filters || isListed(row.data(kFirst).value<qint32>());
    }
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int from, int to,
                    const QList<Record> &inserted, const QList<Record> &values) override
    {
        m_misses = !m_misses;
        if (!m_order.isMissed || !m_misses)
            IndexSort::preprocess(removed, updated, from, to, inserted, values);
    }

private:
    const Order m_order;
    bool m_misses = false;
};

/// An index beside its model.
struct Pair {
    Pair(Table *table, const TableModel &rows, const Order &byOrder)
        : order(byOrder)
        , model(
              [&rows, byOrder](const ModelRow &a, const ModelRow &b) {
                  for (const int column : byOrder.columns) {
                      const auto &def = rows.schema.columns[size_t(column)];
                      const size_t i = size_t(column);
                      if (const int order = compareCell(def, a.cells[i], b.cells[i]))
                          return byOrder.direction == Qt::AscendingOrder ? order : -order;
                  }
                  return 0;
              },
              [byOrder](const ModelRow &row) {
                  const Cell &cell = row.cells[kFirst];
                  return !byOrder.filters || isListed(cell.isNull ? 0 : cell.number);
              })
    {
        rebuild(table, rows);
    }
    void rebuild(Table *table, const TableModel &rows)
    {
        index = std::make_unique<Sorted>(table, order);
        index->build();
        model.build(rows);
    }

    Order order;
    SortedModel model;
    std::unique_ptr<Sorted> index;
};

struct Scenario {
    const char *name;
    KeyKind keys;
    int rows;
    int batches;
    int largest; // batch
    bool notANumber = false;
    bool isFeed = false; // nothing else happens
};

class SortedIndexes : public ::testing::TestWithParam<Scenario>
{
protected:
    SortedIndexes()
    {
        model.schema.addTo(table, scenario.keys);
        if (!scenario.notANumber)
            maker.leaveOut(Pattern::NotANumber);
        for (int i = int(Pattern::Swaps); scenario.isFeed && i < int(Pattern::SideBySide); ++i)
            maker.leaveOut(Pattern(i));
        const auto at = columnOf;
        const int number = at(FieldType::Integer, true), time = at(FieldType::DateTime, false);
        const int text = at(FieldType::VarChar, true), price = at(FieldType::Decimal, false);
        const Order orders[] = {
            {{number}, false},
            {{time}, true},
            {{at(FieldType::DateTime, true), time}, true, Qt::DescendingOrder},
            {{number, text}, true, Qt::AscendingOrder, true},
            {{text, price}, true},
            {{price}, true, Qt::DescendingOrder, true, true},
            {{at(FieldType::Decimal, true), number}, true},
            {{at(FieldType::Integer64, true)}, true},
            {{at(FieldType::XDecimal, true)}, true},
            {{at(FieldType::XDecimal, false)}, false, Qt::AscendingOrder, false, true},
            {{at(FieldType::Double, true)}, true},
            {{scenario.notANumber ? number : at(FieldType::Double, false)}, false}};
        for (const Order &order : orders)
            pairs.push_back(std::make_unique<Pair>(&table, model, order));
        pairs[1]->index->setIndependent(true);
        pairs[2]->index->setIndependent(true);
    }

    void run(const Batch &batch)
    {
        RecordsTrans trans(&table);
        TableModel::Pending pending;
        ASSERT_NO_FATAL_FAILURE(fill(trans, batch));
        model.fill(pending, batch);
        {
            const TableUpdate bracket(table);
            trans.execute();
        }
        changes = model.run(pending);
        ASSERT_NO_FATAL_FAILURE(model.compare(table));
        for (const auto &pair : pairs)
            pair->model.apply(changes);
    }
    void check(const Pair &pair);
    void checkSearches(const Pair &pair);
    /// NaN equals everything, so its neighbours stand in no order.
    bool isOrdered(const Pair &pair) const
    {
        return !scenario.notANumber ||
               model.schema.columns[size_t(pair.order.columns[0])].type != FieldType::Double;
    }

    const Scenario scenario = GetParam();
    Table table{QStringLiteral("quotes"), QString()};
    TableModel model{Schema::ofEveryType(scenario.keys)};
    Random random{unsigned(scenario.rows)};
    BatchMaker maker{model, scenario.rows, random, scenario.largest};
    std::vector<std::unique_ptr<Pair>> pairs;
    Changes changes; // of the last batch
};

void SortedIndexes::check(const Pair &pair)
{
    const Sorted &index = *pair.index;
    const std::vector<RowPointer> &order = pair.model.order();
    ASSERT_TRUE(index.verify());
    ASSERT_EQ(index.count(), int(order.size()));
    if (!isOrdered(pair)) {
        std::vector<const uchar *> held, expected;
        for (int i = 0; i < index.count(); ++i) {
            held.push_back(index.at(i).row());
            expected.push_back(order[size_t(i)]->block);
        }
        std::sort(held.begin(), held.end());
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(held, expected);
        for (int i = 0; i < index.count(); i += 17)
            ASSERT_EQ(index.indexOf(index.at(i)), i);
        return;
    }
    int i = 0;
    for (const Record &record : index) {
        ASSERT_EQ(record.row(), order[size_t(i)]->block)
            << "position " << i << " of " << order.size() << " holds "
            << cells(record).toStdString();
        ++i;
    }
    for (const RowPointer &row : changes.updated) {
        const Record record(const_cast<uchar *>(row->block));
        ASSERT_TRUE(!pair.model.accepts(*row) || index.search(record, -1) != -1)
            << "of " << cells(record).toStdString();
    }
    for (int times = 0; times < 3; ++times)
        ASSERT_NO_FATAL_FAILURE(checkSearches(pair));
}

void SortedIndexes::checkSearches(const Pair &pair)
{
    const Sorted &index = *pair.index;
    const std::vector<RowPointer> &order = pair.model.order();
    if (model.rows.empty())
        return;
    // A row's own key, or one between those of rows.
    ModelRow sought = *std::next(model.rows.begin(), random.below(int(model.rows.size())))->second;
    const auto &other =
        *std::next(model.rows.begin(), random.below(int(model.rows.size())))->second;
    if (random.oneIn(2)) {
        const auto column = size_t(pair.order.columns[0]);
        sought.cells[column] = other.cells[column];
        Cell &cell = sought.cells[column];
        if (std::abs(double(cell.number)) < 1e9 || cell.number % 1000 == 0) // not at an edge
            cell.number += random.below(3) - 1;
        cell.real += random.below(3) / 16.;
    }
    const Record key(&table);
    for (size_t i = 0; i < sought.cells.size(); ++i)
        writeCell(key.data(int(i)), sought.cells[i]);
    const auto row = std::make_shared<ModelRow>(sought);
    const auto less = [&](const RowPointer &a, const RowPointer &b) {
        return pair.model.less(a, b);
    };
    const int from = random.below(index.count() + 8) - 4;
    const auto start = order.begin() + qBound(0, from + 1, index.count());
    const auto [low, high] = std::equal_range(start, order.end(), row, less);
    const bool found = low != high;
    ASSERT_EQ(index.search(key, from), found ? low - order.begin() : -1);
    ASSERT_EQ(index.searchLast(key, from), found ? high - order.begin() - 1 : -1);
    ASSERT_EQ(index.searchFull(key, from), found ? low - start : -1);
    ASSERT_EQ(index.find(key, from).row(), found ? (*low)->block : nullptr);
    ASSERT_EQ(index.indexOfAdd(key),
              std::upper_bound(order.begin(), order.end(), row, less) - order.begin());
    const QList<Record> keys{key, index.count() > 0 ? index.at(0) : key};
    ASSERT_EQ(index.findAll(keys),
              (QList<Record>{index.find(keys.first(), -1), index.find(keys.last(), -1)}));
    const Record any = table.at(random.below(table.rowCount()));
    const auto place = std::find_if(order.begin(), order.end(),
                                    [&](const RowPointer &p) { return p->block == any.row(); });
    const int position = place == order.end() ? -1 : int(place - order.begin());
    ASSERT_EQ(index.indexOf(any), position);
    ASSERT_EQ(index.indexOfs({any}), (QMap<Record, int>{{any, position}}));
}

TEST_P(SortedIndexes, keepTheOrdersOfThePlainModels)
{
    run(maker.everything());
    for (int step = 0; step < runSteps(scenario.batches) && !HasFailure(); ++step) {
        const Batch batch = maker.next();
        TRACE_STEP(step);
        SCOPED_TRACE(batch.pattern);
        run(batch);
        for (size_t i = 0; i < pairs.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "index " << i);
            check(*pairs[i]);
        }
        if (random.oneIn(20)) // one goes and comes again, at the end of the registry
            random.any(pairs)->rebuild(&table, model);
    }
}

INSTANTIATE_TEST_SUITE_P(IndexSort, SortedIndexes,
                         ::testing::Values(Scenario{"a_few_rows", ByValue, 12, 500, 20}, //
                                           Scenario{"some_rows", AsBytes, 150, 400, 150},
                                           Scenario{"some_rows_of_no_numbers", ByValue, 150, 300,
                                                    150, true},
                                           Scenario{"many_rows", AsBytes, 2000, 60, 800},
                                           Scenario{"a_feed", ByValue, 2000, 200, 50, false, true},
                                           Scenario{"several_chunks", ByValue, 12000, 4, 4000}),
                         [](const auto &info) { return info.param.name; });

} // namespace
