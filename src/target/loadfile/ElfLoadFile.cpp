#include "target/loadfile/ElfLoadFile.h"

#include "base/HException.h"

using namespace Qt::StringLiterals;

namespace {

// The loadable segment whose content holds all of the section's, or null.
const ElfSegment *segmentOf(const ElfFile &file, const Elf32_Shdr &section)
{
    const auto holds = [&](const ElfSegment &segment) {
        const Elf32_Phdr &header = segment.header;
        const quint32 place = section.sh_offset - header.p_offset;
        return segment.isLoadable() && section.sh_offset >= header.p_offset && place <= header.p_filesz &&
               section.sh_size <= header.p_filesz - place;
    };
    const auto found = std::ranges::find_if(file.segments(), holds);
    return found == file.segments().end() ? nullptr : &*found;
}

} // namespace

void readElfSections(const ElfFile &elf, LoadFileSections &sections)
{
    for (const auto &section : elf.sections()) {
        const Elf32_Shdr &header = section->header();
        if (!(header.sh_flags & SHF_ALLOC) || header.sh_type == SHT_NOBITS || header.sh_size == 0)
            continue;
        const ElfSegment *const segment = segmentOf(elf, header);
        if (!segment)
            continue;
        const quint32 address = header.sh_addr + (segment->header.p_paddr - segment->header.p_vaddr);
        if (address + quint64(header.sh_size) > quint64(1) << 32)
            throw HException(u"section %1 passes the end of the address space"_s.arg(section->name()));
        const std::span<quint8> content = section->content();
        sections.append(std::make_unique<StandardLoadFileSection>(section->name().toUtf8(), address,
                                                                  quint32(content.size()), content.data()));
    }
}

ElfLoadFile::ElfLoadFile(const QString &path)
{
    m_elf.load(path);
    if (m_elf.header().e_entry) // 0 stands for no entry point
        setEntryPoint(m_elf.header().e_entry);
}

bool ElfLoadFile::readSections()
{
    readElfSections(m_elf, m_sections);
    return true;
}
