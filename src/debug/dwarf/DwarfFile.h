#pragma once

#include "debug/dwarf/DwarfCompilationUnit.h"
#include "debug/dwarf/DwarfFrameTable.h"
#include "debug/dwarf/DwarfSections.h"
#include "debug/dwarf/SourceAddressMap.h"

#include <QHash>
#include <QList>
#include <cstdio>
#include <map>
#include <tuple>

class DwarfNameIndex;
class DwarfNameTables;
class ElfFile;

// An entry that .debug_pubnames or .debug_pubtypes would name.
struct DwarfPublicName
{
    QString name;
    quint32 unitOffset;
    quint32 unitLength;
    quint32 dieOffset; // from the unit's first byte
};

// What stands around an address in the source. Without a function its name and type are empty; without a
// row the position is.
struct SymbolicLocation
{
    QString function; // with its class: "Motor::run"; "unknown" if it has no name
    QString type;     // the return type's own name, "void" if it has none
    std::optional<SourcePosition> position;
};

// The debug information of one ELF file, DWARF versions 2 to 5, asked by name, by address and by offset.
//
// Loading reads the unit headers only. Everything else (trees, line programs, ranges, names, frames) is read
// when a question needs it, and stays. Bad debug information never fails: it is reported, and there is less to
// be found. Offsets and entries stay valid until the file goes; the bytes belong to the ELF file, which must
// outlive this.
//
// One thread at a time: what looks like a look-up may read.
class DwarfFile
{
public:
    DwarfFile();
    virtual ~DwarfFile();
    DwarfFile(const DwarfFile &) = delete;
    DwarfFile &operator=(const DwarfFile &) = delete;

    // Where problems and the steps of the frame interpreter are told, each with a line feed at its end.
    virtual void reportError(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);
    virtual void reportTrace(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);

    // `loadOffset` is added to every address that is given out and taken from every one asked for.
    // `ignoreAranges`: the units' own ranges serve in place of .debug_aranges. `isExecutable`: e_type is ET_EXEC.
    void load(const ElfFile &elf, quint32 loadOffset = 0, bool ignoreAranges = false, bool ignoreFrames = false,
              bool isExecutable = true);
    void load(DwarfSections sections, quint32 loadOffset = 0, bool ignoreAranges = false, bool ignoreFrames = false,
              bool isExecutable = true);

    const DwarfSections &sections() const { return m_sections; }
    bool bigEndian() const { return m_sections.bigEndian; }
    quint32 loadOffset() const { return m_loadOffset; }

    // All units of .debug_info by offset, and the type units among them and in .debug_types.
    std::vector<DwarfCompilationUnit> &units() { return m_units; }
    const std::vector<DwarfCompilationUnit *> &typeUnits() const { return m_typeUnits; }
    // The unit that holds an offset of .debug_info, or null.
    DwarfCompilationUnit *unitAt(quint32 offset);
    DwarfDebuggingInformationEntry entryAtGlobalOffset(quint32 offset);
    DwarfCompilationUnit *typeUnitOf(quint64 signature);
    // The entry that a type's declaration leads to by DW_AT_signature, else the entry itself.
    DwarfDebuggingInformationEntry definitionOf(DwarfDebuggingInformationEntry type);

    // The compile units with code at an address, the likeliest first.
    std::vector<DwarfCompilationUnit *> unitsAt(quint32 address);
    DwarfDebuggingInformationEntry subprogramAt(quint32 address);
    DwarfDebuggingInformationEntry variableAt(quint32 address);

    // A type by its name with its namespaces, or by its bare name; no declarations. Type units are searched too,
    // and enumerations after all other types. One within a class goes by its name behind the class's.
    DwarfDebuggingInformationEntry findType(const QString &name);
    // Functions, variables and enumerators known outside their unit by that name ("ns::Class::function"), in the
    // order of their units. Declarations are among them.
    std::vector<DwarfDebuggingInformationEntry> publicEntries(const QString &name);
    // Variables outside of functions with that bare name, static ones included, no declarations.
    std::vector<DwarfDebuggingInformationEntry> globalVariables(const QString &name);
    // Whether a class template of that name has an instance.
    bool isTemplateName(const QString &name);
    // The complete lists, sorted by name, then by unit. They read every tree.
    std::vector<DwarfPublicName> publicNames();
    std::vector<DwarfPublicName> publicTypes();

    SymbolicLocation symbolicLocationAt(quint32 address);
    // All line tables in one map. symbolicLocationAt() reads only those it needs.
    SourceAddressMap &lineMap();
    DwarfFrameTable &frames() { return m_frames; }

    // Every debug section as text. Programs that call it link the library elf/dump.
    void dump(FILE *stream);

    QByteArrayView stringAt(quint64 offset) const; // of .debug_str; empty when outside

    // Entries that no section has (a pointer to a type, a base type), for as long as the file lives.
    DwarfDebuggingInformationEntry makeEntry(quint32 tag, std::vector<DwarfAttribute> attributes,
                                             const std::vector<DwarfDebuggingInformationEntry> &children = {});

private:
    friend class DwarfCompilationUnit;
    friend class DwarfNameIndex;

    struct UnitRange
    {
        quint32 start, last;
        quint32 unit;    // its index
        quint32 highest; // `last` of all up to this one in the order by start
    };
    struct UnitLines
    {
        std::vector<SourceLineRow> rows; // by address, in the program's order at one address
        DwarfAddressRange extent;        // of the rows
    };
    struct FoundSubprogram
    {
        DwarfDebuggingInformationEntry entry;
        DwarfAddressRange range;
    };

    void readUnits(DwarfSections::Bytes section, bool isInTypesSection, std::vector<DwarfCompilationUnit> &units);
    const DwarfAbbreviationTable &abbreviationsAt(quint32 offset, DwarfFormat format);
    void readRanges();
    void readAddressRanges(std::vector<bool> &isNamed);
    void addUnitRange(quint32 unit, DwarfAddressRange range);
    std::vector<quint32> unitsIntersecting(quint32 low, quint32 high);
    std::optional<FoundSubprogram> findSubprogram(quint32 address);
    const UnitLines &linesOf(quint32 unit);
    void appendRows(SourceAddressMap &map, quint32 unit, quint32 low, quint32 high);
    std::optional<SourcePosition> positionInFunction(quint32 address, quint32 low, quint32 high);
    std::optional<SourcePosition> positionOfRow(quint32 address);
    DwarfNameIndex &names();
    DwarfNameTables *nameTables();
    template <typename EntriesNamed>
    DwarfDebuggingInformationEntry selectType(const QString &name, EntriesNamed entriesNamed);
    DwarfDebuggingInformationEntry findType(QByteArrayView name, int depth);
    DwarfDebuggingInformationEntry nestedType(DwarfDebuggingInformationEntry outer, QByteArrayView name);

    DwarfSections m_sections;
    quint32 m_loadOffset = 0;
    bool m_ignoresAranges = false, m_isExecutable = true;
    std::vector<DwarfCompilationUnit> m_units, m_typesSectionUnits;
    std::vector<DwarfCompilationUnit *> m_typeUnits;
    QHash<quint64, DwarfCompilationUnit *> m_unitsBySignature;
    std::unique_ptr<DwarfCompilationUnit> m_madeEntries;

    std::map<std::tuple<quint32, quint8, quint8>, std::unique_ptr<DwarfAbbreviationTable>> m_abbreviations;
    quint64 m_abbreviationBytes = 0;     // read so far
    std::vector<UnitRange> m_unitRanges; // by start
    bool m_hasReadRanges = false;
    SourcePaths m_paths;
    std::vector<std::unique_ptr<UnitLines>> m_unitLines; // by unit, as far as they have been read
    DwarfLineTable::Rows m_program;                      // of the table that is being read
    quint64 m_lineBytes = 0;                             // read so far
    std::unique_ptr<SourceAddressMap> m_lineMap;
    DwarfFrameTable m_frames;
    std::unique_ptr<DwarfNameIndex> m_names;
    std::unique_ptr<DwarfNameTables> m_nameTables;
};
