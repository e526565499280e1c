#include "debug/dwarf/DwarfSections.h"

#include "base/HException.h"
#include "elf/ElfFile.h"
#include "elf/ElfRelocations.h"

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

using Pieces = std::vector<const ElfSection *>;

Pieces sectionsNamed(const ElfFile &elf, const SectionRow &row)
{
    const QString plain = u".debug_"_s + QString::fromLatin1(row.name);
    const QString compressed = u".zdebug_"_s + QString::fromLatin1(row.name);
    Pieces pieces;
    if (elf.header().e_type != ET_REL) {
        const ElfSection *section = elf.sectionNamed(plain);
        if (!section)
            section = elf.sectionNamed(compressed);
        if (section)
            pieces.push_back(section);
        return pieces;
    }
    for (const auto &section : elf.sections()) {
        if (section->name() == plain || section->name() == compressed)
            pieces.push_back(section.get());
    }
    return pieces;
}

// Where the sections of an object file stand: one behind the other from address 0, unless it places them itself.
std::vector<quint32> placesOf(const ElfFile &elf)
{
    std::vector<quint32> places(elf.sectionCount(), 0);
    quint32 next = 0;
    for (const auto &section : elf.sections()) {
        const Elf32_Shdr &header = section->header();
        if (!(header.sh_flags & SHF_ALLOC) || header.sh_size == 0)
            continue;
        if (header.sh_addr != 0)
            return std::vector<quint32>(elf.sectionCount(), 0);
        const quint32 alignment = std::max<quint32>(header.sh_addralign, 1);
        next = (next + alignment - 1) / alignment * alignment; // may wrap, then sections overlap
        places[section->index()] = next;
        next += header.sh_size;
    }
    return places;
}

// Puts the pieces of each section together and carries out their relocations.
void relocate(const ElfFile &elf, const std::vector<Pieces> &pieces, DwarfSections &sections)
{
    std::vector<quint32> starts = sections.places; // of the pieces in the whole
    for (const Pieces &parts : pieces) {
        quint32 offset = 0;
        for (const ElfSection *part : parts) {
            starts[part->index()] = offset;
            offset += quint32(part->data().size());
        }
    }
    const auto valueOf = [&](const ElfSymbol &symbol) {
        const ElfSection *section = elf.sectionOfSymbol(&symbol);
        return symbol.value() + (section ? starts[section->index()] : 0);
    };
    // In a damaged file sections may overlap; an honest one has no more bytes and relocations than these.
    size_t bytesLeft = elf.image().size(), relocationsLeft = elf.image().size() / sizeof(Elf32_Rel);
    int unknown = 0;
    for (size_t row = 0; row < pieces.size(); ++row) {
        QByteArray whole;
        for (const ElfSection *part : pieces[row]) {
            const auto relocations = relocationsOf(elf, *part);
            if (part->content().size() > bytesLeft || relocations.size() > relocationsLeft)
                throw HException(u"the debug sections overlap: %1"_s.arg(elf.path()));
            bytesLeft -= part->content().size();
            relocationsLeft -= relocations.size();
            const std::span<const quint8> data = part->data();
            const qsizetype start = whole.size();
            whole.append(reinterpret_cast<const char *>(data.data()), qsizetype(data.size()));
            const std::span<quint8> place(reinterpret_cast<quint8 *>(whole.data()) + start, data.size());
            unknown += applyRelocations(elf, relocations, place, valueOf);
        }
        if (whole.isEmpty())
            continue;
        sections.relocated += whole;
        sections.*sectionRows[row].bytes = {reinterpret_cast<const quint8 *>(whole.constData()), size_t(whole.size())};
    }
    if (unknown)
        sections.failures += u"%1 relocations of the debug sections aren't carried out"_s.arg(unknown);
}

} // namespace

DwarfSections DwarfSections::of(const ElfFile &elf)
{
    DwarfSections sections;
    sections.bigEndian = elf.bigEndian();
    std::vector<Pieces> pieces;
    for (const SectionRow &row : sectionRows) {
        pieces.push_back(sectionsNamed(elf, row));
        std::erase_if(pieces.back(), [&](const ElfSection *section) {
            try {
                sections.*row.bytes = section->data();
                return false;
            } catch (const HException &error) {
                sections.failures += error.message();
                return true;
            }
        });
    }
    if (sections.information.empty() && elf.sectionNamed(u".debug_info.dwo"_s))
        sections.failures += u"split DWARF: %1 is the part beside a program's file, which isn't read"_s.arg(elf.path());
    if (elf.header().e_type != ET_REL)
        return sections;
    sections.places = placesOf(elf);
    try {
        relocate(elf, pieces, sections);
    } catch (const HException &error) {
        sections.failures += error.message();
    }
    return sections;
}

quint32 DwarfSections::addressIn(const ElfSection &section, quint32 offset) const
{
    return section.header().sh_addr + offset + (section.index() < places.size() ? places[section.index()] : 0);
}
