#include "base/Crc32.h"

#include <QtEndian>
#include <array>

namespace {

using Table = std::array<quint32, 256>;

// tables[k][b]: what byte b does to the register when k more bytes follow it ("slicing by four").
constexpr std::array<Table, 4> makeTables()
{
    std::array<Table, 4> tables{};
    for (quint32 byte = 0; byte < 256; ++byte) {
        quint32 crc = byte << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc << 1 ^ (crc & 0x80000000 ? 0x04C11DB7 : 0);
        tables[0][byte] = crc;
    }
    for (size_t k = 1; k < tables.size(); ++k)
        for (size_t byte = 0; byte < 256; ++byte)
            tables[k][byte] = tables[k - 1][byte] << 8 ^ tables[0][tables[k - 1][byte] >> 24];
    return tables;
}

constexpr std::array<Table, 4> tables = makeTables();

} // namespace

quint32 crc32Bzip2Update(quint32 crc, std::span<const quint8> bytes)
{
    const quint8 *p = bytes.data();
    size_t left = bytes.size();
    for (; left >= 4; left -= 4, p += 4) {
        crc ^= qFromBigEndian<quint32>(p);
        crc = tables[3][crc >> 24] ^ tables[2][crc >> 16 & 0xFF] ^ tables[1][crc >> 8 & 0xFF] ^ tables[0][crc & 0xFF];
    }
    for (; left; --left)
        crc = crc << 8 ^ tables[0][crc >> 24 ^ *p++];
    return crc;
}

quint32 crc32Bzip2(std::span<const quint8> bytes)
{
    return ~crc32Bzip2Update(0xFFFFFFFF, bytes);
}
