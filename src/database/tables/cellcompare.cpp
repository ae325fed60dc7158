#include "database/tables/cellcompare.h"

#include "database/decimal.h"
#include "database/record.h"
#include "database/tables/rowlayout.h"
#include "database/xdecimal.h"

#include <cstring>

namespace
{

template<class T>
T load(const uchar *cell)
{
    T value;
    std::memcpy(static_cast<void *>(&value), cell, sizeof(T));
    return value;
}

template<class T>
int compareValues(const uchar *a, const uchar *b)
{
    const T x = load<T>(a);
    const T y = load<T>(b);
    return int(x > y) - int(x < y); // 0 with a NaN on either side
}

int compareDecimals(const uchar *a, const uchar *b)
{
    const decimal x = load<decimal>(a);
    const decimal y = load<decimal>(b);
    if (x.scale() == y.scale())
        return compareValues<qint64>(a, b);
    return x.compare(y);
}

int compareTexts(const uchar *a, const uchar *b, int length)
{
    // Cells are padded with zeros, so the first difference decides also between texts of different
    // lengths, and a zero in both ends the text.
    const auto *x = reinterpret_cast<const ushort *>(a);
    const auto *y = reinterpret_cast<const ushort *>(b);
    for (int i = 0; i < length; ++i) {
        if (x[i] != y[i])
            return x[i] < y[i] ? -1 : 1;
        if (x[i] == 0)
            break;
    }
    return 0;
}

int compareXDecimals(const uchar *a, const uchar *b)
{
    return load<xdecimal>(a).compare(load<xdecimal>(b));
}

} // namespace

int compareCells(const TableColumnDef &column, const Record &a, const Record &b)
{
    const uchar *const dataA = a.row() + kRowHeaderSize;
    const uchar *const dataB = b.row() + kRowHeaderSize;
    const bool presentA = (dataA[column.nullOffset] & column.nullMask) != 0;
    const bool presentB = (dataB[column.nullOffset] & column.nullMask) != 0;
    if (!presentA || !presentB)
        return int(presentA) - int(presentB);

    const uchar *const cellA = dataA + column.offset;
    const uchar *const cellB = dataB + column.offset;
    switch (column.type) {
    case FieldType::Integer:
        return compareValues<qint32>(cellA, cellB);
    case FieldType::Integer64:
    case FieldType::DateTime:
        return compareValues<qint64>(cellA, cellB);
    case FieldType::Double:
        return compareValues<double>(cellA, cellB);
    case FieldType::Decimal:
        return compareDecimals(cellA, cellB);
    case FieldType::VarChar:
        return compareTexts(cellA, cellB, column.length);
    case FieldType::XDecimal:
        return compareXDecimals(cellA, cellB);
    case FieldType::BoardList:
    case FieldType::Undefined:
        break;
    }
    return 0;
}
