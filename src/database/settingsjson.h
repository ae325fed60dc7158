#pragma once

#include "database/settings.h"

#include <QtCore/qbytearray.h>

/// Settings as a JSON text (RFC 8259) in UTF-8.
///
/// Groups are objects. What JSON carries is written plainly: true and false, null, texts, numbers
/// of the type int, and doubles, always with a point or an exponent. Everything else is a tagged
/// object, {"$type": "decimal", "value": "12.50"}; docs/settings.md lists the tags.
namespace SettingsJson
{

constexpr qint64 kMaxBytes = 64 * 1024 * 1024;

/// Reads a text of at most kMaxBytes. It is stricter than it has to be about what could mean two
/// things, so that nobody's entry is dropped in silence: a name may not come twice in an object.
/// A name may be a path, {"chart/main": {...}}.
/// \throws QString "line 3, column 7: ... is expected, ... found"; both count from 1, columns in
/// characters
DATABASE_EXPORT SettingsMap read(const QByteArray &json);

/// Writes values that fulfil the invariants of Settings: keys in order, four blanks per level, a
/// newline at the end. What is read from the result is the same.
DATABASE_EXPORT QByteArray write(const SettingsMap &values);

/// \throws QString when the object could not be read again below \p key
void checkUnknown(const QString &key, const UnknownSetting &value, int levels);

} // namespace SettingsJson
