#include "debug/dwarf/DwarfFile.h"
#include "debug/values/DwarfLocationExpressionEvaluator.h"

namespace {

// DWARF 5, section 7.7.3
enum ListEntry : quint8 {
    EndOfList,
    BaseAddressIndex,
    StartIndexEndIndex,
    StartIndexLength,
    OffsetPair,
    DefaultLocation,
    BaseAddress,
    StartEnd,
    StartLength,
    ViewPair, // GNU: two view numbers of the entry that follows
};

// Each entry: its kind, its operands and, unless it only sets the base or a view, an expression with its length
// as ULEB128 in front.
std::span<const quint8> listEntry5(DwarfCompilationUnit &unit, ByteCursor cursor, quint32 address)
{
    quint32 base = unit.baseAddress();
    std::span<const quint8> otherwise;
    while (!cursor.atEnd()) {
        quint32 start = 0, end = 0;
        const quint8 kind = cursor.readU8();
        switch (kind) {
        case EndOfList: return otherwise;
        case BaseAddressIndex: base = unit.addressAt(cursor.readUleb128()); continue;
        case BaseAddress: base = cursor.readU32(); continue;
        case ViewPair:
            cursor.readUleb128();
            cursor.readUleb128();
            continue;
        case StartIndexEndIndex:
            start = unit.addressAt(cursor.readUleb128());
            end = unit.addressAt(cursor.readUleb128());
            break;
        case StartIndexLength:
            start = unit.addressAt(cursor.readUleb128());
            end = start + quint32(cursor.readUleb128());
            break;
        case OffsetPair:
            start = base + quint32(cursor.readUleb128());
            end = base + quint32(cursor.readUleb128());
            break;
        case DefaultLocation: break;
        case StartEnd:
            start = cursor.readU32();
            end = cursor.readU32();
            break;
        case StartLength:
            start = cursor.readU32();
            end = start + quint32(cursor.readUleb128());
            break;
        default: return otherwise;
        }
        const std::span<const quint8> expression = cursor.readBytes(cursor.readUleb128());
        if (cursor.failed())
            break;
        if (kind == DefaultLocation)
            otherwise = expression;
        else if (address >= start && address < end)
            return expression;
    }
    return otherwise;
}

// Pairs of addresses that count from the base, each with an expression behind a length of 2 bytes. A start of
// 0xFFFFFFFF sets the base; a pair of zeros ends the list (DWARF 4, section 2.6.2).
std::span<const quint8> listEntry2(DwarfCompilationUnit &unit, ByteCursor cursor, quint32 address)
{
    quint32 base = unit.baseAddress();
    while (!cursor.atEnd()) {
        const quint32 start = cursor.readU32();
        const quint32 end = cursor.readU32();
        if (start == 0 && end == 0)
            break;
        if (start == ~quint32(0)) {
            base = end;
            continue;
        }
        const std::span<const quint8> expression = cursor.readBytes(cursor.readU16());
        if (!cursor.failed() && address >= start + base && address < end + base)
            return expression;
    }
    return {};
}

} // namespace

std::span<const quint8> locationListEntry(DwarfCompilationUnit &unit, quint64 offset, quint32 address)
{
    const DwarfSections &sections = unit.file().sections();
    if (unit.version() >= 5)
        return listEntry5(unit, sections.cursorAt(sections.locationLists, offset), address);
    return listEntry2(unit, sections.cursorAt(sections.locations, offset), address);
}
