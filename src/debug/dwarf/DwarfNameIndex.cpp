#include "debug/dwarf/DwarfNameIndex.h"

#include "debug/dwarf/DwarfFile.h"

#include <algorithm>
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
    if (left) // an empty name may have no place
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
    const quint32 count = quint32(file.m_units.size() + file.m_typesSectionUnits.size());
    constexpr size_t bytesOfEntry = 12; // about; what isn't used is never touched
    m_entries.reserve((file.m_sections.information.size() + file.m_sections.types.size()) / bytesOfEntry);
    m_unitStarts.reserve(count);
    for (quint32 index = 0; index < count; ++index) {
        m_unitStarts.push_back(quint32(m_entries.size()));
        addUnit(unit(index));
    }
}

DwarfCompilationUnit &DwarfNameIndex::unit(quint32 index) const
{
    return index < m_file->m_units.size() ? m_file->m_units[index]
                                          : m_file->m_typesSectionUnits[index - m_file->m_units.size()];
}

void DwarfNameIndex::addUnit(DwarfCompilationUnit &unit)
{
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
                m_entries.push_back({hashOf(name), offset});
            if (isDwarfClassKind(abbreviation.tag)) {
                if (const qsizetype bracket = name.indexOf('<'); bracket > 0)
                    m_entries.push_back({hashOf(name.first(bracket)), offset});
            }
        }
        table.skipAttributes(abbreviation, cursor);
        if (abbreviation.hasChildren) {
            isFunction.push_back(isInFunction);
            isInFunction = isInFunction || abbreviation.tag == DW_TAG_subprogram;
        }
    }
}

void DwarfNameIndex::makeBuckets()
{
    constexpr int minimumBucketBits = 4, maximumBucketBits = 20, entriesOfBucketBits = 2;
    const int bits =
        std::clamp(int(std::bit_width(m_entries.size())) - entriesOfBucketBits, minimumBucketBits, maximumBucketBits);
    m_shift = quint32(32 - bits);
    m_buckets.assign(size_t(1) << bits, noEntry);
    m_next.resize(m_entries.size());
    for (quint32 i = quint32(m_entries.size()); i-- > 0;)
        m_next[i] = std::exchange(m_buckets[m_entries[i].hash >> m_shift], i);
}

template <typename Accept>
std::vector<DwarfDebuggingInformationEntry> DwarfNameIndex::find(QByteArrayView name, Accept accept)
{
    constexpr int maximumScans = 8; // about the cost of the buckets
    std::vector<DwarfDebuggingInformationEntry> found;
    const quint32 hash = hashOf(name);
    const auto take = [&](quint32 index) {
        const auto next = std::ranges::upper_bound(m_unitStarts, index);
        const auto entry = unit(quint32(next - m_unitStarts.begin() - 1)).entryAt(m_entries[index].offset);
        if (entry && accept(entry.nameBytes()))
            found.push_back(entry);
    };
    if (m_scans < maximumScans) {
        ++m_scans;
        for (quint32 i = 0; i < quint32(m_entries.size()); ++i) {
            if (m_entries[i].hash == hash)
                take(i);
        }
        return found;
    }
    if (m_buckets.empty())
        makeBuckets();
    for (quint32 i = m_buckets[hash >> m_shift]; i != noEntry; i = m_next[i]) {
        if (m_entries[i].hash == hash)
            take(i);
    }
    return found;
}

std::vector<DwarfDebuggingInformationEntry> DwarfNameIndex::entriesNamed(QByteArrayView name)
{
    return find(name, [&](QByteArrayView candidate) { return candidate == name; });
}

bool DwarfNameIndex::hasTemplate(QByteArrayView name)
{
    return !find(name, [&](QByteArrayView candidate) {
                return candidate.startsWith(name) && candidate.sliced(name.size()).startsWith('<');
            }).empty();
}
