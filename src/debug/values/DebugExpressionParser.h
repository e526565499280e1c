#pragma once

#include "expression/ExpressionParser.h"
#include "target/memory/MemoryBlock.h"

// The expression parser with access to a target: its memories, its registers and its byte order.
//
// Whatever reads or writes a value works on the block on top of a stack: it is pushed for a place, read through
// and popped.
class DebugExpressionParser : public ExpressionParser, public LocationMemory
{
public:
    explicit DebugExpressionParser(bool bigEndian = false) : m_bigEndian(bigEndian) {}

    bool bigEndian() const { return m_bigEndian; }

    // Memories by the kind of a place, see VarInfo. All throw an HException for what can't be done.
    void readLocation(quint32 kind, quint32 address, quint32 length, void *dest) override = 0;
    void writeLocation(quint32 kind, quint32 address, quint32 length, const void *source) override = 0;
    virtual QString readCString(quint32 kind, quint32 address, quint32 maximumLength) = 0;
    // The content of a register, or of a set of them (see DwarfLocationExpressionEvaluator), as it would lie in
    // memory: registers follow each other.
    virtual void readRegisterBlock(quint64 number, quint32 length, void *dest) = 0;
    virtual void writeRegisterBlock(quint64 number, quint32 offset, quint32 length, const void *source) = 0;

    MemoryBlockInterface &block() { return *m_blocks.back(); }
    void pushBlock(std::unique_ptr<MemoryBlockInterface> block) { m_blocks.push_back(std::move(block)); }
    void popBlock() { m_blocks.pop_back(); }
    bool hasBlock() const { return !m_blocks.empty(); }

    // IEEE 754 numbers of 2, 4, 8 and 16 bytes at the cursor, which passes over them. Any other size reads 0 and
    // writes nothing.
    virtual double readFloat(quint32 size);
    virtual void writeFloat(double value, quint32 size);

protected:
    void setBigEndian(bool bigEndian) { m_bigEndian = bigEndian; }

private:
    bool m_bigEndian;
    std::vector<std::unique_ptr<MemoryBlockInterface>> m_blocks;
};
