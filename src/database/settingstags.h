#pragma once

#include <QtCore/qstring.h>
#include <QtCore/qvariant.h>

/// The tagged objects: how values that JSON does not carry become fields of an object, and back.
/// Lists and what JSON carries are not here.
namespace SettingsTags
{

struct Tagged {
    const char *type = nullptr;
    /// "value", and what else the type needs, in the order of the names; texts and ints only
    QVariantMap fields;
};

/// The tagged form of a value; no type for what is written plainly.
Tagged encoded(const QVariant &value);

enum Reading {
    Understood,
    Wrong,  ///< a type of ours, with fields that do not fit it
    Unknown ///< a type or a form of it that is not ours
};

/// Whether a type is one of ours, "map" included.
bool isKnown(const QString &type);

/// \param[out] expected  what the field "value" has to be, when the fields are wrong
Reading decode(const QString &type, const QVariantMap &fields, QVariant *value, QString *expected);

} // namespace SettingsTags
