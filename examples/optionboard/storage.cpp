#include "storage.h"

#include "progress.h"
#include "textgrid.h"

#include <database/masterindex_column.h>
#include <database/persistence/tabledatastream.h>
#include <database/persistence/tableio.h>
#include <database/values/checksum.h>

#include <QtCore/qelapsedtimer.h>

namespace
{

constexpr char kNull = '\0', kCellEnd = '\x1f';

/// Shows how far a table is, in tenths, on stderr.
class RowProgress : public FilterProgressTrue
{
public:
    explicit RowProgress(const QString &what)
        : m_what(what)
    {
    }
    bool operator()(int current, int total) override
    {
        const int tenth = int(qint64(current) * kSteps / total);
        if (tenth != m_shown)
            m_progress.show(m_shown = tenth, m_what);
        return true;
    }

private:
    static constexpr int kSteps = 10;
    const QString m_what;
    Progress m_progress{kSteps};
    int m_shown = -1;
};

qint64 packedBytes(const Table &table)
{
    return table.rowCount() * (table.rowLengthUnaligned() + bitmapSize(table.columnCount()));
}

QStringList columnNames(const Table &table)
{
    QStringList names;
    for (const ColumnDef &column : table.columns())
        names.append(column.name);
    return names;
}

/// \throws QString when the two tables do not hold the same rows
void expectSame(const Table &a, const QStringList &columnsOfA, const Table &b,
                const QStringList &columnsOfB)
{
    if (a.rowCount() != b.rowCount() || checksum(a, columnsOfA) != checksum(b, columnsOfB)) {
        throw QStringLiteral(
            "the %1 that were loaded differ: %2 rows, checksum %3, and %4 rows, %5")
            .arg(a.name())
            .arg(a.rowCount())
            .arg(checksum(a, columnsOfA), 16, 16, QLatin1Char('0'))
            .arg(b.rowCount())
            .arg(checksum(b, columnsOfB), 16, 16, QLatin1Char('0'));
    }
}

} // namespace

HostCore::HostCore(bool compress)
    : m_compress(compress)
{
    setInstance(this);
}

HostCore::~HostCore()
{
    setInstance(nullptr);
}

bool HostCore::hasTable(const QString & /*name*/) const
{
    return false; // the board's tables are nobody else's business
}

Table *HostCore::table(const QString & /*name*/) const
{
    return nullptr;
}

NextOptionTable::NextOptionTable()
    : Table(QStringLiteral("options"), QStringLiteral("Options"))
{
    addColumn("Stock", FieldType::VarChar, 2 * kStockLength, false);
    addColumn("Expiry", FieldType::DateTime, 0, false);
    addColumn("Strike", FieldType::Decimal, kPriceScale, false);
    addColumn("Side", FieldType::VarChar, 1, false);
    addColumn("Last", FieldType::Decimal, 0);
    addColumn("Interest", FieldType::Integer64, 0);
    addColumn("Volume", FieldType::Integer64, 0);
    addColumn("Open", FieldType::Decimal, 0);
    addColumn("Change", FieldType::Decimal, 0);
    for (const char *name : {"Volatility", "Delta", "Gamma", "Vega", "Theta"})
        addColumn(QLatin1String(name), FieldType::Double, 0);
    addColumn("StockLast", FieldType::Decimal, 0);
    addColumn("StockChange", FieldType::Decimal, 0);
    setMasterIndex(new MasterIndex_Column_Pure(this, {kStock, kExpiry, kStrike, kSide}));
}

quint64 checksum(const Table &table, const QStringList &columns)
{
    QList<int> numbers;
    for (const QString &column : columns)
        numbers.append(table.columnIndex(column));
    QByteArray texts;
    for (const Record &row : *table.masterIndex()) {
        for (const int number : qAsConst(numbers)) {
            const Field cell = row.data(number);
            texts.append(cell.isNull() ? QByteArray(1, kNull) : cell.toString().toUtf8());
            texts.append(kCellEnd);
        }
    }
    return qChecksum64(texts.constData(), uint(texts.size()));
}

Storage::Storage(QTextStream &out, const QString &folder)
    : m_out(out)
    , m_dir(folder)
{
}

void Storage::printDone(const char *what, const Table &table, qint64 nanoseconds)
{
    const double seconds = double(nanoseconds) * 1e-9;
    m_out << QStringLiteral("%1 %2 %3 rows in %4 ms: %5 MB/s, %6 rows/s, checksum %7\n")
                 .arg(QLatin1String(what), -22)
                 .arg(table.name(), -11)
                 .arg(grouped(table.rowCount()), 7)
                 .arg(milliseconds(nanoseconds), 8)
                 .arg(double(packedBytes(table)) * 1e-6 / seconds, 7, 'f', 1)
                 .arg(grouped(qint64(table.rowCount() / seconds)), 10)
                 .arg(checksum(table, columnNames(table)), 16, 16, QLatin1Char('0'));
    m_out.flush();
}

void Storage::save(const Board &board)
{
    if (!m_dir.mkpath(QStringLiteral(".")))
        throw QStringLiteral("there is no folder '%1', and it cannot be made").arg(m_dir.path());
    m_out << '\n';
    for (const Table *table : {static_cast<const Table *>(&board.underlyings()),
                               static_cast<const Table *>(&board.options())}) {
        RowProgress progress(QStringLiteral("saving ") + table->name());
        QElapsedTimer timer;
        timer.start();
        QString error;
        // Writing takes the table's lock and leaves the rest alone.
        if (!TableIO(const_cast<Table *>(table)).write(progress, m_dir, true, &error))
            throw QString(error);
        printDone("saved", *table, timer.nsecsElapsed());
    }
}

void Storage::load(const Board *board)
{
    UnderlyingTable underlyings;
    OptionTable options;
    NextOptionTable next;
    const ColumnIndex byVolume(&options, {{OptionTable::kVolume, SortColumn::Descending}});
    const ColumnIndex byNextVolume(&next, {{NextOptionTable::kVolume, SortColumn::Descending}});
    const auto loadInto = [this](Table &table, const char *what,
                                 const TableIO::Convertors &convertors) {
        TableIO io(&table);
        const TableFileReport report = io.check(m_dir);
        if (!report.sound)
            throw QStringLiteral("'%1': %2").arg(io.fileName(m_dir), report.verdict);
        RowProgress progress(QStringLiteral("loading ") + table.name());
        QElapsedTimer timer;
        timer.start();
        TableDataStreamRead stream(io.fileName(m_dir));
        io.read(progress, stream, false, convertors, true);
        printDone(what, table, timer.nsecsElapsed());
    };
    m_out << '\n';
    loadInto(underlyings, "loaded", {});
    loadInto(options, "loaded", {});
    // The load deletes the convertor once it has reached the rows.
    loadInto(
        next, "loaded, changed since:",
        {{{QStringLiteral("Interest"), QStringLiteral("OpenInterest")}, new FieldDefConvertor}});

    QStringList kept = columnNames(options);
    kept.removeOne(QStringLiteral("Time"));
    expectSame(options, kept, next, columnNames(next));
    if (board) {
        expectSame(board->underlyings(), columnNames(underlyings), underlyings,
                   columnNames(underlyings));
        expectSame(board->options(), columnNames(options), options, columnNames(options));
    }
    if (byVolume.count() != options.rowCount() || byNextVolume.count() != next.rowCount())
        throw QStringLiteral("an index of the options lacks rows");
    m_out << "row counts and checksums agree\n";
    m_out.flush();
}
