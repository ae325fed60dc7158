#pragma once

#include "database/indexes/index.h"

#include <QtCore/qvector.h>

/// A small sorted index over one vector: every search is linear.
///
/// Records ascend by compare(); equal ones keep the order in which they came, and an updated one
/// comes anew. resort() of two vector indexes must not run at the same time: its comparison goes
/// through one static pointer.
class DATABASE_EXPORT IndexVector : public Index
{
public:
    /// An empty index, registered with the table.
    explicit IndexVector(Table *table);
    ~IndexVector() override;

    void clear() override;
    /// Holds afterwards what filter() accepts of the table's rows, each by way of add(). Takes the
    /// table's lock.
    void build() override;
    /// Takes a batch by way of remove() and add(), not of update(): all updated records leave
    /// before the first comes back, as among others that have changed there is no place to find.
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override;
    void add(const Record &record) override;
    /// Takes this very row out; \p index is not used.
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    /// Whether a record of the same key stands in the index.
    bool contains(const Record &record) const override;
    QString getClassName() const override;

    /// Negative if \p a sorts before \p b, 0 for equal keys, positive if after.
    virtual int compare(const Record &a, const Record &b) const = 0;
    /// The first position behind \p from whose record compares equal, or -1, also for a null
    /// record.
    virtual int search(const Record &key, int from) const;
    /// Sorts the whole vector again, stably.
    virtual void resort();

    const QVector<Record> &records() const { return m_records; }
    Table *table() { return m_table; }
    const Table *table() const { return m_table; }

private:
    static bool lessThan(const Record &a, const Record &b);

    static IndexVector *sortIndex; // the index that resort() sorts, read by lessThan()
    Table *m_table;                // borrowed
    QVector<Record> m_records;
    IndexRegistration m_registration;
};
