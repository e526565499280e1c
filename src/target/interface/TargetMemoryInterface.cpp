#include "target/interface/TargetMemoryInterface.h"

#include "base/ByteOrder.h"
#include "base/HException.h"

#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 pieceSize = 256; // of fills and conversions
constexpr quint32 verifyPieceSize = 1024;
constexpr quint32 maximumIntegerSize = 16;

void checkSize(quint32 size)
{
    if (size == 0 || size > maximumIntegerSize)
        throw HException(u"no integer has %1 bytes"_s.arg(size));
}

} // namespace

QString TargetMemoryInterface::readCString(quint32 address, quint32 maximumLength, quint32 blockSize, quint32 alignment)
{
    QByteArray text;
    blockSize = std::max(blockSize, 1u);
    alignment = std::max(alignment, 1u);
    while (quint32(text.size()) < maximumLength) {
        const quint32 place = address + quint32(text.size());
        const quint32 left = maximumLength - quint32(text.size());
        const quint32 count = std::min({alignment - place % alignment, blockSize, left});
        QByteArray piece(qsizetype(count), Qt::Uninitialized);
        readMemory(place, count, piece.data());
        const qsizetype nul = piece.indexOf('\0');
        text += nul < 0 ? piece : piece.first(nul);
        if (nul >= 0)
            break;
    }
    return QString::fromLatin1(text);
}

void TargetMemoryInterface::fillMemory(quint32 address, quint32 length, quint8 byte)
{
    std::array<quint8, pieceSize> pattern;
    pattern.fill(byte);
    while (length) {
        const quint32 count = std::min(length, pieceSize);
        writeMemory(address, count, pattern.data());
        address += count;
        length -= count;
    }
}

bool TargetMemoryInterface::verifyMemory(quint32 address, quint32 length, const void *data)
{
    std::array<quint8, verifyPieceSize> piece;
    const quint8 *expected = static_cast<const quint8 *>(data);
    while (length) {
        const quint32 count = std::min(length, verifyPieceSize);
        readMemory(address, count, piece.data());
        if (std::memcmp(piece.data(), expected, count) != 0)
            return false;
        address += count;
        expected += count;
        length -= count;
    }
    return true;
}

bool TargetMemoryInterface::blankCheck(quint32, quint32)
{
    throw HException(u"Blank check not possible on this target interface"_s);
}

template <typename Unit>
void TargetMemoryInterface::writeUnits(quint32 address, quint32 count, const Unit *data)
{
    std::array<quint8, pieceSize> piece;
    while (count) {
        const quint32 units = std::min<quint32>(count, pieceSize / sizeof(Unit));
        const quint32 bytes = units * quint32(sizeof(Unit));
        for (quint32 i = 0; i < units; ++i)
            insertInteger(piece.data(), qsizetype(i * sizeof(Unit)), data[i], sizeof(Unit), isBigEndian());
        writeMemory(address, bytes, piece.data());
        address += bytes;
        data += units;
        count -= units;
    }
}

template <typename Unit>
void TargetMemoryInterface::readUnits(quint32 address, quint32 count, Unit *dest)
{
    std::array<quint8, pieceSize> piece;
    while (count) {
        const quint32 units = std::min<quint32>(count, pieceSize / sizeof(Unit));
        const quint32 bytes = units * quint32(sizeof(Unit));
        readMemory(address, bytes, piece.data());
        for (quint32 i = 0; i < units; ++i)
            dest[i] = Unit(extractInteger(piece.data(), qsizetype(i * sizeof(Unit)), sizeof(Unit), isBigEndian()));
        address += bytes;
        dest += units;
        count -= units;
    }
}

template <typename Unit>
void TargetMemoryInterface::fillUnits(quint32 address, quint32 count, Unit value)
{
    std::array<Unit, pieceSize / sizeof(Unit)> pattern;
    pattern.fill(value);
    while (count) {
        const quint32 units = std::min<quint32>(count, quint32(pattern.size()));
        writeUnits(address, units, pattern.data());
        address += units * quint32(sizeof(Unit));
        count -= units;
    }
}

void TargetMemoryInterface::writeUint16s(quint32 address, quint32 count, const quint16 *data)
{
    writeUnits(address, count, data);
}

void TargetMemoryInterface::readUint16s(quint32 address, quint32 count, quint16 *dest)
{
    readUnits(address, count, dest);
}

void TargetMemoryInterface::fillUint16(quint32 address, quint32 count, quint16 value)
{
    fillUnits(address, count, value);
}

void TargetMemoryInterface::writeUint32s(quint32 address, quint32 count, const quint32 *data)
{
    writeUnits(address, count, data);
}

void TargetMemoryInterface::readUint32s(quint32 address, quint32 count, quint32 *dest)
{
    readUnits(address, count, dest);
}

void TargetMemoryInterface::fillUint32(quint32 address, quint32 count, quint32 value)
{
    fillUnits(address, count, value);
}

void TargetMemoryInterface::pokeSized(quint32 address, quint32 size, quint64 value)
{
    checkSize(size);
    std::array<quint8, maximumIntegerSize> bytes;
    insertInteger(bytes.data(), 0, value, size, isBigEndian());
    writeMemory(address, size, bytes.data());
}

quint64 TargetMemoryInterface::peekSized(quint32 address, quint32 size)
{
    checkSize(size);
    std::array<quint8, maximumIntegerSize> bytes;
    readMemory(address, size, bytes.data());
    return extractInteger(bytes.data(), 0, size, isBigEndian());
}

bool TargetMemoryInterface::isInMemory(quint32 address, quint32 length) const
{
    const quint64 last = quint64(address) + std::max(length, 1u) - 1;
    return last <= noLimit && m_ranges.findContaining(address, quint32(last));
}
