#pragma once

#include <QtEndian>

// Integers in byte buffers, in a byte order that is known only at run time. Sizes of 1, 2, 4 and 8 bytes
// have direct paths; any other size up to 8 goes byte by byte, and of a larger one the low 64 bits count.
// The caller has checked that `size` bytes stand at `offset`.

inline quint64 extractInteger(const void *bytes, qsizetype offset, quint32 size, bool bigEndian)
{
    const uchar *p = static_cast<const uchar *>(bytes) + offset;
    switch (size) {
    case 1: return *p;
    case 2: return bigEndian ? qFromBigEndian<quint16>(p) : qFromLittleEndian<quint16>(p);
    case 4: return bigEndian ? qFromBigEndian<quint32>(p) : qFromLittleEndian<quint32>(p);
    case 8: return bigEndian ? qFromBigEndian<quint64>(p) : qFromLittleEndian<quint64>(p);
    }
    quint64 value = 0;
    for (quint32 i = 0; i < size; ++i)
        value = value << 8 | p[bigEndian ? i : size - 1 - i];
    return value;
}

inline void insertInteger(void *bytes, qsizetype offset, quint64 value, quint32 size, bool bigEndian)
{
    uchar *p = static_cast<uchar *>(bytes) + offset;
    switch (size) {
    case 1: *p = uchar(value); return;
    case 2: bigEndian ? qToBigEndian(quint16(value), p) : qToLittleEndian(quint16(value), p); return;
    case 4: bigEndian ? qToBigEndian(quint32(value), p) : qToLittleEndian(quint32(value), p); return;
    case 8: bigEndian ? qToBigEndian(value, p) : qToLittleEndian(value, p); return;
    }
    for (quint32 i = 0; i < size; ++i) {
        p[bigEndian ? size - 1 - i : i] = uchar(value);
        value >>= 8;
    }
}
