#pragma once

#include "database/database_global.h"

#include <QtCore/qnamespace.h>
#include <QtCore/qvariant.h>

/// Comparison and conversion of variants that know decimal, xdecimal and datetime.

/// The framework's own operators convert one side before they compare: an integer and a decimal
/// compare exactly as long as the integer has no more than 16 digits, a double and a decimal as
/// doubles. compareVariants() needs no such care.

/// Compares two variants by value: negative, zero or positive. The one to take.
///
/// A total order over all pairs of number types (bool, the integer and floating types, decimal,
/// xdecimal), exact for every one of them: no 64-bit integer, no decimal and no double is rounded
/// on the way. A double that is not whole stands for the shortest number that reads back as it, so
/// that the double 0.1 equals the decimal 0.1. NaN and a NULL xdecimal stand before all numbers and
/// equal themselves; invalid variants stand before everything. Other pairs are those of
/// variant_compare(). Never throws.
DATABASE_EXPORT int compareVariants(const QVariant &a, const QVariant &b,
                                    Qt::CaseSensitivity cs = Qt::CaseSensitive);

/// Orders two variants by the type of \p a: negative, zero or positive. What keeps columns in the
/// order that they have always had; compareVariants() is the one without gaps.
///
/// An invalid variant stands before every other. Two numbers of different types compare as in
/// compareVariants(), except that NaN equals every number. With a decimal, xdecimal or datetime in
/// \p a, another \p b is converted to that type (see variant_convert; what does not convert counts
/// as zero or no date) and the values are compared. Of the built-in types, variants that are equal
/// to the framework give 0; strings and characters are compared by \p cs, int, double, QDateTime,
/// QDate and QTime by value.
///
/// Everything else gives 0 on purpose, unequal or not: two 64-bit integers, two unsigned ones, two
/// bools, byte arrays, other user types, and NaN with any number. Callers rely on such columns
/// keeping their order. Never throws.
DATABASE_EXPORT int variant_compare(const QVariant &a, const QVariant &b, Qt::CaseSensitivity cs);

/// Converts a variant to the type of id \p type.
///
/// To a built-in type: by the framework, a decimal, xdecimal or datetime by way of its toString();
/// QChar takes the first UTF-16 unit of the text. A conversion that fails gives what the framework
/// leaves, a null variant of that type.
/// To decimal or xdecimal: by their fromVariant, which may throw. To datetime: of a QDateTime the
/// clock reading that it shows, whatever its time zone, of a QDate its midnight; of everything else
/// by the text, no date when it fits no format. So the variant of a DateTime cell converts back to
/// the cell's value. Between these three types by way of the exact text, so that no digit is
/// lost on the way.
DATABASE_EXPORT QVariant variant_convert(const QVariant &v, uint type);
