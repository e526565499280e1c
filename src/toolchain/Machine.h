#pragma once

#include "elf/ElfFile.h"

#include <QStringList>
#include <optional>
#include <span>

// What objects were compiled for: the architecture, and the options by which GCC and clang choose the libraries
// that go with them.
struct Machine
{
    enum Architecture { Arm, RiscV };

    // An object that passes floating-point numbers in registers weighs more than any that doesn't.
    static constexpr quint64 hardFloatRank = 512;

    Architecture architecture = Arm;
    QStringList options; // -mcpu=cortex-m3 -mthumb
    quint64 rank = 0;    // of two objects of a program the one with the higher rank tells what it needs
};

// Read from the ELF header and the attributes sections (ELF for the Arm Architecture: Addenda, "Build
// Attributes"; RISC-V ELF psABI, "Attributes"). None for other machines.
std::optional<Machine> machineOf(ElfFile &file);
// The same for the bytes of a 64-bit file, of which only RISC-V is known, and by its header alone.
std::optional<Machine> machineOf64(std::span<const quint8> file);

// The architecture that options ask for; none when they say nothing about it.
std::optional<Machine::Architecture> architectureOf(const QStringList &options);

// Whether options ask for 64 bits.
bool is64Bit(const QStringList &options);

// Whether an option selects processor, instruction set or calling convention.
bool isMachineOption(const QString &option);
