#include "toolchain/Machine.h"

#include "base/ByteCursor.h"

#include <QMap>

using namespace Qt::StringLiterals;

namespace {

using Numbers = QMap<quint64, quint64>;
using Texts = QMap<quint64, QString>;

// The attributes of the whole file.
//
//     'A' { length 4, vendor name, { tag, length 4, { tag, value }... }... }...
//
// Lengths include themselves; the tag of a file's attributes is 1. Values are numbers (ULEB128) or texts.
struct Attributes
{
    Numbers numbers;
    Texts texts;
};

constexpr quint64 tagFile = 1, tagCpuRawName = 4, tagCpuName = 5, tagCompatibility = 32;

bool isText(quint64 tag, bool isArm)
{
    if (isArm && tag < tagCompatibility)
        return tag == tagCpuRawName || tag == tagCpuName;
    return tag % 2 == 1;
}

Attributes readAttributes(ByteCursor cursor, QByteArrayView vendor)
{
    const bool isArm = vendor == "aeabi";
    Attributes attributes;
    if (cursor.readU8() != 'A')
        return attributes;
    while (!cursor.atEnd()) {
        const quint32 length = cursor.readU32();
        ByteCursor part = cursor.take(length < 4 ? 0 : length - 4);
        if (part.readString() != vendor)
            continue;
        while (!part.atEnd()) {
            const qsizetype start = part.offset();
            const quint64 scope = part.readUleb128();
            const quint32 scopeLength = part.readU32();
            const quint64 headerLength = quint64(part.offset() - start);
            ByteCursor list = part.take(scopeLength < headerLength ? 0 : scopeLength - headerLength);
            while (scope == tagFile && !list.atEnd()) {
                const quint64 tag = list.readUleb128();
                if (isArm && tag == tagCompatibility) {
                    list.readUleb128();
                    list.readString();
                } else if (isText(tag, isArm)) {
                    attributes.texts[tag] = QString::fromLatin1(list.readString());
                } else {
                    attributes.numbers[tag] = list.readUleb128();
                }
            }
        }
    }
    return attributes;
}

// Tag_CPU_arch, the -march= of the M profile.
struct ArmArchitecture
{
    quint64 number;
    const char *name;
    bool hasHardFloat;
};
constexpr ArmArchitecture armArchitectures[] = {
    {11, "armv6-m", false},      {12, "armv6-m", false},     {10, "armv7-m", false},       {13, "armv7e-m", true},
    {16, "armv8-m.base", false}, {17, "armv8-m.main", true}, {21, "armv8.1-m.main", true},
};

Machine armMachine(const Attributes &attributes)
{
    constexpr quint64 tagCpuArch = 6, tagCpuArchProfile = 7, tagFpArch = 10, tagAbiVfpArgs = 28;
    Machine machine{Machine::Arm, {}, 0};
    const quint64 architecture = attributes.numbers.value(tagCpuArch);
    const bool isHard = attributes.numbers.value(tagAbiVfpArgs) == 1;
    const bool isMicrocontroller =
        attributes.numbers.value(tagCpuArchProfile) == 'M' || architecture == 11 || architecture == 12;
    const QString cpu = attributes.texts.value(tagCpuName).toLower();
    if (cpu.startsWith(u"cortex-"_s)) {
        machine.options += u"-mcpu="_s + cpu;
    } else {
        for (const ArmArchitecture &row : armArchitectures)
            if (row.number == architecture && (architecture != 10 || isMicrocontroller))
                machine.options +=
                    u"-march="_s + QLatin1StringView(row.name) + (row.hasHardFloat && isHard ? u"+fp"_s : QString());
    }
    if (isMicrocontroller)
        machine.options += u"-mthumb"_s;
    if (isHard)
        machine.options += u"-mfloat-abi=hard"_s;
    // An object that was told its processor knows more than one that was not, and floating point is needed by
    // all once it is by one.
    machine.rank = architecture + (attributes.numbers.value(tagFpArch) ? 256 : 0) +
                   (isHard ? Machine::hardFloatRank : 0) + (cpu.startsWith(u"cortex-"_s) ? 128 : 0);
    return machine;
}

// "rv32i2p1_m2p0_zicsr2p0" becomes "rv32im": libraries are chosen by the extensions of one letter, and compilers
// don't know each other's newer ones.
QString baseExtensions(const QString &architecture)
{
    QString text;
    for (const QString &extension : architecture.split(u'_', Qt::SkipEmptyParts)) {
        qsizetype end = extension.size();
        const auto isVersion = [&](qsizetype i) { return extension[i].isDigit() || extension[i] == u'p'; };
        while (end > 0 && isVersion(end - 1))
            --end;
        if (text.isEmpty() || end == 1)
            text += extension.first(end);
    }
    return text;
}

Machine riscVMachine(const Attributes &attributes, quint32 flags)
{
    constexpr quint64 tagArch = 5;
    constexpr const char *floatAbis[] = {"", "f", "d", "q"};
    // Flags of the ELF header: compressed instructions 1, calling convention for floating point 6, RV32E 8.
    const QString abi = u"-mabi=ilp32"_s + (flags & 8 ? u"e"_s : QString::fromLatin1(floatAbis[(flags >> 1) & 3]));
    const QString architecture = attributes.texts.value(tagArch);
    Machine machine{Machine::RiscV, {}, quint64(architecture.size())};
    if (!architecture.isEmpty())
        machine.options << u"-march="_s + baseExtensions(architecture) << abi;
    else if ((flags & 0xE) == 0) // without attributes, as clang's assembler leaves it
        machine.options << (flags & 1 ? u"-march=rv32imac"_s : u"-march=rv32i"_s) << abi;
    return machine;
}

Attributes attributesOf(ElfFile &file, const char *section, QByteArrayView vendor)
{
    const ElfSection *found = file.sectionNamed(QString::fromLatin1(section));
    return found ? readAttributes({found->content(), file.bigEndian()}, vendor) : Attributes();
}

} // namespace

std::optional<Machine> machineOf(ElfFile &file)
{
    switch (file.header().e_machine) {
    case EM_ARM: return armMachine(attributesOf(file, ".ARM.attributes", "aeabi"));
    case EM_RISCV: return riscVMachine(attributesOf(file, ".riscv.attributes", "riscv"), file.header().e_flags);
    default: return std::nullopt;
    }
}

std::optional<Machine> machineOf64(std::span<const quint8> file)
{
    constexpr const char *extensions[] = {"", "f", "fd", "fd"}, *abis[] = {"", "f", "d", "q"};
    ByteCursor header(file, false); // Elf64_Ehdr: e_machine at 18, e_flags at 48
    header.skip(18);
    const quint16 machine = header.readU16();
    header.skip(28);
    const quint32 flags = header.readU32(), floatAbi = (flags >> 1) & 3;
    if (header.failed() || file[EI_CLASS] != ELFCLASS64 || machine != EM_RISCV)
        return std::nullopt;
    const QString march = u"-march=rv64ima"_s + QLatin1StringView(extensions[floatAbi]) + (flags & 1 ? u"c"_s : u""_s);
    return Machine{Machine::RiscV, {march, u"-mabi=lp64"_s + QLatin1StringView(abis[floatAbi])}, floatAbi};
}

bool is64Bit(const QStringList &options)
{
    return std::ranges::any_of(options, [](const QString &option) {
        return option.startsWith(u"-march=rv64"_s) || option.startsWith(u"-mabi=lp64"_s) ||
               option.startsWith(u"--target=riscv64"_s);
    });
}

std::optional<Machine::Architecture> architectureOf(const QStringList &options)
{
    constexpr const char *riscV[] = {"-march=rv",      "-mabi=ilp32",  "-mabi=lp64",
                                     "--target=riscv", "-mcpu=sifive", "-mcmodel=med"};
    constexpr const char *arm[] = {"-march=arm",     "-mcpu=", "-mthumb",     "--target=arm",
                                   "--target=thumb", "-mfpu=", "-mfloat-abi="};
    const auto startsWithOneOf = [](const QString &option, const auto &prefixes) {
        return std::ranges::any_of(prefixes, [&](auto *p) { return option.startsWith(QLatin1StringView(p)); });
    };
    for (const QString &option : options) {
        if (startsWithOneOf(option, riscV))
            return Machine::RiscV;
        if (startsWithOneOf(option, arm))
            return Machine::Arm;
    }
    return std::nullopt;
}

bool isMachineOption(const QString &option)
{
    constexpr const char *prefixes[] = {
        "-mcpu=", "-march=", "-mabi=", "-mfpu=", "-mfloat-abi=", "-mtune=", "-mcmodel=", "--target="};
    constexpr const char *words[] = {"-mthumb", "-marm", "-mlittle-endian", "-mbig-endian", "-msoft-float"};
    return std::ranges::any_of(prefixes, [&](auto *p) { return option.startsWith(QLatin1StringView(p)); }) ||
           std::ranges::any_of(words, [&](auto *w) { return option == QLatin1StringView(w); });
}
