#include "database/indexes/indexlimit.h"

#include "database/masterindex_struct.h"
#include "database/tables/table.h"

#include <algorithm>
#include <iterator>
#include <vector>

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
    const IndexSort::LessThan before(table()->masterIndex());
    const int examined = qMin(excess, held);
    std::vector<Record> leaving;
    leaving.reserve(size_t(examined));
    auto candidate = begin();
    for (int i = 0; i < examined; ++i, ++candidate) {
        if (!containsRecord(removed, *candidate) && !containsRecord(updated, *candidate))
            leaving.push_back(*candidate);
    }
    if (leaving.empty())
        return examined;
    // One by one they would shift the list for each. Of several with one key the first goes.
    if (!std::is_sorted(leaving.begin(), leaving.end(), before))
        std::stable_sort(leaving.begin(), leaving.end(), before);
    const auto isSame = [&](const Record &a, const Record &b) { return !before(a, b); };
    leaving.erase(std::unique(leaving.begin(), leaving.end(), isSame), leaving.end());
    QList<Record> all;
    all.reserve(removed.size() + int(leaving.size()));
    std::merge(removed.cbegin(), removed.cend(), leaving.cbegin(), leaving.cend(),
               std::back_inserter(all), before);
    removed.swap(all);
    return examined;
}
