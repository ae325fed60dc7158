#pragma once

#include "database/indexes/index.h"

#include <QtCore/qhash.h>
#include <QtCore/qset.h>

#include <vector>

/// What happened to a table's records since the last clear(), in the order of the events. Consumers
/// read the three lists and call clear() when they have handled them.
///
/// Every event costs O(1), whatever happened before, and so does contains(): removed() and
/// contains() finish what events have left to do, so that reading is for one thread at a time.
class DATABASE_EXPORT WatchIndex : public Index
{
public:
    /// Empty lists, registered with the table.
    explicit WatchIndex(Table *table);
    ~WatchIndex() override;

    void clear() override;
    /// Empties the lists: records that the table holds already did not happen.
    void build() override;
    /// A row that was removed in the same period counts as updated, any other as added: its first
    /// removal is taken back.
    void add(const Record &record) override;
    void remove(const Record &record, int index) override;
    /// A record updated three times stands three times in the list.
    void update(const Record &record, int colFrom, int colTo, int index) override;
    bool filter(const Record &record) const override;
    /// Whether this very row was added or updated.
    bool contains(const Record &record) const override;
    QString getClassName() const override;

    const QList<Record> &added() const { return m_added; }
    const QList<Record> &removed() const;
    const QList<Record> &updated() const { return m_updated; }
    Table *table() const { return m_table; }

private:
    /// The first and the last removal of a row: places in m_removed.
    struct Removals {
        int first;
        int last;
    };

    bool takeBack(const Record &record);

    Table *m_table; // borrowed
    QList<Record> m_added;
    QList<Record> m_updated;
    mutable QList<Record> m_removed; // null where a removal was taken back
    mutable int m_takenBack = 0;     // those nulls
    // Of the first m_later.size() places: removals by row, and the next one of the same row, or -1.
    mutable QHash<const uchar *, Removals> m_removals;
    mutable std::vector<int> m_later;
    // The rows of the first so many places of the lists added and updated.
    mutable QSet<const uchar *> m_present;
    mutable int m_presentAdded = 0;
    mutable int m_presentUpdated = 0;
    IndexRegistration m_registration;
};
