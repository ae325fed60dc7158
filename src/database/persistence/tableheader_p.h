#pragma once

#include "database/persistence/tableio.h"

/// Rows up to this size are believed before their first byte came; see TableIO's invariant (3).
constexpr qint64 kBelievedRowSize = 1024 * 1024;

/// \throws QString unless the header was read whole and a table can be made of its columns: their
/// names exist and differ, their types are known, their sizes and the number of presence bytes
/// follow from them
void verifyHeader(const TableIO::TableHeader &header, const QDataStream &stream);

/// \throws QString: the stream does not hold even one of the rows that would need so much memory
[[noreturn]] void throwMissingRows(qint64 rowSize);
