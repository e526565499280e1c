#pragma once

#include "target/link/HDataLink.h"

#include <QByteArray>
#include <span>

// A byte buffer with a cursor, to build and take apart messages. Each put and get has a form at the cursor, which
// passes over what it moved, and an "At" form at an offset, which leaves the cursor alone. Offsets count bytes.
//
// What would leave the buffer is not done: a put stores nothing, a get gives 0 or an empty text; the cursor passes
// on all the same, so that a loop over a broken message ends.
class HMessage
{
public:
    explicit HMessage(quint32 capacity) : HMessage(QByteArray(qsizetype(capacity), '\0')) {}
    explicit HMessage(QByteArray bytes) : m_owned(std::move(bytes)), m_bytes(ownBytes()), m_isOwner(true) {}
    // Over the caller's bytes, which outlive the message.
    explicit HMessage(std::span<quint8> bytes) : m_bytes(bytes) {}
    // Pairs of hex digits; any other character ends a byte: "4D 9" gives 0x4D and 0x09. Null is empty.
    explicit HMessage(const char *hexText) : HMessage(bytesOfHex(hexText)) {}
    // A copy owns bytes of its own if the original does, else it lies over the same bytes.
    HMessage(const HMessage &other);
    HMessage &operator=(const HMessage &other);

    // Fill the whole buffer from a link, or send it. Give the number of bytes moved.
    quint32 readFrom(HIOInterface &link) { return link.read(m_bytes.data(), capacity()); }
    quint32 writeTo(HIOInterface &link) const { return link.write(m_bytes.data(), capacity()); }

    void putU32(quint32 value, bool bigEndian) { putU32At(advance(4), value, bigEndian); }
    void putU32At(quint32 offset, quint32 value, bool bigEndian) { put(offset, value, 4, bigEndian); }
    quint32 getU32(bool bigEndian) { return getU32At(advance(4), bigEndian); }
    quint32 getU32At(quint32 offset, bool bigEndian) const { return quint32(get(offset, 4, bigEndian)); }
    void putS32(qint32 value, bool bigEndian) { putU32(quint32(value), bigEndian); }
    void putS32At(quint32 offset, qint32 value, bool bigEndian) { putU32At(offset, quint32(value), bigEndian); }
    qint32 getS32(bool bigEndian) { return qint32(getU32(bigEndian)); }
    qint32 getS32At(quint32 offset, bool bigEndian) const { return qint32(getU32At(offset, bigEndian)); }

    void putU16(quint16 value, bool bigEndian) { putU16At(advance(2), value, bigEndian); }
    void putU16At(quint32 offset, quint16 value, bool bigEndian) { put(offset, value, 2, bigEndian); }
    quint16 getU16(bool bigEndian) { return getU16At(advance(2), bigEndian); }
    quint16 getU16At(quint32 offset, bool bigEndian) const { return quint16(get(offset, 2, bigEndian)); }
    void putS16(qint16 value, bool bigEndian) { putU16(quint16(value), bigEndian); }
    void putS16At(quint32 offset, qint16 value, bool bigEndian) { putU16At(offset, quint16(value), bigEndian); }
    qint16 getS16(bool bigEndian) { return qint16(getU16(bigEndian)); }
    qint16 getS16At(quint32 offset, bool bigEndian) const { return qint16(getU16At(offset, bigEndian)); }

    void putU8(quint8 value) { putU8At(advance(1), value); }
    void putU8At(quint32 offset, quint8 value) { put(offset, value, 1, false); }
    quint8 getU8() { return getU8At(advance(1)); }
    quint8 getU8At(quint32 offset) const { return quint8(get(offset, 1, false)); }
    void putS8(qint8 value) { putU8(quint8(value)); }
    void putS8At(quint32 offset, qint8 value) { putU8At(offset, quint8(value)); }
    qint8 getS8() { return qint8(getU8()); }
    qint8 getS8At(quint32 offset) const { return qint8(getU8At(offset)); }

    void putBytes(const void *source, quint32 count) { putBytesAt(advance(count), source, count); }
    void putBytesAt(quint32 offset, const void *source, quint32 count);
    void getBytes(void *dest, quint32 count) { getBytesAt(advance(count), dest, count); }
    void getBytesAt(quint32 offset, void *dest, quint32 count) const;

    // Texts are stored with their NUL. A get writes at most `limit` bytes, its NUL among them, but passes over
    // the whole stored text and gives the bytes that it takes up.
    void putString(const char *text) { advance(putStringAt(m_cursor, text)); }
    quint32 putStringAt(quint32 offset, const char *text);
    quint32 getString(char *dest, quint32 limit);
    quint32 getStringAt(quint32 offset, char *dest, quint32 limit) const;

    // LEB128 of at most 4 bytes; a longer one gives 0xFFFFFFFF or 0x7FFFFFFF. Give the bytes consumed.
    quint32 getULEB(quint32 &value);
    quint32 getULEBAt(quint32 offset, quint32 &value) const;
    quint32 getSLEB(qint32 &value);
    quint32 getSLEBAt(quint32 offset, qint32 &value) const;

    // -1 moves the cursor to the end mark.
    void seek(qint32 position) { m_cursor = position == -1 ? m_endMark : quint32(position); }
    void setEndMark(quint32 mark) { m_endMark = mark; }
    void setSecondMark(quint32 mark) { m_secondMark = mark; }

    quint32 capacity() const { return quint32(m_bytes.size()); }
    quint32 cursor() const { return m_cursor; }
    quint32 endMark() const { return m_endMark; }
    quint32 secondMark() const { return m_secondMark; }
    std::span<const quint8> bytes() const { return m_bytes; }

private:
    static QByteArray bytesOfHex(const char *text);
    std::span<quint8> ownBytes() { return {reinterpret_cast<quint8 *>(m_owned.data()), size_t(m_owned.size())}; }
    // Where the cursor stood before it passed on, by no more than leads to the last offset.
    quint32 advance(quint32 count)
    {
        const quint32 offset = m_cursor;
        m_cursor += std::min(count, ~m_cursor);
        return offset;
    }
    bool holds(quint32 offset, quint32 count) const { return offset <= capacity() && count <= capacity() - offset; }
    void put(quint32 offset, quint32 value, quint32 size, bool bigEndian);
    quint32 get(quint32 offset, quint32 size, bool bigEndian) const;
    // The groups of a LEB128 number, how many there are, and whether the fourth says that more follow.
    struct Leb
    {
        quint32 value = 0;
        quint32 count = 0;
        bool isTooLong = false;
    };
    Leb readLeb(quint32 offset) const;

    QByteArray m_owned;
    std::span<quint8> m_bytes; // of m_owned, or the caller's
    bool m_isOwner = false;
    quint32 m_cursor = 0;
    quint32 m_endMark = 0;
    quint32 m_secondMark = 0;
};
