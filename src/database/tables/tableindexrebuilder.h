#pragma once

#include "database/database_global.h"
#include "database/indexes/tablelocker.h"

#include <QtCore/qlist.h>
#include <QtCore/qpair.h>
#include <QtCore/qstring.h>

#include <exception>

class FirstError;
class Index;
class Table;

/// Takes all secondary indexes out of a table for a bulk load, and puts them back rebuilt.
///
/// While it lives, appended rows go into the master index only. Its end builds every index once
/// over all rows, joins first, then dependent indexes, then the others (so that an index over
/// joined columns sees the joined values), and registers them again in their old order under their
/// old names. The indexes must outlive it. Holds the table's lock all the time.
class DATABASE_EXPORT TableIndexRebuilder
{
public:
    /// \throws what the clear() of an index throws; all are built and put back then
    explicit TableIndexRebuilder(Table *table);
    /// Puts every index back, also those whose build() throws. \throws the first error of a build,
    /// unless another exception is under way
    ~TableIndexRebuilder() noexcept(false);
    TableIndexRebuilder(const TableIndexRebuilder &) = delete;
    TableIndexRebuilder &operator=(const TableIndexRebuilder &) = delete;

    /// Sorts indexes into the three groups.
    void detectIndexGroup(const QList<Index *> &indexes);

private:
    void putBack(FirstError &error);

    Table *m_table; // borrowed
    const TableLocker m_locker;
    QList<QPair<Index *, QString>> m_removed; // in their order of registration, with their names
    QList<Index *> m_joinGroup;
    QList<Index *> m_dependentGroup;
    QList<Index *> m_otherGroup;
    const int m_exceptions = std::uncaught_exceptions();
};
