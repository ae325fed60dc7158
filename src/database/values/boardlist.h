#pragma once

#include "database/database_global.h"

#include <QtCore/qstring.h>

/// A list of up to 50 pairs of a key and a value, such as boards and lot sizes, kept in place.
///
/// The layout is that of a table cell and of a table file, 404 bytes:
///  (1) count, the number of used entries, 0..kCapacity;
///  (2) the entries, of which the first count are used, in the order in which they were added.
struct DATABASE_EXPORT boardlist {
    static constexpr int kCapacity = 50;

    struct Entry {
        qint32 key = 0;
        qint32 value = 0;
    };

    /// Adds a pair behind the others; false, leaving the list as it was, when it is full.
    bool append(qint32 key, qint32 value);

    /// "key:value,value" for each key, joined with a space. Values of a key and the keys' texts are
    /// sorted as strings, so that 30 stands before 4. An empty list gives an empty text.
    QString toString() const;

    qint32 count = 0;
    Entry entries[kCapacity];
};

static_assert(sizeof(boardlist) == 404, "the width of a cell");

Q_DECLARE_TYPEINFO(boardlist, Q_MOVABLE_TYPE);
