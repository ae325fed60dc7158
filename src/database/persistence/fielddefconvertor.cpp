#include "database/persistence/fielddefconvertor.h"

#include "database/services/exception.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

// Codes that incompatible pairs are reported with. XDecimal sources report Decimal's.
constexpr FieldType::Type kReportedForXDecimal = FieldType::Decimal;

template<class T>
T stored(const Field &field)
{
    T value;
    std::memcpy(static_cast<void *>(&value), field.bytes(), sizeof(T));
    return value;
}

template<class T>
void store(Field &field, const T &value)
{
    std::memcpy(field.bytes(), static_cast<const void *>(&value), sizeof(T));
    field.setPresent();
}

void storeText(Field &field, const QString &text)
{
    field = QStringRef(&text);
}

// As the processor converts: toward zero, and the smallest integer for what lies outside.
template<class Int>
Int truncated(double value)
{
    constexpr auto kBegin = double(std::numeric_limits<Int>::min()); // a power of two, exactly
    const double whole = std::trunc(value);
    return whole >= kBegin && whole < -kBegin ? Int(whole) : std::numeric_limits<Int>::min();
}

void storeAtColumnScale(Field &target, decimal value)
{
    value.setScale(
        short(qBound(decimal::kMinScale, int(target.column()->length), decimal::kMaxScale)));
    store(target, value);
}

// A positive value loses digits until it fits the mantissa. A negative one is packed as it stands,
// the bits above the mantissa cut off: files have been converted that way from the beginning.
decimal packedDecimal(qint64 value)
{
    if (value < 0) {
        constexpr qint64 kSign = std::numeric_limits<qint64>::min();
        return decimal::fromWord(kSign | (value & decimal::kMaxMantissa));
    }
    short scale = 0;
    for (; value > decimal::kMaxMantissa; --scale)
        value /= 10;
    return decimal::fromParts(value, scale);
}

// Each function below converts from one type to every other; the same type is dealt with before.

void fromInteger(Field &target, qint64 value, FieldType::Type from)
{
    constexpr qint64 kMin = std::numeric_limits<qint32>::min();
    constexpr qint64 kMax = std::numeric_limits<qint32>::max();
    switch (target.column()->type) {
    case FieldType::Integer:
        return store(target, qint32(qBound(kMin, value, kMax)));
    case FieldType::Integer64:
        return store(target, value);
    case FieldType::Double:
        return store(target, double(value));
    case FieldType::Decimal:
        return storeAtColumnScale(target, packedDecimal(value));
    case FieldType::VarChar:
        return storeText(target, QString::number(value));
    case FieldType::XDecimal:
        return store(target, xdecimal::fromInt64(value));
    default:
        target.incompatibleType(from);
    }
}

void fromDouble(Field &target, double value)
{
    constexpr int kPlaces = 6;
    switch (target.column()->type) {
    case FieldType::Integer:
        return store(target, truncated<qint32>(value));
    case FieldType::Integer64:
        return store(target, truncated<qint64>(value));
    case FieldType::Decimal:
        return storeAtColumnScale(target, decimal::fromDouble(value, kPlaces));
    case FieldType::VarChar:
        return storeText(target, QStringLiteral("%1").arg(value, 0, 'f', kPlaces));
    case FieldType::DateTime:
        throw Exception(QStringLiteral("Can't convert double to datetime.") + target.place());
    case FieldType::XDecimal:
        return store(target, xdecimal::fromDouble(value, kPlaces));
    default:
        target.incompatibleType(FieldType::Double);
    }
}

template<class Number>
void fromDecimal(Field &target, const Number &value, FieldType::Type reported)
{
    switch (target.column()->type) {
    case FieldType::Integer:
        return store(target, truncated<qint32>(value.toDouble()));
    case FieldType::Integer64:
        return store(target, truncated<qint64>(value.toDouble()));
    case FieldType::Double:
        return store(target, value.toDouble());
    case FieldType::Decimal:
        if constexpr (std::is_same_v<Number, xdecimal>)
            return store(target, decimal(value.toString()));
        break;
    case FieldType::VarChar:
        return storeText(target, value.toString());
    case FieldType::DateTime:
        throw Exception(QStringLiteral("Can't convert from decimal to datetime.") + target.place());
    case FieldType::XDecimal:
        if constexpr (std::is_same_v<Number, decimal>)
            return store(target, xdecimal::fromInt64(value.mantissa(), value.scale()));
        break;
    default:
        break;
    }
    target.incompatibleType(reported);
}

void fromDateTime(Field &target, datetime value)
{
    if (target.column()->type != FieldType::VarChar)
        target.incompatibleType(FieldType::DateTime);
    storeText(target, value.toString());
}

void convertPresent(Field &target, const Field &source)
{
    const FieldType::Type from = source.column()->type;
    const bool isBytes = from != FieldType::VarChar && from != FieldType::Undefined;
    if (isBytes && from == target.column()->type) {
        // Decimals too: a column's scale is what new values get, those in the file keep theirs.
        std::memcpy(target.bytes(), source.bytes(), size_t(target.column()->size));
        target.setPresent();
        return;
    }
    switch (from) {
    case FieldType::Integer:
        return fromInteger(target, stored<qint32>(source), from);
    case FieldType::Integer64:
        return fromInteger(target, stored<qint64>(source), from);
    case FieldType::Double:
        return fromDouble(target, stored<double>(source));
    case FieldType::Decimal:
        return fromDecimal(target, stored<decimal>(source), FieldType::Decimal);
    case FieldType::VarChar:
        return storeText(target, source.toString());
    case FieldType::DateTime:
        return fromDateTime(target, stored<datetime>(source));
    case FieldType::XDecimal:
        return fromDecimal(target, stored<xdecimal>(source), kReportedForXDecimal);
    case FieldType::Undefined:
    case FieldType::BoardList:
        break;
    }
    target.incompatibleType(from);
}

} // namespace

FieldDefConvertor::~FieldDefConvertor() = default;

void FieldDefConvertor::convert(Field &target, const Field &source)
{
    if (source.isNull()) {
        target.setNull();
        return;
    }
    try {
        convertPresent(target, source);
    } catch (const char *text) { // from xdecimal
        throw Exception(target.column()->table
                            ? QLatin1String(text) + target.place()
                            : QStringLiteral("%1: column '%2'")
                                  .arg(QLatin1String(text), target.column()->name));
    } catch (const QString &text) { // from decimal, or from the cell with its place already
        throw text.endsWith(target.place()) ? text : QString(text + target.place());
    }
}
