#pragma once

#include "database/database_global.h"

#include <QtCore/qnamespace.h>
#include <QtCore/qvariant.h>

/// Comparison and conversion of variants that know decimal, xdecimal and datetime.

/// Orders two variants by the type of \p a: negative, zero or positive.
///
/// An invalid variant stands before every other. With a decimal, xdecimal or datetime in \p a, \p b
/// is converted to that type (see variant_convert; what does not convert counts as zero or no date)
/// and the values are compared. Of the built-in types, variants that are equal to the framework
/// give 0; strings and characters are compared by \p cs, int, double, QDateTime, QDate and QTime by
/// value.
///
/// Everything else gives 0 on purpose, unequal or not: 64-bit and unsigned integers, bool, byte
/// arrays, other user types, and NaN with any number. Callers rely on such columns keeping their
/// order. Never throws.
DATABASE_EXPORT int variant_compare(const QVariant &a, const QVariant &b, Qt::CaseSensitivity cs);

/// Converts a variant to the type of id \p type.
///
/// To a built-in type: by the framework, a decimal, xdecimal or datetime by way of its toString();
/// QChar takes the first UTF-16 unit of the text. A conversion that fails gives what the framework
/// leaves, a null variant of that type.
/// To decimal or xdecimal: by their fromVariant, which may throw. To datetime: by the text, no date
/// when it fits no format. Between these three types by way of the exact text, so that no digit is
/// lost on the way.
DATABASE_EXPORT QVariant variant_convert(const QVariant &v, uint type);
