#include "database/joins/tablejoin.h"

#include "database/joins/joincells.h"
#include "database/tables/table.h"

TableJoin::TableJoin(Table *table)
    : m_table(table)
{
}

bool TableJoin::isJoin(const Index *index)
{
    return index->getClassName().startsWith(QLatin1String("TableJoin"));
}

bool TableJoin::setFields(RecordUpdater &updater, const ColumnLinks &links, const Record &partner)
{
    const Record &pending = updater.record();
    bool changed = false;
    for (const ColumnLink &link : links) {
        if (JoinCells::isSame(link, partner, pending))
            continue;
        JoinCells::copy(link, partner, pending);
        updater.widen(link.to->index, link.to->index);
        changed = true;
    }
    return changed;
}

void TableJoin::setupIndex(Index *index)
{
    m_indexes.addDependentIndex(index);
}

void TableJoin::connectIndexes(bool forBatches, bool forBrackets)
{
    if (forBatches)
        m_table->addIndex(this);
    if (forBrackets)
        m_table->addDependentIndex(this);
}

void TableJoin::disconnectIndexes()
{
    if (!m_table)
        return;
    while (m_table->indexes().contains(this))
        m_table->removeIndex(this);
    for (QString name; !(name = m_table->indexName(this)).isEmpty();)
        m_table->setIndexName(name, nullptr);
    while (m_table->dependentIndexes().contains(this))
        m_table->removeDependentIndex(this);
}
