#pragma once

#include "market.h"

#include <vector>

using Rows = std::vector<Row>;

/// Rows that stand in a table, in the order in which they came, and a batch that follows.
struct WorstCase {
    Rows before;
    Rows changed;          ///< other values of last, volume and time for each of them; or empty
    Rows inserted;         ///< in the order in which they come; or empty
    bool shuffled = false; ///< whether changes come in no order, and not by key

    Rows after() const;
};

/// A kind of the largest batches that a table can meet.
struct WorstKind {
    const char *name;
    /// Takes two sets of as many rows, whose keys and values are random.
    WorstCase (*make)(const Rows &rows, const Rows &others);
};

const std::vector<WorstKind> &worstKinds();

/// In the order of the library's key, and of the bytes of Key.
Rows byKey(Rows rows);
