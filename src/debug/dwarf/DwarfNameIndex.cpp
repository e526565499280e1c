#include "debug/dwarf/DwarfNameIndex.h"

#include "debug/dwarf/DwarfFile.h"

#include <bit>

namespace {

// A multiplication for 8 bytes: names are short, and there are many.
quint32 hashOf(QByteArrayView name)
{
    constexpr quint64 factor = 0x9E3779B97F4A7C15;
    quint64 hash = quint64(name.size());
    const char *p = name.data();
    qsizetype left = name.size();
    for (; left >= 8; left -= 8, p += 8) {
        quint64 word;
        std::memcpy(&word, p, 8);
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    }
    quint64 word = 0;
    std::memcpy(&word, p, size_t(left));
    hash = (hash ^ word) * factor;
    return quint32(hash >> 32);
}

bool isIndexed(quint32 tag, bool isInFunction)
{
    if (tag == DW_TAG_variable)
        return !isInFunction;
    return isDwarfGlobalKind(tag) || tag == DW_TAG_enumeration_type || tag == DW_TAG_enumerator;
}

} // namespace

DwarfNameIndex::DwarfNameIndex(DwarfFile &file) : m_file(&file)
{
    const size_t count = file.m_units.size() + file.m_typesSectionUnits.size();
    constexpr size_t bytesOfEntry = 12; // about; what isn't used is never touched
    constexpr int minimumBucketBits = 4, maximumBucketBits = 16, entriesOfBucketBits = 4;
    const size_t expected = (file.m_sections.information.size() + file.m_sections.types.size()) / bytesOfEntry;
    m_entries.reserve(expected);
    const int bits =
        std::clamp(int(std::bit_width(expected)) - entriesOfBucketBits, minimumBucketBits, maximumBucketBits);
    m_shift = quint32(32 - bits);
    m_buckets.assign(size_t(1) << bits, noEntry);
    for (quint32 index = 0; index < count; ++index)
        addUnit(index);
}

DwarfCompilationUnit &DwarfNameIndex::unit(quint32 index) const
{
    return index < m_file->m_units.size() ? m_file->m_units[index]
                                          : m_file->m_typesSectionUnits[index - m_file->m_units.size()];
}

void DwarfNameIndex::addUnit(quint32 unitIndex)
{
    DwarfCompilationUnit &unit = this->unit(unitIndex);
    unit.readRoot();
    if (!unit.m_hasRoot)
        return;
    const DwarfAbbreviationTable &table = unit.abbreviations();
    ByteCursor cursor = unit.cursor();
    cursor.seek(unit.m_firstEntry);
    std::vector<bool> isFunction; // for each open level: it is one, or inside of one
    bool isInFunction = false;
    while (!cursor.atEnd()) {
        const quint32 offset = quint32(cursor.offset());
        const quint64 code = cursor.readUleb128();
        const qint32 found = code ? table.indexOf(code) : -1;
        if (found < 0) {
            if (isFunction.empty())
                break;
            isInFunction = isFunction.back();
            isFunction.pop_back();
            continue;
        }
        const DwarfAbbreviation &abbreviation = table.at(quint32(found));
        if (isIndexed(abbreviation.tag, isInFunction)) {
            const QByteArrayView name = unit.scannedName(abbreviation, cursor);
            if (!name.isEmpty())
                add(name, unitIndex, offset);
            if (const qsizetype bracket = name.indexOf('<'); bracket > 0 && isDwarfClassKind(abbreviation.tag))
                add(name.first(bracket), unitIndex, offset);
        }
        table.skipAttributes(abbreviation, cursor);
        if (abbreviation.hasChildren) {
            isFunction.push_back(isInFunction);
            isInFunction = isInFunction || abbreviation.tag == DW_TAG_subprogram;
        }
    }
}

void DwarfNameIndex::add(QByteArrayView name, quint32 unitIndex, quint32 offset)
{
    const quint32 hash = hashOf(name);
    quint32 &last = m_buckets[hash >> m_shift];
    m_entries.push_back({hash, unitIndex, offset, last});
    last = quint32(m_entries.size() - 1);
}

template <typename Accept>
std::vector<DwarfDebuggingInformationEntry> DwarfNameIndex::find(QByteArrayView name, Accept accept) const
{
    std::vector<DwarfDebuggingInformationEntry> entries;
    const quint32 hash = hashOf(name);
    for (quint32 i = m_buckets[hash >> m_shift]; i != noEntry; i = m_entries[i].next) {
        if (m_entries[i].hash != hash)
            continue;
        const auto entry = unit(m_entries[i].unit).entryAt(m_entries[i].offset);
        if (entry && accept(entry.nameBytes()))
            entries.push_back(entry);
    }
    std::ranges::reverse(entries); // a bucket's last comes first
    return entries;
}

std::vector<DwarfDebuggingInformationEntry> DwarfNameIndex::entriesNamed(QByteArrayView name) const
{
    return find(name, [&](QByteArrayView candidate) { return candidate == name; });
}

bool DwarfNameIndex::hasTemplate(QByteArrayView name) const
{
    return !find(name, [&](QByteArrayView candidate) {
                return candidate.startsWith(name) && candidate.sliced(name.size()).startsWith('<');
            }).empty();
}
