#pragma once

#include "debug/disassembly/Disassembler.h"
#include "debug/disassembly/LlvmDecoder.h"

#include <array>

// Arm and Thumb code.
class ArmDisassembler : public Disassembler
{
public:
    // `isMicrocontroller`: the profile (M), which has system registers and instructions of its own. `codeBigEndian`:
    // the byte order of instructions, which is that of data in BE32 files and objects only.
    ArmDisassembler(bool isMicrocontroller, bool codeBigEndian);

    DisassembledInstruction disassembleAt(quint32 address, std::span<const quint8> bytes, InstructionSet set) override;
    InstructionSet usualSet() const override { return m_usualSet; }

private:
    void leaveConditionBlock();
    void findReference(DisassembledInstruction &result, quint32 address, quint32 code, InstructionSet set);
    void pairMoves(DisassembledInstruction &result, quint32 code, InstructionSet set);

    const InstructionSet m_usualSet;
    const bool m_codeBigEndian;
    LlvmDecoder m_arm, m_thumb;
    quint32 m_next = 0;                                 // behind the instruction that came last
    std::array<std::optional<quint16>, 16> m_lowHalves; // by register: what the last MOVW put there
};
