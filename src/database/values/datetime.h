#pragma once

#include "database/database_global.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qmetatype.h>
#include <QtCore/qstring.h>

class QLocale;

/// A date and time of day to the millisecond, without a time zone, in one 64-bit integer.
///
/// What is always true:
///  (1) The value is the wall-clock time read as if it were UTC: milliseconds since 1970-01-01
///      00:00:00.000, negative before. Dates follow the Gregorian calendar, also before its
///      introduction.
///  (2) 0 means "no date"; the first millisecond of 1970 therefore cannot be stored.
///  (3) Nothing here depends on the machine's time zone: a value prints the digits it was read
///      from, also for a time that the zone's clock changes skip.
///
/// No function throws, and all may be called from any thread.
class DATABASE_EXPORT datetime
{
public:
    /// No date.
    constexpr datetime() = default;
    explicit constexpr datetime(qint64 msecs)
        : m_msecs(msecs)
    {
    }
    /// As parse; no date when the text fits no format.
    explicit datetime(const QString &text);
    explicit datetime(const QStringRef &text);
    /// The clock reading that \p shown has in its own time zone; no date when it is not valid.
    explicit datetime(const QDateTime &shown);

    static constexpr datetime fromMSecsSinceEpoch(qint64 msecs) { return datetime(msecs); }

    /// Reads "yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd" or "yyyy-MM-dd", the
    /// whole text. Years are 0001..9999. Every field has all its digits (ASCII); a "+" may stand in
    /// place of a field's first digit.
    /// \param[out] msecs  left alone when the result is false
    /// \return false when the text fits no format or is no date
    static bool parse(const QChar *text, int length, qint64 *msecs);

    /// The format of toString, in QDateTime's notation: "yyyy.MM.dd HH:mm:ss.zzz".
    static QString defaultFormat();

    /// Appends the text of \p msecs by the default format; nothing for 0.
    static void appendText(QString *text, qint64 msecs);

    constexpr qint64 toMSecsSinceEpoch() const { return m_msecs; }
    constexpr bool isNull() const { return m_msecs == 0; }

    /// Text by the default format, a null string for no date. Years before 1 have a minus sign, the
    /// year before 1 being -0001; years beyond four digits are written in full. Texts of both kinds
    /// cannot be read again.
    QString toString() const;
    /// Text in the locale's short date format followed by the time "HH:mm:ss.zzz"; a null string
    /// for no date.
    QString toLocaleString(const QLocale &locale) const;
    /// toLocaleString with the system locale.
    QString toSystemString() const;
    /// Reads what toLocaleString writes in that locale; the time may be missing, digits may be the
    /// locale's or ASCII ones. Where the format has two digits of the year, these are 1970..2069.
    /// \param[out] ok  whether it is such a text; may be null
    /// \return no date for every other text
    static datetime fromLocaleString(const QString &text, const QLocale &locale,
                                     bool *ok = nullptr);

    /// This clock reading, labelled UTC; for no date as well, which is the start of 1970 there.
    QDateTime toQDateTime() const;

    /// The id of this type, named "datetime", in Qt's meta-type system.
    static int metatypeId();

    friend constexpr bool operator==(datetime a, datetime b) { return a.m_msecs == b.m_msecs; }
    friend constexpr bool operator!=(datetime a, datetime b) { return a.m_msecs != b.m_msecs; }
    friend constexpr bool operator<(datetime a, datetime b) { return a.m_msecs < b.m_msecs; }
    friend constexpr bool operator<=(datetime a, datetime b) { return a.m_msecs <= b.m_msecs; }
    friend constexpr bool operator>(datetime a, datetime b) { return a.m_msecs > b.m_msecs; }
    friend constexpr bool operator>=(datetime a, datetime b) { return a.m_msecs >= b.m_msecs; }

private:
    qint64 m_msecs = 0; // invariant (1)
};

DATABASE_EXPORT uint qHash(datetime value, uint seed = 0);

Q_DECLARE_TYPEINFO(datetime, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(datetime)
