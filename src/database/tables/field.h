#pragma once

#include "database/database_global.h"
#include "database/decimal.h"
#include "database/tables/columndef.h"
#include "database/values/boardlist.h"
#include "database/values/datetime.h"
#include "database/xdecimal.h"

#include <QtCore/qstring.h>
#include <QtCore/qvariant.h>

#include <cstring>
#include <limits>
#include <type_traits>

class QDebug;
class QLocale;

/// The column type whose cells hold a C++ type as it stands. QString belongs to VarChar, but its
/// cells are not a QString in memory, so Field treats it apart.
template<class T>
struct CellType;
template<>
struct CellType<qint32> {
    static constexpr FieldType::Type value = FieldType::Integer;
};
template<>
struct CellType<qint64> {
    static constexpr FieldType::Type value = FieldType::Integer64;
};
template<>
struct CellType<double> {
    static constexpr FieldType::Type value = FieldType::Double;
};
template<>
struct CellType<decimal> {
    static constexpr FieldType::Type value = FieldType::Decimal;
};
template<>
struct CellType<QString> {
    static constexpr FieldType::Type value = FieldType::VarChar;
};
template<>
struct CellType<datetime> {
    static constexpr FieldType::Type value = FieldType::DateTime;
};
template<>
struct CellType<boardlist> {
    static constexpr FieldType::Type value = FieldType::BoardList;
};
template<>
struct CellType<xdecimal> {
    static constexpr FieldType::Type value = FieldType::XDecimal;
};

/// Whether T is a number without a fraction, and no character: what Integer and Integer64 cells
/// take and give besides their own types.
template<class T>
constexpr bool isCellInteger =
    std::is_integral_v<T> && !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t> &&
    !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>;

/// The typed view of one cell: where its value and its presence bit lie, and the column that says
/// how to read them. A cell whose presence bit is clear is NULL.
///
/// Borrows the column and the row: valid while both live and the table's columns do not change.
/// Copying a Field copies the view, not the value. Nothing is written when a conversion throws.
///
/// Writing a cell of a row that a table holds tells nobody. Indexes that sort by the cell, or
/// filter by it, have to be told by Table::updated() before anything else is asked of them; until
/// then the row stands where its old value belongs, and searches go astray. Batches (RecordsTrans)
/// do that by themselves. The same goes for setNull() and what is written through bytes().
class DATABASE_EXPORT Field
{
public:
    Field(const TableColumnDef *column, uchar *value, uchar *presence, qint32 mask)
        : m_column(column)
        , m_value(value)
        , m_presence(presence)
        , m_mask(mask)
    {
    }
    Field(const Field &) = default;
    Field &operator=(const Field &) = default;

    const TableColumnDef *column() const { return m_column; }
    bool isNull() const { return (*m_presence & m_mask) != m_mask; }
    void setNull() { *m_presence = uchar(*m_presence & ~m_mask); }

    /// The value's bytes as they lie in the row, column()->size of them. Whoever writes them marks
    /// the cell with setPresent() as well, and leaves only 0 units behind the end of a text.
    const uchar *bytes() const { return m_value; }
    uchar *bytes() { return m_value; }
    void setPresent() { *m_presence = uchar(*m_presence | m_mask); }

    /// The value as the C++ type of the column: qint32, qint64, double, decimal, QString, datetime,
    /// boardlist or xdecimal. Integer and Integer64 cells give every other integer type as well,
    /// std::int64_t, unsigned and bool (0 and 1) among them, when the value is in its range. A NULL
    /// cell reads as T().
    /// \throws Exception "Can't convert from %1 to %2" when T belongs to another column type, an
    /// int of an Integer64 included, whatever its value; "Can't convert from '%1'' to %2" for a
    /// value out of range
    template<class T>
    T value() const;
    /// Stores a value of the column's C++ type; a QString is cut to the column's length. A NULL
    /// xdecimal makes the cell NULL. A string literal, in UTF-8, is as good as a QString. Integer64
    /// takes every integer type and Integer those of up to 32 bits, when the value is in range.
    /// \throws Exception as value(), a 64-bit integer for an Integer included
    template<class T>
    void setValue(const T &value);

    /// The value as text; a null string for a NULL cell and for no date. Doubles are the shortest
    /// text that reads back exactly. A BoardList is always "[BoardList]".
    /// \throws QString "Incorrect type of field." for a column type outside the list
    QString toString() const;
    /// The value in the conventions of a locale. \throws QString as toString()
    QString toLocaleString(const QLocale &locale) const;
    /// toLocaleString() with the system's locale.
    QString toSystemString() const;
    /// The value as a variant (DateTime as a QDateTime in UTC); invalid for NULL.
    QVariant toVariant() const;
    /// A VarChar cell without a copy: valid while the row is alive and unchanged.
    /// \throws QString "Incorrect type of field." for another type
    QString asStaticString() const;
    /// The character of a VarChar[1]. \throws QString for NULL, other lengths and other types
    QChar asChar() const;
    /// asChar(), but the null character for NULL.
    QChar toChar() const;

    /// The older names: "Invalid", "Integer", "Integer64", "Double", "Decimal", "String",
    /// "DateTime", "XDecimal" and "undefined". FieldType::typeName() is the other table.
    const char *typeName() const;

    /// Parses a text into the cell; the empty text makes a nullable cell NULL. A date that fits no
    /// format is stored as 0.
    /// \throws Exception "Can't convert from '%1'' to %2" for a number that does not parse, "Can't
    /// convert from %1 to %2" for a BoardList; QString from the decimal types
    Field &operator=(const QStringRef &text);

    /// Parses what toLocaleString() writes in that locale into the cell, decimals exactly and at
    /// the scale of the text; the empty text makes a nullable cell NULL.
    /// \throws Exception as operator=, for a date that does not parse as well
    void setLocaleString(const QString &text, const QLocale &locale);
    /// setLocaleString() with the system's locale.
    void setSystemString(const QString &text);

    // Messages of conversions have place() behind them where a Field throws them.

    /// " (column 'last' of table 'quotes')"; empty for a cell that belongs to no table.
    QString place() const;
    /// \throws Exception always: "Can't convert from %1 to %2" with the two type names alone
    [[noreturn]] static void incompatibleType(FieldType::Type from, FieldType::Type to);
    /// \throws Exception always, with this field's column type as the first name
    [[noreturn]] void incompatibleType(FieldType::Type to) const;
    /// \throws Exception always: "Can't convert from '%1'' to %2" with the text and the column type
    [[noreturn]] void unreadableText(const QStringRef &text) const;

protected:
    template<class T>
    T stored() const
    {
        T result;
        std::memcpy(static_cast<void *>(&result), m_value, sizeof(T));
        return result;
    }
    template<class T>
    void store(const T &value)
    {
        std::memcpy(m_value, static_cast<const void *>(&value), sizeof(T));
        setPresent();
    }

    /// Integers of any type by way of 64 bits. \p type is the column type that T fits.
    qint64 loadInteger(FieldType::Type type, bool isOwnType) const;
    void storeInteger(qint64 value, FieldType::Type type);
    template<class Number>
    void storeNumber(const QStringRef &text);
    [[noreturn]] void refuseType(FieldType::Type from, FieldType::Type to) const;
    [[noreturn]] void refuseValue(const QString &value, const char *to) const;

    const TableColumnDef *m_column; // borrowed
    uchar *m_value;
    uchar *m_presence;
    qint32 m_mask;
};

DATABASE_EXPORT QDebug operator<<(QDebug debug, const Field &field);

// ---------------------------------------------------------------------------------------------

template<class T>
T Field::value() const
{
    if constexpr (isCellInteger<T>) {
        constexpr auto kType =
            sizeof(T) > sizeof(qint32) ? FieldType::Integer64 : FieldType::Integer;
        constexpr bool kIsOwn = std::is_signed_v<T> && sizeof(T) >= sizeof(qint32);
        if constexpr (kIsOwn) {
            if (m_column->type == kType) // hardly ever anything else
                return isNull() ? T() : stored<T>();
        }
        const qint64 number = loadInteger(kType, kIsOwn);
        if (number < 0 ? std::is_unsigned_v<T> || number < qint64(std::numeric_limits<T>::min())
                       : quint64(number) > quint64(std::numeric_limits<T>::max()))
            refuseValue(QString::number(number), std::is_same_v<T, bool> ? "bool"
                                                 : std::is_unsigned_v<T> ? "unsigned"
                                                                         : "short");
        return T(number);
    } else {
        if (m_column->type != CellType<T>::value)
            incompatibleType(CellType<T>::value);
        if (isNull())
            return T();
        if constexpr (std::is_same_v<T, QString>)
            return FieldType::getString(m_value, m_column->length);
        else
            return stored<T>();
    }
}

template<class T>
void Field::setValue(const T &value)
{
    if constexpr (isCellInteger<T>) {
        if constexpr (std::is_unsigned_v<T> && sizeof(T) == sizeof(qint64)) {
            if (value > quint64(std::numeric_limits<qint64>::max()))
                refuseValue(QString::number(value), FieldType::typeName(m_column->type));
        }
        constexpr auto kType =
            sizeof(T) > sizeof(qint32) ? FieldType::Integer64 : FieldType::Integer;
        if (std::is_signed_v<T> && sizeof(T) >= sizeof(qint32) && m_column->type == kType)
            store(value);
        else
            storeInteger(qint64(value), kType);
    } else if constexpr (std::is_convertible_v<const T &, const char *>) {
        setValue(QString::fromUtf8(static_cast<const char *>(value)));
    } else {
        if (m_column->type != CellType<T>::value)
            refuseType(CellType<T>::value, m_column->type);
        if constexpr (std::is_same_v<T, QString>) {
            FieldType::setString(m_value, m_column->length, value);
            setPresent();
        } else {
            if constexpr (std::is_same_v<T, xdecimal>) {
                if (value.isNull()) {
                    setNull();
                    return;
                }
            }
            store(value);
        }
    }
}
