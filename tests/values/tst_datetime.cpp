#include <database/values/datetime.h>

#include "valuetest.h"

#include <QtCore/qdatetime.h>

#include <ctime>

namespace
{

const char *const kFormats[] = {"yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd",
                                "yyyy-MM-dd"};
constexpr qint64 kStartOf1 = Q_INT64_C(-62135596800000);
constexpr qint64 kEndOf9999 = Q_INT64_C(253402300800000);

/// Runs a test in a time zone and restores UTC, where QDateTime reads every local time as it is.
class ZoneGuard
{
public:
    explicit ZoneGuard(const char *zone) { set(zone); }
    ~ZoneGuard() { set("UTC"); }

private:
    static void set(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
};

} // namespace

TEST(DateTime, readsExactlyWhatQDateTimeReads)
{
    const ZoneGuard utc("UTC");
    QLocale::setDefault(QLocale::c()); // others may have digits of their own
    const QString alphabet = QStringLiteral("0123456789+-.,: eTxZ\t");
    constexpr quint64 kSeed = 20240131;
    std::mt19937_64 random(kSeed);
    int accepted = 0;
    for (int i = 0; i < 100000; ++i) {
        QString text = QDateTime::fromMSecsSinceEpoch(qint64(random()) % kEndOf9999, Qt::UTC)
                           .toString(QLatin1String(kFormats[random() % 4]));
        for (auto edits = random() % 4; edits > 0 && !text.isEmpty(); --edits) {
            const int place = int(random() % uint(text.size()));
            const QChar letter = alphabet.at(int(random() % uint(alphabet.size())));
            if (random() % 4 == 0)
                text.remove(place, 1);
            else if (random() % 3 == 0)
                text.insert(place, letter);
            else
                text[place] = letter;
        }
        QDateTime expected;
        for (int format = 0; format < 4 && !expected.isValid(); ++format)
            expected = QDateTime::fromString(text, QLatin1String(kFormats[format]));
        expected.setTimeSpec(Qt::UTC);
        accepted += expected.isValid();

        SCOPED_TRACE("seed " + std::to_string(kSeed) + ": " + text.toStdString());
        qint64 msecs = 0;
        ASSERT_EQ(datetime::parse(text.constData(), text.size(), &msecs), expected.isValid());
        ASSERT_EQ(msecs, expected.isValid() ? expected.toMSecsSinceEpoch() : 0);
    }
    EXPECT_GT(accepted, 10000);
    EXPECT_TRUE(datetime(QString("1970-01-01")).isNull()); // the epoch is no date
}

// Clocks skipped 02:30 on these days in Moscow, New York and by the rule that needs no zone files.
TEST(DateTime, noClockChangeMovesADigit)
{
    for (const char *name :
         {"UTC", "Europe/Moscow", "America/New_York", "EST5EDT,M3.2.0,M11.1.0", "XXX-14"}) {
        SCOPED_TRACE(name);
        const ZoneGuard zone(name);
        for (const char *text : {"2011.03.27 02:30:00.000", "2024.03.10 02:30:00.005",
                                 "2024.11.03 01:30:00.000", "1919.07.01 02:00:00.999"})
            EXPECT_EQ(datetime(QString(text)).toString(), QString(text));

        constexpr quint64 kSeed = 86400;
        std::mt19937_64 random(kSeed);
        for (int i = 0; i < 20000; ++i) { // mostly four-digit years, sometimes any 64-bit count
            const auto any = qint64(random());
            const qint64 msecs = random() % 4 ? any % kEndOf9999 : any >> (random() % 24);
            const QString text = datetime(msecs).toString();
            ASSERT_EQ(text, QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC).toString(kFormats[0]))
                << "seed " << kSeed << ": " << msecs;
            if (msecs >= kStartOf1 && msecs < kEndOf9999) {
                ASSERT_EQ(datetime(text).toMSecsSinceEpoch(), msecs) << "seed " << kSeed;
            }
        }
    }
}
