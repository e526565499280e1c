#include "elf/ElfRelocations.h"

#include "base/ByteCursor.h"
#include "base/HException.h"
#include "elf/ElfFile.h"

#include <algorithm>

namespace {

enum RiscVRelocation : quint32 { // RISC-V ELF psABI, section 8.5
    RiscVNone = 0,
    RiscV32 = 1,
    RiscV64 = 2,
    RiscVAlign = 43,
    RiscVRelax = 51,
    RiscV32PcRelative = 57,
};

enum Operation : quint8 {
    Set,
    Add,
    Subtract,
    SetUleb128,      // keeps the number's length
    SubtractUleb128, // likewise
    Nothing,
};

// What a relocation does to a number of so many bits at its place.
struct RelocationRow
{
    quint32 type;
    Operation operation;
    quint8 bits;
};

constexpr RelocationRow armRows[] = {
    // ELF for the Arm Architecture, section 5.6
    {R_ARM_NONE, Nothing, 0}, {R_ARM_ABS32, Set, 32},   {R_ARM_ABS16, Set, 16},
    {R_ARM_ABS8, Set, 8},     {R_ARM_SBREL32, Set, 32}, {R_ARM_TLS_LDO32, Set, 32},
};

constexpr RelocationRow riscVRows[] = {
    {RiscVNone, Nothing, 0},
    {RiscVRelax, Nothing, 0},
    {RiscVAlign, Nothing, 0},
    {RiscV32, Set, 32},
    {RiscV64, Set, 64},
    {33, Add, 8},
    {34, Add, 16},
    {35, Add, 32},
    {36, Add, 64},
    {37, Subtract, 8},
    {38, Subtract, 16},
    {39, Subtract, 32},
    {40, Subtract, 64},
    {52, Subtract, 6},
    {53, Set, 6},
    {54, Set, 8},
    {55, Set, 16},
    {56, Set, 32},
    {60, SetUleb128, 0},
    {61, SubtractUleb128, 0},
};

// A number stays within the bytes that it has; a difference is right in the end, whatever SET leaves there first.
bool changeUleb128(std::span<quint8> bytes, const std::function<quint64(quint64)> &change)
{
    ByteCursor cursor(bytes, false);
    quint64 value = change(cursor.readUleb128());
    if (cursor.failed())
        return false;
    for (qsizetype i = 0; i < cursor.offset(); ++i) {
        bytes[size_t(i)] = quint8((bytes[size_t(i)] & 0x80) | (value & 0x7F));
        value >>= 7;
    }
    return true;
}

bool apply(const RelocationRow &row, quint32 value, const ElfRelocation &relocation, std::span<quint8> bytes,
           bool bigEndian)
{
    if (row.operation == Nothing)
        return true;
    if (relocation.offset >= bytes.size())
        return false;
    const std::span<quint8> place = bytes.subspan(relocation.offset);
    if (row.operation == SetUleb128)
        return changeUleb128(place, [&](quint64) { return value; });
    if (row.operation == SubtractUleb128)
        return changeUleb128(place, [&](quint64 old) { return old - value; });
    const quint32 size = (row.bits + 7u) / 8;
    if (place.size() < size)
        return false;
    const quint64 old = extractInteger(place.data(), 0, size, bigEndian);
    quint64 result = value;
    if (row.operation == Add)
        result = old + value;
    else if (row.operation == Subtract)
        result = old - value;
    else if (!relocation.hasAddend)
        result = old + value;
    const quint64 mask = row.bits == 64 ? ~quint64(0) : (quint64(1) << row.bits) - 1;
    insertInteger(place.data(), 0, (old & ~mask) | (result & mask), size, bigEndian);
    return true;
}

} // namespace

std::vector<ElfRelocation> relocationsOf(const ElfFile &file, const ElfSection &section)
{
    std::vector<ElfRelocation> relocations;
    for (const auto &table : file.sections()) {
        const Elf32_Shdr &header = table->header();
        const bool hasAddend = header.sh_type == SHT_RELA;
        if ((header.sh_type != SHT_REL && !hasAddend) || header.sh_info != section.index())
            continue;
        const quint32 rowSize = hasAddend ? 12 : 8; // r_offset, r_info [, r_addend], 4 bytes each
        ByteCursor cursor(table->content(), file.bigEndian());
        const size_t maximumCount = file.image().size() / rowSize; // tables of a damaged file may overlap
        while (cursor.remaining() >= qsizetype(rowSize) && relocations.size() <= maximumCount) {
            const quint32 offset = cursor.readU32();
            const quint32 info = cursor.readU32();
            const qint32 addend = hasAddend ? qint32(cursor.readU32()) : 0;
            const quint32 symbol = ELF32_R_SYM(info);
            relocations.push_back(
                {offset, ELF32_R_TYPE(info), symbol ? file.symbolAtIndex(symbol) : nullptr, addend, hasAddend});
        }
    }
    std::ranges::stable_sort(relocations, {}, &ElfRelocation::offset);
    return relocations;
}

int applyRelocations(const ElfFile &file, const std::vector<ElfRelocation> &relocations, std::span<quint8> bytes,
                     const std::function<quint32(const ElfSymbol &)> &valueOf)
{
    const std::span<const RelocationRow> rows =
        file.isArm() ? std::span<const RelocationRow>(armRows) : std::span<const RelocationRow>(riscVRows);
    int unknown = 0;
    for (const ElfRelocation &relocation : relocations) {
        const auto row = std::ranges::find(rows, relocation.type, &RelocationRow::type);
        const quint32 symbol = relocation.symbol ? valueOf(*relocation.symbol) : 0;
        if (row == rows.end() || !apply(*row, symbol + quint32(relocation.addend), relocation, bytes, file.bigEndian()))
            ++unknown;
    }
    return unknown;
}
