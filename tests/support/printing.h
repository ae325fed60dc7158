#pragma once

#include <QtCore/qstring.h>

#include <ostream>

/// Lets failures show texts rather than bytes.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
