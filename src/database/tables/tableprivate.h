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
    void forEachIndex(Call &&call)
    {
        IndexWalk walk(*this);
        for (int i = 0; i < walk.left.size(); ++i) {
            if (Index *index = walk.left.at(i))
                call(index);
        }
    }
    /// Takes an index that left the registry out of the walks under way. Its address is not looked
    /// for later: a new index may have it by then.
    void leaveWalks(Index *index)
    {
        for (IndexWalk *walk = walks; walk; walk = walk->outer) {
            const int i = walk->left.indexOf(index);
            if (i != -1)
                walk->left[i] = nullptr;
        }
    }

    /// One walk over the registry, in the list of those under way, innermost first.
    struct IndexWalk {
        explicit IndexWalk(TablePrivate &table)
            : left(table.indexes)
            , outer(table.walks)
            , innermost(table.walks)
        {
            innermost = this;
        }
        ~IndexWalk() { innermost = outer; }
        QList<Index *> left; // null where one left; shared with the registry until it changes
        IndexWalk *const outer;
        IndexWalk *&innermost;
    };

    const QString name;
    QString title;
    std::unique_ptr<MasterIndex> masterIndex;
    QList<Index *> indexes;            // borrowed, in the order of registration
    IndexWalk *walks = nullptr;        // innermost of those under way
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
