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
    void update(const Record &record, int colFrom, int colTo, int index) override;

    int compareKeys(const Record &a, const Record &b) const;
    using IndexSort::reads;
    /// The positions, first and behind the last, of the rows whose columns are those of \p row.
    QPair<int, int> rangeOf(const Record &row) const;

private:
    const std::vector<const TableColumnDef *> m_columns; // borrowed from the table
};
