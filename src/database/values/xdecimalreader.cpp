#include "database/values/xdecimalreader.h"

#include "database/values/digittext.h"
#include "database/values/localetext.h"
#include "database/values/numberscanner.h"
#include "database/values/xdecimalframe.h"

#include <QtCore/qlocale.h>
#include <QtCore/qvarlengtharray.h>

#include <algorithm>

namespace
{

/// A zero-terminated plain text on the stack, for usual lengths.
using PlainText = QVarLengthArray<char, 128>;

void append(PlainText *text, QStringView digits)
{
    for (const QChar c : digits)
        text->append(char(c.unicode()));
}

void appendZeros(PlainText *text, qint64 count)
{
    for (; count > 0; --count)
        text->append('0');
}

/// Writes the digits of a number, which has an integer or fraction digit, with the point moved
/// \p exponent places to the right.
/// \return false when the number cannot fit an xdecimal, before anything that long is written
bool writePlain(const NumberText &number, int exponent, PlainText *text)
{
    PlainText digits;
    append(&digits, number.integer);
    append(&digits, number.fraction);
    const char *const end = digits.constData() + digits.size();
    const char *const first =
        std::find_if(digits.constData(), end, [](char c) { return c != '0'; });
    const qint64 count = end - first;
    qint64 places = qint64(number.fraction.size()) - exponent;
    if (count == 0)
        places = qBound<qint64>(0, places, xdecimal::kMaxScale);
    else if (count - places > xdecimal::kPrecision || places - count > xdecimal::kMaxScale)
        return false;

    if (number.isNegative())
        text->append('-');
    const qint64 whole = std::max<qint64>(count - places, 0); // digits before the point
    if (whole == 0)
        text->append('0');
    text->append(first, int(std::min(whole, count)));
    appendZeros(text, whole - count);
    if (places > 0) {
        text->append('.');
        appendZeros(text, places - count);
        text->append(first + whole, int(count - whole));
    }
    text->append('\0');
    return true;
}

bool isReadable(const NumberText &number)
{
    if (number.form == NumberText::Exponent)
        return number.separator.isNull() ||
               (number.separator == QLatin1Char('.') && !number.fraction.isEmpty());
    return number.form != NumberText::None;
}

/// Stores a number that has an integer or fraction digit; false when it does not fit exactly.
bool store(const NumberText &number, xdecimal *result)
{
    int exponent = 0;
    if (!number.exponent.isEmpty() && !readInt32(number.exponent, &exponent))
        return false;
    PlainText text;
    if (!writePlain(number, exponent, &text))
        return false;
    xdecimal stored;
    bool ok = false;
    BCDIIFromString(const_cast<uchar *>(stored.data()), text.constData(), &ok);
    if (ok)
        *result = stored;
    return ok;
}

bool storeDigits(const bcdii::DigitText &digits, xdecimal *result)
{
    if (!bcdii::fitsFrame(digits.pairs, digits.places))
        return false;
    *result = bcdii::storeFrame({digits.pairs, digits.negative, digits.places});
    return true;
}

/// \p text, a number in \p locale, in the characters that scanNumber knows.
QString withPlainCharacters(const QString &text, const QLocale &locale)
{
    const QChar group = locale.groupSeparator();
    const bool groupsBySpace = group.isSpace(); // people type a plain space for the unbreakable one
    const ushort zero = locale.zeroDigit().unicode();
    QString plain;
    plain.reserve(text.size());
    for (const QChar c : text.trimmed()) {
        if (c == group || (groupsBySpace && c.isSpace()))
            continue;
        if (c == locale.decimalPoint())
            plain.append(QLatin1Char('.'));
        else if (c == locale.negativeSign())
            plain.append(QLatin1Char('-'));
        else if (c == locale.positiveSign())
            plain.append(QLatin1Char('+'));
        else if (c == locale.exponential() || c == QLatin1Char('E'))
            plain.append(QLatin1Char('e'));
        else if (c.unicode() >= zero && c.unicode() <= zero + 9)
            plain.append(QChar(ushort(c.unicode() - zero + '0')));
        else
            plain.append(c);
    }
    // Locales allow more than fromString does: "5." and ".5e3".
    const int point = plain.indexOf(QLatin1Char('.'));
    if (point >= 0) {
        if (point + 1 == plain.size() || !plain.at(point + 1).isDigit())
            plain.remove(point, 1);
        else if (point == 0 || !plain.at(point - 1).isDigit())
            plain.insert(point, QLatin1Char('0'));
    }
    return plain;
}

} // namespace

bool isXDecimalText(QStringView text)
{
    return isReadable(scanNumber(text));
}

XDecimalFault readXDecimal(QStringView text, xdecimal *result, QChar *sign)
{
    bcdii::DigitText digits;
    if (bcdii::readDigits(text, bcdii::DigitEnd::Frame, &digits) && storeDigits(digits, result))
        return XDecimalFault::None;
    const NumberText number = scanNumber(text);
    if (!isReadable(number))
        return XDecimalFault::Text;
    if (sign)
        *sign = number.sign;
    if (store(number, result))
        return XDecimalFault::None;
    return number.form == NumberText::Fraction ? XDecimalFault::Fraction : XDecimalFault::Text;
}

bool readShortXDecimal(const char *text, size_t size, xdecimal *result)
{
    bcdii::DigitText digits;
    return bcdii::readDigits(text, size, bcdii::DigitEnd::Frame, &digits) &&
           storeDigits(digits, result);
}

bool readLocaleXDecimal(const QString &text, const QLocale &locale, xdecimal *result)
{
    // The locale judges the text, where groups may stand above all; the digits are read exactly.
    double judged = 0;
    if (!readLocaleDouble(text, locale, &judged))
        return false;
    return readXDecimal(withPlainCharacters(text, locale), result) == XDecimalFault::None;
}
