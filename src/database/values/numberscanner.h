#pragma once

#include <QtCore/qstringview.h>

/// A number's text cut into its parts, the one reading that decimal and xdecimal share.
///
/// Recognised, always as the whole text, in these forms only:
///  - Integer: an optional sign and digits;
///  - Fraction: an optional sign, digits or none, "." or ",", digits;
///  - Exponent: an optional sign, digits, "." or "," or neither, digits or none, "e", an optional
///    sign, digits.
/// Digits are the ten ASCII ones: other scripts' digits would not convert to a number afterwards.
/// "E" is not an exponent. The views point into the scanned text.
struct NumberText {
    enum Form { None, Integer, Fraction, Exponent };

    Form form = None;
    QChar sign;           ///< "+", "-" or null when there is none
    QChar separator;      ///< ".", "," or null when there is none
    QStringView integer;  ///< digits before the separator, without the sign
    QStringView fraction; ///< digits behind the separator
    QStringView exponent; ///< what follows "e", its sign included

    bool isNegative() const { return sign == QLatin1Char('-'); }
};

/// Cuts \p text into its parts; the form is None when it is no number.
NumberText scanNumber(QStringView text);

/// Whether ASCII \p digits (none count as 0) with that sign are within the 64-bit integers.
bool fitsInt64(QStringView digits, bool negative);

/// Converts an optional sign and ASCII digits to a 32-bit integer; false when out of range.
bool readInt32(QStringView text, int *value);

/// ASCII digits without their leading zeros.
QStringView withoutLeadingZeros(QStringView digits);
