#pragma once

#include <QtCore/qstring.h>

#include <string_view>
#include <vector>

/// Cuts a line of a CSV file into its fields, in place. A field in quotes is given without them,
/// two quotes inside it left as they are (csvText() makes one of them). \param[out] fields
/// replaced; the views point into \p line \return false when a quoted field does not end, or not at
/// a comma
bool splitCsvLine(std::string_view line, std::vector<std::string_view> *fields);

/// The text of a UTF-8 field, two quotes read as one.
QString csvText(std::string_view field);
