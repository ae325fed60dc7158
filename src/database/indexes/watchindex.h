#pragma once

#include "database/indexes/index.h"

/// What happened to a table's records since the last clear(), in the order of the events. Consumers
/// read the three lists and call clear() when they have handled them.
class DATABASE_EXPORT WatchIndex : public Index
{
public:
    /// Empty lists, registered with the table.
    explicit WatchIndex(Table *table);
    ~WatchIndex() override;

    void clear() override;
    /// Empties the lists: records that the table holds already did not happen.
    void build() override;
    /// A row that was removed in the same period counts as updated, any other as added.
    void add(const Record &record) override;
    void remove(const Record &record, int index) override;
    /// A record updated three times stands three times in the list.
    void update(const Record &record, int colFrom, int colTo, int index) override;
    bool filter(const Record &record) const override;
    /// Whether this very row was added or updated.
    bool contains(const Record &record) const override;
    QString getClassName() const override;

    const QList<Record> &added() const { return m_added; }
    const QList<Record> &removed() const { return m_removed; }
    const QList<Record> &updated() const { return m_updated; }
    Table *table() const { return m_table; }

private:
    Table *m_table; // borrowed
    QList<Record> m_added;
    QList<Record> m_removed;
    QList<Record> m_updated;
    IndexRegistration m_registration;
};
