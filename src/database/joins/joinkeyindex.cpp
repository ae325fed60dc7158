#include "database/joins/joinkeyindex.h"

#include "database/masterindex_struct.h"
#include "database/tables/cellcompare.h"
#include "database/tables/table.h"

#include <algorithm>

JoinKeyIndex::JoinKeyIndex(Table *main, const std::vector<const TableColumnDef *> &columns)
    : IndexSort(main, false)
    , m_columns(columns)
{
}

int JoinKeyIndex::compareKeys(const Record &a, const Record &b) const
{
    for (const TableColumnDef *column : m_columns) {
        if (const int order = compareCells(*column, a, b))
            return order;
    }
    return 0;
}

int JoinKeyIndex::compare(const Record &a, const Record &b) const
{
    const int order = compareKeys(a, b);
    return order != 0 ? order : table()->masterIndex()->compare(a, b);
}

bool JoinKeyIndex::isTouched(int colFrom, int colTo) const
{
    return std::any_of(m_columns.begin(), m_columns.end(), [&](const TableColumnDef *column) {
        return column->index >= colFrom && (colTo < 0 || column->index <= colTo);
    });
}

void JoinKeyIndex::preprocess(const QList<Record> &removed, const QList<Record> &updated,
                              int colFrom, int colTo, const QList<Record> &inserted,
                              const QList<Record> &updatedValues)
{
    const bool touched = isTouched(colFrom, colTo);
    IndexSort::preprocess(removed, touched ? updated : QList<Record>(), colFrom, colTo, inserted,
                          touched ? updatedValues : QList<Record>());
}

void JoinKeyIndex::process(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                           int colTo, const QList<Record> &inserted)
{
    IndexSort::process(removed, isTouched(colFrom, colTo) ? updated : QList<Record>(), colFrom,
                       colTo, inserted);
}

void JoinKeyIndex::update(const Record &record, int colFrom, int colTo, int index)
{
    if (isTouched(colFrom, colTo))
        IndexSort::update(record, colFrom, colTo, index);
}

QPair<int, int> JoinKeyIndex::rangeOf(const Record &row) const
{
    const int first =
        list().partitionPoint([&](const Record &element) { return compareKeys(element, row) < 0; });
    const int end = list().partitionPoint(
        first, count(), [&](const Record &element) { return compareKeys(element, row) <= 0; });
    return {first, end};
}
