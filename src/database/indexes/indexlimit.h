#pragma once

#include "database/indexes/indexsort.h"

/// Caps the number of records that its table keeps: before each batch it adds to the batch's
/// removals as many of its first records as the batch would bring the table over the limit.
///
/// It makes room among the records that are there and holds back none of the batch itself: a batch
/// that inserts more than the limit leaves more behind. compare() decides which records go first.
/// Registers itself under the name "IndexLimit", by which the table finds it; a table has one.
class DATABASE_EXPORT IndexLimit : public IndexSort
{
public:
    /// \param limit  the number of records that the table may keep
    IndexLimit(int limit, Table *table);

    QString getClassName() const override;

    /// Adds to \p removed the first records of this index, as many as the count now, changed by
    /// \p delta, exceeds the limit. Records that the batch removes or updates anyway count but are
    /// not added, so a batch that updates old records can leave the table above its limit. Both
    /// lists are sorted by the master index, and \p removed stays so. Of several first records with
    /// one key one is added. O(k log k) comparisons for k records looked at, and one pass over
    /// \p removed.
    /// \param delta  insertions minus removals of the batch
    /// \return the number of records looked at; count() when there is no excess
    virtual int toRemove(int delta, QList<Record> &removed, const QList<Record> &updated);

    /// Whether a list sorted by the master index holds a record with the key of \p record.
    bool containsRecord(const QList<Record> &list, const Record &record) const;

    int limit() const { return m_limit; }

private:
    const int m_limit;
};
