#include "database/indexes/sortkey.h"

#include "database/decimal.h"
#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <QtCore/qalgorithms.h>
#include <QtCore/qsysinfo.h>

#include <limits>

void SortKey::setColumns(const Table &table, const QList<int> &columns, Qt::SortOrder order)
{
    static_assert(QSysInfo::ByteOrder == QSysInfo::LittleEndian, "bytes are taken from the back");
    *this = SortKey();
    m_flip = order == Qt::DescendingOrder ? ~quint64(0) : 0;
    m_first = table.columnDef(columns.first());
    m_near = m_far = kRowHeaderSize + m_first->offset;
    switch (m_first->type) {
    case FieldType::Integer:
        m_kind = Kind::Integer;
        return;
    case FieldType::Integer64:
    case FieldType::DateTime:
        m_kind = Kind::Integer64;
        return;
    case FieldType::Double:
        m_kind = Kind::Double;
        return;
    case FieldType::Decimal:
        m_kind = Kind::Decimal;
        return;
    case FieldType::VarChar:
        break;
    case FieldType::XDecimal:
    case FieldType::BoardList:
    case FieldType::Undefined:
        return;
    }
    m_kind = Kind::Bytes;
    for (const int number : columns) {
        const TableColumnDef &column = *table.columnDef(number);
        if (&column != m_first) {
            if (column.nullable)
                break;
            m_parts.push_back({&column, m_bytes.size()});
        }
        if (column.type == FieldType::VarChar)
            appendText(column);
        else if (column.type == FieldType::Integer)
            appendInteger(column, int(sizeof(qint32)));
        else if (column.type == FieldType::Integer64 || column.type == FieldType::DateTime)
            appendInteger(column, int(sizeof(qint64)));
        else
            break;
    }
    reset();
}

void SortKey::setBytes(qint64 offset, qint64 length)
{
    *this = SortKey();
    m_kind = Kind::Bytes;
    m_near = m_far = offset;
    for (qint64 i = 0; i < length; ++i)
        m_bytes.push_back({int(offset + i), 0, 0, 0});
    reset();
}

/// Code units in turn, of each the high byte first: texts are padded with zeros.
void SortKey::appendText(const TableColumnDef &column)
{
    const int offset = int(kRowHeaderSize + column.offset);
    for (int unit = 0; unit < column.length; ++unit) {
        m_bytes.push_back({offset + 2 * unit + 1, 0, 0, 0});
        m_bytes.push_back({offset + 2 * unit, 0, 0, 0});
    }
}

void SortKey::appendInteger(const TableColumnDef &column, int size)
{
    const int offset = int(kRowHeaderSize + column.offset);
    for (int i = size - 1; i >= 0; --i)
        m_bytes.push_back({offset + i, uchar(i == size - 1 ? 0x80 : 0), 0, 0});
}

void SortKey::reset()
{
    m_learned = m_nulls = m_whole = false;
    if (m_kind == Kind::MixedDecimal)
        m_kind = Kind::Decimal;
    m_byteCount = m_bytes.size();
    m_partCount = m_parts.size();
    m_digits.clear();
    m_agreed.clear();
    findLines();
}

bool SortKey::learn(const uchar *row)
{
    if (!isOn() || covers(row))
        return false;
    if (isNull(row)) {
        m_nulls = true;
        findLines();
        return false;
    }
    if (m_kind == Kind::Decimal && !m_learned) {
        m_learned = true;
        m_scale = scaleBits(row);
        return false;
    }
    if (m_kind == Kind::Decimal) {
        m_kind = Kind::MixedDecimal;
        return true;
    }
    // NULL comes before all that a column's bytes can say: of the key that much is left.
    for (size_t i = 0; i < m_partCount; ++i) {
        if (isNull(row, *m_parts[i].column)) {
            m_byteCount = m_parts[i].byte;
            m_partCount = i;
        }
    }
    widen(row);
    choose();
    return true;
}

/// A decimal's place among those of all scales: the place of its leading digit, then its digits as
/// a fraction of seventeen, which together rise evenly. They are a number below 144 * 9 * 10^16,
/// too large by a bit beside the sign: neighbours in the last digit may share a digest.
quint64 SortKey::ofDecimal(qint64 word)
{
    constexpr int kDigits = 17;                   // of the largest mantissa
    constexpr quint64 kFirst = 10000000000000000; // the least number of so many digits
    static constexpr quint64 kPowers[kDigits + 1] = {1,
                                                     10,
                                                     100,
                                                     1000,
                                                     10000,
                                                     100000,
                                                     1000000,
                                                     10000000,
                                                     100000000,
                                                     1000000000,
                                                     10000000000,
                                                     100000000000,
                                                     1000000000000,
                                                     10000000000000,
                                                     100000000000000,
                                                     1000000000000000,
                                                     kFirst,
                                                     10 * kFirst};
    const decimal value = decimal::fromWord(word);
    const qint64 mantissa = value.mantissa();
    if (mantissa == 0)
        return kSign;
    const quint64 magnitude = quint64(mantissa < 0 ? -mantissa : mantissa);
    const int guess =
        int(64 - qCountLeadingZeroBits(magnitude)) * 1233 >> 12; // log10(2) of the bits
    const int digits = guess + int(magnitude >= kPowers[guess]);
    const quint64 place = quint64(digits - value.scale() - (1 - decimal::kMaxScale));
    const quint64 distance =
        (place * 9 * kFirst + (magnitude * kPowers[kDigits - digits] - kFirst)) / 2 + 1;
    return mantissa < 0 ? kSign - distance : kSign + distance;
}

/// Takes a row's bytes into the ranges of values. A range that grows does so by its own length, so
/// that keys which count upwards do not change all digests again and again; digits come in tens.
void SortKey::widen(const uchar *row)
{
    for (size_t i = 0; i < m_byteCount; ++i) {
        Byte &byte = m_bytes[i];
        const int value = row[byte.offset] ^ byte.flip;
        const int low = byte.low;
        const int high = byte.high;
        const int length = high - low;
        if (!m_learned) {
            byte.low = byte.high = uchar(value);
        } else if (qMin(low, value) >= '0' && qMax(high, value) <= '9' && value != low) {
            byte.low = '0';
            byte.high = '9';
        } else if (value < low) {
            byte.low = uchar(qMax(0, qMin(value, low - length)));
        } else if (value > high) {
            byte.high = uchar(qMin(255, qMax(value, high + length)));
        }
    }
    m_learned = true;
}

/// Finds the digits of digests, and what covers() has to look at besides.
void SortKey::choose()
{
    m_digits.clear();
    m_agreed.clear();
    m_whole = !m_first;
    quint64 numbers = 1; // that the digits so far can write
    for (size_t i = 0; i < m_byteCount; ++i) {
        const Byte &byte = m_bytes[i];
        if (byte.low != byte.high) {
            const uint radix = uint(byte.high - byte.low) + 1;
            if (numbers > std::numeric_limits<quint64>::max() / radix) {
                m_whole = false;
                break;
            }
            numbers *= radix;
            m_digits.push_back({byte.offset, byte.flip, byte.low, radix, 1});
            continue;
        }
        // Cells are multiples of eight bytes, so that such a word never leaves its row.
        const int offset = byte.offset & ~7;
        const int shift = (byte.offset - offset) * 8;
        if (m_agreed.empty() || m_agreed.back().offset != offset)
            m_agreed.push_back({offset, 0, 0});
        m_agreed.back().value |= quint64(uchar(byte.low ^ byte.flip)) << shift;
        m_agreed.back().mask |= quint64(0xFF) << shift;
    }
    for (size_t i = m_digits.size(); i-- > 1;)
        m_digits[i - 1].weight = m_digits[i].weight * m_digits[i].radix;
    findLines();
}

/// What prefetch() has to ask for.
void SortKey::findLines()
{
    if (!m_digits.empty())
        m_near = m_digits.front().offset;
    m_far = m_digits.empty() ? m_near : m_digits.back().offset;
    if (m_nulls)
        m_far = kRowHeaderSize + m_first->nullOffset;
}
