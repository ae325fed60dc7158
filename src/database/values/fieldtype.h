#pragma once

#include "database/database_global.h"

#include <QtCore/qstring.h>

/// The types that a column can have, and what follows from a type alone: its width in a row, its
/// name, and the raw UTF-16 cells of text columns.
///
/// A VarChar cell of length n is n UTF-16 units without length prefix; the value ends at the first
/// 0 unit or at n units. Writing always ends there and pads with 0 units, so that neither a shorter
/// value nor a 0 inside a text (a feed's char[8] taken whole) leaves anything behind the end: equal
/// texts have equal cells, which are compared, hashed and sorted byte by byte. Whoever writes the
/// units of a cell by other means keeps to that, or calls padString().
class DATABASE_EXPORT FieldType
{
public:
    enum Type : int {
        Undefined = 0,
        Integer = 1,   ///< signed 32-bit
        Integer64 = 2, ///< signed 64-bit
        Double = 3,
        Decimal = 4,   ///< decimal: 64-bit scaled integer
        VarChar = 5,   ///< fixed number of UTF-16 units
        DateTime = 6,  ///< datetime: milliseconds since the epoch, 0 for none
        BoardList = 7, ///< boardlist: up to 50 pairs of integers
        XDecimal = 8   ///< xdecimal: 26-digit packed decimal
    };

    /// Bytes that a cell takes (before rounding up to a multiple of 8).
    /// \throws QString "Type is undefined." outside the list, "Length of string can't be zero" for
    /// a VarChar without a positive length
    static qint64 typeLength(Type type, int length);
    /// Whether the length of a column of this type means something: Decimal, VarChar, XDecimal.
    static bool typeHasLength(Type type);
    /// "Undefined", "Integer", ..., "XDecimal"; "Undefined" outside the list. Field::typeName() is
    /// another, older table of names and disagrees on purpose.
    static const char *typeName(Type type);
    /// typeName(), with "[length]" behind it where the type has a length.
    static QString typeNameWithLength(Type type, int length);

    /// The text of a VarChar cell of \p maxLength units, as an owning copy. At most 32767 units are
    /// looked at.
    static QString getString(const uchar *cell, int maxLength);
    /// The same without a copy: the result refers to the cell and is valid only while the row is
    /// alive and unchanged.
    static QString getStaticString(const uchar *cell, int maxLength);
    /// Number of units of a VarChar cell's value.
    static int stringLength(const uchar *cell, int maxLength);

    /// Writes a text into a VarChar cell of \p length units: up to its first 0 unit, cut silently
    /// or padded with 0 units.
    static void setString(uchar *cell, int length, const QStringRef &text);
    static void setString(uchar *cell, int length, const QString &text);
    static void setString(uchar *cell, int length, const ushort *units, int count);
    /// Makes the units behind the first 0 of a VarChar cell 0, whatever wrote them. The cell need
    /// not be aligned.
    static void padString(uchar *cell, int length);
};
