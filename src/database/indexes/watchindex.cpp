#include "database/indexes/watchindex.h"

#include "database/tables/table.h"

WatchIndex::WatchIndex(Table *table)
    : m_table(table)
    , m_registration(table, this, true)
{
}

WatchIndex::~WatchIndex()
{
    m_registration.leave();
}

void WatchIndex::clear()
{
    m_added.clear();
    m_removed.clear();
    m_updated.clear();
    m_removals.clear();
    m_later.clear();
    m_takenBack = 0;
    m_present.clear();
    m_presentAdded = m_presentUpdated = 0;
}

void WatchIndex::build()
{
    clear();
}

void WatchIndex::add(const Record &record)
{
    if (takeBack(record))
        m_updated.append(record);
    else
        m_added.append(record);
}

// Takes the row's first removal out of the list. Removals are looked up only once something comes.
bool WatchIndex::takeBack(const Record &record)
{
    if (m_removed.isEmpty())
        return false;
    for (int i = int(m_later.size()); i < m_removed.size(); ++i) {
        m_later.push_back(-1);
        if (m_removed.at(i).isNull())
            continue;
        const uchar *const row = m_removed.at(i).row();
        const auto known = m_removals.find(row);
        if (known == m_removals.end()) {
            m_removals.insert(row, {i, i});
        } else {
            m_later[size_t(known->last)] = i;
            known->last = i;
        }
    }
    const auto removals = m_removals.find(record.row());
    if (removals == m_removals.end())
        return false;
    m_removed[removals->first] = Record();
    ++m_takenBack;
    removals->first = m_later[size_t(removals->first)];
    if (removals->first == -1)
        m_removals.erase(removals);
    return true;
}

const QList<Record> &WatchIndex::removed() const
{
    if (m_takenBack > 0) {
        m_removed.removeAll(Record());
        m_takenBack = 0;
        m_removals.clear(); // the places have changed
        m_later.clear();
    }
    return m_removed;
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
    for (; m_presentAdded < m_added.size(); ++m_presentAdded)
        m_present.insert(m_added.at(m_presentAdded).row());
    for (; m_presentUpdated < m_updated.size(); ++m_presentUpdated)
        m_present.insert(m_updated.at(m_presentUpdated).row());
    return m_present.contains(record.row());
}

QString WatchIndex::getClassName() const
{
    return QStringLiteral("WatchIndex");
}
