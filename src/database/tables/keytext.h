#pragma once

// Internal to the master indexes: key cells as texts that read back exactly.

#include "database/tables/field.h"

#include <QtCore/qstring.h>
#include <QtCore/qvector.h>

/// A part of a key text.
struct KeyPart {
    QString text;
    bool isQuoted = false; // quotes are taken off
};

/// Appends the text of a key cell, from which readKeyPart() makes the same value with the same
/// scale: see MasterIndex::keyText() for the form.
void appendKeyPart(QString *keyText, const Field &cell);

/// Cuts a key text at its commas. \throws QString for a quote that is not closed or that something
/// other than a comma follows
QVector<KeyPart> keyParts(const QString &keyText);

/// Stores what a part says. \throws Exception "Can't convert from '%1'' to %2", with the column and
/// the table behind it
void readKeyPart(Field cell, const KeyPart &part);
