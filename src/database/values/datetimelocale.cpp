// Dates by the conventions of a locale.

#include "database/values/datetime.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qlocale.h>

#include <utility>

namespace
{

const QLatin1String kTimeFormat(" HH:mm:ss.zzz");
constexpr int kFirstShortYear = 1970; // of the hundred years that two digits stand for

/// A text that is taken apart from its front. Marks for the direction of writing do not count.
class Reader
{
public:
    explicit Reader(const QString &text)
        : m_text(text)
    {
    }

    bool atEnd()
    {
        skipMarks();
        return m_at == m_text.size();
    }
    bool take(QChar literal)
    {
        const bool isThere = !atEnd() && (m_text.at(m_at) == literal ||
                                          (literal.isSpace() && m_text.at(m_at).isSpace()));
        m_at += isThere;
        return isThere;
    }
    /// One digit to \p most of them, of any script.
    bool takeNumber(int most, int *number)
    {
        skipMarks();
        const int begin = m_at;
        *number = 0;
        for (; m_at < m_text.size() && m_at - begin < most && m_text.at(m_at).isDigit(); ++m_at)
            *number = *number * 10 + m_text.at(m_at).digitValue();
        return m_at > begin;
    }
    /// The month whose name stands here, the longest where one name begins with another.
    bool takeMonth(const QLocale &locale, QLocale::FormatType format, int *month)
    {
        skipMarks();
        int length = 0;
        for (int i = 1; i <= 12; ++i) {
            for (const QString &name :
                 {locale.monthName(i, format), locale.standaloneMonthName(i, format)}) {
                if (name.size() > length &&
                    m_text.midRef(m_at).startsWith(name, Qt::CaseInsensitive)) {
                    length = name.size();
                    *month = i;
                }
            }
        }
        m_at += length;
        return length > 0;
    }

private:
    void skipMarks()
    {
        while (m_at < m_text.size() && m_text.at(m_at).category() == QChar::Other_Format)
            ++m_at;
    }

    const QString m_text;
    int m_at = 0;
};

struct Fields {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, msecs = 0;
};

bool takeField(Reader &reader, const QLocale &locale, QChar letter, int width, Fields *fields)
{
    switch (letter.unicode()) {
    case 'y':
        if (!reader.takeNumber(width == 2 ? 2 : 4, &fields->year))
            return false;
        if (width == 2)
            fields->year += (fields->year < kFirstShortYear % 100 ? 2000 : 1900);
        return true;
    case 'M':
        return width <= 2
                   ? reader.takeNumber(2, &fields->month)
                   : reader.takeMonth(locale,
                                      width == 3 ? QLocale::ShortFormat : QLocale::LongFormat,
                                      &fields->month);
    case 'd':
        return width <= 2 && reader.takeNumber(2, &fields->day);
    case 'H':
        return reader.takeNumber(2, &fields->hour);
    case 'm':
        return reader.takeNumber(2, &fields->minute);
    case 's':
        return reader.takeNumber(2, &fields->second);
    case 'z':
        return reader.takeNumber(3, &fields->msecs);
    default:
        return reader.take(letter);
    }
}

/// Reads what \p format, in QDateTime's notation, describes.
bool takeFormat(Reader &reader, const QLocale &locale, const QString &format, Fields *fields)
{
    bool isQuoted = false;
    for (int i = 0; i < format.size();) {
        const QChar c = format.at(i);
        int width = 1;
        if (c == QLatin1Char('\'')) {
            isQuoted = !isQuoted;
        } else if (isQuoted) {
            if (!reader.take(c))
                return false;
        } else if (c.category() != QChar::Other_Format) {
            if (c.isLetter()) {
                while (i + width < format.size() && format.at(i + width) == c)
                    ++width;
            }
            if (!takeField(reader, locale, c, width, fields))
                return false;
        }
        i += width;
    }
    return true;
}

} // namespace

QString datetime::toLocaleString(const QLocale &locale) const
{
    if (isNull())
        return QString();
    return locale.toString(toQDateTime(), locale.dateFormat(QLocale::ShortFormat) + kTimeFormat);
}

QString datetime::toSystemString() const
{
    return toLocaleString(QLocale::system());
}

datetime datetime::fromLocaleString(const QString &text, const QLocale &locale, bool *ok)
{
    Reader reader(text);
    Fields fields;
    const bool isRead =
        takeFormat(reader, locale, locale.dateFormat(QLocale::ShortFormat), &fields) &&
        (reader.atEnd() || (takeFormat(reader, locale, kTimeFormat, &fields) && reader.atEnd()));
    const QDate date(fields.year, fields.month, fields.day);
    const QTime time(fields.hour, fields.minute, fields.second, fields.msecs);
    const bool isDate = isRead && fields.year > 0 && date.isValid() && time.isValid();
    if (ok)
        *ok = isDate;
    return isDate ? datetime(QDateTime(date, time, Qt::UTC)) : datetime();
}
