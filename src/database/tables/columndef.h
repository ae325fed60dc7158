#pragma once

#include "database/database_global.h"
#include "database/values/fieldtype.h"

#include <QtCore/qstring.h>

class QDataStream;
class Table;

/// A column's type with its length: characters of a VarChar, an attribute without effect on the
/// width for Decimal and XDecimal, 0 otherwise.
struct FieldDef {
    FieldDef() = default;
    FieldDef(FieldType::Type fieldType, int fieldLength)
        : type(fieldType)
        , length(fieldLength)
    {
    }

    FieldType::Type type = FieldType::Undefined;
    qint32 length = 0;
};

/// What a user sees of a column.
struct ColumnDef {
    FieldType::Type type = FieldType::Undefined;
    qint32 length = 0;
    QString name;          ///< unique within the table, never empty there
    bool nullable = true;  ///< new rows start with NULL; otherwise present with the zero value
    QString title;         ///< shown to users; Table::columnTitle() falls back to the name
    bool extraFlag = true; ///< kept and streamed for the application; the table never tests it
    QString description;
};

/// A column of a table and its place in the table's rows. Table::addColumn() computes the place; it
/// is never taken from a stream.
class DATABASE_EXPORT TableColumnDef : public ColumnDef
{
public:
    explicit TableColumnDef(Table *owner);
    /// Copies the description and the width; the place is zero until \p owner adds the column.
    TableColumnDef(Table *owner, const TableColumnDef &other);

    /// Streams name, title, description, length, type (signed byte), size (32-bit), nullable and
    /// extraFlag. Reading leaves the table and the place alone.
    void read(QDataStream &stream);
    void write(QDataStream &stream) const;

    Table *table = nullptr; ///< borrowed
    qint64 offset = 0;      ///< of the cell, in bytes from the start of the row's data area
    qint64 size = 0;        ///< bytes of the cell; it occupies this rounded up to 8
    qint32 index = 0;       ///< number of the column
    qint64 nullOffset = 0;  ///< of the presence byte, in bytes from the start of the data area
    quint8 nullMask = 0;    ///< the column's bit in the presence byte
};
