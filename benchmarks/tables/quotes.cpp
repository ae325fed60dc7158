#include "quotes.h"

#include "require.h"

#include <algorithm>
#include <iterator>

namespace
{

template<int N>
void setText(Field field, const char16_t (&text)[N])
{
    int length = 0;
    while (length < N && text[length])
        ++length;
    FieldType::setString(field.bytes(), N, reinterpret_cast<const ushort *>(text), length);
    field.setPresent();
}

template<int N>
void getText(char16_t (&text)[N], const Field &field)
{
    const QString value = field.asStaticString();
    std::copy_n(reinterpret_cast<const char16_t *>(value.utf16()), value.size(), text);
}

std::int64_t hundredths(const Field &field)
{
    const auto value = field.value<decimal>();
    require(value.scale() == kPriceScale, "keeping the scale of a price");
    return value.mantissa();
}

} // namespace

QuotesTable::QuotesTable()
    : Table("quotes", "Quotes")
{
    addColumn("board", FieldType::VarChar, std::size(Key().board), /*nullable*/ false);
    addColumn("code", FieldType::VarChar, std::size(Key().code), /*nullable*/ false);
    addColumn("strike", FieldType::Double, 0);
    addColumn("bid", FieldType::Decimal, kPriceScale);
    addColumn("ask", FieldType::Decimal, kPriceScale);
    addColumn("last", FieldType::Double, 0);
    addColumn("volume", FieldType::Integer64, 0);
    addColumn("time", FieldType::DateTime, 0);
    addColumn("iv", FieldType::Double, 0);
    addColumn("flags", FieldType::Integer, 0);
    setMasterIndex(new MasterIndex_Fast_Pure(this, QStringList{"board", "code"}));
}

Record QuotesTable::newRecord(const Row &row) const
{
    Record record(this);
    setKey(record, row.key);
    record.data(kStrike).setValue(row.strike);
    record.data(kBid).setValue(decimal::fromParts(row.bid, kPriceScale));
    record.data(kAsk).setValue(decimal::fromParts(row.ask, kPriceScale));
    record.data(kLast).setValue(row.last);
    record.data(kVolume).setValue(qint64(row.volume));
    record.data(kTime).setValue(datetime(row.time));
    record.data(kIv).setValue(row.iv);
    record.data(kFlags).setValue(qint32(row.flags));
    return record;
}

void QuotesTable::setKey(const Record &record, const Key &key)
{
    setText(record.data(kBoard), key.board);
    setText(record.data(kCode), key.code);
}

Row QuotesTable::rowOf(const Record &record)
{
    Row row = {};
    getText(row.key.board, record.data(kBoard));
    getText(row.key.code, record.data(kCode));
    row.strike = record.data(kStrike).value<double>();
    row.bid = hundredths(record.data(kBid));
    row.ask = hundredths(record.data(kAsk));
    row.last = record.data(kLast).value<double>();
    row.volume = record.data(kVolume).value<qint64>();
    row.time = record.data(kTime).value<datetime>().toMSecsSinceEpoch();
    row.iv = record.data(kIv).value<double>();
    row.flags = record.data(kFlags).value<qint32>();
    return row;
}
