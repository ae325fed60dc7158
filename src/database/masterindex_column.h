#pragma once

#include "database/masterindex_struct.h"

#include <QtCore/qbytearray.h>

#include <vector>

class TableColumnDef;

/// A primary key over any columns of a table, compared column by column by value (compareCells()).
/// Tells its columns, for this very class: a derived one may compare as it likes, and tells its own
/// to be as fast. Among keys of doubles NaN is a key of its own behind infinity.
class DATABASE_EXPORT MasterIndex_Column_Pure : public MasterIndex
{
public:
    /// The key columns by number or by name, most significant first.
    /// \throws QString "Column '%1' not found to create index." for a column that does not exist
    MasterIndex_Column_Pure(Table *table, const QList<int> &columns);
    MasterIndex_Column_Pure(Table *table, const QString &column);
    MasterIndex_Column_Pure(Table *table, const QStringList &columns);

    int compare(const Record &a, const Record &b) const override;
    QString toText(const Record &record) const override;
    /// \throws QString "Master index can't restore from text. Incorrect columns numbers: %1 != %2";
    /// Exception "Can't convert from '%1'' to %2", with column and table behind it, for a part that
    /// does not read as its column's type (an empty part reads as a VarChar only)
    Record fromText(const QString &text) const override;
    QList<int> keyColumns() const override { return m_columns; }

    /// The bytes of the key cells, each with its padding, one after the other; all zero for a null
    /// record.
    QByteArray keyRecord(const Record &record) const;

protected:
    const QList<int> m_columns;

private:
    std::vector<const TableColumnDef *> m_defs; // of the key columns, borrowed from the table
};
