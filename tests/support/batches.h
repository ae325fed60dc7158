#pragma once

#include "support/tablemodel.h"

#include <set>

/// What feeds, desks and unlucky people do to a table.
enum class Pattern {
    Ticks,        ///< a few rows, a small step each
    RiseTogether, ///< neighbours along a column, or the active rows, by the same step
    FallTogether,
    Swaps,       ///< rows exchange their values
    Ties,        ///< many rows get one of two values
    Nulls,       ///< also where a column forbids them
    HiddenTexts, ///< units behind a 0
    MixedScales, ///< 12.5 among 12.50
    NotANumber,
    Churn,      ///< rows come, go and come again
    ReplaceAll, ///< everything leaves and comes in one batch
    Folds,      ///< several operations on each key
    Ranges,     ///< new values in rows that are filled only where they changed
    SideBySide  ///< batches are filled side by side and run one after the other, some late
};

/// Makes batches for the rows that a model holds.
class BatchMaker
{
public:
    /// \param keys  how many keys there are
    BatchMaker(const TableModel &model, int keys, Random &random, int largest = 40);

    void leaveOut(Pattern pattern) { m_leftOut.insert(pattern); }
    /// Key numbers are \p first, \p first + \p step and so on, so that feeds share a table.
    void setKeys(int first, int step);

    bool has(Pattern pattern) const { return m_leftOut.count(pattern) == 0; }

    /// An insertion of every key.
    Batch everything();
    /// \param pending  what the transaction at hand holds already
    Batch next(const TableModel::Pending &pending = {});

private:
    int anyKey() { return m_first + m_step * m_random.below(m_keys); }
    int anyColumn();
    int steppableColumn();
    Cell draw(int column, int range = 1000);
    Cell stepped(int column, const Cell &cell, int by);
    std::map<int, Cell> drawSome(int columns);
    std::vector<RowPointer> someRows(int n);
    std::vector<RowPointer> neighbours(int n, int column);
    void enter(Operation::Kind kind, int key, std::map<int, Cell> cells = {});
    void enterAny(int key);
    void makeRowsMove(int n, int direction);

    const TableModel &m_model;
    const int m_keys;
    const int m_largest;
    Random &m_random;
    std::set<Pattern> m_leftOut;
    int m_first = 0;
    int m_step = 1;
    std::vector<int> m_active; // the same keys in every batch, for a while
    int m_column = 0;          // where the active rows move
    // Of the batch at hand:
    Pattern m_pattern = Pattern::Ticks;
    Batch m_batch;
    TableModel::Pending m_pending; // with what the batch holds so far
};
