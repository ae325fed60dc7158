#include "database/values/checksum.h"

#include <QtCore/qendian.h>

#include <array>

namespace
{

constexpr quint64 kPolynomial = Q_UINT64_C(0x42F0E1EBA9EA3693);
constexpr int kSlices = 8;

using Table = std::array<quint64, 256>;

/// Slice 0 holds the remainders of the byte values at the top of the register; slice k those of the
/// same bytes with k zero bytes behind them. Eight bytes are then eight independent look-ups.
constexpr std::array<Table, kSlices> makeTables()
{
    std::array<Table, kSlices> tables{};
    for (int i = 0; i < 256; ++i) {
        quint64 crc = quint64(i) << 56;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ (crc >> 63 ? kPolynomial : 0);
        tables[0][i] = crc;
    }
    for (int slice = 1; slice < kSlices; ++slice) {
        for (int i = 0; i < 256; ++i) {
            const quint64 crc = tables[slice - 1][i];
            tables[slice][i] = (crc << 8) ^ tables[0][crc >> 56];
        }
    }
    return tables;
}

constexpr std::array<Table, kSlices> kTables = makeTables();

} // namespace

quint64 qChecksum64(const char *data, uint length)
{
    if (length == 0)
        return 0;
    quint64 crc = ~quint64(0);
    for (; length >= kSlices; data += kSlices, length -= kSlices) {
        const quint64 bytes = crc ^ qFromBigEndian<quint64>(data);
        crc = 0;
        for (int slice = 0; slice < kSlices; ++slice)
            crc ^= kTables[slice][(bytes >> (8 * slice)) & 0xFF];
    }
    for (; length > 0; ++data, --length)
        crc = (crc << 8) ^ kTables[0][uchar(*data) ^ (crc >> 56)];
    return ~crc;
}
