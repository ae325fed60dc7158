#include "csvfields.h"

namespace
{

// The position of the quote that ends the field which begins at the front quote of line, or npos.
size_t closingQuote(std::string_view line)
{
    for (size_t i = 1; i < line.size(); ++i) {
        if (line[i] != '"')
            continue;
        if (i + 1 == line.size() || line[i + 1] != '"')
            return i;
        ++i;
    }
    return std::string_view::npos;
}

} // namespace

bool splitCsvLine(std::string_view line, std::vector<std::string_view> *fields)
{
    fields->clear();
    for (;;) {
        size_t end; // of the field with its quotes
        if (!line.empty() && line.front() == '"') {
            const size_t quote = closingQuote(line);
            if (quote == std::string_view::npos)
                return false;
            end = quote + 1;
            if (end < line.size() && line[end] != ',')
                return false;
            fields->push_back(line.substr(1, quote - 1));
        } else {
            end = 0;
            while (end < line.size() && line[end] != ',')
                ++end;
            fields->push_back(line.substr(0, end));
        }
        if (end == line.size())
            return true;
        line.remove_prefix(end + 1);
    }
}

QString csvText(std::string_view field)
{
    QString text = QString::fromUtf8(field.data(), int(field.size()));
    return text.replace(QLatin1String("\"\""), QLatin1String("\""));
}
