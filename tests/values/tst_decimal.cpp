#include <database/decimal.h>

#include "bcdiimodel.h"
#include "valuetest.h"

#include <QtCore/qdatastream.h>

#include <cmath>
#include <limits>

namespace
{

using Random = std::mt19937_64;

std::string print(const decimal &value)
{
    return std::to_string(value.mantissa()) + " scale " + std::to_string(value.scale());
}

decimal read(const char *text)
{
    return decimal(QString::fromUtf8(text));
}

/// Any word, crowded around small mantissas, powers of ten and the ends of the ranges.
decimal randomDecimal(Random &random)
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
        const char *name, *text, *parts;
    } rows[] = {
        {"empty", "", "0 scale 0"},
        {"places_after_fraction", "-1.5e2", "-15 scale 1"},
        {"largest", "72057594037927935", "72057594037927935 scale 0"},
        {"one_above_largest", "72057594037927936", "7205759403792793 scale -1"},
        {"smallest", "-72057594037927936", "-72057594037927936 scale 0"},
        {"below_smallest", "-72057594037927937", "-7205759403792793 scale -1"},
        {"int64_maximum", "+9223372036854775807", "9223372036854775 scale -3"},
        {"int64_minimum", "-9223372036854775808", "-9223372036854775 scale -3"},
        {"both_parts_of_64_bits", "9223372036854775807.9223372036854775807",
         "9223372036854775 scale -3"},
        {"fraction_of_zeros", "1.00000000000000000000000000000", "10000000000000000 scale 16"},
        {"places_behind_the_last", "1e70", "0 scale 63"},
        {"fraction_behind_the_last",
         "0.0000000000000000000000000000000000000000000000000000000000001239", "123 scale 63"},
        {"places_below_the_first", "15e-70", "15000000 scale -64"},
        {"zero_of_any_exponent", "0e-2147483648", "0 scale -64"},
    };
    for (const auto &[name, text, parts] : rows)
        EXPECT_EQ(print(read(text)), parts) << name;
}

TEST(Decimal, throwsABadTextBack)
{
    expectRefused<decimal>("decimal", "",
                           {"%1 %2", " 1", "1٣", "9223372036854775808", "0.9223372036854775808",
                            "1e2147483648", "1e-2147483648", "720575940379279360e-64"});
    expectRefused<decimal>("decimal", " (-)", {"-9223372036854775808.5"});
    expectRefused<decimal>("decimal", " ()", {"9223372036854775808.5"});
}

TEST(Decimal, readsExactlyWhatThePatternsAccept)
{
    const NumberPatterns patterns;
    const QRegExp pointExponent("([+-]?)(\\d+)[\\.]?(\\d*)e([+-]?\\d+)"),
        commaExponent("([+-]?)(\\d+)[,]?(\\d*)e([+-]?\\d+)");
    constexpr quint64 kSeed = 20151002;
    Random random(kSeed);
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

TEST(Decimal, readsALocalesConventions)
{
    const auto read = [](const char *text) {
        return print(decimal::fromLocaleString(text, QLocale(QLocale::German), 2));
    };
    EXPECT_EQ(read("-1.234,5"), "-123450 scale 2");
    EXPECT_EQ(thrownBy([&] { read("1;5"); }), QString("Error in input local string '1;5'"));
}

TEST(Decimal, fromDoubleRoundsOnlyAboveScaleZero)
{
    EXPECT_EQ(print(decimal::fromDouble(2.5, 0)), "2 scale 0");
    EXPECT_EQ(print(decimal::fromDouble(-1.25, 1)), "-13 scale 1");
    EXPECT_EQ(print(decimal::fromDouble(1999.9, -2)), "19 scale -2");
    EXPECT_EQ(print(decimal::fromDouble(72057594037927928.0, 0)), "72057594037927928 scale 0");
    for (const auto &[value, scale] : {std::pair{1e17, 0},
                                       {72057594037927936.0, 0},
                                       {-HUGE_VAL, 0},
                                       {std::nan(""), 0},
                                       {1e-70, 64},
                                       {1.0, -65}})
        EXPECT_EQ(thrownBy([v = value, s = short(scale)] { decimal::fromDouble(v, s); }),
                  QStringLiteral("decimal:overflow"))
            << value;
}

TEST(Decimal, fromPartsCutsAndFitsTheScale)
{
    EXPECT_EQ(print(decimal::fromParts(std::numeric_limits<qint64>::min(), 2)),
              "-9223372036854775 scale -1");
    EXPECT_EQ(print(decimal::fromParts(-1299, 65)), "-12 scale 63");
    EXPECT_EQ(print(decimal::fromParts(12, -66)), "1200 scale -64");
    EXPECT_EQ(thrownBy([] { decimal::fromParts(1, -81); }), QStringLiteral("decimal:overflow"));
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
        {"carry", "9.995", 2, "1000 scale 2"},
        {"stops_at_the_mantissa_limit", "-7.3", 63, "-7300000000000000 scale 15"},
        {"zero_takes_any_scale", "0", 63, "0 scale 63"},
        {"out_of_range_up", "0.0", 1000, "0 scale 63"},
        {"out_of_range_down", "7", -1000, "0 scale -64"},
        {"last_digit_rounds", "-72057594037927936", -17, "-1 scale -17"},
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
    Random random(kSeed);
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

TEST(Decimal, writesItsTextThroughADouble)
{
    const auto textThroughDouble = [](const decimal &value) {
        const double magnitude = std::abs(double(value.mantissa()));
        const int scale = value.scale();
        QString text = QString::number(magnitude, 'f', 0).rightJustified(scale + 1, '0');
        if (scale > 0)
            text.insert(text.size() - scale, '.');
        else
            text = QString::number(qAbs(value.mantissa())) +
                   QString(value.mantissa() == 0 ? 0 : -scale, '0');
        return value.mantissa() < 0 ? '-' + text : text;
    };
    constexpr quint64 kSeed = 11;
    Random random(kSeed);
    for (int i = 0; i < 100000; ++i) {
        const decimal value = randomDecimal(random);
        ASSERT_EQ(value.toString(), textThroughDouble(value)) << "seed " << kSeed << print(value);
    }
    EXPECT_EQ(read("720575940379279.33").toString(), QStringLiteral("720575940379279.36"));
    EXPECT_EQ(read("720575940379279.33").toExactString(), QStringLiteral("720575940379279.33"));
}

TEST(Decimal, convertsToTheNearestDouble)
{
    EXPECT_EQ(read("-123.456").toDouble(), -123.456);
    EXPECT_EQ(decimal::fromParts(4503599627370497, 0).toDouble(), 4503599627370497.0);
    EXPECT_EQ(decimal::fromParts(3, -40).toDouble(), 3 / std::pow(10.0, -40));
    EXPECT_EQ(decimal::fromParts(3, 63).toDouble(), 3 / std::pow(10.0, 63));
}

TEST(Decimal, convertsFromVariants)
{
    const struct {
        QVariant variant;
        const char *printed;
        bool ok;
    } rows[] = {
        {read("1.50").toVariant(), "150 scale 2", true},
        {7, "700000 scale 5", true},
        {7u, "700000 scale 5", true},
        {Q_INT64_C(7), "700000 scale 5", true},
        {Q_UINT64_C(7), "700000 scale 5", true},
        {7.0, "700000 scale 5", true},
        {"12e1", "12 scale 1", true},
        {QVariant(), "0 scale 0", true},
        {true, "0 scale 0", false},
    };
    for (const auto &[variant, printed, expected] : rows) {
        bool ok = !expected;
        EXPECT_EQ(print(decimal::fromVariant(variant, &ok)), printed) << variant.typeName();
        EXPECT_EQ(ok, expected) << variant.typeName();
    }
    EXPECT_TRUE(decimal::canConvert(decimal().toVariant()));
    EXPECT_TRUE(decimal::canConvert(QVariant("1,5")));
    EXPECT_FALSE(decimal::canConvert(QVariant("")));
    EXPECT_FALSE(decimal::canConvert(QVariant(5)));
    EXPECT_TRUE(decimal::canConvert(QString(), true));
    EXPECT_STREQ(QMetaType::typeName(decimal::metatypeId()), "decimal");
}

TEST(Decimal, streamsItsWord)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << read("-1.5");
    EXPECT_EQ(bytes.toHex(), QByteArray("81fffffffffffff1"));
    decimal value;
    QDataStream in(bytes);
    in >> value;
    EXPECT_EQ(print(value), "-15 scale 1");
}
