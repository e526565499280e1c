#include "elf/ElfFile.h"

#include "base/ByteCursor.h"
#include "base/HException.h"
#include "base/SafeFile.h"
#include "elf/ElfSymbolTable_p.h"

#include <QFile>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(elfTrace, "elf", QtWarningMsg)

namespace {

Elf32_Ehdr readFileHeader(ByteCursor cursor)
{
    Elf32_Ehdr header = {};
    std::ranges::copy(cursor.readBytes(EI_NIDENT), header.e_ident);
    header.e_type = cursor.readU16();
    header.e_machine = cursor.readU16();
    for (Elf32_Word *field : {&header.e_version, &header.e_entry, &header.e_phoff, &header.e_shoff, &header.e_flags})
        *field = cursor.readU32();
    for (Elf32_Half *field : {&header.e_ehsize, &header.e_phentsize, &header.e_phnum, &header.e_shentsize,
                              &header.e_shnum, &header.e_shstrndx})
        *field = cursor.readU16();
    return header;
}

Elf32_Phdr readProgramHeader(ByteCursor &cursor)
{
    Elf32_Phdr header;
    for (Elf32_Word *field : {&header.p_type, &header.p_offset, &header.p_vaddr, &header.p_paddr, &header.p_filesz,
                              &header.p_memsz, &header.p_flags, &header.p_align})
        *field = cursor.readU32();
    return header;
}

Elf32_Shdr readSectionHeader(ByteCursor &cursor)
{
    Elf32_Shdr header;
    for (Elf32_Word *field :
         {&header.sh_name, &header.sh_type, &header.sh_flags, &header.sh_addr, &header.sh_offset, &header.sh_size,
          &header.sh_link, &header.sh_info, &header.sh_addralign, &header.sh_entsize})
        *field = cursor.readU32();
    return header;
}

// The text at `offset` of a string table; one without its NUL ends with the table.
QByteArrayView stringAt(std::span<const quint8> table, quint32 offset)
{
    if (offset >= table.size())
        return {};
    const char *text = reinterpret_cast<const char *>(table.data() + offset);
    return {text, qsizetype(qstrnlen(text, table.size() - offset))};
}

} // namespace

ElfFile::ElfFile(bool demangle) : m_demangle(demangle) {}

ElfFile::~ElfFile() = default;

void ElfFile::throwTruncated() const
{
    throw HException(u"truncated ELF file: "_s + m_path);
}

void ElfFile::load(const QString &path)
{
    clear();
    ByteImage image = ByteImage::load(path);
    if (!isElf(image.bytes()))
        throw HException(u"invalid ELF file: "_s + path);
    m_path = path;
    parse(std::move(image));
}

void ElfFile::parse(ByteImage image)
{
    const QString path = m_path;
    clear();
    m_path = path;
    m_image = std::move(image);
    try {
        readHeaders();
        readSectionNames();
        findSymbolTable();
        qCDebug(elfTrace, "%zu bytes, %zu sections, %zu segments, %lld symbols: %s", m_image.size(), m_sections.size(),
                m_segments.size(), static_cast<long long>(m_symbolCount), qUtf8Printable(m_path));
    } catch (const HException &) {
        clear();
        throw;
    }
}

void ElfFile::clear()
{
    m_symbols.reset();
    m_symbolCount = 0;
    m_rawSymbols = {};
    m_symbolNames = {};
    m_sectionsByName.clear();
    m_sections.clear();
    m_segments.clear();
    m_header = {};
    m_bigEndian = false;
    m_image = {};
    m_path.clear();
}

void ElfFile::save(const QString &path) const
{
    SafeFile file(path);
    if (!file.open())
        throw HException(u"cannot open "_s + path);
    if (!file.write(QByteArrayView(m_image.data(), qsizetype(m_image.size()))) || !file.commit())
        throw HException(u"write read "_s + path);
}

bool ElfFile::isElf(std::span<const quint8> bytes)
{
    return bytes.size() >= SELFMAG && std::memcmp(bytes.data(), ELFMAG, SELFMAG) == 0;
}

bool ElfFile::isElfFile(const QString &path)
{
    QFile file(path);
    quint8 header[sizeof(Elf32_Ehdr)];
    return file.open(QIODevice::ReadOnly) &&
           file.read(reinterpret_cast<char *>(header), sizeof header) == qint64(sizeof header) && isElf(header);
}

quint8 *ElfFile::pointerAtOffset(quint32 offset)
{
    if (offset >= m_image.size())
        throwTruncated();
    return m_image.data() + offset;
}

std::span<quint8> ElfFile::bytesAtOffset(quint32 offset, quint32 length)
{
    return {pointerAtOffset(offset), std::min<size_t>(length, m_image.size() - offset)};
}

void ElfFile::readHeaders()
{
    const std::span<const quint8> bytes = m_image.bytes();
    if (bytes.size() < sizeof(Elf32_Ehdr))
        throwTruncated();
    if (bytes[EI_CLASS] == ELFCLASS64)
        throw HException(u"64-bit ELF file, only 32-bit ones can be read: "_s + m_path);
    m_bigEndian = bytes[EI_DATA] != ELFDATA2LSB;
    m_header = readFileHeader(ByteCursor(bytes, m_bigEndian));

    // A table must lie in the image as a whole before anything is allocated for it.
    const auto table = [&](quint32 offset, quint32 count, quint32 entrySize) {
        ByteCursor cursor(bytes, m_bigEndian);
        cursor.seek(offset);
        cursor = cursor.take(quint64(count) * entrySize);
        if (cursor.failed())
            throwTruncated();
        return cursor;
    };
    if (m_header.e_phnum) {
        ByteCursor cursor = table(m_header.e_phoff, m_header.e_phnum, sizeof(Elf32_Phdr));
        m_segments.resize(m_header.e_phnum);
        for (ElfSegment &segment : m_segments) {
            segment.header = readProgramHeader(cursor);
            if (segment.header.p_filesz)
                segment.content = bytesAtOffset(segment.header.p_offset, segment.header.p_filesz);
        }
    }
    if (m_header.e_shoff) {
        quint32 count = m_header.e_shnum;
        if (count == 0) {
            ByteCursor first = table(m_header.e_shoff, 1, sizeof(Elf32_Shdr));
            count = readSectionHeader(first).sh_size;
        }
        ByteCursor cursor = table(m_header.e_shoff, count, sizeof(Elf32_Shdr));
        m_sections.reserve(count);
        for (quint32 i = 0; i < count; ++i) {
            const Elf32_Shdr header = readSectionHeader(cursor);
            std::span<quint8> content;
            if (header.sh_type != SHT_NOBITS && header.sh_size)
                content = bytesAtOffset(header.sh_offset, header.sh_size);
            m_sections.push_back(std::make_unique<ElfSection>(*this, i, header, content));
        }
    }
}

void ElfFile::readSectionNames()
{
    quint32 index = m_header.e_shstrndx;
    if (index == SHN_XINDEX && !m_sections.empty())
        index = m_sections[0]->header().sh_link;
    const ElfSection *names = index == SHN_UNDEF ? nullptr : sectionAt(index);
    if (!names)
        return;
    if (names->header().sh_type != SHT_STRTAB)
        throw HException(u"not a string section"_s);
    for (const auto &section : m_sections) {
        section->m_name = QString::fromUtf8(stringAt(names->content(), section->header().sh_name));
        if (!section->m_name.isEmpty())
            m_sectionsByName.push_back(section.get());
    }
    std::ranges::stable_sort(m_sectionsByName, {}, &ElfSection::name);
}

void ElfFile::findSymbolTable()
{
    const ElfSection *strings = sectionNamed(u".strtab"_s);
    const ElfSection *table = sectionNamed(u".symtab"_s);
    if (!table || table->header().sh_size == 0)
        return;
    m_rawSymbols = table->content();
    const quint32 entrySize = table->header().sh_entsize;
    // The entries stand 16 bytes apart; the entry size only counts them.
    m_symbolCount = entrySize ? table->header().sh_size / entrySize : 0;
    if (entrySize == 0 || size_t(m_symbolCount) > m_rawSymbols.size() / sizeof(Elf32_Sym))
        throw HException(u"symbol table with entry size %1: %2"_s.arg(entrySize).arg(m_path));
    if (!strings)
        return;
    if (strings->header().sh_type != SHT_STRTAB)
        throw HException(u"not a string section"_s);
    m_symbolNames = strings->content();
    for (qsizetype i = 0; i < m_symbolCount; ++i) {
        const quint64 name = extractInteger(m_rawSymbols.data(), i * qsizetype(sizeof(Elf32_Sym)), 4, m_bigEndian);
        if (name && name >= m_symbolNames.size())
            throwTruncated();
    }
}

QByteArrayView ElfFile::symbolNameAt(quint32 offset) const
{
    return stringAt(m_symbolNames, offset);
}

ElfSection *ElfFile::sectionAt(quint32 index) const
{
    return index < m_sections.size() ? m_sections[index].get() : nullptr;
}

ElfSection *ElfFile::sectionNamed(const QString &name) const
{
    const auto found = std::ranges::lower_bound(m_sectionsByName, name, {}, &ElfSection::name);
    return found != m_sectionsByName.end() && (*found)->name() == name ? *found : nullptr;
}

ElfSection *ElfFile::sectionOfSymbol(const ElfSymbol *symbol) const
{
    quint32 index = symbol->sectionIndex();
    if (index == SHN_XINDEX) {
        const ElfSection *indexes = sectionNamed(u".symtab_shndx"_s);
        const quint64 offset = quint64(symbol->index()) * 4;
        if (!indexes || offset + 4 > indexes->content().size())
            return nullptr;
        index = quint32(extractInteger(indexes->content().data(), qsizetype(offset), 4, m_bigEndian));
    }
    return sectionAt(index);
}

ElfSection *ElfFile::relocationSectionOf(const ElfSection *section) const
{
    for (const auto &candidate : m_sections) {
        const Elf32_Shdr &header = candidate->header();
        if ((header.sh_type == SHT_REL || header.sh_type == SHT_RELA) && header.sh_info == section->index())
            return candidate.get();
    }
    return nullptr;
}

const ElfSegment *ElfFile::segmentContaining(quint32 address) const
{
    for (const ElfSegment &segment : m_segments) {
        const Elf32_Phdr &header = segment.header;
        if (segment.isLoadable() && address >= header.p_vaddr && address - header.p_vaddr < header.p_memsz)
            return &segment;
    }
    return nullptr;
}

const ElfSegment *ElfFile::segmentAtOffset(quint32 offset) const
{
    for (const ElfSegment &segment : m_segments) {
        const Elf32_Phdr &header = segment.header;
        if (segment.isLoadable() && offset >= header.p_offset && offset - header.p_offset < header.p_filesz)
            return &segment;
    }
    return nullptr;
}

bool ElfFile::rangeInSegment(quint32 address, quint32 length) const
{
    return std::ranges::any_of(m_segments, [&](const ElfSegment &segment) {
        const Elf32_Phdr &header = segment.header;
        return header.p_vaddr <= address && quint64(address) + length < quint64(header.p_vaddr) + header.p_memsz;
    });
}

// A section is loaded where its segment is: sh_addr moved by what the segment's two addresses differ in.
quint32 ElfFile::loadAddress(const ElfSection &section) const
{
    const ElfSegment *segment = segmentAtOffset(section.header().sh_offset);
    const quint32 moved = segment ? segment->header.p_paddr - segment->header.p_vaddr : 0;
    return section.header().sh_addr + moved;
}

quint8 *ElfFile::read(quint32 address, quint32 length, bool useVirtual, void *destination, quint8 fill, bool bySegments)
{
    const quint64 end = quint64(address) + length;
    if (end > 0xFFFFFFFF)
        return nullptr;
    quint8 *const bytes = static_cast<quint8 *>(destination);
    if (bytes)
        std::memset(bytes, fill, length);
    // Serves the request from one unit; gives a pointer when that ends the search.
    const auto serve = [&](quint32 unitAddress, std::span<quint8> content) -> quint8 * {
        const quint64 unitEnd = quint64(unitAddress) + content.size();
        if (!bytes)
            return address >= unitAddress && end <= unitEnd ? content.data() + (address - unitAddress) : nullptr;
        const quint64 from = std::max<quint64>(address, unitAddress), to = std::min(end, unitEnd);
        if (from < to)
            std::memcpy(bytes + (from - address), content.data() + (from - unitAddress), to - from);
        return nullptr;
    };
    if (bySegments) {
        for (const ElfSegment &segment : m_segments) {
            const Elf32_Phdr &header = segment.header;
            if (!segment.isLoadable())
                continue;
            if (quint8 *found = serve(useVirtual ? header.p_vaddr : header.p_paddr, segment.content))
                return found;
        }
    } else {
        for (const auto &section : m_sections) {
            const Elf32_Shdr &header = section->header();
            if (!(header.sh_flags & SHF_ALLOC) || header.sh_size == 0 || header.sh_type == SHT_NOBITS)
                continue;
            if (quint8 *found = serve(useVirtual ? header.sh_addr : loadAddress(*section), section->content()))
                return found;
        }
    }
    return bytes;
}
