#include <database/indexes/indexlist.h>
#include <database/persistence/tabledatastream.h>

#include "persistence/filefixture.h"
#include "support/random.h"

#include <QtCore/qdir.h>
#include <QtCore/qtemporarydir.h>

#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

class SavingTest : public testing::Test
{
protected:
    SavingTest()
        : dir(m_place.path())
    {
        table.addColumn("version", FieldType::Integer, 0);
        table.addColumn("text", FieldType::VarChar, 40);
    }

    /// Gives the table the rows of a version: their number depends on it, and each carries it.
    void setVersion(int version)
    {
        table.clear();
        for (int i = 0; i < 300 + version % 500; ++i) {
            const Record row(&table);
            row.data(0).setValue(version);
            row.data(1).setValue(QString::number(i * version % 977));
            table.appendRow(row.row());
        }
    }

    bool save(bool compress)
    {
        core.compress = compress;
        return TableIO(&table).write(dir, &error);
    }

    /// The version that the directory holds, or -1 when it holds none or not the whole of it.
    int loadedVersion() const
    {
        Table loaded(table.name(), QString());
        TableIO io(&loaded);
        if (!io.check(dir).sound)
            return -1;
        io.read(dir, true);
        const int version = loaded.rowCount() == 0 ? 0 : loaded.data(0, 0).value<qint32>();
        for (int i = 0; i < loaded.rowCount(); ++i) {
            if (loaded.data(i, 0).value<qint32>() != version ||
                loaded.data(i, 1).toString() != QString::number(i * version % 977))
                return -1;
        }
        return loaded.rowCount() == 300 + version % 500 ? version : -1;
    }

    QStringList files() const { return dir.entryList(QDir::Files | QDir::Hidden, QDir::Name); }

    /// Runs \p body in a child process that the parent kills after \p microseconds.
    template<class Body>
    static void killAfter(unsigned microseconds, Body &&body)
    {
        const pid_t child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            body();
            _exit(0);
        }
        usleep(microseconds);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }

    TestCore core;
    QTemporaryDir m_place;
    const QDir dir;
    Table table{"quotes", QString()};
    QString error;
};

/// A limit on the size of files for a scope; the write that would cross it fails.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit m_before = {};
};

} // namespace

// scripts/torture sets the number of kills.
TEST_F(SavingTest, aKilledSaveLeavesTheOldOrTheNewTableWhole)
{
    const int kills = qMax(150, qEnvironmentVariableIntValue("DATABASE_KILLS"));
    Random random;
    int version = 1;
    int caught = 0; // in the middle of a save
    int versions = 0;
    setVersion(version);
    ASSERT_TRUE(save(false)) << error.toStdString();
    // A busy machine gets the time for a save or two as well, and as many kills as it takes.
    unsigned longest = 4000;
    const int enough = kills / 10;
    int i = 0;
    for (; i < kills || ((caught <= enough || versions <= enough) && i < 20 * kills); ++i) {
        const bool compress = random.oneIn(2);
        killAfter(unsigned(random.below(int(longest))), [&] {
            for (int next = version + 1;; ++next) {
                setVersion(next);
                save(next % 4 == 0 ? !compress : compress);
            }
        });
        caught += files().filter(".saving").isEmpty() ? 0 : 1;
        const int found = loadedVersion();
        ASSERT_GE(found, version) << "kill " << i << ", files " << files().join(' ').toStdString();
        longest = qBound(1000u, found == version ? longest * 5 / 4 : longest * 7 / 8, 2000000u);
        versions += found - version;
        version = found;
    }
    setVersion(++version);
    ASSERT_TRUE(save(false)) << error.toStdString();
    EXPECT_EQ(files(), QStringList{"quotes"}) << "what killed saves left is not taken over";
    EXPECT_EQ(loadedVersion(), version);
    EXPECT_GT(caught, enough) << "the kills miss the saves";
    EXPECT_GT(versions, enough);
    std::printf("%d kills, %d in the middle of a save, %d saves between them\n", i, caught,
                versions);
}

TEST_F(SavingTest, aFullDiskAtAnyByteLeavesTheOldFile)
{
    for (const bool compress : {false, true}) {
        setVersion(2);
        ASSERT_TRUE(save(compress));
        const qint64 size = QFileInfo(dir, files().first()).size();
        setVersion(1);
        ASSERT_TRUE(save(compress));
        const qint64 oldSize = QFileInfo(dir, files().first()).size();
        setVersion(2);
        for (qint64 limit = 0; limit < size; ++limit) {
            bool stored = true;
            {
                const FileSizeLimit full{rlim_t(limit)};
                stored = save(compress);
            }
            ASSERT_FALSE(stored) << limit;
            ASSERT_FALSE(error.isEmpty());
            ASSERT_EQ(files().size(), 1) << limit;
            ASSERT_EQ(QFileInfo(dir, files().first()).size(), oldSize);
        }
        EXPECT_EQ(loadedVersion(), 1);
    }
}

TEST_F(SavingTest, whatStandsInTheWayOfASaveLeavesTheOldFile)
{
    setVersion(1);
    ASSERT_TRUE(save(true));
    setVersion(2);
    const QString temporary = dir.filePath("quotes.saving");

    const uid_t user = geteuid();
    ASSERT_EQ(chmod(QFile::encodeName(dir.path()), 0555), 0);
    ASSERT_EQ(seteuid(user == 0 ? 65534 : user), 0); // no permission stops root
    EXPECT_FALSE(save(false));
    EXPECT_EQ(seteuid(user), 0);
    EXPECT_TRUE(error.startsWith("'" + dir.filePath("quotes") + "' cannot be opened"))
        << error.toStdString();
    chmod(QFile::encodeName(dir.path()), 0755);
    EXPECT_EQ(files(), QStringList{"quotes.gz"});

    {
        const TableDataStreamWrite rival(dir.filePath("quotes"));
        EXPECT_FALSE(save(false));
        EXPECT_TRUE(error.contains("someone else")) << error.toStdString();
    }
    EXPECT_EQ(files(), QStringList{"quotes"}) << "the rival stored its empty file";
    QFile::remove(dir.filePath("quotes"));
    ASSERT_TRUE(dir.mkdir("quotes.saving"));
    core.compress = false;
    EXPECT_FALSE(save(false));
    dir.rmdir("quotes.saving");

    ASSERT_EQ(symlink("elsewhere", QFile::encodeName(temporary)), 0);
    EXPECT_FALSE(save(false)) << "a link would lead the save away";
    QFile::remove(temporary);

    try {
        TableDataStreamWrite stream(dir.filePath("quotes"));
        TableIO(&table).write(stream, true);
        throw std::runtime_error("cancelled");
    } catch (const std::runtime_error &) {
    }
    EXPECT_TRUE(files().filter(".saving").isEmpty());
}

TEST_F(SavingTest, aLeftOverTemporaryFileIsTakenOverAndPermissionsStay)
{
    setVersion(1);
    ASSERT_TRUE(save(false));
    const QByteArray path = QFile::encodeName(dir.filePath("quotes"));
    ASSERT_EQ(chmod(path, 0640), 0);
    QFile leftOver(dir.filePath("quotes.saving"));
    ASSERT_TRUE(leftOver.open(QIODevice::WriteOnly));
    leftOver.write(QByteArray(1000000, 'x'));
    leftOver.close();
    setVersion(2);
    EXPECT_TRUE(save(false)) << error.toStdString();
    EXPECT_EQ(files(), QStringList{"quotes"});
    EXPECT_EQ(loadedVersion(), 2);
    struct stat stored = {};
    ASSERT_EQ(stat(path, &stored), 0);
    EXPECT_EQ(stored.st_mode & 0777, 0640U);
}
