#pragma once

#include <QByteArray>
#include <QString>
#include <cstdio>
#include <elf.h>
#include <span>
#include <vector>

class ElfFile;
class ElfSymbol;

// A section of an ElfFile, which owns it.
class ElfSection
{
public:
    ElfSection(ElfFile &file, quint32 index, const Elf32_Shdr &header, std::span<quint8> content);
    virtual ~ElfSection() = default;

    const Elf32_Shdr &header() const { return m_header; } // in host order
    quint32 index() const { return m_index; }
    const QString &name() const { return m_name; }
    ElfFile &file() const { return m_file; }

    // A section of program bits, no bits, init or fini array or ARM exception index that is written, allocated
    // or executed.
    bool isLoadable() const;

    // The bytes in the image, compressed ones as they stand; empty for SHT_NOBITS. Throws HException when the
    // section runs past the end of the image.
    std::span<quint8> content() const;
    // What the section holds: content(), inflated if it is compressed (SHF_COMPRESSED with zlib, or a name that
    // begins with ".zdebug"). Throws HException when it can't be inflated. Kept until the file is cleared.
    std::span<const quint8> data() const;

    // The header as text, see ElfFile::dump().
    void dump(FILE *stream) const;

    // The section's own "$" symbols by value.
    const std::vector<ElfSymbol *> &mappingSymbols() const;

private:
    friend class ElfFile;

    ElfFile &m_file;
    quint32 m_index;
    Elf32_Shdr m_header;
    std::span<quint8> m_content; // as much of it as the image has
    QString m_name;
    std::vector<ElfSymbol *> m_mappingSymbols;
    mutable QByteArray m_inflated;
};
