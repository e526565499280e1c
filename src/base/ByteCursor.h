#pragma once

#include "base/ByteOrder.h"

#include <QByteArrayView>
#include <cstring>
#include <span>

// The way to read foreign bytes: a position in a range of bytes with a byte order. No read goes past the
// end. A read that would makes the cursor fail; a failed cursor stays failed, gives zeros and empty ranges
// from then on and keeps its offset for the message, so that a reader tests once per record.
//
// take() gives a cursor over the next bytes for records that carry their length. Offsets of such a cursor
// count from the same place as those of the cursor it came from: in a section, from the section's start.
//
// The cursor doesn't own the bytes; it is small and copied freely.
class ByteCursor
{
public:
    ByteCursor() = default;
    ByteCursor(std::span<const quint8> bytes, bool bigEndian)
        : m_start(bytes.data()), m_position(bytes.data()), m_end(bytes.data() + bytes.size()), m_bigEndian(bigEndian)
    {}

    bool failed() const { return m_failed; }
    bool bigEndian() const { return m_bigEndian; }
    bool atEnd() const { return m_position == m_end || m_failed; }
    qsizetype offset() const { return m_position - m_start; }
    qsizetype remaining() const { return m_failed ? 0 : m_end - m_position; }
    const quint8 *position() const { return m_position; }
    void fail() { m_failed = true; }

    quint8 readU8() { return hasBytes(1) ? *m_position++ : quint8(0); }
    quint16 readU16() { return quint16(readUnsigned(2)); }
    quint32 readU32() { return quint32(readUnsigned(4)); }
    quint64 readU64() { return readUnsigned(8); }

    // An integer of 0 to 8 bytes.
    quint64 readUnsigned(quint32 size)
    {
        if (size > 8)
            fail();
        if (!hasBytes(size))
            return 0;
        const quint64 value = extractInteger(m_position, 0, size, m_bigEndian);
        m_position += size;
        return value;
    }

    // LEB128 (DWARF 5, section 7.6). Bits beyond the 64th are dropped.
    quint64 readUleb128()
    {
        quint64 value = 0;
        for (quint32 shift = 0;; shift += 7) {
            const quint8 byte = readU8();
            if (shift < 64)
                value |= quint64(byte & 0x7F) << shift;
            if (!(byte & 0x80))
                return m_failed ? 0 : value;
        }
    }
    qint64 readSleb128()
    {
        quint64 value = 0;
        for (quint32 shift = 0;;) {
            const quint8 byte = readU8();
            if (shift < 64)
                value |= quint64(byte & 0x7F) << shift;
            shift += 7;
            if (byte & 0x80)
                continue;
            if ((byte & 0x40) && shift < 64)
                value |= ~quint64(0) << shift;
            return m_failed ? 0 : qint64(value);
        }
    }

    // The text up to a NUL, which is passed over too; without a NUL before the end the cursor fails.
    QByteArrayView readString()
    {
        const void *nul = m_failed || m_position == m_end ? nullptr : std::memchr(m_position, 0, size_t(remaining()));
        if (!nul) {
            fail();
            return {};
        }
        const QByteArrayView text(m_position, static_cast<const quint8 *>(nul) - m_position);
        m_position += text.size() + 1;
        return text;
    }

    std::span<const quint8> readBytes(quint64 count)
    {
        if (!hasBytes(count))
            return {};
        const std::span<const quint8> bytes(m_position, count);
        m_position += count;
        return bytes;
    }
    void skip(quint64 count)
    {
        if (hasBytes(count))
            m_position += count;
    }

    // Moves to `offset` (as offset() counts); one outside the cursor's bytes makes it fail.
    void seek(quint64 offset)
    {
        if (m_failed || offset > quint64(m_end - m_start))
            fail();
        else
            m_position = m_start + offset;
    }

    // A cursor over the next `count` bytes, which this one passes over. Too few bytes: both have failed.
    ByteCursor take(quint64 count)
    {
        ByteCursor part = *this;
        skip(count);
        part.m_failed = m_failed;
        part.m_end = m_position;
        return part;
    }

private:
    bool hasBytes(quint64 count)
    {
        if (!m_failed && count <= quint64(m_end - m_position))
            return true;
        m_failed = true;
        return false;
    }

    const quint8 *m_start = nullptr;
    const quint8 *m_position = nullptr;
    const quint8 *m_end = nullptr;
    bool m_bigEndian = false;
    bool m_failed = false;
};
