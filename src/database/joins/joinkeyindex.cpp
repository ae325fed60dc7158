#include "database/joins/joinkeyindex.h"

#include "database/masterindex_struct.h"
#include "database/tables/cellcompare.h"
#include "database/tables/table.h"

#include <algorithm>

JoinKeyIndex::JoinKeyIndex(Table *main, const std::vector<const TableColumnDef *> &columns)
    : IndexSort(main, false)
    , m_columns(columns)
{
    QList<int> numbers;
    for (const TableColumnDef *column : columns)
        numbers.append(column->index);
    setColumns(numbers); // the main table's own key never changes in a live row
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

void JoinKeyIndex::update(const Record &record, int colFrom, int colTo, int index)
{
    if (reads(colFrom, colTo))
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
