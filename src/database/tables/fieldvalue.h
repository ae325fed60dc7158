#pragma once

#include "database/tables/field.h"

#include <memory>

/// A cell of its own: a Field that owns its value and a private copy of the column definition.
///
/// The buffer is the value, rounded up to 8 bytes, and one presence byte behind it; a new
/// FieldValue is NULL and zero.
class DATABASE_EXPORT FieldValue : public Field
{
public:
    /// A NULL Integer.
    FieldValue();
    /// \throws QString as FieldType::typeLength()
    FieldValue(FieldType::Type type, int length, bool nullable);
    explicit FieldValue(const TableColumnDef *column);
    FieldValue(Table *table, int column);
    /// The column must exist.
    FieldValue(Table *table, const QString &column);
    /// Copies column, value and presence.
    explicit FieldValue(const Field &other);
    FieldValue(const FieldValue &other);
    FieldValue &operator=(const FieldValue &other);
    /// Copies as well: a Field assigned to a Field changes what it views, a FieldValue never does.
    FieldValue &operator=(const Field &other);
    FieldValue &operator=(const QStringRef &text);
    virtual ~FieldValue();

    QString toText() const { return toString(); }
    /// Parses as Field::operator=(const QStringRef &), with its exceptions.
    void fromText(const QString &text) { fromText(QStringRef(&text)); }
    void fromText(const QStringRef &text) { *this = text; }

    /// Makes this a NULL cell, zero, of a private copy of \p column.
    void init(const TableColumnDef *column);

protected:
    /// A private column of the given type and width; does not ask for a positive length.
    void init(FieldType::Type type, int length, bool nullable, qint64 size);

private:
    void takeColumn(std::unique_ptr<TableColumnDef> column);

    std::unique_ptr<TableColumnDef> m_ownColumn;
    std::unique_ptr<quint64[]> m_buffer; // 8-byte aligned
};

/// A plain value as a cell: what constants are compared with or written from.
class DATABASE_EXPORT FieldConstValue : public FieldValue
{
public:
    /// NULL, of type Integer.
    FieldConstValue();
    FieldConstValue(const QChar &value);
    FieldConstValue(const QString &value);
    /// Latin-1; a null pointer is the empty text.
    FieldConstValue(const char *value);
    FieldConstValue(const decimal &value);
    FieldConstValue(const xdecimal &value);
    FieldConstValue(const datetime &value);
    FieldConstValue(const int &value);
    FieldConstValue(const long long &value);
    FieldConstValue(const double &value);
    /// The other integers: Integer for those below 32 bits and bool, Integer64 for the others.
    template<class Int, class = std::enable_if_t<isCellInteger<Int> &&
                                                 (std::is_signed_v<Int> || sizeof(Int) < 8)>>
    FieldConstValue(Int value)
        : FieldConstValue(std::conditional_t<(sizeof(Int) < sizeof(int)), int, long long>(value))
    {
    }

    /// The value of a cell; NULL for a NULL cell, a BoardList and an undefined type.
    static FieldConstValue fromValue(const Field &field);

private:
    template<class T>
    void initValue(const T &value);
    void initText(const ushort *units, int count);
};
