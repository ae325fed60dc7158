#pragma once

#include <database/indexes/partitionlist.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

/// A handle of a number, which books every copy and every number alive.
class CountedHandle
{
public:
    CountedHandle() noexcept = default;
    explicit CountedHandle(int value)
        : m_number(new int(value), &CountedHandle::drop)
    {
        ++s_alive;
    }
    CountedHandle(const CountedHandle &other)
        : m_number(other.m_number)
    {
        if (s_copiesUntilThrow > 0 && --s_copiesUntilThrow == 0)
            throw std::runtime_error("copy refused");
        ++s_copies;
    }
    CountedHandle(CountedHandle &&other) noexcept = default;
    CountedHandle &operator=(CountedHandle other) noexcept
    {
        m_number.swap(other.m_number);
        return *this;
    }
    ~CountedHandle() = default;

    bool isNull() const { return !m_number; }
    int value() const { return *m_number; }
    int references() const { return int(m_number.use_count()); }

    static inline std::atomic<int> s_alive{0};
    static inline std::atomic<int> s_copies{0};
    static inline int s_copiesUntilThrow = 0; // 0: copying never throws

private:
    static void drop(int *number)
    {
        delete number;
        --s_alive;
    }

    std::shared_ptr<int> m_number;
};

Q_DECLARE_TYPEINFO(CountedHandle, Q_MOVABLE_TYPE);

using List = PartitionList<CountedHandle>;

template<class Handles>
std::vector<int> valuesOf(const Handles &handles)
{
    std::vector<int> values;
    for (const CountedHandle &handle : handles)
        values.push_back(handle.isNull() ? -1 : handle.value());
    return values;
}

/// Ends when the lists of the test are gone.
class CountedHandles : public ::testing::Test
{
protected:
    ~CountedHandles() override
    {
        EXPECT_EQ(CountedHandle::s_alive, 0) << "references lost or leaked";
    }
};
