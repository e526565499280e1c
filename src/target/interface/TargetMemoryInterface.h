#pragma once

#include "target/memory/MemoryRange.h"

#include <QString>

// One address space of a target: what reads, writes, erases and locks its memory. A target may have several.
//
// An operation that fails throws an HException. What takes several bytes goes through writeMemory() and
// readMemory(), which a subclass provides; the others have a default that does it with these, or does nothing
// where a memory needs nothing done.
class TargetMemoryInterface
{
public:
    // `wordSize` is in bytes; 0 is the ordinary memory type, any other an EEPROM.
    explicit TargetMemoryInterface(bool bigEndian = false, quint32 wordSize = 1, MemoryRangeList ranges = {},
                                   quint8 memoryType = 0)
        : m_bigEndian(bigEndian), m_wordSize(wordSize), m_ranges(std::move(ranges)), m_memoryType(memoryType)
    {}
    virtual ~TargetMemoryInterface() = default;
    TargetMemoryInterface(const TargetMemoryInterface &) = delete;
    TargetMemoryInterface &operator=(const TargetMemoryInterface &) = delete;

    virtual bool canCompare() const { return false; } // true lets a download skip blocks that are unchanged
    virtual bool canErase() const { return true; }
    virtual bool needsErase() const { return true; } // before it is written
    virtual bool canLock() const { return true; }
    virtual bool canUnlock() const { return true; }
    virtual bool canVerify() const { return true; }

    virtual void writeMemory(quint32 address, quint32 length, const void *data) = 0;
    virtual void readMemory(quint32 address, quint32 length, void *dest) = 0;
    // The text up to its NUL, at most `maximumLength` bytes, as Latin-1. Reads pieces that end at multiples of
    // `alignment` and have at most `blockSize` bytes, so that nothing far behind the NUL is touched.
    virtual QString readCString(quint32 address, quint32 maximumLength, quint32 blockSize, quint32 alignment);
    virtual void writeMemoryData(quint32 address, quint32 length, const void *data)
    {
        writeMemory(address, length, data);
    }
    virtual void writeMemoryBlock(quint32 address, quint32 length, const void *data, bool /*isLast*/)
    {
        writeMemoryData(address, length, data);
    }
    virtual void readMemoryData(quint32 address, quint32 length, void *dest) { readMemory(address, length, dest); }
    virtual void fillMemory(quint32 address, quint32 length, quint8 byte);
    virtual bool verifyMemory(quint32 address, quint32 length, const void *data); // true when equal
    virtual void eraseBegin() {}                                                  // around a series of erases
    virtual void eraseEnd() {}
    // `start` and `size` take the range that has really been erased.
    virtual void eraseMemory(quint32 /*address*/, quint32 /*length*/, quint32 * /*start*/, quint32 * /*size*/) {}
    virtual void eraseAllMemory() {}
    virtual quint8 memoryType() const { return m_memoryType; }
    // Throws unless a subclass can.
    virtual bool blankCheck(quint32 address, quint32 length);
    virtual void lockMemory(quint32 /*address*/, quint32 /*length*/) {}
    virtual void lockAllMemory() {}
    virtual void unlockMemory(quint32 /*address*/, quint32 /*length*/) {}
    virtual void unlockAllMemory() {}

    // Units of 2 and 4 bytes, in host order here and in the target's there.
    virtual void writeUint16s(quint32 address, quint32 count, const quint16 *data);
    virtual void readUint16s(quint32 address, quint32 count, quint16 *dest);
    virtual void fillUint16(quint32 address, quint32 count, quint16 value);
    virtual void writeUint32s(quint32 address, quint32 count, const quint32 *data);
    virtual void readUint32s(quint32 address, quint32 count, quint32 *dest);
    virtual void fillUint32(quint32 address, quint32 count, quint32 value);
    virtual void pokeByte(quint32 address, quint8 value) { pokeSized(address, 1, value); }
    virtual quint8 peekByte(quint32 address) { return quint8(peekSized(address, 1)); }
    virtual void pokeUint16(quint32 address, quint16 value) { pokeSized(address, 2, value); }
    virtual quint16 peekUint16(quint32 address) { return quint16(peekSized(address, 2)); }
    virtual void pokeUint32(quint32 address, quint32 value) { pokeSized(address, 4, value); }
    virtual quint32 peekUint32(quint32 address) { return quint32(peekSized(address, 4)); }
    virtual void pokeWord(quint32 address, quint64 value) { pokeSized(address, m_wordSize, value); }
    virtual quint64 peekWord(quint32 address) { return peekSized(address, m_wordSize); }
    // An integer of 1 to 16 bytes, of which the low 8 count.
    virtual void pokeSized(quint32 address, quint32 size, quint64 value);
    virtual quint64 peekSized(quint32 address, quint32 size);

    virtual bool isBigEndian() const { return m_bigEndian; }
    quint32 wordSize() const { return m_wordSize; }
    // True when one range wholly holds the bytes.
    virtual bool isInMemory(quint32 address, quint32 length) const;
    virtual const MemoryRangeList &memoryRanges() const { return m_ranges; }

    // The most bytes that one call takes.
    static constexpr quint32 noLimit = 0xFFFFFFFF;
    virtual quint32 maxWriteSize() const { return noLimit; }
    virtual quint32 maxReadSize() const { return noLimit; }
    virtual quint32 maxFillSize() const { return noLimit; }
    virtual quint32 maxEraseSize() const { return noLimit; }
    virtual quint32 maxLockSize() const { return noLimit; }
    virtual quint32 maxUnlockSize() const { return noLimit; }
    virtual quint32 maxVerifySize() const { return noLimit; }

private:
    template <typename Unit>
    void writeUnits(quint32 address, quint32 count, const Unit *data);
    template <typename Unit>
    void readUnits(quint32 address, quint32 count, Unit *dest);
    template <typename Unit>
    void fillUnits(quint32 address, quint32 count, Unit value);

    const bool m_bigEndian;
    const quint32 m_wordSize;
    const MemoryRangeList m_ranges;
    const quint8 m_memoryType;
};
