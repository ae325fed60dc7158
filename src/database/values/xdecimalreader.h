#pragma once

#include <QtCore/qstring.h>
#include <QtCore/qstringview.h>

class QLocale;
class xdecimal;

/// The reading of xdecimal texts; xdecimal turns the faults into its messages.

/// Why a text is no xdecimal.
enum class XDecimalFault {
    None,
    Text,    ///< no number at all, or an integer or exponent form that does not fit
    Fraction ///< a fraction that does not fit
};

/// Whether \p text has one of the forms that xdecimal::fromString lists.
bool isXDecimalText(QStringView text);

/// Reads \p text as xdecimal::fromString does, exactly or not at all.
/// \param[out] result  left alone on a fault
/// \param[out] sign    where a fraction does not fit, its sign, null without one; may be null
/// itself
XDecimalFault readXDecimal(QStringView text, xdecimal *result, QChar *sign = nullptr);

/// Reads ASCII text that is an integer or a fraction of few digits, which nearly all are.
/// \return false, leaving \p result alone, for every other one: readXDecimal knows what it is
bool readShortXDecimal(const char *text, size_t size, xdecimal *result);

/// Reads \p text by the conventions of \p locale; false, leaving \p result alone, when it is no
/// number there or does not fit exactly.
bool readLocaleXDecimal(const QString &text, const QLocale &locale, xdecimal *result);
