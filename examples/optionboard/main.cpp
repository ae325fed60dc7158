// A board of stock options as an application would keep it: two tables of quotes and one of trades,
// the indexes that its views need, and one batch of changes per snapshot of the market.

#include "analytics.h"
#include "board.h"
#include "choices.h"
#include "csvfeed.h"
#include "interruption.h"
#include "progress.h"
#include "report.h"
#include "simulatedfeed.h"
#include "storage.h"

#include <database/services/exception.h>
#include <database/services/logfile.h>

#include <QtCore/qcommandlineparser.h>
#include <QtCore/qcoreapplication.h>
#include <QtCore/qelapsedtimer.h>
#include <QtCore/qfileinfo.h>
#include <QtCore/qloggingcategory.h>

#include <cstdio>
#include <memory>

namespace
{

enum ExitCode {
    kFine = 0,
    kSomeSnapshotFailed = 1,
    kBadArguments = 2,
    kStorageFailed = 3,
    kInterrupted = 130 // as shells have it
};

constexpr int kDefaultSnapshots = 20; // of the simulated market
constexpr quint64 kSeed = 20260302;

struct Arguments {
    Choices choices; ///< those of the settings, with what the command line says over them
    int batches = 0; ///< 0 for all files
    QString save;    ///< folder, empty for none, as is
    QString load;    ///< this one
    QString log;     ///< file, empty for none

    /// Without anything to save, loading a folder is the whole task.
    bool replays() const { return load.isEmpty() || !save.isEmpty(); }
};

/// \throws QString what is wrong with a value
int positive(const QCommandLineParser &parser, const QString &option, int fallback)
{
    if (!parser.isSet(option))
        return fallback;
    bool ok = false;
    const int value = parser.value(option).toInt(&ok);
    if (!ok || value < 1)
        throw QStringLiteral("--%1 takes a whole number above 0, not '%2'")
            .arg(option, parser.value(option));
    return value;
}

/// The choices that the settings hold, after those changes that are asked for.
/// \throws QString what is wrong with them or with the arguments
Choices storedChoices(const QCommandLineParser &parser)
{
    const QString workplace = parser.value(QStringLiteral("workplace"));
    const QStringList changes = parser.values(QStringLiteral("set"));
    if (parser.isSet(QStringLiteral("workplace")) && workplace.isEmpty())
        throw QStringLiteral("--workplace takes the name of one");
    ChoiceSettings stored(parser.value(QStringLiteral("settings")), workplace);
    for (const QString &change : changes)
        stored.set(change);
    if (!stored.exists())
        throw QStringLiteral("there is no workplace '%1'; --set makes it").arg(workplace);
    return Choices::from(stored.settings());
}

/// Ends the program when help is asked for. \throws QString what is wrong with the arguments
Arguments readArguments(const QStringList &arguments)
{
    const QString data = QStringLiteral("data"), batches = QStringLiteral("batches"),
                  top = QStringLiteral("top"), save = QStringLiteral("save"),
                  load = QStringLiteral("load"), gzip = QStringLiteral("gzip"),
                  noGzip = QStringLiteral("no-gzip"), log = QStringLiteral("log");
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Replays snapshots of a market of stock options into tables with live indexes."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this text."));
    parser.addOption(help);
    parser.addOptions(
        {{data,
          QStringLiteral("Take the CSV files of <DIR> in the order of their names; "
                         "without it, a simulated market."),
          QStringLiteral("DIR")},
         {batches,
          QStringLiteral("Stop after <N> snapshots (all files; %1 of the simulated market).")
              .arg(kDefaultSnapshots),
          QStringLiteral("N")},
         {top,
          QStringLiteral("List the <K> options of the highest volume (%1).").arg(Choices().top),
          QStringLiteral("K")},
         {save, QStringLiteral("Save the quotes to <DIR> after the replay."),
          QStringLiteral("DIR")},
         {gzip, QStringLiteral("Save compressed.")},
         {noGzip, QStringLiteral("Save plainly, whatever the settings say.")},
         {load,
          QStringLiteral("Load the quotes from <DIR> into new tables and compare them; "
                         "without --save nothing is replayed."),
          QStringLiteral("DIR")},
         {log, QStringLiteral("Log to <FILE>, beside which the last five logs stay."),
          QStringLiteral("FILE")},
         {QStringLiteral("workplace"),
          QStringLiteral("Take the choices of the workplace <NAME>; options lie over them."),
          QStringLiteral("NAME")},
         {QStringLiteral("set"),
          QStringLiteral("Store a choice, for the workplace if there is one: top, data, gzip "
                         "(true, false), tables (%1), columns (%2).")
              .arg(Choices::allTables().join(QLatin1Char(',')),
                   Choices::allColumns().join(QLatin1Char(','))),
          QStringLiteral("KEY=VALUE")},
         {QStringLiteral("settings"),
          QStringLiteral("Keep the settings below <DIR> instead of in the user's folders."),
          QStringLiteral("DIR")}});
    if (!parser.parse(arguments))
        throw parser.errorText();
    if (parser.isSet(help))
        parser.showHelp(kFine);
    if (!parser.positionalArguments().isEmpty())
        throw QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().first());
    if (parser.isSet(gzip) && !parser.isSet(save))
        throw QStringLiteral("--gzip says how to --save");
    Choices choices = storedChoices(parser);
    if (parser.isSet(data))
        choices.data = parser.value(data);
    if ((parser.isSet(data) || !choices.data.isEmpty()) && !QFileInfo(choices.data).isDir())
        throw QStringLiteral("--data: there is no folder '%1'").arg(choices.data);
    choices.top = positive(parser, top, choices.top);
    choices.gzip = (choices.gzip || parser.isSet(gzip)) && !parser.isSet(noGzip);
    return {choices, positive(parser, batches, choices.data.isEmpty() ? kDefaultSnapshots : 0),
            parser.value(save), parser.value(load), parser.value(log)};
}

std::unique_ptr<Feed> makeFeed(const Arguments &arguments)
{
    if (arguments.choices.data.isEmpty())
        return std::make_unique<SimulatedFeed>(arguments.batches, kSeed);
    return std::make_unique<CsvFeed>(QDir(arguments.choices.data), arguments.batches);
}

/// To the user, and to the log.
void complain(const QString &message)
{
    qInfo("complaint: %s", qUtf8Printable(message));
    std::fprintf(stderr, "optionboard: %s\n", message.toUtf8().constData());
}

/// Saves and loads as asked. \param board  null when nothing was replayed
ExitCode store(const Arguments &arguments, QTextStream &out, const Board *board)
{
    try {
        if (board && !arguments.save.isEmpty()) {
            Storage(out, arguments.save).save(*board);
            qInfo("saved to %s", qUtf8Printable(arguments.save));
        }
        // Who interrupts wants what there is to be kept, and no more work.
        if (!arguments.load.isEmpty() && !Interruption::isRaised())
            Storage(out, arguments.load).load(board);
        return kFine;
    } catch (const QString &fault) {
        complain(fault);
    } catch (const Exception &fault) {
        complain(fault.message);
    }
    return kStorageFailed;
}

/// Plays all snapshots; what is wrong with one is reported, and the next one follows. The options'
/// greeks are computed while the next snapshot is read.
ExitCode replay(const Arguments &arguments, QTextStream &out)
{
    const std::unique_ptr<Feed> feed = makeFeed(arguments);
    if (feed->count() == 0) {
        complain(QStringLiteral("there is no CSV file in '%1'").arg(arguments.choices.data));
        return kSomeSnapshotFailed;
    }
    int nameWidth = 0;
    for (int i = 0; i < feed->count(); ++i)
        nameWidth = std::max(nameWidth, feed->name(i).size());

    Board board;
    Analytics analytics(board);
    const Interruption interruption([&] { analytics.stop(); });
    Report report(out, board, nameWidth);
    Progress progress(feed->count());
    ExitCode result = kFine;
    datetime now;
    report.printHeading();
    for (int i = 0; i < feed->count() && !Interruption::isRaised(); ++i) {
        progress.show(i, feed->name(i));
        try {
            QElapsedTimer timer;
            timer.start();
            const Snapshot snapshot = feed->next();
            const qint64 readTime = timer.nsecsElapsed();
            analytics.finish();
            const SnapshotCounts counts = board.apply(snapshot);
            now = snapshot.time;
            analytics.start(now);
            progress.clear();
            report.printSnapshot(i + 1, feed->name(i), counts, readTime);
            qInfo("%s: %d options updated, %d trades", qUtf8Printable(feed->name(i)),
                  counts.options.updated, counts.trades);
        } catch (const QString &fault) {
            progress.clear();
            complain(fault);
            result = kSomeSnapshotFailed;
        }
    }
    analytics.finish();
    report.printSummary(arguments.choices, now, analytics.totals());
    ExitCode stored = store(arguments, out, &board);
    if (stored == kFine && Interruption::isRaised()) {
        complain(QStringLiteral("interrupted"));
        stored = kInterrupted;
    }
    return stored == kFine ? result : stored;
}

/// Sends Qt's messages to the log while it lives.
class Log
{
public:
    /// \throws QString why there is none
    explicit Log(const QString &fileName)
        : m_file(fileName)
    {
        if (!m_file.isOpen()) {
            throw QStringLiteral("--log: '%1' cannot be written: %2")
                .arg(fileName, m_file.errorString());
        }
        LogFile::install(&m_file);
    }

private:
    LogFile m_file;
};

ExitCode run(const Arguments &arguments)
{
    std::unique_ptr<Log> log;
    if (!arguments.log.isEmpty()) {
        log = std::make_unique<Log>(arguments.log);
    } else {
        // What a log would tell is not for the terminal.
        QLoggingCategory::setFilterRules(QStringLiteral("default.info=false"));
    }
    const HostCore core(arguments.choices.gzip);
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    return arguments.replays() ? replay(arguments, out) : store(arguments, out, nullptr);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("optionboard"));
    Arguments arguments;
    try {
        arguments = readArguments(QCoreApplication::arguments());
        return run(arguments);
    } catch (const QString &fault) {
        complain(fault);
        complain(QStringLiteral("--help lists the options"));
        return kBadArguments;
    }
}
