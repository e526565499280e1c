#include "elf/ElfFile.h"
#include "elf/dump/ElfListing.h"

void ElfSection::dump(FILE *stream) const
{
    constexpr struct
    {
        quint32 flag;
        const char *name;
    } flags[] = {{SHF_WRITE, "SHF_WRITE"}, {SHF_ALLOC, "SHF_ALLOC"}, {SHF_EXECINSTR, "SHF_EXECINSTR"}};
    QByteArray flagNames;
    for (const auto &row : flags)
        if (m_header.sh_flags & row.flag)
            flagNames.append(flagNames.isEmpty() ? "" : "+").append(row.name);
    std::fputs("\nsection header\n", stream);
    std::fprintf(stream, "sh_name     : 0x%X %s\n", m_header.sh_name, m_name.toUtf8().constData());
    std::fprintf(stream, "sh_type     : 0x%X %s\n", m_header.sh_type,
                 sectionTypeName(m_header.sh_type).toLatin1().constData());
    std::fprintf(stream, "sh_flags    : 0x%X %s\n", m_header.sh_flags, flagNames.constData());
    std::fprintf(stream, "sh_addr     : 0x%X\n", m_header.sh_addr);
    std::fprintf(stream, "sh_offset   : 0x%X\n", m_header.sh_offset);
    std::fprintf(stream, "sh_size     : 0x%X\n", m_header.sh_size);
    std::fprintf(stream, "sh_link     : 0x%X\n", m_header.sh_link);
    std::fprintf(stream, "sh_info     : 0x%X\n", m_header.sh_info);
    std::fprintf(stream, "sh_addralign: 0x%X\n", m_header.sh_addralign);
    std::fprintf(stream, "sh_entsize  : 0x%X\n", m_header.sh_entsize);
}

static void dumpHeader(const Elf32_Ehdr &header, FILE *stream)
{
    std::fputs("\nelf header\ne_ident    : ", stream);
    std::fprintf(stream, "             EI_MAG0   : 0x%02X\n", header.e_ident[EI_MAG0]);
    for (int i = EI_MAG1; i <= EI_MAG3; ++i)
        std::fprintf(stream, "             EI_MAG%d   : %c\n", i, header.e_ident[i]);
    std::fprintf(stream, "             EI_CLASS  : %s\n", elfClassName(header.e_ident[EI_CLASS]));
    std::fprintf(stream, "             EI_DATA   : %s\n", elfDataName(header.e_ident[EI_DATA]));
    std::fprintf(stream, "             EI_VERSION: 0x%02X\n", header.e_ident[EI_VERSION]);
    std::fprintf(stream, "e_type      : 0x%X\n", header.e_type);
    std::fprintf(stream, "e_machine   : 0x%X\n", header.e_machine);
    std::fprintf(stream, "e_version   : 0x%X\n", header.e_version);
    std::fprintf(stream, "e_entry     : 0x%X\n", header.e_entry);
    std::fprintf(stream, "e_phoff     : 0x%x\n", header.e_phoff);
    std::fprintf(stream, "e_shoff     : 0x%x\n", header.e_shoff);
    std::fprintf(stream, "e_flags     : 0x%x\n", header.e_flags);
    std::fprintf(stream, "e_ehsize    : 0x%x\n", header.e_ehsize);
    std::fprintf(stream, "e_phentsize : 0x%x\n", header.e_phentsize);
    std::fprintf(stream, "e_phnum     : 0x%x\n", header.e_phnum);
    std::fprintf(stream, "e_shentsize : 0x%x\n", header.e_shentsize);
    std::fprintf(stream, "e_shnum     : 0x%x\n", header.e_shnum);
    std::fprintf(stream, "e_shstrndx  : 0x%x\n", header.e_shstrndx);
    const bool isValid = std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0;
    std::fprintf(stream, "\nHeader %s.\n", isValid ? "ok" : "invalid");
}

void ElfFile::dump(FILE *stream) const
{
    dumpHeader(m_header, stream);
    std::fputs("Sections\n--------\n", stream);
    for (const auto &section : m_sections)
        section->dump(stream);
    std::fputs("Programs\n--------\n", stream);
    for (const ElfSegment &segment : m_segments) {
        const Elf32_Phdr &header = segment.header;
        std::fputs("\nprogram header\n", stream);
        std::fprintf(stream, "p_type      : %s\n", segmentTypeName(header.p_type).toLatin1().constData());
        std::fprintf(stream, "p_offset    : 0x%X\n", header.p_offset);
        std::fprintf(stream, "p_vaddr     : 0x%X\n", header.p_vaddr);
        std::fprintf(stream, "p_paddr     : 0x%X\n", header.p_paddr);
        std::fprintf(stream, "p_filesz    : 0x%X\n", header.p_filesz);
        std::fprintf(stream, "p_memsz     : 0x%X\n", header.p_memsz);
        std::fprintf(stream, "p_flags     : 0x%X\n", header.p_flags);
        std::fprintf(stream, "p_align     : 0x%X\n", header.p_align);
    }
    std::fputs("Symbols by name\n---------------\n", stream);
    for (const ElfSymbol *symbol : symbolsByName()) {
        std::fprintf(stream, "%s:\n", symbol->name().toUtf8().constData());
        std::fprintf(stream, "  st_value: 0x%x\n", symbol->rawValue());
        std::fprintf(stream, "  st_size : 0x%x\n", symbol->size());
        std::fprintf(stream, "  st_info : 0x%x\n", symbol->info());
        std::fprintf(stream, "  st_other: 0x%x\n", symbol->other());
        std::fprintf(stream, "  st_shndx: 0x%x\n\n", symbol->sectionIndex());
    }
    std::fputs("Symbols by address\n------------------\n", stream);
    for (const ElfSymbol *symbol : symbolsByAddress())
        std::fprintf(stream, "0x%x : %s\n", symbol->value(), symbol->name().toUtf8().constData());
}
