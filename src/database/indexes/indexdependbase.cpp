#include "database/indexes/indexdependbase.h"

#include "database/indexes/index.h"

void IndexDependBase::addDependentIndex(Index *index)
{
    m_dependentIndexes.append(index);
}

void IndexDependBase::removeDependentIndex(Index *index)
{
    m_dependentIndexes.removeOne(index);
}

void IndexDependBase::build()
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->build();
}

void IndexDependBase::clear()
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->clear();
}

void IndexDependBase::add(const Record &record)
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->add(record);
}

void IndexDependBase::remove(const Record &record, int position)
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->remove(record, position);
}

void IndexDependBase::update(const Record &record, int colFrom, int colTo, int position)
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->update(record, colFrom, colTo, position);
}

void IndexDependBase::process(const QList<Record> &removed, const QList<Record> &updated,
                              int colFrom, int colTo, const QList<Record> &inserted)
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->process(removed, updated, colFrom, colTo, inserted);
}

void IndexDependBase::preprocess(const QList<Record> &removed, const QList<Record> &updated,
                                 int colFrom, int colTo, const QList<Record> &inserted,
                                 const QList<Record> &updatedValues)
{
    for (Index *index : qAsConst(m_dependentIndexes))
        index->preprocess(removed, updated, colFrom, colTo, inserted, updatedValues);
}
