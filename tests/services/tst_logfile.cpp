#include <database/services/logfile.h>

#include <gtest/gtest.h>
#include <QtCore/qloggingcategory.h>
#include <QtCore/qregularexpression.h>
#include <QtCore/qtemporarydir.h>

#include <csignal>
#include <sys/resource.h>
#include <thread>

static QString contentOf(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : "-";
}

static std::atomic<int> s_passedOn{0}; // messages that reached the handler below the log

struct LogFileTest : ::testing::Test {
    ~LogFileTest() override { EXPECT_EQ(qInstallMessageHandler(before), below); }
    const QTemporaryDir folder;
    const QString path = folder.filePath("größe %2.lög");
    const QtMessageHandler below = [](auto, auto &, auto &) { ++s_passedOn; };
    const QtMessageHandler before = (s_passedOn = 0, qInstallMessageHandler(below));
};

TEST_F(LogFileTest, openingShiftsTheGenerationsAndKeepsTheirGaps)
{
    const QFileInfo log(path);
    EXPECT_EQ(LogFile::rotateName(log, 2), folder.filePath("größe %2.2.lög"));
    EXPECT_EQ(LogFile::rotateName(QFileInfo("trade"), 5), "./trade.5.");
    EXPECT_EQ(LogFile::rotateName(QFileInfo("d/a.b.log"), 1), "d/a.b.1.log");
    const auto contents = [&] {
        QString all = contentOf(path);
        for (int n = 1; n <= 5; ++n)
            all += contentOf(LogFile::rotateName(log, n));
        return all;
    };
    for (const char letter : {'a', 'b', 'c', 'd', 'e', 'f', 'g'})
        LogFile(path) << letter;
    EXPECT_EQ(contents(), "gfedcb");
    QFile::remove(LogFile::rotateName(log, 2));
    LogFile(path) << QString("€");
    EXPECT_EQ(contents(), "€gf-dc");
    QFile::remove(path);
    LogFile(path) << 'n';
    EXPECT_EQ(contents(), "ngf-dc");
}

TEST_F(LogFileTest, whatCannotBeWrittenIsToldAndMessagesArePassedOn)
{
    EXPECT_TRUE(QFile::link("/dev/full", path)); // neither a device nor a folder is rotated
    for (const QString &name : {path, path + "/x.log", folder.path()}) {
        LogFile log(name);
        EXPECT_EQ(log.isOpen(), name == path);
        LogFile::install(&log);
        log << QString(50000, 'x') << Qt::flush << QString(50000, 'x') << Qt::flush;
        EXPECT_EQ(log.lostBytes(), 100000);
        EXPECT_FALSE(log.errorString().isEmpty());
        const int before = s_passedOn;
        qWarning("unwritten");
        EXPECT_EQ(s_passedOn, before + 1);
    }
}

// A full disk is played by a limit on the size of files: it ends in the middle of a line too.
TEST_F(LogFileTest, afterAFullDiskTheLogGoesOnWithWholeLines)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full{25, limit.rlim_max};
    LogFile log(path);
    log << "first line" << Qt::endl;
    setrlimit(RLIMIT_FSIZE, &full);
    log << "second line that is too long" << Qt::endl;
    setrlimit(RLIMIT_FSIZE, &limit);
    log << "half" << Qt::flush;
    EXPECT_TRUE(log.errorString().isEmpty());
    LogFile::install(&log);
    qCInfo(QLoggingCategory("feed"), "größe\r\nsecond\n");
    qCritical("x");
    LogFile::uninstall();
    qWarning("after");
    EXPECT_EQ(s_passedOn, 1);
    const QRegularExpression expected(
        R"(^first line\nhalf\n\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}(Z|[+-]\d\d:\d\d) INFO )"
        R"(\[.*0x[0-9a-f]+\] feed: größe\n    second\n\S+ CRITICAL \[[^]]+\] x\n$)");
    EXPECT_TRUE(expected.match(contentOf(path)).hasMatch()) << qPrintable(contentOf(path));
}

TEST_F(LogFileTest, messagesOfAllThreadsAreKeptWhileLogsComeAndGo)
{
    std::atomic<int> raised{0};
    const auto raise = [&raised] {
        while (++raised <= 20000)
            qWarning("one\ntwo");
    };
    std::thread first(raise), second(raise), third(raise);
    const QRegularExpression whole(R"(\S+ WARNING \[.*\] one\n    two\n)");
    int logged = 0;
    while (raised < 20000) {
        auto log = std::make_unique<LogFile>(path);
        LogFile::install(log.get());
        while (QFileInfo(path).size() < 1000)
            *log << "streamed" << Qt::endl;
        log.reset();
        QString text = contentOf(path);
        logged += text.count(" WARNING ");
        EXPECT_EQ(text.remove(whole).remove("streamed\n"), "");
    }
    first.join(), second.join(), third.join();
    EXPECT_EQ(logged + s_passedOn, 20000);
}
