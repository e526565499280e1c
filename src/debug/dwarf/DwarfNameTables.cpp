#include "debug/dwarf/DwarfNameTables.h"

#include "debug/dwarf/DwarfFile.h"

#include <algorithm>

namespace {

enum IndexAttribute : quint32 { IndexCompileUnit = 1, IndexTypeUnit = 2, IndexDieOffset = 3 };

// DWARF 5, section 6.1.1.4.5, for names in ASCII.
quint32 hashOf(QByteArrayView name)
{
    quint32 hash = 5381;
    for (const char c : name)
        hash = hash * 33 + quint8(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    return hash;
}

quint64 numberAt(ByteCursor array, quint64 index, quint32 size)
{
    array.skip(index * size);
    return array.readUnsigned(size);
}

bool isAscii(QByteArrayView name)
{
    return std::ranges::all_of(name, [](char c) { return quint8(c) < 0x80; });
}

} // namespace

DwarfNameTables::DwarfNameTables(DwarfFile &file) : m_file(&file)
{
    const DwarfSections &sections = file.sections();
    std::vector<const DwarfCompilationUnit *> named;
    for (ByteCursor section(sections.names, sections.bigEndian); !section.atEnd();) {
        Table table = {};
        table.offset = quint32(section.offset());
        if (!readTable(section, table)) {
            file.reportError("damaged .debug_names at 0x%x, which isn't used\n", table.offset);
            return;
        }
        named.insert(named.end(), table.units.begin(), table.units.end());
        m_tables.push_back(std::move(table));
    }
    std::ranges::sort(named);
    m_areUsable = !m_tables.empty() && std::ranges::all_of(file.units(), [&](const DwarfCompilationUnit &unit) {
        return std::ranges::binary_search(named, &unit);
    });
    m_areUsable = m_areUsable && file.typeUnits().empty();
}

bool DwarfNameTables::readTable(ByteCursor &section, Table &table)
{
    quint64 length = section.readU32();
    table.offsetSize = length == 0xFFFFFFFF ? 8 : 4;
    if (table.offsetSize == 8)
        length = section.readU64();
    ByteCursor cursor = section.take(length);
    const quint16 version = cursor.readU16();
    cursor.skip(2);
    const quint32 unitCount = cursor.readU32(), localTypes = cursor.readU32(), foreignTypes = cursor.readU32();
    table.bucketCount = cursor.readU32();
    table.nameCount = cursor.readU32();
    const quint32 abbreviationSize = cursor.readU32(), augmentationSize = cursor.readU32();
    cursor.skip((quint64(augmentationSize) + 3) & ~quint64(3));
    ByteCursor units = cursor.take(quint64(unitCount) * table.offsetSize);
    cursor.skip(quint64(localTypes) * table.offsetSize);
    cursor.skip(quint64(foreignTypes) * 8);
    table.buckets = cursor.take(quint64(table.bucketCount) * 4);
    table.hashes = cursor.take(quint64(table.bucketCount ? table.nameCount : 0) * 4);
    table.names = cursor.take(quint64(table.nameCount) * table.offsetSize);
    table.entries = cursor.take(quint64(table.nameCount) * table.offsetSize);
    const ByteCursor abbreviations = cursor.take(abbreviationSize);
    table.pool = cursor;
    if (cursor.failed() || version != 5)
        return false;
    while (!units.atEnd()) {
        const quint64 offset = units.readUnsigned(table.offsetSize);
        DwarfCompilationUnit *unit = offset <= ~quint32(0) ? m_file->unitAt(quint32(offset)) : nullptr;
        if (!unit || unit->offset() != offset)
            return false;
        table.units.push_back(unit);
    }
    return table.bucketCount != 0 && readAbbreviations(abbreviations, table);
}

// code, tag, pairs of attribute and form up to two zeros; the table ends with a code of 0.
bool DwarfNameTables::readAbbreviations(ByteCursor cursor, Table &table)
{
    constexpr size_t maximumAbbreviations = 1024; // compilers have one for each tag
    while (const quint64 code = cursor.readUleb128()) {
        if (table.abbreviations.size() == maximumAbbreviations)
            return false;
        Abbreviation abbreviation = {code, quint32(cursor.readUleb128()), {}};
        for (;;) {
            const quint32 attribute = quint32(cursor.readUleb128()), form = quint32(cursor.readUleb128());
            if (attribute == 0 && form == 0)
                break;
            abbreviation.attributes.emplace_back(attribute, form);
        }
        table.abbreviations.push_back(std::move(abbreviation));
    }
    return !cursor.failed();
}

std::vector<DwarfDebuggingInformationEntry> DwarfNameTables::typesNamed(QByteArrayView name)
{
    std::vector<DwarfDebuggingInformationEntry> found;
    if (!isAscii(name))
        return found; // their hash needs more than ASCII's rules
    const quint32 hash = hashOf(name);
    for (const Table &table : m_tables) {
        if (!find(table, name, hash, found)) {
            m_file->reportError("damaged .debug_names at 0x%x, which isn't used\n", table.offset);
            m_areUsable = false;
            return {};
        }
    }
    std::ranges::sort(found, {}, [](const DwarfDebuggingInformationEntry &entry) {
        return std::pair(entry.unit()->offset(), entry.offset());
    });
    return found;
}

// The names of a bucket stand together, sorted by bucket.
bool DwarfNameTables::find(const Table &table, QByteArrayView name, quint32 hash,
                           std::vector<DwarfDebuggingInformationEntry> &found) const
{
    const quint32 bucket = hash % table.bucketCount;
    const quint64 first = numberAt(table.buckets, bucket, 4); // from 1; 0: the bucket is empty
    for (quint64 i = first; i != 0 && i <= table.nameCount; ++i) {
        const quint32 candidate = quint32(numberAt(table.hashes, i - 1, 4));
        if (candidate % table.bucketCount != bucket)
            break;
        // Each name stands there once.
        if (candidate == hash && m_file->stringAt(numberAt(table.names, i - 1, table.offsetSize)) == name)
            return readEntries(table, numberAt(table.entries, i - 1, table.offsetSize), name, found);
    }
    return first <= table.nameCount;
}

bool DwarfNameTables::readEntries(const Table &table, quint64 offset, QByteArrayView name,
                                  std::vector<DwarfDebuggingInformationEntry> &found) const
{
    ByteCursor cursor = table.pool;
    cursor.skip(offset);
    while (const quint64 code = cursor.readUleb128()) {
        const auto abbreviation = std::ranges::find(table.abbreviations, code, &Abbreviation::code);
        if (abbreviation == table.abbreviations.end())
            return false;
        quint64 unit = table.units.size() == 1 ? 0 : ~quint64(0), place = ~quint64(0);
        for (const auto &[attribute, form] : abbreviation->attributes) {
            quint64 value = 0;
            switch (form) {
            case DW_FORM_data1:
            case DW_FORM_ref1: value = cursor.readU8(); break;
            case DW_FORM_data2:
            case DW_FORM_ref2: value = cursor.readU16(); break;
            case DW_FORM_data4:
            case DW_FORM_ref4: value = cursor.readU32(); break;
            case DW_FORM_udata:
            case DW_FORM_ref_udata: value = cursor.readUleb128(); break;
            default: skipDwarfForm(cursor, form, {.offsetSize = table.offsetSize}); continue;
            }
            if (attribute == IndexCompileUnit)
                unit = value;
            else if (attribute == IndexDieOffset)
                place = value;
        }
        if (!isDwarfTypeKind(abbreviation->tag) && abbreviation->tag != DW_TAG_enumeration_type)
            continue;
        if (cursor.failed() || unit >= table.units.size() || place > ~quint32(0))
            return false;
        const auto entry = table.units[unit]->entryAt(quint32(place));
        if (!entry || entry.tag() != abbreviation->tag || entry.nameBytes() != name)
            return false;
        found.push_back(entry);
    }
    return !cursor.failed();
}
