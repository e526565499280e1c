#include "target/link/HMessage.h"

#include "base/ByteOrder.h"

#include <cstring>

HMessage::HMessage(const HMessage &other)
{
    *this = other;
}

HMessage &HMessage::operator=(const HMessage &other)
{
    m_owned = other.m_owned;
    m_isOwner = other.m_isOwner;
    m_bytes = m_isOwner ? ownBytes() : other.m_bytes; // data() makes the bytes our own
    m_cursor = other.m_cursor;
    m_endMark = other.m_endMark;
    m_secondMark = other.m_secondMark;
    return *this;
}

QByteArray HMessage::bytesOfHex(const char *text)
{
    QByteArray bytes;
    bool isOpen = false; // the last byte has one digit yet
    for (; text && *text; ++text) {
        const char c = *text;
        const int digit = c >= '0' && c <= '9'                 ? c - '0'
                          : (c | 32) >= 'a' && (c | 32) <= 'f' ? (c | 32) - 'a' + 10
                                                               : -1;
        if (digit < 0) {
            isOpen = false;
        } else if (isOpen) {
            bytes.back() = char(bytes.back() << 4 | digit);
            isOpen = false;
        } else {
            bytes += char(digit);
            isOpen = true;
        }
    }
    return bytes;
}

void HMessage::put(quint32 offset, quint32 value, quint32 size, bool bigEndian)
{
    if (holds(offset, size))
        insertInteger(m_bytes.data(), offset, value, size, bigEndian);
}

quint32 HMessage::get(quint32 offset, quint32 size, bool bigEndian) const
{
    return holds(offset, size) ? quint32(extractInteger(m_bytes.data(), offset, size, bigEndian)) : 0;
}

void HMessage::putBytesAt(quint32 offset, const void *source, quint32 count)
{
    if (count && holds(offset, count))
        std::memcpy(&m_bytes[offset], source, count);
}

void HMessage::getBytesAt(quint32 offset, void *dest, quint32 count) const
{
    if (count && holds(offset, count))
        std::memcpy(dest, &m_bytes[offset], count);
    else if (count)
        std::memset(dest, 0, count);
}

quint32 HMessage::putStringAt(quint32 offset, const char *text)
{
    const quint32 count = quint32(std::strlen(text) + 1);
    putBytesAt(offset, text, count);
    return count;
}

quint32 HMessage::getString(char *dest, quint32 limit)
{
    const quint32 count = getStringAt(m_cursor, dest, limit);
    advance(count);
    return count;
}

quint32 HMessage::getStringAt(quint32 offset, char *dest, quint32 limit) const
{
    const quint32 available = offset < capacity() ? capacity() - offset : 0;
    const char *const text = reinterpret_cast<const char *>(m_bytes.data()) + (available ? offset : 0);
    const quint32 length = available ? quint32(strnlen(text, available)) : 0;
    if (limit) {
        const quint32 copied = std::min(length, limit - 1);
        if (copied)
            std::memcpy(dest, text, copied);
        dest[copied] = 0;
    }
    return length + 1;
}

HMessage::Leb HMessage::readLeb(quint32 offset) const
{
    Leb leb;
    while (holds(offset, leb.count + 1)) {
        const quint8 byte = m_bytes[offset + leb.count];
        leb.value |= quint32(byte & 0x7F) << 7 * leb.count;
        ++leb.count;
        if (!(byte & 0x80))
            break;
        if (leb.count == 4) {
            leb.isTooLong = true;
            break;
        }
    }
    return leb;
}

quint32 HMessage::getULEB(quint32 &value)
{
    return getULEBAt(advance(readLeb(m_cursor).count), value);
}

quint32 HMessage::getULEBAt(quint32 offset, quint32 &value) const
{
    const Leb leb = readLeb(offset);
    value = leb.isTooLong ? 0xFFFFFFFF : leb.value;
    return leb.count;
}

quint32 HMessage::getSLEB(qint32 &value)
{
    return getSLEBAt(advance(readLeb(m_cursor).count), value);
}

quint32 HMessage::getSLEBAt(quint32 offset, qint32 &value) const
{
    const Leb leb = readLeb(offset);
    const quint32 unused = 32 - 7 * leb.count; // bits above the last group
    value = leb.isTooLong ? 0x7FFFFFFF : leb.count ? qint32(leb.value << unused) >> unused : 0;
    return leb.count;
}
