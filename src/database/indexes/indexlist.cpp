#include "database/indexes/indexlist.h"

#include "database/icore.h"
#include "database/indexes/tablelocker.h"
#include "database/masterindex_struct.h"
#include "database/tables/table.h"

namespace
{

Table *tableByName(const QString &name)
{
    Table *table = ICore::instance()->table(name);
    if (!table)
        throw QStringLiteral("Table '%1' not found to create index.").arg(name);
    return table;
}

} // namespace

IndexList::IndexList(Table *table, bool addToTable)
    : m_table(table)
    , m_registration(table, this, addToTable)
{
}

IndexList::IndexList(const QString &tableName, bool addToTable)
    : IndexList(tableByName(tableName), addToTable)
{
}

IndexList::~IndexList() = default;

void IndexList::clear()
{
    m_list.clear();
}

void IndexList::build()
{
    refill([this](const Record &record) { add(record); });
}

void IndexList::collect()
{
    refill([this](const Record &record) { m_list.append(record); });
}

template<class Put>
void IndexList::refill(Put put)
{
    if (m_table->masterIndex() == this)
        return; // what it holds are the table's rows
    const TableLocker locker(*m_table);
    m_list.clear(); // building twice must not hold a row twice
    for (const Record &record : *m_table->masterIndex()) {
        if (filter(record))
            put(record);
    }
}

void IndexList::add(const Record &record)
{
    m_list.append(record);
}

void IndexList::remove(const Record &record, int index)
{
    if (index < 0 || m_list.at(index) != record)
        index = indexOf(record);
    if (index != -1)
        m_list.remove(index);
}

bool IndexList::filter(const Record &) const
{
    return true;
}

bool IndexList::contains(const Record &record) const
{
    return indexOf(record) != -1;
}

int IndexList::indexOf(const Record &record) const
{
    return scanForRow(record, 0, count());
}

int IndexList::scanForRow(const Record &record, int from, int to) const
{
    if (from >= to)
        return -1;
    for (int c = m_list.locate(from).part; c < m_list.partCount() && m_list.partStart(c) < to;
         ++c) {
        const Record *const items = m_list.part(c).begin;
        const int start = m_list.partStart(c);
        const Record *const last = items + qMin(to - start, m_list.part(c).size);
        const Record *const found = std::find(items + qMax(from - start, 0), last, record);
        if (found != last)
            return start + int(found - items);
    }
    return -1;
}

QString IndexList::getClassName() const
{
    return QStringLiteral("IndexList");
}

void IndexList::move(int first, int last, int to)
{
    const bool inRange = first >= 0 && first <= last && last < count() && to >= 0 && to < count();
    if (!inRange || (to >= first && to <= last))
        return;
    QList<Record> block;
    block.reserve(last - first + 1);
    for (int i = first; i <= last; ++i)
        block.append(m_list.at(i));
    for (int i = first; i <= last; ++i)
        m_list.remove(first);
    m_list.insert(to < first ? to : to - block.size() + 1, block);
}

void IndexList::removeRanges(const RangeSet<int> &ranges)
{
    m_list.removeRanges(ranges);
}
