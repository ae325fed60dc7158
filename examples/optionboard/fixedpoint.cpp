#include "fixedpoint.h"

namespace
{

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

} // namespace

std::optional<qint64> readFixedPoint(std::string_view text, int scale, qint64 limit)
{
    const bool negative = !text.empty() && text.front() == '-';
    if (negative)
        text.remove_prefix(1);

    qint64 units = 0;
    const qint64 tenth = limit / 10;
    const auto append = [&units, tenth, limit](int digit) {
        if (units > tenth)
            return false;
        units = units * 10 + digit;
        return units <= limit;
    };

    size_t i = 0;
    for (; i < text.size() && isDigit(text[i]); ++i) {
        if (!append(text[i] - '0'))
            return std::nullopt;
    }
    if (i == 0)
        return std::nullopt;
    int places = 0;
    if (i < text.size()) {
        if (text[i++] != '.' || i == text.size())
            return std::nullopt;
        for (; i < text.size() && isDigit(text[i]); ++i) {
            if (places == scale) {
                if (text[i] != '0')
                    return std::nullopt;
            } else {
                if (!append(text[i] - '0'))
                    return std::nullopt;
                ++places;
            }
        }
        if (i < text.size())
            return std::nullopt;
    }
    for (; places < scale; ++places) {
        if (!append(0))
            return std::nullopt;
    }
    return negative ? -units : units;
}
