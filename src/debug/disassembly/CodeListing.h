#pragma once

#include "debug/disassembly/CodeSymbols.h"
#include "debug/disassembly/Disassembler.h"
#include "debug/dwarf/DwarfFile.h"
#include "elf/ElfRelocations.h"

#include <functional>

class ElfSection;

// One instruction, or a piece of data between instructions.
struct CodeRow
{
    enum Kind : quint8 { Arm, Thumb, RiscV, Data };

    const ElfSection *section = nullptr;
    quint32 address = 0;
    std::span<const quint8> bytes; // as they stand in the file
    Kind kind = Data;
    DisassembledInstruction instruction;        // of data: ".word" and its number
    const CodeSymbols::Place *symbol = nullptr; // at the address or before it in the section
    const SourceLineRow *sourceRow = nullptr;   // that begins here
    QByteArray targetName, referenceName;       // of the instruction's target and reference
    std::optional<quint32> value;               // a literal that the instruction loads, or a word of data
    QByteArray valueName;                       // if the value is an address
    QByteArray relocation;                      // in an object: what the linker puts here, "printf" or "table+0x4"
};

// The code of a file, row by row. Code and data between it are told apart by the file's mapping symbols.
class CodeListing
{
public:
    // Throws what Disassembler::of() does. `lines`: rows get their source row.
    CodeListing(const ElfFile &elf, DwarfFile &dwarf, bool lines);

    // The executable sections with content in the file's order.
    const std::vector<const ElfSection *> &sections() const { return m_sections; }
    quint32 startOf(const ElfSection &section) const { return m_dwarf.sections().addressIn(section, 0); }
    const CodeSymbols &symbols() const { return m_symbols; }
    QString pathOf(const SourceLineRow &row) { return m_dwarf.lineMap().paths().text(row.file); }

    // Calls `take` with each row of a section that begins from `first` to `last` (both included).
    void list(const ElfSection &section, quint32 first, quint32 last, const std::function<void(const CodeRow &)> &take);

private:
    std::optional<CodeRow::Kind> mappedKind(const ElfSymbol &symbol) const;
    CodeRow::Kind unmappedKind(const ElfSection &section, quint32 address) const;
    void readData(CodeRow &row, quint32 size);
    void nameOperands(CodeRow &row);
    std::optional<quint32> wordAt(quint32 address) const;
    void nameRelocated(CodeRow &row);
    std::vector<ElfRelocation>::const_iterator relocationAt(quint32 offset) const; // the first there or behind
    QByteArray relocationName(const ElfRelocation &relocation, quint32 word) const;

    const ElfFile &m_elf;
    DwarfFile &m_dwarf;
    std::unique_ptr<Disassembler> m_disassembler;
    CodeSymbols m_symbols;
    std::span<const SourceLineRow> m_lines;
    std::vector<const ElfSection *> m_sections;
    std::vector<ElfRelocation> m_relocations; // of the section that is listed, in an object
};
