#pragma once

#include <QtCore/qlocale.h>
#include <QtCore/qstring.h>

/// What decimal and xdecimal share in writing their texts by the conventions of a locale.

/// Reads a number as QLocale::toDouble() does, and also in every grouping that a locale's numbers
/// are written in: where whole numbers have groups of two, as in India, the framework writes others
/// in threes all the same, which it then does not read.
/// \return false, leaving \p value alone, for what is no number there
bool readLocaleDouble(const QString &text, const QLocale &locale, double *value);

/// \p text without its group separators, where these stand as the locale or the framework sets them
/// (three digits behind the last, three or, if the locale does so, two between the others); else a
/// null string.
QString withoutLocaleGroups(const QString &text, const QLocale &locale);

/// \p text without the zeros at the end of its fraction, and without the decimal point when no
/// fraction is left. A text without the locale's decimal point stays as it is.
QString withoutFractionZeros(QString text, const QLocale &locale);

/// \p text with the locale's decimal point for ".", as spreadsheets take it: without grouping.
QString withLocalePoint(QString text, const QLocale &locale);

/// withLocalePoint, the integer digits grouped in threes by the locale's group separator.
/// \param text  an optional "-", digits, optionally "." and digits
QString withLocaleGroups(const QString &text, const QLocale &locale);
