#pragma once

#include "database/record.h"

#include <QtCore/qlist.h>

#include <vector>

class Table;

/// Rows that wait in a batch: which of their columns were written.
///
/// A row that the batch makes itself tracks them: behind its presence bitmap it has a bit per
/// column (kRowTracks). Of a row that the application brought along it is known by a range that
/// stands beside it.
namespace PendingRow
{

/// The columns first..last that a row which does not track them holds new values for.
struct Range {
    qint32 first = 0;
    qint32 last = -1;
};

inline bool tracks(const Record &row)
{
    return rowHeader(row.row())->flags & kRowTracks;
}

/// A copy that tracks its columns, none of which is written yet. \throws std::bad_alloc
Record clone(const Record &row);
/// Notes that columns were written, if the row tracks them.
void mark(const Record &row, int first, int last);
/// Makes a row track its columns: where it does not, a copy that does comes in its place.
void track(Record &row, Range written);
/// Takes over what \p change holds: the marked columns, or those of the range.
void copyChanges(Record &target, Range &range, const Record &change, Range changes);
/// Whether a row that tracks its columns has written to one of them.
bool isMarked(const Record &row, int column);

} // namespace PendingRow

/// What a batch brings to the indexes, each list in the order of keys.
struct BatchLists {
    QList<Record> inserted;
    QList<Record> removed;
    QList<Record> updated;
    QList<Record> changed;                  ///< the new values, in step with updated
    std::vector<PendingRow::Range> written; ///< in step with changed, for those that do not track
};

/// Brings a batch up to the table as it is when the batch runs: rows that left meanwhile are left
/// out, a row that is named twice counts once, upserts find whichever row has their key by now.
/// \param mayMeet  whether rows came or keys changed since the batch was begun
/// \return whether entries may stand for other rows now
bool settleBatch(Table &table, BatchLists &lists, bool mayMeet);

/// Gives pending rows the live rows' values in the columns that they do not hold new values for.
/// \param mayBeStale  whether values changed since the batch was begun; else the batch's own copies
///                    are as they have to be
void completeFromLive(const Table &table, const BatchLists &lists, bool mayBeStale);
