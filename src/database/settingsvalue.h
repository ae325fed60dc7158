#pragma once

#include "database/settings.h"

/// What the parts of the settings share about keys and values.
namespace SettingsValue
{

/// \throws QString when a path will not do
void checkPath(const QString &path);
/// Whether a path can be one; a reader of files has its own words for what is wrong.
bool isPath(const QString &path);

/// The value in one of the types that are stored.
/// \param levels  how deep its lists and maps may nest
/// \throws QString for a type that cannot be stored or a value that nests too deep
QVariant canonical(const QString &key, const QVariant &value, int levels);

/// Whether two canonical values are the same to the last bit; NaN is NaN.
bool same(const QVariant &a, const QVariant &b);

/// A value as a type that it can be read as without loss; invalid when there is none.
QVariant converted(const QVariant &value, int type);

/// The name of the type as messages have it.
QString typeName(const QVariant &value);

/// A position in a map: the first key below \p group, and whether a key still is.
SettingsMap::const_iterator firstBelow(const SettingsMap &map, const QString &group);
bool isBelow(const QString &key, const QString &group);

/// The key of the value that a path lies below, or an empty text.
QString valueAbove(const SettingsMap &map, const QString &path);
/// Takes away what keeps a value from standing at \p key: values above it, all that is below it.
void makeRoom(SettingsMap &map, const QString &key);

/// What turns one map into the other, in the order of the keys.
QVector<SettingsChange> differences(const SettingsMap &before, const SettingsMap &after);

} // namespace SettingsValue
