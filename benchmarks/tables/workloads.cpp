// A market's table under its key and in three orders: the library beside what would be used in its
// place. Every engine does the same work on the same rows, taking turns; sums and orders have to
// agree, or the program ends with an error.
//
// usage: bench_tables [--quick] [--rows N] [--rounds N] [--only CONTENDER] [DIRECTORY]
// (where files are saved; the system's temporary one)

#include "clock.h"
#include "engine.h"
#include "files.h"
#include "flatorders.h"
#include "options.h"
#include "report.h"
#include "residency.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>

namespace
{

constexpr int kInsertBatch = 10000;
constexpr int kBatches = 200, kBatchRows = 1000;
constexpr int kTicks = 20000;
constexpr int kQuestions = 1000000;
constexpr std::array<Order, 3> kOrders = {Order::Last, Order::Volume, Order::Time};
constexpr int kProxyRows = 100000; // more take minutes

/// Everything that happens to the rows, written down before the clock runs, and what has to come
/// out.
struct Script {
    explicit Script(int rows)
    {
        Market market(rows);
        initial = market.rows();
        for (int i = 0; i < kTicks; ++i)
            ticks.push_back(market.tick());
        afterTicks = checksums(market);
        for (int i = 0; i < kBatches; ++i)
            trades.push_back(market.trade(kBatchRows));
        for (int i = 0; i < kBatches; ++i)
            quotes.push_back(market.quote(kBatchRows));
        for (int i = 0; i < kBatches; ++i)
            replacements.push_back(market.replace(kBatchRows / 2));
        atTheEnd = checksums(market);
        keys = market.someKeys(kQuestions);
        places = market.somePlaces(kQuestions);
    }

    using Checksums = std::vector<std::uint64_t>;
    static Checksums checksums(const Market &market)
    {
        Checksums result;
        for (const Order order : kOrders)
            result.push_back(sortedChecksum(market.rows(), order));
        return result;
    }

    std::vector<Row> initial, ticks;
    std::vector<std::vector<Row>> trades, quotes;
    std::vector<Replacement> replacements;
    std::vector<Key> keys;
    std::vector<int> places;
    Checksums afterTicks, atTheEnd;
};

double percentile(std::vector<double> &samples, double share)
{
    const auto at = samples.begin() + std::ptrdiff_t(double(samples.size() - 1) * share);
    std::nth_element(samples.begin(), at, samples.end());
    return *at;
}

double total(const Firsts &firsts)
{
    return firsts.last + double(firsts.volume) + double(firsts.time);
}

void insertAll(Engine &engine, const std::vector<Row> &rows)
{
    for (size_t i = 0; i < rows.size(); i += kInsertBatch) {
        engine.insert(rows.data() + i, int(std::min(rows.size() - i, size_t(kInsertBatch))));
        engine.firsts();
    }
}

/// The rounds over tables of one size.
class Rounds
{
public:
    Rounds(Report &report, const std::string &directory, const Script &script)
        : m_report(report)
        , m_directory(directory)
        , m_script(script)
        , m_flat(script.initial, kInsertBatch, script.ticks, script.trades)
        , m_size(sizeName(int(script.initial.size())))
    {
    }

    static std::string sizeName(int rows) { return ", " + std::to_string(rows / 1000) + "k"; }

    void run(int round, const std::vector<EngineMaker> &makers)
    {
        m_engines.clear();
        for (const EngineMaker &maker : makers)
            m_engines.push_back(maker());
        // Whoever goes first finds the machine in another state: let it be another one each time.
        std::rotate(m_engines.begin(), m_engines.begin() + round % int(makers.size()),
                    m_engines.end());
        fill();
        tick();
        check(m_script.afterTicks);
        m_engines.erase(
            std::remove_if(m_engines.begin(), m_engines.end(),
                           [](const auto &e) { return e->share(Workload::Trade) == 0; }),
            m_engines.end());
        change();
        check(m_script.atTheEnd);
        ask();
        saveAndLoad(makers);
    }

private:
    /// Lets each engine do its share of \p operations. What they return has to be the same for all
    /// that do the whole, and is returned.
    template<class Work>
    double measure(Workload workload, const std::string &name, int operations, const Work &work)
    {
        std::optional<double> expected;
        for (const auto &engine : m_engines) {
            const int share = engine->share(workload);
            if (share == 0)
                continue;
            double result = 0;
            const int count = operations / share;
            const double taken = nanoseconds([&] { result = double(work(*engine, count)); });
            m_report.add(name + m_size, Report::Unit::Nanoseconds, engine->name(), taken / count);
            if (share == 1)
                require(expected.value_or(result) == result, engine->name() + " in " + name);
            if (share == 1)
                expected = result;
        }
        return expected.value_or(0);
    }

    void fill()
    {
        const std::vector<Row> &rows = m_script.initial;
        static const std::string kInsert = "W1 insert a row";
        const auto insert = [&](Engine &engine, int) {
            insertAll(engine, rows);
            return total(engine.firsts());
        };
        const double firsts = measure(Workload::Insert, kInsert, int(rows.size()), insert);
        measureFlat(kInsert, firsts, int(rows.size()), &FlatOrders::insert);
        for (const auto &engine : m_engines) {
            if (engine->share(Workload::Insert) == 0)
                insertAll(*engine, rows);
        }
    }

    void tick()
    {
        std::vector<double> expected;
        for (const auto &engine : m_engines) {
            std::vector<double> taken, firsts;
            for (const Row &row : m_script.ticks) {
                taken.push_back(nanoseconds([&] {
                    engine->tick(row);
                    firsts.push_back(total(engine->firsts()));
                }));
            }
            if (expected.empty())
                expected = firsts;
            require(firsts == expected, engine->name() + " in ticks");
            constexpr auto kTime = Report::Unit::Nanoseconds;
            m_report.add("W4b tick, median" + m_size, kTime, engine->name(),
                         percentile(taken, 0.5));
            m_report.add("W4b tick, 99th percentile" + m_size, kTime, engine->name(),
                         percentile(taken, 0.99));
        }
    }

    template<class Batches, class Apply>
    double batches(Workload workload, const std::string &name, const Batches &batches,
                   const Apply &apply)
    {
        return measure(workload, name, kBatches * kBatchRows, [&](Engine &engine, int) {
            double firsts = 0;
            for (const auto &batch : batches) {
                (engine.*apply)(batch);
                firsts += total(engine.firsts());
            }
            return firsts;
        });
    }

    void change()
    {
        static const std::string kTrade = "W2 last, volume, time of a row";
        const double firsts = batches(Workload::Trade, kTrade, m_script.trades, &Engine::trade);
        m_flat.reset();
        measureFlat(kTrade, firsts, kBatches * kBatchRows, &FlatOrders::trade);
        batches(Workload::Quote, "W3 bid, ask of a row", m_script.quotes, &Engine::quote);
        batches(Workload::Replace, "W4 remove or insert a row", m_script.replacements,
                &Engine::replace);
    }

    void measureFlat(const std::string &name, double expected, int operations,
                     double (FlatOrders::*work)())
    {
        double firsts = 0;
        const double taken = nanoseconds([&] { firsts = (m_flat.*work)(); });
        require(firsts == expected, "flat orders in " + name);
        m_report.add(name + m_size, Report::Unit::Nanoseconds, "limit", taken / operations);
    }

    void ask()
    {
        const int *places = m_script.places.data();
        measure(Workload::Find, "W5 find by key", kQuestions,
                [&](Engine &e, int count) { return e.find(m_script.keys.data(), count); });
        measure(Workload::Find, "W5 find by key, a list of keys", kQuestions,
                [&](Engine &e, int count) { return e.findMany(m_script.keys.data(), count); });
        measure(Workload::At, "W6 record at a position", kQuestions,
                [&](Engine &e, int count) { return e.at(places, count); });
        for (const auto &engine : m_engines)
            engine->hold(m_script.keys);
        measure(Workload::Rank, "W6 position of a record", kQuestions, [&](Engine &e, int count) {
            m_ranks += e.ranks(count); // of ties, it depends on the engine
            return 0;
        });
        for (const auto &engine : m_engines)
            require(engine->ranksAreTrue(100), engine->name() + " in ranks");
        measure(Workload::Walk, "W7 walk to the next record", int(m_script.initial.size()),
                [](Engine &e, int) { return e.walk(); });
    }

    void saveAndLoad(const std::vector<EngineMaker> &makers)
    {
        const auto where = [this](const Engine &e) { return m_directory + '/' + e.name(); };
        for (const auto &engine : m_engines)
            std::filesystem::create_directory(where(*engine));
        // The packed file is replaced by the plain one, which the limits measure.
        measure(Workload::Pack, "W8 save, gzip", 1, [&](Engine &e, int) {
            e.save(where(e), true);
            return 0;
        });
        load(Workload::Pack, "W8 load, gzip", makers);
        measure(Workload::Save, "W8 save, plain", 1, [&](Engine &e, int) {
            e.save(where(e), false);
            return 0;
        });
        load(Workload::Load, "W8 load, plain", makers);
        measureLimits(m_directory + "/library/quotes");
    }

    /// Into new engines, which then hold what the others hold.
    void load(Workload workload, const std::string &name, const std::vector<EngineMaker> &makers)
    {
        std::vector<std::unique_ptr<Engine>> loaded;
        for (const EngineMaker &maker : makers) {
            if (auto engine = maker(); engine->share(workload) == 1)
                loaded.push_back(std::move(engine));
        }
        m_engines.swap(loaded);
        measure(workload, name, 1, [this](Engine &e, int) {
            e.load(m_directory + '/' + e.name());
            return total(e.firsts());
        });
        check(m_script.atTheEnd);
        m_engines.swap(loaded);
    }

    /// The same bytes without a table.
    void measureLimits(const std::string &file)
    {
        const std::vector<char> bytes = readFile(file);
        const auto limit = [this](const std::string &name, double taken) {
            m_report.add(name + m_size, Report::Unit::Nanoseconds, "limit", taken);
        };
        limit("W8 save, plain",
              nanoseconds([&] { writeFile(m_directory + "/bytes", bytes.data(), bytes.size()); }));
        limit("W8 load, plain", nanoseconds([&] { require(readFile(file) == bytes, "reading"); }));
        limit("W8 save, gzip", nanoseconds([&] { require(packedSize(bytes) > 0, "packing"); }));
    }

    void check(const Script::Checksums &expected)
    {
        for (const auto &engine : m_engines) {
            for (size_t i = 0; i < kOrders.size(); ++i) {
                OrderChecksum checksum(kOrders[i]);
                bool sorted = true;
                engine->visit(kOrders[i], [&](const Row &row) { sorted &= checksum.add(row); });
                require(sorted && checksum.value() == expected[i],
                        engine->name() + ": order " + std::to_string(i));
            }
        }
    }

    Report &m_report;
    const std::string m_directory;
    const Script &m_script;
    FlatOrders m_flat;
    const std::string m_size; // behind the names of workloads
    std::vector<std::unique_ptr<Engine>> m_engines;
    std::int64_t m_ranks = 0; // of every question, so that none can be left out
};

/// What a table of so many rows is measured with: the library, and all peers or the one named.
std::vector<EngineMaker> contenders(int rows, const std::string &only)
{
    std::vector<EngineMaker> makers = {libraryEngine(), orderedEngine(), hashedEngine(),
                                       sqliteEngine()};
    if (rows <= kProxyRows)
        makers.push_back(proxyEngine());
    const auto isUnwanted = [&](const EngineMaker &maker) {
        const std::string name = maker()->name();
        return !only.empty() && name != only && name != "library";
    };
    makers.erase(std::remove_if(makers.begin(), makers.end(), isUnwanted), makers.end());
    return makers;
}

void measureResidency(Report &report, const std::vector<EngineMaker> &makers, int rows)
{
    const Market market(rows);
    for (const EngineMaker &maker : makers) {
        const auto engine = maker();
        if (engine->share(Workload::Insert) == 0)
            continue;
        const double bytes = residentBytes([&] { insertAll(*engine, market.rows()); });
        report.add("W1 resident bytes of a row" + Rounds::sizeName(rows), Report::Unit::Bytes,
                   engine->name(), bytes / rows);
    }
}

/// What a row costs in the largest table compared to the smallest.
void noteScale(Report &report, int small, int large)
{
    for (const char *name : {"W2 last, volume, time of a row", "W4 remove or insert a row",
                             "W4b tick, median", "W4b tick, 99th percentile"}) {
        std::string line = std::string("scale") + Rounds::sizeName(large) + " to" +
                           Rounds::sizeName(small).substr(1) + ": " + name + ":";
        for (const std::string &contender : report.contenders()) {
            const double few = report.median(name + Rounds::sizeName(small), contender);
            const double many = report.median(name + Rounds::sizeName(large), contender);
            char ratio[32];
            std::snprintf(ratio, sizeof ratio, " %.2f", few > 0 ? many / few : 0);
            if (few > 0 && many > 0)
                line += " " + contender + ratio;
        }
        report.note(line);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const Options options = readOptions(argc, argv);
    const std::string &only = options.only;
    require(only.empty() || only == "library" || contenders(kProxyRows, only).size() == 2,
            "no contender is named '" + only + "'");
    require(options.rows == 0 || options.rows >= kBatchRows,
            "a batch changes " + std::to_string(kBatchRows) + " rows");
    const std::string place = options.directory.empty()
                                  ? std::filesystem::temp_directory_path().string()
                                  : options.directory;
    std::string directory = place + "/bench-tables-XXXXXX";
    require(mkdtemp(directory.data()) != nullptr, "making a directory in " + place);

    std::vector<int> sizes = {100000, 1000000};
    if (options.rows > 0)
        sizes = {options.rows};
    else if (options.quick)
        sizes.pop_back();
    Report report("library");
    for (const int rows : sizes)
        measureResidency(report, contenders(rows, only), rows); // before any thread runs
    for (const int rows : sizes) {
        const Script script(rows);
        const std::vector<EngineMaker> makers = contenders(rows, only);
        Rounds measured(report, directory, script);
        for (int round = 0; round < options.rounds; ++round) {
            std::fprintf(stderr, "%d rows, round %d of %d\n", rows, round + 1, options.rounds);
            measured.run(round, makers);
        }
    }
    if (sizes.size() > 1)
        noteScale(report, sizes.front(), sizes.back());
    std::filesystem::remove_all(directory);
    report.print("tables, medians of " + std::to_string(options.rounds) + " rounds");
    return 0;
}
