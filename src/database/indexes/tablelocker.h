#pragma once

#include "database/tables/table.h"

/// Holds a table's lock for a scope.
class TableLocker
{
public:
    explicit TableLocker(Table &table)
        : m_table(table)
    {
        m_table.lock();
    }
    ~TableLocker() { m_table.unlock(); }
    TableLocker(const TableLocker &) = delete;
    TableLocker &operator=(const TableLocker &) = delete;

private:
    Table &m_table;
};
