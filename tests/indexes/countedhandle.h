#pragma once

#include <QtCore/qglobal.h>

#include <atomic>
#include <stdexcept>
#include <utility>

/// A handle of one pointer to a counted number, which books every copy and every number alive.
class CountedHandle
{
public:
    CountedHandle() noexcept = default;
    explicit CountedHandle(int value)
        : m_cell(new Cell{{1}, value})
    {
        ++s_alive;
    }
    CountedHandle(const CountedHandle &other)
        : m_cell(other.m_cell)
    {
        if (s_copiesUntilThrow > 0 && --s_copiesUntilThrow == 0)
            throw std::runtime_error("copy refused");
        ++s_copies;
        if (m_cell)
            ++m_cell->count;
    }
    CountedHandle(CountedHandle &&other) noexcept
        : m_cell(std::exchange(other.m_cell, nullptr))
    {
    }
    CountedHandle &operator=(CountedHandle other) noexcept
    {
        std::swap(m_cell, other.m_cell);
        return *this;
    }
    ~CountedHandle()
    {
        if (m_cell && --m_cell->count == 0) {
            delete m_cell;
            --s_alive;
        }
    }

    bool isNull() const { return !m_cell; }
    int value() const { return m_cell->value; }
    int references() const { return m_cell->count; }

    static inline std::atomic<int> s_alive{0};
    static inline std::atomic<int> s_copies{0};
    static inline int s_copiesUntilThrow = 0; // 0: copying never throws

private:
    struct Cell {
        std::atomic<int> count;
        int value;
    };
    Cell *m_cell = nullptr;
};

Q_DECLARE_TYPEINFO(CountedHandle, Q_MOVABLE_TYPE);
