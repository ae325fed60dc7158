#include "report.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{

constexpr double kScattered = 0.3; // of the median, between the smallest and the largest sample

double medianOf(std::vector<double> samples)
{
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

bool isScattered(const std::vector<double> &samples)
{
    const auto [smallest, largest] = std::minmax_element(samples.begin(), samples.end());
    return *largest - *smallest > kScattered * medianOf(samples);
}

/// Three digits and a unit.
std::string scaled(double value, Report::Unit unit)
{
    static constexpr std::array<const char *, 4> kTimes = {"ns", "us", "ms", "s "};
    static constexpr std::array<const char *, 4> kBytes = {"B ", "kB", "MB", "GB"};
    size_t step = 0;
    for (; value >= 999.5 && step < 3; ++step)
        value /= 1000;
    char text[32];
    const int places = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    std::snprintf(text, sizeof text, "%.*f %s", places, value,
                  (unit == Report::Unit::Bytes ? kBytes : kTimes)[step]);
    return text;
}

std::string ratioText(double ratio)
{
    if (ratio < 0.001)
        return "<.001";
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", ratio < 0.1 ? 3 : ratio < 99 ? 2 : 0, ratio);
    return text;
}

} // namespace

void Report::add(const std::string &workload, Unit unit, const std::string &contender, double value)
{
    const size_t at = column(contender);
    auto line = std::find_if(m_lines.begin(), m_lines.end(),
                             [&](const Line &each) { return each.workload == workload; });
    if (line == m_lines.end())
        line = m_lines.insert(m_lines.end(), {workload, unit, {}});
    if (line->samples.size() <= at)
        line->samples.resize(at + 1);
    line->samples[at].push_back(value);
}

double Report::median(const std::string &workload, const std::string &contender) const
{
    const auto at = std::find(m_contenders.begin(), m_contenders.end(), contender);
    const auto i = size_t(at - m_contenders.begin());
    for (const Line &each : m_lines) {
        if (each.workload == workload && i < each.samples.size())
            return medianOf(each.samples[i]);
    }
    return 0;
}

void Report::print(const std::string &title) const
{
    std::printf("%-40s", title.c_str());
    for (size_t i = 0; i < m_contenders.size(); ++i)
        std::printf(i == 0 ? " %9s " : " | %9s  ratio", m_contenders[i].c_str());
    std::printf("\n");
    for (const Line &each : m_lines) {
        std::printf("%-40s", each.workload.c_str());
        const double library = each.samples.empty() ? 0 : medianOf(each.samples[0]);
        for (size_t i = 0; i < m_contenders.size(); ++i) {
            const bool measured = i < each.samples.size() && !each.samples[i].empty();
            const double value = measured ? medianOf(each.samples[i]) : 0;
            std::printf(i == 0 ? " %9s%s" : " | %9s%s",
                        measured ? scaled(value, each.unit).c_str() : "-",
                        measured && isScattered(each.samples[i]) ? "~" : " ");
            if (i > 0)
                std::printf(" %5s",
                            value > 0 && library > 0 ? ratioText(library / value).c_str() : "");
        }
        std::printf("\n");
    }
    for (const std::string &each : m_notes)
        std::printf("%s\n", each.c_str());
    std::fflush(stdout);
}

size_t Report::column(const std::string &contender)
{
    const auto found = std::find(m_contenders.begin(), m_contenders.end(), contender);
    const auto i = size_t(found - m_contenders.begin());
    if (found == m_contenders.end())
        m_contenders.push_back(contender);
    return i;
}
