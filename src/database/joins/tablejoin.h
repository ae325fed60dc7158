#pragma once

#include "database/database_global.h"
#include "database/indexes/index.h"
#include "database/indexes/indexdependbase.h"
#include "database/tables/table.h"

#include <QtCore/qpointer.h>

#include <vector>

class RecordUpdater;

/// What the two sides of a join share: a place in a table's registries, and further indexes over
/// that table that live and die with the join.
class DATABASE_EXPORT TableJoin : public Index
{
public:
    /// A column that is copied, and the column of the other table that it is copied to.
    struct ColumnLink {
        const TableColumnDef *from; ///< borrowed, as are
        const TableColumnDef *to;   ///< these: a table's columns keep their addresses
    };
    using ColumnLinks = std::vector<ColumnLink>;

    /// Whether an index is one side of a join, told by its class name, so that one that stands in
    /// for a join counts as well. Joins are built before other indexes, which may sort by the cells
    /// that a join supplies.
    static bool isJoin(const Index *index);

    /// Writes the linked cells of \p partner into the pending row of \p updater, NULL where the
    /// partner is null or its cell is; leaves cells alone that hold the value already, and widens
    /// the updater's range by the others. \return whether a cell changed
    static bool setFields(RecordUpdater &updater, const ColumnLinks &links, const Record &partner);

    Table *table() const { return m_table; } ///< null once it is gone

protected:
    explicit TableJoin(Table *table);

    /// Keeps an index over the table current with what reaches this one; borrowed.
    void setupIndex(Index *index);
    /// Registers this object with the table, for its batches and for the news of its brackets.
    void connectIndexes(bool forBatches, bool forBrackets);
    void disconnectIndexes();

    IndexDependBase m_indexes; // see setupIndex()

private:
    QPointer<Table> m_table;
};
