#include <database/values/checksum.h>
#include <database/values/fuzzycompare.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace
{

/// The definition, a bit at a time.
quint64 slowChecksum(const std::string &bytes)
{
    quint64 crc = ~quint64(0);
    for (const char byte : bytes) {
        crc ^= quint64(uchar(byte)) << 56;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 63 ? (crc << 1) ^ Q_UINT64_C(0x42F0E1EBA9EA3693) : crc << 1;
    }
    return bytes.empty() ? 0 : ~crc;
}

} // namespace

TEST(Checksum, givesThePublishedCheckValue)
{
    EXPECT_EQ(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A));
    EXPECT_EQ(qChecksum64(nullptr, 0), 0u);
}

TEST(Checksum, agreesWithTheBitwiseDefinitionAtEveryLengthAndOffset)
{
    constexpr quint64 kSeed = 64;
    std::mt19937_64 random(kSeed);
    std::string bytes(80, '\0');
    for (char &byte : bytes)
        byte = char(random());
    for (size_t begin = 0; begin < 9; ++begin) {
        for (size_t length = 0; length <= 70; ++length)
            ASSERT_EQ(qChecksum64(bytes.data() + begin, uint(length)),
                      slowChecksum(bytes.substr(begin, length)))
                << "seed " << kSeed << ", begin " << begin << ", length " << length;
    }
}

struct FuzzyPair {
    const char *name;
    double a, b;
    bool equal;
};

class FuzzyCompare : public ::testing::TestWithParam<FuzzyPair>
{
};

TEST_P(FuzzyCompare, comparesTwelveDigits)
{
    const FuzzyPair &pair = GetParam();
    EXPECT_EQ(commonFuzzyCompare(pair.a, pair.b), pair.equal);
    EXPECT_EQ(commonFuzzyCompare(pair.b, pair.a), pair.equal);
    EXPECT_EQ(commonFuzzyCompare(-pair.a, -pair.b), pair.equal);
}

const auto caseName = [](const auto &info) { return std::string(info.param.name); };
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(Numbers, FuzzyCompare,
                         ::testing::Values(FuzzyPair{"below_zero_limit", 0, 1e-13, true},
                                           FuzzyPair{"at_zero_limit", -1e-12, 1e-12, true},
                                           FuzzyPair{"above_zero_limit", 0, 1e-11, false},
                                           FuzzyPair{"thirteenth_digit", 1, 1 + 1e-13, true},
                                           FuzzyPair{"eleventh_digit", 1, 1 + 1e-11, false},
                                           FuzzyPair{"large", 1e20, 1e20 + 1e7, true},
                                           FuzzyPair{"signs", 1, -1, false},
                                           FuzzyPair{"nan", kNaN, kNaN, false},
                                           FuzzyPair{"zero_and_nan", 0, kNaN, false}),
                         caseName);
