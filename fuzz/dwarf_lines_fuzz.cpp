#include "debug/dwarf/DwarfFile.h"

// The input is a .debug_line behind a byte that picks the order of bytes, the unit's version and whether the file is
// an executable. The one unit has the table at 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static constexpr quint8 abbreviations[] = {1, 0x11, 0, 0x03, 0x08, 0x10, 0x17, 0x1B, 0x08, 0, 0, 0};
    static constexpr quint8 root[] = {1, 'a', '.', 'c', 0, 0, 0, 0, 0, '/', 'x', 0};
    static constexpr quint8 strings[] = "one\0two/three\0";
    if (size == 0)
        return 0;
    const bool bigEndian = data[0] & 1, isVersion5 = data[0] & 2;
    std::vector<quint8> unit(isVersion5 ? 12 : 11, 0);
    insertInteger(unit.data(), 0, unit.size() - 4 + sizeof root, 4, bigEndian);
    insertInteger(unit.data(), 4, isVersion5 ? 5 : 4, 2, bigEndian);
    unit[isVersion5 ? 6 : 10] = isVersion5 ? 1 : 4; // unit type, or address size
    if (isVersion5)
        unit[7] = 4;
    unit.insert(unit.end(), std::begin(root), std::end(root));

    DwarfSections sections;
    sections.bigEndian = bigEndian;
    sections.abbreviations = abbreviations;
    sections.information = unit;
    sections.strings = sections.lineStrings = strings;
    sections.lines = {data + 1, size - 1};
    DwarfFile file;
    file.load(sections, data[0] & 4 ? 0x1000 : 0, false, false, data[0] & 8);
    file.symbolicLocationAt(0x2000); // by a window of the table
    for (quint64 number = 0; number < 20; ++number)
        file.units().front().fileName(number);
    SourceAddressMap &map = file.lineMap();
    for (const quint32 source : map.sources()) {
        QList<quint32> addresses;
        map.addressesOfLine(map.paths().text(source), 1, addresses);
    }
    map.dump();
    return 0;
}
