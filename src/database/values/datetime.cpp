#include "database/values/datetime.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qhash.h>

#include <algorithm>
#include <charconv>
#include <iterator>

static_assert(sizeof(datetime) == 8, "a datetime is one 64-bit integer");

namespace
{

constexpr qint64 kMSecsPerDay = 86400000;

/// A day of the proleptic Gregorian calendar. Years are astronomical: 0 precedes 1.
struct CivilDate {
    qint64 year;
    int month;
    int day;
};

// The two conversions count days in eras of 400 years of 146097 days that begin on the first of
// March, which puts the leap day last. 719468 days lie between 0000-03-01 and 1970-01-01.
// See Howard Hinnant, "chrono-Compatible Low-Level Date Algorithms", days_from_civil and
// civil_from_days.

qint64 daysFromCivil(CivilDate date)
{
    const qint64 year = date.year - (date.month <= 2);
    const qint64 era = (year >= 0 ? year : year - 399) / 400;
    const qint64 yearOfEra = year - era * 400;
    const qint64 dayOfYear = (153 * ((date.month + 9) % 12) + 2) / 5 + date.day - 1;
    const qint64 dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

CivilDate civilFromDays(qint64 days)
{
    days += 719468;
    const qint64 era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = quint32(days - era * 146097);
    const quint32 yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const quint32 dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const quint32 monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int month = int(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
    return {qint64(yearOfEra) + era * 400 + (month <= 2), month,
            int(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1)};
}

int daysInMonth(int year, int month)
{
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return month == 2 && leap ? 29 : kDays[month - 1];
}

/// The number in a field of fixed width, or -1. QDateTime takes a "+" for a field's first digit,
/// and so does this.
int readField(const QChar *text, int width)
{
    int value = 0;
    for (int i = text[0] == QLatin1Char('+'); i < width; ++i) {
        const uint digit = uint(text[i].unicode()) - '0';
        if (digit > 9)
            return -1;
        value = value * 10 + int(digit);
    }
    return value;
}

bool readDate(const QChar *text, QChar separator, qint64 *days)
{
    if (text[4] != separator || text[7] != separator)
        return false;
    const int year = readField(text, 4);
    const int month = readField(text + 5, 2);
    const int day = readField(text + 8, 2);
    if (year < 1 || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month))
        return false;
    *days = daysFromCivil({year, month, day});
    return true;
}

/// Reads "HH:mm:ss", as milliseconds.
bool readTime(const QChar *text, int *msecs)
{
    if (text[2] != QLatin1Char(':') || text[5] != QLatin1Char(':'))
        return false;
    const int hour = readField(text, 2);
    const int minute = readField(text + 3, 2);
    const int second = readField(text + 6, 2);
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59)
        return false;
    *msecs = ((hour * 60 + minute) * 60 + second) * 1000;
    return true;
}

/// Writes \p number with leading zeros to \p width digits and returns the end.
char *putField(char *out, int number, int width)
{
    for (int i = width - 1; i >= 0; --i, number /= 10)
        out[i] = char('0' + number % 10);
    return out + width;
}

char *putYear(char *out, char *end, qint64 astronomicalYear)
{
    // The calendar has no year 0.
    qint64 year = astronomicalYear;
    if (year <= 0) {
        *out++ = '-';
        year = 1 - year;
    }
    return year < 10000 ? putField(out, int(year), 4) : std::to_chars(out, end, year).ptr;
}

} // namespace

datetime::datetime(const QString &text)
{
    parse(text.constData(), text.size(), &m_msecs);
}

datetime::datetime(const QStringRef &text)
{
    parse(text.constData(), text.size(), &m_msecs);
}

datetime::datetime(const QDateTime &shown)
{
    if (shown.isValid())
        m_msecs = QDateTime(shown.date(), shown.time(), Qt::UTC).toMSecsSinceEpoch();
}

QDateTime datetime::toQDateTime() const
{
    return QDateTime::fromMSecsSinceEpoch(m_msecs, Qt::UTC);
}

bool datetime::parse(const QChar *text, int length, qint64 *msecs)
{
    // The length and the first separator tell the four formats apart.
    constexpr int kDateLength = 10;
    constexpr int kSecondsLength = 19;
    constexpr int kMSecsLength = 23;
    if (length != kDateLength && length != kSecondsLength && length != kMSecsLength)
        return false;

    const bool dotted = length == kMSecsLength || (length == kDateLength && text[4] == u'.');
    qint64 days = 0;
    if (!readDate(text, dotted ? u'.' : u'-', &days))
        return false;

    int timeOfDay = 0;
    if (length > kDateLength) {
        if (text[kDateLength] != u' ' || !readTime(text + kDateLength + 1, &timeOfDay))
            return false;
    }
    if (length == kMSecsLength) {
        const int fraction = readField(text + kSecondsLength + 1, 3);
        if (text[kSecondsLength] != u'.' || fraction < 0)
            return false;
        timeOfDay += fraction;
    }
    *msecs = days * kMSecsPerDay + timeOfDay;
    return true;
}

QString datetime::defaultFormat()
{
    return QStringLiteral("yyyy.MM.dd HH:mm:ss.zzz");
}

void datetime::appendText(QString *text, qint64 msecs)
{
    if (msecs == 0)
        return;
    qint64 days = msecs / kMSecsPerDay;
    auto timeOfDay = int(msecs % kMSecsPerDay);
    if (timeOfDay < 0) {
        timeOfDay += int(kMSecsPerDay);
        --days;
    }
    const CivilDate date = civilFromDays(days);

    char buffer[40];
    char *out = putYear(buffer, std::end(buffer), date.year);
    *out++ = '.';
    out = putField(out, date.month, 2);
    *out++ = '.';
    out = putField(out, date.day, 2);
    *out++ = ' ';
    out = putField(out, timeOfDay / 3600000, 2);
    *out++ = ':';
    out = putField(out, timeOfDay / 60000 % 60, 2);
    *out++ = ':';
    out = putField(out, timeOfDay / 1000 % 60, 2);
    *out++ = '.';
    out = putField(out, timeOfDay % 1000, 3);
    text->append(QLatin1String(buffer, int(out - buffer)));
}

QString datetime::toString() const
{
    QString text;
    appendText(&text, m_msecs);
    return text;
}

int datetime::metatypeId()
{
    return qMetaTypeId<datetime>();
}

uint qHash(datetime value, uint seed)
{
    return qHash(value.toMSecsSinceEpoch(), seed);
}
