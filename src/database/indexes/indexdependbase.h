#pragma once

#include "database/database_global.h"
#include "database/record.h"

#include <QtCore/qlist.h>

class Index;

/// Repeats every update call to a list of further indexes that depend on another table, in the
/// order in which they were added. Nothing is filtered here: each decides by its own filter().
/// Borrows the indexes.
class DATABASE_EXPORT IndexDependBase
{
public:
    void addDependentIndex(Index *index);    ///< no check for duplicates
    void removeDependentIndex(Index *index); ///< the first occurrence
    const QList<Index *> &dependentIndexes() const { return m_dependentIndexes; }

    void build();
    void clear();
    void add(const Record &record);
    void remove(const Record &record, int index);
    void update(const Record &record, int colFrom, int colTo, int index);
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted);
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                    int colTo, const QList<Record> &inserted, const QList<Record> &updatedValues);

private:
    QList<Index *> m_dependentIndexes; // borrowed
};
