#pragma once

#include "database/services/concurrently.h"

#include <QtCore/qglobal.h>

/// How joins divide work over many rows. The pieces depend on the number of rows only, so that what
/// is put together in their order never depends on timing.
namespace JoinChunks
{

constexpr int kOneRun = 512; ///< rows that are not worth other threads
constexpr int kRows = 256;   ///< of a chunk, or more
constexpr int kMost = 32;    ///< chunks

inline int count(int rows)
{
    return rows <= kOneRun ? 1 : qMin(rows / kRows, kMost);
}

/// Calls \p work(chunk, begin, end) for stretches that cover 0..rows - 1, on the pool if there are
/// several, and returns when all have ended.
template<class F>
void forEach(int rows, const F &work)
{
    const int chunks = count(rows);
    const auto start = [&](int chunk) { return int(qint64(rows) * chunk / chunks); };
    if (chunks == 1)
        work(0, 0, rows);
    else
        Concurrently::forEach(chunks, [&](int i) { work(i, start(i), start(i + 1)); });
}

} // namespace JoinChunks
