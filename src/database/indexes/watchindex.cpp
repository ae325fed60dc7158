#include "database/indexes/watchindex.h"

#include "database/tables/table.h"

WatchIndex::WatchIndex(Table *table)
    : m_table(table)
    , m_registration(table, this, true)
{
}

WatchIndex::~WatchIndex() = default;

void WatchIndex::clear()
{
    m_added.clear();
    m_removed.clear();
    m_updated.clear();
}

void WatchIndex::build()
{
    clear();
}

void WatchIndex::add(const Record &record)
{
    if (m_removed.removeOne(record))
        m_updated.append(record);
    else
        m_added.append(record);
}

void WatchIndex::remove(const Record &record, int)
{
    m_removed.append(record);
}

void WatchIndex::update(const Record &record, int, int, int)
{
    m_updated.append(record);
}

bool WatchIndex::filter(const Record &) const
{
    return true;
}

bool WatchIndex::contains(const Record &record) const
{
    return m_added.contains(record) || m_updated.contains(record);
}

QString WatchIndex::getClassName() const
{
    return QStringLiteral("WatchIndex");
}
