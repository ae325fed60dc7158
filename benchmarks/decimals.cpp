// Decimals beside other decimal libraries: 26 digits against arbitrary and 34-digit arithmetic, the
// 64-bit form against bare conversions of its digits. What they print has to be the same, or the
// program ends with an error.
//
// usage: bench_decimals [--quick]

#include "report.h"

#include <database/decimal.h>
#include <database/xdecimal.h>

#include <boost/multiprecision/cpp_dec_float.hpp>

#define DECNUMDIGITS 34
#include <decnumber/decNumber.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

/// The compiler's 128-bit decimal, which C++ has no name for.
using decimal128 = float __attribute__((mode(TD)));

// From libdfp, whose headers are C's.
extern "C" {
decimal128 strtod128(const char *text, char **end);
decimal128 quantized128(decimal128 value, decimal128 pattern);
int fe_dec_setround(int mode);
}

namespace
{

constexpr int kNumbers = 4096;
constexpr int kTies = 16;   // one product in so many is drawn as a tie
constexpr int kPasses = 20; // over the numbers, in one round

void require(bool ok, const std::string &what)
{
    if (!ok) {
        std::fprintf(stderr, "bench_decimals: failed: %s\n", what.c_str());
        std::exit(1);
    }
}

// Each contender reads a text, adds, multiplies with rounding to two places, and prints a number of
// four or two places. Printed text is only looked at where the clock stands.

struct Library {
    static constexpr const char *kName = "library";
    using Number = xdecimal;
    using Text = QString;
    static Number parse(const char *text) { return xdecimal(text); }
    static Number add(const Number &a, const Number &b) { return a + b; }
    static Number multiply(const Number &a, const Number &b)
    {
        Number result = a * b;
        result.setScale(2);
        return result;
    }
    static Text print(const Number &number, int) { return number.toString(); }
    static std::string plain(const Text &text) { return text.toStdString(); }
};

struct DecNumber {
    static constexpr const char *kName = "decNumber";
    using Number = decNumber;
    using Text = std::string;
    static decContext &context()
    {
        static decContext result = [] {
            decContext made;
            decContextDefault(&made, DEC_INIT_BASE);
            made.digits = DECNUMDIGITS;
            made.traps = 0;
            made.round = DEC_ROUND_HALF_UP;
            return made;
        }();
        return result;
    }
    static Number parse(const char *text)
    {
        Number result;
        decNumberFromString(&result, text, &context());
        return result;
    }
    static Number add(const Number &a, const Number &b)
    {
        Number result;
        decNumberAdd(&result, &a, &b, &context());
        return result;
    }
    static Number multiply(const Number &a, const Number &b)
    {
        static const Number kPlaces = parse("0.01");
        Number result;
        decNumberMultiply(&result, &a, &b, &context());
        decNumberQuantize(&result, &result, &kPlaces, &context());
        return result;
    }
    static Text print(const Number &number, int)
    {
        char text[DECNUMDIGITS + 14];
        decNumberToString(&number, text);
        return text;
    }
    static std::string plain(const Text &text) { return text; }
};

struct Dfp {
    static constexpr const char *kName = "libdfp";
    using Number = decimal128;
    using Text = std::string;
    static Number parse(const char *text) { return strtod128(text, nullptr); }
    static Number add(Number a, Number b) { return a + b; }
    static Number multiply(Number a, Number b)
    {
        static const Number kPlaces = parse("0.01");
        return quantized128(a * b, kPlaces);
    }
    static Text print(Number number, int places)
    {
        char text[64];
        // Spelled at run time: the compiler knows nothing of this conversion.
        static const char *volatile const kFormat = "%.*DDf";
        return {text, size_t(std::snprintf(text, sizeof text, kFormat, places, number))};
    }
    static std::string plain(const Text &text) { return text; }
};

struct Multiprecision {
    static constexpr const char *kName = "Boost";
    using Number = boost::multiprecision::number<boost::multiprecision::cpp_dec_float<26>,
                                                 boost::multiprecision::et_off>;
    using Text = std::string;
    static Number parse(const char *text) { return Number(text); }
    static Number add(const Number &a, const Number &b) { return a + b; }
    static Number multiply(const Number &a, const Number &b)
    {
        static const Number kHundredth("0.01"); // a division would cost several times as much
        return round(a * b * 100) * kHundredth;
    }
    static Text print(const Number &number, int places)
    {
        return number.str(places, std::ios_base::fixed);
    }
    static std::string plain(const Text &text) { return text; }
};

template<class Work>
double nanosecondsEach(const Work &work)
{
    const auto start = std::chrono::steady_clock::now();
    for (int pass = 0; pass < kPasses; ++pass) {
        for (int i = 0; i < kNumbers; ++i)
            work(i);
    }
    const auto taken = std::chrono::steady_clock::now() - start;
    return std::chrono::duration<double, std::nano>(taken).count() / kPasses / kNumbers;
}

/// A number with four places, of up to so many digits in front of them.
std::string randomText(std::mt19937_64 &random, int digits)
{
    std::string text = random() % 2 ? "-" : "";
    text += char('1' + random() % 9);
    for (int i = 1 + int(random() % 4); i < digits; ++i)
        text += char('0' + random() % 10);
    text += '.';
    for (int i = 0; i < 4; ++i)
        text += char('0' + random() % 10);
    return text;
}

/// Numbers of up to 25 digits for sums, and factors whose product fits 26 digits.
struct Texts {
    Texts()
    {
        std::mt19937_64 random(20260302);
        for (int i = 0; i < kNumbers; ++i) {
            a.push_back(randomText(random, 21));
            b.push_back(randomText(random, 21));
            amount.push_back(randomText(random, 9));
            price.push_back(randomText(random, 8));
            if (i % kTies == 0) { // half of these products lie between two results
                amount.back().replace(amount.back().size() - 2, 2, "00");
                price.back() = "0.5000";
            }
        }
    }
    std::vector<std::string> a, b, amount, price;
};

template<class Contender>
class Measured
{
public:
    using Number = typename Contender::Number;

    explicit Measured(const Texts &texts)
        : m_texts(texts)
        , m_a(parsed(texts.a))
        , m_b(parsed(texts.b))
        , m_amount(parsed(texts.amount))
        , m_price(parsed(texts.price))
        , m_result(kNumbers)
    {
    }

    void round(Report &report)
    {
        const auto add = [&](const char *what, double taken) {
            report.add(what, Report::Unit::Nanoseconds, Contender::kName, taken);
        };
        add("D 26 digits: parse",
            nanosecondsEach([&](int i) { m_result[i] = Contender::parse(m_texts.a[i].c_str()); }));
        add("D 26 digits: print",
            nanosecondsEach([&](int i) { m_text = Contender::print(m_a[i], 4); }));
        add("D 26 digits: add",
            nanosecondsEach([&](int i) { m_result[i] = Contender::add(m_a[i], m_b[i]); }));
        m_sums = m_result;
        add("D 26 digits: multiply, round to 2", nanosecondsEach([&](int i) {
                m_result[i] = Contender::multiply(m_amount[i], m_price[i]);
            }));
    }

    /// What the last round came to.
    std::vector<std::string> printed() const
    {
        std::vector<std::string> result;
        for (int i = 0; i < kNumbers; ++i) {
            result.push_back(Contender::plain(Contender::print(m_a[i], 4)));
            result.push_back(Contender::plain(Contender::print(m_sums[i], 4)));
            result.push_back(Contender::plain(Contender::print(m_result[i], 2)));
        }
        return result;
    }

private:
    static std::vector<Number> parsed(const std::vector<std::string> &texts)
    {
        std::vector<Number> result;
        for (const std::string &text : texts)
            result.push_back(Contender::parse(text.c_str()));
        return result;
    }

    const Texts &m_texts;
    const std::vector<Number> m_a, m_b, m_amount, m_price;
    std::vector<Number> m_result, m_sums;
    typename Contender::Text m_text;
};

/// The 64-bit decimal beside its bare digits, as a 64-bit integer without a point, and beside Qt's
/// doubles.
class Small
{
public:
    Small()
    {
        std::mt19937_64 random(20260303);
        for (int i = 0; i < kNumbers; ++i) {
            const qint64 mantissa = qint64(random() % 100000000000) - 50000000000;
            m_numbers.push_back(decimal::fromParts(mantissa, 2));
            m_texts.push_back(m_numbers.back().toExactString());
            m_mantissas.push_back(mantissa);
            m_digits.push_back(std::to_string(mantissa));
            m_doubles.push_back(double(mantissa) / 100);
            m_other.push_back(random() % kNumbers);
        }
    }

    void round(Report &report)
    {
        const auto add = [&](const char *what, const char *contender, double taken) {
            report.add(what, Report::Unit::Nanoseconds, contender, taken);
        };
        qint64 bare = 0, sum = 0, bareSum = 0;
        const char *what = "D 64 bits: parse";
        add(what, "library",
            nanosecondsEach([&](int i) { sum += decimal(m_texts[i]).mantissa(); }));
        add(what, "charconv", nanosecondsEach([&](int i) {
                const std::string &text = m_digits[i];
                std::from_chars(text.data(), text.data() + text.size(), bare);
                bareSum += bare;
            }));
        require(sum == bareSum, what);
        double doubles = 0;
        add(what, "Qt double", nanosecondsEach([&](int i) { doubles += m_texts[i].toDouble(); }));

        what = "D 64 bits: print";
        char digits[24];
        sum = bareSum = 0;
        add(what, "library",
            nanosecondsEach([&](int i) { sum += m_numbers[i].toString().size(); }));
        add(what, "charconv", nanosecondsEach([&](int i) {
                bareSum +=
                    std::to_chars(digits, digits + sizeof digits, m_mantissas[i]).ptr - digits;
            }));
        // A point, and no number so small that a zero stands before it.
        require(sum >= bareSum + qint64(kNumbers) * kPasses, what);
        add(what, "Qt double", nanosecondsEach([&](int i) {
                doubles += QString::number(m_doubles[i], 'f', 2).size();
            }));
        m_used += doubles;

        what = "D 64 bits: compare";
        sum = bareSum = 0;
        add(what, "library",
            nanosecondsEach([&](int i) { sum += m_numbers[i].compare(m_numbers[m_other[i]]); }));
        add(what, "charconv", nanosecondsEach([&](int i) {
                const qint64 a = m_mantissas[i], b = m_mantissas[m_other[i]];
                bareSum += (a > b) - (a < b);
            }));
        require(sum == bareSum, what);
    }

private:
    std::vector<decimal> m_numbers;
    std::vector<QString> m_texts;
    std::vector<qint64> m_mantissas;
    std::vector<std::string> m_digits;
    std::vector<double> m_doubles;
    std::vector<size_t> m_other; // whom a number is compared with: no pattern that vectorises
    volatile double m_used = 0;  // so that nothing can be left out
};

} // namespace

int main(int argc, char *argv[])
{
    const int rounds = argc > 1 && std::strcmp(argv[1], "--quick") == 0 ? 3 : 15;
    constexpr int kHalfFromZero = 4; // libdfp's FE_DEC_TONEARESTFROMZERO
    require(fe_dec_setround(kHalfFromZero) == 0, "choosing libdfp's rounding");
    const Texts texts;
    Measured<Library> library(texts);
    Measured<DecNumber> decNumbers(texts);
    Measured<Dfp> dfp(texts);
    Measured<Multiprecision> multiprecision(texts);
    Small small;
    Report report("library");
    for (int round = 0; round < rounds; ++round) {
        library.round(report);
        decNumbers.round(report);
        dfp.round(report);
        multiprecision.round(report);
        small.round(report);
    }
    const std::vector<std::string> printed = library.printed();
    require(decNumbers.printed() == printed, "decNumber prints the same");
    require(multiprecision.printed() == printed, "cpp_dec_float prints the same");
    require(dfp.printed() == printed, "libdfp prints the same");
    report.print("decimals, medians of " + std::to_string(rounds) + " rounds");
    return 0;
}
