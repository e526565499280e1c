#pragma once

#include <QtGlobal>
#include <span>

// CRC-32 as BZip2 has it: polynomial 0x04C11DB7, most significant bit first, start value 0xFFFFFFFF, final
// inversion. Not zlib's reflected CRC.
quint32 crc32Bzip2(std::span<const quint8> bytes);

// One stretch of a longer run, from and to the uninverted register: start with 0xFFFFFFFF.
quint32 crc32Bzip2Update(quint32 crc, std::span<const quint8> bytes);
