#pragma once

#include <database/bcdii.h>

#include <gmpxx.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

/// What the packed arithmetic is checked against: a number is an integer of arbitrary size and a
/// scale, and digits are placed one at a time.
namespace bcdiimodel
{

using Bytes = std::vector<uchar>; // exactly as long as the type says, so that sanitizers see more

constexpr BCDIIType typeOf(int precision, int scale)
{
    return BCDIIType(precision) << 8 | quint8(scale);
}

inline int precisionOf(BCDIIType type)
{
    return int(type >> 8);
}

inline int scaleOf(BCDIIType type)
{
    return qint8(type);
}

inline const mpz_class &powerOfTen(int exponent)
{
    static const std::vector<mpz_class> powers = [] {
        std::vector<mpz_class> all(320, 1);
        for (size_t i = 1; i < all.size(); ++i)
            all[i] = all[i - 1] * 10;
        return all;
    }();
    return powers.at(size_t(exponent));
}

/// The byte of the digit of 10^exponent; floor, as exponents behind the point are negative.
inline int byteOf(BCDIIType type, int exponent)
{
    const auto pair = [](int e) { return e >= 0 ? e / 2 : -((1 - e) / 2); };
    return pair(precisionOf(type) - scaleOf(type) - 1) - pair(exponent);
}

/// The bytes of unscaled x 10^-scale.
inline Bytes encode(const mpz_class &unscaled, BCDIIType type)
{
    const std::string text = mpz_class(abs(unscaled)).get_str();
    Bytes bytes(size_t(byteOf(type, -scaleOf(type)) + 1), 0);
    for (int i = 0; i < int(text.size()); ++i) {
        const int exponent = i - scaleOf(type);
        const int digit = text[text.size() - 1 - size_t(i)] - '0';
        bytes.at(size_t(byteOf(type, exponent))) += uchar(exponent % 2 ? 10 * digit : digit);
    }
    if (unscaled < 0)
        bytes[0] |= 0x80;
    return bytes;
}

using Result = std::pair<quint32, Bytes>; // a status, and the marker alone for NULL

/// What an operation left behind, without the bytes that a NULL does not define.
inline Result result(quint32 status, Bytes digits)
{
    if (digits[0] == 101)
        digits.resize(1);
    return {status, digits};
}

/// unscaled x 10^-scale, brought into \p type.
inline Result rounded(const mpz_class &unscaled, int scale, BCDIIType type, int style)
{
    const int drop = scale - scaleOf(type);
    const bool negative = unscaled < 0;
    const quint32 sign = negative ? 0x04 : 0;
    const auto signedBytes = [&](const mpz_class &magnitude) {
        return encode(negative ? mpz_class(-magnitude) : magnitude, type);
    };
    mpz_class kept = abs(unscaled);
    mpz_class rest = 0;
    if (kept == 0)
        return {0x02, encode(kept, type)};
    if (drop <= 0)
        kept *= powerOfTen(-drop);
    else
        mpz_tdiv_qr(kept.get_mpz_t(), rest.get_mpz_t(), kept.get_mpz_t(),
                    powerOfTen(drop).get_mpz_t());
    const mpz_class &limit = powerOfTen(precisionOf(type));
    if (kept >= limit)
        return {0x11, {101}};
    if (rest == 0)
        return {sign, signedBytes(kept)};

    const bool up = style == BCDII_ROUND_HALF_UP ? rest >= 5 * powerOfTen(drop - 1)
                    : style == BCDII_ROUND_CEIL  ? !negative
                    : style == BCDII_ROUND_FLOOR ? negative
                                                 : style == BCDII_ROUND_UP;
    if (up && kept == 0 && scaleOf(type) <= 0)
        return {style == BCDII_ROUND_CEIL || style == BCDII_ROUND_FLOOR ? 0x15u : 0x11u, {101}};
    kept += up ? 1 : 0;
    if (kept == limit)
        return {0x51, {101}};
    if (kept == 0)
        return {0x42, encode(kept, type)};
    return {0x40 | sign, signedBytes(kept)};
}

} // namespace bcdiimodel
