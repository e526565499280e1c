#pragma once

#include <QByteArray>
#include <utility>

// A cursor over bytes of the target that knows their byte order.
class MemoryBlockInterface
{
public:
    explicit MemoryBlockInterface(bool bigEndian) : m_bigEndian(bigEndian) {}
    MemoryBlockInterface(const MemoryBlockInterface &) = delete;
    MemoryBlockInterface &operator=(const MemoryBlockInterface &) = delete;
    virtual ~MemoryBlockInterface() = default;

    // Bytes from the block's start to the cursor.
    virtual quint32 position() const = 0;
    virtual void setPosition(quint32 position) = 0;
    virtual void rewind() { setPosition(0); }
    virtual void skip(quint32 count) = 0;
    // An unsigned integer at the cursor, which passes over it. Of more than 8 bytes the low 64 bits count;
    // more than 16 bytes are no integer: 0, and the cursor stays.
    virtual quint64 readInteger(quint32 size);
    virtual void writeInteger(quint64 value, quint32 size);
    virtual void readBytes(quint32 count, void *dest) = 0;
    virtual void writeBytes(quint32 count, const void *source) = 0;
    // The text at the cursor, which stays. Writes at most `limit` bytes and gives the length without the NUL.
    virtual quint32 readString(quint32 limit, char *dest) = 0;

    // A bit field in the container of `size` bytes (at most 8) that stands `offset` bytes behind the cursor,
    // which stays. `bitOffset` counts from the container's most significant bit to the field's, as DWARF's
    // DW_AT_bit_offset does. A field that reaches past the container takes in the byte behind it: with a
    // negative `bitOffset` as the most significant one, in big-endian memory at the other end as the least
    // significant one. What is no field of at most 64 bits in such a container reads 0 and is not written.
    virtual quint64 readBitField(quint32 offset, quint32 size, qint32 bitOffset, quint32 bitSize);
    virtual void writeBitField(quint64 value, quint32 offset, quint32 size, qint32 bitOffset, quint32 bitSize);

    // The same with `bitOffset` counted from the container's least significant bit, for DW_AT_data_bit_offset.
    quint64 readBitFieldFromLow(quint32 offset, quint32 size, quint32 bitOffset, quint32 bitSize);

    bool bigEndian() const { return m_bigEndian; }

private:
    struct BitContainer;
    bool readContainer(BitContainer &container, quint32 offset, quint32 size, qint32 bitOffset, quint32 bitSize);
    void readAt(quint32 offset, quint32 count, void *dest);

    bool m_bigEndian;
};

// A block with bytes of its own. What would leave them is not done: integers read as 0, writes are dropped and
// the cursor stays.
class MemoryBlock : public MemoryBlockInterface
{
public:
    MemoryBlock(quint32 size, bool bigEndian) : MemoryBlock(QByteArray(qsizetype(size), '\0'), bigEndian) {}
    MemoryBlock(QByteArray bytes, bool bigEndian) : MemoryBlockInterface(bigEndian), m_bytes(std::move(bytes)) {}

    quint32 position() const override { return m_position; }
    void setPosition(quint32 position) override { m_position = position; }
    void skip(quint32 count) override { m_position += std::min(count, ~m_position); } // never back into the block
    void readBytes(quint32 count, void *dest) override;
    void writeBytes(quint32 count, const void *source) override;
    // Without a NUL among the first `limit` bytes the text has that length and no NUL is written.
    quint32 readString(quint32 limit, char *dest) override;

    quint32 size() const { return quint32(m_bytes.size()); }
    char *data() { return m_bytes.data(); }
    const QByteArray &bytes() const { return m_bytes; }

private:
    bool holds(quint32 count) const { return m_position <= size() && count <= size() - m_position; }

    QByteArray m_bytes;
    quint32 m_position = 0; // may lie outside
};

// Where a LazyMemoryBlock gets its bytes: the expression evaluator. Each location kind, 0 to 3, is an address
// space of the evaluator. Failures are the evaluator's own exceptions.
class LocationMemory
{
public:
    virtual ~LocationMemory() = default;
    virtual void readLocation(quint32 kind, quint32 address, quint32 length, void *dest) = 0;
    virtual void writeLocation(quint32 kind, quint32 address, quint32 length, const void *source) = 0;
};

// A block without bytes: every read and write goes to the target at once, so that of a large value only what is
// shown is read.
class LazyMemoryBlock : public MemoryBlockInterface
{
public:
    // `memory` outlives the block.
    LazyMemoryBlock(LocationMemory &memory, bool bigEndian, quint32 kind, quint32 address)
        : MemoryBlockInterface(bigEndian), m_memory(memory), m_kind(kind), m_address(address)
    {}

    quint32 position() const override { return m_position; }
    void setPosition(quint32 position) override { m_position = position; }
    void skip(quint32 count) override { m_position += count; }
    void readBytes(quint32 count, void *dest) override;
    void writeBytes(quint32 count, const void *source) override;
    // Always ends with a NUL unless `limit` is 0; a longer text is cut.
    quint32 readString(quint32 limit, char *dest) override;

private:
    LocationMemory &m_memory;
    quint32 m_kind;
    quint32 m_address;
    quint32 m_position = 0; // wraps with the address
};
