#pragma once

#include "database/masterindex_struct.h"
#include "database/tables/columndef.h"
#include "database/tables/recordstrans.h"
#include "database/tables/rowlayout.h"

#include <QtCore/qatomic.h>
#include <QtCore/qhash.h>
#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qmutex.h>
#include <QtCore/qstring.h>

#include <memory>

struct TablePrivate {
    TablePrivate(Table *table, const QString &tableName, const QString &tableTitle)
        : name(tableName)
        , title(tableTitle)
        , pending(table)
    {
    }

    /// Calls every secondary index, in the order of registration. An index may register or remove
    /// others meanwhile: those that come are left out, having been built by whoever made them, and
    /// so are those that went, which may be gone for good.
    template<class Call>
    void forEachIndex(Call &&call) const
    {
        const QList<Index *> told = indexes;
        for (Index *index : told) {
            // The same array as long as nobody changed the registry.
            if (told.cbegin() == indexes.cbegin() || indexes.contains(index))
                call(index);
        }
    }

    const QString name;
    QString title;
    std::unique_ptr<MasterIndex> masterIndex;
    QList<Index *> indexes;            // borrowed, in the order of registration
    QMap<QString, Index *> indexNames; // borrowed
    QList<Index *> dependentIndexes;   // borrowed; they belong to other tables
    QList<TableColumnDef *> columns;   // owned, in column order
    qint64 dataLength = 0;             // sum of the columns' rounded sizes
    qint64 rowSize = kRowHeaderSize;   // header, data, bitmap
    QHash<QString, int> columnHash;    // both hold every column; the map is
    QMap<QString, int> columnMap;      // faster while there are few
    QAtomicInt updateDepth;
    int transactionState = 0;
    RecordsTrans pending; // batches that arrived inside a transaction, folded
    QMutex mutex{QMutex::Recursive};
};
