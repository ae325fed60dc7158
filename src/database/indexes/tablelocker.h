#pragma once

#include "database/tables/table.h"

/// Holds a table's lock for a scope.
class TableLocker
{
public:
    /// Without those of the tables above: for whoever calls nothing meanwhile that could ask for
    /// them, or has them.
    enum Alone { alone };

    explicit TableLocker(Table &table)
        : m_table(table)
        , m_isAlone(false)
    {
        m_table.lock();
    }
    TableLocker(Table &table, Alone)
        : m_table(table)
        , m_isAlone(true)
    {
        m_table.lockAlone();
    }
    ~TableLocker()
    {
        if (m_isAlone)
            m_table.unlockAlone();
        else
            m_table.unlock();
    }
    TableLocker(const TableLocker &) = delete;
    TableLocker &operator=(const TableLocker &) = delete;

private:
    Table &m_table;
    const bool m_isAlone;
};
