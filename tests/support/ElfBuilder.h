#pragma once

#include <QByteArray>
#include <QList>
#include <elf.h>

// Makes small ELF32 images in either byte order for tests. Sections and symbols are given in order; the null
// section, ".symtab", ".strtab" and ".shstrtab" come by themselves (numbers 0 and the last three).
class ElfBuilder
{
public:
    struct Section
    {
        QByteArray name;
        quint32 type = SHT_PROGBITS;
        quint32 flags = 0;
        quint32 address = 0;
        QByteArray content = {};
        quint32 size = 0xFFFFFFFF; // other than the content's, if given (SHT_NOBITS, broken files)
        quint32 info = 0;
    };
    struct Symbol
    {
        QByteArray name;
        quint32 value = 0;
        quint8 info = 0; // ELF32_ST_INFO(binding, type)
        quint16 section = 0;
        quint32 size = 0;
    };
    struct Segment
    {
        quint32 type;
        quint32 offset; // of the content from the start of section contents
        quint32 virtualAddress, physicalAddress;
        quint32 fileSize, memorySize;
    };

    bool bigEndian = false;
    quint16 machine = EM_ARM;
    quint16 type = ET_REL;
    quint32 entry = 0;
    QList<Section> sections;
    QList<Symbol> symbols;
    QList<Segment> segments;
    bool hasSymbolTable = true;
    bool countInFirstSection = false; // e_shnum 0 and e_shstrndx 0xFFFF

    // Header, program headers, section contents in order, section headers.
    QByteArray build() const;
    // Where the content of section `index` (1: the first given) and the section headers begin.
    quint32 contentOffset(int index) const;
    quint32 sectionHeaderOffset() const;

private:
    QList<Section> allSections() const;
};

// An archive member and the symbols that the index has for it.
struct ArchiveMember
{
    QByteArray name;
    QByteArray content;
    QList<QByteArray> symbols;
};

// A GNU-style archive: symbol index (unless `withIndex` is false), long names where needed, the members.
QByteArray buildArchive(const QList<ArchiveMember> &members, bool withIndex = true);

// One 60-byte member header.
QByteArray archiveHeader(const QByteArray &name, qsizetype size);
