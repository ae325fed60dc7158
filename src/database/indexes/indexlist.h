#pragma once

#include "database/indexes/index.h"
#include "database/indexes/indexiterative.h"

/// A table's records in order of arrival, in chunks of handles; also the storage of every sorted
/// index.
///
/// Threads: many readers or one writer; the table's update is the writer.
class DATABASE_EXPORT IndexList : public Index, public IndexIterative
{
public:
    /// An empty index, registered with the table unless told not to.
    IndexList(Table *table, bool addToTable);
    /// The same for a table that the application's core knows by name.
    /// \throws QString when there is no such table
    IndexList(const QString &tableName, bool addToTable);
    ~IndexList() override;

    void clear() override;
    /// Holds afterwards what filter() accepts of the table's rows, in the order of the master
    /// index, each by way of add(). Takes the table's lock.
    void build() override;
    void add(const Record &record) override;
    /// Takes out the record at \p index if it stands there, else wherever indexOf() finds it.
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    bool contains(const Record &record) const override;
    /// Position of this very row: a scan of handles.
    int indexOf(const Record &record) const override;
    QString getClassName() const override;

    int count() const override { return m_list.count(); }
    const_iterator begin() const override { return m_list.begin(); }
    const_iterator end() const override { return m_list.end(); }
    Table *table() override { return m_table; }
    const Table *table() const override { return m_table; }

    /// Moves the records first..last as one block. Positions are those before the move: moving up
    /// puts the block's first record at \p to, moving down its last one; a \p to inside the block
    /// and positions out of range do nothing.
    virtual void move(int first, int last, int to);
    /// Removes all positions of a set in one pass; what lies past the end is ignored.
    virtual void removeRanges(const RangeSet<int> &ranges);

    /// The record at position \p i; a null record past the end. O(log chunks).
    const Record &at(int i) const { return m_list.at(i); }
    const PartitionList<Record> &list() const { return m_list; }

protected:
    /// Position of this very row among the positions from..to - 1, or -1: a scan of handles.
    int scanForRow(const Record &record, int from, int to) const;
    /// Leaves the table's registry, as the destructor does. A class of one's own that is destroyed
    /// while another thread updates the table, and not in a bracket or by IndexCloser, calls it
    /// first of all in its destructor.
    void leaveTable() { m_registration.leave(); }
    /// Fills the list as build() does, but without add().
    void collect();

    PartitionList<Record> m_list;

private:
    template<class Put>
    void refill(Put put);

    Table *m_table; // borrowed
    IndexRegistration m_registration;
};
