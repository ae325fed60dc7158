#pragma once

#include "database/masterindex_column.h"

/// A primary key over adjacent fixed-width columns, compared as one stretch of bytes.
///
/// The order is that of the bytes in memory (integers little-endian, texts as UTF-16 units): total
/// and repeatable, with fast equality, but neither numeric nor alphabetical. A table that needs a
/// meaningful order uses MasterIndex_Column_Pure.
class DATABASE_EXPORT MasterIndex_Fast_Pure : public MasterIndex_Column_Pure
{
public:
    /// \throws QString as MasterIndex_Column_Pure, and as setup()
    MasterIndex_Fast_Pure(Table *table, const QStringList &columns);
    MasterIndex_Fast_Pure(Table *table, const QList<int> &columns);

    int compare(const Record &a, const Record &b) const override;

    qint64 keyOffset() const { return m_keyOffset; } ///< from the start of a row block, in bytes
    qint64 keyLength() const { return m_keyLength; } ///< with the padding of the cells, in bytes

private:
    /// Checks that the key columns follow each other, have a type whose equality is that of its
    /// bytes and are not nullable; finds offset and length.
    /// \throws QString "Columns must be sequenced: %1(%3) / %2", "Type '%1' unsuported for %2",
    /// "Columns can't be nullable %1"
    void setup();

    qint64 m_keyOffset = 0;
    qint64 m_keyLength = 0;
};
