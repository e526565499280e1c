#include "debug/dwarf/DwarfFile.h"
#include "debug/dwarf/DwarfOperations.h"
#include "elf/ElfFile.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QRegularExpression>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

QByteArray elfText(const QByteArray &image)
{
    ElfFile file;
    file.parse(ByteImage::fromBytes(image));
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = ::open_memstream(&text, &size);
    file.dump(stream);
    std::fclose(stream);
    const QByteArray result(text, qsizetype(size));
    std::free(text);
    return result;
}

TEST(TextDump, ShowsHeadersSectionsProgramsAndSymbols)
{
    ElfBuilder elf;
    elf.bigEndian = true;
    elf.sections = {{".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x8000, "code"}};
    elf.segments = {{PT_LOAD, 0, 0x8000, 0x9000, 4, 0x10}};
    elf.symbols = {{"zero", 0x8002, ELF32_ST_INFO(STB_GLOBAL, STT_OBJECT), 1, 2}, {"alpha", 0x8004, 0, 1, 0}};
    const QByteArray text = elfText(elf.build());
    EXPECT_TRUE(text.startsWith("\nelf header\ne_ident    :              EI_MAG0   : 0x7F\n"
                                "             EI_MAG1   : E\n             EI_MAG2   : L\n             EI_MAG3   : F\n"
                                "             EI_CLASS  : ELFCLASS32\n             EI_DATA   : ELFDATA2MSB\n"
                                "             EI_VERSION: 0x01\ne_type      : 0x1\ne_machine   : 0x28\n"));
    EXPECT_TRUE(text.contains("\nHeader ok.\nSections\n--------\n\nsection header\nsh_name     : 0x0 \n"
                              "sh_type     : 0x0 SHT_NULL\nsh_flags    : 0x0 \n"));
    EXPECT_TRUE(text.contains("sh_flags    : 0x6 SHF_ALLOC+SHF_EXECINSTR\nsh_addr     : 0x8000\n"));
    EXPECT_TRUE(text.contains("Programs\n--------\n\nprogram header\np_type      : PT_LOAD\n"));
    EXPECT_TRUE(text.contains("p_vaddr     : 0x8000\np_paddr     : 0x9000\np_filesz    : 0x4\np_memsz     : 0x10\n"));
    const qsizetype byName = text.indexOf("Symbols by name\n---------------\n");
    EXPECT_GT(byName, 0);
    const QByteArray zero = "zero:\n  st_value: 0x8002\n  st_size : 0x2\n  st_info : 0x11\n  st_other: 0x0\n"
                            "  st_shndx: 0x1\n\n";
    EXPECT_GT(text.indexOf(zero), text.indexOf("alpha:\n", byName));
    EXPECT_TRUE(text.endsWith("0x8002 : zero\n0x8004 : alpha\n"));
}

TEST(TextDump, TellsLocationExpressions)
{
    const struct
    {
        QByteArray bytes;
        const char *text;
    } rows[] = {
        {"", ""},
        {"\x91\x6c", "DW_OP_fbreg: -20"},
        {"\x03\x78\x56\x34\x12", "DW_OP_addr: 0x12345678"},
        {"\x08\xff\x09\xff", "DW_OP_const1u: 255, DW_OP_const1s: -1"},
        {"\x30\x4f\x53\x93\x04", "DW_OP_lit0, DW_OP_lit31, DW_OP_reg3, DW_OP_piece: 4"},
        {"\x7d\x08\x92\x21\x7c", "DW_OP_breg13: 8, DW_OP_bregx: 33 -4"},
        {"\x9d\x05\x03\x1a\x2f\xfd\xff", "DW_OP_bit_piece: 5 3, DW_OP_and, DW_OP_skip: -3"},
        {"\x9e\x08\x01\x00\x00\x00\x00\x00\x00\x00"_ba, "DW_OP_implicit_value_8: 1"},
        {"\x9e\x03\x01\x02\xff", "DW_OP_implicit_value: 0x01 0x02 0xff"},
        {"\xa3\x01\x50\x9f", "DW_OP_entry_value: (DW_OP_reg0), DW_OP_stack_value"},
        {"\xa4\x2a\x04\x07\x00\x00\x00"_ba, "DW_OP_const_type: 42_4: 7"},
        {"\x9f\x02\x50", "DW_OP_stack_value, 0x02"},
        {"\x03\x78\x56", "DW_OP_addr: 0x00000000..."},
        {"\xa3\x09\x50", "DW_OP_entry_value: (...)..."},
    };
    for (const auto &row : rows) {
        const ByteCursor cursor({reinterpret_cast<const quint8 *>(row.bytes.constData()), size_t(row.bytes.size())},
                                false);
        EXPECT_EQ(dwarfExpressionText(cursor, {}), row.text);
    }
    QByteArray nested;
    for (int depth = 0; depth < 100; ++depth)
        nested = "\xa3" + QByteArray(1, char(qMin<qsizetype>(nested.size(), 127))) + nested;
    EXPECT_LT(dwarfExpressionText(
                  ByteCursor({reinterpret_cast<const quint8 *>(nested.constData()), size_t(nested.size())}, false), {})
                  .size(),
              2000);
}

QStringList matches(const char *pattern, const QByteArray &text)
{
    QStringList found;
    auto match = QRegularExpression(QString::fromLatin1(pattern), QRegularExpression::MultilineOption)
                     .globalMatch(QString::fromUtf8(text));
    while (match.hasNext()) {
        const QRegularExpressionMatch one = match.next();
        found += QStringList(one.capturedTexts().mid(1)).join(u' ');
    }
    return found;
}

struct Compilation
{
    const char *compiler;
    QStringList options;
};

// Entries, expressions, location lists and macros of compiled programs, as readelf sees them.
TEST(TextDump, AgreesWithReadelf)
{
    const QString readelf = QStandardPaths::findExecutable(u"arm-none-eabi-readelf"_s);
    if (readelf.isEmpty())
        GTEST_SKIP() << "arm-none-eabi-readelf is missing";
    const TemporaryFolder folder;
    const QString source =
        folder.write("a.c", "#define SQUARE(x) ((x) * (x))\n"
                            "struct motor { int speed; unsigned mode : 3; };\n"
                            "struct motor motors[4]; volatile int sink;\n"
                            "static inline int twice(int v) { return SQUARE(v) * 2; }\n"
                            "__attribute__((noinline)) static int step(struct motor *m, int by)\n"
                            "{ for (int i = 0; i < by; ++i) sink = twice(m->speed + i); return sink; }\n"
                            "int run(int n, long long wide) { if (wide > 5) n += (int)(wide * 3);\n"
                            "  return step(&motors[n & 3], n); }\n"
                            "void _start(void) { run(3, 7); for (;;) ; }\n");
    const QStringList riscv{u"-march=rv32imac"_s, u"-mabi=ilp32"_s, u"-nostdlib"_s, u"-g3"_s,
                            u"-Wl,--no-warn-rwx-segments"_s};
    const Compilation compilations[] = {
        {"arm-none-eabi-gcc", {u"-mthumb"_s, u"-mcpu=cortex-m3"_s, u"-nostdlib"_s, u"-g3"_s}},
        {"arm-none-eabi-gcc", {u"-mcpu=cortex-r5"_s, u"-mbig-endian"_s, u"-nostdlib"_s, u"-g3"_s, u"-gdwarf-4"_s}},
        {"arm-none-eabi-gcc", {u"-mthumb"_s, u"-mcpu=cortex-m3"_s, u"-nostdlib"_s, u"-g"_s, u"-gdwarf-2"_s}},
        {"riscv64-unknown-elf-gcc", riscv},
        {"riscv64-unknown-elf-gcc", riscv + QStringList{u"-gdwarf-4"_s}},
    };
    int compared = 0;
    for (const Compilation &compilation : compilations) {
        const QString compiler = QStandardPaths::findExecutable(QString::fromLatin1(compilation.compiler));
        if (compiler.isEmpty())
            continue;
        SCOPED_TRACE(compilation.compiler + compilation.options.join(u' ').toStdString());
        const QString program = folder.path("a.elf");
        const ProgramResult made =
            runProgram(compiler, compilation.options + QStringList{u"-O2"_s, source, u"-lgcc"_s, u"-o"_s, program});
        ASSERT_EQ(made.status, 0) << made.error.toStdString();
        const ProgramResult dump = runProgram(u"vnDump"_s, {u"text"_s, program});
        EXPECT_EQ(dump.status, 0);
        EXPECT_EQ(dump.error, "");
        const auto part = [&](const char *from, const char *to) {
            const qsizetype start = dump.out.indexOf(from), end = to ? dump.out.indexOf(to, start) : -1;
            return start < 0 ? QByteArray() : dump.out.mid(start, end < 0 ? -1 : end - start);
        };
        const auto peer = [&](const char *what) {
            return runProgram(readelf, {u"--debug-dump="_s + QString::fromLatin1(what), program}).out;
        };
        const QByteArray theirs = peer("info");
        const QByteArray ours = part("\nDebugging Information\n", "\nAranges\n");
        const QStringList entries = matches("^0x0*([0-9a-f]+): +(DW_TAG_\\w+)", ours);
        EXPECT_GT(entries.size(), 30);
        EXPECT_EQ(entries, matches("<([0-9a-f]+)>: Abbrev Number: \\d+ \\((DW_TAG_\\w+)\\)", theirs));
        EXPECT_EQ(matches("(DW_OP_[a-z]+)", ours), matches("(DW_OP_[a-z]+)", theirs));
        QStringList attributes = matches("(DW_AT_\\w+) DW_FORM", ours);
        QStringList expected = matches("^ +<[0-9a-f]+> +(DW_AT_\\w+)", theirs);
        attributes.sort(); // an entry's implicit constants come last
        expected.sort();
        EXPECT_EQ(attributes, expected);
        EXPECT_EQ(matches("(DW_OP_[a-z]+)", part("\nLocation Lists\n", nullptr)),
                  matches("(DW_OP_[a-z]+)", peer("loc")));
        EXPECT_EQ(matches("^DW_MACRO_\\w+ lineno (\\d+) macro (.*?) *$", part("\nMacros\n", "\nLocation Lists\n")),
                  matches("^ *DW_MACRO_\\w+ - lineno : (\\d+) macro : (.*?) *$", peer("macro")));
        const QStringList macros = matches("^DW_MACINFO_define lineno (\\d+) macro (SQUARE.*)$", dump.out) +
                                   matches("^DW_MACRO_define_indirect lineno (\\d+) macro (SQUARE.*)$", dump.out);
        EXPECT_EQ(macros.size(), compilation.options.contains(u"-g3"_s) ? 1 : 0);
        ++compared;
    }
    if (compared == 0)
        GTEST_SKIP() << "no cross compiler is there";
}

} // namespace
