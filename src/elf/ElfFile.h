#pragma once

#include "base/ByteImage.h"
#include "elf/ElfSection.h"
#include "elf/ElfSegment.h"
#include "elf/ElfSymbol.h"

#include <QHash>
#include <QList>
#include <memory>
#include <vector>

// One 32-bit ELF image in either byte order: its sections, segments and symbols, by name and by address.
//
// The image is mapped or handed over and never changed by reading; the header tables are read at once,
// the symbols when somebody first asks for one. Everything that is given out points into this object and
// lives until clear(), the next load() or its end. Look-ups that find nothing give null, false or an empty
// list; only loading and pointerAtOffset() throw, always HException.
//
// Source of the format: Tool Interface Standard (TIS), ELF Specification 1.2, and the ELF for the Arm
// Architecture. The structures and constants are those of <elf.h>.
class ElfFile
{
public:
    // With `demangle`, names of symbols that begin with "_Z" or "__Z" are given as C++ declarations.
    explicit ElfFile(bool demangle = false);
    virtual ~ElfFile();
    ElfFile(const ElfFile &) = delete;
    ElfFile &operator=(const ElfFile &) = delete;

    // A hook through which the value of every symbol of an ARM file passes.
    virtual quint32 mapAddress(quint32 address) { return address; }

    // Throws "cannot open PATH", "cannot read PATH", "invalid ELF file: PATH" (no magic), and what parse() throws.
    void load(const QString &path);
    // An image from elsewhere. Throws "truncated ELF file: PATH" for a header table, a section or segment start
    // or a symbol's name outside the image, "not a string section", and for a 64-bit file or a symbol table
    // that can't be walked. After a failure the file is empty.
    void parse(ByteImage image);
    void clear();
    // The image as it stands, changes through pointers included. Throws "cannot open PATH" or "write read PATH".
    void save(const QString &path) const;

    static bool isElf(std::span<const quint8> bytes);
    static bool isElfFile(const QString &path);

    // All fields in host order; zeros when the file is empty.
    const Elf32_Ehdr &header() const { return m_header; }
    bool bigEndian() const { return m_bigEndian; }
    bool demangles() const { return m_demangle; }
    bool isArm() const { return m_header.e_machine == EM_ARM; }
    const QString &path() const { return m_path; }
    std::span<quint8> image() { return m_image.bytes(); }
    std::span<const quint8> image() const { return m_image.bytes(); }
    // Throws "truncated ELF file: PATH" unless the offset lies in the image.
    quint8 *pointerAtOffset(quint32 offset);
    // `length` bytes at `offset`, or as many as the image has. Throws as pointerAtOffset() does.
    std::span<quint8> bytesAtOffset(quint32 offset, quint32 length);

    const std::vector<std::unique_ptr<ElfSection>> &sections() const { return m_sections; }
    const std::vector<ElfSegment> &segments() const { return m_segments; }
    quint32 sectionCount() const { return quint32(m_sections.size()); }
    ElfSection *sectionAt(quint32 index) const;
    ElfSection *sectionNamed(const QString &name) const;
    // The null section counts as a section; reserved numbers beyond the section count give none.
    ElfSection *sectionOfSymbol(const ElfSymbol *symbol) const;
    // The first SHT_REL or SHT_RELA section whose sh_info names `section`.
    ElfSection *relocationSectionOf(const ElfSection *section) const;

    const ElfSegment *segmentContaining(quint32 address) const; // by virtual address, p_memsz long
    const ElfSegment *segmentAtOffset(quint32 offset) const;
    // True if a segment begins at or before `address` and ends behind `address` + `length`.
    bool rangeInSegment(quint32 address, quint32 length) const;

    // Bytes by virtual or load (physical) address, from loadable segments or from allocated sections.
    // Without a destination: a pointer into the image to a unit that holds the whole range; writing through
    // it changes the image. With one: `length` bytes, `fill` where no unit has any, later units over earlier
    // ones; gives `destination`. Null when the range wraps around 32 bits.
    quint8 *read(quint32 address, quint32 length, bool useVirtual = true, void *destination = nullptr, quint8 fill = 0,
                 bool bySegments = true);

    qsizetype symbolCount() const { return m_symbolCount; }
    ElfSymbol *symbolAtIndex(quint32 index) const;
    // The first in table order among those of that name.
    ElfSymbol *symbolNamed(const QString &name) const;
    const std::vector<ElfSymbol *> &symbolsByName() const;
    const std::vector<ElfSymbol *> &symbolsByAddress() const;
    const std::vector<ElfSymbol *> &mappingSymbols() const;
    const std::vector<ElfSymbol *> &otherSymbols() const;

    // The first symbol at `address`, else the last below it.
    ElfSymbol *nearestSymbol(quint32 address) const;
    ElfSymbol *objectSymbolAt(quint32 address, bool searchBack) const;
    // A symbol of a function; with `acceptCodeGlobals` also a global one in an executable section.
    ElfSymbol *functionSymbolAt(quint32 address, bool searchBack, bool acceptCodeGlobals) const;
    // The nearest symbol and its equals in value, at most 11. False if there is none.
    bool symbolsNear(quint32 address, QList<ElfSymbol *> &list) const;
    // All of exactly that value in loadable sections, in `section` if one is given. True if `list` isn't empty.
    bool symbolsAt(quint32 address, const ElfSection *section, QList<ElfSymbol *> &list) const;
    // Whether code or data lies around an address, and how many bytes until the next typed symbol of another
    // value. What can't be told stays as it was. False without a nearest symbol.
    bool stretchAt(quint32 address, bool &isCode, quint32 &size) const;
    // The "$" symbol (ARM: $a, $t, $d) in force at an address.
    ElfSymbol *mappingSymbolAt(quint32 address, const ElfSection *section) const;

    // Headers, sections, segments and symbols as text. Programs that call it link the library elf/dump.
    void dump(FILE *stream) const;

private:
    friend class ElfSymbol;
    struct SymbolTable;

    void readHeaders();
    void readSectionNames();
    void findSymbolTable();
    [[noreturn]] void throwTruncated() const;
    QByteArrayView symbolNameAt(quint32 offset) const;
    SymbolTable &symbols() const;
    quint32 loadAddress(const ElfSection &section) const;

    const bool m_demangle;
    bool m_bigEndian = false;
    QString m_path;
    ByteImage m_image;
    Elf32_Ehdr m_header = {};
    std::vector<ElfSegment> m_segments;
    std::vector<std::unique_ptr<ElfSection>> m_sections;
    std::vector<ElfSection *> m_sectionsByName; // those with a name, sorted by it
    std::span<const quint8> m_rawSymbols;       // the content of ".symtab"
    std::span<const quint8> m_symbolNames;      // the content of ".strtab"
    qsizetype m_symbolCount = 0;
    mutable std::unique_ptr<SymbolTable> m_symbols; // made by symbols()
};
