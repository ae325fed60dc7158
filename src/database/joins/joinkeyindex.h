#pragma once

#include "database/indexes/indexsort.h"

#include <QtCore/qpair.h>

#include <vector>

class TableColumnDef;

/// The rows of a join's main table by the columns that name their partners, then by the main
/// table's own key: all rows of a partner stand in one stretch, and each is found by binary search.
/// Batches that change other columns pass it by.
class JoinKeyIndex : public IndexSort
{
public:
    /// In no registry: the join hands everything on.
    JoinKeyIndex(Table *main, const std::vector<const TableColumnDef *> &columns);

    int compare(const Record &a, const Record &b) const override;
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                    int colTo, const QList<Record> &inserted,
                    const QList<Record> &updatedValues) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override;
    void update(const Record &record, int colFrom, int colTo, int index) override;

    int compareKeys(const Record &a, const Record &b) const;
    /// Whether one of the columns lies in a range; -1 is the first and the last column.
    bool isTouched(int colFrom, int colTo) const;
    /// The positions, first and behind the last, of the rows whose columns are those of \p row.
    QPair<int, int> rangeOf(const Record &row) const;

private:
    const std::vector<const TableColumnDef *> m_columns; // borrowed from the table
};
