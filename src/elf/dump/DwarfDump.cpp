#include "debug/dwarf/DwarfFile.h"
#include "debug/dwarf/DwarfOperations.h"

#include <map>

namespace {

// Attributes whose block is an expression, and whose offset is that of a location list (DWARF 5, section 7.5.4).
constexpr quint32 locationAttributes[] = {
    DW_AT_location,   DW_AT_string_length, DW_AT_return_addr,          DW_AT_data_member_location,
    DW_AT_frame_base, DW_AT_use_location,  DW_AT_vtable_elem_location, DW_AT_static_link,
    DW_AT_segment,
};
// Attributes whose block is an expression where it has no form of its own (before version 4).
constexpr quint32 expressionAttributes[] = {
    DW_AT_byte_size,     DW_AT_bit_size,  DW_AT_lower_bound, DW_AT_upper_bound,         DW_AT_count,
    DW_AT_data_location, DW_AT_allocated, DW_AT_associated,  DW_AT_GNU_call_site_value, DW_AT_GNU_call_site_target,
};

bool contains(std::span<const quint32> attributes, quint32 name)
{
    return std::ranges::find(attributes, name) != attributes.end();
}

// The whole text dump of a file's debug information. The text is gathered and written a unit at a time.
class DwarfDump
{
public:
    DwarfDump(DwarfFile &file, FILE *stream) : m_file(file), m_sections(file.sections()), m_stream(stream) {}
    void run();

private:
    void dumpLines() { m_text += m_file.lineMap().dump(); }
    void dumpFrames() { m_text += m_file.frames().dump(); }
    void dumpInformation();
    void dumpTypes();
    void dumpPublicNames() { dumpPublic(m_sections.publicNames); }
    void dumpPublicTypes() { dumpPublic(m_sections.publicTypes); }
    void dumpAddressRanges();
    void dumpMacros();
    void dumpMacroInformation();
    void dumpLocationLists();

    void dumpEntries(DwarfCompilationUnit &unit);
    void dumpValue(const DwarfDebuggingInformationEntry &entry, const DwarfAttribute &attribute);
    void dumpReference(const DwarfAttribute &attribute);
    void dumpPublic(DwarfSections::Bytes section);
    bool dumpMacroUnit(ByteCursor &cursor);
    // Each gives the offset behind the list.
    quint64 dumpLocationList(quint64 offset, DwarfCompilationUnit &unit);
    quint64 dumpOldLocationList(quint64 offset, DwarfCompilationUnit &unit);
    void dumpLocation(quint64 offset, quint32 begin, quint32 end, ByteCursor expression, DwarfFormat format);

    // "DW_AT_name", or the number of what has no name.
    QByteArray name(const char *kind, quint32 number);
    Q_ATTRIBUTE_FORMAT_PRINTF(2, 3) void print(const char *format, ...);
    ByteCursor cursor(std::span<const quint8> bytes) const { return ByteCursor(bytes, m_file.bigEndian()); }
    void flush()
    {
        std::fwrite(m_text.constData(), 1, size_t(m_text.size()), m_stream);
        m_text.clear();
    }

    DwarfFile &m_file;
    const DwarfSections &m_sections;
    FILE *m_stream;
    QByteArray m_text;
    QHash<std::pair<QByteArray, quint32>, QByteArray> m_names;
    // Ranges that may still be told. A file can have so many only when entries share lists without end.
    qint64 m_rangeBudget = qint64(m_sections.ranges.size() + m_sections.rangeLists.size());
    // The lists that entries refer to, by offset in the newer section (true) or the older.
    std::map<std::pair<bool, quint64>, DwarfCompilationUnit *> m_locationLists;
    std::map<quint64, DwarfCompilationUnit *> m_macroUnits; // by offset in .debug_macro
};

void DwarfDump::print(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char line[256];
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    m_text.append(line, qBound(0, length, int(sizeof line) - 1));
}

QByteArray DwarfDump::name(const char *kind, quint32 number)
{
    QByteArray &known = m_names[{kind, number}];
    if (known.isEmpty()) {
        const char *text = dwarfName(kind, number);
        known = text ? QByteArray(text) : "0x" + QByteArray::number(number, 16).toUpper();
    }
    return known;
}

void DwarfDump::run()
{
    const struct
    {
        const char *heading;
        bool hasData;
        void (DwarfDump::*dump)();
    } parts[] = {
        {"\nLine\n", !m_sections.lines.empty(), &DwarfDump::dumpLines},
        {"\nFrame\n", !m_sections.frames.empty(), &DwarfDump::dumpFrames},
        {"\nDebugging Information\n", !m_sections.information.empty(), &DwarfDump::dumpInformation},
        {"\nDebug Types\n", !m_file.typeUnits().empty(), &DwarfDump::dumpTypes},
        {"\nPubnames\n", !m_sections.publicNames.empty(), &DwarfDump::dumpPublicNames},
        {"\nPubtypes\n", !m_sections.publicTypes.empty(), &DwarfDump::dumpPublicTypes},
        {"\nAranges\n", !m_sections.addressRanges.empty(), &DwarfDump::dumpAddressRanges},
        {"\nMacros\n", !m_sections.macros.empty(), &DwarfDump::dumpMacros},
        {"\nMacinfo\n", !m_sections.macroInformation.empty(), &DwarfDump::dumpMacroInformation},
        {"\nLocation Lists\n", !m_sections.locations.empty() || !m_sections.locationLists.empty(),
         &DwarfDump::dumpLocationLists},
    };
    for (const auto &part : parts) {
        if (!part.hasData)
            continue;
        m_text += part.heading;
        (this->*part.dump)();
        flush();
    }
}

void DwarfDump::dumpInformation()
{
    for (DwarfCompilationUnit &unit : m_file.units())
        if (!unit.isTypeUnit())
            dumpEntries(unit);
}

void DwarfDump::dumpTypes()
{
    for (DwarfCompilationUnit *unit : m_file.typeUnits()) {
        print("\nSignature: 0x%llx\n\n", static_cast<unsigned long long>(unit->typeSignature()));
        dumpEntries(*unit);
    }
}

// Each entry: its offset in the section, indented by its depth the tag, below it the attributes.
void DwarfDump::dumpEntries(DwarfCompilationUnit &unit)
{
    std::vector<quint16> depths(unit.entryCount());
    for (quint32 i = 0; i < depths.size(); ++i) {
        const DwarfDebuggingInformationEntry entry = unit.entry(i);
        if (const DwarfDebuggingInformationEntry parent = entry.parent())
            depths[i] = quint16(depths[parent.index()] + 1);
        const qsizetype indent = 2 * qMin<quint16>(depths[i], 40);
        print("0x%08x: ", unit.offset() + entry.offset());
        m_text.append(indent, ' ');
        m_text += name("TAG", entry.tag());
        print(" (0x%X)\n", entry.tag());
        for (const DwarfAttribute &attribute : entry.attributes()) {
            m_text.append(indent + 14, ' ');
            m_text += name("AT", attribute.name) + ' ' + name("FORM", attribute.form) + ' ';
            dumpValue(entry, attribute);
            m_text += '\n';
        }
        if (m_text.size() > 1 << 20)
            flush();
    }
}

void DwarfDump::dumpValue(const DwarfDebuggingInformationEntry &entry, const DwarfAttribute &attribute)
{
    DwarfCompilationUnit &unit = *entry.unit();
    const auto number = static_cast<unsigned long long>(attribute.value);
    const bool isLocation = contains(locationAttributes, attribute.name);
    switch (attribute.valueClass) {
    case DwarfAttribute::String: m_text.append(attribute.text()).append(' '); return;
    case DwarfAttribute::SignedNumber: print("%lld ", static_cast<long long>(attribute.value)); return;
    case DwarfAttribute::Reference: dumpReference(attribute); break;
    case DwarfAttribute::Block:
        if (attribute.form == DW_FORM_exprloc ||
            (attribute.form != DW_FORM_data16 && (isLocation || contains(expressionAttributes, attribute.name))))
            m_text += dwarfExpressionText(cursor(attribute.block()), unit.format()) + ' ';
        else
            for (const quint8 byte : attribute.block())
                print("0x%02x ", byte);
        return;
    case DwarfAttribute::Number:
        if (attribute.form == DW_FORM_ref_sig8)
            print("signature: 0x%llx ", number);
        else if (attribute.name == DW_AT_language)
            m_text += name("LANG", quint32(attribute.value)) + ' ';
        else if (attribute.name == DW_AT_encoding)
            m_text += name("ATE", quint32(attribute.value)) + ' ';
        else if (attribute.form == DW_FORM_addr || attribute.name == DW_AT_low_pc || attribute.name == DW_AT_high_pc ||
                 attribute.name == DW_AT_ranges || attribute.name == DW_AT_stmt_list || attribute.form == DW_FORM_data8)
            print("0x%llx ", number);
        else
            print("%lld ", static_cast<long long>(attribute.value));
        break;
    }
    if (attribute.name == DW_AT_ranges && m_rangeBudget > 0) {
        for (const DwarfAddressRange range : entry.ranges()) {
            print("0x%X-0x%X ", range.start, range.end);
            --m_rangeBudget;
        }
    }
    if (attribute.name == DW_AT_macros || attribute.name == DW_AT_GNU_macros)
        m_macroUnits.emplace(attribute.value, &unit);
    // Before version 4 an offset has the form of a number, which for a member is its place.
    const bool isListOffset = attribute.valueClass == DwarfAttribute::Reference ||
                              (unit.version() < 4 && attribute.name != DW_AT_data_member_location);
    if (isLocation && isListOffset)
        m_locationLists.emplace(std::pair(unit.version() >= 5, attribute.value), &unit);
}

void DwarfDump::dumpReference(const DwarfAttribute &attribute)
{
    switch (attribute.form) {
    case DW_FORM_ref1:
    case DW_FORM_ref2:
    case DW_FORM_ref4:
    case DW_FORM_ref8:
    case DW_FORM_ref_udata:
    case DW_FORM_ref_addr:
        if (const DwarfDebuggingInformationEntry target = attribute.entry())
            print("0x%llx ", static_cast<unsigned long long>(target.unit()->offset()) + target.offset());
        else if (attribute.name == DW_AT_specification)
            m_text += "getSpecification() failed";
        else if (attribute.name == DW_AT_abstract_origin)
            m_text += "getAbstractOrigin() failed";
        else
            print("0x%llx ", static_cast<unsigned long long>(attribute.value));
        return;
    }
    print("0x%llx ", static_cast<unsigned long long>(attribute.value));
}

// .debug_pubnames, .debug_pubtypes (DWARF 4, section 6.1.1): length, version 2, offset and length of the unit,
// then { offset in the unit, name } until an offset of 0.
void DwarfDump::dumpPublic(DwarfSections::Bytes section)
{
    for (ByteCursor sets = cursor(section); !sets.atEnd();) {
        quint32 offsetSize = 4;
        quint64 length = sets.readU32();
        if (length == 0xFFFFFFFF) {
            offsetSize = 8;
            length = sets.readU64();
        }
        ByteCursor set = sets.take(length);
        set.skip(2);
        const quint64 unit = set.readUnsigned(offsetSize);
        set.skip(offsetSize);
        while (!set.atEnd()) {
            const quint64 offset = set.readUnsigned(offsetSize);
            if (offset == 0)
                break;
            const QByteArrayView text = set.readString();
            if (set.failed())
                break;
            print("0x%llx ", static_cast<unsigned long long>(unit + offset));
            m_text.append(text).append('\n');
        }
    }
}

// .debug_aranges (DWARF 5, section 6.1.2): length, version 2, offset of the unit, address size 1, segment size 1,
// aligned to twice the address size { address, length } until both are 0.
void DwarfDump::dumpAddressRanges()
{
    for (ByteCursor sets = cursor(m_sections.addressRanges); !sets.atEnd();) {
        const qsizetype start = sets.offset();
        quint32 offsetSize = 4;
        quint64 length = sets.readU32();
        if (length == 0xFFFFFFFF) {
            offsetSize = 8;
            length = sets.readU64();
        }
        ByteCursor set = sets.take(length);
        set.skip(2);
        const quint64 unit = set.readUnsigned(offsetSize);
        const quint8 addressSize = set.readU8();
        set.skip(1);
        if (set.failed() || addressSize == 0 || addressSize > 8)
            continue;
        const qsizetype misaligned = (set.offset() - start) % (2 * addressSize);
        set.skip(quint64(misaligned ? 2 * addressSize - misaligned : 0));
        print("unit 0x%llx\n", static_cast<unsigned long long>(unit));
        while (!set.atEnd()) {
            const quint64 address = set.readUnsigned(addressSize), size = set.readUnsigned(addressSize);
            if (set.failed() || (address == 0 && size == 0))
                break;
            print("0x%llX-0x%llX\n", static_cast<unsigned long long>(address),
                  static_cast<unsigned long long>(address + size));
        }
    }
}

// .debug_macro (DWARF 5, section 6.3): units one after the other.
void DwarfDump::dumpMacros()
{
    ByteCursor section = cursor(m_sections.macros);
    while (!section.atEnd() && dumpMacroUnit(section))
        if (m_text.size() > 1 << 20)
            flush();
}

// A header (version 2, flags 1, with flag 2 the offset in .debug_line, with flag 4 a table of operands of
// opcodes), then entries until an opcode of 0. False when the end can't be told.
bool DwarfDump::dumpMacroUnit(ByteCursor &section)
{
    const quint64 start = quint64(section.offset());
    const quint16 version = section.readU16();
    const quint8 flags = section.readU8();
    const quint32 offsetSize = flags & 1 ? 8 : 4;
    print("\noffset 0x%x version 0x%x flags 0x%02x\n", quint32(start), version, flags);
    if (flags & 2)
        print("debug_line offset 0x%x\n", quint32(section.readUnsigned(offsetSize)));
    QHash<quint8, QByteArray> vendorOperands; // forms, one byte each
    if (flags & 4) {
        for (quint8 count = section.readU8(); count != 0 && !section.failed(); --count) {
            const quint8 opcode = section.readU8();
            const std::span<const quint8> forms = section.readBytes(section.readUleb128());
            vendorOperands[opcode] = QByteArray(reinterpret_cast<const char *>(forms.data()), qsizetype(forms.size()));
        }
    }
    const auto unit = m_macroUnits.find(start);
    const auto lineOf = [&] { return int(section.readUleb128()); };
    const auto finish = [&](QByteArrayView text) { m_text.append(text).append('\n'); };
    while (!section.failed()) {
        const quint8 opcode = section.readU8();
        switch (opcode) {
        case 0: return !section.failed();
        case 1: // macro text in place
        case 2:
            print("DW_MACRO_%s lineno %d macro ", opcode == 1 ? "define" : "undef", lineOf());
            finish(section.readString());
            break;
        case 3: {
            const int line = lineOf();
            print("DW_MACRO_start_file lineno %d file %d\n", line, lineOf());
            break;
        }
        case 4: m_text += "DW_MACRO_end_file\n"; break;
        case 5: // in .debug_str
        case 6:
        case 11: // by an index
        case 12: {
            print("DW_MACRO_%s_indirect lineno %d macro ", opcode == 5 || opcode == 11 ? "define" : "undef", lineOf());
            std::optional<quint64> offset;
            if (opcode < 7)
                offset = section.readUnsigned(offsetSize);
            else if (const quint64 index = section.readUleb128(); unit != m_macroUnits.end())
                offset = unit->second->stringOffsetAt(index);
            finish(offset ? m_file.stringAt(*offset) : QByteArrayView());
            break;
        }
        case 7: print("DW_MACRO_transparent_include offset 0x%x\n", quint32(section.readUnsigned(offsetSize))); break;
        case 8: // in a supplementary file
        case 9: {
            print("DW_MACRO_%s_sup lineno %d offset ", opcode == 8 ? "define" : "undef", lineOf());
            print("0x%x\n", quint32(section.readUnsigned(offsetSize)));
            break;
        }
        case 10: print("DW_MACRO_import_sup offset 0x%x\n", quint32(section.readUnsigned(offsetSize))); break;
        default:
            print("0x%02x\n", opcode);
            if (!vendorOperands.contains(opcode))
                return false;
            for (const char form : vendorOperands[opcode])
                skipDwarfForm(section, quint8(form), {quint8(offsetSize), quint8(offsetSize)});
        }
    }
    return false;
}

// .debug_macinfo (DWARF 4, section 6.3), entries until a type of 0 for each unit.
void DwarfDump::dumpMacroInformation()
{
    for (ByteCursor section = cursor(m_sections.macroInformation); !section.atEnd();) {
        const quint8 type = section.readU8();
        if (type == 0)
            continue;
        if (type == 4) {
            m_text += "DW_MACINFO_end_file\n";
            continue;
        }
        const quint64 number = section.readUleb128();
        if (type == 3) {
            print("DW_MACINFO_start_file lineno %d filenum %d\n", int(number), int(section.readUleb128()));
            continue;
        }
        const QByteArrayView text = section.readString();
        if (type == 1 || type == 2)
            print("DW_MACINFO_%s lineno %d macro ", type == 1 ? "define" : "undef", int(number));
        else
            print("0x%02x %llu ", type, static_cast<unsigned long long>(number));
        m_text.append(text).append('\n');
        if (m_text.size() > 1 << 20)
            flush();
    }
}

// The lists that entries refer to; what stands between them is nobody's, or view numbers.
void DwarfDump::dumpLocationLists()
{
    m_text += "Offset   Begin   End\n";
    std::pair<bool, quint64> end;
    for (const auto &[list, unit] : m_locationLists) {
        if (list < end) // it begins inside of another: no compiler makes that, and there could be millions
            continue;
        end = {list.first, list.first ? dumpLocationList(list.second, *unit) : dumpOldLocationList(list.second, *unit)};
        if (m_text.size() > 1 << 20)
            flush();
    }
}

void DwarfDump::dumpLocation(quint64 offset, quint32 begin, quint32 end, ByteCursor expression, DwarfFormat format)
{
    print("%08x %08x %08x ", quint32(offset), begin, end);
    m_text += dwarfExpressionText(expression, format) + '\n';
}

// .debug_loclists (DWARF 5, section 7.7.3): a kind, its operands, and for those with a place an expression behind
// its length. Addresses are absolute in the text.
quint64 DwarfDump::dumpLocationList(quint64 offset, DwarfCompilationUnit &unit)
{
    ByteCursor list = m_sections.cursorAt(m_sections.locationLists, offset);
    quint32 base = unit.baseAddress();
    while (!list.failed()) {
        const quint64 start = quint64(list.offset());
        const quint8 kind = list.readU8();
        quint32 begin = 0, end = 0;
        switch (kind) {
        case 0: // end of list
            print("%08x <end of list>\n", quint32(start));
            return quint64(list.offset());
        case 1: base = unit.addressAt(list.readUleb128()); continue;
        case 6: base = list.readU32(); continue;
        case 9: // view numbers of the next entry
            list.readUleb128();
            list.readUleb128();
            continue;
        case 2:
        case 3: // by indexes of addresses: start, end or length
            begin = unit.addressAt(list.readUleb128());
            end = kind == 2 ? unit.addressAt(list.readUleb128()) : begin + quint32(list.readUleb128());
            break;
        case 4:
            begin = base + quint32(list.readUleb128());
            end = base + quint32(list.readUleb128());
            break;
        case 5: end = ~quint32(0); break; // elsewhere
        case 7:
        case 8:
            begin = list.readU32();
            end = kind == 7 ? list.readU32() : begin + quint32(list.readUleb128());
            break;
        default: print("%08x 0x%02x\n", quint32(start), kind); return quint64(list.offset());
        }
        const ByteCursor expression = list.take(list.readUleb128());
        if (!list.failed())
            dumpLocation(start, begin, end, expression, unit.format());
    }
    return quint64(list.offset());
}

// .debug_loc (DWARF 4, section 2.6.2): begin, end, length 2, expression. Begin and end of 0 end the list, a begin
// of all ones makes the end the new base.
quint64 DwarfDump::dumpOldLocationList(quint64 offset, DwarfCompilationUnit &unit)
{
    ByteCursor list = m_sections.cursorAt(m_sections.locations, offset);
    quint32 base = unit.baseAddress();
    while (!list.failed()) {
        const quint64 start = quint64(list.offset());
        const quint32 begin = list.readU32(), end = list.readU32();
        if (list.failed())
            break;
        if (begin == 0 && end == 0) {
            print("%08x <end of list>\n", quint32(start));
            return quint64(list.offset());
        }
        if (begin == ~quint32(0)) {
            base = end;
            continue;
        }
        const ByteCursor expression = list.take(list.readU16());
        if (!list.failed())
            dumpLocation(start, base + begin, base + end, expression, unit.format());
    }
    return quint64(list.offset());
}

} // namespace

void DwarfFile::dump(FILE *stream)
{
    DwarfDump(*this, stream).run();
}
