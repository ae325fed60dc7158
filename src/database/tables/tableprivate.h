#pragma once

#include "database/masterindex_struct.h"
#include "database/tables/columndef.h"
#include "database/tables/indexregistry.h"
#include "database/tables/recordstrans.h"
#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <QtCore/qatomic.h>
#include <QtCore/qdeadlinetimer.h>
#include <QtCore/qhash.h>
#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qmutex.h>
#include <QtCore/qpointer.h>
#include <QtCore/qstring.h>
#include <QtCore/qthread.h>

#include <atomic>
#include <memory>
#include <vector>

struct TablePrivate {
    TablePrivate(Table *table, const QString &tableName, const QString &tableTitle)
        : name(tableName)
        , title(tableTitle)
        , pending(table)
    {
    }

    static TablePrivate &of(const Table &table) { return *table.d; }

    /// Calls every secondary index, in the order of registration.
    template<class Call>
    void forEachIndex(Call &&call)
    {
        IndexRegistry::Walk walk(indexes);
        while (Index *index = walk.next())
            call(index);
    }

    /// A walk over the dependent indexes, told outside of the table's lock.
    class DependentWalk
    {
    public:
        explicit DependentWalk(TablePrivate &table);
        ~DependentWalk();
        Index *next();
        void turnBack(bool withLast); ///< as IndexRegistry::Walk::turnBack()

    private:
        std::unique_ptr<IndexRegistry::Walk> m_walk; // null where there is none
    };

    /// Called when names change, so that a batch does not look for the name.
    void findLimit() { limit = indexNames.value(QStringLiteral("IndexLimit"), nullptr); }

    // The lock: see Table::lock().

    using Above = std::vector<QPointer<Table>>; // one may go while it is locked

    /// Whether the calling thread holds the table's lock.
    bool isMine() const
    {
        return owner.load(std::memory_order_relaxed) == QThread::currentThreadId();
    }
    /// The tables that show this one's cells, directly or by way of others, the topmost first.
    Above tablesAbove() const;
    /// Locks them. \return false, none of them locked, when the time is over
    bool lockAbove(Above &above, QDeadlineTimer deadline = QDeadlineTimer::Forever) const;
    static void unlockAbove(const Above &above);
    /// Locks the table itself. \param above  to be released with the last level
    bool lockOwn(Above &&above, QDeadlineTimer deadline = QDeadlineTimer::Forever);
    /// \return what is to be released now
    Above unlockOwn();

    /// Notes that rows came or went, or keys changed: what batches have looked up may be void.
    void noteRows() { version.fetch_add(1, std::memory_order_relaxed); }
    /// Notes that values changed: what batches have copied may be void.
    void noteValues() { values.fetch_add(1, std::memory_order_relaxed); }
    /// Whether a row stands in the table.
    bool isLive(const Record &record) const;

    const QString name;
    QString title;
    std::unique_ptr<MasterIndex> masterIndex;
    IndexRegistry indexes;
    QMap<QString, Index *> indexNames;    // borrowed
    Index *limit = nullptr;               // the one of them that is named "IndexLimit"
    IndexRegistry dependentIndexes;       // they belong to other tables; guarded by a mutex of all
                                          // tables, since they are told outside of the lock
    std::atomic<int> dependents{0};       // how many of them there are
    QList<TableColumnDef *> columns;      // owned, in column order
    qint64 dataLength = 0;                // sum of the columns' rounded sizes
    qint64 rowSize = kRowHeaderSize;      // header, data, bitmap
    QHash<QString, int> columnHash;       // both hold every column; the map is
    QMap<QString, int> columnMap;         // faster while there are few
    std::atomic<quint32> layout{0};       // counts the changes of the layout of rows
    std::atomic<quint64> version{0};      // counts the changes of rows and keys
    std::atomic<quint64> values{0};       // counts the transactions that changed values
    std::atomic<bool> isKeyMissed{false}; // whether it was told that the table has no key
    QAtomicInt updateDepth;               // changed under the lock
    int transactionState = 0;
    RecordsTrans pending; // batches that arrived inside a transaction, folded
    /// Rows that direct calls inside a transaction brought or took.
    struct Queued {
        Record record;
        bool comes;
    };
    std::vector<Queued> queued;
    QMutex mutex{QMutex::Recursive};
    std::atomic<Qt::HANDLE> owner{nullptr}; // the thread that holds it
    int lockDepth = 0;                      // levels of the thread that holds it
    Above above;                            // locked with it
};
