#pragma once

#include "database/joins/tablejoin.h"
#include "database/record.h"

/// Cells on their way between two tables. The columns have the same type, or the target is an
/// Integer64 for an Integer; texts may differ in length.
namespace JoinCells
{

/// Whether values of \p from can be stored in \p to whatever they are.
bool canTake(const TableColumnDef &to, const TableColumnDef &from);

/// Whether the target's cell is what copy() would make it; a null \p source has no values.
bool isSame(const TableJoin::ColumnLink &link, const Record &source, const Record &target);

/// Copies value and presence; a null \p source makes the cell NULL.
/// \return false when there is no value, or a text was cut
bool copy(const TableJoin::ColumnLink &link, const Record &source, const Record &target);

} // namespace JoinCells
