#pragma once

#include "board.h"

#include <database/services/runnablemanager.h>

#include <QtCore/qthreadpool.h>

#include <map>
#include <memory>

/// Computes what the model says of every option of a board, in the background, and enters it.
///
/// The options are cut into chunks; each is a job on a thread pool, and its results are one batch
/// of the options table, written by the thread that calls in here. Between start() and the return
/// of finish() or stop() nobody else changes the board.
class Analytics
{
public:
    struct Totals {
        int jobs = 0;
        int solved = 0;   ///< options, each time anew
        int unsolved = 0; ///< that traded at a price which no volatility gives
        int batches = 0;
        int changed = 0; ///< rows
    };

    /// Borrows the board.
    explicit Analytics(Board &board);
    /// As stop().
    ~Analytics();
    Analytics(const Analytics &) = delete;
    Analytics &operator=(const Analytics &) = delete;

    /// Starts the jobs over the board as it stands at \p now.
    void start(datetime now);
    /// Runs the event loop until every job has ended and its results are entered.
    void finish();
    /// Tells the jobs to stop and waits for them; what they did not finish is dropped. Those that
    /// had ended are entered by the next finish().
    void stop();

    const Totals &totals() const { return m_totals; }

private:
    struct Chunk;
    class Job;

    void startJob(const std::shared_ptr<Chunk> &chunk);
    void enter(const Chunk &chunk);

    Board &m_board;
    QThreadPool m_pool;
    std::map<HRunnable, std::shared_ptr<Chunk>> m_chunks; // under way, or ended and not yet entered
    Totals m_totals;
    RunnableManager m_manager; // last: its end waits for the jobs
};

/// Years from \p now to the end of the day of \p expiry; not above 0 when that is over.
double yearsToExpiry(datetime now, datetime expiry);
