#pragma once

#include "database/database_global.h"
#include "database/decimal.h"
#include "database/record.h"

#include <QtCore/qelapsedtimer.h>
#include <QtCore/qlist.h>
#include <QtCore/qpointer.h>
#include <QtCore/qstring.h>

#include <atomic>

class Table;

/// A view that a table keeps over its rows: what every index implements, and how a table's batches
/// reach it.
///
/// The road of one batch, on the thread of the table's update:
///  0. complete() of every index, which may add to what is written;
///  1. preprocess() of every index, while updated rows still hold their old values: an index that
///     must find a row by its old key does it here;
///  2. the new values reach the live rows;
///  3. process() of the master index, then of every other index in the order of registration.
/// A batch that an index submits to its own table meanwhile is queued, so an index never sees a
/// second batch inside process().
///
/// add(), remove() and update() are for single records (Table::appendRow(), remove(), updated()).
/// What a batch calls besides process(), and what build() does, each class says: here process() is
/// made of them, lists and vectors build themselves by add(), sorted indexes do without. A class
/// that is to hear of every record overrides process() and build() as well.
///
/// Filled by build(), then kept current by the table only. The application owns an index. The time
/// figures are counters without order to anything else.
class DATABASE_EXPORT Index
{
public:
    Index();
    Index(const Index &) = delete;
    Index &operator=(const Index &) = delete;
    virtual ~Index();

    /// Drops every record.
    virtual void clear() = 0;
    /// Fills the index from the table's rows.
    virtual void build() = 0;
    /// clear(), then build().
    virtual void rebuild();
    /// Inserts one record that filter() accepted.
    virtual void add(const Record &record) = 0;
    /// Looks at a batch before it is applied: the live rows that leave, the live rows whose columns
    /// \p colFrom..colTo change, the new rows, and in step with \p updated rows with the new
    /// values.
    virtual void preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                            int colTo, const QList<Record> &inserted,
                            const QList<Record> &updatedValues);
    /// Applies a batch: here remove() for each removed record, update() for each updated one, and
    /// add() for each inserted one that filter() accepts, timed.
    virtual void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                         int colTo, const QList<Record> &inserted);
    /// Takes one record out; \p index is its position in the index, or -1.
    virtual void remove(const Record &record, int index) = 0;
    /// Whether the record belongs in this index.
    virtual bool filter(const Record &record) const = 0;
    /// Whether the record is in this index now.
    virtual bool contains(const Record &record) const = 0;
    /// One record's columns changed: here remove(), then add() if filter() accepts it.
    virtual void update(const Record &record, int colFrom, int colTo, int index);
    /// Position in index order; -1 when unknown or not there.
    virtual int indexOf(const Record &record) const;
    /// The table's update bracket opens and closes.
    virtual void beginUpdate();
    virtual void endUpdate();
    /// The update bracket of a table that this index depends on opens and closes.
    virtual void dependentBeginUpdate(Table *table);
    virtual void dependentEndUpdate(Table *table);
    /// The class's name as text, "IndexSort".
    virtual QString getClassName() const = 0;
    /// Completes a batch before any index sees it: may write into the new rows and into \p values
    /// (the new values, in step with the live rows \p updated), and widen the range of changed
    /// columns. Called for all indexes before the first preprocess(), and before add() and update()
    /// that come without a batch. Here it does nothing.
    virtual void complete(const QList<Record> &updated, const QList<Record> &values, int &colFrom,
                          int &colTo, const QList<Record> &inserted);
    /// Of an index that is registered as a dependent one: the table that it brings up to date when
    /// the one that it depends on changes. Its lock is taken before that of the other. Here null.
    virtual Table *mainTable() const;

    /// Whether preprocess() and process() may run beside those of other independent indexes of the
    /// table, in any thread: they read rows, change nothing but this index and take no lock of the
    /// table. Set by the application, as only it knows what its classes do; large batches go to
    /// neighbours in the registry side by side then. False at first.
    bool isIndependent() const { return m_independent; }
    void setIndependent(bool independent) { m_independent = independent; }

    /// Nanoseconds spent in process().
    qint64 nsecsElapsed() const { return m_nsecsElapsed; }
    void setNsecsElapsed(const qint64 &nsecs) { m_nsecsElapsed = nsecs; }
    /// The sum over all indexes of the process.
    static qint64 nsecsElapsedTotal()
    {
        return m_nsecsElapsedTotal.load(std::memory_order_relaxed);
    }
    /// This index's share of the total, in percent to hundredths; 0 below 10000 ns in total.
    decimal percentElapsed() const;

protected:
    /// Times one process() call from construction to destruction.
    class ProcessTiming
    {
    public:
        explicit ProcessTiming(Index &index)
            : m_index(index)
        {
            m_index.m_timer.start();
        }
        ~ProcessTiming()
        {
            // Read twice, so the total runs slightly ahead of the sum of the indexes.
            m_index.m_nsecsElapsed += m_index.m_timer.nsecsElapsed();
            m_nsecsElapsedTotal.fetch_add(m_index.m_timer.nsecsElapsed(),
                                          std::memory_order_relaxed);
        }
        ProcessTiming(const ProcessTiming &) = delete;
        ProcessTiming &operator=(const ProcessTiming &) = delete;

    private:
        Index &m_index;
    };

private:
    QElapsedTimer m_timer; // invalid until the first batch
    qint64 m_nsecsElapsed = 0;
    bool m_independent = false;
    static std::atomic<qint64> m_nsecsElapsedTotal;
};

/// An index's place in its table's registry, given up when the index goes, whichever of the two
/// goes first.
class DATABASE_EXPORT IndexRegistration
{
public:
    /// Registers \p index with \p table unless told not to.
    IndexRegistration(Table *table, Index *index, bool addToTable);
    ~IndexRegistration() { leave(); }
    /// Takes the index out of the registry and out of the names, under the table's lock. What an
    /// index has to do before anything of it is gone.
    void leave();
    IndexRegistration(const IndexRegistration &) = delete;
    IndexRegistration &operator=(const IndexRegistration &) = delete;

    bool addToTable() const { return m_addToTable; }

private:
    QPointer<Table> m_table; // null once the table is gone
    Index *m_index;
    bool m_addToTable;
};
