#pragma once

#include "database/indexes/partitionlist.h"
#include "database/record.h"

class Table;

/// An index whose records can be walked in index order. Changes to the index invalidate iterators.
class DATABASE_EXPORT IndexIterative
{
public:
    using const_iterator = PartitionList<Record>::const_iterator;

    virtual const_iterator begin() const = 0;
    virtual const_iterator end() const = 0;
    virtual int count() const = 0;
    /// The table whose records the index holds, borrowed.
    virtual Table *table() = 0;
    virtual const Table *table() const = 0;

protected:
    ~IndexIterative() = default; // owned and deleted as an Index
};
