#pragma once

#include "database/joins/tablejoindep.h"
#include "database/record.h"

/// Finds the partners of rows, for one thread. Rows of one partner that follow each other cost one
/// search.
class PartnerFinder
{
public:
    /// \throws std::bad_alloc
    explicit PartnerFinder(const TableJoinDep &dep);

    /// Null where there is none.
    const Record &partnerOf(const Record &row);

private:
    Record find(const Record &row) const;

    const TableJoinDep &m_dep; // borrowed
    Record m_key;              // a row of the dependent table to search with; null for no partners
    Record m_last;             // the row asked for last, whose partner is
    Record m_partner;          // this
};
