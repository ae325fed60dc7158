#include <database/services/exception.h>
#include <database/services/runnablemanager.h>

#include <gtest/gtest.h>
#include <QtCore/qcoreapplication.h>
#include <QtCore/qthreadpool.h>
#include <QtTest/qsignalspy.h>

#include <random>
#include <set>
#include <thread>

struct Job final : Runnable {
    void run() override { body(*this); }
    void stop() override { Runnable::stop(), onStop(); }
    std::function<void(const Runnable &)> body;
    std::function<void()> onStop = [] {};
};

static void untilStopped(const Runnable &job)
{
    while (job.canRun())
        std::this_thread::yield();
}

struct RunnableManagerTest : ::testing::TestWithParam<int> {
    RunnableManagerTest() { pool.setMaxThreadCount(GetParam()); }
    HRunnable start(decltype(Job::body) body, decltype(Job::onStop) onStop = Job().onStop)
    {
        auto *const job = new Job;
        job->body = body, job->onStop = onStop;
        return manager->startRunnable(job, &pool);
    }
    int deliver() { return QCoreApplication::sendPostedEvents(), announced.size(); }
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    std::atomic<int> ended{0}, stopped{0};
    QThreadPool pool;
    QObject owner;
    RunnableManager *manager = new RunnableManager(&owner);
    QSignalSpy announced{manager, &RunnableManager::finished};
};

INSTANTIATE_TEST_SUITE_P(Threads, RunnableManagerTest, ::testing::Values(1, 16));

TEST_P(RunnableManagerTest, everyWaiterSeesTheEndOfAJobThatEndsAtThatMoment)
{
    for (int round = 1; round < 300; ++round) {
        int result = 0;
        Job job;
        job.setAutoDelete(false);
        job.body = [&](auto &) { round % 3 ? untilStopped(job) : void(), result = round; };
        const auto wait = [&, handle = manager->startRunnable(&job, &pool)] {
            manager->stopRunnable(handle, true);
            EXPECT_EQ(result, round);
        };
        std::thread first(wait), second(wait), third(wait);
        first.join(), second.join(), third.join();
    } // each job goes at once: the task must be through with it
}

// While the first job is awaited the others end, their tasks go, and a new one takes the memory.
TEST_P(RunnableManagerTest, aWaitForAllOutlivesTheTasksAndLeavesLaterJobsAlone)
{
    HRunnable later = nullptr;
    const auto heldByJobs = std::make_shared<int>();
    pool.setMaxThreadCount(GetParam() + 1); // the first job keeps one
    start([&](auto &) {
        while (stopped < 1000 || heldByJobs.use_count() > 1)
            std::this_thread::yield();
        later = start(untilStopped);
    });
    for (int i = 1; i <= 4; ++i)
        start([heldByJobs](auto &job) { untilStopped(job); }, [=] { stopped = 10 * stopped + i; });
    manager->stopRunnables(true);
    EXPECT_EQ(stopped, 1234); // in order
    EXPECT_TRUE(manager->isRunning(later));
    EXPECT_TRUE(announced.isEmpty()); // queued, not called from the pool
}

TEST_P(RunnableManagerTest, destructionWaitsForWhatRunsIsQueuedOrIsStartedMeanwhile)
{
    for (int round = 0; round < 100; ++round, manager = new RunnableManager(&owner)) {
        ended = stopped = 0;
        const auto count = [this](auto &job) { stopped += !job.canRun(), ++ended; };
        for (int i = 0; i < 20; ++i)
            start([this](auto &) { ++ended; });
        start([&](auto &job) { untilStopped(job), start(count), count(job); });
        delete manager;
        EXPECT_EQ(ended, 22);
        EXPECT_EQ(stopped, 2);
    }
}

TEST_P(RunnableManagerTest, aJobThatThrowsOrIsDroppedFromTheQueueHasEnded)
{
    static QStringList warnings;
    warnings.clear();
    const auto previous = qInstallMessageHandler([](auto, auto &, auto &s) { warnings += s; });
    const decltype(Job::onStop) throws[] = {
        [] { throw Exception("größe"); }, [] { throw QString("größe"); },
        [] { throw std::runtime_error("größe"); }, [] { throw 1; }};
    for (const auto &raise : throws)
        manager->stopRunnable(start([&](auto &) { raise(); }), true);
    start(untilStopped, throws[0]);
    start(untilStopped); // is told all the same
    manager->stopRunnables(true);
    qInstallMessageHandler(previous);
    EXPECT_EQ(warnings.filter("größe").size(), 4);
    for (int i = 0; i < GetParam(); ++i)
        start([this](auto &job) { ++ended, untilStopped(job); });
    while (ended < GetParam())
        std::this_thread::yield();
    std::thread waiter([&, last = start(untilStopped)] { manager->stopRunnable(last, true); });
    pool.clear();
    waiter.join();
    EXPECT_EQ(deliver(), 7);
    EXPECT_THROW(manager->startRunnable(nullptr, &pool), QString);
}

TEST_P(RunnableManagerTest, announcesEachOfManyShortJobsOnce)
{
    constexpr int kJobs = 25000;
    std::vector<HRunnable> handles(4 * kJobs);
    const auto work = [&](int first) {
        std::mt19937 random(first);
        for (int i = 0; i < kJobs; ++i) {
            handles[first + i] = start([this](auto &) { ++ended; });
            const int dice = random() % 1024, other = first + random() % (i + 1);
            dice < 64 ? manager->stopRunnable(handles[other], dice % 2) : void();
            dice > 1021 ? manager->stopRunnables(dice % 2) : void();
        }
        ++stopped;
    };
    std::thread a(work, 0), b(work, kJobs), c(work, 2 * kJobs), d(work, 3 * kJobs);
    while (stopped < 4)
        deliver(); // also while jobs start and end
    a.join(), b.join(), c.join(), d.join();
    manager->stopRunnables(true);
    EXPECT_EQ(ended - int(manager->isRunning()), 4 * kJobs);
    EXPECT_EQ(deliver(), 4 * kJobs);
    std::set<HRunnable> open(handles.begin(), handles.end());
    for (const QVariantList &signal : announced)
        EXPECT_EQ(open.erase(signal[0].value<HRunnable>()), 1U);
}
