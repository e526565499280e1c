#include "debug/disassembly/CodeSymbols.h"

#include "debug/dwarf/DwarfSections.h"
#include "elf/ElfFile.h"

#include <algorithm>
#include <tuple>

namespace {

// By type, then by binding.
quint8 rankOf(const ElfSymbol &symbol)
{
    const int type = symbol.isFunction() ? 0 : symbol.type() == STT_OBJECT ? 1 : 2;
    return quint8(2 * type + (symbol.binding() == STB_LOCAL));
}

} // namespace

CodeSymbols::CodeSymbols(const ElfFile &file, const DwarfSections &sections)
{
    for (quint32 index = 0; index < quint32(file.symbolCount()); ++index) {
        const ElfSymbol &symbol = *file.symbolAtIndex(index);
        const QByteArrayView name = symbol.rawName();
        if (symbol.type() == STT_FILE || symbol.type() == STT_SECTION || symbol.sectionIndex() == SHN_UNDEF ||
            name.isEmpty() || name.startsWith('$') || name.startsWith(".L"))
            continue;
        const ElfSection *section = file.sectionOfSymbol(&symbol);
        if (!section || !section->isLoadable())
            continue;
        const quint32 address = sections.addressIn(*section, symbol.value() - section->header().sh_addr);
        const bool isThumb = file.isArm() && static_cast<const ARMElfSymbol &>(symbol).mode() == ARMElfSymbol::Thumb;
        m_places.push_back({address, &symbol, section->index(), rankOf(symbol), isThumb, {}});
    }
    std::ranges::stable_sort(m_places, {}, [](const Place &place) { return std::tuple(place.address, place.rank); });
    const auto isSame = [](const Place &one, const Place &other) { return one.address == other.address; };
    m_places.erase(std::unique(m_places.begin(), m_places.end(), isSame), m_places.end());
}

const QByteArray &CodeSymbols::nameOf(const Place &place)
{
    if (place.name.isNull())
        place.name = place.symbol->name().toUtf8();
    return place.name;
}

const CodeSymbols::Place *CodeSymbols::at(quint32 address) const
{
    const auto next = std::ranges::upper_bound(m_places, address, {}, &Place::address);
    return next == m_places.begin() ? nullptr : &*(next - 1);
}

const CodeSymbols::Place *CodeSymbols::placeBefore(quint32 address, quint32 section) const
{
    const Place *place = at(address);
    return place && place->section == section ? place : nullptr;
}

QByteArray CodeSymbols::nameWithOffset(const Place &place, quint32 address)
{
    const quint32 offset = address - place.address;
    return offset == 0 ? nameOf(place) : nameOf(place) + "+0x" + QByteArray::number(offset, 16);
}

QByteArray CodeSymbols::nameAt(quint32 address) const
{
    const Place *place = at(address);
    return place ? nameWithOffset(*place, address) : QByteArray();
}

QByteArray CodeSymbols::nameOfValue(quint32 value) const
{
    const Place *place = at(value);
    if (!place)
        return {};
    if (place->isThumb && value == (place->address | 1))
        return nameOf(*place);
    const quint32 offset = value - place->address;
    return offset == 0 || offset < place->symbol->size() ? nameWithOffset(*place, value) : QByteArray();
}
