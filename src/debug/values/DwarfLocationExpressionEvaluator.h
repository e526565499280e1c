#pragma once

#include "base/ByteCursor.h"
#include "debug/dwarf/DwarfDebuggingInformationEntry.h"

// An entry of the stack of a location expression.
struct DwarfStackValue
{
    enum Kind : quint8 {
        Plain,    // a memory address or a plain number
        Value,    // what the variable holds
        Register, // a register number
        Missing,  // a piece that the program no longer has; reads as 0
        Pointer,  // stands for a pointer to something without an address (DW_OP_implicit_pointer); reads as 0
    };

    quint64 value = 0;
    quint64 pieceSize = 0; // bytes; 0: no piece
    quint64 bitSize = 0, bitOffset = 0;
    Kind kind = Plain;
    DwarfDebuggingInformationEntry type = {}; // a base type or none
};

// Runs DWARF expressions (DWARF 5, sections 2.5 and 2.6): the programs of DW_AT_location, DW_AT_frame_base and
// DW_AT_data_member_location. The machine that they run on is what a subclass makes of the virtual operations;
// as they stand here all registers and all memory are 0.
//
// An operation that lacks an operand on the stack takes 0 for it. An unknown operation, a division by 0, an
// expression that goes on for too long or ends within an operation ends there, and the stack is the result.
class DwarfLocationExpressionEvaluator
{
public:
    virtual ~DwarfLocationExpressionEvaluator() = default;

    virtual quint32 readWord(quint32 address) { return quint32(readSized(address, 4)); }
    virtual quint32 frameValue() { return 0; }
    virtual quint32 programCounter() { return 0; }
    virtual quint32 readRegister(quint32 /*number*/) { return 0; } // by its DWARF number
    virtual quint64 readTypedRegister(quint32 number, DwarfDebuggingInformationEntry type);
    virtual quint64 entryRegister(quint32 /*number*/) { return 0; } // as it was when the function was entered
    virtual quint64 readSized(quint32 /*address*/, quint32 /*size*/) { return 0; } // 0 to 8 bytes
    virtual quint32 threadLocalBase() { return 0; }
    virtual quint32 canonicalFrameAddress() { return 0; }
    virtual quint32 mapAddress(quint32 address) { return address; } // of the file, as the target has it

    // Runs the expression of `entry` and tells where the result is: without a flag it is a memory address. With
    // `pushZero` a 0 is on the stack at the start, which makes the expression of a member its offset. Registers
    // that form one variable come as one number: 0xFFFFFFFF80000000 | their numbers, 8 bits each, the last one
    // the highest, and isRegister is set. Other pieces are put together to a value.
    quint64 evaluate(DwarfDebuggingInformationEntry entry, std::span<const quint8> expression, bool pushZero,
                     bool &isRegister, bool &isValue);
    // The stack at the end of the expression, the bottom first.
    std::vector<DwarfStackValue> run(DwarfDebuggingInformationEntry entry, std::span<const quint8> expression);
    // The same with `initial` on the stack at the start.
    std::vector<DwarfStackValue> runFrom(DwarfDebuggingInformationEntry entry, std::span<const quint8> expression,
                                         quint64 initial);
    // The pieces of a value as they would lie in the target's memory, as far as `size` bytes.
    QByteArray compose(std::span<const DwarfStackValue> pieces, bool bigEndian, quint32 size);
    // The number of a set of registers as evaluate() gives it; none when the pieces are no such set: two to four
    // registers, each a word, with numbers that fit.
    static std::optional<quint64> registerSetOf(std::span<const DwarfStackValue> pieces);

    // The expression of an attribute that is in force at programCounter(): its block, or what its location list
    // has for that address. Empty when there is none.
    std::span<const quint8> expressionOf(const DwarfAttribute &attribute);

    static constexpr int maximumDepth = 8;          // of expressions within expressions
    static constexpr int maximumOperations = 10000; // of one expression with all those in it
    static constexpr size_t maximumStack = 1024;

private:
    struct Run;

    void runInner(Run &run, std::span<const quint8> expression);
    quint64 innerResult(Run &outer, DwarfDebuggingInformationEntry entry, std::span<const quint8> expression,
                        bool &isRegister);
    bool step(Run &run, ByteCursor &cursor);
    bool stepBinary(Run &run, quint8 code);
    bool stepFloats(Run &run, quint8 code, const DwarfStackValue &second, const DwarfStackValue &top);
    bool stepIntegers(Run &run, quint8 code, const DwarfStackValue &second, const DwarfStackValue &top);
    quint64 resultOf(const std::vector<DwarfStackValue> &stack, bool bigEndian, bool &isRegister, bool &isValue);
    QByteArray bytesOf(const DwarfStackValue &piece, quint32 size, bool bigEndian);
};

// The expression for an address (of the file) in a location list of `unit`: .debug_loclists for version 5, else
// .debug_loc. Empty when the list has none.
std::span<const quint8> locationListEntry(DwarfCompilationUnit &unit, quint64 offset, quint32 address);
