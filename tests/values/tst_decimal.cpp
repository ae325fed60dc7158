#include <database/decimal.h>

#include "bcdiimodel.h"
#include "valuetest.h"

#include <cmath>
#include <limits>

namespace
{

std::string print(const decimal &value)
{
    return std::to_string(value.mantissa()) + " scale " + std::to_string(value.scale());
}

decimal read(const char *text)
{
    return decimal(QString::fromUtf8(text));
}

/// Any word, crowded around small mantissas, powers of ten and the ends of the ranges.
decimal randomDecimal(std::mt19937_64 &random)
{
    qint64 mantissa = qint64(random()) >> (7 + random() % 57);
    if (random() % 4 == 0)
        mantissa = qint64(std::pow(10.0, double(random() % 17))) + qint64(random() % 3) - 1;
    if (random() % 16 == 0)
        mantissa = decimal::kMaxMantissa - qint64(random() % 2);
    if (random() % 2)
        mantissa = random() % 16 ? -mantissa : decimal::kMinMantissa;
    const int spread = random() % 2 ? 128 : 20;
    return decimal::fromParts(mantissa, short(int(random() % uint(spread)) - spread / 2));
}

} // namespace

// Short texts are read at random below; these stand at the ends of the ranges.
TEST(Decimal, readsMantissaAndScale)
{
    const struct {
        const char *text, *parts;
    } rows[] = {
        {"-1.5e2", "-15 scale 1"},
        {"72057594037927935", "72057594037927935 scale 0"},
        {"72057594037927936", "7205759403792793 scale -1"},
        {"-72057594037927937", "-7205759403792793 scale -1"},
        {"9223372036854775807.9223372036854775807", "9223372036854775 scale -3"},
        {"1e70", "0 scale 63"},
        {"0.0000000000000000000000000000000000000000000000000000000000001239", "123 scale 63"},
        {"15e-70", "15000000 scale -64"},
    };
    for (const auto &[text, parts] : rows)
        EXPECT_EQ(print(read(text)), parts) << text;
}

TEST(Decimal, readsExactlyWhatThePatternsAccept)
{
    const NumberPatterns patterns;
    const QRegExp pointExponent("([+-]?)(\\d+)[\\.]?(\\d*)e([+-]?\\d+)"),
        commaExponent("([+-]?)(\\d+)[,]?(\\d*)e([+-]?\\d+)");
    constexpr quint64 kSeed = 20151002;
    std::mt19937_64 random(kSeed);
    int accepted = 0;
    for (int i = 0; i < 200000; ++i) {
        const QString text = numberLikeText(random);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", text " + text.toStdString());
        const QRegExp *form = nullptr;
        for (const QRegExp *pattern : {&patterns.integer, &patterns.point, &pointExponent})
            if (!form && pattern->exactMatch(text))
                form = pattern;
        ASSERT_EQ(decimal::canConvert(text, false),
                  form || patterns.comma.exactMatch(text) || commaExponent.exactMatch(text));
        if (form && qAbs(form->cap(4).toInt()) > 50)
            continue; // outside what the model below covers
        std::string parts;
        thrownBy([&] { parts = print(decimal::fromString(text)); });
        ASSERT_EQ(parts.empty(), !form);
        if (!form)
            continue;
        ++accepted;
        const QString fraction = form->cap(3); // as the exponent, empty where a form has none
        const int places =
            form == &pointExponent ? form->cap(4).toInt() - fraction.size() : fraction.size();
        const qint64 mantissa = (form->cap(1) + form->cap(2) + fraction).toLongLong();
        ASSERT_EQ(parts, std::to_string(mantissa) + " scale " + std::to_string(places));
    }
    EXPECT_GT(accepted, 10000);
}

TEST(Decimal, throwsABadTextBack)
{
    const auto message = [](const QString &text) {
        return thrownBy([&] { decimal::fromString(text); });
    };
    const QString refused = QStringLiteral("Невозможно создать decimal по строке '%1'");
    for (const char *text :
         {"1,5", "12a", " 1", "1İ2", "1.2.3", "+", "-.", "100000000000000000000000000000001",
          "9223372036854775808", "1.9223372036854775808"})
        EXPECT_EQ(message(text), refused.arg(text)) << text;
    EXPECT_EQ(message("-9223372036854775808.5"),
              refused.arg("-9223372036854775808.5") + QStringLiteral(" (-)"));
    EXPECT_EQ(thrownBy([] { decimal::fromLocaleString("1.2.3", QLocale::c(), 2); }),
              QStringLiteral("Error in input local string '1.2.3'"));
}

TEST(Decimal, fromDoubleRoundsOnlyAboveScaleZero)
{
    EXPECT_EQ(print(decimal::fromDouble(2.5, 0)), "2 scale 0");
    EXPECT_EQ(print(decimal::fromDouble(-1.25, 1)), "-13 scale 1");
    EXPECT_EQ(print(decimal::fromDouble(1999.9, -2)), "19 scale -2");
    EXPECT_EQ(read("-123.456").toDouble(), -123.456);
    for (const double value : {72057594037927936.0, -HUGE_VAL, std::nan("")})
        EXPECT_EQ(thrownBy([&] { decimal::fromDouble(value, 0); }), QString("decimal:overflow"))
            << value;
}

TEST(Decimal, setScaleTruncatesAllDroppedDigitsButTheFirst)
{
    const struct {
        const char *name, *text;
        short scale;
        const char *rescaled;
    } rows[] = {
        {"second_dropped_digit_ignored", "1.049", 1, "10 scale 1"},
        {"negative_tie_away_from_zero", "-2.35", 1, "-24 scale 1"},
        {"stops_at_the_mantissa_limit", "-7.3", 63, "-7300000000000000 scale 15"},
        {"out_of_range_down", "7", -1000, "0 scale -64"},
        {"beyond_all_digits", "72057594037927935", -19, "0 scale -19"},
    };
    for (const auto &[name, text, scale, rescaled] : rows) {
        decimal value = read(text);
        value.setScale(scale);
        EXPECT_EQ(print(value), rescaled) << name;
    }
}

TEST(Decimal, comparesByExactValueAcrossAllScales)
{
    constexpr quint64 kSeed = 7;
    std::mt19937_64 random(kSeed);
    const auto inLastPlaces = [](const decimal &value) {
        return mpz_class(static_cast<long>(value.mantissa()) *
                         bcdiimodel::powerOfTen(decimal::kMaxScale - value.scale()));
    };
    int equal = 0;
    for (int i = 0; i < 200000; ++i) {
        const decimal a = randomDecimal(random);
        decimal b = randomDecimal(random);
        if (i % 4 == 0) { // the same value at another scale, or its neighbour
            b = a;
            b.setScale(short(a.scale() + int(random() % 24) - 8));
            if (b.scale() < decimal::kMaxScale && b.mantissa() > 0 && random() % 2)
                b = decimal::fromParts(b.mantissa() - 1, b.scale());
        }
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ": " + print(a) + " and " + print(b));
        const int expected = sgn(inLastPlaces(a) - inLastPlaces(b));
        ASSERT_EQ(a.compare(b), expected);
        ASSERT_EQ(b.compare(a), -expected);
        if (expected == 0) {
            ++equal;
            ASSERT_EQ(qHash(a, 5), qHash(b, 5));
        }
    }
    EXPECT_GT(equal, 1000);
}

TEST(Decimal, textsKeepEveryDigitAndEveryPlace)
{
    const auto written = [](qint64 mantissa, int scale) {
        QString digits = QString::number(qAbs(mantissa));
        if (scale > 0) {
            digits = digits.rightJustified(scale + 1, '0');
            digits.insert(digits.size() - scale, '.');
        } else if (mantissa != 0) {
            digits += QString(-scale, '0');
        }
        return (mantissa < 0 ? "-" : "") + digits;
    };
    constexpr quint64 kSeed = 17;
    std::mt19937_64 random(kSeed);
    for (int i = 0; i < 100000; ++i) {
        const decimal value = randomDecimal(random);
        const int scale = value.scale();
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ": " + print(value));
        const QString text = written(value.mantissa(), scale);
        ASSERT_EQ(value.toExactString(), text);
        const auto throughDouble = qint64(double(value.mantissa()));
        ASSERT_EQ(value.toString(), written(scale > 0 ? throughDouble : value.mantissa(), scale));
        if (scale < 0)
            continue; // reads with zeros in place of digits
        ASSERT_EQ(decimal(text).word(), value.word());
        const int first = text.startsWith('-') ? 1 : 0;
        const bool bare = text.midRef(first).startsWith(QString("0.")); // may lose its 0
        const QString other =
            QString(text).replace(first, bare ? 1 : 0, QString(int(random() % 8), '0'));
        ASSERT_EQ(decimal(other).word(), value.word()) << other.toStdString();
    }
}

TEST(Decimal, writesItsTextThroughADouble)
{
    EXPECT_EQ(read("-0.050").toString(), QString("-0.050"));
    EXPECT_EQ(decimal::fromParts(-72057594037927935, -3).toString(),
              QString("-72057594037927935000"));
    EXPECT_EQ(read("720575940379279.33").toString(), QString("720575940379279.36"));
    EXPECT_EQ(read("720575940379279.33").toExactString(), QString("720575940379279.33"));
}
