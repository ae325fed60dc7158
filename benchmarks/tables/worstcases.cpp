#include "worstcases.h"

#include <algorithm>
#include <cstring>

namespace
{

/// Gives a row its place in all three orders.
void setValues(Row &row, int value)
{
    row.last = double(value) / 100;
    row.volume = value;
    row.time = value;
}

Rows withValues(Rows rows, int first, int step)
{
    for (Row &row : rows) {
        setValues(row, first);
        first += step;
    }
    return rows;
}

Rows reversed(Rows rows)
{
    std::reverse(rows.begin(), rows.end());
    return rows;
}

// Each takes two sets of as many rows, with random keys and values.

WorstCase allMove(const Rows &rows, const Rows &others)
{
    Rows changed = rows;
    for (size_t i = 0; i < rows.size(); ++i) {
        changed[i].last = others[i].last;
        changed[i].volume = others[i].volume;
        changed[i].time = others[i].time;
    }
    return {rows, changed, {}};
}

WorstCase allMoveShuffled(const Rows &rows, const Rows &others)
{
    WorstCase result = allMove(rows, others);
    result.shuffled = true;
    return result;
}

WorstCase allTie(const Rows &rows, const Rows &)
{
    return {withValues(rows, 1, 0), withValues(rows, 2, 0), {}};
}

WorstCase noneMoves(const Rows &rows, const Rows &)
{
    const Rows sorted = byKey(rows);
    return {withValues(sorted, 0, 1), withValues(sorted, 1, 1), {}};
}

WorstCase allReverse(const Rows &rows, const Rows &)
{
    const Rows sorted = byKey(rows);
    return {withValues(sorted, 0, 1), withValues(sorted, int(rows.size()), -1), {}};
}

WorstCase intoEmpty(const Rows &rows, const Rows &)
{
    return {{}, {}, rows};
}

WorstCase intoEmptySorted(const Rows &rows, const Rows &)
{
    return {{}, {}, withValues(byKey(rows), 0, 1)};
}

// The last by key comes first, and is the first of each order.
WorstCase intoEmptyReversed(const Rows &rows, const Rows &)
{
    return {{}, {}, withValues(reversed(byKey(rows)), 0, 1)};
}

WorstCase intoFull(const Rows &rows, const Rows &others)
{
    return {rows, {}, others};
}

WorstCase intoFullTied(const Rows &rows, const Rows &others)
{
    return {withValues(rows, 1, 0), {}, withValues(others, 1, 0)};
}

} // namespace

const std::vector<WorstKind> &worstKinds()
{
    static const std::vector<WorstKind> kinds = {
        {"all rows move", allMove},
        {"all rows move, shuffled", allMoveShuffled},
        {"all rows move, all tie", allTie},
        {"all rows change, none moves", noneMoves},
        {"all rows change places", allReverse},
        {"insert into empty", intoEmpty},
        {"insert into empty, sorted", intoEmptySorted},
        {"insert into empty, reversed", intoEmptyReversed},
        {"insert into full", intoFull},
        {"insert into full, all tie", intoFullTied},
    };
    return kinds;
}

Rows WorstCase::after() const
{
    Rows rows = changed.empty() ? before : changed;
    rows.insert(rows.end(), inserted.begin(), inserted.end());
    return rows;
}

Rows byKey(Rows rows)
{
    std::sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) {
        return std::memcmp(&a.key, &b.key, sizeof a.key) < 0;
    });
    return rows;
}
