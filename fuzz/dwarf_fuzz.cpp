#include "debug/dwarf/DwarfFile.h"

// The input is cut into sections: a byte picks the order of bytes, then each section has a length of 2 bytes and
// its content. Everything that a debugger asks is asked.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    DwarfSections sections;
    sections.bigEndian = data[0] & 1;
    ByteCursor input({data + 1, size - 1}, false);
    for (DwarfSections::Bytes *section :
         {&sections.abbreviations, &sections.information, &sections.lines, &sections.frames, &sections.strings,
          &sections.types, &sections.addressRanges, &sections.ranges, &sections.rangeLists, &sections.addresses,
          &sections.stringOffsets, &sections.lineStrings})
        *section = input.readBytes(std::min<quint64>(input.readU16(), quint64(input.remaining())));

    DwarfFile file;
    file.load(sections);
    for (DwarfCompilationUnit &unit : file.units()) {
        for (quint32 index = 0; index < std::min(unit.entryCount(), 1000u); ++index) {
            const DwarfDebuggingInformationEntry entry = unit.entry(index);
            entry.attributes();
            entry.qualifiedName();
            entry.ranges();
            entry.staticAddress();
            entry.enclosingClass();
            file.definitionOf(entry.target(DW_AT_type));
            unit.fileName(entry.number(DW_AT_decl_file).value_or(0));
        }
    }
    file.findType(QStringLiteral("ns::C"));
    file.publicEntries(QStringLiteral("run"));
    file.variableAt(0x20000000);
    file.publicNames();
    file.symbolicLocationAt(0x1010); // by windows of the tables first
    quint32 asked = 0;
    for (const SourceLineRow &row : file.lineMap().rows()) {
        file.symbolicLocationAt(row.address);
        file.frames().stackUsage(row.address);
        if (++asked == 200)
            break;
    }
    file.frames().computeRegisters(0x1010);
    file.frames().dump();
    return 0;
}
