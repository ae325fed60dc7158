#include <database/services/exception.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{

QStringList *s_logged = nullptr;

void collect(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtDebugMsg)
        s_logged->append(text);
}

__attribute__((noinline)) void throwAtDepth(int depth, volatile int *guard)
{
    if (depth == 0)
        throw Exception(QStringLiteral("deep"));
    throwAtDepth(depth - 1, guard);
    *guard += 1; // keeps the call from becoming a jump
}

} // namespace

TEST(ExceptionTest, deepChainCarriesAtMost127FramesAndCopiesKeepThem)
{
    volatile int guard = 0;
    try {
        throwAtDepth(300, &guard);
        FAIL() << "nothing was thrown";
    } catch (const Exception &e) {
        EXPECT_EQ(e.message, QStringLiteral("deep"));
        EXPECT_EQ(e.stack.size(), 127);
        const Exception copy(e);
        EXPECT_EQ(copy.stack, e.stack);
        EXPECT_EQ(copy.message, e.message);
        EXPECT_STREQ(static_cast<const std::exception &>(copy).what(), "deep");
        EXPECT_NE(copy.stack, Exception::getStack());
    }
}

TEST(ExceptionTest, saysWhatItSaidWhenNobodyCatchesIt)
{
    const auto throws = [] { throw Exception(QStringLiteral("цена 2.50 is none")); };
    EXPECT_DEATH(std::thread(throws).join(), "what.*цена 2.50 is none");
}

TEST(ExceptionTest, dumpWritesOneDebugMessagePerFrameAndNotTheText)
{
    const Exception e(QStringLiteral("text of the error"));
    ASSERT_FALSE(e.stack.isEmpty());
    QStringList logged;
    s_logged = &logged;
    const auto previous = qInstallMessageHandler(collect);
    e.dump();
    qInstallMessageHandler(previous);
    EXPECT_EQ(logged, e.stack);
}

TEST(ExceptionTest, threadsCaptureTheirStacksAtTheSameTime)
{
    std::vector<int> frames(4, 0);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < frames.size(); ++i)
        threads.emplace_back([&frames, i] {
            volatile int guard = 0;
            for (int round = 0; round < 20; ++round) {
                try {
                    throwAtDepth(20 * int(i + 1), &guard);
                } catch (const Exception &e) {
                    frames[i] = e.stack.size();
                }
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    for (std::size_t i = 1; i < frames.size(); ++i)
        EXPECT_EQ(frames[i] - frames[i - 1], 20) << "thread " << i;
}
