#include "debug/dwarf/DwarfCompilationUnit.h"

#include "debug/dwarf/DwarfFile.h"
#include "debug/dwarf/DwarfTrace.h"

#include <algorithm>

namespace {

// What the two index tables and the two list tables begin with when the root entry doesn't say where they
// are: their own header, 8 or 12 bytes, 8 more in the 64-bit format.
constexpr quint64 tableHeaderSize = 8, listHeaderSize = 12;

enum RangeListEntry : quint8 { // DWARF 5, section 7.25
    RangeEndOfList = 0,
    RangeBaseAddressx = 1,
    RangeStartxEndx = 2,
    RangeStartxLength = 3,
    RangeOffsetPair = 4,
    RangeBaseAddress = 5,
    RangeStartEnd = 6,
    RangeStartLength = 7,
};

} // namespace

DwarfCompilationUnit::DwarfCompilationUnit(DwarfFile &file, ByteCursor &section, bool isInTypesSection) : m_file(&file)
{
    m_offset = quint32(section.offset());
    const quint8 *const start = section.position();
    quint64 length = section.readU32();
    if (length == 0xFFFFFFFF) {
        length = section.readU64();
        m_format.offsetSize = 8;
    }
    const qsizetype lengthFieldSize = section.offset() - m_offset;
    ByteCursor unit = section.take(length);
    if (unit.failed())
        return;
    m_bytes = {start, size_t(lengthFieldSize) + length};
    m_version = unit.readU16();
    if (m_version >= 5) {
        m_unitType = unit.readU8();
        m_addressSize = unit.readU8();
        m_abbreviationOffset = quint32(std::min<quint64>(unit.readUnsigned(m_format.offsetSize), ~quint32(0)));
        if (m_unitType == DW_UT_skeleton || m_unitType == DW_UT_split_compile)
            unit.skip(8);
    } else {
        m_abbreviationOffset = quint32(std::min<quint64>(unit.readUnsigned(m_format.offsetSize), ~quint32(0)));
        m_addressSize = unit.readU8();
    }
    m_format.referenceSize = m_version <= 2 ? 4 : m_format.offsetSize;
    m_isTypeUnit = isInTypesSection || m_unitType == DW_UT_type || m_unitType == DW_UT_split_type;
    if (m_isTypeUnit) {
        m_typeSignature = unit.readU64();
        m_typeOffset = quint32(std::min<quint64>(unit.readUnsigned(m_format.offsetSize), ~quint32(0)));
    }
    m_firstEntry = unit.failed() ? this->length() : quint32(unit.offset()) - m_offset;
}

ByteCursor DwarfCompilationUnit::cursor() const
{
    return ByteCursor(m_bytes, m_file->bigEndian());
}

const DwarfAbbreviationTable &DwarfCompilationUnit::abbreviations()
{
    if (!m_abbreviations)
        m_abbreviations = &m_file->abbreviationsAt(m_abbreviationOffset, m_format);
    return *m_abbreviations;
}

void DwarfCompilationUnit::readRoot()
{
    if (m_hasReadRoot)
        return;
    m_hasReadRoot = true;
    ByteCursor unit = cursor();
    unit.seek(m_firstEntry);
    const qint32 abbreviation = abbreviations().indexOf(unit.readUleb128());
    if (abbreviation < 0 || unit.failed())
        return;
    m_records.push_back({m_firstEntry, quint32(abbreviation), noIndex, noIndex});

    const quint64 wide = m_format.offsetSize == 8 ? 8 : 0;
    const DwarfDebuggingInformationEntry root(this, 0);
    const auto base = [&](quint32 name, quint64 otherwise) {
        const auto attribute = root.attribute(name);
        return attribute ? attribute->value : otherwise;
    };
    m_stringOffsetsBase = base(DW_AT_str_offsets_base, m_version >= 5 ? tableHeaderSize + wide : 0);
    m_addressBase = base(DW_AT_addr_base, base(DW_AT_GNU_addr_base, m_version >= 5 ? tableHeaderSize + wide : 0));
    m_rangeListsBase = base(DW_AT_rnglists_base, listHeaderSize + wide);
    m_locationListsBase = base(DW_AT_loclists_base, listHeaderSize + wide);

    auto splitName = root.attribute(DW_AT_dwo_name);
    if (!splitName)
        splitName = root.attribute(DW_AT_GNU_dwo_name);
    if (splitName || m_unitType == DW_UT_skeleton) {
        const QByteArray path = splitName ? splitName->text().toByteArray() : QByteArray("another file");
        m_file->reportError("split DWARF: the unit at 0x%x has its debug information in \"%s\", which isn't read\n",
                            m_offset, path.constData());
        m_hasRoot = true; // its line table and ranges are here
    } else {
        m_hasRoot = m_isTypeUnit || (root.tag() == DW_TAG_compile_unit && !root.nameBytes().isEmpty());
    }
}

void DwarfCompilationUnit::readTree()
{
    if (m_hasReadTree)
        return;
    readRoot();
    m_hasReadTree = true;
    const DwarfAbbreviationTable &table = abbreviations();
    m_records.clear();
    ByteCursor unit = cursor();
    unit.seek(m_firstEntry);
    quint32 parent = noIndex;
    std::vector<quint32> previous(1, noIndex); // the last entry of each open level
    while (!unit.atEnd()) {
        const quint32 offset = quint32(unit.offset());
        const quint64 code = unit.readUleb128();
        const qint32 abbreviation = code ? table.indexOf(code) : -1;
        if (abbreviation < 0) {
            if (code && !unit.failed())
                m_file->reportError("Could find abbreviation 0x%x offset 0x%x\n", quint32(code), offset);
            if (parent == noIndex)
                break;
            parent = m_records[parent].parent;
            previous.pop_back();
            continue;
        }
        const quint32 index = quint32(m_records.size());
        m_records.push_back({offset, quint32(abbreviation), parent, noIndex});
        if (previous.back() != noIndex)
            m_records[previous.back()].sibling = index;
        previous.back() = index;
        table.skipAttributes(table.at(quint32(abbreviation)), unit);
        if (table.at(quint32(abbreviation)).hasChildren) {
            parent = index;
            previous.push_back(noIndex);
        }
    }
    qCDebug(dwarfTrace, "tree of the unit at 0x%x: %zu entries", m_offset, m_records.size());
}

const DwarfCompilationUnit::Record &DwarfCompilationUnit::record(quint32 index)
{
    if (index >= m_records.size())
        readTree();
    Q_ASSERT(index < m_records.size()); // entries are made from records
    return m_records[index];
}

const DwarfCompilationUnit::Record &DwarfCompilationUnit::linkedRecord(quint32 index)
{
    if (!m_bytes.empty())
        readTree();
    return record(index);
}

quint32 DwarfCompilationUnit::tagOf(quint32 index)
{
    const Record &entry = record(index);
    return m_bytes.empty() ? m_madeEntries[index].tag : abbreviations().at(entry.abbreviation).tag;
}

quint32 DwarfCompilationUnit::childOf(quint32 index)
{
    if (m_bytes.empty())
        return m_madeEntries[index].child;
    linkedRecord(index);
    return index + 1 < m_records.size() && m_records[index + 1].parent == index ? index + 1 : noIndex;
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::entryOrNone(quint32 index)
{
    return index == noIndex ? DwarfDebuggingInformationEntry() : DwarfDebuggingInformationEntry(this, index);
}

// At the entry's attributes, behind its code.
ByteCursor DwarfCompilationUnit::attributeCursor(quint32 index)
{
    ByteCursor unit = cursor();
    unit.seek(record(index).offset);
    unit.readUleb128();
    return unit;
}

std::optional<DwarfAttribute> DwarfCompilationUnit::attributeOf(quint32 index, quint32 name)
{
    const Record &entry = record(index);
    if (m_bytes.empty()) {
        const auto &attributes = m_madeEntries[index].attributes;
        const auto found = std::ranges::find(attributes, name, &DwarfAttribute::name);
        return found == attributes.end() ? std::nullopt : std::optional(*found);
    }
    const auto specifications = abbreviations().attributes(abbreviations().at(entry.abbreviation));
    const auto wanted = std::ranges::find(specifications, name, &DwarfAttributeSpecification::name);
    if (wanted == specifications.end())
        return {};
    ByteCursor unit = attributeCursor(index);
    for (auto skipped = specifications.begin(); skipped != wanted; ++skipped)
        skipDwarfForm(unit, skipped->form, m_format);
    const DwarfAttribute attribute = readAttribute(unit, *wanted);
    return unit.failed() ? std::nullopt : std::optional(attribute);
}

std::vector<DwarfAttribute> DwarfCompilationUnit::attributesOf(quint32 index)
{
    const Record &entry = record(index);
    if (m_bytes.empty())
        return m_madeEntries[index].attributes;
    std::vector<DwarfAttribute> attributes, implicit;
    ByteCursor unit = attributeCursor(index);
    for (const auto &specification : abbreviations().attributes(abbreviations().at(entry.abbreviation))) {
        const DwarfAttribute attribute = readAttribute(unit, specification);
        if (unit.failed())
            break;
        (specification.form == DW_FORM_implicit_const ? implicit : attributes).push_back(attribute);
    }
    attributes.insert(attributes.end(), implicit.begin(), implicit.end());
    return attributes;
}

DwarfAttribute DwarfCompilationUnit::readAttribute(ByteCursor &cursor, const DwarfAttributeSpecification &specification)
{
    return readAttribute(cursor, specification, m_format);
}

DwarfAttribute DwarfCompilationUnit::readAttribute(ByteCursor &cursor, const DwarfAttributeSpecification &specification,
                                                   DwarfFormat format)
{
    if (specification.form == DW_FORM_implicit_const)
        return {.name = specification.name,
                .form = DW_FORM_data1,
                .valueClass = DwarfAttribute::SignedNumber,
                .value = quint64(specification.implicitValue),
                .unit = this};
    return readForm(cursor, specification.name, specification.form, format);
}

QByteArrayView DwarfCompilationUnit::scannedName(const DwarfAbbreviation &first, ByteCursor attributes)
{
    switch (first.nameForm) { // most names
    case DW_FORM_string: attributes.skip(first.nameOffset); return attributes.readString();
    case DW_FORM_strp:
        attributes.skip(first.nameOffset);
        return m_file->stringAt(attributes.readUnsigned(m_format.offsetSize));
    }
    constexpr int maximumSteps = 4;
    DwarfCompilationUnit *unit = this;
    const DwarfAbbreviation *abbreviation = &first;
    for (int steps = 0; steps < maximumSteps; ++steps) {
        std::optional<DwarfAttribute> origin;
        for (const DwarfAttributeSpecification &specification : unit->abbreviations().attributes(*abbreviation)) {
            if (specification.name == DW_AT_name)
                return unit->readAttribute(attributes, specification).text();
            if (specification.name == DW_AT_specification || specification.name == DW_AT_abstract_origin)
                origin = unit->readAttribute(attributes, specification);
            else
                skipDwarfForm(attributes, specification.form, unit->m_format);
        }
        if (!origin || origin->valueClass != DwarfAttribute::Reference || attributes.failed())
            return {};
        quint64 offset = origin->value;
        if (origin->form == DW_FORM_ref_addr) {
            unit = m_file->unitAt(quint32(std::min<quint64>(offset, ~quint32(0))));
            if (!unit)
                return {};
            offset -= unit->offset();
        }
        attributes = unit->cursor();
        attributes.seek(offset);
        const qint32 found = unit->abbreviations().indexOf(attributes.readUleb128());
        if (found < 0)
            return {};
        abbreviation = &unit->abbreviations().at(quint32(found));
    }
    return {};
}

DwarfAttribute DwarfCompilationUnit::readForm(ByteCursor &cursor, quint32 name, quint32 form, DwarfFormat format)
{
    if (form == DW_FORM_indirect) {
        form = quint32(cursor.readUleb128());
        if (form == DW_FORM_indirect)
            cursor.fail();
    }
    DwarfAttribute attribute{.name = name, .form = form, .unit = this};
    const auto number = [&](quint64 value) { attribute.value = value; };
    const auto reference = [&](quint64 value) {
        attribute.valueClass = DwarfAttribute::Reference;
        attribute.value = value;
    };
    const auto block = [&](quint64 length) {
        attribute.valueClass = DwarfAttribute::Block;
        const std::span<const quint8> bytes = cursor.readBytes(length);
        attribute.value = bytes.size();
        attribute.data = bytes.data();
    };
    const auto text = [&](QByteArrayView characters) {
        attribute.valueClass = DwarfAttribute::String;
        attribute.value = quint64(characters.size());
        attribute.data = reinterpret_cast<const quint8 *>(characters.data());
    };
    const auto indexedText = [&](quint64 index) {
        const auto offset = stringOffsetAt(index);
        text(offset ? m_file->stringAt(*offset) : QByteArrayView());
    };
    const auto indexedList = [&](quint64 index, bool isRangeList) {
        reference(listOffsetAt(index, isRangeList).value_or(~quint64(0)));
    };

    switch (form) {
    case DW_FORM_flag_present: number(1); break;
    case DW_FORM_data1:
    case DW_FORM_flag: number(cursor.readU8()); break;
    case DW_FORM_data2: number(cursor.readU16()); break;
    case DW_FORM_addr:
    case DW_FORM_data4: number(cursor.readU32()); break;
    case DW_FORM_data8:
    case DW_FORM_ref_sig8: number(cursor.readU64()); break;
    case DW_FORM_udata: number(cursor.readUleb128()); break;
    case DW_FORM_sdata:
        attribute.valueClass = DwarfAttribute::SignedNumber;
        attribute.value = quint64(cursor.readSleb128());
        break;
    case DW_FORM_data16: block(16); break;
    case DW_FORM_block1: block(cursor.readU8()); break;
    case DW_FORM_block2: block(cursor.readU16()); break;
    case DW_FORM_block4: block(cursor.readU32()); break;
    case DW_FORM_block:
    case DW_FORM_exprloc: block(cursor.readUleb128()); break;
    case DW_FORM_ref1: reference(cursor.readU8()); break;
    case DW_FORM_ref2: reference(cursor.readU16()); break;
    case DW_FORM_ref4:
    case DW_FORM_ref_sup4: reference(cursor.readU32()); break;
    case DW_FORM_ref8:
    case DW_FORM_ref_sup8: reference(cursor.readU64()); break;
    case DW_FORM_ref_udata: reference(cursor.readUleb128()); break;
    case DW_FORM_ref_addr: reference(cursor.readUnsigned(format.referenceSize)); break;
    case DW_FORM_sec_offset:
    case DW_FORM_GNU_ref_alt: reference(cursor.readUnsigned(format.offsetSize)); break;
    case DW_FORM_loclistx: indexedList(cursor.readUleb128(), false); break;
    case DW_FORM_rnglistx: indexedList(cursor.readUleb128(), true); break;
    case DW_FORM_string: text(cursor.readString()); break;
    case DW_FORM_strp: text(m_file->stringAt(cursor.readUnsigned(format.offsetSize))); break;
    case DW_FORM_line_strp: {
        const DwarfSections &sections = m_file->sections();
        text(sections.cursorAt(sections.lineStrings, cursor.readUnsigned(format.offsetSize)).readString());
        break;
    }
    case DW_FORM_strp_sup:
    case DW_FORM_GNU_strp_alt:
        cursor.skip(format.offsetSize);
        text({});
        break;
    case DW_FORM_strx:
    case DW_FORM_GNU_str_index: indexedText(cursor.readUleb128()); break;
    case DW_FORM_strx1: indexedText(cursor.readU8()); break;
    case DW_FORM_strx2: indexedText(cursor.readU16()); break;
    case DW_FORM_strx3: indexedText(cursor.readUnsigned(3)); break;
    case DW_FORM_strx4: indexedText(cursor.readU32()); break;
    case DW_FORM_addrx:
    case DW_FORM_GNU_addr_index: number(addressAt(cursor.readUleb128())); break;
    case DW_FORM_addrx1: number(addressAt(cursor.readU8())); break;
    case DW_FORM_addrx2: number(addressAt(cursor.readU16())); break;
    case DW_FORM_addrx3: number(addressAt(cursor.readUnsigned(3))); break;
    case DW_FORM_addrx4: number(addressAt(cursor.readU32())); break;
    }
    return attribute;
}

quint32 DwarfCompilationUnit::addressAt(quint64 index)
{
    constexpr quint64 addressSize = 4;
    const DwarfSections &sections = m_file->sections();
    if (index > sections.addresses.size())
        return 0;
    return sections.cursorAt(sections.addresses, m_addressBase + index * addressSize).readU32();
}

std::optional<quint64> DwarfCompilationUnit::stringOffsetAt(quint64 index)
{
    const DwarfSections &sections = m_file->sections();
    if (index > sections.stringOffsets.size())
        return {};
    ByteCursor cursor = sections.cursorAt(sections.stringOffsets, m_stringOffsetsBase + index * m_format.offsetSize);
    const quint64 offset = cursor.readUnsigned(m_format.offsetSize);
    return cursor.failed() ? std::nullopt : std::optional(offset);
}

std::optional<quint64> DwarfCompilationUnit::listOffsetAt(quint64 index, bool isRangeList)
{
    const DwarfSections &sections = m_file->sections();
    const DwarfSections::Bytes section = isRangeList ? sections.rangeLists : sections.locationLists;
    const quint64 base = isRangeList ? m_rangeListsBase : m_locationListsBase;
    if (index > section.size())
        return {};
    ByteCursor cursor = sections.cursorAt(section, base + index * m_format.offsetSize);
    const quint64 offset = cursor.readUnsigned(m_format.offsetSize);
    return cursor.failed() ? std::nullopt : std::optional(base + offset);
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::rootEntry()
{
    readRoot();
    return m_hasRoot ? DwarfDebuggingInformationEntry(this, 0) : DwarfDebuggingInformationEntry();
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::tree()
{
    if (m_isTypeUnit)
        return entryAt(m_typeOffset);
    readTree();
    return m_records.empty() ? DwarfDebuggingInformationEntry() : DwarfDebuggingInformationEntry(this, 0);
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::entryAt(quint32 offset)
{
    readTree();
    const auto found = std::ranges::lower_bound(m_records, offset, {}, &Record::offset);
    if (found == m_records.end() || found->offset != offset)
        return {};
    return {this, quint32(found - m_records.begin())};
}

quint32 DwarfCompilationUnit::entryCount()
{
    readTree();
    return quint32(m_records.size());
}

std::vector<DwarfDebuggingInformationEntry> DwarfCompilationUnit::entriesTagged(quint32 tag)
{
    std::vector<DwarfDebuggingInformationEntry> entries;
    const quint32 count = entryCount();
    for (quint32 index = 0; index < count; ++index) {
        if (tagOf(index) == tag)
            entries.push_back({this, index});
    }
    return entries;
}

const std::vector<DwarfCompilationUnit::SubprogramRange> &DwarfCompilationUnit::subprogramRanges()
{
    if (m_hasReadSubprograms)
        return m_subprograms;
    m_hasReadSubprograms = true;
    for (const DwarfDebuggingInformationEntry &entry : entriesTagged(DW_TAG_subprogram)) {
        if (!entry.has(DW_AT_low_pc) && !entry.has(DW_AT_ranges))
            continue;
        // Many entries may name one long list in a damaged file; a real unit has fewer pieces than bytes.
        if (m_subprograms.size() > m_bytes.size())
            break;
        for (const DwarfAddressRange &range : entry.ranges())
            m_subprograms.push_back({range, entry.index()});
    }
    std::ranges::stable_sort(m_subprograms, {}, [](const SubprogramRange &piece) { return piece.range.start; });
    return m_subprograms;
}

const DwarfCompilationUnit::SubprogramRange *DwarfCompilationUnit::subprogramRangeAt(quint32 address)
{
    const auto &pieces = subprogramRanges();
    const auto startOf = [](const SubprogramRange &piece) { return piece.range.start; };
    const auto next = std::ranges::upper_bound(pieces, address, {}, startOf);
    return next != pieces.begin() && (next - 1)->range.contains(address) ? &*(next - 1) : nullptr;
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::subprogramAt(quint32 address)
{
    const SubprogramRange *piece = subprogramRangeAt(address);
    return piece ? DwarfDebuggingInformationEntry(this, piece->index) : DwarfDebuggingInformationEntry();
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::variableAt(quint32 address)
{
    if (!m_hasReadVariables) {
        m_hasReadVariables = true;
        for (const DwarfDebuggingInformationEntry &entry : entriesTagged(DW_TAG_variable)) {
            if (const quint32 place = entry.staticAddress())
                m_variables.emplace_back(place, entry.index());
        }
        std::ranges::sort(m_variables);
    }
    const auto found = std::ranges::lower_bound(m_variables, address, {}, &std::pair<quint32, quint32>::first);
    if (found == m_variables.end() || found->first != address)
        return {};
    return {this, found->second};
}

void DwarfCompilationUnit::readNames()
{
    if (m_hasReadNames)
        return;
    m_hasReadNames = true;
    using Named = std::pair<QByteArrayView, quint32>;
    std::vector<Named> named, namespaces;
    const quint32 count = entryCount();
    for (quint32 index = 0; index < count; ++index) {
        const DwarfDebuggingInformationEntry entry(this, index);
        const quint32 tag = entry.tag();
        if (tag == DW_TAG_namespace) {
            namespaces.emplace_back(entry.nameBytes(), index);
        } else if (isDwarfGlobalKind(tag) && !entry.has(DW_AT_declaration)) {
            // Its own name, or that of the declaration that it defines; instances of inline code aren't named.
            if (!entry.has(DW_AT_name) && !entry.has(DW_AT_specification))
                continue;
            if (const QByteArrayView name = entry.nameBytes(); !name.isEmpty())
                named.emplace_back(name, index);
        }
    }
    for (const auto &[from, to] : {std::pair(&named, &m_namedEntries), std::pair(&namespaces, &m_namespaces)}) {
        std::ranges::sort(*from);
        to->reserve(from->size());
        for (const Named &entry : *from)
            to->push_back({this, entry.second});
    }
}

const std::vector<DwarfDebuggingInformationEntry> &DwarfCompilationUnit::namedEntries()
{
    readNames();
    return m_namedEntries;
}

const std::vector<DwarfDebuggingInformationEntry> &DwarfCompilationUnit::namespaces()
{
    readNames();
    return m_namespaces;
}

std::span<const DwarfDebuggingInformationEntry> DwarfCompilationUnit::entriesNamed(QByteArrayView name)
{
    const auto nameOf = &DwarfDebuggingInformationEntry::nameBytes;
    return {std::ranges::lower_bound(namedEntries(), name, {}, nameOf),
            std::ranges::upper_bound(namedEntries(), name, {}, nameOf)};
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::typeNamed(QByteArrayView name)
{
    const auto entries = entriesNamed(name);
    const auto type = std::ranges::find_if(entries, isDwarfTypeKind, &DwarfDebuggingInformationEntry::tag);
    return type == entries.end() ? DwarfDebuggingInformationEntry() : *type;
}

bool DwarfCompilationUnit::hasNamePrefix(QByteArrayView prefix)
{
    const auto found = std::ranges::lower_bound(namedEntries(), prefix, {}, &DwarfDebuggingInformationEntry::nameBytes);
    return found != m_namedEntries.end() && found->nameBytes().startsWith(prefix);
}

bool DwarfCompilationUnit::hasNamespace(QByteArrayView name)
{
    return std::ranges::binary_search(namespaces(), name, {}, &DwarfDebuggingInformationEntry::nameBytes);
}

quint32 DwarfCompilationUnit::baseAddress()
{
    const auto low = rootEntry().attribute(DW_AT_low_pc);
    return low ? quint32(low->value) & ~quint32(1) : 0;
}

std::vector<DwarfAddressRange> DwarfCompilationUnit::ranges()
{
    return rootEntry().ranges();
}

QByteArrayView DwarfCompilationUnit::compilationDirectory()
{
    const auto directory = rootEntry().attribute(DW_AT_comp_dir);
    return directory ? directory->text() : QByteArrayView();
}

DwarfLineTable *DwarfCompilationUnit::lineTable()
{
    if (m_hasReadLines)
        return m_lineTable.get();
    m_hasReadLines = true;
    const auto offset = rootEntry().attribute(DW_AT_stmt_list);
    if (!offset)
        return nullptr;
    if (auto table = DwarfLineTable::read(*this, offset->value))
        m_lineTable = std::make_unique<DwarfLineTable>(std::move(*table));
    else
        m_file->reportError("bad line table 0x%x of the unit at 0x%x\n", quint32(offset->value), m_offset);
    return m_lineTable.get();
}

QString DwarfCompilationUnit::fileName(quint64 index)
{
    const DwarfLineTable *table = lineTable();
    return table ? QString::fromUtf8(SourcePaths::canonical(table->path(index))) : QString();
}

std::vector<DwarfAddressRange> DwarfCompilationUnit::rangesAt(quint64 offset)
{
    const DwarfSections &sections = m_file->sections();
    std::vector<DwarfAddressRange> ranges;
    const auto add = [&](quint32 start, quint32 end) {
        if (start < end)
            ranges.push_back({start, end});
    };
    quint32 base = baseAddress();
    if (m_version < 5) { // DWARF 4, section 2.17.3: pairs, (~0, base) selects, (0, 0) ends
        ByteCursor list = sections.cursorAt(sections.ranges, offset);
        while (!list.atEnd()) {
            const quint32 first = list.readU32(), second = list.readU32();
            if (list.failed() || (first == 0 && second == 0))
                break;
            if (first == ~quint32(0))
                base = second;
            else
                add(base + first, base + second);
        }
        return ranges;
    }
    ByteCursor list = sections.cursorAt(sections.rangeLists, offset);
    while (!list.atEnd()) {
        switch (const quint8 kind = list.readU8()) {
        case RangeEndOfList: return ranges;
        case RangeBaseAddressx: base = addressAt(list.readUleb128()); break;
        case RangeBaseAddress: base = list.readU32(); break;
        case RangeStartxEndx: {
            const quint32 start = addressAt(list.readUleb128());
            add(start, addressAt(list.readUleb128()));
            break;
        }
        case RangeStartxLength: {
            const quint32 start = addressAt(list.readUleb128());
            add(start, start + quint32(list.readUleb128()));
            break;
        }
        case RangeOffsetPair: {
            const quint32 start = quint32(list.readUleb128());
            add(base + start, base + quint32(list.readUleb128()));
            break;
        }
        case RangeStartEnd: {
            const quint32 start = list.readU32();
            add(start, list.readU32());
            break;
        }
        case RangeStartLength: {
            const quint32 start = list.readU32();
            add(start, start + quint32(list.readUleb128()));
            break;
        }
        default:
            m_file->reportError("unknown DW_RLE 0x%02x at 0x%x\n", kind, quint32(list.offset() - 1));
            return ranges;
        }
    }
    return ranges;
}

DwarfDebuggingInformationEntry DwarfCompilationUnit::makeEntry(MadeEntry entry,
                                                               std::span<const DwarfDebuggingInformationEntry> children)
{
    const quint32 index = quint32(m_records.size());
    for (size_t i = 0; i < children.size(); ++i) {
        Q_ASSERT(children[i].unit() == this && m_records[children[i].index()].parent == noIndex);
        Record &child = m_records[children[i].index()];
        child.parent = index;
        child.sibling = i + 1 < children.size() ? children[i + 1].index() : noIndex;
    }
    entry.child = children.empty() ? noIndex : children.front().index();
    m_madeEntries.push_back(std::move(entry));
    m_records.push_back({0, 0, noIndex, noIndex});
    return {this, index};
}
