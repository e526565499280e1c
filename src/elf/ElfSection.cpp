#include "elf/ElfSection.h"

#include "base/ByteCursor.h"
#include "base/HException.h"
#include "elf/ElfFile.h"

#include <zlib.h>

using namespace Qt::StringLiterals;

namespace {

// Deflate can't make more than 1,032 bytes of one; a section that claims more is broken.
constexpr quint64 maximumInflation = 1032;

QByteArray inflated(ByteCursor compressed, quint64 size, const ElfSection &section)
{
    const auto fail = [&] {
        throw HException(u"cannot inflate section %1: %2"_s.arg(section.name(), section.file().path()));
    };
    const quint64 available = quint64(compressed.remaining());
    if (compressed.failed() || size > (available + 16) * maximumInflation)
        fail();
    QByteArray bytes(qsizetype(size), Qt::Uninitialized);
    uLongf length = uLongf(size);
    if (::uncompress(reinterpret_cast<Bytef *>(bytes.data()), &length, compressed.position(), uLong(available)) !=
            Z_OK ||
        length != size)
        fail();
    return bytes;
}

} // namespace

ElfSection::ElfSection(ElfFile &file, quint32 index, const Elf32_Shdr &header, std::span<quint8> content)
    : m_file(file), m_index(index), m_header(header), m_content(content)
{}

bool ElfSection::isLoadable() const
{
    switch (m_header.sh_type) {
    case SHT_PROGBITS:
    case SHT_NOBITS:
    case SHT_INIT_ARRAY:
    case SHT_FINI_ARRAY:
    case SHT_ARM_EXIDX: return m_header.sh_flags & (SHF_WRITE | SHF_ALLOC | SHF_EXECINSTR);
    default: return false;
    }
}

std::span<quint8> ElfSection::content() const
{
    if (m_header.sh_type != SHT_NOBITS && m_content.size() < m_header.sh_size)
        throw HException(u"section %1 runs past the end of the ELF file: %2"_s.arg(m_name, m_file.path()));
    return m_content;
}

std::span<const quint8> ElfSection::data() const
{
    const std::span<const quint8> raw = content();
    const bool isGnuCompressed = m_name.startsWith(u".zdebug");
    if (!(m_header.sh_flags & SHF_COMPRESSED) && !isGnuCompressed)
        return raw;
    if (m_inflated.isNull()) {
        if (isGnuCompressed) { // "ZLIB", the size in 8 bytes, big-endian
            ByteCursor cursor(raw, true);
            if (cursor.readU32() != 0x5A4C4942)
                return raw;
            const quint64 size = cursor.readU64();
            m_inflated = inflated(cursor, size, *this);
        } else { // Elf32_Chdr: ch_type, ch_size, ch_addralign, 4 bytes each
            ByteCursor cursor(raw, m_file.bigEndian());
            const quint32 type = cursor.readU32();
            const quint32 size = cursor.readU32();
            cursor.skip(4);
            if (type != ELFCOMPRESS_ZLIB)
                throw HException(u"section %1 is compressed in an unknown way (%2): %3"_s.arg(
                    m_name, QString::number(type), m_file.path()));
            m_inflated = inflated(cursor, size, *this);
        }
    }
    return {reinterpret_cast<const quint8 *>(m_inflated.constData()), size_t(m_inflated.size())};
}

const std::vector<ElfSymbol *> &ElfSection::mappingSymbols() const
{
    m_file.mappingSymbols(); // fills those of the sections too
    return m_mappingSymbols;
}
