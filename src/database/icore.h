#pragma once

#include "database/database_global.h"

#include <QtCore/qstring.h>

class Table;

/// What the library asks of the application it lives in.
///
/// The built-in core knows no table and does not compress; an application that keeps tables by name
/// installs its own. Install it before other threads use the library.
class DATABASE_EXPORT ICore
{
public:
    virtual ~ICore();

    virtual bool hasTable(const QString &name) const = 0;
    /// The registered table of that name, borrowed, or null.
    virtual Table *table(const QString &name) const = 0;
    /// Whether table files are to be written compressed.
    virtual bool compressTableFiles() const = 0;

    /// The core in force; never null.
    static ICore *instance();
    /// Installs a core, which stays the caller's; null restores the built-in one.
    static void setInstance(ICore *core);
};
