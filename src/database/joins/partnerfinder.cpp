#include "database/joins/partnerfinder.h"

#include "database/joins/joincells.h"
#include "database/joins/joinkeyindex.h"
#include "database/masterindex_struct.h"
#include "database/tables/table.h"

#include <new>

PartnerFinder::PartnerFinder(const TableJoinDep &dep)
    : m_dep(dep)
{
    if (!dep.table() || dep.m_isEmpty)
        return;
    m_key = Record(dep.table());
    if (m_key.isNull())
        throw std::bad_alloc();
}

const Record &PartnerFinder::partnerOf(const Record &row)
{
    if (m_key.isNull())
        return Record::null;
    if (m_last.isNull() || m_dep.m_byKey->compareKeys(m_last, row) != 0) {
        m_partner = find(row);
        m_last = row;
    }
    return m_partner;
}

Record PartnerFinder::find(const Record &row) const
{
    for (const TableJoin::ColumnLink &link : m_dep.m_keys) {
        if (!JoinCells::copy(link, row, m_key))
            return Record();
    }
    const Record partner = m_dep.table()->masterIndex()->find(m_key, -1);
    return partner.row() == m_dep.m_leaving ? Record() : partner;
}
