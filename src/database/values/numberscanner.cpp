#include "database/values/numberscanner.h"

#include <algorithm>
#include <limits>

namespace
{

bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

bool isSign(QChar c)
{
    return c == QLatin1Char('+') || c == QLatin1Char('-');
}

/// Cuts the digits at the front of \p rest off.
QStringView takeDigits(QStringView &rest)
{
    const auto end = std::find_if_not(rest.begin(), rest.end(), isDigit);
    const QStringView digits(rest.begin(), end);
    rest = QStringView(end, rest.end());
    return digits;
}

QChar takeSign(QStringView &rest)
{
    if (rest.isEmpty() || !isSign(rest.front()))
        return QChar();
    const QChar sign = rest.front();
    rest = rest.mid(1);
    return sign;
}

} // namespace

NumberText scanNumber(QStringView text)
{
    NumberText number;
    QStringView rest = text;
    number.sign = takeSign(rest);
    number.integer = takeDigits(rest);
    if (!rest.isEmpty() && (rest.front() == QLatin1Char('.') || rest.front() == QLatin1Char(','))) {
        number.separator = rest.front();
        rest = rest.mid(1);
        number.fraction = takeDigits(rest);
    }

    if (rest.isEmpty()) {
        if (number.separator.isNull())
            number.form = number.integer.isEmpty() ? NumberText::None : NumberText::Integer;
        else
            number.form = number.fraction.isEmpty() ? NumberText::None : NumberText::Fraction;
        return number;
    }

    if (rest.front() != QLatin1Char('e') || number.integer.isEmpty())
        return number;
    number.exponent = rest = rest.mid(1);
    takeSign(rest);
    if (!takeDigits(rest).isEmpty() && rest.isEmpty())
        number.form = NumberText::Exponent;
    return number;
}

QStringView withoutLeadingZeros(QStringView digits)
{
    const auto isZero = [](QChar c) { return c == QLatin1Char('0'); };
    return QStringView(std::find_if_not(digits.begin(), digits.end(), isZero), digits.end());
}

bool fitsInt64(QStringView digits, bool negative)
{
    const QStringView significant = withoutLeadingZeros(digits);
    const QStringView limit = negative ? u"9223372036854775808" : u"9223372036854775807";
    if (significant.size() != limit.size())
        return significant.size() < limit.size();
    return significant.compare(limit) <= 0;
}

bool readInt32(QStringView text, int *value)
{
    QStringView digits = text;
    const bool negative = takeSign(digits) == QLatin1Char('-');
    digits = withoutLeadingZeros(digits);
    if (digits.size() > 10)
        return false;
    qint64 number = 0;
    for (const QChar c : digits)
        number = number * 10 + (c.unicode() - '0');
    if (negative)
        number = -number;
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max())
        return false;
    *value = int(number);
    return true;
}
