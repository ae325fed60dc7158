#include <database/values/checksum.h>
#include <database/values/fuzzycompare.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>

TEST(Checksum, agreesWithTheBitwiseDefinitionAtEveryLengthAndOffset)
{
    EXPECT_EQ(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A)); // published
    EXPECT_EQ(qChecksum64(nullptr, 0), 0u);

    std::string bytes(80, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = char(7 * i * i + 93);
    for (size_t begin = 0; begin < 9; ++begin) {
        quint64 crc = ~quint64(0);
        for (size_t length = 1; length <= 70; ++length) {
            crc ^= quint64(uchar(bytes[begin + length - 1])) << 56;
            for (int bit = 0; bit < 8; ++bit)
                crc = crc >> 63 ? (crc << 1) ^ Q_UINT64_C(0x42F0E1EBA9EA3693) : crc << 1;
            ASSERT_EQ(qChecksum64(bytes.data() + begin, uint(length)), ~crc)
                << "begin " << begin << ", length " << length;
        }
    }
}

TEST(FuzzyCompare, comparesTwelveDigits)
{
    const double nan = std::nan("");
    const struct {
        const char *name;
        double a, b;
        bool equal;
    } rows[] = {{"below_zero_limit", 0, 1e-13, true},
                {"at_zero_limit", -1e-12, 1e-12, true},
                {"above_zero_limit", 0, 1e-11, false},
                {"thirteenth_digit", 1, 1 + 1e-13, true},
                {"eleventh_digit", 1, 1 + 1e-11, false},
                {"large", 1e20, 1e20 + 1e7, true},
                {"signs", 1, -1, false},
                {"zero_and_nan", 0, nan, false},
                {"nan", nan, nan, false}};
    for (const auto &[name, a, b, equal] : rows) {
        EXPECT_EQ(commonFuzzyCompare(a, b), equal) << name;
        EXPECT_EQ(commonFuzzyCompare(b, a), equal) << name;
        EXPECT_EQ(commonFuzzyCompare(-a, -b), equal) << name;
    }
}
