#include "debug/disassembly/RiscVDisassembler.h"

#include "base/ByteCursor.h"

namespace {

constexpr quint32 globalPointerRegister = 3;

// Major opcodes: the low 7 bits (The RISC-V Instruction Set Manual, volume I, table 24.1).
enum Opcode : quint32 {
    Load = 0x03,
    LoadFloat = 0x07,
    OpImmediate = 0x13,
    Auipc = 0x17,
    Store = 0x23,
    StoreFloat = 0x27,
    Lui = 0x37,
    Branch = 0x63,
    Jalr = 0x67,
    Jal = 0x6F,
};

// Compressed instructions: quadrant and funct3 as one number of 5 bits (table 16.5 and following).
enum CompressedOpcode : quint32 {
    CAddi4spn = 0x00,
    CFld = 0x04,
    CLw = 0x08,
    CFlw = 0x0C,
    CFsd = 0x14,
    CSw = 0x18,
    CFsw = 0x1C,
    CAddi = 0x01,
    CJal = 0x05,
    CLi = 0x09,
    CLui = 0x0D,
    CArithmetic = 0x11,
    CJ = 0x15,
    CBeqz = 0x19,
    CBnez = 0x1D,
    CSlli = 0x02,
    CLwsp = 0x0A,
    CJumpOrMove = 0x12,
};

qint32 signExtended(quint32 value, int bits)
{
    return qint32(value << (32 - bits)) >> (32 - bits);
}

// An immediate from pieces: each takes bits from `low` on, `count` of them, to the place `to`.
struct Piece
{
    int low, count, to;
};
template <size_t size>
quint32 gather(quint32 code, const Piece (&pieces)[size])
{
    quint32 value = 0;
    for (const Piece &piece : pieces)
        value |= (code >> piece.low & ((1u << piece.count) - 1)) << piece.to;
    return value;
}

constexpr Piece jalPieces[] = {{21, 10, 1}, {20, 1, 11}, {12, 8, 12}, {31, 1, 20}};
constexpr Piece branchPieces[] = {{8, 4, 1}, {25, 6, 5}, {7, 1, 11}, {31, 1, 12}};
constexpr Piece storePieces[] = {{7, 5, 0}, {25, 7, 5}};
constexpr Piece compressedJumpPieces[] = {{3, 3, 1}, {11, 1, 4}, {2, 1, 5},  {7, 1, 6},
                                          {6, 1, 7}, {9, 2, 8},  {8, 1, 10}, {12, 1, 11}};
constexpr Piece compressedBranchPieces[] = {{3, 2, 1}, {10, 2, 3}, {2, 1, 5}, {5, 2, 6}, {12, 1, 8}};
constexpr Piece compressedImmediatePieces[] = {{2, 5, 0}, {12, 1, 5}};
constexpr Piece compressedWordPieces[] = {{6, 1, 2}, {10, 3, 3}, {5, 1, 6}};

quint32 lengthOf(quint32 code)
{
    if ((code & 0x03) != 0x03)
        return 2;
    if ((code & 0x1F) != 0x1F)
        return 4;
    if ((code & 0x3F) == 0x1F)
        return 6;
    return (code & 0x7F) == 0x3F ? 8 : 2;
}

} // namespace

RiscVDisassembler::RiscVDisassembler(std::optional<quint32> globalPointer)
    : m_decoder("riscv32", "+m,+a,+f,+d,+c,+zba,+zbb,+zbc,+zbs"), m_globalPointer(globalPointer)
{}

DisassembledInstruction RiscVDisassembler::disassembleAt(quint32 address, std::span<const quint8> bytes, InstructionSet)
{
    if (address != m_next)
        m_known = {};
    ByteCursor cursor(bytes, false); // instructions are little-endian in every file
    quint32 code = cursor.readU16();
    const quint32 length = lengthOf(code);
    if (cursor.failed() || length > bytes.size()) {
        const quint32 size = bytes.size() < 2 ? quint32(bytes.size()) : 2;
        m_next = address + size;
        return noInstruction(size < 2 ? ".byte" : ".half", size < 2 && size ? bytes[0] : code, size);
    }
    m_next = address + length;
    if (length == 4)
        code |= quint32(cursor.readU16()) << 16;
    if (m_decoder.decode(address, bytes.first(length)) != length)
        return noInstruction(".insn", ByteCursor(bytes, false).readUnsigned(length), length);
    DisassembledInstruction result;
    result.mnemonic = m_decoder.mnemonic().toByteArray();
    result.operands = m_decoder.operands().toByteArray();
    result.length = length;
    if (length == 2)
        followCompressed(result, address, code);
    else
        follow(result, address, code);
    const bool isRelative = !(length == 4 && (code & 0x7F) == Jalr);
    if (result.target && isRelative) { // the decoder gives a distance, the last operand
        result.operands.truncate(result.operands.lastIndexOf(' ') + 1);
        result.operands += "0x" + QByteArray::number(*result.target, 16);
    }
    return result;
}

// The value of a register and an offset, if the register's is known.
std::optional<quint32> RiscVDisassembler::sum(quint32 reg, qint32 offset) const
{
    const auto &base = reg == globalPointerRegister && m_globalPointer ? m_globalPointer : m_known[reg];
    return base ? std::optional(*base + quint32(offset)) : std::nullopt;
}

void RiscVDisassembler::follow(DisassembledInstruction &result, quint32 address, quint32 code)
{
    const quint32 destination = code >> 7 & 31, source = code >> 15 & 31, kind = code >> 12 & 7;
    const qint32 immediate = qint32(code) >> 20;
    std::optional<quint32> known;
    switch (code & 0x7F) {
    case Lui: known = code & 0xFFFFF000; break;
    case Auipc: known = address + (code & 0xFFFFF000); break;
    case OpImmediate:
        if (kind == 0)
            result.reference = sum(source, immediate);
        break;
    case Load:
    case LoadFloat: result.reference = sum(source, immediate); break;
    case Store:
    case StoreFloat: result.reference = sum(source, signExtended(gather(code, storePieces), 12)); return;
    case Branch: result.target = address + quint32(signExtended(gather(code, branchPieces), 13)); return;
    case Jal: result.target = address + quint32(signExtended(gather(code, jalPieces), 21)); break;
    case Jalr: result.target = sum(source, immediate); break;
    }
    if (destination != 0)
        m_known[destination] = known;
}

void RiscVDisassembler::followCompressed(DisassembledInstruction &result, quint32 address, quint32 code)
{
    const quint32 destination = code >> 7 & 31;                                    // of the long formats
    const quint32 shortLow = 8 + (code >> 2 & 7), shortHigh = 8 + (code >> 7 & 7); // of the short ones
    const qint32 immediate = signExtended(gather(code, compressedImmediatePieces), 6);
    std::optional<quint32> known;
    switch ((code >> 13) << 2 | (code & 3)) {
    case CJal:
    case CJ: result.target = address + quint32(signExtended(gather(code, compressedJumpPieces), 12)); return;
    case CBeqz:
    case CBnez: result.target = address + quint32(signExtended(gather(code, compressedBranchPieces), 9)); return;
    case CLui:
        if (destination != 2) // else it adds to sp
            known = quint32(immediate) << 12;
        break;
    case CAddi: result.reference = sum(destination, immediate); break;
    case CSw:
    case CFsw: result.reference = sum(shortHigh, qint32(gather(code, compressedWordPieces))); return;
    case CLw:
        result.reference = sum(shortHigh, qint32(gather(code, compressedWordPieces)));
        m_known[shortLow].reset();
        return;
    case CFlw: result.reference = sum(shortHigh, qint32(gather(code, compressedWordPieces))); return;
    case CAddi4spn: m_known[shortLow].reset(); return;
    case CArithmetic: m_known[shortHigh].reset(); return;
    case CLi:
    case CSlli:
    case CLwsp:
    case CJumpOrMove: break;
    default: return;
    }
    if (destination != 0)
        m_known[destination] = known;
}
