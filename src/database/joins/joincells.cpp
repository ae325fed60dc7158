#include "database/joins/joincells.h"

#include "database/tables/columndef.h"
#include "database/tables/rowlayout.h"

#include <algorithm>
#include <cstring>

namespace
{

const uchar *dataOf(const Record &record)
{
    return record.row() + kRowHeaderSize;
}

bool isPresent(const TableColumnDef &column, const Record &record)
{
    return !record.isNull() && (dataOf(record)[column.nullOffset] & column.nullMask) != 0;
}

bool widens(const TableJoin::ColumnLink &link)
{
    return link.to->type == FieldType::Integer64 && link.from->type == FieldType::Integer;
}

qint64 widened(const uchar *cell)
{
    qint32 value;
    std::memcpy(&value, cell, sizeof value);
    return value;
}

bool isZero(const uchar *bytes, qint64 size)
{
    return std::all_of(bytes, bytes + size, [](uchar byte) { return byte == 0; });
}

} // namespace

bool JoinCells::canTake(const TableColumnDef &to, const TableColumnDef &from)
{
    if (to.type == FieldType::Integer64 && from.type == FieldType::Integer)
        return true;
    return to.type == from.type && to.size >= from.size;
}

bool JoinCells::isSame(const TableJoin::ColumnLink &link, const Record &source,
                       const Record &target)
{
    const bool present = isPresent(*link.from, source);
    if (present != isPresent(*link.to, target))
        return false;
    if (!present)
        return true;
    const uchar *const from = dataOf(source) + link.from->offset;
    const uchar *const to = dataOf(target) + link.to->offset;
    if (widens(link)) {
        const qint64 value = widened(from);
        return std::memcmp(to, &value, sizeof value) == 0;
    }
    // Texts of different lengths: what the shorter column lacks has to be padding in the other.
    const qint64 common = qMin(link.from->size, link.to->size);
    return std::memcmp(from, to, size_t(common)) == 0 &&
           isZero(from + common, link.from->size - common) &&
           isZero(to + common, link.to->size - common);
}

bool JoinCells::copy(const TableJoin::ColumnLink &link, const Record &source, const Record &target)
{
    uchar *const data = target.row() + kRowHeaderSize;
    uchar &presence = data[link.to->nullOffset];
    if (!isPresent(*link.from, source)) {
        presence = uchar(presence & ~link.to->nullMask);
        return false;
    }
    presence = uchar(presence | link.to->nullMask);
    const uchar *const from = dataOf(source) + link.from->offset;
    uchar *const to = data + link.to->offset;
    if (widens(link)) {
        const qint64 value = widened(from);
        std::memcpy(to, &value, sizeof value);
        return true;
    }
    const qint64 common = qMin(link.from->size, link.to->size);
    std::memcpy(to, from, size_t(common));
    std::memset(to + common, 0, size_t(link.to->size - common));
    return isZero(from + common, link.from->size - common);
}
