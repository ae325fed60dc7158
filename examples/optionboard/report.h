#pragma once

#include "analytics.h"
#include "choices.h"

#include <QtCore/qtextstream.h>

#include <map>

/// Prints what happens on a board: one line per snapshot, and a summary.
class Report
{
public:
    /// Borrows both. \param nameWidth  characters of the longest snapshot name
    Report(QTextStream &out, const Board &board, int nameWidth);

    void printHeading();
    /// \param readTime  nanoseconds that it took to read the snapshot; the times of the tables and
    /// indexes are those since the last line, by their own accounting
    void printSnapshot(int number, const QString &name, const SnapshotCounts &counts,
                       qint64 readTime);

    void printSummary(const Choices &choices, datetime now, const Analytics::Totals &analytics);

private:
    void printTop(int count, const QStringList &columns);
    void printMovers(int count);
    void printChain(datetime now);
    void printAnalytics(const Analytics::Totals &totals);
    void printTimes();
    void printMemory();

    void printLine(const QString &number, const QString &name, const QStringList &cells);
    qint64 tableTime() const;
    std::map<QString, qint64> indexTimes() const;

    QTextStream &m_out;
    const Board &m_board;
    const int m_nameWidth;
    QStringList m_headings;
    QStringList m_indexNames;               // each once, in the board's order
    qint64 m_tableTime = 0;                 // at the last line, as are
    std::map<QString, qint64> m_indexTimes; // these, by the name of the index
};
