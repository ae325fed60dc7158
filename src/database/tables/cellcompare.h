#pragma once

#include "database/database_global.h"
#include "database/tables/columndef.h"

class Record;

/// Compares one column of two rows of the same table in place, without a Field and without
/// allocating: what an index's compare() is made of.
///
/// NULL sorts before every value and equals NULL. Integers, dates and decimals compare by value,
/// doubles too (NaN equals everything, which is no order: see IndexSort), texts by UTF-16 code
/// units. Board lists are never compared: they count as equal, as does an unknown type. \return -1,
/// 0 or 1
DATABASE_EXPORT int compareCells(const TableColumnDef &column, const Record &a, const Record &b);
