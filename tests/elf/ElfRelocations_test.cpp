#include "base/ByteOrder.h"
#include "elf/ElfFile.h"
#include "elf/ElfRelocations.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"

namespace {

constexpr quint16 machineRiscV = 243;

struct RelocationStep
{
    quint32 offset, type;
    quint32 value; // of the symbol
};

struct RelocationRow
{
    const char *what;
    quint16 machine;
    bool bigEndian;
    bool hasAddend;
    const char *before;
    std::vector<RelocationStep> steps;
    const char *after;
    int unknown = 0;
};

const RelocationRow relocationRows[] = {
    {"a word, its addend in place", EM_ARM, false, false, "04000000", {{0, R_ARM_ABS32, 0x1000}}, "04100000"},
    {"the same, big-endian", EM_ARM, true, false, "00000004", {{0, R_ARM_ABS32, 0x1000}}, "00001004"},
    {"a word, its addend in the table", EM_ARM, false, true, "04000000", {{0, R_ARM_ABS32, 0x1000}}, "00100000"},
    {"not at a word's place", EM_ARM, false, false, "ff00000000ff", {{1, R_ARM_ABS32, 0x12345678}}, "ff78563412ff"},
    {"a call in data", EM_ARM, false, false, "00000000", {{0, R_ARM_THM_PC22, 0x1000}}, "00000000", 1},
    {"behind the end", EM_ARM, false, false, "000000", {{0, R_ARM_ABS32, 1}, {9, R_ARM_ABS8, 1}}, "000000", 2},
    {"a difference", machineRiscV, false, true, "00000000", {{0, 35, 0x1010}, {0, 39, 0x1000}}, "10000000"},
    {"one of halfwords that wraps", machineRiscV, false, true, "0000", {{0, 34, 0x10}, {0, 38, 0x20}}, "f0ff"},
    {"6 bits keep their neighbours", machineRiscV, false, true, "c0", {{0, 53, 0x45}, {0, 52, 0x41}}, "c4"},
    {"a ULEB128 keeps its length", machineRiscV, false, true, "8000", {{0, 60, 0x1234}, {0, 61, 0x1134}}, "8002"},
    {"a ULEB128 without end", machineRiscV, false, true, "8080", {{0, 60, 1}}, "8080", 1},
    {"marks of the linker", machineRiscV, false, true, "01", {{0, 51, 7}, {0, 43, 7}, {0, 0, 7}}, "01"},
};

void appendWord(QByteArray &bytes, quint32 value, bool bigEndian)
{
    bytes.resize(bytes.size() + 4);
    insertInteger(bytes.data(), bytes.size() - 4, value, 4, bigEndian);
}

} // namespace

TEST(ElfRelocations, AreCarriedOut)
{
    for (const RelocationRow &row : relocationRows) {
        ElfBuilder builder;
        builder.machine = row.machine;
        builder.bigEndian = row.bigEndian;
        QByteArray table;
        for (size_t i = 0; i < row.steps.size(); ++i) {
            appendWord(table, row.steps[i].offset, row.bigEndian);
            appendWord(table, ELF32_R_INFO(quint32(i + 1), row.steps[i].type), row.bigEndian);
            if (row.hasAddend)
                appendWord(table, 0, row.bigEndian);
            builder.symbols += ElfBuilder::Symbol{"s" + QByteArray::number(i), row.steps[i].value, 0, SHN_ABS};
        }
        QByteArray bytes = QByteArray::fromHex(row.before);
        builder.sections += ElfBuilder::Section{.name = ".debug_line", .content = bytes};
        builder.sections += ElfBuilder::Section{
            .name = ".rel", .type = quint32(row.hasAddend ? SHT_RELA : SHT_REL), .content = table, .info = 1};
        ElfFile file;
        file.parse(ByteImage::fromBytes(builder.build()));
        const auto relocations = relocationsOf(file, *file.sectionAt(1));
        EXPECT_EQ(relocations.size(), row.steps.size()) << row.what;
        const int unknown =
            applyRelocations(file, relocations, {reinterpret_cast<quint8 *>(bytes.data()), size_t(bytes.size())},
                             [](const ElfSymbol &symbol) { return symbol.value(); });
        EXPECT_EQ(bytes.toHex(), row.after) << row.what;
        EXPECT_EQ(unknown, row.unknown) << row.what;
    }
}
