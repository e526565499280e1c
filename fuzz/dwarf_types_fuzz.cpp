#include "debug/dwarf/DwarfFile.h"
#include "debug/values/DwarfTypes.h"

// The input is cut into sections as in dwarf_fuzz. Each entry is taken for a type.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    DwarfSections sections;
    sections.bigEndian = data[0] & 1;
    ByteCursor input({data + 1, size - 1}, false);
    for (DwarfSections::Bytes *section :
         {&sections.abbreviations, &sections.information, &sections.strings, &sections.types, &sections.names})
        *section = input.readBytes(std::min<quint64>(input.readU16(), quint64(input.remaining())));
    DwarfFile file;
    file.load(sections);
    DwarfTypes types(file);
    for (DwarfCompilationUnit &unit : file.units()) {
        for (quint32 index = 0; index < std::min(unit.entryCount(), 500u); ++index) {
            const DwarfDebuggingInformationEntry entry = unit.entry(index);
            types.stripType(entry);
            types.typeName(entry);
            types.sizeOf(entry);
            types.members(entry);
            types.enumerators(entry);
            types.dimensions(entry);
        }
    }
    for (const char *name : {"Motor", "ns::Motor", "Box<int>", "int"})
        file.findType(QString::fromLatin1(name));
    return 0;
}
