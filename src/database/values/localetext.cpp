#include "database/values/localetext.h"

QString withoutFractionZeros(QString text, const QLocale &locale)
{
    const QChar point = locale.decimalPoint();
    if (!text.contains(point))
        return text;
    // A locale may write its own zero, while plain digits stand in grouped exact texts.
    const QChar zero = locale.zeroDigit();
    int length = text.size();
    while (text.at(length - 1) == QLatin1Char('0') || text.at(length - 1) == zero)
        --length;
    if (text.at(length - 1) == point)
        --length;
    text.truncate(length);
    return text;
}

QString withLocalePoint(QString text, const QLocale &locale)
{
    return text.replace(QLatin1Char('.'), locale.decimalPoint());
}

QString withLocaleGroups(const QString &text, const QLocale &locale)
{
    const int begin = text.startsWith(QLatin1Char('-')) ? 1 : 0;
    const int point = text.indexOf(QLatin1Char('.'));
    const int end = point < 0 ? text.size() : point;

    QString result;
    result.reserve(text.size() + (end - begin) / 3);
    for (int i = 0; i < end; ++i) {
        if (i > begin && (end - i) % 3 == 0)
            result.append(locale.groupSeparator());
        result.append(text.at(i));
    }
    if (point >= 0) {
        result.append(locale.decimalPoint());
        result.append(text.midRef(point + 1));
    }
    return result;
}
