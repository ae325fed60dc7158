#pragma once

#include "database/database_global.h"

class Record;

/// What an application hears of a long read, write or filtering of rows, and its say in it.
///
/// Either function may throw: the operation then ends at once, says in its own documentation what
/// it leaves behind, and the exception reaches the caller. That is how an application cancels.
class DATABASE_EXPORT FilterProgress
{
public:
    virtual ~FilterProgress();

    /// Row \p current, counted from 0, of \p total. The result is ignored.
    virtual bool operator()(int current, int total) = 0;
    /// Whether a record is kept.
    virtual bool filter(const Record &record) const = 0;
};

/// Keeps every record and says nothing.
class DATABASE_EXPORT FilterProgressTrue : public FilterProgress
{
public:
    bool operator()(int current, int total) override;
    bool filter(const Record &record) const override;
};
