// A table's lock, its update bracket and the registry of its indexes.

#include "database/indexes/index.h"
#include "database/indexes/tablelocker.h"
#include "database/joins/tablejoin.h"
#include "database/services/threadannotations.h"
#include "database/tables/firsterror.h"
#include "database/tables/table.h"
#include "database/tables/tableprivate.h"

#include <algorithm>
#include <map>
#include <optional>

namespace
{

/// Guards the dependent indexes of all tables: which tables depend on which is asked before any of
/// them is locked. Nothing else is locked while it is held.
QMutex &dependencyMutex()
{
    static QMutex mutex;
    return mutex;
}

class DependencyLocker
{
public:
    DependencyLocker()
    {
        dependencyMutex().lock();
        annotateAcquire(&dependencyMutex());
    }
    ~DependencyLocker()
    {
        annotateRelease(&dependencyMutex());
        dependencyMutex().unlock();
    }
    DependencyLocker(const DependencyLocker &) = delete;
    DependencyLocker &operator=(const DependencyLocker &) = delete;
};

/// Notes, for every table above one, the longest way up from it to a table that nothing depends on.
/// \return the longest way up from this one
int climb(Table *table, std::map<Table *, int> &heights)
{
    int height = 0;
    for (const Index *index : TablePrivate::of(*table).dependentIndexes.list()) {
        Table *const above = index->mainTable();
        if (!above || above == table)
            continue;
        const auto known = heights.find(above);
        const int its = known != heights.end()
                            ? known->second
                            : heights.emplace(above, climb(above, heights)).first->second;
        height = std::max(height, its + 1);
    }
    return height;
}

} // namespace

// Lock --------------------------------------------------------------------------------------------

// In one order for all threads: by height, and at the same height by address. A table stands higher
// than whatever it takes cells from.
TablePrivate::Above TablePrivate::tablesAbove() const
{
    if (dependents.load(std::memory_order_relaxed) == 0)
        return {};
    std::map<Table *, int> heights;
    {
        const DependencyLocker locker;
        climb(pending.table(), heights);
    }
    std::vector<Table *> ordered;
    for (const auto &each : heights)
        ordered.push_back(each.first);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [&](Table *a, Table *b) { return heights[a] < heights[b]; });
    return Above(ordered.begin(), ordered.end());
}

bool TablePrivate::lockAbove(Above &above, QDeadlineTimer deadline) const
{
    while (true) {
        above = tablesAbove();
        size_t locked = 0;
        for (; locked < above.size(); ++locked) {
            if (!of(*above[locked]).lockOwn({}, deadline))
                break;
        }
        const bool inTime = locked == above.size();
        // A join that came or went while this thread waited.
        if (inTime && (above.empty() || above == tablesAbove()))
            return true;
        above.resize(locked);
        unlockAbove(above);
        above.clear();
        if (!inTime)
            return false;
    }
}

void TablePrivate::unlockAbove(const Above &above)
{
    for (auto table = above.rbegin(); table != above.rend(); ++table) {
        if (*table)
            unlockAbove(of(**table).unlockOwn());
    }
}

bool TablePrivate::lockOwn(Above &&with, QDeadlineTimer deadline)
{
    if (deadline.isForever())
        mutex.lock();
    else if (!mutex.tryLock(int(deadline.remainingTime())))
        return false;
    annotateAcquire(&mutex);
    if (lockDepth++ == 0)
        owner.store(QThread::currentThreadId(), std::memory_order_relaxed);
    if (!with.empty())
        above = std::move(with);
    return true;
}

TablePrivate::Above TablePrivate::unlockOwn()
{
    Above released;
    if (--lockDepth == 0) {
        owner.store(nullptr, std::memory_order_relaxed);
        released.swap(above);
    }
    annotateRelease(&mutex);
    mutex.unlock();
    return released;
}

void Table::lock()
{
    TablePrivate::Above above;
    if (!d->isMine())
        d->lockAbove(above);
    d->lockOwn(std::move(above));
}

void Table::unlock()
{
    TablePrivate::unlockAbove(d->unlockOwn());
}

bool Table::tryLock(int timeoutMSecs)
{
    const QDeadlineTimer deadline(timeoutMSecs);
    TablePrivate::Above above;
    if (!d->isMine() && !d->lockAbove(above, deadline))
        return false;
    const TablePrivate::Above taken = above;
    if (d->lockOwn(std::move(above), deadline))
        return true;
    TablePrivate::unlockAbove(taken);
    return false;
}

void Table::lockAlone()
{
    d->lockOwn({});
}

void Table::unlockAlone()
{
    TablePrivate::unlockAbove(d->unlockOwn());
}

// Registry ----------------------------------------------------------------------------------------

MasterIndex *Table::masterIndex() const
{
    return d->masterIndex.get();
}

void Table::setMasterIndex(MasterIndex *index)
{
    if (index == d->masterIndex.get())
        return;
    refuseInside("setMasterIndex");
    const TableLocker locker(*this, TableLocker::alone);
    d->noteRows();
    if (d->masterIndex) {
        for (const Record &record : *d->masterIndex)
            rowHeader(record.row())->flags &= ~quint32(kRowInTable);
    }
    d->masterIndex.reset(index);
}

void Table::addIndex(Index *index)
{
    {
        const TableLocker locker(*this, TableLocker::alone);
        d->indexes.append(index);
    }
    Q_EMIT indexAdded(index);
}

void Table::removeIndex(Index *index)
{
    {
        const TableLocker locker(*this, TableLocker::alone);
        d->indexes.removeOne(index);
        const QString name = indexName(index);
        if (namedIndex(name) == index)
            d->indexNames.remove(name);
        d->findLimit();
    }
    Q_EMIT indexRemoved(index);
}

void Table::addDependentIndex(Index *index)
{
    {
        const TableLocker locker(*this, TableLocker::alone);
        const DependencyLocker dependencies;
        d->dependentIndexes.append(index);
        d->dependents.store(d->dependentIndexes.list().size(), std::memory_order_relaxed);
    }
    Q_EMIT dependentIndexAdded(index);
}

void Table::removeDependentIndex(Index *index)
{
    {
        const TableLocker locker(*this, TableLocker::alone);
        const DependencyLocker dependencies;
        d->dependentIndexes.removeOne(index);
        d->dependents.store(d->dependentIndexes.list().size(), std::memory_order_relaxed);
    }
    Q_EMIT dependentIndexRemoved(index);
}

void Table::setIndexName(const QString &name, Index *index)
{
    const TableLocker locker(*this, TableLocker::alone);
    d->indexNames.insert(name, index);
    d->findLimit();
}

Index *Table::namedIndex(const QString &name) const
{
    const TableLocker locker(*const_cast<Table *>(this), TableLocker::alone);
    return d->indexNames.value(name, nullptr);
}

QString Table::indexName(Index *index) const
{
    const TableLocker locker(*const_cast<Table *>(this), TableLocker::alone);
    return d->indexNames.key(index);
}

QList<Index *> Table::indexes() const
{
    const TableLocker locker(*const_cast<Table *>(this), TableLocker::alone);
    return d->indexes.list();
}

QList<Index *> Table::dependentIndexes() const
{
    const DependencyLocker locker;
    return d->dependentIndexes.list();
}

void Table::setIndexes(const QList<Index *> &indexes)
{
    const TableLocker locker(*this, TableLocker::alone);
    d->indexes.replace(indexes);
}

void Table::build()
{
    const TableLocker locker(*this);
    d->noteValues(); // a join writes straight into the rows
    FirstError error;
    for (const bool joins : {true, false}) { // other indexes may sort by what a join supplies
        d->forEachIndex([&](Index *index) {
            if (TableJoin::isJoin(index) == joins)
                error.run([&] { index->build(); });
        });
    }
    error.rethrow();
}

// Update bracket ----------------------------------------------------------------------------------

// While one is told nothing is locked but what was before: it goes on to lock its own table.
TablePrivate::DependentWalk::DependentWalk(TablePrivate &table)
{
    if (table.dependents.load(std::memory_order_relaxed) == 0)
        return;
    const DependencyLocker locker;
    m_walk = std::make_unique<IndexRegistry::Walk>(table.dependentIndexes);
}

TablePrivate::DependentWalk::~DependentWalk()
{
    if (!m_walk)
        return;
    const DependencyLocker locker;
    m_walk.reset();
}

Index *TablePrivate::DependentWalk::next()
{
    if (!m_walk)
        return nullptr;
    const DependencyLocker locker;
    return m_walk->next();
}

void TablePrivate::DependentWalk::turnBack(bool withLast)
{
    if (!m_walk)
        return;
    const DependencyLocker locker;
    m_walk->turnBack(withLast);
}

void Table::beginUpdate()
{
    if (d->isMine() && d->updateDepth.loadRelaxed() > 0) {
        d->lockOwn({});
        d->updateDepth.fetchAndAddOrdered(1);
        return;
    }
    TablePrivate::Above above;
    if (!d->isMine())
        d->lockAbove(above);
    const TablePrivate::Above taken = above; // for when it fails
    std::optional<TablePrivate::DependentWalk> dependents;
    std::optional<IndexRegistry::Walk> walk;
    bool locked = false;
    bool masterTold = false;
    bool dependentsTold = false;
    try {
        dependents.emplace(*d);
        while (Index *index = dependents->next())
            index->dependentBeginUpdate(this);
        dependentsTold = true;
        d->lockOwn(std::move(above));
        locked = true;
        d->updateDepth.fetchAndAddOrdered(1);
        d->masterIndex->beginUpdate();
        masterTold = true;
        walk.emplace(d->indexes);
        while (Index *index = walk->next())
            index->beginUpdate();
    } catch (...) {
        // Closes what was opened, in the order of endUpdate(); the error that counts is the first.
        FirstError ignored;
        if (masterTold)
            ignored.run([&] { d->masterIndex->endUpdate(); });
        if (walk) {
            walk->turnBack(false);
            while (Index *index = walk->next())
                ignored.run([&] { index->endUpdate(); });
            walk.reset(); // while the registry is still this thread's
        }
        if (locked) {
            d->updateDepth.fetchAndSubOrdered(1);
            d->unlockOwn();
        }
        if (dependents) {
            dependents->turnBack(dependentsTold);
            while (Index *index = dependents->next())
                ignored.run([&] { index->dependentEndUpdate(this); });
        }
        TablePrivate::unlockAbove(taken);
        throw;
    }
}

void Table::endUpdate()
{
    if (d->updateDepth.fetchAndSubOrdered(1) >= 2) {
        TablePrivate::unlockAbove(d->unlockOwn());
        return;
    }
    FirstError error;
    error.run([&] { d->masterIndex->endUpdate(); });
    d->forEachIndex([&](Index *index) { error.run([&] { index->endUpdate(); }); });
    const TablePrivate::Above above = d->unlockOwn();
    {
        TablePrivate::DependentWalk dependents(*d);
        while (Index *index = dependents.next())
            error.run([&] { index->dependentEndUpdate(this); });
    }
    TablePrivate::unlockAbove(above);
    error.rethrow();
}
