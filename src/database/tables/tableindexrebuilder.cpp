#include "database/tables/tableindexrebuilder.h"

#include "database/indexes/index.h"
#include "database/joins/tablejoin.h"
#include "database/tables/firsterror.h"
#include "database/tables/table.h"

namespace
{

bool isDependent(const QString &className)
{
    return className.startsWith(QLatin1String("IndexDepend"));
}

} // namespace

TableIndexRebuilder::TableIndexRebuilder(Table *table)
    : m_table(table)
    , m_locker(*table)
{
    const QList<Index *> indexes = table->indexes();
    for (Index *index : indexes) {
        m_removed.append({index, table->indexName(index)});
        table->removeIndex(index);
    }
    detectIndexGroup(indexes);
    FirstError error;
    for (const auto *group : {&m_joinGroup, &m_dependentGroup, &m_otherGroup}) {
        for (Index *index : *group)
            error.run([&] { index->clear(); });
    }
    if (error.caught()) {
        putBack(error);
        error.rethrow();
    }
}

void TableIndexRebuilder::detectIndexGroup(const QList<Index *> &indexes)
{
    for (Index *index : indexes) {
        if (TableJoin::isJoin(index))
            m_joinGroup.append(index);
        else if (isDependent(index->getClassName()))
            m_dependentGroup.append(index);
        else
            m_otherGroup.append(index);
    }
}

TableIndexRebuilder::~TableIndexRebuilder() noexcept(false)
{
    FirstError error;
    putBack(error);
    if (std::uncaught_exceptions() == m_exceptions)
        error.rethrow();
}

void TableIndexRebuilder::putBack(FirstError &error)
{
    for (const auto *group : {&m_joinGroup, &m_dependentGroup, &m_otherGroup}) {
        for (Index *index : *group)
            error.run([&] { index->build(); });
    }
    for (const auto &removed : qAsConst(m_removed)) {
        m_table->addIndex(removed.first);
        if (!removed.second.isEmpty())
            m_table->setIndexName(removed.second, removed.first);
    }
}
