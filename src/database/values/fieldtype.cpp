#include "database/values/fieldtype.h"

#include "database/decimal.h"
#include "database/values/boardlist.h"
#include "database/values/datetime.h"
#include "database/xdecimal.h"

#include <cstring>
#include <limits>

namespace
{

struct TypeInfo {
    const char *name;
    int width; // 0 where the width depends on the length
    bool hasLength;
};

constexpr TypeInfo kTypes[] = {
    {"Undefined", 0, false},
    {"Integer", sizeof(qint32), false},
    {"Integer64", sizeof(qint64), false},
    {"Double", sizeof(double), false},
    {"Decimal", sizeof(decimal), true},
    {"VarChar", 0, true},
    {"DateTime", sizeof(datetime), false},
    {"BoardList", sizeof(boardlist), false},
    {"XDecimal", sizeof(xdecimal), true},
};

const TypeInfo &info(FieldType::Type type)
{
    const bool known = type > FieldType::Undefined && type <= FieldType::XDecimal;
    return kTypes[known ? type : FieldType::Undefined];
}

} // namespace

qint64 FieldType::typeLength(Type type, int length)
{
    if (type == VarChar) {
        if (length < 1)
            throw QStringLiteral("Length of string can't be zero");
        return qint64(length) * qint64(sizeof(ushort));
    }
    const int width = info(type).width;
    if (width == 0)
        throw QStringLiteral("Type is undefined.");
    return width;
}

bool FieldType::typeHasLength(Type type)
{
    return info(type).hasLength;
}

const char *FieldType::typeName(Type type)
{
    return info(type).name;
}

QString FieldType::typeNameWithLength(Type type, int length)
{
    const QString name = QLatin1String(typeName(type));
    return typeHasLength(type) ? QStringLiteral("%1[%2]").arg(name).arg(length) : name;
}

int FieldType::stringLength(const uchar *cell, int maxLength)
{
    // Cells longer than a signed 16-bit count are cut on reading; no column comes near.
    const int limit = qMin(maxLength, int(std::numeric_limits<qint16>::max()));
    const auto *units = reinterpret_cast<const ushort *>(cell);
    int length = 0;
    while (length < limit && units[length] != 0)
        ++length;
    return length;
}

QString FieldType::getString(const uchar *cell, int maxLength)
{
    return QString(reinterpret_cast<const QChar *>(cell), stringLength(cell, maxLength));
}

QString FieldType::getStaticString(const uchar *cell, int maxLength)
{
    return QString::fromRawData(reinterpret_cast<const QChar *>(cell),
                                stringLength(cell, maxLength));
}

void FieldType::setString(uchar *cell, int length, const ushort *units, int count)
{
    const int most = qMin(length, count);
    auto *const to = reinterpret_cast<ushort *>(cell);
    int copied = 0;
    for (; copied < most && units[copied] != 0; ++copied)
        to[copied] = units[copied];
    if (copied < length)
        std::memset(cell + size_t(copied) * sizeof(ushort), 0,
                    size_t(length - copied) * sizeof(ushort));
}

void FieldType::padString(uchar *cell, int length)
{
    const auto isZero = [=](int unit) { return (cell[2 * unit] | cell[2 * unit + 1]) == 0; };
    int end = 0;
    while (end < length && !isZero(end))
        ++end;
    if (end < length)
        std::memset(cell + size_t(end) * sizeof(ushort), 0, size_t(length - end) * sizeof(ushort));
}

void FieldType::setString(uchar *cell, int length, const QStringRef &text)
{
    setString(cell, length, reinterpret_cast<const ushort *>(text.unicode()), text.size());
}

void FieldType::setString(uchar *cell, int length, const QString &text)
{
    setString(cell, length, text.utf16(), text.size());
}
