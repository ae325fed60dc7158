#include "database/indexes/indexlimit.h"

#include "database/masterindex_struct.h"
#include "database/tables/table.h"

#include <algorithm>

IndexLimit::IndexLimit(int limit, Table *table)
    : IndexSort(table, true)
    , m_limit(limit)
{
    table->setIndexName(QStringLiteral("IndexLimit"), this);
}

QString IndexLimit::getClassName() const
{
    return QStringLiteral("IndexLimit");
}

bool IndexLimit::containsRecord(const QList<Record> &list, const Record &record) const
{
    const MasterIndex *master = table()->masterIndex();
    const auto found =
        std::lower_bound(list.cbegin(), list.cend(), record, IndexSort::LessThan(master));
    return found != list.cend() && master->compare(*found, record) == 0;
}

int IndexLimit::toRemove(int delta, QList<Record> &removed, const QList<Record> &updated)
{
    const int held = count();
    const int excess = held + delta - m_limit;
    if (excess < 1 || held < 1)
        return held;
    const MasterIndex *master = table()->masterIndex();
    const int examined = qMin(excess, held);
    auto candidate = begin();
    for (int i = 0; i < examined; ++i, ++candidate) {
        if (containsRecord(removed, *candidate) || containsRecord(updated, *candidate))
            continue;
        const auto place = std::upper_bound(removed.begin(), removed.end(), *candidate,
                                            IndexSort::LessThan(master));
        removed.insert(place, *candidate);
    }
    return examined;
}
