#include "debug/disassembly/ArmDisassembler.h"

#include "base/ByteCursor.h"

namespace {

// The largest architecture of each profile; code of the smaller ones means the same there.
constexpr const char *microcontrollerTriple = "thumbv8.1m.main-none-eabi";
constexpr const char *microcontrollerFeatures = "+mclass,+dsp,+8msecext,+fp-armv8d16,+fullfp16,+mve.fp";
constexpr const char *applicationFeatures = "+neon,+vfp4,+fp-armv8,+crypto,+crc,+mp,+virtualization,+trustzone,+dsp";

constexpr quint32 thumbPrefix = 0xE800; // halfwords from here on begin an instruction of two

struct BitPattern
{
    quint32 mask, value;

    bool matches(quint32 code) const { return (code & mask) == value; }
};

// Loads of a word from the literal pool, as halfword, as two halfwords (the first one high), as Arm word.
constexpr BitPattern thumbLoads[] = {{0xFFFFF800, 0x4800}, {0xFF7F0000, 0xF85F0000}, {0xFF3F0F00, 0xED1F0A00}};
constexpr BitPattern armLoads[] = {{0x0F7F0000, 0x051F0000}, {0x0F3F0F00, 0x0D1F0A00}};

// STRD that moves sp, as it stands in prologues: the decoder of LLVM 14 refuses it. It is decoded with another
// base in place of sp: r12, or r11 where one of the pair is r12.
constexpr BitPattern storePairOnStack = {0xFF7F0000, 0xE96D0000};
constexpr quint32 baseR12 = 0x000C0000, baseR11 = 0x000B0000, baseMask = 0x000F0000;

// Gives the decoder a code of one or two units of `unit` bytes in the little-endian order that it wants.
bool decode(LlvmDecoder &decoder, quint32 address, quint32 code, quint32 unit, quint32 size)
{
    std::array<quint8, 4> bytes;
    insertInteger(bytes.data(), 0, size > unit ? code >> 16 : code, unit, false);
    if (size > unit)
        insertInteger(bytes.data(), unit, code & 0xFFFF, unit, false);
    return decoder.decode(address, {bytes.data(), size}) == size;
}

} // namespace

ArmDisassembler::ArmDisassembler(bool isMicrocontroller, bool codeBigEndian)
    : m_usualSet(isMicrocontroller ? InstructionSet::Thumb : InstructionSet::Arm),
      m_codeBigEndian(codeBigEndian),
      m_arm("armv8-none-eabi", applicationFeatures),
      m_thumb(isMicrocontroller ? microcontrollerTriple : "thumbv8-none-eabi",
              isMicrocontroller ? microcontrollerFeatures : applicationFeatures)
{}

// The decoder counts down the instructions of an IT block, and a VPT block, whatever their addresses.
void ArmDisassembler::leaveConditionBlock()
{
    constexpr quint8 nop[] = {0x00, 0xBF};
    constexpr int maximumBlockLength = 4;
    for (int i = 0; i < maximumBlockLength; ++i)
        m_thumb.decode(0, nop);
}

DisassembledInstruction ArmDisassembler::disassembleAt(quint32 address, std::span<const quint8> bytes,
                                                       InstructionSet set)
{
    const bool isThumb = set == InstructionSet::Thumb;
    if (address != m_next) {
        m_lowHalves = {};
        leaveConditionBlock();
    }
    ByteCursor cursor(bytes, m_codeBigEndian);
    quint32 size = isThumb ? 2 : 4;
    quint32 code = quint32(cursor.readUnsigned(size));
    if (isThumb && code >= thumbPrefix) {
        size = 4;
        code = code << 16 | cursor.readU16();
    }
    if (cursor.failed()) {
        size = bytes.size() < 2 ? quint32(bytes.size()) : 2;
        m_next = address + size;
        cursor = ByteCursor(bytes, m_codeBigEndian);
        return noInstruction(size < 2 ? ".byte" : ".short", cursor.readUnsigned(size), size);
    }
    m_next = address + size;

    const bool pushesPair = set == InstructionSet::Thumb && storePairOnStack.matches(code);
    LlvmDecoder &decoder = isThumb ? m_thumb : m_arm;
    const bool storesR12 = (code >> 12 & 15) == 12 || (code >> 8 & 15) == 12;
    const quint32 decoded = pushesPair ? (code & ~baseMask) | (storesR12 ? baseR11 : baseR12) : code;
    if (!decode(decoder, address, decoded, isThumb ? 2 : 4, size))
        return noInstruction(!isThumb ? ".inst" : size == 2 ? ".inst.n" : ".inst.w", code, size);
    DisassembledInstruction result;
    result.mnemonic = decoder.mnemonic().toByteArray();
    result.operands = decoder.operands().toByteArray();
    result.length = size;
    result.target = decoder.branchTarget();
    if (pushesPair)
        result.operands.replace(storesR12 ? "[r11" : "[r12", "[sp");
    findReference(result, address, code, set);
    pairMoves(result, code, set);
    return result;
}

// Operands relative to the program counter, which reads as two instructions ahead, aligned to words.
void ArmDisassembler::findReference(DisassembledInstruction &result, quint32 address, quint32 code, InstructionSet set)
{
    const bool isThumb = set == InstructionSet::Thumb;
    constexpr QByteArrayView pcRelative = "[pc, #";
    qsizetype number = result.operands.indexOf(pcRelative);
    if (number >= 0)
        number += pcRelative.size();
    else if (result.mnemonic.startsWith("adr") && result.operands.contains('#'))
        number = result.operands.indexOf('#') + 1;
    else
        return;
    qsizetype end = number;
    while (end < result.operands.size() && result.operands[end] != ']')
        ++end;
    bool isNumber = false;
    const int distance = result.operands.mid(number, end - number).toInt(&isNumber);
    if (!isNumber)
        return;
    result.reference = ((address + (isThumb ? 4 : 8)) & ~quint32(3)) + quint32(distance);
    const auto loads = isThumb ? std::span<const BitPattern>(thumbLoads) : std::span<const BitPattern>(armLoads);
    result.isLiteralLoad = std::ranges::any_of(loads, [&](const BitPattern &load) { return load.matches(code); });
}

// MOVW and MOVT make a word together.
void ArmDisassembler::pairMoves(DisassembledInstruction &result, quint32 code, InstructionSet set)
{
    constexpr BitPattern thumbLow = {0xFBF08000, 0xF2400000}, thumbHigh = {0xFBF08000, 0xF2C00000};
    constexpr BitPattern armLow = {0x0FF00000, 0x03000000}, armHigh = {0x0FF00000, 0x03400000};
    const bool isThumb = set == InstructionSet::Thumb;
    const bool isLow = (isThumb ? thumbLow : armLow).matches(code);
    if ((!isLow && !(isThumb ? thumbHigh : armHigh).matches(code)))
        return;
    quint32 reg = code >> 12 & 15, half = (code >> 4 & 0xF000) | (code & 0xFFF);
    if (isThumb) { // imm4:i:imm3:imm8
        reg = code >> 8 & 15;
        half = (code >> 4 & 0xF000) | (code >> 15 & 0x800) | (code >> 4 & 0x700) | (code & 0xFF);
    }
    if (isLow)
        m_lowHalves[reg] = quint16(half);
    else if (m_lowHalves[reg])
        result.reference = half << 16 | *std::exchange(m_lowHalves[reg], {});
}
