#include "database/masterindex_fast.h"

#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <cstring>

namespace
{

bool comparesAsBytes(FieldType::Type type)
{
    switch (type) {
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Decimal:
    case FieldType::VarChar:
    case FieldType::DateTime:
    case FieldType::XDecimal:
        return true;
    case FieldType::Undefined:
    case FieldType::Double:
    case FieldType::BoardList:
        break;
    }
    return false;
}

} // namespace

MasterIndex_Fast_Pure::MasterIndex_Fast_Pure(Table *table, const QStringList &columns)
    : MasterIndex_Column_Pure(table, columns)
{
    setup();
}

MasterIndex_Fast_Pure::MasterIndex_Fast_Pure(Table *table, const QList<int> &columns)
    : MasterIndex_Column_Pure(table, columns)
{
    setup();
}

int MasterIndex_Fast_Pure::compare(const Record &a, const Record &b) const
{
    return std::memcmp(a.row() + m_keyOffset, b.row() + m_keyOffset, size_t(m_keyLength));
}

void MasterIndex_Fast_Pure::setup()
{
    int expected = m_columns.value(0);
    for (const int column : m_columns) {
        const TableColumnDef *def = table()->columnDef(column);
        if (column != expected)
            throw QStringLiteral("Columns must be sequenced: %1(%3) / %2")
                .arg(QString::number(column), QString::number(expected), def->name);
        if (!comparesAsBytes(def->type))
            throw QStringLiteral("Type '%1' unsuported for %2")
                .arg(QLatin1String(FieldType::typeName(def->type)), def->name);
        if (def->nullable)
            throw QStringLiteral("Columns can't be nullable %1").arg(def->name);
        if (m_keyLength == 0)
            m_keyOffset = kRowHeaderSize + def->offset;
        m_keyLength += roundedCell(def->size);
        ++expected;
    }
    setKeyBytes(m_columns, m_keyOffset, m_keyLength);
}
