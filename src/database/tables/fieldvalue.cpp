#include "database/tables/fieldvalue.h"

#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

FieldValue::FieldValue()
    : Field(nullptr, nullptr, nullptr, 1)
{
    init(FieldType::Integer, 1, true, FieldType::typeLength(FieldType::Integer, 1));
}

FieldValue::FieldValue(FieldType::Type type, int length, bool nullable)
    : Field(nullptr, nullptr, nullptr, 1)
{
    init(type, length, nullable, FieldType::typeLength(type, length));
}

FieldValue::FieldValue(const TableColumnDef *column)
    : Field(nullptr, nullptr, nullptr, 1)
{
    init(column);
}

FieldValue::FieldValue(Table *table, int column)
    : FieldValue(table->columnDef(column))
{
}

FieldValue::FieldValue(Table *table, const QString &column)
    : FieldValue(table->columnDef(column))
{
}

FieldValue::FieldValue(const Field &other)
    : FieldValue(other.column())
{
    // Reads a sibling Field's cell through its own view: Field keeps its pointers protected.
    struct View : Field {
        explicit View(const Field &field)
            : Field(field)
        {
        }
        const uchar *bytes() const { return m_value; }
    };
    std::memcpy(m_value, View(other).bytes(), size_t(m_column->size));
    if (!other.isNull())
        setPresent();
}

FieldValue::FieldValue(const FieldValue &other)
    : FieldValue(static_cast<const Field &>(other))
{
}

FieldValue &FieldValue::operator=(const FieldValue &other)
{
    return *this = static_cast<const Field &>(other);
}

FieldValue &FieldValue::operator=(const Field &other)
{
    if (&other == this)
        return *this;
    // The copy stands before the old value goes, since the other may be a view of it.
    FieldValue copy(other);
    std::swap(static_cast<Field &>(*this), static_cast<Field &>(copy));
    m_ownColumn.swap(copy.m_ownColumn);
    m_buffer.swap(copy.m_buffer);
    return *this;
}

FieldValue &FieldValue::operator=(const QStringRef &text)
{
    Field::operator=(text);
    return *this;
}

FieldValue::~FieldValue() = default;

void FieldValue::init(const TableColumnDef *column)
{
    takeColumn(std::make_unique<TableColumnDef>(nullptr, *column));
}

void FieldValue::takeColumn(std::unique_ptr<TableColumnDef> column)
{
    // The old column goes last: nothing is lost when the buffer cannot be had, nor when the new one
    // is a copy of it.
    const qint64 width = roundedCell(column->size);
    auto buffer = std::make_unique<quint64[]>(size_t(width) / sizeof(quint64) + 1);
    column->offset = 0;
    column->nullOffset = width;
    column->nullMask = 1;
    m_ownColumn = std::move(column);
    m_buffer = std::move(buffer);
    m_column = m_ownColumn.get();
    m_value = reinterpret_cast<uchar *>(m_buffer.get());
    m_presence = m_value + width;
    m_mask = 1;
}

void FieldValue::init(FieldType::Type type, int length, bool nullable, qint64 size)
{
    auto column = std::make_unique<TableColumnDef>(nullptr);
    column->type = type;
    column->length = length;
    column->nullable = nullable;
    column->size = size;
    takeColumn(std::move(column));
}

template<class T>
void FieldConstValue::initValue(const T &value)
{
    init(CellType<T>::value, 0, true, qint64(sizeof(T)));
    store(value);
}

void FieldConstValue::initText(const ushort *units, int count)
{
    // An empty constant is a text of length 0, which no table column can be.
    init(FieldType::VarChar, count, false, qint64(count) * qint64(sizeof(ushort)));
    FieldType::setString(m_value, count, units, count);
    setPresent();
}

FieldConstValue::FieldConstValue()
{
    init(FieldType::Integer, 0, true, FieldType::typeLength(FieldType::Integer, 0));
}

FieldConstValue::FieldConstValue(const QChar &value)
{
    const ushort unit = value.unicode();
    initText(&unit, 1);
}

FieldConstValue::FieldConstValue(const QString &value)
{
    initText(value.utf16(), value.size());
}

FieldConstValue::FieldConstValue(const char *value)
    : FieldConstValue(QString(QLatin1String(value)))
{
}

FieldConstValue::FieldConstValue(const decimal &value)
{
    initValue(value);
}

FieldConstValue::FieldConstValue(const xdecimal &value)
{
    initValue(value);
}

FieldConstValue::FieldConstValue(const datetime &value)
{
    initValue(value);
}

FieldConstValue::FieldConstValue(const int &value)
{
    initValue(qint32(value));
}

FieldConstValue::FieldConstValue(const long long &value)
{
    initValue(qint64(value));
}

FieldConstValue::FieldConstValue(const double &value)
{
    initValue(value);
}

FieldConstValue FieldConstValue::fromValue(const Field &field)
{
    if (field.isNull())
        return FieldConstValue();
    switch (field.column()->type) {
    case FieldType::Integer:
        return FieldConstValue(field.value<qint32>());
    case FieldType::Integer64:
        return FieldConstValue(field.value<qint64>());
    case FieldType::Double:
        return FieldConstValue(field.value<double>());
    case FieldType::Decimal:
        return FieldConstValue(field.value<decimal>());
    case FieldType::VarChar:
        if (field.column()->length == 1)
            return FieldConstValue(field.asChar());
        return FieldConstValue(field.toString());
    case FieldType::DateTime:
        return FieldConstValue(field.value<datetime>());
    case FieldType::XDecimal:
        return FieldConstValue(field.value<xdecimal>());
    case FieldType::BoardList:
    case FieldType::Undefined:
        break;
    }
    return FieldConstValue();
}
