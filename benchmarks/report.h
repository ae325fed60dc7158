#pragma once

#include <string>
#include <vector>

/// The figures of a run as one printed table: a line for each workload, with the library's median,
/// then the median of each peer and how the library's compares to it.
///
/// A workload is measured several times, the contenders taking turns, so that a slow moment of the
/// machine touches all of them. What still scattered is marked: its ratio proves little.
class Report
{
public:
    enum class Unit { Nanoseconds, Bytes };

    /// \param library  the contender whose figures the ratios compare
    explicit Report(std::string library)
        : m_contenders{std::move(library)}
    {
    }

    /// One more sample. Lines and columns stand in the order in which they first come.
    void add(const std::string &workload, Unit unit, const std::string &contender, double value);
    /// The median of what was added; 0 when nothing was.
    double median(const std::string &workload, const std::string &contender) const;
    const std::vector<std::string> &contenders() const { return m_contenders; }
    /// A line behind the figures.
    void note(std::string line) { m_notes.push_back(std::move(line)); }
    /// Writes the table to the standard output.
    void print(const std::string &title) const;

private:
    struct Line {
        std::string workload;
        Unit unit;
        std::vector<std::vector<double>> samples; // by contender; may be shorter than they are
    };

    size_t column(const std::string &contender);

    std::vector<std::string> m_contenders; // the library first
    std::vector<Line> m_lines;
    std::vector<std::string> m_notes;
};
