#include "debug/dwarf/DwarfFile.h"

#include "debug/dwarf/DwarfNameIndex.h"
#include "debug/dwarf/DwarfNameTables.h"
#include "debug/dwarf/DwarfTrace.h"
#include "elf/ElfFile.h"

#include <algorithm>
#define HAVE_DECL_BASENAME 1 // else the header declares basename() in its own way
#include <libiberty/demangle.h>

Q_LOGGING_CATEGORY(dwarfTrace, "debug/dwarf", QtWarningMsg)

namespace {

// Tables are read once each; more bytes than these times the section's size mean that a damaged file makes
// tables overlap, and no more are read.
constexpr quint64 maximumRereads = 4;

// Of name in "ns::Class<a::b>::name", which the index knows.
QByteArrayView bareName(QByteArrayView name)
{
    int depth = 0;
    for (qsizetype i = name.size() - 1; i > 0; --i) {
        if (name[i] == '>')
            ++depth;
        else if (name[i] == '<')
            --depth;
        else if (depth == 0 && name[i] == ':' && name[i - 1] == ':')
            return name.sliced(i + 1);
    }
    return name;
}

QByteArray demangled(QByteArrayView name)
{
    char *text = cplus_demangle(name.toByteArray().constData(), DMGL_AUTO);
    const QByteArray result(text);
    std::free(text);
    return result;
}

} // namespace

DwarfFile::DwarfFile() : m_frames(*this) {}

DwarfFile::~DwarfFile() = default;

void DwarfFile::reportError(const char *, ...) {}

void DwarfFile::reportTrace(const char *, ...) {}

void DwarfFile::load(const ElfFile &elf, quint32 loadOffset, bool ignoreAranges, bool ignoreFrames, bool isExecutable)
{
    load(DwarfSections::of(elf), loadOffset, ignoreAranges, ignoreFrames, isExecutable);
}

void DwarfFile::load(DwarfSections sections, quint32 loadOffset, bool ignoreAranges, bool ignoreFrames,
                     bool isExecutable)
{
    m_sections = std::move(sections);
    m_loadOffset = loadOffset;
    m_ignoresAranges = ignoreAranges;
    m_isExecutable = isExecutable;
    for (const QString &failure : m_sections.failures)
        reportError("%s\n", qPrintable(failure));
    if (!ignoreFrames)
        m_frames.setSection(m_sections.cursorAt(m_sections.frames, 0), loadOffset);
    readUnits(m_sections.information, false, m_units);
    readUnits(m_sections.types, true, m_typesSectionUnits);
    for (std::vector<DwarfCompilationUnit> *units : {&m_typesSectionUnits, &m_units}) {
        for (DwarfCompilationUnit &unit : *units) {
            if (!unit.isTypeUnit())
                continue;
            m_typeUnits.push_back(&unit);
            if (!m_unitsBySignature.contains(unit.typeSignature()))
                m_unitsBySignature.insert(unit.typeSignature(), &unit);
        }
    }
    m_unitLines.resize(m_units.size());
    qCDebug(dwarfTrace, "%zu units, %zu of them for types, in %zu bytes", m_units.size() + m_typesSectionUnits.size(),
            m_typeUnits.size(), m_sections.information.size() + m_sections.types.size());
}

void DwarfFile::readUnits(DwarfSections::Bytes section, bool isInTypesSection, std::vector<DwarfCompilationUnit> &units)
{
    constexpr quint32 emptyUnitSize = 4;
    ByteCursor cursor(section, m_sections.bigEndian);
    while (!cursor.atEnd()) {
        DwarfCompilationUnit unit(*this, cursor, isInTypesSection);
        if (cursor.failed()) {
            reportError("the unit at 0x%x runs past the end of its section\n", unit.offset());
            return;
        }
        if (unit.length() == emptyUnitSize)
            return;
        units.push_back(std::move(unit));
    }
}

const DwarfAbbreviationTable &DwarfFile::abbreviationsAt(quint32 offset, DwarfFormat format)
{
    auto &table = m_abbreviations[{offset, format.offsetSize, format.referenceSize}];
    if (!table) {
        ByteCursor cursor = m_sections.cursorAt(m_sections.abbreviations, offset);
        if (m_abbreviationBytes > maximumRereads * m_sections.abbreviations.size()) {
            reportError("the abbreviations at 0x%x overlap others too much\n", offset);
            cursor.fail();
        }
        table = std::make_unique<DwarfAbbreviationTable>(cursor, format);
        m_abbreviationBytes += quint64(table->lengthBytes());
        for (const quint32 form : table->unknownForms())
            reportError("%d unhandled DW_FORM\n", form);
        if (table->hasSupplementaryForms())
            reportError("DW_FORM_strp_sup and the like refer to a supplementary file, which isn't read\n");
    }
    return *table;
}

DwarfCompilationUnit *DwarfFile::unitAt(quint32 offset)
{
    const auto next = std::ranges::upper_bound(m_units, offset, {}, &DwarfCompilationUnit::offset);
    return next != m_units.begin() && (next - 1)->contains(offset) ? &*(next - 1) : nullptr;
}

DwarfDebuggingInformationEntry DwarfFile::entryAtGlobalOffset(quint32 offset)
{
    DwarfCompilationUnit *unit = unitAt(offset);
    return unit ? unit->entryAt(offset - unit->offset()) : DwarfDebuggingInformationEntry();
}

DwarfCompilationUnit *DwarfFile::typeUnitOf(quint64 signature)
{
    return m_unitsBySignature.value(signature);
}

DwarfDebuggingInformationEntry DwarfFile::definitionOf(DwarfDebuggingInformationEntry type)
{
    const auto signature = type.attribute(DW_AT_signature);
    const auto definition = signature ? signature->entry() : DwarfDebuggingInformationEntry();
    return definition ? definition : type;
}

QByteArrayView DwarfFile::stringAt(quint64 offset) const
{
    return m_sections.cursorAt(m_sections.strings, offset).readString();
}

DwarfDebuggingInformationEntry DwarfFile::makeEntry(quint32 tag, std::vector<DwarfAttribute> attributes,
                                                    const std::vector<DwarfDebuggingInformationEntry> &children)
{
    if (!m_madeEntries)
        m_madeEntries.reset(new DwarfCompilationUnit(*this));
    return m_madeEntries->makeEntry({tag, 0, std::move(attributes)}, children);
}

// Ranges of units

void DwarfFile::addUnitRange(quint32 unit, DwarfAddressRange range)
{
    if (range.start < range.end)
        m_unitRanges.push_back({range.start, range.end - 1, unit, 0});
}

// Sets of: unit_length, version 2, debug_info_offset, address_size 1, segment_selector_size 1, then, aligned to
// the size of a tuple, pairs of start and length, up to the set's end (DWARF 5, section 6.1.2).
void DwarfFile::readAddressRanges(std::vector<bool> &isNamed)
{
    constexpr qsizetype tupleSize = 8;
    ByteCursor section(m_sections.addressRanges, m_sections.bigEndian);
    while (!section.atEnd()) {
        const qsizetype start = section.offset();
        quint64 length = section.readU32();
        const bool is64Bit = length == 0xFFFFFFFF;
        if (is64Bit)
            length = section.readU64();
        ByteCursor set = section.take(length);
        set.skip(2);
        const quint64 unitOffset = set.readUnsigned(is64Bit ? 8 : 4);
        set.skip(2);
        set.skip(quint64(-(set.offset() - start) & (tupleSize - 1)));
        if (set.failed()) {
            reportError("the set at 0x%x of .debug_aranges is cut short\n", quint32(start));
            return;
        }
        const auto unit = std::ranges::lower_bound(m_units, unitOffset, {}, &DwarfCompilationUnit::offset);
        if (unit == m_units.end() || unit->offset() != unitOffset)
            continue;
        const quint32 index = quint32(unit - m_units.begin());
        while (set.remaining() >= tupleSize) {
            const quint32 address = set.readU32(), size = set.readU32();
            if (address == 0 || size == 0)
                continue;
            isNamed[index] = true;
            const quint32 first = address & ~quint32(1);
            addUnitRange(index, {first, first + std::min(size, ~first)});
        }
    }
}

void DwarfFile::readRanges()
{
    if (m_hasReadRanges)
        return;
    m_hasReadRanges = true;
    std::vector<bool> isNamed(m_units.size(), false);
    if (!m_ignoresAranges && m_isExecutable) // in an object code may be at 0, which ends a set
        readAddressRanges(isNamed);
    const size_t maximumRanges =
        m_units.size() + m_sections.ranges.size() + m_sections.rangeLists.size() + m_sections.addressRanges.size();
    for (quint32 index = 0; index < m_units.size() && m_unitRanges.size() <= maximumRanges; ++index) {
        DwarfCompilationUnit &unit = m_units[index];
        if (isNamed[index] || unit.isTypeUnit() || !unit.rootEntry().has(DW_AT_stmt_list))
            continue;
        const std::vector<DwarfAddressRange> ranges = unit.ranges();
        for (const DwarfAddressRange &range : ranges)
            addUnitRange(index, range);
        if (ranges.empty())
            addUnitRange(index, linesOf(index).extent);
    }
    qCDebug(dwarfTrace, "%zu ranges of units", m_unitRanges.size());
    std::ranges::stable_sort(m_unitRanges, {}, &UnitRange::start);
    quint32 highest = 0;
    for (UnitRange &range : m_unitRanges)
        range.highest = highest = std::max(highest, range.last);
}

// Indexes of the units with code from `low` to `high` (of the file, both included), those that begin last first.
std::vector<quint32> DwarfFile::unitsIntersecting(quint32 low, quint32 high)
{
    readRanges();
    std::vector<quint32> units;
    auto next = std::ranges::upper_bound(m_unitRanges, high, {}, &UnitRange::start);
    while (next != m_unitRanges.begin() && (--next)->highest >= low) {
        if (next->last >= low && std::ranges::find(units, next->unit) == units.end())
            units.push_back(next->unit);
    }
    return units;
}

std::vector<DwarfCompilationUnit *> DwarfFile::unitsAt(quint32 address)
{
    std::vector<DwarfCompilationUnit *> units;
    for (const quint32 index : unitsIntersecting(address - m_loadOffset, address - m_loadOffset))
        units.push_back(&m_units[index]);
    return units;
}

std::optional<DwarfFile::FoundSubprogram> DwarfFile::findSubprogram(quint32 address)
{
    for (DwarfCompilationUnit *unit : unitsAt(address)) {
        if (const auto *piece = unit->subprogramRangeAt(address - m_loadOffset))
            return FoundSubprogram{unit->entry(piece->index), piece->range};
    }
    return {};
}

DwarfDebuggingInformationEntry DwarfFile::subprogramAt(quint32 address)
{
    const auto found = findSubprogram(address);
    return found ? found->entry : DwarfDebuggingInformationEntry();
}

DwarfDebuggingInformationEntry DwarfFile::variableAt(quint32 address)
{
    // No range tells which unit a variable is of.
    for (DwarfCompilationUnit &unit : m_units) {
        if (const auto entry = unit.variableAt(address - m_loadOffset))
            return entry;
    }
    return {};
}

// Lines

const DwarfFile::UnitLines &DwarfFile::linesOf(quint32 index)
{
    auto &lines = m_unitLines[index];
    if (lines)
        return *lines;
    lines = std::make_unique<UnitLines>();
    DwarfLineTable *table = m_units[index].lineTable();
    if (!table)
        return *lines;
    m_lineBytes += quint64(table->lengthBytes());
    if (m_lineBytes > maximumRereads * m_sections.lines.size()) {
        reportError("the line table of the unit at 0x%x overlaps others too much\n", m_units[index].offset());
        return *lines;
    }
    DwarfLineTable::Rows &program = m_program;
    table->run(m_isExecutable, program);
    qCDebug(dwarfTrace, "line table of the unit at 0x%x: version %d, %zu rows", m_units[index].offset(),
            table->version(), program.rows.size());
    constexpr quint32 unknown = ~quint32(0), none = unknown - 1;
    std::vector<quint32> ids(table->fileCount() + table->firstFile(), unknown);
    lines->rows.reserve(program.rows.size());
    for (const DwarfLineTable::Row &row : program.rows) {
        if (row.file >= ids.size())
            continue;
        quint32 &id = ids[row.file];
        if (id == unknown) {
            const QByteArray path = table->path(row.file);
            id = path.isEmpty() ? none : m_paths.idOf(path);
        }
        if (id != none)
            lines->rows.push_back({row.address + m_loadOffset, row.line, id, quint32(lines->rows.size())});
    }
    SourceAddressMap::sortByAddress(lines->rows);
    if (program.lowest <= program.highest && program.highest != 0)
        lines->extent = {program.lowest, program.highest + (program.highest != ~quint32(0))};
    return *lines;
}

SourceAddressMap &DwarfFile::lineMap()
{
    if (m_lineMap)
        return *m_lineMap;
    readRanges(); // asks for the extents of some units' rows
    auto map = std::make_unique<SourceAddressMap>(m_paths);
    constexpr size_t bytesOfRow = 6; // about
    map->reserve(m_sections.lines.size() / bytesOfRow);
    for (quint32 index = 0; index < m_units.size(); ++index) {
        if (!m_units[index].isTypeUnit() && m_units[index].rootEntry()) {
            map->append(linesOf(index).rows);
            m_unitLines[index].reset();
        }
    }
    m_program = {};
    m_lineMap = std::move(map);
    return *m_lineMap;
}

// A unit's rows from `low` to `high` and the next one, load offset included.
void DwarfFile::appendRows(SourceAddressMap &map, quint32 unit, quint32 low, quint32 high)
{
    const std::vector<SourceLineRow> &rows = linesOf(unit).rows;
    const auto first = std::ranges::lower_bound(rows, low, {}, &SourceLineRow::address);
    auto end = std::upper_bound(first, rows.end(), high,
                                [](quint32 address, const SourceLineRow &row) { return address < row.address; });
    if (end != rows.end())
        end = std::ranges::upper_bound(end, rows.end(), end->address, {}, &SourceLineRow::address);
    map.append({first, end});
}

std::optional<SourcePosition> DwarfFile::positionInFunction(quint32 address, quint32 low, quint32 high)
{
    if (m_lineMap)
        return m_lineMap->sourceInRange(address, low, high);
    std::vector<quint32> units = unitsIntersecting(low - m_loadOffset, high - m_loadOffset);
    std::ranges::sort(units);
    SourceAddressMap map(m_paths);
    for (const quint32 unit : units)
        appendRows(map, unit, low, high);
    return map.sourceInRange(address, low, high);
}

std::optional<SourcePosition> DwarfFile::positionOfRow(quint32 address)
{
    if (!m_lineMap) {
        const auto hasRow = [&](quint32 unit) {
            return std::ranges::binary_search(linesOf(unit).rows, address, {}, &SourceLineRow::address);
        };
        if (std::ranges::none_of(unitsIntersecting(address - m_loadOffset, address - m_loadOffset), hasRow))
            return {};
    }
    return lineMap().sourceAt(address); // the row's end may be in any unit
}

SymbolicLocation DwarfFile::symbolicLocationAt(quint32 address)
{
    SymbolicLocation location;
    const auto found = findSubprogram(address);
    if (!found) {
        location.position = positionOfRow(address);
        return location;
    }
    location.function = found->entry.name();
    if (location.function.isEmpty())
        location.function = QStringLiteral("unknown");
    location.type = found->entry.target(DW_AT_type).name();
    if (location.type.isEmpty())
        location.type = QStringLiteral("void");
    if (const auto enclosing = found->entry.enclosingClass())
        location.function.prepend(enclosing.name() + QStringLiteral("::"));
    location.position =
        positionInFunction(address, found->range.start + m_loadOffset, found->range.end + m_loadOffset - 1);
    return location;
}

// Names

DwarfNameIndex &DwarfFile::names()
{
    if (!m_names) {
        m_names = std::make_unique<DwarfNameIndex>(*this);
        qCDebug(dwarfTrace, "index of %zu names", m_names->size());
    }
    return *m_names;
}

// Null unless the file has usable ones.
DwarfNameTables *DwarfFile::nameTables()
{
    if (!m_nameTables) {
        m_nameTables = std::make_unique<DwarfNameTables>(*this);
        qCDebug(dwarfTrace, ".debug_names: %s", m_nameTables->areUsable() ? "used for types" : "not used");
    }
    return m_nameTables->areUsable() ? m_nameTables.get() : nullptr;
}

namespace {

bool isExternal(const DwarfDebuggingInformationEntry &entry)
{
    return entry.number(DW_AT_external).value_or(0) != 0;
}

// The linkage name as a reader knows it ("ns::Class::function"), empty without one.
QString demangledLinkageName(const DwarfDebuggingInformationEntry &entry)
{
    auto linkage = entry.attributeResolved(DW_AT_linkage_name);
    if (!linkage)
        linkage = entry.attributeResolved(DW_AT_MIPS_linkage_name); // before version 4
    return linkage ? QString::fromUtf8(demangled(linkage->text())) : QString();
}

bool isPublicType(const DwarfDebuggingInformationEntry &entry)
{
    constexpr quint64 accessPublic = 1;
    return entry.number(DW_AT_accessibility).value_or(accessPublic) == accessPublic;
}

} // namespace

template <typename EntriesNamed>
DwarfDebuggingInformationEntry DwarfFile::selectType(const QString &name, EntriesNamed entriesNamed)
{
    const QByteArray asked = name.toUtf8();
    const auto candidates = entriesNamed(bareName(asked));
    const auto bare = bareName(asked).size() == asked.size() ? candidates : entriesNamed(asked);
    for (const bool isEnumeration : {false, true}) {
        const auto isKind = [&](const DwarfDebuggingInformationEntry &entry) {
            return (isEnumeration ? entry.tag() == DW_TAG_enumeration_type : isDwarfTypeKind(entry.tag())) &&
                   !entry.isDeclaration();
        };
        for (const auto &entry : candidates) {
            if (!isKind(entry) || !isPublicType(entry))
                continue;
            const auto declaration = entry.origin(); // of a class that is defined outside of its namespace
            if ((declaration ? declaration : entry).qualifiedName() == name)
                return entry;
        }
        if (const auto found = std::ranges::find_if(bare, isKind); found != bare.end())
            return *found;
        for (const auto &entry : candidates) {
            if (isKind(entry) && entry.goesBy(name))
                return entry;
        }
    }
    return {};
}

DwarfDebuggingInformationEntry DwarfFile::findType(const QString &name)
{
    return findType(name.toUtf8(), 0);
}

// What the compiler's name tables lack the index over the entries may have.
DwarfDebuggingInformationEntry DwarfFile::findType(QByteArrayView asked, int depth)
{
    constexpr int maximumNesting = 20; // of classes
    const QString name = QString::fromUtf8(asked);
    DwarfDebuggingInformationEntry found;
    if (DwarfNameTables *tables = m_names ? nullptr : nameTables())
        found = selectType(name, [&](QByteArrayView bare) { return tables->typesNamed(bare); });
    if (!found)
        found = selectType(name, [&](QByteArrayView bare) { return names().entriesNamed(bare); });
    const QByteArrayView bare = bareName(asked);
    const qsizetype outerSize = asked.size() - bare.size() - 2; // without "::"
    if (found || outerSize <= 0 || depth >= maximumNesting)
        return found;
    return nestedType(findType(asked.first(outerSize), depth + 1), bare);
}

// A type that is declared within a class that was found through a typedef.
DwarfDebuggingInformationEntry DwarfFile::nestedType(DwarfDebuggingInformationEntry outer, QByteArrayView name)
{
    constexpr int maximumSteps = 100;
    if (!outer)
        return {};
    for (int step = 0; outer.tag() == DW_TAG_typedef && step < maximumSteps; ++step)
        outer = outer.target(DW_AT_type);
    outer = definitionOf(outer);
    const QString full = (outer.scopes() + QStringList{outer.name(), QString::fromUtf8(name)}).join(u"::");
    return selectType(full, [&](QByteArrayView bare) { return names().entriesNamed(bare); });
}

std::vector<DwarfDebuggingInformationEntry> DwarfFile::publicEntries(const QString &name)
{
    const QByteArray asked = name.toUtf8();
    std::vector<DwarfDebuggingInformationEntry> entries = names().entriesNamed(bareName(asked));
    std::erase_if(entries, [&](const DwarfDebuggingInformationEntry &entry) {
        switch (entry.tag()) {
        case DW_TAG_subprogram:
        case DW_TAG_variable:
            return !isExternal(entry) ||
                   (entry.qualifiedName() != name && !entry.goesBy(name) && demangledLinkageName(entry) != name);
        case DW_TAG_enumerator: return entry.nameBytes() != asked;
        }
        return true;
    });
    return entries;
}

std::vector<DwarfDebuggingInformationEntry> DwarfFile::globalVariables(const QString &name)
{
    const QByteArray asked = name.toUtf8();
    std::vector<DwarfDebuggingInformationEntry> entries = names().entriesNamed(bareName(asked));
    std::erase_if(entries, [&](const DwarfDebuggingInformationEntry &entry) {
        return entry.tag() != DW_TAG_variable || entry.isDeclaration() ||
               (entry.nameBytes() != asked && entry.qualifiedName() != name && !entry.goesBy(name));
    });
    return entries;
}

bool DwarfFile::isTemplateName(const QString &name)
{
    return names().hasTemplate(bareName(name.toUtf8()));
}

std::vector<DwarfPublicName> DwarfFile::publicNames()
{
    std::vector<DwarfPublicName> list;
    for (DwarfCompilationUnit &unit : m_units) {
        if (!unit.rootEntry())
            continue;
        const auto add = [&](const DwarfDebuggingInformationEntry &entry, const QString &name) {
            list.push_back({name, unit.offset(), unit.length(), entry.offset()});
        };
        for (const quint32 tag : {DW_TAG_subprogram, DW_TAG_variable}) {
            for (const DwarfDebuggingInformationEntry &entry : unit.entriesTagged(tag)) {
                if (!isExternal(entry))
                    continue;
                const QString name = entry.qualifiedName();
                add(entry, name);
                const QString linkage = demangledLinkageName(entry);
                if (!linkage.isEmpty() && linkage != name)
                    add(entry, linkage);
            }
        }
        for (const DwarfDebuggingInformationEntry &entry : unit.entriesTagged(DW_TAG_enumerator))
            add(entry, entry.name());
    }
    std::ranges::stable_sort(list, {}, [](const auto &entry) { return std::tie(entry.name, entry.unitOffset); });
    return list;
}

std::vector<DwarfPublicName> DwarfFile::publicTypes()
{
    std::vector<DwarfPublicName> list;
    for (DwarfCompilationUnit &unit : m_units) {
        if (!unit.rootEntry())
            continue;
        for (const DwarfDebuggingInformationEntry &entry : unit.namedEntries()) {
            if (isDwarfTypeKind(entry.tag()) && isPublicType(entry))
                list.push_back({entry.qualifiedName(), unit.offset(), unit.length(), entry.offset()});
        }
    }
    std::ranges::stable_sort(list, {}, [](const auto &entry) { return std::tie(entry.name, entry.unitOffset); });
    return list;
}
