#include "database/persistence/rowformat.h"

#include "database/tables/columndef.h"
#include "database/tables/rowlayout.h"
#include "database/values/boardlist.h"
#include "database/xdecimal.h"

#include <algorithm>
#include <cstring>

namespace
{

bool isMalformedList(const uchar *cell)
{
    decltype(boardlist::count) count;
    std::memcpy(&count, cell, sizeof count);
    return count < 0 || count > boardlist::kCapacity;
}

// Keys that are compared as bytes tell equal numbers by it.
void clearUnused(uchar *number)
{
    std::fill(number + sizeof(quint16) + BCDIILength(BCDIIGetType(number)),
              number + sizeof(xdecimal), uchar(0));
}

} // namespace

RowFormat::RowFormat(const QList<TableColumnDef> &columns)
{
    for (int i = 0; i < columns.size(); ++i) {
        const TableColumnDef &column = columns.at(i);
        m_cells.push_back(m_packedSize);
        if (column.type == FieldType::VarChar)
            m_texts.push_back({m_packedSize, column.length});
        appendSpan(m_spans, {m_packedSize, m_rowSize, column.size});
        m_packedSize += column.size;
        m_rowSize += roundedCell(column.size);
        if (column.type == FieldType::XDecimal || column.type == FieldType::BoardList)
            m_checked.push_back({i, column.type == FieldType::BoardList});
    }
    m_bitmapOffset = m_packedSize;
    const qint64 bitmap = bitmapSize(columns.size());
    appendSpan(m_spans, {m_packedSize, m_rowSize, bitmap});
    m_packedSize += bitmap;
    m_rowSize += bitmap;
    m_lastBits = uchar((1u << (columns.size() % 8)) - 1);
}

void RowFormat::appendSpan(std::vector<RowSpan> &spans, const RowSpan &span)
{
    if (span.size == 0) // the bitmap of no columns: there need be no memory to copy from
        return;
    if (!spans.empty()) {
        RowSpan &last = spans.back();
        if (last.packed + last.size == span.packed && last.row + last.size == span.row) {
            last.size += span.size;
            return;
        }
    }
    spans.push_back(span);
}

void RowFormat::pack(uchar *packed, const uchar *data) const
{
    for (const RowSpan &span : m_spans)
        std::memcpy(packed + span.packed, data + span.row, size_t(span.size));
}

void RowFormat::unpack(uchar *data, const uchar *packed) const
{
    for (const RowSpan &span : m_spans)
        std::memcpy(data + span.row, packed + span.packed, size_t(span.size));
}

int RowFormat::dropMalformed(uchar *packed) const
{
    int dropped = 0;
    if (m_lastBits != 0)
        packed[m_packedSize - 1] &= m_lastBits;
    for (const Text &text : m_texts)
        FieldType::padString(packed + text.offset, text.length);
    for (const Checked &checked : m_checked) {
        uchar &presence = packed[m_bitmapOffset + checked.column / 8];
        const unsigned mask = 1u << (checked.column % 8);
        if (!(presence & mask))
            continue;
        uchar *cell = packed + cellOffset(checked.column);
        if (checked.isList ? isMalformedList(cell) : !xdecimal::isNumber(cell)) {
            presence = uchar(presence & ~mask);
            ++dropped;
        } else if (!checked.isList) {
            clearUnused(cell);
        }
    }
    return dropped;
}
