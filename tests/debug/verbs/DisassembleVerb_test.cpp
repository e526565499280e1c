#include "debug/verbs/CompiledProgram.h"
#include "support/QtPrinters.h"

#include <QMap>
#include <QRegularExpression>

namespace {

// Not as a raw literal of the other tests: the listing shows these lines.
const char listedText[] = "int table[4] = {1, 2, 3, 4};\n"
                          "volatile int flag;\n"
                          "__attribute__((noinline)) static int twice(int a)\n"
                          "{\n"
                          "    return 2 * a + table[a & 3];\n"
                          "}\n"
                          "extern \"C\" int main()\n"
                          "{\n"
                          "    int total = 0;\n"
                          "    for (int i = 0; i < 4; ++i) {\n"
                          "        if (flag) total += twice(i);\n"
                          "    }\n"
                          "    return total ? 1000000007 : 3;\n"
                          "}\n";

struct ListedInstruction
{
    int size = 0;
    QString mnemonic;
    QString target; // of a branch, as hexadecimal digits
};
using Listed = QMap<quint32, ListedInstruction>;

// One spelling for what has several: widths and the names of conditions.
QString oneSpelling(QString mnemonic)
{
    mnemonic.remove(u".w"_s).remove(u".n"_s);
    const auto replaceEnd = [&](const QString &from, const QString &to) {
        if (mnemonic.endsWith(from))
            mnemonic = mnemonic.chopped(from.size()) + to;
    };
    replaceEnd(u"hs"_s, u"cs"_s);
    replaceEnd(u"lo"_s, u"cc"_s);
    return mnemonic;
}

Listed ourListing(const QString &elf)
{
    Listed listed;
    static const QRegularExpression row(u"^    0x([0-9a-f]{8})  (.{9}) +(\\S+) *(.*)$"_s);
    static const QRegularExpression target(u"0x([0-9a-f]+) <"_s);
    const ProgramResult result = runProgram(u"vnDump"_s, {u"disassemble"_s, elf});
    EXPECT_EQ(result.status, 0) << result.error.toStdString();
    EXPECT_TRUE(result.error.isEmpty()) << result.error.toStdString();
    for (const QString &line : lines(result)) {
        if (const auto found = row.match(line); found.hasMatch())
            listed[found.captured(1).toUInt(nullptr, 16)] = {int(found.captured(2).remove(u' ').size() / 2),
                                                             oneSpelling(found.captured(3)),
                                                             target.match(found.captured(4)).captured(1)};
    }
    return listed;
}

Listed objdumpListing(const QString &objdump, const QString &elf)
{
    Listed listed;
    static const QRegularExpression row(u"^ *([0-9a-f]+):\t([0-9a-f ]+?) *(?:\t(\\S+)\\s*(.*))?$"_s);
    static const QRegularExpression target(u"(?:^|,)\\s*([0-9a-f]+) <[^-]*>$"_s);
    for (const QString &line : lines(runProgram(objdump, {u"-d"_s, u"-z"_s, elf}))) {
        if (const auto found = row.match(line); found.hasMatch())
            listed[found.captured(1).toUInt(nullptr, 16)] = {int(found.captured(2).remove(u' ').size() / 2),
                                                             oneSpelling(found.captured(3)),
                                                             target.match(found.captured(4)).captured(1)};
    }
    return listed;
}

// The same addresses, lengths and branch targets; mnemonics but for spellings, of which there may be as many as
// `maximumOther` parts in a hundred.
void expectObjdumps(const QString &elf, const QString &objdump, double maximumOther)
{
    const Listed ours = ourListing(elf), theirs = objdumpListing(objdump, elf);
    ASSERT_GT(theirs.size(), 20);
    EXPECT_EQ(ours.keys(), theirs.keys()) << elf.toStdString();
    qsizetype others = 0, told = 0;
    for (auto row = theirs.begin(); row != theirs.end(); ++row) {
        const ListedInstruction our = ours.value(row.key());
        if (our.size != row->size || (!row->target.isEmpty() && our.target != row->target)) {
            ADD_FAILURE() << std::hex << row.key() << ' ' << our.mnemonic.toStdString() << ' '
                          << our.target.toStdString() << ", not " << row->mnemonic.toStdString() << ' '
                          << row->target.toStdString();
            if (++told == 5)
                return;
        }
        others += our.mnemonic != row->mnemonic;
    }
    EXPECT_LT(double(others), maximumOther / 100 * double(theirs.size())) << elf.toStdString();
}

const char *objdumpOf(bool isArm)
{
    return isArm ? "arm-none-eabi-objdump" : "riscv64-unknown-elf-objdump";
}

struct WholeLibrary
{
    const char *what;
    QStringList compiler, linker; // the linker's name and its options
    const char *library;
    bool isArm;
};

// Every function of a C library or of the compiler's own, linked into one image.
const std::vector<WholeLibrary> &wholeLibraries()
{
    const QString arm = u"arm-none-eabi-gcc"_s, riscV = u"riscv64-unknown-elf-gcc"_s;
    static const std::vector<WholeLibrary> list = {
        {"ARMv7E-M with floats",
         {arm, u"-mcpu=cortex-m4"_s, u"-mthumb"_s, u"-mfloat-abi=hard"_s, u"-mfpu=fpv4-sp-d16"_s},
         {u"arm-none-eabi-ld"_s},
         "libc.a",
         true},
        {"ARMv6-M", {arm, u"-mcpu=cortex-m0"_s, u"-mthumb"_s}, {u"arm-none-eabi-ld"_s}, "libc.a", true},
        {"Arm", {arm, u"-marm"_s, u"-march=armv5te"_s}, {u"arm-none-eabi-ld"_s}, "libm.a", true},
        {"RV32IMAC",
         {riscV, u"-march=rv32imac"_s, u"-mabi=ilp32"_s},
         {u"riscv64-unknown-elf-ld"_s, u"-m"_s, u"elf32lriscv"_s},
         "libgcc.a",
         false},
    };
    return list;
}

class DisassembleVerb : public CompiledProgramTest
{
protected:
    DisassembleVerb() : CompiledProgramTest(listedText) {}
};

TEST(DisassembleVerbLibraries, EveryInstructionIsObjdumps)
{
    for (const WholeLibrary &row : wholeLibraries()) {
        SCOPED_TRACE(row.what);
        const QString compiler = QStandardPaths::findExecutable(row.compiler.first());
        if (compiler.isEmpty() || tool(objdumpOf(row.isArm)).isEmpty())
            GTEST_SKIP() << row.compiler.first().toStdString() << " isn't installed";
        const ProgramResult place = runProgram(
            compiler, row.compiler.mid(1) + QStringList{u"-print-file-name="_s + QString::fromLatin1(row.library)});
        const TemporaryFolder folder;
        const QString elf = folder.path("whole.elf");
        runProgram(QStandardPaths::findExecutable(row.linker.first()),
                   row.linker.mid(1) + QStringList{u"--whole-archive"_s, QString::fromUtf8(place.out).trimmed(),
                                                   u"--unresolved-symbols=ignore-all"_s,
                                                   u"--allow-multiple-definition"_s, u"-e"_s, u"0"_s, u"-o"_s, elf});
        // RISC-V's objdump writes "add" where an immediate is added, and so on.
        expectObjdumps(elf, tool(objdumpOf(row.isArm)), row.isArm ? 4 : 25);
    }
}

TEST_P(DisassembleVerb, InstructionsAreObjdumps)
{
    if (tool(objdumpOf(GetParam().isArm)).isEmpty())
        GTEST_SKIP() << objdumpOf(GetParam().isArm) << " isn't installed";
    expectObjdumps(elf, tool(objdumpOf(GetParam().isArm)), 30);
}

TEST_P(DisassembleVerb, NamesTargetsLiteralsAndLines)
{
    QSet<QString> targets, values;
    QSet<int> sourceLines;
    for (const QJsonValue &value :
         json({u"disassemble"_s, u"--json"_s, u"--source"_s, elf, u"--function"_s, u"main"_s})) {
        const QJsonObject row = value.toObject();
        EXPECT_EQ(row[u"symbol"].toString(), u"main"_s);
        targets.insert(row[u"targetSymbol"].toString());
        values.insert(row[u"valueSymbol"].toString());
        values.insert(row[u"referenceSymbol"].toString());
        if (!row[u"line"].isNull())
            sourceLines.insert(row[u"line"].toInt());
        EXPECT_EQ(row[u"file"].isNull(), row[u"line"].isNull());
    }
    EXPECT_TRUE(targets.contains(u"twice(int)"_s));
    EXPECT_TRUE(values.contains(u"flag"_s));
    EXPECT_TRUE(sourceLines.contains(8) && sourceLines.contains(11) && sourceLines.contains(13));
}

INSTANTIATE_TEST_SUITE_P(Compilers, DisassembleVerb, testing::ValuesIn(compilers()), nameOfCompiler);

// The whole listing of a small program, whose bytes this writes down.
TEST(DisassembleVerbText, ShowsSectionsSymbolsSourceAndData)
{
    const QString compiler = tool("arm-none-eabi-gcc");
    if (compiler.isEmpty())
        GTEST_SKIP() << "arm-none-eabi-gcc isn't installed";
    const TemporaryFolder folder;
    folder.write("main.c", "int main(void);\n\nint main(void)   {\n    return 0;\n}\n");
    const QString assembly = folder.write("main.s", R"(
        .syntax unified
        .cpu cortex-m3
        .thumb
        .file 1 "main.c"
        .text
        .global main
        .type main, %function
        .thumb_func
    main:
        .loc 1 3
        push {r4, lr}
        .loc 1 4
        ldr r0, =counter
        bl other
        cmp r0, #0
        beq main
        movw r0, #:lower16:counter
        movt r0, #:upper16:counter
        pop {r4, pc}
        .size main, . - main
        .ltorg
        .byte 1, 2
        .align 1
        .type other, %function
        .thumb_func
    other:
        bx lr
        .size other, . - other
        .comm counter, 4
    )");
    const QString elf = folder.path("main.elf");
    const ProgramResult built =
        runProgram(compiler, {u"-mcpu=cortex-m3"_s, u"-mthumb"_s, u"-nostdlib"_s, u"-Wl,-e,main"_s,
                              u"-Wl,-Ttext=0x8000"_s, u"-Wl,-Tbss=0x20000000"_s,
                              u"-fdebug-prefix-map="_s + folder.root() + u"=."_s, assembly, u"-o"_s, elf});
    ASSERT_EQ(built.status, 0) << built.error.toStdString();
    const ProgramResult result = runProgram(u"vnDump"_s, {u"disassemble"_s, elf});
    EXPECT_EQ(result.out.toStdString(), R"(section .text
<main>
    0x00008000  b510      push    {r4, lr}
    0x00008002  4805      ldr     r0, [pc, #20] ; 0x00008018 = 0x20000000 <counter>
    0x00008004  f000 f80b bl      0x801e <other>
    0x00008008  2800      cmp     r0, #0
    0x0000800a  f43f aff9 beq.w   0x8000 <main>
    0x0000800e  f240 0000 movw    r0, #0
    0x00008012  f2c2 0000 movt    r0, #8192 ; 0x20000000 <counter>
    0x00008016  bd10      pop     {r4, pc}
    0x00008018  20000000  .word   0x20000000 <counter>
    0x0000801c  0201      .short  0x0201
<other>
    0x0000801e  4770      bx      lr

)");
    const ProgramResult ranged = runProgram(u"vnDump"_s, {u"disassemble"_s, elf, u"--range"_s, u"0x8008-0x800b"_s});
    EXPECT_EQ(ranged.out.toStdString(), R"(section .text
    0x00008008  2800      cmp     r0, #0
    0x0000800a  f43f aff9 beq.w   0x8000 <main>

)");
    // The row of an instruction is shown with the lines up to it; the assembler gives the file by its relative path.
    const ProgramResult sourced =
        runProgram(u"vnDump"_s, {u"disassemble"_s, elf, u"--source"_s, u"--range"_s, u"0x8000-0x8003"_s});
    EXPECT_EQ(sourced.out.toStdString(), R"(section .text
--- main.c -- 3 --------------------------------------------
<main>
    0x00008000  b510      push    {r4, lr}
--- main.c -- 4 --------------------------------------------
    0x00008002  4805      ldr     r0, [pc, #20] ; 0x00008018 = 0x20000000 <counter>

)");
    const QStringList nowhere = {u"disassemble"_s, elf, u"--range"_s, u"0x100-0x200"_s};
    EXPECT_EQ(runProgram(u"vnDump"_s, nowhere).status, 1);
    EXPECT_EQ(runProgram(u"vnDump"_s, nowhere + QStringList{u"--json"_s}).out, "[]\n");
    const ProgramResult unknown = runProgram(u"vnDump"_s, {u"disassemble"_s, elf, u"--function"_s, u"nobody"_s});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_TRUE(unknown.error.contains("no function \"nobody\"")) << unknown.error.toStdString();
    for (const QString &wrong : {u"8008"_s, u"0x8010-0x8000"_s, u"-"_s, u"main"_s})
        EXPECT_EQ(runProgram(u"vnDump"_s, {u"disassemble"_s, elf, u"--range"_s, wrong}).status, 2);
}

} // namespace
