#pragma once

#include "debug/dwarf/DwarfAbbreviations.h"
#include "debug/dwarf/DwarfDebuggingInformationEntry.h"
#include "debug/dwarf/DwarfLineTable.h"

#include <memory>

class DwarfFile;

// One unit of .debug_info or .debug_types. Its header is read when the file is loaded, its root entry, its tree
// and the tables below when somebody first asks for them.
//
//     unit_length 4 bytes (or 0xFFFFFFFF and 8), version 2, then
//     versions 2 to 4:  debug_abbrev_offset, address_size 1
//     version 5:        unit_type 1, address_size 1, debug_abbrev_offset; skeleton and split units: dwo_id 8
//     type units:       type_signature 8, type_offset
//
// Offsets are 4 bytes, 8 in the 64-bit format (DWARF 5, section 7.5.1).
class DwarfCompilationUnit
{
public:
    // One piece of a subprogram's code.
    struct SubprogramRange
    {
        DwarfAddressRange range;
        quint32 index;
    };

    // Reads the header and moves `section` behind the unit. A unit that the section can't hold makes it fail.
    DwarfCompilationUnit(DwarfFile &file, ByteCursor &section, bool isInTypesSection);

    DwarfFile &file() const { return *m_file; }
    quint32 offset() const { return m_offset; }                // of the header in its section
    quint32 length() const { return quint32(m_bytes.size()); } // of the whole unit, the length field included
    quint16 version() const { return m_version; }
    quint8 unitType() const { return m_unitType; }       // 0 before version 5
    quint8 addressSize() const { return m_addressSize; } // as the header says; addresses are read as 4 bytes
    DwarfFormat format() const { return m_format; }
    bool isTypeUnit() const { return m_isTypeUnit; }
    quint64 typeSignature() const { return m_typeSignature; }
    bool contains(quint32 offset) const { return offset >= m_offset && offset - m_offset < length(); }
    // The unit's bytes, with offsets that count from its first byte.
    ByteCursor cursor() const;

    // The first entry. A compile unit has none unless its tag is DW_TAG_compile_unit and its name isn't empty.
    DwarfDebuggingInformationEntry rootEntry();
    // The first entry of the tree, whatever it is; in a type unit the type.
    DwarfDebuggingInformationEntry tree();
    // The entry that begins exactly there (from the unit's first byte), or none.
    DwarfDebuggingInformationEntry entryAt(quint32 offset);
    quint32 entryCount();
    DwarfDebuggingInformationEntry entry(quint32 index) { return {this, index}; }

    // The subprogram whose code holds an address of the file, or none.
    DwarfDebuggingInformationEntry subprogramAt(quint32 address);
    const SubprogramRange *subprogramRangeAt(quint32 address);
    const std::vector<SubprogramRange> &subprogramRanges(); // sorted by start
    // The variable at exactly that address.
    DwarfDebuggingInformationEntry variableAt(quint32 address);

    // Entries of global kinds that are no declarations, by name; and namespaces. Sorted by name, those of one
    // name by offset.
    const std::vector<DwarfDebuggingInformationEntry> &namedEntries();
    const std::vector<DwarfDebuggingInformationEntry> &namespaces();
    std::span<const DwarfDebuggingInformationEntry> entriesNamed(QByteArrayView name);
    // The first entry of a type kind with that name.
    DwarfDebuggingInformationEntry typeNamed(QByteArrayView name);
    bool hasNamePrefix(QByteArrayView prefix);
    bool hasNamespace(QByteArrayView name);
    // All entries with a tag, in the order of their offsets.
    std::vector<DwarfDebuggingInformationEntry> entriesTagged(quint32 tag);

    // The low pc of the root entry, which ranges and location lists count from, or 0.
    quint32 baseAddress();
    // All code of the unit as its root entry tells; empty when it doesn't.
    std::vector<DwarfAddressRange> ranges();
    QByteArrayView compilationDirectory();
    // The unit's line table, read up to the program; null without a usable one.
    DwarfLineTable *lineTable();
    // The path of a file number of DW_AT_decl_file, empty for a number without a file.
    QString fileName(quint64 index);

    // Index forms, from the bases in the root entry.
    quint32 addressAt(quint64 index);                                     // 0 when outside
    std::optional<quint64> stringOffsetAt(quint64 index);                 // in .debug_str
    std::optional<quint64> listOffsetAt(quint64 index, bool isRangeList); // in .debug_rnglists or .debug_loclists
    // A range list of this unit: of .debug_rnglists for version 5, else of .debug_ranges.
    std::vector<DwarfAddressRange> rangesAt(quint64 offset);

    DwarfAttribute readAttribute(ByteCursor &cursor, const DwarfAttributeSpecification &specification);
    // Of a table that belongs to the unit and has a format of its own.
    DwarfAttribute readAttribute(ByteCursor &cursor, const DwarfAttributeSpecification &specification,
                                 DwarfFormat format);

private:
    friend class DwarfDebuggingInformationEntry;
    friend class DwarfFile;
    friend class DwarfNameIndex;

    struct Record // of an entry
    {
        quint32 offset;       // of its abbreviation code
        quint32 abbreviation; // its index in the table
        quint32 parent;       // noIndex: none
        quint32 sibling;      // noIndex: none
    };
    struct MadeEntry // what a record of a unit without bytes means by its abbreviation
    {
        quint32 tag;
        quint32 child;
        std::vector<DwarfAttribute> attributes;
    };
    static constexpr quint32 noIndex = ~quint32(0);

    explicit DwarfCompilationUnit(DwarfFile &file) : m_file(&file) {} // for made entries
    DwarfDebuggingInformationEntry makeEntry(MadeEntry entry, std::span<const DwarfDebuggingInformationEntry> children);

    const DwarfAbbreviationTable &abbreviations();
    void readRoot();
    void readTree();
    void readNames();
    const Record &record(quint32 index);       // the root's may come without its links,
    const Record &linkedRecord(quint32 index); // this one has them
    quint32 tagOf(quint32 index);
    quint32 childOf(quint32 index);
    DwarfDebuggingInformationEntry entryOrNone(quint32 index);
    std::optional<DwarfAttribute> attributeOf(quint32 index, quint32 name);
    std::vector<DwarfAttribute> attributesOf(quint32 index);
    ByteCursor attributeCursor(quint32 index);
    // The name of an entry whose attributes begin at the cursor, or of its origin, without any tree.
    QByteArrayView scannedName(const DwarfAbbreviation &abbreviation, ByteCursor cursor);
    DwarfAttribute readForm(ByteCursor &cursor, quint32 name, quint32 form, DwarfFormat format);

    DwarfFile *m_file;
    std::span<const quint8> m_bytes; // from the unit's first byte; empty for made entries
    quint32 m_offset = 0;
    quint32 m_firstEntry = 0; // its offset
    quint32 m_abbreviationOffset = 0;
    quint32 m_typeOffset = 0;
    quint64 m_typeSignature = 0;
    quint16 m_version = 0;
    quint8 m_unitType = 0;
    quint8 m_addressSize = 0;
    DwarfFormat m_format;
    bool m_isTypeUnit = false;
    bool m_hasReadRoot = false, m_hasRoot = false, m_hasReadTree = false;
    bool m_hasReadSubprograms = false, m_hasReadVariables = false, m_hasReadNames = false, m_hasReadLines = false;

    const DwarfAbbreviationTable *m_abbreviations = nullptr; // of the file
    quint64 m_stringOffsetsBase = 0, m_addressBase = 0, m_rangeListsBase = 0, m_locationListsBase = 0;
    std::vector<Record> m_records; // in the order of their offsets; the root alone until the tree is read
    std::vector<MadeEntry> m_madeEntries;
    std::vector<SubprogramRange> m_subprograms;
    std::vector<std::pair<quint32, quint32>> m_variables; // address and index, sorted
    std::vector<DwarfDebuggingInformationEntry> m_namedEntries, m_namespaces;
    std::unique_ptr<DwarfLineTable> m_lineTable;
};
