#include "database/services/concurrently.h"

#include <QtCore/qthreadpool.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>

namespace
{

struct Sharing {
    const char *name;
    int calls;
    int inner; // calls that each of them shares out in its turn; 0 for none
    bool crew;
};

class SharedCalls : public ::testing::TestWithParam<Sharing>
{
};

TEST_P(SharedCalls, areEachMadeOnceAndOverOnReturn)
{
    const auto [name, calls, inner, hasCrew] = GetParam();
    std::optional<Concurrently::Crew> crew;
    if (hasCrew)
        crew.emplace();
    for (int round = 0; round < 200; ++round) {
        const int width = qMax(inner, 1);
        std::vector<int> made(size_t(calls * width)); // plain: a call made twice at once is a race
        const auto share = [&](int n, const auto &work) {
            Concurrently::forEach(n, work, Concurrently::share);
        };
        share(calls, [&](int i) {
            if (inner == 0)
                ++made[size_t(i)];
            else
                share(inner, [&](int j) { ++made[size_t(i * width + j)]; });
        });
        ASSERT_EQ(made, std::vector<int>(made.size(), 1)) << "round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(Concurrently, SharedCalls,
                         ::testing::Values(Sharing{"none", 0, 0, true}, Sharing{"one", 1, 0, false},
                                           Sharing{"several", 7, 0, false},
                                           Sharing{"several_by_a_crew", 7, 0, true},
                                           Sharing{"many_by_a_crew", 300, 0, true},
                                           Sharing{"calls_in_one_call", 1, 20, true},
                                           Sharing{"calls_in_calls", 3, 20, false},
                                           Sharing{"calls_in_calls_by_a_crew", 3, 20, true}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(Concurrently, rethrowsTheFirstErrorOfInnerCallsOnceAllHaveEnded)
{
    const Concurrently::Crew crew;
    std::atomic<int> ended{0};
    const auto inner = [&](int i) {
        ++ended;
        if (i > 2)
            throw std::runtime_error(std::to_string(i));
    };
    const auto outer = [&](int) { Concurrently::forEach(10, inner, Concurrently::share); };
    try {
        Concurrently::forEach(4, outer, Concurrently::share);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error &error) {
        EXPECT_STREQ(error.what(), "3");
    }
    EXPECT_EQ(ended, 40);
}

TEST(Concurrently, givesIdleThreadsBackWhileTheCrewLives)
{
    Concurrently::Crew crew;
    crew.call();
    std::atomic<int> made{0};
    Concurrently::forEach(
        50, [&](int) { ++made; }, Concurrently::share);
    EXPECT_TRUE(QThreadPool::globalInstance()->waitForDone(60000));
    Concurrently::forEach(
        50, [&](int) { ++made; }, Concurrently::share); // and wakes them again
    EXPECT_EQ(made, 100);
}

TEST(Concurrently, stretchesMakeUpTheWhole)
{
    for (const int n : {0, 1, 255, 256, 257, 1000, 8192, 8193, 100000}) {
        std::vector<int> seen(size_t(n), 0);
        Concurrently::forStretches(n, [&](int first, int last) {
            for (int i = first; i < last; ++i)
                ++seen[size_t(i)];
        });
        EXPECT_EQ(seen, std::vector<int>(size_t(n), 1)) << n;
    }
}

} // namespace
