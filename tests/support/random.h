#pragma once

#include <gtest/gtest.h>

#include <QtCore/qbytearray.h>

#include <cstdio>
#include <random>

/// The seed of this run: DATABASE_SEED, where "random" stands for another one every time; always
/// the same where that is not set. Printed once, so that what a run found can be had again.
inline unsigned runSeed()
{
    static const unsigned s_seed = [] {
        constexpr unsigned kUsual = 20241103;
        const QByteArray wanted = qgetenv("DATABASE_SEED");
        bool isGiven = false;
        const uint given = wanted.toUInt(&isGiven);
        const unsigned seed = isGiven              ? given
                              : wanted == "random" ? std::random_device()()
                                                   : kUsual;
        std::printf("DATABASE_SEED=%u\n", seed);
        return seed;
    }();
    return s_seed;
}

/// How many steps a model test goes: DATABASE_STEPS for long runs by hand. A sanitizer takes
/// several times as long for each.
inline int runSteps(int usual)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    usual = usual / 4 + 1;
#endif
    const int wanted = qEnvironmentVariableIntValue("DATABASE_STEPS");
    return wanted > 0 ? wanted : usual;
}

/// Chance that comes back with the run's seed; each salt is a sequence of its own.
class Random
{
public:
    explicit Random(unsigned salt = 0)
    {
        std::seed_seq seeds{runSeed(), salt};
        m_engine.seed(seeds);
    }

    /// 0..n - 1
    int below(int n) { return int(m_engine() % unsigned(n)); }
    bool oneIn(int n) { return below(n) == 0; }
    template<class Items>
    const auto &any(const Items &items)
    {
        return *std::next(std::begin(items), below(int(std::size(items))));
    }
    std::mt19937 &engine() { return m_engine; }

private:
    std::mt19937 m_engine;
};

#define TRACE_STEP(step)                                                                           \
    SCOPED_TRACE(testing::Message() << "DATABASE_SEED=" << runSeed() << ", step " << (step))
