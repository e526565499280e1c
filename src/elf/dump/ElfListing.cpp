#include "elf/dump/ElfListing.h"

using namespace Qt::StringLiterals;

namespace {

template <typename Number>
struct Name
{
    Number value;
    const char *name;
};

constexpr Name<quint32> segmentTypes[] = {
    {PT_NULL, "PT_NULL"},        {PT_LOAD, "PT_LOAD"},    {PT_DYNAMIC, "PT_DYNAMIC"}, {PT_INTERP, "PT_INTERP"},
    {PT_NOTE, "PT_NOTE"},        {PT_SHLIB, "PT_SHLIB"},  {PT_PHDR, "PT_PHDR"},       {PT_TLS, "PT_TLS"},
    {PT_GNU_STACK, "GNU_STACK"}, {PT_ARM_EXIDX, "EXIDX"}, {PT_LOOS, "PT_LOOS"},       {PT_HIOS, "PT_HIOS"},
};

constexpr Name<quint32> sectionTypes[] = {
    {0, "SHT_NULL"},
    {1, "SHT_PROGBITS"},
    {2, "SHT_SYMTAB"},
    {3, "SHT_STRTAB"},
    {4, "SHT_RELA"},
    {5, "SHT_HASH"},
    {6, "SHT_DYNAMIC"},
    {7, "SHT_NOTE"},
    {8, "SHT_NOBITS"},
    {9, "SHT_REL"},
    {10, "SHT_SHLIB"},
    {11, "SHT_DYNSYM"},
    {14, "SHT_INIT_ARRAY"},
    {15, "SHT_FINI_ARRAY"},
    {16, "SHT_PREINIT_ARRAY"},
    {17, "SHT_GROUP"},
    {18, "SHT_SYMTAB_SHNDX"},
    {0x70000000, "SHT_LOPROC"},
    {0x7FFFFFFF, "SHT_HIPROC"},
    {0x80000000, "SHT_LOUSER"},
    {0xFFFFFFFF, "SHT_HIUSER"},
    {0x70000001, "SHT_ARM_EXIDX"},
    {0x70000002, "SHT_ARM_PREEMPTMAP"},
    {0x70000003, "SHT_ARM_ATTRIBUTES"},
    {0x70000004, "SHT_ARM_DEBUGOVERLAY"},
    {0x70000005, "SHT_ARM_OVERLAYSECTION"},
};

// A field of the file header behind e_ident, with its label.
struct HeaderField
{
    const char *label;
    quint32 (*value)(const Elf32_Ehdr &);
};
#define HEADER_FIELD(label, member)                                              \
    {                                                                            \
        label, [](const Elf32_Ehdr &header) -> quint32 { return header.member; } \
    }
constexpr HeaderField headerFields[] = {
    HEADER_FIELD("VERSION     ", e_ident[EI_VERSION]),
    HEADER_FIELD("OSABI       ", e_ident[EI_OSABI]),
    HEADER_FIELD("ABIVERSION  ", e_ident[EI_ABIVERSION]),
    HEADER_FIELD("e_type      ", e_type),
    HEADER_FIELD("e_machine   ", e_machine),
    HEADER_FIELD("e_version   ", e_version),
    HEADER_FIELD("e_entry     ", e_entry),
    HEADER_FIELD("e_phoff     ", e_phoff),
    HEADER_FIELD("e_shoff     ", e_shoff),
    HEADER_FIELD("e_flags     ", e_flags),
    HEADER_FIELD("e_ehsize    ", e_ehsize),
    HEADER_FIELD("e_phentsize ", e_phentsize),
    HEADER_FIELD("e_phnum     ", e_phnum),
    HEADER_FIELD("e_shentsize ", e_shentsize),
    HEADER_FIELD("e_shnum     ", e_shnum),
    HEADER_FIELD("e_shstrndx  ", e_shstrndx),
};
#undef HEADER_FIELD

QString hex(quint32 value, int digits)
{
    return u"0x%1"_s.arg(value, digits, 16, QChar(u'0'));
}

// Letters of the flags that are set, blanks for the others, in the order given.
QString flagLetters(quint32 flags, std::initializer_list<std::pair<quint32, char16_t>> letters)
{
    QString text;
    for (const auto &[bit, letter] : letters)
        text += flags & bit ? QChar(letter) : QChar(u' ');
    return text;
}

} // namespace

QString segmentTypeName(quint32 type)
{
    for (const auto &row : segmentTypes)
        if (row.value == type)
            return QString::fromLatin1(row.name);
    return u"0x"_s + QString::number(type, 16).toUpper();
}

QString sectionTypeName(quint32 type)
{
    for (const auto &row : sectionTypes)
        if (row.value == type)
            return QString::fromLatin1(row.name);
    return u"UNKNOWN section type"_s;
}

const char *elfClassName(quint8 value)
{
    constexpr const char *names[] = {"ELFCLASSNONE", "ELFCLASS32", "ELFCLASS64"};
    return value < std::size(names) ? names[value] : names[0];
}

const char *elfDataName(quint8 value)
{
    constexpr const char *names[] = {"ELFDATANONE", "ELFDATA2LSB", "ELFDATA2MSB"};
    return value < std::size(names) ? names[value] : names[0];
}

void listElfHeader(const ElfFile &file, QStringList &lines)
{
    const Elf32_Ehdr &header = file.header();
    QString ident = u"e_ident     :"_s;
    for (const quint8 byte : header.e_ident)
        ident += u' ' + hex(byte, 2);
    lines += u"ELF Header:"_s;
    lines += ident;
    lines += u"CLASS       : "_s + QLatin1StringView(elfClassName(header.e_ident[EI_CLASS]));
    lines += u"EI_DATA     : "_s + QLatin1StringView(elfDataName(header.e_ident[EI_DATA]));
    for (const HeaderField &field : headerFields)
        lines += QString::fromLatin1(field.label) + u": 0x"_s + QString::number(field.value(header), 16);
}

void listProgramHeaders(const ElfFile &file, QStringList &lines)
{
    constexpr int width = 11, flagWidth = 4;
    QString heading;
    for (const char16_t *name : {u"Type", u"Offset", u"VirtAddr", u"PhysAddr", u"FileSiz", u"MemSiz"})
        heading += QString::fromUtf16(name).leftJustified(width);
    lines += u"Program Headers:"_s;
    lines += heading + u"Flg"_s.leftJustified(flagWidth) + u"Align"_s;
    for (const ElfSegment &segment : file.segments()) {
        const Elf32_Phdr &header = segment.header;
        QString line = segmentTypeName(header.p_type).leftJustified(width);
        for (const quint32 value : {header.p_offset, header.p_vaddr, header.p_paddr, header.p_filesz, header.p_memsz})
            line += hex(value, 8).leftJustified(width);
        const QString flags = flagLetters(header.p_flags, {{PF_R, u'R'}, {PF_W, u'W'}, {PF_X, u'X'}});
        lines += line + flags.rightJustified(flagWidth - 1) + u' ' + hex(header.p_align, 2);
    }
}

void listSectionHeaders(const ElfFile &file, QStringList &lines)
{
    std::vector<QStringList> rows{{u"[Nr]"_s, u"Name"_s, u"Type"_s, u"Addr"_s, u"Offset"_s, u"Size"_s, u"ES"_s,
                                   u"Flg"_s, u"Lk"_s, u"Inf"_s, u"Al"_s}};
    for (const auto &section : file.sections()) {
        const Elf32_Shdr &header = section->header();
        rows.push_back({u"[%1]"_s.arg(section->index(), 2), section->name(), sectionTypeName(header.sh_type),
                        hex(header.sh_addr, 8), hex(header.sh_offset, 8), hex(header.sh_size, 8),
                        hex(header.sh_entsize, 2),
                        flagLetters(header.sh_flags, {{SHF_WRITE, u'W'}, {SHF_ALLOC, u'A'}, {SHF_EXECINSTR, u'X'}}),
                        hex(header.sh_link, 2), hex(header.sh_info, 2), hex(header.sh_addralign, 2)});
    }
    std::vector<qsizetype> widths(size_t(rows.front().size()));
    for (const QStringList &row : rows)
        for (qsizetype i = 0; i < row.size(); ++i)
            widths[size_t(i)] = std::max(widths[size_t(i)], row[i].size());
    lines += u"Section Headers:"_s;
    for (const QStringList &row : rows) {
        QString line;
        for (qsizetype i = 0; i < row.size() - 1; ++i)
            line += row[i].leftJustified(widths[size_t(i)] + 1);
        lines += line + row.last();
    }
}
