#include "debug/disassembly/Disassembler.h"

#include "base/ByteCursor.h"
#include "base/HException.h"
#include "debug/disassembly/ArmDisassembler.h"
#include "debug/disassembly/RiscVDisassembler.h"
#include "elf/ElfFile.h"

using namespace Qt::StringLiterals;

namespace {

// Addenda to, and Errata in, the ABI for the Arm Architecture, section 3.3.5
enum ArmAttribute : quint32 { CpuArchitecture = 6, CpuArchitectureProfile = 7, Compatibility = 32 };
constexpr int microcontrollerArchitectures[] = {11, 12, 13, 16, 17, 21}; // v6-M, v6S-M, v7E-M, v8-M twice, v8.1-M

// Without attributes: a file that has no Arm code is taken for a microcontroller's.
bool isMicrocontroller(const ElfFile &file)
{
    if (const auto profile = buildAttribute(file, CpuArchitectureProfile); profile && *profile != "0")
        return profile->toInt() == 'M';
    if (const auto architecture = buildAttribute(file, CpuArchitecture); architecture && *architecture != "0")
        return std::ranges::find(microcontrollerArchitectures, architecture->toInt()) !=
               std::end(microcontrollerArchitectures);
    return std::ranges::none_of(file.mappingSymbols(), [](const ElfSymbol *symbol) {
        return symbol->rawName() == "$a" || symbol->rawName().startsWith("$a.");
    });
}

} // namespace

std::unique_ptr<Disassembler> Disassembler::of(const ElfFile &file)
{
    constexpr quint32 machineRiscV = 243;
    switch (file.header().e_machine) {
    case EM_ARM: {
        const bool codeBigEndian = file.bigEndian() && !(file.header().e_flags & EF_ARM_BE8);
        return std::make_unique<ArmDisassembler>(isMicrocontroller(file), codeBigEndian);
    }
    case machineRiscV: {
        const ElfSymbol *symbol = file.symbolNamed(u"__global_pointer$"_s);
        return std::make_unique<RiscVDisassembler>(symbol ? std::optional(symbol->value()) : std::nullopt);
    }
    }
    throw HException(u"no disassembler for machine %1: %2"_s.arg(file.header().e_machine).arg(file.path()));
}

DisassembledInstruction Disassembler::noInstruction(const char *directive, quint64 value, quint32 size)
{
    DisassembledInstruction data;
    data.mnemonic = directive;
    data.operands = "0x" + QByteArray::number(value, 16).rightJustified(qsizetype(2 * size), '0');
    data.length = size;
    return data;
}

// "A", then for each vendor: length 4 bytes, name, then subsections: tag ULEB128 (1: of the file), length 4 bytes,
// pairs of tag and value. Odd tags above 32 and the vendor's text tags have a text as value, the others a number.
std::optional<QByteArray> buildAttribute(const ElfFile &file, quint32 tag)
{
    const bool isArm = file.isArm();
    const ElfSection *section = file.sectionNamed(isArm ? u".ARM.attributes"_s : u".riscv.attributes"_s);
    if (!section)
        return {};
    constexpr quint64 ofFile = 1;
    const auto isText = [&](quint64 asked) {
        return isArm ? asked == 4 || asked == 5 || (asked > Compatibility && asked % 2 == 1) : asked % 2 == 1;
    };
    ByteCursor cursor(section->content(), file.bigEndian());
    if (cursor.readU8() != 'A')
        return {};
    while (!cursor.atEnd()) {
        const quint32 length = cursor.readU32();
        ByteCursor vendor = cursor.take(length < 4 ? 0 : length - 4);
        if (length < 4 || vendor.readString() != (isArm ? "aeabi" : "riscv"))
            continue;
        while (!vendor.atEnd()) {
            const qsizetype start = vendor.offset();
            const quint64 scope = vendor.readUleb128();
            const quint32 size = vendor.readU32();
            const quint32 head = quint32(vendor.offset() - start);
            ByteCursor pairs = vendor.take(size < head ? 0 : size - head);
            while (scope == ofFile && !pairs.atEnd()) {
                const quint64 name = pairs.readUleb128();
                if (isArm && name == Compatibility)
                    pairs.readUleb128();
                const QByteArray value = isText(name) || (isArm && name == Compatibility)
                                             ? pairs.readString().toByteArray()
                                             : QByteArray::number(pairs.readUleb128());
                if (name == tag && !pairs.failed())
                    return value;
            }
        }
    }
    return {};
}
