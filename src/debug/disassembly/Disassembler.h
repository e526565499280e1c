#pragma once

#include <QByteArray>
#include <memory>
#include <optional>
#include <span>

class ElfFile;

enum class InstructionSet : quint8 { Arm, Thumb, RiscV };

struct DisassembledInstruction
{
    QByteArray mnemonic;              // ".inst" for bytes that are no instruction
    QByteArray operands;              // a branch's target as an address of the file
    quint32 length = 0;               // in bytes; 0: there were none
    std::optional<quint32> target;    // where a branch or call goes, if the instruction (with its pair) tells
    std::optional<quint32> reference; // the address that it loads from, stores to or makes
    bool isLiteralLoad = false;       // loads the word at `reference`
};

// Instructions as text, by LLVM's decoder. There is one class for each family of processors.
//
// Instructions are best asked for in their order: pairs that make an address together (auipc and addi, movw and movt)
// and the conditions of an IT block are told only then.
class Disassembler
{
public:
    // For the code of `file`. Throws HException for another machine and without LLVM's library.
    static std::unique_ptr<Disassembler> of(const ElfFile &file);
    virtual ~Disassembler() = default;

    // The instruction at the beginning of `bytes`, which stand at `address`. Bytes that are no instruction are given
    // as data of the length that the processor would take them for.
    virtual DisassembledInstruction disassembleAt(quint32 address, std::span<const quint8> bytes,
                                                  InstructionSet set) = 0;
    // What code is likely to be that no symbol tells about.
    virtual InstructionSet usualSet() const = 0;

protected:
    // A number of `size` bytes in place of an instruction.
    static DisassembledInstruction noInstruction(const char *directive, quint64 value, quint32 size);
};

// The value of an attribute of the whole file in .ARM.attributes or .riscv.attributes; none when it isn't there.
// Numbers are given as text.
std::optional<QByteArray> buildAttribute(const ElfFile &file, quint32 tag);
