#include <database/xdecimal.h>

#include "bcdiimodel.h"
#include "valuetest.h"

#include <QtCore/qdatastream.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

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

/// The text that the packed arithmetic gives, with a digit before the point.
QString packedText(const xdecimal &value)
{
    const std::unique_ptr<char, decltype(&std::free)> owned(
        BCDII2StringSequence(value.data(), nullptr), &std::free);
    const QString digits = QString(owned.get()).remove('-');
    const bool bare = digits.isEmpty() || digits.startsWith('.');
    return QString(*owned == '-' ? "-" : "") + (bare ? "0" : "") + digits;
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
        {"all_digits", "-123456789012345678901234.56", "-123456789012345678901234.56"},
        {"last_place", "0.00000000000000000000000000000000000000000000000000000000000001",
         "0.00000000000000000000000000000000000000000000000000000000000001"},
        {"power_keeps_places", "1.50e1", "15.0"},
        {"negative_power_below_the_digits", "-1e-5", "-0.00001"},
        {"zero_of_any_power", "0e999999999", "0"},
    };
    for (const auto &[name, text, printed] : rows) {
        EXPECT_EQ(xdecimal(text).toString(), QString(printed)) << name;
        EXPECT_EQ(BCDIICheck(xdecimal(text).data()) & BCDII_MALFORMED, 0u) << name;
    }
}

TEST(XDecimal, throwsABadTextBack)
{
    for (const char *text :
         {"", "%1 %2", "1,5e5", "1e26", "1e2147483648", "1e-63", "1:2", "1İ2", "1.2,3", "-+1",
          "100000000000000000000000000", "1000000000000000000000000000012"})
        EXPECT_EQ(thrownBy([=] { xdecimal::fromString(text); }),
                  QStringLiteral("Невозможно создать xdecimal по строке '") + text + '\'');
    for (const char *text : {"-1.00000000000000000000000000", "-10000000000000000000000000.0"})
        EXPECT_EQ(thrownBy([=] { xdecimal{text}; }),
                  QStringLiteral("Невозможно создать xdecimal по строке '") + text + "' (-)");
    for (const char *text : {"1\xB2", "1\xCA", static_cast<const char *>(nullptr)})
        EXPECT_NE(thrownBy([=] { xdecimal{text}; }), QString("nothing thrown"));
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

TEST(XDecimal, convertsFromNumbers)
{
    EXPECT_EQ(xdecimal::fromDouble(-2.345, 2).toString(), QString("-2.35"));
    EXPECT_EQ(xdecimal::fromDouble(1250, -2).toString(), QString("1300"));
    EXPECT_EQ(xdecimal::fromInt64(std::numeric_limits<qint64>::min(), 3).toString(),
              QString("-9223372036854775.808"));
    EXPECT_EQ(xdecimal(0), xdecimal()) << "no null pointer to a text";
    EXPECT_EQ(xdecimal(-7L).toString() + xdecimal(8u).toString(), QString("-78"));
    EXPECT_EQ(xdecimal(std::numeric_limits<quint64>::max()).toString(),
              QString("18446744073709551615"));
    for (const double value : {1e24, -HUGE_VAL})
        EXPECT_EQ(thrownBy([=] { xdecimal::fromDouble(value, 3); }), QString("xdecimal:overflow"));
    EXPECT_EQ(thrownBy([] { xdecimal::fromInt64(0, 63); }), QString("xdecimal:overflow"));
}

TEST(XDecimal, setScaleRoundsHalfUpOrRefuses)
{
    xdecimal value("-2.345");
    value.setScale(2);
    EXPECT_EQ(value.toString(), QString("-2.35"));
    for (const short scale : {26, 63, -63})
        EXPECT_EQ(thrownBy([&] { value.setScale(scale); }), QString("xdecimal:bad operand"));
    // Up to one unit from nothing is not rounded where that unit is a whole number.
    EXPECT_EQ(thrownBy([] { xdecimal("0.5").setScale(0); }), QString("xdecimal:bad operand"));
    for (const auto &[text, rounded] : {std::pair{"1.5", "2"}, {"0.4", "0"}}) {
        xdecimal number(text);
        number.setScale(0);
        EXPECT_EQ(number.toString(), QString(rounded));
    }
    EXPECT_EQ(thrownBy([] { null().setScale(2); }), QString("xdecimal:bad operand"));
    value.setScale(24);
    EXPECT_EQ(value.toString(), QString("-2.350000000000000000000000"));
    EXPECT_EQ(qHash(value), qHash(xdecimal("-2.35")));
}

// Of an even scale the last of the 16 bytes belongs to no digit.
TEST(XDecimal, takesNoByteBehindItsDigits)
{
    xdecimal reread("2.505");
    bool ok = false;
    BCDIIFromString(const_cast<uchar *>(reread.data()), "2.50", &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(std::memcmp(reread.data(), xdecimal("2.50").data(), 16), 0);

    for (const char *text : {"2.50", "-2.50", "0.00", "99999999999999999999999.50", "-7"}) {
        SCOPED_TRACE(text);
        const xdecimal clean(text);
        xdecimal soiled = clean;
        const_cast<uchar *>(soiled.data())[15] = 99;
        const xdecimal other("0.125");
        const auto outcome = [&](const xdecimal &value) {
            xdecimal rounded = value;
            rounded.setScale(1);
            QByteArray streamed;
            QDataStream stream(&streamed, QIODevice::WriteOnly);
            stream << value;
            return (value + value).toString() + ' ' + (value - other).toString() + ' ' +
                   (other * value).toString() + ' ' + (-value).toString() + ' ' +
                   rounded.toString() + ' ' + value.toString() + ' ' + streamed.toHex() + ' ' +
                   QString::number(qHash(value)) + ' ' + QString::number(value.toDouble());
        };
        EXPECT_EQ(outcome(soiled), outcome(clean));
        EXPECT_EQ(soiled, clean);
    }
}

TEST(XDecimal, arithmeticIsExactOrRoundedAtTheLastPlaceThatFits)
{
    using namespace bcdiimodel;
    EXPECT_EQ(thrownBy([] { xdecimal("1") + null(); }), QStringLiteral("xdecimal:nan"));
    EXPECT_EQ(thrownBy([] { null() - xdecimal("1"); }), QStringLiteral("xdecimal:nan"));
    EXPECT_EQ(thrownBy([] { null() * xdecimal("0"); }), QStringLiteral("xdecimal:nan"));
    EXPECT_EQ(thrownBy([] { // 2^64 + 5
                  xdecimal("20000000000000000000") * xdecimal("18446744073709551621");
              }),
              QStringLiteral("xdecimal:overflow"));

    const auto expected = [](const mpz_class &unscaled, int scale, int highest, int lowest) {
        for (int s = std::min(highest, 62); s >= lowest; --s) {
            const Result result = rounded(unscaled, scale, typeOf(26, s), BCDII_ROUND_HALF_UP);
            if (!(result.first & BCDII_OVERFLOW))
                return fromBytes(typeOf(26, s), result.second);
        }
        return null();
    };
    constexpr quint64 kSeed = 26;
    std::mt19937_64 random(kSeed);
    const auto below = [&](int n) { return int(random() % uint(n)); };
    for (int i = 0; i < 60000; ++i) {
        mpz_class unscaled[2];
        int scales[2];
        xdecimal values[2];
        for (int k : {0, 1}) {
            std::string digits(size_t(1 + below(26)), '9');
            if (below(3))
                std::generate(digits.begin(), digits.end(), [&] { return char('0' + below(10)); });
            if (below(3) == 0) { // a tie or just below one, a place or all the rest behind it
                const auto at = size_t(below(int(digits.size())));
                digits.replace(at, digits.npos, digits.size() - at, below(2) ? '0' : '9');
                digits[at] = char('4' + below(2));
            }
            unscaled[k] = mpz_class(digits, 10) * (below(2) ? 1 : -1);
            scales[k] = below(8) ? below(20) : below(125) - 62;
            if (k == 1 && below(6) == 0) { // cancels the first, or all of it but its last places
                const int fewer = below(4);
                unscaled[1] = -unscaled[0] / powerOfTen(fewer);
                scales[1] = std::max(-62, scales[0] - fewer);
            }
            const BCDIIType type = typeOf(26, scales[k]);
            values[k] = fromBytes(type, encode(unscaled[k], type));
        }
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ": " + values[0].toString().toStdString() +
                     " and " + values[1].toString().toStdString());
        const QString text = values[0].toString();
        ASSERT_EQ(text, packedText(values[0]));
        const int first = text.startsWith('-') ? 1 : 0;
        const bool bare = text.midRef(first).startsWith(QString("0.")); // may lose its 0
        QString other = QString(text).replace(first, bare ? 1 : 0, QString(below(8), '0'));
        if (below(2))
            other.replace('.', ',');
        if (!first)
            other.prepend('+');
        for (const QString &each : {text, other}) {
            if (scales[0] < 0)
                continue; // reads with zeros in place of digits
            ASSERT_EQ(xdecimal(each).toString(), text) << each.toStdString();
            ASSERT_EQ(std::memcmp(&values[0], xdecimal(qPrintable(each)).data(), 16), 0);
        }
        const int scale = std::max(scales[0], scales[1]);
        const int lowest = std::min(scales[0], scales[1]) < 0 ? -62 : 0;
        const mpz_class a = unscaled[0] * powerOfTen(scale - scales[0]);
        const mpz_class b = unscaled[1] * powerOfTen(scale - scales[1]);
        const char *refusal = "xdecimal:overflow";
        const auto check = [&](auto operation, const xdecimal &wanted) {
            xdecimal got = null();
            const QString thrown = thrownBy([&] { got = operation(values[0], values[1]); });
            ASSERT_EQ(std::memcmp(&got, &wanted, sizeof got), 0);
            ASSERT_EQ(thrown == refusal, wanted.isNull()) << thrown.toStdString();
        };
        check(std::plus<>(), expected(a + b, scale, scale, lowest));
        check(std::minus<>(), expected(a - b, scale, scale, lowest));
        const int exact = scales[0] + scales[1];
        const int places = std::max(exact, -62);
        check(std::multiplies<>(), expected(unscaled[0] * unscaled[1] * powerOfTen(places - exact),
                                            places, places, lowest));
        ASSERT_EQ(values[0].compare(values[1]), sgn(a - b));
        const int wanted =
            qBound(-62, scales[0] + (below(8) ? 8 - below(20) : 62 - below(125)), 62);
        refusal = "xdecimal:bad operand";
        check(
            [wanted](xdecimal value, const xdecimal &) {
                value.setScale(short(wanted));
                return value;
            },
            expected(unscaled[0], scales[0], wanted, wanted));
        if (HasFatalFailure())
            return;
    }
}
