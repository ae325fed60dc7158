#pragma once

#include "database/database_global.h"
#include "database/tables/columndef.h"

#include <QtCore/qlist.h>
#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>

/// What TableIO::check() found in a stream or file. Fields behind the point where reading had to
/// stop keep their initial values.
struct DATABASE_EXPORT TableFileReport {
    bool opened = false;      ///< there was something to read
    qint32 magic = 0;         ///< TableIO::kMagic in every table file
    bool headerSound = false; ///< whole, and a table can be made of it
    QList<ColumnDef> columns;
    QStringList keyColumns;
    qint64 rowsPromised = 0;
    qint64 rowsPresent = 0;    ///< whole rows, up to the number promised
    qint64 bytesLeftOver = 0;  ///< behind the last row promised, or of a row that is cut
    bool sound = false;        ///< as many rows as promised, nothing left over, no malformed cell,
                               ///< no error on the way
    QString verdict;           ///< one line for a person
    qint64 malformedCells = 0; ///< XDecimal and BoardList cells that a load makes NULL
};
