// The largest batches that a table can meet. Whoever knew that such a batch comes would clear the
// indexes and build them again, so a batch may take no longer than that.
//
// usage: bench_worst [--quick] [--rows N] [--rounds N] [--only CASE]

#include "clock.h"
#include "options.h"
#include "quotes.h"
#include "report.h"
#include "require.h"
#include "worstcases.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <random>

namespace
{

// What is put off until then counts.
void askForFirsts(const Quotes &quotes)
{
    for (const ByColumn &order : quotes.orders)
        require(!order.at(0).isNull(), "asking for the first record");
}

/// Nanoseconds that batches have taken the indexes.
double timeInIndexes(const Quotes &quotes)
{
    qint64 time = quotes.table.masterIndex()->nsecsElapsed();
    for (const ByColumn &order : quotes.orders)
        time += order.nsecsElapsed();
    return double(time);
}

void buildOrders(Quotes &quotes)
{
    for (ByColumn &order : quotes.orders)
        order.rebuild();
}

/// Clears all indexes and builds them over the given rows.
void buildAll(Quotes &quotes, const QList<Record> &rows)
{
    MasterIndex &keys = *quotes.table.masterIndex();
    keys.clear();
    for (const Record &row : rows)
        keys.IndexList::add(row); // to the end: sorted once, below
    keys.resort();
    buildOrders(quotes);
}

QList<Record> newRecords(const QuotesTable &table, const Rows &rows)
{
    QList<Record> result;
    result.reserve(int(rows.size()));
    for (const Row &row : rows)
        result.append(table.newRecord(row));
    return result;
}

QList<Record> inKeyOrder(const QuotesTable &table)
{
    QList<Record> result;
    result.reserve(table.rowCount());
    for (const Record &record : *table.masterIndex())
        result.append(record);
    return result;
}

/// One case, measured as often as wanted, each time on a table of its own.
class Measurement
{
public:
    Measurement(std::string name, WorstCase given)
        : m_name(std::move(name))
        , m_case(std::move(given))
        , m_after(byKey(m_case.after()))
        , m_changes(m_case.changed.size())
    {
        std::iota(m_changes.begin(), m_changes.end(), 0);
        std::sort(m_changes.begin(), m_changes.end(), [this](int a, int b) {
            const Rows &rows = m_case.before;
            return std::memcmp(&rows[size_t(a)].key, &rows[size_t(b)].key, sizeof(Key)) < 0;
        });
        if (m_case.shuffled)
            std::shuffle(m_changes.begin(), m_changes.end(), std::mt19937(kSeed));
    }

    /// The batch; then, over what it has left, what would be done in its place.
    void run(Report &report) const
    {
        const auto add = [&](const char *line, const char *contender, double taken) {
            report.add(m_name + line, Report::Unit::Nanoseconds, contender, taken);
        };
        Quotes quotes;
        RecordsTrans batch(&quotes.table);
        prepare(quotes, batch);
        QList<Record> rows = inKeyOrder(quotes.table);
        rows += batch.insertList();

        add("", "batch", execute(quotes, batch));
        add(": in indexes", "batch", timeInIndexes(quotes));
        checkRows(quotes.table);
        checkOrders(quotes, "the batch");

        const bool loads = m_case.changed.empty();
        add("", "rebuild", loads ? load(quotes, rows) : write(quotes, rows));
        checkOrders(quotes, "rebuilding");

        // Changed values leave the index of the key as it is.
        add(": in indexes", "rebuild", nanoseconds([&] {
                loads ? buildAll(quotes, rows) : buildOrders(quotes);
                askForFirsts(quotes);
            }));
        checkOrders(quotes, "rebuilding indexes");
    }

private:
    void prepare(Quotes &quotes, RecordsTrans &batch) const
    {
        const QList<Record> live = newRecords(quotes.table, m_case.before);
        buildAll(quotes, live);
        for (const int i : m_changes) {
            const Row &values = m_case.changed[size_t(i)];
            RecordUpdater pending = batch.updateRow(live.at(i));
            pending.field(kLast).setValue(values.last);
            pending.field(kVolume).setValue(qint64(values.volume));
            pending.field(kTime).setValue(datetime(values.time));
        }
        const QList<Record> inserted = newRecords(quotes.table, m_case.inserted);
        for (const Record &record : inserted)
            batch.insertRow(record);
    }

    static double execute(Quotes &quotes, RecordsTrans &batch)
    {
        return nanoseconds([&] {
            {
                const TableUpdate bracket(quotes.table);
                batch.execute();
            }
            askForFirsts(quotes);
        });
    }

    static double load(Quotes &quotes, const QList<Record> &rows)
    {
        return nanoseconds([&] {
            {
                const TableIndexRebuilder rebuilder(&quotes.table);
                const TableUpdate bracket(quotes.table);
                quotes.table.clear();
                quotes.table.appendList(rows);
            }
            askForFirsts(quotes);
        });
    }

    /// Writes the values that the rows already have, from other memory.
    static double write(Quotes &quotes, const QList<Record> &rows)
    {
        QList<Record> values;
        values.reserve(rows.size());
        for (const Record &row : rows)
            values.append(row.clone());
        return nanoseconds([&] {
            {
                const TableIndexRebuilder rebuilder(&quotes.table);
                const TableUpdate bracket(quotes.table);
                for (int i = 0; i < rows.size(); ++i)
                    Record(rows.at(i)).copy(values.at(i), kLast, kTime);
            }
            askForFirsts(quotes);
        });
    }

    void checkRows(const QuotesTable &table) const
    {
        bool same = table.rowCount() == int(m_after.size());
        for (int i = 0; same && i < table.rowCount(); ++i) {
            const Row row = QuotesTable::rowOf(table.at(i));
            same = std::memcmp(&row, &m_after[size_t(i)], sizeof row) == 0;
        }
        require(same, m_name + ": the rows after the batch");
    }

    /// Each order is one and holds the rows of the table.
    void checkOrders(const Quotes &quotes, const std::string &what) const
    {
        const std::uint64_t rows = sortedChecksum(*quotes.table.masterIndex());
        bool good = rows != 0 && quotes.table.rowCount() == int(m_after.size());
        for (const ByColumn &order : quotes.orders)
            good =
                good && order.count() == quotes.table.rowCount() && sortedChecksum(order) == rows;
        require(good, m_name + ": the orders after " + what);
    }

    /// The same for every index over the same rows; 0 where they are not sorted.
    static std::uint64_t sortedChecksum(const IndexSort &index)
    {
        std::uint64_t sum = 1;
        const Record *before = nullptr;
        for (const Record &record : index) {
            if (before && index.compare(*before, record) > 0)
                return 0;
            before = &record;
            const std::uint64_t hash = quintptr(record.row()) * 0x9E3779B97F4A7C15;
            sum += hash ^ (hash >> 32);
        }
        return sum;
    }

    static constexpr unsigned kSeed = 7;

    const std::string m_name;
    const WorstCase m_case;
    const Rows m_after;         // by key
    std::vector<int> m_changes; // places of the changed rows, in the order in which they come
};

} // namespace

int main(int argc, char *argv[])
{
    const Options options = readOptions(argc, argv);
    require(options.directory.empty(), "no use for '" + options.directory + "'");
    std::vector<WorstKind> kinds = worstKinds();
    kinds.erase(std::remove_if(kinds.begin(), kinds.end(),
                               [&](const WorstKind &kind) {
                                   return !options.only.empty() && options.only != kind.name;
                               }),
                kinds.end());
    require(!kinds.empty(), "no case is named '" + options.only + "'");

    const int count = options.rows > 0 ? options.rows : options.quick ? 100000 : 1000000;
    const Rows all = Market(2 * count).rows();
    const Rows rows(all.begin(), all.begin() + count);
    const Rows others(all.begin() + count, all.end());
    Report report("batch");
    for (const WorstKind &kind : kinds) {
        const Measurement measurement(kind.name, kind.make(rows, others));
        for (int round = 0; round < options.rounds; ++round) {
            std::fprintf(stderr, "%s, round %d of %d\n", kind.name, round + 1, options.rounds);
            measurement.run(report);
        }
    }
    report.print("worst cases, " + std::to_string(count) + " rows");
    return 0;
}
