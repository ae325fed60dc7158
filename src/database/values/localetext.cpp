#include "database/values/localetext.h"

#include <algorithm>
#include <iterator>

namespace
{

bool groupsByTwo(const QLocale &locale)
{
    const QString text = locale.toString(qlonglong(100000)); // 1,00,000 or 100,000
    return text.indexOf(locale.groupSeparator()) == 1;
}

bool isGroupSeparator(QChar c, const QLocale &locale)
{
    const QChar group = locale.groupSeparator();
    return c == group || (group.isSpace() && c.isSpace());
}

} // namespace

bool readLocaleDouble(const QString &text, const QLocale &locale, double *value)
{
    bool isNumber = false;
    double read = locale.toDouble(text, &isNumber);
    if (!isNumber) {
        const QString plain = withoutLocaleGroups(text, locale);
        if (!plain.isNull())
            read = locale.toDouble(plain, &isNumber);
    }
    if (isNumber)
        *value = read;
    return isNumber;
}

QString withoutLocaleGroups(const QString &text, const QLocale &locale)
{
    // From the end of the whole digits to their front.
    int at = 0;
    while (at < text.size() && !text.at(at).isDigit())
        ++at;
    const int begin = at;
    while (at < text.size() && (text.at(at).isDigit() || isGroupSeparator(text.at(at), locale)))
        ++at;
    int size = 0;    // of the group
    int between = 0; // the size of those between two separators; 0 while there is none
    int separators = 0;
    for (int i = at - 1; i >= begin; --i) {
        if (text.at(i).isDigit()) {
            ++size;
            continue;
        }
        const bool fits = separators == 0 ? size == 3
                          : between == 0  ? size == 3 || (size == 2 && groupsByTwo(locale))
                                          : size == between;
        if (!fits)
            return QString();
        if (separators > 0)
            between = size;
        ++separators;
        size = 0;
    }
    if (separators == 0 || size == 0 || size > (between == 0 ? 3 : between))
        return QString();
    QString plain = text.left(begin);
    std::copy_if(text.begin() + begin, text.begin() + at, std::back_inserter(plain),
                 [](QChar c) { return c.isDigit(); });
    return plain + text.midRef(at);
}

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
