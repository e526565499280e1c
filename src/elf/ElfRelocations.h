#pragma once

#include <QtGlobal>
#include <functional>
#include <span>
#include <vector>

class ElfFile;
class ElfSection;
class ElfSymbol;

struct ElfRelocation
{
    quint32 offset;          // in its section
    quint32 type;            // R_ARM_... or R_RISCV_...
    const ElfSymbol *symbol; // null for symbol 0
    qint32 addend;
    bool hasAddend; // SHT_RELA; else the addend stands in the section's bytes
};

// The relocations of a section of an object file, in the order of their offsets; those of one place in the file's
// order. Symbols that the file doesn't have count as symbol 0.
std::vector<ElfRelocation> relocationsOf(const ElfFile &file, const ElfSection &section);

// Carries out the relocations of a section without code on its `bytes`: words and, for RISC-V, sums and differences of
// labels. `valueOf` gives a symbol's address. Gives the number of those that this can't do, which change nothing.
int applyRelocations(const ElfFile &file, const std::vector<ElfRelocation> &relocations, std::span<quint8> bytes,
                     const std::function<quint32(const ElfSymbol &)> &valueOf);
