#include "database/joins/tablejoindep.h"

#include "database/indexes/rangeset.h"
#include "database/joins/joincells.h"
#include "database/joins/joinchunks.h"
#include "database/joins/joinkeyindex.h"
#include "database/joins/partnerfinder.h"
#include "database/joins/tablejoinmain.h"
#include "database/tables/table.h"

#include <QtCore/qscopedvaluerollback.h>

#include <algorithm>
#include <new>

namespace
{

std::vector<const TableColumnDef *> sources(const TableJoin::ColumnLinks &links)
{
    std::vector<const TableColumnDef *> columns;
    for (const TableJoin::ColumnLink &link : links)
        columns.push_back(link.from);
    return columns;
}

bool isWithin(const TableColumnDef *column, int from, int to)
{
    return column->index >= from && (to < 0 || column->index <= to);
}

} // namespace

TableJoinDep::TableJoinDep(TableJoinMain &join, Table *dependent, const ColumnLinks &keys,
                           const ColumnLinks &columns)
    : TableJoin(dependent)
    , m_join(join)
    , m_keys(keys)
    , m_columns(columns)
    , m_byKey(std::make_unique<JoinKeyIndex>(join.table(), sources(keys)))
{
    // A table that goes inside its own bracket does not close it.
    QObject::connect(dependent, &QObject::destroyed, &m_guard, [this] { leaveBracket(); });
}

TableJoinDep::~TableJoinDep()
{
    disconnectIndexes();
}

// What happens in the dependent table -------------------------------------------------------------

void TableJoinDep::clear()
{
    m_changed.clear(); // adding a column moves the rows
    m_allChanged = true;
    m_awaitsBuild = !table() || !table()->indexes().contains(this);
    // The rows may still stand in the master index.
    const QScopedValueRollback<bool> empty(m_isEmpty, true);
    pass();
}

void TableJoinDep::build()
{
    m_changed.clear();
    m_allChanged = true;
    m_awaitsBuild = false;
    pass();
}

void TableJoinDep::add(const Record &record)
{
    m_changed.append(record);
    pass();
}

void TableJoinDep::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                           int colTo, const QList<Record> &inserted)
{
    const ProcessTiming timing(*this);
    m_changed += removed;
    if (shows(colFrom, colTo))
        m_changed += updated;
    m_changed += inserted;
    pass();
}

void TableJoinDep::remove(const Record &record, int /*index*/)
{
    m_changed.append(record);
    // The master index comes after the others.
    const QScopedValueRollback<const uchar *> leaving(m_leaving, record.row());
    pass();
}

void TableJoinDep::update(const Record &record, int colFrom, int colTo, int /*index*/)
{
    if (!shows(colFrom, colTo))
        return;
    m_changed.append(record);
    pass();
}

bool TableJoinDep::filter(const Record & /*record*/) const
{
    return true;
}

bool TableJoinDep::contains(const Record &record) const
{
    return record.table() == table() && record.inTable();
}

void TableJoinDep::dependentBeginUpdate(Table * /*table*/)
{
    m_join.openBracket();
    m_inBracket = true;
}

void TableJoinDep::dependentEndUpdate(Table * /*table*/)
{
    leaveBracket();
}

QString TableJoinDep::getClassName() const
{
    return QStringLiteral("TableJoinDep");
}

Table *TableJoinDep::mainTable() const
{
    return m_join.table();
}

void TableJoinDep::leaveBracket()
{
    // A bracket that was open when the join was made was never entered.
    if (std::exchange(m_inBracket, false))
        m_join.closeBracket();
}

void TableJoinDep::pass()
{
    if (!m_inBracket)
        m_join.flush();
}

bool TableJoinDep::isChanged() const
{
    return !m_awaitsBuild && (m_allChanged || !m_changed.isEmpty());
}

void TableJoinDep::forgetChanges()
{
    m_changed.clear();
    m_allChanged = false;
}

bool TableJoinDep::shows(int colFrom, int colTo) const
{
    return std::any_of(m_columns.begin(), m_columns.end(),
                       [&](const ColumnLink &link) { return isWithin(link.from, colFrom, colTo); });
}

// What follows in the main table ------------------------------------------------------------------

bool TableJoinDep::isKeyTouched(int colFrom, int colTo) const
{
    return m_byKey->reads(colFrom, colTo);
}

bool TableJoinDep::isTouched(int colFrom, int colTo) const
{
    return isKeyTouched(colFrom, colTo) ||
           std::any_of(m_columns.begin(), m_columns.end(),
                       [&](const ColumnLink &link) { return isWithin(link.to, colFrom, colTo); });
}

QList<Record> TableJoinDep::takeAffected()
{
    RangeSet<int> ranges;
    if (m_allChanged) {
        ranges.addRange(0, m_byKey->count());
    } else {
        const Record key(m_join.table());
        if (key.isNull())
            throw std::bad_alloc();
        for (const Record &changed : qAsConst(m_changed)) {
            // Nobody names a row without a key, nor one whose text is too long for the main table.
            const bool isNamed = std::all_of(m_keys.begin(), m_keys.end(), [&](const auto &link) {
                return JoinCells::copy({link.to, link.from}, changed, key);
            });
            if (!isNamed)
                continue;
            const auto [first, end] = m_byKey->rangeOf(key);
            ranges.addRange(first, end);
        }
    }
    forgetChanges();

    QList<Record> affected;
    const QList<int> &bounds = ranges.bounds();
    for (int i = 0; i < bounds.size(); i += 2) {
        auto record = m_byKey->list().iteratorAt(bounds.at(i));
        for (int left = bounds.at(i + 1) - bounds.at(i); left > 0; --left, ++record)
            affected.append(*record);
    }
    return affected;
}

void TableJoinDep::fill(const QList<Record> &rows) const
{
    JoinChunks::forEach(rows.size(), [&](int, int begin, int end) {
        PartnerFinder finder(*this);
        for (int i = begin; i < end; ++i) {
            const Record &row = rows.at(i);
            const Record &partner = finder.partnerOf(row);
            for (const ColumnLink &link : m_columns)
                JoinCells::copy(link, partner, row);
        }
    });
}

void TableJoinDep::rebuildMain()
{
    forgetChanges();
    m_byKey->build();
    QList<Record> rows;
    rows.reserve(m_byKey->count());
    for (const Record &row : *m_byKey) // in the order of their partners
        rows.append(row);
    fill(rows);
}

void TableJoinDep::widen(const QList<Record> &updated, const QList<Record> &values, int &colFrom,
                         int &colTo) const
{
    int from = colFrom;
    int to = colTo;
    for (const ColumnLink &link : m_columns) {
        from = qMin(from, link.to->index);
        to = qMax(to, link.to->index);
    }
    // What the batch did not mean to change is as old as its copies: other batches may have come in
    // between.
    const int pairs = qMin(updated.size(), values.size());
    for (int i = 0; i < pairs; ++i) {
        Record value = values.at(i);
        if (from < colFrom)
            value.copy(updated.at(i), from, colFrom - 1);
        if (to > colTo)
            value.copy(updated.at(i), colTo + 1, to);
    }
    colFrom = from;
    colTo = to;
}
