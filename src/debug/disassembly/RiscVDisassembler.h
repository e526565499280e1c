#pragma once

#include "debug/disassembly/Disassembler.h"
#include "debug/disassembly/LlvmDecoder.h"

#include <array>

// 32-bit RISC-V code with its compressed instructions.
class RiscVDisassembler : public Disassembler
{
public:
    // `globalPointer`: what the program keeps in gp, if that is known.
    explicit RiscVDisassembler(std::optional<quint32> globalPointer);

    DisassembledInstruction disassembleAt(quint32 address, std::span<const quint8> bytes, InstructionSet set) override;
    InstructionSet usualSet() const override { return InstructionSet::RiscV; }

private:
    void follow(DisassembledInstruction &result, quint32 address, quint32 code);
    void followCompressed(DisassembledInstruction &result, quint32 address, quint32 code);
    std::optional<quint32> sum(quint32 reg, qint32 offset) const;

    LlvmDecoder m_decoder;
    const std::optional<quint32> m_globalPointer;
    quint32 m_next = 0;                             // behind the instruction that came last
    std::array<std::optional<quint32>, 32> m_known; // values of registers, as LUI and AUIPC make them
};
