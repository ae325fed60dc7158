#include "database/persistence/rowfiller.h"

#include "database/tables/rowlayout.h"
#include "database/tables/table.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <typeinfo>

namespace
{

// Not what the application derived from the copying classes.
bool isPlainCopy(const FieldDefConvertor &convertor)
{
    const std::type_info &type = typeid(convertor);
    if (type != typeid(TableIO::FieldDefConvertor_Copy) &&
        type != typeid(TableIO::FieldDefConvertor_Copy4) &&
        type != typeid(TableIO::FieldDefConvertor_Copy8))
        return false;
    const auto size =
        qint64(static_cast<const TableIO::FieldDefConvertor_Copy &>(convertor).size());
    return size == convertor.source->size && size == convertor.target->size;
}

} // namespace

RowFiller::RowFiller(const RowFormat &format, const Table &saved, const Table &target,
                     const QList<FieldDefConvertor *> &convertors)
    : m_format(format)
    , m_scratch(&saved)
    , m_initial(size_t(format.packedSize()))
{
    if (m_scratch.isNull())
        throw std::bad_alloc();
    format.pack(m_initial.data(), m_scratch.row() + kRowHeaderSize);
    QList<TableIO::Range> copies;
    for (FieldDefConvertor *convertor : convertors) {
        if (isPlainCopy(*convertor))
            copies.append({qint32(convertor->source->offset), convertor});
        else
            m_convertors.append(convertor);
    }
    planCopies(format, target, copies);
}

void RowFiller::planCopies(const RowFormat &format, const Table &target,
                           const QList<TableIO::Range> &copies)
{
    QList<TableIO::Range> sorted = copies;
    std::sort(sorted.begin(), sorted.end());
    bool isSameOrder = sorted.size() == target.columnCount();
    for (const TableIO::Range &range : qAsConst(sorted)) {
        const TableColumnDef &from = *range.second->source;
        const TableColumnDef &to = *range.second->target;
        RowFormat::appendSpan(m_spans, {format.cellOffset(from.index), to.offset, to.size});
        m_presence.push_back({format.bitmapOffset() + from.index / 8, to.nullOffset,
                              quint8(1u << (from.index % 8)), to.nullMask});
        isSameOrder = isSameOrder && from.index == to.index;
    }
    if (isSameOrder) { // bits behind the file's last column belong to no column
        m_presence.clear();
        RowFormat::appendSpan(
            m_spans, {format.bitmapOffset(), target.rowLength(), bitmapSize(target.columnCount())});
    }
}

void RowFiller::fill(uchar *row, const uchar *packed)
{
    const uchar *const from = packed ? packed : m_initial.data();
    uchar *const data = row + kRowHeaderSize;
    for (const RowSpan &span : m_spans)
        std::memcpy(data + span.row, from + span.packed, size_t(span.size));
    for (const Presence &bit : m_presence) {
        uchar &byte = data[bit.rowByte];
        byte =
            uchar(from[bit.packedByte] & bit.packedMask ? byte | bit.rowMask : byte & ~bit.rowMask);
    }
    if (!m_convertors.isEmpty()) {
        m_format.unpack(m_scratch.row() + kRowHeaderSize, from);
        TableIO::convertDefs(m_convertors, row, m_scratch.row());
    }
}
