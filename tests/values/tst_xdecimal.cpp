#include <database/xdecimal.h>

#include "bcdiimodel.h"
#include "printing.h"

#include <gtest/gtest.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qlocale.h>
#include <QtCore/qregexp.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace
{

/// What \p action throws as a QString or a literal, or a note that it threw nothing.
template<typename Action>
QString thrownBy(Action action)
{
    try {
        action();
    } catch (const QString &message) {
        return message;
    } catch (const char *message) {
        return QString::fromUtf8(message);
    }
    return QStringLiteral("nothing thrown");
}

const auto caseName = [](const auto &info) { return std::string(info.param.name); };

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

struct XDecimalText {
    const char *name, *text, *printed;
};

class XDecimalReading : public ::testing::TestWithParam<XDecimalText>
{
};

TEST_P(XDecimalReading, keepsEveryDigit)
{
    const QString text = QString::fromUtf8(GetParam().text);
    const xdecimal value{QStringRef(&text)};
    const QString printed = QString::fromUtf8(GetParam().printed);
    EXPECT_EQ(value.toString(), printed);
    EXPECT_EQ(value.scale(), printed.contains('.') ? printed.size() - 1 - printed.indexOf('.') : 0);
    EXPECT_EQ(xdecimal(GetParam().text).compare(value), 0);
    EXPECT_EQ(BCDIICheck(value.data()) & BCDII_MALFORMED, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    XDecimal, XDecimalReading,
    ::testing::Values(
        XDecimalText{"zero", "0", "0"}, XDecimalText{"negative_zero", "-0.00", "0.00"},
        XDecimalText{"no_integer_digits", "-.5", "-0.5"}, XDecimalText{"comma", "+12,50", "12.50"},
        XDecimalText{"all_digits", "99999999999999999999999999", "99999999999999999999999999"},
        XDecimalText{"all_digits_with_fraction", "-123456789012345678901234.56",
                     "-123456789012345678901234.56"},
        XDecimalText{"leading_zeros", "0000000000000000000000000000000000000000000000000000000001",
                     "1"},
        XDecimalText{"last_place",
                     "0.00000000000000000000000000000000000000000000000000000000000001",
                     "0.00000000000000000000000000000000000000000000000000000000000001"},
        XDecimalText{"power_of_ten", "1.5e2", "150"},
        XDecimalText{"power_of_ten_within_fraction", "-1.255e+2", "-125.5"},
        XDecimalText{"power_of_ten_keeps_places", "1.50e1", "15.0"},
        XDecimalText{"negative_power_of_ten", "15e-3", "0.015"},
        XDecimalText{"negative_power_below_the_digits", "-1e-5", "-0.00001"},
        XDecimalText{"largest_power_of_ten", "1e25", "10000000000000000000000000"},
        XDecimalText{"zero_of_any_power", "0e999999999", "0"}),
    caseName);

struct BadText {
    const char *name, *text, *message;
};

class XDecimalRefusal : public ::testing::TestWithParam<BadText>
{
};

TEST_P(XDecimalRefusal, throwsTheTextBack)
{
    EXPECT_EQ(thrownBy([] { xdecimal::fromString(QString::fromUtf8(GetParam().text)); }),
              QString::fromUtf8(GetParam().message));
}

#define UNREADABLE(text) text, "Невозможно создать xdecimal по строке '" text "'"
INSTANTIATE_TEST_SUITE_P(
    XDecimal, XDecimalRefusal,
    ::testing::Values(
        BadText{"empty", UNREADABLE("")}, BadText{"word", UNREADABLE("%1 %2")},
        BadText{"bare_point_before_exponent", UNREADABLE("1.e5")},
        BadText{"comma_before_exponent", UNREADABLE("1,5e5")},
        BadText{"upper_case_exponent", UNREADABLE("1E5")},
        BadText{"too_many_digits", UNREADABLE("100000000000000000000000000")},
        BadText{"too_large_a_power", UNREADABLE("1e26")},
        BadText{"power_beyond_memory", UNREADABLE("1e2147483647")},
        BadText{"power_beyond_32_bits", UNREADABLE("1e2147483648")},
        BadText{"too_small_a_power", UNREADABLE("1e-63")},
        BadText{"fraction_crowds_out_integer_digits", "-1.00000000000000000000000000",
                "Невозможно создать xdecimal по строке '-1.00000000000000000000000000' (-)"},
        BadText{"fraction_without_sign", "1,00000000000000000000000000",
                "Невозможно создать xdecimal по строке '1,00000000000000000000000000' ()"}),
    caseName);

TEST(XDecimalScanner, acceptsExactlyWhatThePatternsAccept)
{
    const QRegExp integer("([+-]?\\d+)"), point("([+-]?)(\\d*)[\\.](\\d+)"),
        comma("([+-]?)(\\d*)[,](\\d+)"),
        exponent("(([+-]?\\d+)|([+-]?\\d+)(\\.?)(\\d+))(e)([+-]?\\d+)");
    const QString alphabet = QStringLiteral("0019955+-..,,eeE x");
    constexpr quint64 kSeed = 20151002;
    std::mt19937_64 random(kSeed);
    int read = 0;
    for (int i = 0; i < 100000; ++i) {
        QString text;
        for (int length = 1 + int(random() % 9); length > 0; --length)
            text.append(alphabet.at(int(random() % uint(alphabet.size()))));
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", text " + text.toStdString());

        const bool expected = integer.exactMatch(text) || point.exactMatch(text) ||
                              comma.exactMatch(text) || exponent.exactMatch(text);
        ASSERT_EQ(xdecimal::canConvert(text, false), expected);
        xdecimal value;
        const QString thrown = thrownBy([&] { value = xdecimal::fromString(text); });
        if (!expected || thrown.contains(text)) {
            ASSERT_TRUE(!expected || text.contains('e')) << thrown.toStdString();
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
    bool ok = false;
    EXPECT_EQ(xdecimal::fromVariant(std::numeric_limits<quint64>::max(), &ok).toString(),
              QString("18446744073709551615.00000"));
    EXPECT_TRUE(ok);
    EXPECT_EQ(xdecimal::fromVariant(-7).toString(), QString("-7.00000"));
    EXPECT_EQ(xdecimal::fromVariant(0.1).toString(), QString("0.10000"));
    EXPECT_EQ(xdecimal::fromVariant(QString("1,5")).toString(), QString("1.5"));
    EXPECT_EQ(xdecimal::fromVariant(xdecimal("1.50").toVariant()).toString(), QString("1.50"));
    EXPECT_EQ(xdecimal::fromVariant(QVariant(), &ok).toString(), QString("0"));
    EXPECT_TRUE(ok);
    xdecimal::fromVariant(false, &ok);
    EXPECT_FALSE(ok);
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

struct Sum {
    const char *name, *a, *b, *sum, *difference, *product;
};

class XDecimalArithmetic : public ::testing::TestWithParam<Sum>
{
};

TEST_P(XDecimalArithmetic, isExactOrRoundedAtTheLastPlaceThatFits)
{
    const xdecimal a(GetParam().a);
    const xdecimal b(GetParam().b);
    const auto text = [](auto operation) {
        QString result;
        const QString thrown = thrownBy([&] { result = operation().toString(); });
        return result.isNull() ? thrown : result;
    };
    EXPECT_EQ(text([&] { return a + b; }), QString(GetParam().sum));
    EXPECT_EQ(text([&] { return a - b; }), QString(GetParam().difference));
    EXPECT_EQ(text([&] { return a * b; }), QString(GetParam().product));
}

INSTANTIATE_TEST_SUITE_P(
    XDecimal, XDecimalArithmetic,
    ::testing::Values(Sum{"places_add_up", "1.50", "0.5", "2.00", "1.00", "0.750"},
                      Sum{"equal", "1.5", "1.50", "3.00", "0.00", "2.250"},
                      Sum{"carry_costs_a_place", "9999999999999999999999999.5", "0.5",
                          "10000000000000000000000000", "9999999999999999999999999.0",
                          "4999999999999999999999999.8"},
                      Sum{"cancelled_digits_keep_places", "10000000000000000000000000",
                          "9999999999999999999999999.5", "20000000000000000000000000", "0.5",
                          "xdecimal:overflow"},
                      Sum{"integer_digits_do_not_fit", "99999999999999999999999999", "1",
                          "xdecimal:overflow", "99999999999999999999999998",
                          "99999999999999999999999999"},
                      Sum{"zero", "0.00", "12345678901234567890123456",
                          "12345678901234567890123456", "-12345678901234567890123456", "0.00"}),
    caseName);

TEST(XDecimal, randomArithmeticAgreesWithIntegersOfAnySize)
{
    using namespace bcdiimodel;
    constexpr quint64 kSeed = 26;
    std::mt19937_64 random(kSeed);
    const auto below = [&](int n) { return int(random() % uint(n)); };
    const auto expected = [](const mpz_class &unscaled, int scale, int lowest) {
        for (int s = std::min(scale, 62); s >= lowest; --s) {
            const Result result = rounded(unscaled, scale, typeOf(26, s), BCDII_ROUND_HALF_UP);
            if (!(result.status & BCDII_OVERFLOW))
                return fromBytes(typeOf(26, s), result.digits);
        }
        return null();
    };
    const auto actual = [](auto operation) {
        xdecimal result = null();
        EXPECT_NE(thrownBy([&] { result = operation(); }), QStringLiteral("xdecimal:nan"));
        return result;
    };
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
            values[k] =
                fromBytes(typeOf(26, scales[k]), encode(unscaled[k], typeOf(26, scales[k])));
        }
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ": " + values[0].toString().toStdString() +
                     " and " + values[1].toString().toStdString());
        const int scale = std::max(scales[0], scales[1]);
        const int lowest = std::min(scales[0], scales[1]) < 0 ? -62 : 0;
        const mpz_class a = unscaled[0] * powerOfTen(scale - scales[0]);
        const mpz_class b = unscaled[1] * powerOfTen(scale - scales[1]);
        const auto check = [](const xdecimal &got, const xdecimal &wanted) {
            return std::memcmp(&got, &wanted, sizeof got) == 0;
        };
        ASSERT_TRUE(
            check(actual([&] { return values[0] + values[1]; }), expected(a + b, scale, lowest)));
        ASSERT_TRUE(
            check(actual([&] { return values[0] - values[1]; }), expected(a - b, scale, lowest)));
        mpz_class product = unscaled[0] * unscaled[1];
        int productScale = scales[0] + scales[1];
        if (productScale < -62) {
            product *= powerOfTen(-62 - productScale);
            productScale = -62;
        }
        ASSERT_TRUE(check(actual([&] { return values[0] * values[1]; }),
                          expected(product, productScale, lowest)));
        ASSERT_EQ(values[0].compare(values[1]), cmp(a, b) > 0 ? 1 : cmp(a, b) < 0 ? -1 : 0);
    }
    EXPECT_EQ(thrownBy([] { xdecimal("1") + null(); }), QStringLiteral("xdecimal:nan"));
    EXPECT_EQ(thrownBy([] { null() * xdecimal("100000"); }), QStringLiteral("xdecimal:nan"));
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
    const auto read = [](const QByteArray &bytes, QDataStream::Status *status) {
        QDataStream stream(bytes);
        xdecimal value;
        stream >> value;
        *status = stream.status();
        return value;
    };
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << xdecimal("-1.5");
    EXPECT_EQ(bytes.toHex(), QByteArray("1a01"
                                        "80000000000000000000000001"
                                        "32"));
    QDataStream::Status status = QDataStream::Ok;
    EXPECT_EQ(read(bytes, &status).toString(), QString("-1.5"));
    EXPECT_EQ(status, QDataStream::Ok);

    struct Damage {
        const char *name, *hex;
        QDataStream::Status status;
    };
    const Damage damages[] = {
        {"null", "1a0265ffffffffffffffffffffffffff", QDataStream::Ok},
        {"precision", "1b010000000000000000000000000132", QDataStream::ReadCorruptData},
        {"scale", "1a3f0000000000000000000000000132", QDataStream::ReadCorruptData},
        {"pair", "1a010000000000006400000000000132", QDataStream::ReadCorruptData},
        {"negative_zero", "1a018000000000000000000000000000", QDataStream::ReadCorruptData},
        {"short", "1a01000000", QDataStream::ReadPastEnd}};
    for (const Damage &damage : damages) {
        const xdecimal value = read(QByteArray::fromHex(damage.hex), &status);
        EXPECT_EQ(status, damage.status) << damage.name;
        EXPECT_TRUE(value.isNull()) << damage.name;
        EXPECT_TRUE(value.toString().isNull()) << damage.name;
    }
}
