#include "target/memory/MemoryBlock.h"

#include "base/ByteOrder.h"

#include <array>
#include <cstring>

using uint128 = unsigned __int128;

// The bytes around a bit field as one number, and where the field stands in it. A container of 8 bytes whose
// field reaches past it needs 72 bits.
struct MemoryBlockInterface::BitContainer
{
    std::array<quint8, 9> bytes{};
    quint32 size = 0;     // of the declared container
    bool isAbove = false; // bytes[size] stands above the container's bytes
    bool isBelow = false; // bytes[size] stands below them
    uint128 value = 0;
    quint32 shift = 0;
    uint128 mask = 0;

    quint32 count() const { return size + (isAbove || isBelow); }
};

quint64 MemoryBlockInterface::readInteger(quint32 size)
{
    std::array<quint8, 16> bytes{};
    if (size > bytes.size())
        return 0;
    readBytes(size, bytes.data());
    return extractInteger(bytes.data(), 0, size, m_bigEndian);
}

void MemoryBlockInterface::writeInteger(quint64 value, quint32 size)
{
    std::array<quint8, 16> bytes{};
    if (size > bytes.size())
        return;
    insertInteger(bytes.data(), 0, value, size, m_bigEndian);
    writeBytes(size, bytes.data());
}

void MemoryBlockInterface::readAt(quint32 offset, quint32 count, void *dest)
{
    const quint32 place = position();
    skip(offset);
    readBytes(count, dest);
    setPosition(place);
}

bool MemoryBlockInterface::readContainer(BitContainer &container, quint32 offset, quint32 size, qint32 bitOffset,
                                         quint32 bitSize)
{
    if (size == 0 || size > 8 || bitSize == 0 || bitSize > 64)
        return false;
    const qint64 bits = qint64(size) * 8;
    qint64 shift = bits - ((bitOffset < 0 ? bitOffset : bitOffset % bits) + qint64(bitSize));
    container.size = size;
    container.isAbove = bitOffset < 0;
    container.isBelow = shift < 0 && !container.isAbove && m_bigEndian;
    if (container.isBelow)
        shift += 8;
    if (shift < 0 || shift + bitSize > container.count() * 8)
        return false;
    readAt(offset, container.count(), container.bytes.data());
    container.value = extractInteger(container.bytes.data(), 0, size, m_bigEndian);
    if (container.isAbove)
        container.value |= uint128(container.bytes[size]) << bits;
    else if (container.isBelow)
        container.value = container.value << 8 | container.bytes[size];
    container.shift = quint32(shift);
    container.mask = (uint128(1) << bitSize) - 1;
    return true;
}

quint64 MemoryBlockInterface::readBitField(quint32 offset, quint32 size, qint32 bitOffset, quint32 bitSize)
{
    BitContainer container;
    if (!readContainer(container, offset, size, bitOffset, bitSize))
        return 0;
    return quint64(container.value >> container.shift & container.mask);
}

void MemoryBlockInterface::writeBitField(quint64 value, quint32 offset, quint32 size, qint32 bitOffset, quint32 bitSize)
{
    BitContainer container;
    if (!readContainer(container, offset, size, bitOffset, bitSize))
        return;
    container.value &= ~(container.mask << container.shift);
    container.value |= (value & container.mask) << container.shift;
    if (container.isAbove) {
        container.bytes[size] = quint8(container.value >> size * 8);
    } else if (container.isBelow) {
        container.bytes[size] = quint8(container.value);
        container.value >>= 8;
    }
    insertInteger(container.bytes.data(), 0, quint64(container.value), size, m_bigEndian);
    const quint32 place = position();
    skip(offset);
    writeBytes(container.count(), container.bytes.data());
    setPosition(place);
}

quint64 MemoryBlockInterface::readBitFieldFromLow(quint32 offset, quint32 size, quint32 bitOffset, quint32 bitSize)
{
    std::array<quint8, 8> bytes{};
    if (size > bytes.size() || bitOffset >= 64 || bitSize == 0)
        return 0;
    readAt(offset, size, bytes.data());
    const quint64 value = extractInteger(bytes.data(), 0, size, m_bigEndian) >> bitOffset;
    return bitSize < 64 ? value & ((quint64(1) << bitSize) - 1) : value;
}

void MemoryBlock::readBytes(quint32 count, void *dest)
{
    if (!holds(count))
        return;
    std::memcpy(dest, m_bytes.constData() + m_position, count);
    m_position += count;
}

void MemoryBlock::writeBytes(quint32 count, const void *source)
{
    if (!holds(count))
        return;
    std::memcpy(m_bytes.data() + m_position, source, count);
    m_position += count;
}

quint32 MemoryBlock::readString(quint32 limit, char *dest)
{
    const quint32 available = m_position < size() ? size() - m_position : 0;
    const size_t length = available ? strnlen(m_bytes.constData() + m_position, std::min(limit, available)) : 0;
    if (length)
        std::memcpy(dest, m_bytes.constData() + m_position, length);
    if (length < limit)
        std::memset(dest + length, 0, limit - length);
    return quint32(length);
}

void LazyMemoryBlock::readBytes(quint32 count, void *dest)
{
    m_memory.readLocation(m_kind, m_address + m_position, count, dest);
    m_position += count;
}

void LazyMemoryBlock::writeBytes(quint32 count, const void *source)
{
    m_memory.writeLocation(m_kind, m_address + m_position, count, source);
    m_position += count;
}

quint32 LazyMemoryBlock::readString(quint32 limit, char *dest)
{
    if (limit == 0)
        return 0;
    std::memset(dest, 0, limit);
    m_memory.readLocation(m_kind, m_address + m_position, limit, dest);
    const quint32 length = quint32(strnlen(dest, limit));
    if (length < limit)
        return length;
    dest[limit - 1] = 0;
    return limit - 1;
}
