#include "debug/disassembly/CodeListing.h"

#include "base/ByteOrder.h"
#include "elf/ElfFile.h"

#include <algorithm>

namespace {

bool isCodeSection(const ElfSection &section)
{
    const Elf32_Shdr &header = section.header();
    return header.sh_type == SHT_PROGBITS && (header.sh_flags & SHF_EXECINSTR) && header.sh_size != 0;
}

// The entry of an ascending list that holds an address: the last one at or before it.
template <typename List, typename AddressOf>
size_t indexBefore(const List &list, quint32 address, AddressOf addressOf)
{
    return size_t(std::ranges::upper_bound(list, address, {}, addressOf) - list.begin());
}

} // namespace

CodeListing::CodeListing(const ElfFile &elf, DwarfFile &dwarf, bool lines)
    : m_elf(elf), m_dwarf(dwarf), m_disassembler(Disassembler::of(elf)), m_symbols(elf, dwarf.sections())
{
    if (lines)
        m_lines = dwarf.lineMap().rows();
    for (const auto &section : elf.sections()) {
        if (isCodeSection(*section))
            m_sections.push_back(section.get());
    }
}

// $a, $t, $d and $x with what may follow them ("$d.12", "$xrv32i2p0").
std::optional<CodeRow::Kind> CodeListing::mappedKind(const ElfSymbol &symbol) const
{
    switch (const QByteArrayView name = symbol.rawName(); name.size() < 2 ? 0 : name[1]) {
    case 'a': return CodeRow::Arm;
    case 't': return CodeRow::Thumb;
    case 'x': return CodeRow::RiscV;
    case 'd': return CodeRow::Data;
    }
    return {};
}

CodeRow::Kind CodeListing::unmappedKind(const ElfSection &section, quint32 address) const
{
    if (!m_elf.isArm())
        return CodeRow::RiscV;
    const CodeSymbols::Place *place = m_symbols.placeBefore(address, section.index());
    if (place && place->symbol->isFunction())
        return place->isThumb ? CodeRow::Thumb : CodeRow::Arm;
    return m_disassembler->usualSet() == InstructionSet::Thumb ? CodeRow::Thumb : CodeRow::Arm;
}

void CodeListing::list(const ElfSection &section, quint32 first, quint32 last,
                       const std::function<void(const CodeRow &)> &take)
{
    const std::span<const quint8> content = section.content();
    const quint32 start = startOf(section), end = start + quint32(content.size()) - 1; // included
    if (content.empty() || first > end || last < start)
        return;
    first = std::max(first, start);
    last = std::min(last, end);

    const auto offsetOf = [&](const ElfSymbol *symbol) { return symbol->value() - section.header().sh_addr; };
    std::vector<std::pair<quint32, CodeRow::Kind>> kinds; // by address
    for (const ElfSymbol *symbol : section.mappingSymbols()) {
        if (const auto kind = mappedKind(*symbol))
            kinds.emplace_back(start + offsetOf(symbol), *kind);
    }
    const bool isObject = m_elf.header().e_type == ET_REL;
    m_relocations = isObject ? relocationsOf(m_elf, section) : std::vector<ElfRelocation>();

    const auto &places = m_symbols.places();
    size_t nextKind = indexBefore(kinds, first, &std::pair<quint32, CodeRow::Kind>::first);
    size_t nextPlace = indexBefore(places, first, &CodeSymbols::Place::address);
    size_t nextLine = size_t(std::ranges::lower_bound(m_lines, first, {}, &SourceLineRow::address) - m_lines.begin());
    size_t nextRelocation = size_t(relocationAt(first - start) - m_relocations.begin());

    for (quint64 address = first; address <= last;) {
        CodeRow row;
        row.section = &section;
        row.address = quint32(address);
        while (nextKind < kinds.size() && kinds[nextKind].first <= address)
            ++nextKind;
        row.kind = nextKind ? kinds[nextKind - 1].second : unmappedKind(section, row.address);
        while (nextPlace < places.size() && places[nextPlace].address <= address)
            ++nextPlace;
        if (nextPlace && places[nextPlace - 1].section == section.index())
            row.symbol = &places[nextPlace - 1];
        while (nextLine < m_lines.size() && m_lines[nextLine].address < address)
            ++nextLine;
        if (nextLine < m_lines.size() && m_lines[nextLine].address == address)
            row.sourceRow = &m_lines[nextLine];

        quint64 limit = quint64(end) + 1; // where something else begins
        if (nextKind < kinds.size())
            limit = std::min<quint64>(limit, kinds[nextKind].first);
        row.bytes = content.subspan(row.address - start);
        if (row.kind == CodeRow::Data) {
            if (nextPlace < places.size())
                limit = std::min<quint64>(limit, places[nextPlace].address);
            readData(row, quint32(std::min<quint64>(limit - address, 4)));
        } else {
            const auto set = row.kind == CodeRow::Arm     ? InstructionSet::Arm
                             : row.kind == CodeRow::Thumb ? InstructionSet::Thumb
                                                          : InstructionSet::RiscV;
            row.instruction = m_disassembler->disassembleAt(row.address, row.bytes.first(limit - address), set);
        }
        row.bytes = row.bytes.first(row.instruction.length);
        for (; nextRelocation < m_relocations.size() &&
               m_relocations[nextRelocation].offset < row.address - start + row.instruction.length;
             ++nextRelocation) {
            if (row.relocation.isEmpty())
                row.relocation = relocationName(m_relocations[nextRelocation], row.value.value_or(0));
        }
        if (isObject)
            nameRelocated(row);
        else
            nameOperands(row);
        take(row);
        address += row.instruction.length;
    }
}

// A word where it is aligned, else a halfword, else a byte.
void CodeListing::readData(CodeRow &row, quint32 size)
{
    size = row.address % 2 ? 1 : row.address % 4 || size < 4 ? std::min(size, 2u) : 4;
    const quint32 number = quint32(extractInteger(row.bytes.data(), 0, size, m_elf.bigEndian()));
    row.instruction.mnemonic = size == 4 ? ".word" : size == 2 ? ".short" : ".byte";
    row.instruction.operands = "0x" + QByteArray::number(number, 16).rightJustified(qsizetype(2 * size), '0');
    row.instruction.length = size;
    if (size == 4)
        row.value = number;
}

std::optional<quint32> CodeListing::wordAt(quint32 address) const
{
    for (const ElfSection *section : m_sections) {
        const quint32 offset = address - startOf(*section);
        const std::span<const quint8> content = section->content();
        if (offset < content.size() && content.size() - offset >= 4)
            return quint32(extractInteger(content.data(), offset, 4, m_elf.bigEndian()));
    }
    return {};
}

void CodeListing::nameOperands(CodeRow &row)
{
    const DisassembledInstruction &instruction = row.instruction;
    if (instruction.target)
        row.targetName = m_symbols.nameAt(*instruction.target);
    if (instruction.reference)
        row.referenceName = m_symbols.nameOfValue(*instruction.reference);
    if (instruction.isLiteralLoad)
        row.value = wordAt(*instruction.reference);
    if (row.value)
        row.valueName = m_symbols.nameOfValue(*row.value);
}

// In an object numbers mean something only where the linker puts nothing; registers that it fills are not known.
void CodeListing::nameRelocated(CodeRow &row)
{
    DisassembledInstruction &instruction = row.instruction;
    if (!row.relocation.isEmpty() || instruction.mnemonic == "jalr")
        instruction.target.reset();
    if (!instruction.isLiteralLoad)
        instruction.reference.reset();
    if (instruction.target)
        row.targetName = m_symbols.nameAt(*instruction.target);
    if (!instruction.reference)
        return;
    row.value = wordAt(*instruction.reference);
    const quint32 offset = *instruction.reference - startOf(*row.section);
    if (const auto literal = relocationAt(offset); literal != m_relocations.end() && literal->offset == offset)
        row.valueName = relocationName(*literal, row.value.value_or(0));
}

std::vector<ElfRelocation>::const_iterator CodeListing::relocationAt(quint32 offset) const
{
    return std::ranges::lower_bound(m_relocations, offset, {}, &ElfRelocation::offset);
}

// Of the symbol and the addend. That of a word without one of its own is the number that stands there; in instructions
// it is a matter of the program counter.
QByteArray CodeListing::relocationName(const ElfRelocation &relocation, quint32 word) const
{
    if (!relocation.symbol)
        return {};
    const ElfSection *section = m_elf.sectionOfSymbol(relocation.symbol);
    const bool isSection = relocation.symbol->type() == STT_SECTION && section;
    QByteArray name = isSection ? section->name().toUtf8() : relocation.symbol->name().toUtf8();
    const qint64 addend = relocation.hasAddend ? relocation.addend : qint32(word);
    if (addend != 0)
        name += (addend < 0 ? "-0x" : "+0x") + QByteArray::number(qAbs(addend), 16);
    return name;
}
