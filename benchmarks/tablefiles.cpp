// Table files against the least that such work can cost: the same bytes through write() or read(),
// the same rows into the same indexes without a file, the same bytes through bare zlib.
//
// usage: bench_tablefiles [ROWS [ROUNDS [DIR]]]

#include "files.h"
#include "indexes.h"
#include "require.h"
#include "tables.h"

#include <database/icore.h>
#include <database/persistence/tableio.h>
#include <database/tables/tableindexrebuilder.h>

#include <QtCore/qdir.h>
#include <QtCore/qelapsedtimer.h>
#include <QtCore/qtemporarydir.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <vector>

namespace
{

class BenchCore : public ICore
{
public:
    BenchCore() { setInstance(this); }
    ~BenchCore() override { setInstance(nullptr); }
    bool hasTable(const QString &) const override { return false; }
    Table *table(const QString &) const override { return nullptr; }
    bool compressTableFiles() const override { return compress; }

    bool compress = false;
};

/// The board's options with the orders of its views.
struct Options {
    using Table = OptionTable;

    OptionTable table;
    ColumnIndex byVolume{&table,
                         {{Table::kVolume, SortColumn::Descending},
                          {Table::kStock},
                          {Table::kExpiry},
                          {Table::kStrike},
                          {Table::kSide}}};
    ColumnIndex byChange{&table,
                         {{Table::kChange, SortColumn::Descending},
                          {Table::kStock},
                          {Table::kExpiry},
                          {Table::kStrike},
                          {Table::kSide}}};
    ColumnIndex byStrike{&table,
                         {{Table::kStock}, {Table::kStrike}, {Table::kExpiry}, {Table::kSide}}};

    bool isReady(int rows) const
    {
        return table.rowCount() == rows && byVolume.count() == rows && byChange.count() == rows &&
               byStrike.count() == rows;
    }
};

QList<Record> randomRows(const Table &table, int count)
{
    std::mt19937 random(20260302);
    QList<Record> rows;
    rows.reserve(count);
    for (int i = 0; i < count; ++i) {
        const Record row(&table);
        // In key order, as a master index holds them: strikes of 200 steps, both sides.
        row.data(OptionTable::kStock)
            .setValue(QStringLiteral("S%1").arg(i / 1600, 6, 10, QLatin1Char('0')));
        row.data(OptionTable::kExpiry).setValue(datetime(1772409600000 + i / 400 % 4 * 2419200000));
        row.data(OptionTable::kStrike).setValue(decimal::fromParts(10000 + i / 2 % 200 * 250, 2));
        row.data(OptionTable::kSide).setValue(QString(QLatin1Char(i % 2 ? 'P' : 'C')));
        row.data(OptionTable::kOpenInterest).setValue(qint64(random() % 100000));
        row.data(OptionTable::kVolume).setValue(qint64(random() % 1000000));
        if (random() % 4 != 0) {
            row.data(OptionTable::kLast).setValue(decimal::fromParts(random() % 100000, 2));
            row.data(OptionTable::kOpen).setValue(decimal::fromParts(random() % 100000, 2));
            row.data(OptionTable::kChange)
                .setValue(decimal::fromParts(int(random() % 20000) - 10000, 2));
        }
        row.data(OptionTable::kTime).setValue(datetime(1772449200000 + random() % 21600000));
        rows.append(row);
    }
    return rows;
}

struct Measured {
    const char *name;
    std::function<void()> prepare; ///< not timed
    std::function<void()> run;
    std::vector<double> seconds = {};

    double median() const
    {
        std::vector<double> sorted = seconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }
};

} // namespace

int main(int argc, char *argv[])
{
    const int count = argc > 1 ? std::atoi(argv[1]) : 1000000;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
    const QTemporaryDir place(argc > 3 ? QString::fromLocal8Bit(argv[3]) + "/bench-XXXXXX"
                                       : QDir::tempPath() + "/bench-XXXXXX");
    require(count > 0 && rounds > 0 && place.isValid(), "reading the arguments");
    const QDir dir(place.path());
    const std::string path = dir.filePath("options").toStdString();
    const std::string barePath = dir.filePath("bare").toStdString();
    BenchCore core;
    Options source;
    const QList<Record> rows = randomRows(source.table, count);
    source.table.appendList(rows);
    require(TableIO(&source.table).write(dir), "saving");
    const std::vector<char> bytes = readFile(path);
    auto target = std::make_unique<Options>();
    const auto fresh = [&] { target = std::make_unique<Options>(); };
    const auto nothing = [] {};
    const auto build = [&](bool clone) {
        {
            TableIndexRebuilder rebuilder(&target->table);
            const TableUpdate update(target->table);
            QList<Record> list;
            list.reserve(count);
            for (const Record &row : rows)
                list.append(clone ? row.clone() : row);
            target->table.appendList(list);
        }
        require(target->isReady(count), "building");
    };

    Measured measured[] = {
        {"write() and flush the bytes", nothing,
         [&] { writeFile(barePath, bytes.data(), bytes.size()); }},
        {"save, plain", [&] { core.compress = false; },
         [&] { require(TableIO(&source.table).write(dir), "saving"); }},
        {"read() the bytes", nothing, [&] { require(readFile(path) == bytes, "reading"); }},
        {"build from rows as they are", fresh, [&] { build(false); }},
        {"build from copies of rows", fresh, [&] { build(true); }},
        {"load, plain", fresh,
         [&] {
             TableIO(&target->table).read(dir, false);
             require(target->isReady(count), "loading");
         }},
        {"zlib, level 6", nothing, [&] { require(packedSize(bytes) > 0, "packing"); }},
        {"save, gzip", [&] { core.compress = true; },
         [&] { require(TableIO(&source.table).write(dir), "saving"); }},
        {"load, gzip", fresh,
         [&] {
             TableIO(&target->table).read(dir, false);
             require(target->isReady(count), "loading");
         }},
    };
    // Every round ends with the compressed file; the plain one is needed again for reading.
    for (int round = 0; round < rounds; ++round) {
        for (Measured &m : measured) {
            m.prepare();
            QElapsedTimer timer;
            timer.start();
            m.run();
            m.seconds.push_back(double(timer.nsecsElapsed()) * 1e-9);
        }
        const auto isSame = [&](int i) {
            return target->byVolume.at(i).dump(true).section('{', 1) ==
                   source.byVolume.at(i).dump(true).section('{', 1);
        };
        require(isSame(0) && isSame(count / 2) && isSame(count - 1), "comparing");
    }

    std::printf("%d rows, %.1f MB, medians of %d rounds\n", count, double(bytes.size()) * 1e-6,
                rounds);
    for (const Measured &m : measured) {
        std::printf("  %-30s %8.1f ms %8.1f MB/s %11.0f rows/s\n", m.name, m.median() * 1e3,
                    double(bytes.size()) * 1e-6 / m.median(), count / m.median());
    }
    const auto seconds = [&](const char *name) {
        return std::find_if(std::begin(measured), std::end(measured),
                            [&](const Measured &m) { return qstrcmp(m.name, name) == 0; })
            ->median();
    };
    const double read = seconds("read() the bytes");
    std::printf("plain save / write and flush         %.2f (at most 2)\n",
                seconds("save, plain") / seconds("write() and flush the bytes"));
    std::printf("plain load / (read + build copies)   %.2f (at most 1.3)\n",
                seconds("load, plain") / (read + seconds("build from copies of rows")));
    std::printf("plain load / (read + build as is)    %.2f\n",
                seconds("load, plain") / (read + seconds("build from rows as they are")));
    std::printf("gzip save, of zlib's throughput      %.2f (at least 0.95)\n",
                seconds("zlib, level 6") / seconds("save, gzip"));
    return 0;
}
