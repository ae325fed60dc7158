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
        while (Index *index = walk.next())
            call(index);
    }

    /// One walk over the registry, in the list of those under way, innermost first. It reads the
    /// registry itself until that changes, and from then on a copy.
    class IndexWalk
    {
    public:
        explicit IndexWalk(TablePrivate &table)
            : m_indexes(&table.indexes)
            , m_outer(table.walks)
            , m_innermost(table.walks)
        {
            m_innermost = this;
        }
        ~IndexWalk() { m_innermost = m_outer; }
        IndexWalk(const IndexWalk &) = delete;
        IndexWalk &operator=(const IndexWalk &) = delete;

        /// The next index, null at the end.
        Index *next()
        {
            while (m_next < m_indexes->size()) {
                if (Index *index = m_indexes->at(m_next++))
                    return index;
            }
            return nullptr;
        }
        /// Begins again, with the indexes before the last one that next() gave.
        void turnBack()
        {
            keep();
            m_kept.erase(m_kept.begin() + (m_next - 1), m_kept.end());
            m_next = 0;
        }

    private:
        friend struct TablePrivate;

        void keep()
        {
            m_kept = *m_indexes;
            m_indexes = &m_kept;
        }

        const QList<Index *> *m_indexes; // the registry or m_kept
        QList<Index *> m_kept;           // null where one left
        int m_next = 0;
        IndexWalk *const m_outer;
        IndexWalk *&m_innermost;
    };

    /// Called before the registry changes: the walks under way go on as it was.
    void keepWalks()
    {
        for (IndexWalk *walk = walks; walk; walk = walk->m_outer)
            walk->keep();
    }
    /// Takes an index that left the registry out of the walks under way. Its address is not looked
    /// for later: a new index may have it by then.
    void leaveWalks(Index *index)
    {
        for (IndexWalk *walk = walks; walk; walk = walk->m_outer) {
            const int i = walk->m_kept.indexOf(index);
            if (i != -1)
                walk->m_kept[i] = nullptr;
        }
    }

    /// Called when names change, so that a batch does not look for the name.
    void findLimit() { limit = indexNames.value(QStringLiteral("IndexLimit"), nullptr); }

    const QString name;
    QString title;
    std::unique_ptr<MasterIndex> masterIndex;
    QList<Index *> indexes;            // borrowed, in the order of registration
    IndexWalk *walks = nullptr;        // innermost of those under way
    QMap<QString, Index *> indexNames; // borrowed
    Index *limit = nullptr;            // the one of them that is named "IndexLimit"
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
