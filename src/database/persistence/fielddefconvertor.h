#pragma once

#include "database/database_global.h"
#include "database/tables/field.h"

/// Fills one column of a table, cell by cell, from a column of a table file that was written when
/// the table looked different.
///
/// This class converts between column types; applications derive from it for columns that they
/// renamed or compute anew. TableIO sets both definitions before the first cell and deletes the
/// convertor after the last: the definitions are those of one load and must not be kept.
class DATABASE_EXPORT FieldDefConvertor
{
public:
    FieldDefConvertor() = default;
    virtual ~FieldDefConvertor();
    FieldDefConvertor(const FieldDefConvertor &) = delete;
    FieldDefConvertor &operator=(const FieldDefConvertor &) = delete;

    /// Gives \p target the value of \p source; NULL stays NULL, whatever the types.
    ///
    /// Integers widen exactly; Integer64 to Integer clamps. Fractions to integers truncate toward
    /// zero; what lies outside the integer type, NaN included, gives its smallest value. An integer
    /// or a double stored as Decimal takes the column's scale (a double after rounding to six
    /// places); stored as XDecimal it keeps scale 0 or 6. Decimal and XDecimal values keep their
    /// own scale. Whatever becomes VarChar goes through its text, a double with six places; VarChar
    /// is read as Field reads a text, so the empty text is NULL in a nullable column.
    /// \throws Exception "Can't convert double to datetime.", "Can't convert from decimal to
    /// datetime.", as Field::incompatibleType() for pairs without a conversion, and for values
    /// beyond XDecimal; Exception and QString as Field::operator=(const QStringRef &) and decimal.
    /// The messages have Field::place() of the target behind them. Nothing is written then.
    virtual void convert(Field &target, const Field &source);

    const TableColumnDef *source = nullptr; ///< the file's column, borrowed
    const TableColumnDef *target = nullptr; ///< the table's column, borrowed
};
