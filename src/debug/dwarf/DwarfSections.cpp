#include "debug/dwarf/DwarfSections.h"

#include "base/HException.h"
#include "elf/ElfFile.h"

using namespace Qt::StringLiterals;

namespace {

struct SectionRow
{
    const char *name; // behind ".debug_"
    DwarfSections::Bytes DwarfSections::*bytes;
};

constexpr SectionRow sectionRows[] = {
    {"abbrev", &DwarfSections::abbreviations},
    {"addr", &DwarfSections::addresses},
    {"aranges", &DwarfSections::addressRanges},
    {"frame", &DwarfSections::frames},
    {"info", &DwarfSections::information},
    {"line", &DwarfSections::lines},
    {"line_str", &DwarfSections::lineStrings},
    {"loc", &DwarfSections::locations},
    {"loclists", &DwarfSections::locationLists},
    {"macinfo", &DwarfSections::macroInformation},
    {"macro", &DwarfSections::macros},
    {"names", &DwarfSections::names},
    {"pubnames", &DwarfSections::publicNames},
    {"pubtypes", &DwarfSections::publicTypes},
    {"ranges", &DwarfSections::ranges},
    {"rnglists", &DwarfSections::rangeLists},
    {"str", &DwarfSections::strings},
    {"str_offsets", &DwarfSections::stringOffsets},
    {"types", &DwarfSections::types},
};

} // namespace

DwarfSections DwarfSections::of(const ElfFile &elf)
{
    DwarfSections sections;
    sections.bigEndian = elf.bigEndian();
    for (const SectionRow &row : sectionRows) {
        const QString name = QString::fromLatin1(row.name);
        const ElfSection *section = elf.sectionNamed(u".debug_"_s + name);
        if (!section)
            section = elf.sectionNamed(u".zdebug_"_s + name);
        if (!section)
            continue;
        try {
            sections.*row.bytes = section->data();
        } catch (const HException &error) {
            sections.failures += error.message();
        }
    }
    return sections;
}
