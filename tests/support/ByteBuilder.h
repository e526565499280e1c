#pragma once

#include "base/ByteOrder.h"

#include <QByteArray>
#include <span>

// Puts together the bytes of a foreign format, field by field, in one byte order.
class ByteBuilder
{
public:
    explicit ByteBuilder(bool bigEndian) : m_bigEndian(bigEndian) {}

    ByteBuilder &number(quint64 value, quint32 size)
    {
        const qsizetype at = m_bytes.size();
        m_bytes.resize(at + size);
        insertInteger(m_bytes.data(), at, value, size, m_bigEndian);
        return *this;
    }
    ByteBuilder &u8(quint64 value) { return number(value, 1); }
    ByteBuilder &u16(quint64 value) { return number(value, 2); }
    ByteBuilder &u32(quint64 value) { return number(value, 4); }
    ByteBuilder &u64(quint64 value) { return number(value, 8); }
    ByteBuilder &text(QByteArrayView text)
    {
        m_bytes.append(text).append('\0');
        return *this;
    }
    ByteBuilder &bytes(QByteArrayView bytes)
    {
        m_bytes.append(bytes);
        return *this;
    }
    ByteBuilder &hex(const char *digits) { return bytes(QByteArray::fromHex(digits)); }
    ByteBuilder &uleb(quint64 value)
    {
        do
            u8((value & 0x7F) | (value > 0x7F ? 0x80 : 0));
        while (value >>= 7);
        return *this;
    }
    ByteBuilder &sleb(qint64 value)
    {
        bool isLast = false;
        while (!isLast) {
            const quint8 low = value & 0x7F;
            value >>= 7;
            isLast = value == (low & 0x40 ? -1 : 0);
            u8(low | (isLast ? 0 : 0x80));
        }
        return *this;
    }
    // A length field of 4 bytes and what it counts.
    ByteBuilder &counted(const ByteBuilder &content) { return u32(quint64(content.size())).bytes(content.m_bytes); }

    qsizetype size() const { return m_bytes.size(); }
    bool bigEndian() const { return m_bigEndian; }
    const QByteArray &data() const { return m_bytes; }
    std::span<const quint8> span() const
    {
        return {reinterpret_cast<const quint8 *>(m_bytes.constData()), size_t(m_bytes.size())};
    }

private:
    QByteArray m_bytes;
    bool m_bigEndian;
};
