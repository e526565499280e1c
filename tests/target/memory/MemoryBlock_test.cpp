#include "base/ByteOrder.h"
#include "target/memory/MemoryBlock.h"

#include <gtest/gtest.h>

namespace {

// Location kinds with 4 KiB of their own each; counts the accesses.
class FakeLocations : public LocationMemory
{
public:
    void readLocation(quint32 kind, quint32 address, quint32 length, void *dest) override
    {
        ++reads;
        for (quint32 i = 0; i < length; ++i)
            static_cast<char *>(dest)[i] = spaces[kind][int((address + i) & 0xFFF)];
    }
    void writeLocation(quint32 kind, quint32 address, quint32 length, const void *source) override
    {
        for (quint32 i = 0; i < length; ++i)
            spaces[kind][int((address + i) & 0xFFF)] = static_cast<const char *>(source)[i];
    }

    QByteArray spaces[4] = {QByteArray(4096, '\x11'), QByteArray(4096, '\x22'), QByteArray(4096, '\x33'),
                            QByteArray(4096, '\x44')};
    int reads = 0;
};

TEST(MemoryBlock, ReadsAndWritesInItsByteOrder)
{
    for (const bool bigEndian : {false, true}) {
        MemoryBlock block(16, bigEndian);
        for (const quint32 size : {1u, 2u, 3u, 4u, 6u})
            block.writeInteger(0x060504030201, size);
        EXPECT_EQ(block.position(), 16u);
        EXPECT_EQ(block.bytes().mid(3, 3), bigEndian ? "\3\2\1" : "\1\2\3");
        block.rewind();
        for (const quint32 size : {1u, 2u, 3u, 4u, 6u})
            EXPECT_EQ(block.readInteger(size), 0x060504030201 & ((quint64(1) << size * 8) - 1));
        EXPECT_EQ(block.readInteger(1), 0u);
    }
}

TEST(MemoryBlock, DoesNothingOutsideItsBytes)
{
    MemoryBlock block(QByteArray("abcd"), false);
    block.setPosition(2);
    EXPECT_EQ(block.readInteger(4), 0u);
    EXPECT_EQ(block.position(), 2u);
    block.writeBytes(3, "xyz");
    EXPECT_EQ(block.bytes(), "abcd");
    EXPECT_EQ(block.readInteger(2), 0x6463u); // ends exactly at the end
    EXPECT_EQ(block.readInteger(1), 0u);
    EXPECT_EQ(block.readInteger(17), 0u);
    block.skip(0xFFFFFFFF); // doesn't lead back into the block
    EXPECT_EQ(block.readInteger(1), 0u);
    char text[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(block.readString(4, text), 0u);
    EXPECT_EQ(text[0], 0);
}

TEST(MemoryBlock, ReadsStringsUpToTheLimitAndStays)
{
    MemoryBlock block(QByteArray("ab\0cdef", 7), false);
    char text[8];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(block.readString(4, text), 2u);
    EXPECT_EQ(QByteArray(text, 5), QByteArray("ab\0\0#", 5));
    EXPECT_EQ(block.position(), 0u);
    block.setPosition(3);
    EXPECT_EQ(block.readString(2, text), 2u); // no NUL there: the text fills the limit
    EXPECT_EQ(block.readString(8, text), 4u); // the block ends before the limit
    EXPECT_STREQ(text, "cdef");
}

struct BitFieldCase
{
    const char *what;
    bool bigEndian;
    quint32 size;
    qint32 bitOffset;
    quint32 bitSize;
    quint64 value; // in the bytes 12 34 56 78 9A BC DE F0 12
};
const BitFieldCase bitFieldCases[] = {
    {"most significant bits, big-endian", true, 4, 0, 4, 0x1},
    {"inside, big-endian", true, 4, 4, 12, 0x234},
    {"most significant bits, little-endian", false, 4, 0, 4, 0x7},
    {"least significant bits, little-endian", false, 4, 28, 4, 0x2},
    {"whole container of 8", false, 8, 0, 64, 0xF0DEBC9A78563412},
    {"an offset counts within its container", false, 1, 8, 4, 0x1},
    {"little-endian into the next byte", false, 1, -4, 8, 0x41}, // 34 12: bits 4 to 11
    {"little-endian across 9 bytes", false, 8, -4, 8, 0x2F},     // 12 F0: bits 60 to 67
    {"big-endian into the next byte", true, 1, 4, 8, 0x23},      // 12 34
    {"reaches two bytes past the container", false, 1, -12, 8, 0},
    {"no size", false, 0, 0, 4, 0},
    {"container too large", false, 9, 0, 4, 0},
    {"field too large", false, 4, 0, 33, 0},
    {"no bits", false, 4, 0, 0, 0},
};

TEST(MemoryBlock, ReadsAndWritesBitFields)
{
    const QByteArray bytes = QByteArray::fromHex("00123456789ABCDEF012");
    for (const BitFieldCase &row : bitFieldCases) {
        MemoryBlock block(bytes, row.bigEndian);
        EXPECT_EQ(block.readBitField(1, row.size, row.bitOffset, row.bitSize), row.value) << row.what;
        block.writeBitField(row.value, 1, row.size, row.bitOffset, row.bitSize);
        EXPECT_EQ(block.bytes(), bytes) << row.what;
        const quint64 other = ~row.value & ((quint64(2) << (std::max(row.bitSize, 1u) - 1)) - 1);
        block.writeBitField(other, 1, row.size, row.bitOffset, row.bitSize);
        if (row.value) {
            EXPECT_EQ(block.readBitField(1, row.size, row.bitOffset, row.bitSize), other) << row.what;
            block.writeBitField(row.value, 1, row.size, row.bitOffset, row.bitSize);
        }
        EXPECT_EQ(block.bytes(), bytes) << row.what; // nothing around the field has changed
        EXPECT_EQ(block.position(), 0u);
    }
    MemoryBlock block(bytes, false);
    EXPECT_EQ(block.readBitFieldFromLow(1, 4, 4, 8), 0x41u);
    EXPECT_EQ(block.readBitFieldFromLow(1, 8, 0, 64), 0xF0DEBC9A78563412u);
    EXPECT_EQ(block.readBitFieldFromLow(7, 4, 0, 8), 0u); // leaves the block
}

TEST(LazyMemoryBlock, GoesToItsLocationKindEachTime)
{
    FakeLocations memory;
    for (quint32 kind = 0; kind < 4; ++kind) {
        LazyMemoryBlock block(memory, true, kind, 0x100);
        block.skip(8);
        block.writeInteger(0xA0B0C0D0 + kind, 4);
        EXPECT_EQ(block.position(), 12u);
        EXPECT_EQ(extractInteger(memory.spaces[kind].constData(), 0x108, 4, true), 0xA0B0C0D0 + kind);
        EXPECT_EQ(block.readBitField(0, 2, 4, 4), kind + 1);
        EXPECT_EQ(block.position(), 12u);
        block.setPosition(8);
        EXPECT_EQ(block.readInteger(4), 0xA0B0C0D0 + kind);
    }
    EXPECT_EQ(memory.reads, 8);
    LazyMemoryBlock top(memory, false, 1, 0xFFFFFFFE);
    EXPECT_EQ(top.readInteger(4), 0x22222222u); // the address wraps
}

TEST(LazyMemoryBlock, StringsAlwaysEnd)
{
    FakeLocations memory;
    memory.spaces[3].replace(0, 6, QByteArray("hello", 6));
    LazyMemoryBlock block(memory, false, 3, 0);
    char text[16];
    EXPECT_EQ(block.readString(16, text), 5u);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(block.readString(3, text), 2u);
    EXPECT_STREQ(text, "he");
    EXPECT_EQ(block.readString(0, text), 0u);
    EXPECT_EQ(block.position(), 0u);
}

} // namespace
