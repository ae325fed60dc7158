#pragma once

#include <QtCore/qlocale.h>
#include <QtCore/qstring.h>

/// What decimal and xdecimal share in writing their texts by the conventions of a locale.

/// \p text without the zeros at the end of its fraction, and without the decimal point when no
/// fraction is left. A text without the locale's decimal point stays as it is.
QString withoutFractionZeros(QString text, const QLocale &locale);

/// \p text with the locale's decimal point for ".", as spreadsheets take it: without grouping.
QString withLocalePoint(QString text, const QLocale &locale);

/// withLocalePoint, the integer digits grouped in threes by the locale's group separator.
/// \param text  an optional "-", digits, optionally "." and digits
QString withLocaleGroups(const QString &text, const QLocale &locale);
