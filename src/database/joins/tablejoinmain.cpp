#include "database/joins/tablejoinmain.h"

#include "database/indexes/tablelocker.h"
#include "database/joins/joincells.h"
#include "database/joins/joinchunks.h"
#include "database/joins/joinkeyindex.h"
#include "database/joins/joinrequest.h"
#include "database/joins/partnerfinder.h"
#include "database/joins/tablejoindep.h"
#include "database/tables/firsterror.h"
#include "database/tables/recordstrans.h"
#include "database/tables/table.h"
#include "database/tables/tableprivate.h"

#include <QtCore/qset.h>

#include <algorithm>
#include <limits>
#include <new>
#include <optional>

namespace
{

/// Holds the locks of dependent tables, those that still live, each on its own: the main table's is
/// held, and no other is asked for meanwhile.
class DependentLocks
{
public:
    explicit DependentLocks(const std::vector<TableJoinDep *> &deps)
    {
        for (const TableJoinDep *dep : deps) {
            if (dep->table())
                m_locks.push_back(std::make_unique<TableLocker>(*dep->table(), TableLocker::alone));
        }
    }

private:
    std::vector<std::unique_ptr<TableLocker>> m_locks;
};

} // namespace

/// A transaction in the making: live rows, their values in step, the range of columns that differ.
struct TableJoinMain::Changes {
    QList<Record> rows;
    QList<Record> values;
    int first = std::numeric_limits<int>::max();
    int last = -1;
};

TableJoinMain::TableJoinMain(Table *main, bool addToTable)
    : TableJoin(main)
{
    connectIndexes(addToTable, false);
}

TableJoinMain::~TableJoinMain()
{
    std::optional<TableLocker> locker;
    if (table())
        locker.emplace(*table());
    disconnectIndexes();
    FirstError ignored; // a destructor has nobody to tell
    for (const auto &dep : m_deps) {
        dep->disconnectIndexes();
        if (std::exchange(dep->m_inBracket, false) && table())
            ignored.run([&] { table()->endUpdate(); });
    }
}

TableJoinDep *TableJoinMain::addTable(Table *dependent, const QStringList &keyColumns,
                                      const QList<QPair<QString, QString>> &columns)
{
    if (!table())
        throw QStringLiteral("There is no main table any more to join another one to.");
    const TableLocker locker(*table());
    std::optional<TableLocker> dependentLocker;
    if (dependent)
        dependentLocker.emplace(*dependent);
    const JoinRequest request(*this, dependent, keyColumns, columns);
    const bool registered = table()->indexes().contains(this);
    if (!registered)
        clear(); // adding columns moves rows and rebuilds the registered indexes only
    for (const ColumnDef &def : request.missingColumns()) {
        table()->addColumn(def.name, def.type, def.length, def.nullable, def.title, def.extraFlag,
                           def.description);
    }
    if (!registered)
        build();
    std::unique_ptr<TableJoinDep> made(
        new TableJoinDep(*this, dependent, request.keyLinks(), request.columnLinks()));
    TableJoinDep *const dep = made.get();
    dep->m_byKey->build();
    m_deps.push_back(std::move(made));
    setupIndex(dep->m_byKey.get());
    dep->connectIndexes(true, true);
    dep->build();
    return dep;
}

QList<TableJoinDep *> TableJoinMain::dependents() const
{
    QList<TableJoinDep *> result;
    for (const auto &dep : m_deps)
        result.append(dep.get());
    return result;
}

QString TableJoinMain::getClassName() const
{
    return QStringLiteral("TableJoinMain");
}

// What happens in the main table ------------------------------------------------------------------

void TableJoinMain::clear()
{
    m_indexes.clear();
}

void TableJoinMain::build()
{
    TablePrivate::of(*table()).noteValues();
    // One after the other: a joined column may hold the keys of the next table.
    for (const auto &dep : m_deps) {
        const DependentLocks locks({dep.get()});
        dep->rebuildMain();
    }
}

void TableJoinMain::add(const Record &record)
{
    m_indexes.add(record);
}

void TableJoinMain::remove(const Record &record, int index)
{
    m_indexes.remove(record, index);
}

void TableJoinMain::update(const Record &record, int colFrom, int colTo, int index)
{
    m_indexes.update(record, colFrom, colTo, index);
}

bool TableJoinMain::filter(const Record & /*record*/) const
{
    return true;
}

bool TableJoinMain::contains(const Record &record) const
{
    return record.table() == table() && record.inTable();
}

void TableJoinMain::complete(const QList<Record> &updated, const QList<Record> &values,
                             int &colFrom, int &colTo, const QList<Record> &inserted)
{
    // Indexes are to get the range as it was given, unless it has to be widened.
    int from = qMax(colFrom, 0);
    int to = colTo < 0 ? table()->columnCount() - 1 : colTo;
    const auto given = std::make_pair(from, to);
    for (const auto &dep : m_deps) {
        const bool isBrought =
            std::find(m_flushing.begin(), m_flushing.end(), dep.get()) != m_flushing.end();
        const bool looks = isBrought ? dep->isKeyTouched(from, to) : dep->isTouched(from, to);
        const bool fillsValues = looks && !values.isEmpty();
        if (!fillsValues && inserted.isEmpty())
            continue;
        const DependentLocks locks({dep.get()});
        dep->fill(inserted);
        if (fillsValues) {
            dep->widen(updated, values, from, to);
            dep->fill(values);
        }
    }
    if (given != std::make_pair(from, to)) {
        colFrom = from;
        colTo = to;
    }
}

void TableJoinMain::preprocess(const QList<Record> &removed, const QList<Record> &updated,
                               int colFrom, int colTo, const QList<Record> &inserted,
                               const QList<Record> &updatedValues)
{
    const ProcessTiming timing(*this);
    m_indexes.preprocess(removed, updated, colFrom, colTo, inserted, updatedValues);
}

void TableJoinMain::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                            int colTo, const QList<Record> &inserted)
{
    const ProcessTiming timing(*this);
    m_indexes.process(removed, updated, colFrom, colTo, inserted);
}

void TableJoinMain::endUpdate()
{
    if (m_brackets == 0)
        flush();
}

// What comes from the dependent tables ------------------------------------------------------------

void TableJoinMain::openBracket()
{
    if (table())
        table()->beginUpdate();
    ++m_brackets;
}

void TableJoinMain::closeBracket()
{
    FirstError error;
    if (--m_brackets == 0)
        error.run([&] { flush(); });
    if (table())
        error.run([&] { table()->endUpdate(); });
    error.rethrow();
}

// One transaction for everything that has changed. While the main table is inside a transaction,
// the changes wait for the end of its bracket.
void TableJoinMain::flush()
{
    Table *const main = table();
    std::vector<TableJoinDep *> changed;
    for (const auto &dep : m_deps) {
        if (dep->isChanged())
            changed.push_back(dep.get());
    }
    if (!main) { // what was gathered would hold its rows for ever
        for (TableJoinDep *dep : changed)
            dep->forgetChanges();
        return;
    }
    if (changed.empty() || main->transactionState() != 0 || !m_flushing.empty())
        return;
    const TableUpdate bracket(*main);
    Changes batch;
    {
        const DependentLocks locks(changed);
        batch = changes(changed);
    }
    if (batch.rows.isEmpty())
        return;
    struct FlushingGuard {
        std::vector<TableJoinDep *> &deps;
        ~FlushingGuard() { deps.clear(); }
    } guard{m_flushing};
    m_flushing = changed;
    main->process(batch.rows, batch.first, batch.last, batch.values);
}

// The transaction that brings the joined cells of some tables up to date.
TableJoinMain::Changes TableJoinMain::changes(const std::vector<TableJoinDep *> &deps) const
{
    QList<Record> affected = deps.front()->takeAffected();
    if (deps.size() > 1) {
        QSet<const uchar *> known;
        for (const Record &row : qAsConst(affected))
            known.insert(row.row());
        for (size_t i = 1; i < deps.size(); ++i) {
            for (const Record &row : deps[i]->takeAffected()) {
                if (!known.contains(row.row())) {
                    known.insert(row.row());
                    affected.append(row);
                }
            }
        }
    }

    std::vector<Changes> parts(size_t(JoinChunks::count(affected.size())));
    JoinChunks::forEach(affected.size(), [&](int chunk, int begin, int end) {
        RecordsTrans range(table()); // gathers which columns differ; holds no row
        std::vector<PartnerFinder> finders;
        finders.reserve(deps.size());
        for (const TableJoinDep *dep : deps)
            finders.emplace_back(*dep);
        Changes &part = parts[size_t(chunk)];
        for (int i = begin; i < end; ++i) {
            const Record &live = affected.at(i);
            Record pending;
            for (size_t d = 0; d < deps.size(); ++d) {
                const Record &partner = finders[d].partnerOf(live);
                const ColumnLinks &links = deps[d]->columns();
                const bool isCurrent =
                    std::all_of(links.begin(), links.end(), [&](const ColumnLink &link) {
                        return JoinCells::isSame(link, partner, live);
                    });
                if (isCurrent)
                    continue;
                if (pending.isNull()) {
                    pending = live.clone();
                    if (pending.isNull())
                        throw std::bad_alloc();
                }
                RecordUpdater updater(&range, pending);
                setFields(updater, links, partner);
            }
            if (!pending.isNull()) {
                part.rows.append(live);
                part.values.append(pending);
            }
        }
        part.first = range.first();
        part.last = range.last();
    });

    Changes all;
    for (const Changes &part : parts) {
        all.rows += part.rows;
        all.values += part.values;
        all.first = qMin(all.first, part.first);
        all.last = qMax(all.last, part.last);
    }
    return all;
}
