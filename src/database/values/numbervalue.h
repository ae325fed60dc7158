#pragma once

// Internal to decimal, xdecimal and the variants: numbers of every type on one scale.

#include "database/values/pairs128.h"

#include <QtCore/qvariant.h>

#include <limits>
#include <type_traits>

class decimal;
class xdecimal;

namespace bcdii
{

/// A number of any number type as what it stands for, exactly: magnitude x 10^-scale.
///
/// An integer or decimal is itself. A double is itself as well while it is whole and below 2^93;
/// every other one stands for the shortest decimal number that reads back as it, which is what
/// people see: the double 0.1 equals the decimal 0.1. Different doubles stand for different
/// numbers in the same order, so compare() is a total order over all of them.
class NumberValue
{
public:
    /// Whether variants of that type hold numbers: bool, the integer and floating types, decimal,
    /// xdecimal. Characters are none, except char, signed and unsigned, as Qt takes it.
    static bool isNumberType(int type);

    /// Of a variant of such a type.
    explicit NumberValue(const QVariant &variant);
    explicit NumberValue(const decimal &value);
    explicit NumberValue(const xdecimal &value);

    /// NaN, or the NULL of an xdecimal.
    bool isNone() const { return m_kind == None; }
    /// -1, 0 or 1. What is no number stands before all others and equals itself.
    int compare(const NumberValue &other) const;

    /// The magnitude where it is a whole number of 64 bits; else false, leaving \p whole alone.
    bool wholeMagnitude(quint64 *whole) const;
    bool isNegative() const { return sign() < 0; }

private:
    enum Kind { None, Finite, Infinite };

    void setInteger(quint64 magnitude, bool negative);
    void setDouble(double value);
    int sign() const;
    int compareMagnitudes(const NumberValue &other) const;

    UInt128 m_magnitude = 0; // below 10^28
    int m_scale = 0;
    bool m_negative = false;
    Kind m_kind = Finite;
};

/// The number as Int where it is a whole one within its range.
template<class Int>
bool wholeNumber(const NumberValue &number, Int *result)
{
    constexpr auto kMax = quint64(std::numeric_limits<Int>::max());
    quint64 magnitude = 0;
    if (!number.wholeMagnitude(&magnitude))
        return false;
    if (!number.isNegative() ? magnitude > kMax : std::is_unsigned_v<Int> || magnitude > kMax + 1)
        return false;
    *result = Int(number.isNegative() ? 0 - magnitude : magnitude);
    return true;
}

} // namespace bcdii
