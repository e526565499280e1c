#include "target/interface/TargetMemoryInterface.h"

#include "base/HException.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Memory from 0x1000 that keeps the sizes of the reads and fails outside.
class TestMemory : public TargetMemoryInterface
{
public:
    explicit TestMemory(bool bigEndian = false, quint32 size = 4096)
        : TargetMemoryInterface(bigEndian, 4, rangesOf(size)), bytes(qsizetype(size), '\0')
    {}
    void writeMemory(quint32 address, quint32 length, const void *data) override
    {
        bytes.replace(at(address, length), qsizetype(length), QByteArray(static_cast<const char *>(data), length));
    }
    void readMemory(quint32 address, quint32 length, void *dest) override
    {
        reads += QString::number(address, 16) + u'+' + QString::number(length);
        memcpy(dest, bytes.constData() + at(address, length), length);
    }

    QByteArray bytes;
    QStringList reads;

private:
    static MemoryRangeList rangesOf(quint32 size)
    {
        MemoryRangeList ranges;
        ranges.add(0x1000, 0x1000 + size - 1);
        return ranges;
    }
    qsizetype at(quint32 address, quint32 length) const
    {
        if (!isInMemory(address, length))
            throw HException(u"outside"_s);
        return address - 0x1000;
    }
};

TEST(TargetMemoryInterface, ReadsATextInPiecesThatEndAtBoundaries)
{
    TestMemory memory;
    memory.bytes.replace(30, 5, "hello");
    EXPECT_EQ(memory.readCString(0x101E, 100, 8, 16), u"hello"_s);
    EXPECT_EQ(memory.reads, (QStringList{u"101e+2"_s, u"1020+8"_s}));
    EXPECT_EQ(memory.readCString(0x101E, 3, 64, 64), u"hel"_s);
    memory.bytes.fill('x');
    memory.bytes.back() = '\0';
    EXPECT_EQ(memory.readCString(0x1FF0, 100, 64, 64).size(), 15); // nothing behind the last byte is read
    EXPECT_THROW(memory.readCString(0x2000, 1, 1, 1), HException);
}

TEST(TargetMemoryInterface, FillsAndVerifies)
{
    TestMemory memory;
    memory.fillMemory(0x1001, 1000, 0xAA);
    EXPECT_EQ(memory.bytes.count('\xAA'), 1000);
    const QByteArray same(1000, '\xAA');
    EXPECT_TRUE(memory.verifyMemory(0x1001, 1000, same.constData()));
    EXPECT_FALSE(memory.verifyMemory(0x1002, 1000, same.constData()));
    EXPECT_TRUE(memory.verifyMemory(0x1000, 0, nullptr));
    try {
        memory.blankCheck(0x1000, 1);
        FAIL();
    } catch (const HException &error) {
        EXPECT_EQ(error.message(), u"Blank check not possible on this target interface"_s);
    }
}

TEST(TargetMemoryInterface, ConvertsToTheOrderOfTheTarget)
{
    for (const bool bigEndian : {false, true}) {
        TestMemory memory(bigEndian);
        std::vector<quint32> words(300), read(300);
        for (quint32 i = 0; i < 300; ++i)
            words[i] = i << 24 | 0x123456;
        memory.writeUint32s(0x1004, 300, words.data());
        EXPECT_EQ(memory.bytes.mid(8, 4).toHex(), bigEndian ? "01123456" : "56341201");
        memory.readUint32s(0x1004, 300, read.data());
        EXPECT_EQ(read, words);
        memory.fillUint16(0x1000, 2, 0xABCD);
        EXPECT_EQ(memory.bytes.first(4).toHex(), bigEndian ? "abcdabcd" : "cdabcdab");
        EXPECT_EQ(memory.peekUint16(0x1002), 0xABCD);
        memory.pokeUint32(0x1010, 0x01020304);
        EXPECT_EQ(memory.peekByte(0x1010), bigEndian ? 1 : 4);
        EXPECT_EQ(memory.peekWord(0x1010), 0x01020304u);
        memory.pokeSized(0x1020, 3, 0x010203);
        EXPECT_EQ(memory.peekSized(0x1020, 3), 0x010203u);
        EXPECT_THROW(memory.peekSized(0x1020, 17), HException);
        EXPECT_THROW(memory.pokeSized(0x1020, 0, 1), HException);
    }
}

TEST(TargetMemoryInterface, KnowsItsRanges)
{
    const TestMemory memory;
    EXPECT_TRUE(memory.isInMemory(0x1000, 4096));
    EXPECT_FALSE(memory.isInMemory(0x1000, 4097));
    EXPECT_FALSE(memory.isInMemory(0xFFFFFFFF, 2));
    EXPECT_EQ(memory.maxReadSize(), TargetMemoryInterface::noLimit);
}

} // namespace
