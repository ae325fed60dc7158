#include "database/values/numbervalue.h"

#include "database/decimal.h"
#include "database/values/xdecimalframe.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace bcdii
{

namespace
{

constexpr int kDigits = 28; // of a magnitude

constexpr std::array<UInt128, kDigits + 1> powersOfTen()
{
    std::array<UInt128, kDigits + 1> powers{};
    powers[0] = 1;
    for (size_t i = 1; i < powers.size(); ++i)
        powers[i] = powers[i - 1] * 10;
    return powers;
}

constexpr std::array<UInt128, kDigits + 1> kPowers = powersOfTen();

/// Digits of a magnitude; 0 for zero.
int digitCount(UInt128 magnitude)
{
    int count = 0;
    while (count <= kDigits && magnitude >= kPowers[size_t(count)])
        ++count;
    return count;
}

bool isSignedInteger(int type)
{
    switch (type) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        return true;
    default:
        return false;
    }
}

bool isUnsignedInteger(int type)
{
    switch (type) {
    case QMetaType::Bool:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::ULong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

quint64 magnitudeOf(qint64 value)
{
    return value < 0 ? 0 - quint64(value) : quint64(value);
}

} // namespace

bool NumberValue::isNumberType(int type)
{
    return isSignedInteger(type) || isUnsignedInteger(type) || type == QMetaType::Double ||
           type == QMetaType::Float || type == decimal::metatypeId() ||
           type == xdecimal::metatypeId();
}

NumberValue::NumberValue(const QVariant &variant)
{
    const int type = variant.userType();
    if (type == decimal::metatypeId()) {
        *this = NumberValue(variant.value<decimal>());
    } else if (type == xdecimal::metatypeId()) {
        *this = NumberValue(variant.value<xdecimal>());
    } else if (isSignedInteger(type)) {
        const qint64 value = variant.toLongLong();
        setInteger(magnitudeOf(value), value < 0);
    } else if (isUnsignedInteger(type)) {
        setInteger(variant.toULongLong(), false);
    } else {
        setDouble(variant.toDouble());
    }
}

NumberValue::NumberValue(const decimal &value)
    : m_magnitude(magnitudeOf(value.mantissa()))
    , m_scale(value.scale())
    , m_negative(value.mantissa() < 0)
{
}

NumberValue::NumberValue(const xdecimal &value)
{
    if (value.isNull()) {
        m_kind = None;
        return;
    }
    const XDecimalFrame frame = loadFrame(value);
    m_magnitude = toBinary(frame.pairs);
    m_scale = 2 * pointPairs(frame.scale);
    m_negative = frame.negative;
}

void NumberValue::setInteger(quint64 magnitude, bool negative)
{
    m_magnitude = magnitude;
    m_negative = negative;
}

void NumberValue::setDouble(double value)
{
    constexpr double kWholeLimit = double(UInt128(1) << 93); // below 10^28
    const double x = std::fabs(value);
    m_negative = std::signbit(value);
    if (std::isnan(x)) {
        m_kind = None;
    } else if (std::isinf(x)) {
        m_kind = Infinite;
    } else if (x < kWholeLimit && x == std::floor(x)) {
        m_magnitude = UInt128(x);
    } else {
        // "d.ddde-dd" with as many digits as it takes
        char text[32];
        const char *const end =
            std::to_chars(text, text + sizeof text, x, std::chars_format::scientific).ptr;
        const char *at = text;
        int places = 0;
        for (bool behindPoint = false; *at != 'e'; ++at) {
            if (*at == '.') {
                behindPoint = true;
                continue;
            }
            m_magnitude = m_magnitude * 10 + UInt128(*at - '0');
            places += behindPoint;
        }
        ++at;
        int exponent = 0;
        std::from_chars(*at == '+' ? at + 1 : at, end, exponent);
        m_scale = places - exponent;
    }
}

int NumberValue::sign() const
{
    if (m_kind == Finite && m_magnitude == 0)
        return 0;
    return m_negative ? -1 : 1;
}

int NumberValue::compare(const NumberValue &other) const
{
    if (isNone() || other.isNone())
        return int(other.isNone()) - int(isNone());
    const int a = sign();
    const int b = other.sign();
    if (a != b)
        return a < b ? -1 : 1;
    return a == 0 ? 0 : a * compareMagnitudes(other);
}

int NumberValue::compareMagnitudes(const NumberValue &other) const
{
    if (m_kind != other.m_kind || m_kind == Infinite)
        return int(m_kind == Infinite) - int(other.m_kind == Infinite);
    const int digits = digitCount(m_magnitude);
    const int otherDigits = digitCount(other.m_magnitude);
    const int order = (digits - m_scale) - (otherDigits - other.m_scale);
    if (order != 0)
        return order < 0 ? -1 : 1;
    // The first digits have the same place: with as many digits, both are whole numbers of one
    // unit.
    const UInt128 x = m_magnitude * kPowers[size_t(std::max(otherDigits - digits, 0))];
    const UInt128 y = other.m_magnitude * kPowers[size_t(std::max(digits - otherDigits, 0))];
    return int(x > y) - int(x < y);
}

bool NumberValue::wholeMagnitude(quint64 *whole) const
{
    if (m_kind != Finite ||
        (m_magnitude != 0 && digitCount(m_magnitude) - m_scale > 20)) // 2^64 has 20 digits
        return false;
    UInt128 result = m_magnitude;
    if (m_scale > 0 && m_magnitude != 0) {
        if (m_scale > kDigits || m_magnitude % kPowers[size_t(m_scale)] != 0)
            return false;
        result /= kPowers[size_t(m_scale)];
    } else if (m_scale < 0 && m_magnitude != 0) {
        result *= kPowers[size_t(-m_scale)];
    }
    if (result >> 64 != 0)
        return false;
    *whole = quint64(result);
    return true;
}

} // namespace bcdii
