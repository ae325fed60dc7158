#include "tables.h"

#include <database/masterindex_column.h>

namespace
{

// A column of a key is never NULL; the others are, until something is known.
void addKey(Table &table, const char *name, FieldType::Type type, int length = 0)
{
    table.addColumn(QLatin1String(name), type, length, false);
}

void addValue(Table &table, const char *name, FieldType::Type type, int length = 0)
{
    table.addColumn(QLatin1String(name), type, length, true);
}

void setKey(Table &table, const QList<int> &columns)
{
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, columns));
}

} // namespace

UnderlyingTable::UnderlyingTable()
    : Table(QStringLiteral("underlyings"), QStringLiteral("Underlyings"))
{
    addKey(*this, "Stock", FieldType::VarChar, kStockLength);
    addValue(*this, "Last", FieldType::Decimal);
    addValue(*this, "High", FieldType::Decimal);
    addValue(*this, "Low", FieldType::Decimal);
    addValue(*this, "ChangePercent", FieldType::Decimal);
    addValue(*this, "Time", FieldType::DateTime);
    setKey(*this, {kStock});
}

OptionTable::OptionTable()
    : Table(QStringLiteral("options"), QStringLiteral("Options"))
{
    addKey(*this, "Stock", FieldType::VarChar, kStockLength);
    addKey(*this, "Expiry", FieldType::DateTime);
    addKey(*this, "Strike", FieldType::Decimal);
    addKey(*this, "Side", FieldType::VarChar, 1);
    addValue(*this, "Last", FieldType::Decimal);
    addValue(*this, "OpenInterest", FieldType::Integer64);
    addValue(*this, "Volume", FieldType::Integer64);
    addValue(*this, "Open", FieldType::Decimal);
    addValue(*this, "Change", FieldType::Decimal);
    addValue(*this, "Time", FieldType::DateTime);
    for (const char *name : {"Volatility", "Delta", "Gamma", "Vega", "Theta"})
        addValue(*this, name, FieldType::Double);
    addValue(*this, "StockLast", FieldType::Decimal);
    addValue(*this, "StockChange", FieldType::Decimal);
    setKey(*this, {kStock, kExpiry, kStrike, kSide});
}

TradeTable::TradeTable()
    : Table(QStringLiteral("trades"), QStringLiteral("Trades"))
{
    addKey(*this, "Number", FieldType::Integer64);
    addValue(*this, "Time", FieldType::DateTime);
    addValue(*this, "Stock", FieldType::VarChar, kStockLength);
    addValue(*this, "Expiry", FieldType::DateTime);
    addValue(*this, "Strike", FieldType::Decimal);
    addValue(*this, "Side", FieldType::VarChar, 1);
    addValue(*this, "Last", FieldType::Decimal);
    addValue(*this, "Quantity", FieldType::Integer64);
    setKey(*this, {kNumber});
}
