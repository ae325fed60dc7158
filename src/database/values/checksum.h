#pragma once

#include "database/database_global.h"

/// 64-bit checksum of a block of bytes: CRC-64 with the polynomial 0x42F0E1EBA9EA3693 of ECMA-182,
/// most significant bit first, started from all ones and complemented at the end (the parameter set
/// named CRC-64/WE). 0 for an empty block, for which \p data may be null.
/// About one step per eight bytes.
DATABASE_EXPORT quint64 qChecksum64(const char *data, uint length);
