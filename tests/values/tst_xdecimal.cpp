#include <database/xdecimal.h>

#include "bcdiimodel.h"
#include "valuetest.h"

#include <QtCore/qdatastream.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

xdecimal fromBytes(BCDIIType type, const bcdiimodel::Bytes &digits)
{
    uchar bytes[16] = {uchar(type), uchar(type >> 8)};
    std::copy(digits.begin(), digits.end(), bytes + 2);
    xdecimal value;
    std::memcpy(&value, bytes, sizeof bytes);
    return value;
}

xdecimal null()
{
    return fromBytes(0x1A02, {101});
}

} // namespace

TEST(XDecimal, readsEveryDigit)
{
    const struct {
        const char *name, *text, *printed;
    } rows[] = {
        {"negative_zero", "-0.00", "0.00"},
        {"no_integer_digits", "-.5", "-0.5"},
        {"comma", "+12,50", "12.50"},
        {"all_digits", "-123456789012345678901234.56", "-123456789012345678901234.56"},
        {"leading_zeros", "0000000000000000000000000000000000000000000000000000000001", "1"},
        {"last_place", "0.00000000000000000000000000000000000000000000000000000000000001",
         "0.00000000000000000000000000000000000000000000000000000000000001"},
        {"power_within_fraction", "-1.255e+2", "-125.5"},
        {"power_keeps_places", "1.50e1", "15.0"},
        {"negative_power_below_the_digits", "-1e-5", "-0.00001"},
        {"largest_power_of_ten", "1e25", "10000000000000000000000000"},
        {"zero_of_any_power", "0e999999999", "0"},
    };
    for (const auto &[name, text, printed] : rows) {
        SCOPED_TRACE(name);
        const QString string = text, expected = printed;
        const xdecimal value{QStringRef(&string)};
        EXPECT_EQ(value.toString(), expected);
        const int point = expected.indexOf('.');
        EXPECT_EQ(value.scale(), point < 0 ? 0 : expected.size() - 1 - point);
        EXPECT_EQ(xdecimal(text).compare(value), 0);
        EXPECT_EQ(BCDIICheck(value.data()) & BCDII_MALFORMED, 0u);
    }
}

TEST(XDecimal, throwsABadTextBack)
{
    expectRefused<xdecimal>("xdecimal", "",
                            {"", "%1 %2", "1,5e5", "100000000000000000000000000", "1e26",
                             "1e2147483647", "1e2147483648", "1e-63"});
    expectRefused<xdecimal>("xdecimal", " (-)", {"-1.00000000000000000000000000"});
    expectRefused<xdecimal>("xdecimal", " ()", {"1,00000000000000000000000000"});
}

TEST(XDecimal, readsExactlyWhatThePatternsAccept)
{
    const NumberPatterns patterns;
    const QRegExp exponent("(([+-]?\\d+)|([+-]?\\d+)(\\.?)(\\d+))(e)([+-]?\\d+)");
    constexpr quint64 kSeed = 20151002;
    std::mt19937_64 random(kSeed);
    int read = 0;
    for (int i = 0; i < 100000; ++i) {
        const QString text = numberLikeText(random);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", text " + text.toStdString());
        const bool scaled = exponent.exactMatch(text);
        const bool expected = scaled || patterns.integer.exactMatch(text) ||
                              patterns.point.exactMatch(text) || patterns.comma.exactMatch(text);
        ASSERT_EQ(xdecimal::canConvert(text, false), expected);
        xdecimal value;
        const QString thrown = thrownBy([&] { value = xdecimal::fromString(text); });
        if (!expected || thrown.contains(text)) {
            ASSERT_TRUE(!expected || scaled) << thrown.toStdString(); // too large a power
            continue;
        }
        ++read;
        const double number = QString(text).replace(',', '.').toDouble();
        ASSERT_NEAR(value.toDouble(), number, std::abs(number) * 1e-14);
    }
    EXPECT_GT(read, 5000);
}

TEST(XDecimal, readsALocalesConventionsExactly)
{
    const QLocale german(QLocale::German), russian(QLocale::Russian), arabic("ar_EG");
    const auto read = [](const char *text, const QLocale &locale) {
        return xdecimal::fromLocaleString(QString::fromUtf8(text), locale).toString();
    };
    EXPECT_EQ(read("-12.345.678.901.234.567,89", german), QString("-12345678901234567.89"));
    EXPECT_EQ(read(" 1 234,50 ", russian), QString("1234.50"));
    EXPECT_EQ(read(",5E3", german), QString("500"));
    EXPECT_EQ(read("7,", german), QString("7"));
    EXPECT_EQ(read("١٢٫٥", arabic), QString("12.5"));
    for (const char *bad : {"1.5", "nan", "", "1e30"})
        EXPECT_EQ(thrownBy([&] { read(bad, german); }),
                  QStringLiteral("Error in input local string '%1'").arg(bad));
}

TEST(XDecimal, convertsFromNumbers)
{
    const QString overflow = QStringLiteral("xdecimal:overflow");
    EXPECT_EQ(xdecimal::fromDouble(-2.345, 2).toString(), QString("-2.35"));
    EXPECT_EQ(xdecimal::fromDouble(1250, -2).scale(), -2);
    EXPECT_EQ(xdecimal::fromDouble(1250, -2).toString(), QString("1300"));
    EXPECT_EQ(xdecimal::fromDouble(std::nan(""), 2).toString(), QString("0.00"));
    EXPECT_EQ(xdecimal::fromInt64(std::numeric_limits<qint64>::min(), 3).toString(),
              QString("-9223372036854775.808"));
    for (const double value : {1e24, HUGE_VAL, -HUGE_VAL})
        EXPECT_EQ(thrownBy([=] { xdecimal::fromDouble(value, 3); }), overflow) << value;
    for (const short scale : {-63, 63, 1000}) {
        EXPECT_EQ(thrownBy([=] { xdecimal::fromDouble(0, scale); }), overflow) << scale;
        EXPECT_EQ(thrownBy([=] { xdecimal::fromInt64(0, scale); }), overflow) << scale;
    }
    EXPECT_TRUE(std::isnan(null().toDouble()));
}

TEST(XDecimal, convertsFromVariantsExactly)
{
    const struct {
        QVariant variant;
        const char *printed;
        bool ok;
    } rows[] = {
        {std::numeric_limits<quint64>::max(), "18446744073709551615.00000", true},
        {-7, "-7.00000", true},
        {0.1, "0.10000", true},
        {"1,5", "1.5", true},
        {xdecimal("1.50").toVariant(), "1.50", true},
        {QVariant(), "0", true},
        {false, "0", false},
    };
    for (const auto &[variant, printed, expected] : rows) {
        bool ok = !expected;
        EXPECT_EQ(xdecimal::fromVariant(variant, &ok).toString(), QString(printed));
        EXPECT_EQ(ok, expected) << printed;
    }
    EXPECT_TRUE(xdecimal::canConvert(QVariant("1e5")));
    EXPECT_FALSE(xdecimal::canConvert(QVariant(5)));
    EXPECT_STREQ(QMetaType::typeName(xdecimal::metatypeId()), "xdecimal");
}

TEST(XDecimal, setScaleRoundsHalfUpOrRefuses)
{
    xdecimal value("-2.345");
    value.setScale(2);
    EXPECT_EQ(value.toString(), QString("-2.35"));
    value.setScale(24);
    EXPECT_EQ(value.toString(), QString("-2.350000000000000000000000"));
    const QString refusal = QStringLiteral("xdecimal:bad operand");
    for (const short scale : {26, 63, -63, 1000})
        EXPECT_EQ(thrownBy([&] { value.setScale(scale); }), refusal) << scale;
    EXPECT_EQ(value.scale(), 24);
    EXPECT_EQ(thrownBy([] { null().setScale(2); }), refusal);
}

TEST(XDecimal, rangeEndsInNinesAtTheLowestScale)
{
    const QString nines = QString(26, '9') + QString(62, '0');
    EXPECT_EQ(xdecimal::maximum().toString(), nines);
    EXPECT_EQ(xdecimal::minimum().toString(), '-' + nines);
    EXPECT_LT(xdecimal::minimum(), xdecimal("-99999999999999999999999999"));
    EXPECT_EQ(-xdecimal::minimum(), xdecimal::maximum());
}

TEST(XDecimal, arithmeticIsExactOrRoundedAtTheLastPlaceThatFits)
{
    using namespace bcdiimodel;
    const QString overflow = QStringLiteral("xdecimal:overflow");
    EXPECT_EQ((xdecimal("1.50") * xdecimal("0.5")).toString(), QString("0.750"));
    EXPECT_EQ((xdecimal("9999999999999999999999999.5") + xdecimal("0.5")).toString(),
              QString("10000000000000000000000000")); // the carry costs a place
    const xdecimal nines("99999999999999999999999999");
    EXPECT_EQ(thrownBy([&] { nines + xdecimal("1"); }), overflow);
    EXPECT_EQ(thrownBy([] { xdecimal("1") + null(); }), QStringLiteral("xdecimal:nan"));
    EXPECT_EQ(thrownBy([] { null() * xdecimal("100000"); }), QStringLiteral("xdecimal:nan"));

    const auto expected = [](const mpz_class &unscaled, int scale, int lowest) {
        for (int s = std::min(scale, 62); s >= lowest; --s) {
            const Result result = rounded(unscaled, scale, typeOf(26, s), BCDII_ROUND_HALF_UP);
            if (!(result.status & BCDII_OVERFLOW))
                return fromBytes(typeOf(26, s), result.digits);
        }
        return null();
    };
    constexpr quint64 kSeed = 26;
    std::mt19937_64 random(kSeed);
    const auto below = [&](int n) { return int(random() % uint(n)); };
    for (int i = 0; i < 30000; ++i) {
        mpz_class unscaled[2];
        int scales[2];
        xdecimal values[2];
        for (int k : {0, 1}) {
            std::string digits(size_t(1 + below(26)), '9');
            if (below(3))
                std::generate(digits.begin(), digits.end(), [&] { return char('0' + below(10)); });
            unscaled[k] = mpz_class(digits, 10) * (below(2) ? 1 : -1);
            scales[k] = below(8) ? below(20) : below(125) - 62;
            const BCDIIType type = typeOf(26, scales[k]);
            values[k] = fromBytes(type, encode(unscaled[k], type));
        }
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ": " + values[0].toString().toStdString() +
                     " and " + values[1].toString().toStdString());
        const int scale = std::max(scales[0], scales[1]);
        const int lowest = std::min(scales[0], scales[1]) < 0 ? -62 : 0;
        const mpz_class a = unscaled[0] * powerOfTen(scale - scales[0]);
        const mpz_class b = unscaled[1] * powerOfTen(scale - scales[1]);
        const auto check = [&](auto operation, const xdecimal &wanted) {
            xdecimal got = null();
            const QString thrown = thrownBy([&] { got = operation(values[0], values[1]); });
            ASSERT_EQ(std::memcmp(&got, &wanted, sizeof got), 0);
            ASSERT_EQ(thrown == overflow, wanted.isNull()) << thrown.toStdString();
        };
        check(std::plus<>(), expected(a + b, scale, lowest));
        check(std::minus<>(), expected(a - b, scale, lowest));
        const int places = scales[0] + scales[1];
        const mpz_class raise = powerOfTen(std::max(0, -62 - places));
        check(std::multiplies<>(),
              expected(unscaled[0] * unscaled[1] * raise, std::max(places, -62), lowest));
        ASSERT_EQ(values[0].compare(values[1]), sgn(a - b));
        if (HasFatalFailure())
            return;
    }
}

TEST(XDecimal, hashesEqualValuesAlikeAndOthersApart)
{
    for (const char *text : {"0", "-12.5", "100", "0.05", "99999999999999999999"}) {
        xdecimal value(text);
        const uint hash = qHash(value, 3);
        for (const short scale : {3, 4, 5, 6}) {
            value.setScale(scale);
            EXPECT_EQ(qHash(value, 3), hash) << text << " at " << scale;
        }
    }
    EXPECT_NE(qHash(xdecimal("1")), qHash(xdecimal("-1")));
    EXPECT_NE(qHash(xdecimal("1")), qHash(xdecimal("100")));
}

TEST(XDecimal, streamsItsTypeAndDigitsAndRefusesOthers)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << xdecimal("-1.5");
    EXPECT_EQ(bytes.toHex(), QByteArray("1a018000000000000000000000000132"));

    const struct {
        const char *name, *hex;
        QDataStream::Status status;
        QString printed;
    } rows[] = {
        {"number", "1a018000000000000000000000000132", QDataStream::Ok, "-1.5"},
        {"null", "1a0265ffffffffffffffffffffffffff", QDataStream::Ok, {}},
        {"precision", "1b010000000000000000000000000132", QDataStream::ReadCorruptData, {}},
        {"scale", "1a3f0000000000000000000000000132", QDataStream::ReadCorruptData, {}},
        {"pair", "1a010000000000006400000000000132", QDataStream::ReadCorruptData, {}},
        {"short", "1a01000000", QDataStream::ReadPastEnd, {}},
    };
    for (const auto &[name, hex, status, printed] : rows) {
        QDataStream in(QByteArray::fromHex(hex));
        xdecimal value;
        in >> value;
        EXPECT_EQ(in.status(), status) << name;
        EXPECT_EQ(value.isNull(), printed.isNull()) << name;
        EXPECT_EQ(value.toString(), printed) << name;
    }
}
