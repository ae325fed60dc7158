#include "database/indexes/index.h"

#include "database/indexes/tablelocker.h"
#include "database/tables/table.h"

std::atomic<qint64> Index::m_nsecsElapsedTotal{0};

Index::Index() = default;

Index::~Index() = default;

void Index::rebuild()
{
    clear();
    build();
}

void Index::preprocess(const QList<Record> &, const QList<Record> &, int, int,
                       const QList<Record> &, const QList<Record> &)
{
}

void Index::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                    int colTo, const QList<Record> &inserted)
{
    const ProcessTiming timing(*this);
    for (const Record &record : removed)
        remove(record, -1);
    for (const Record &record : updated)
        update(record, colFrom, colTo, -1);
    for (const Record &record : inserted) {
        if (filter(record))
            add(record);
    }
}

void Index::update(const Record &record, int, int, int index)
{
    remove(record, index);
    if (filter(record))
        add(record);
}

int Index::indexOf(const Record &) const
{
    return -1;
}

void Index::complete(const QList<Record> &, const QList<Record> &, int &, int &,
                     const QList<Record> &)
{
}

Table *Index::mainTable() const
{
    return nullptr;
}

void Index::beginUpdate() {}

void Index::endUpdate() {}

void Index::dependentBeginUpdate(Table *) {}

void Index::dependentEndUpdate(Table *) {}

decimal Index::percentElapsed() const
{
    const qint64 unit = nsecsElapsedTotal() / 10000;
    return unit == 0 ? decimal() : decimal::fromParts(m_nsecsElapsed / unit, 2);
}

IndexRegistration::IndexRegistration(Table *table, Index *index, bool addToTable)
    : m_table(table)
    , m_index(index)
    , m_addToTable(addToTable)
{
    if (addToTable)
        table->addIndex(index);
}

void IndexRegistration::leave()
{
    if (!m_table)
        return;
    const TableLocker locker(*m_table, TableLocker::alone);
    // An index may have been registered and named by hand as well.
    while (m_table->indexes().contains(m_index))
        m_table->removeIndex(m_index);
    for (QString name; !(name = m_table->indexName(m_index)).isEmpty();)
        m_table->setIndexName(name, nullptr);
}
