#include "elf/ElfFile.h"
#include "toolchain/ToolchainFixture.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const char *const vectorsSource = "extern int __stack_end__; void Reset_Handler(void);\n"
                                  "__attribute__((section(\".vectors\"), used)) void *const vectors[2] = "
                                  "{&__stack_end__, (void *)Reset_Handler};\n";
const char *const mainSource =
    "volatile int counter = 5; volatile int zero[3]; const char text[] = \"hello\"; int unused(void) { return 7; }\n"
    "void Reset_Handler(void) { for (;;) zero[counter % 3] = text[counter % 5]; }\n";

class Driver : public testing::Test
{
protected:
    ProgramResult cc(const QStringList &arguments, const QStringList &environment = {})
    {
        return runProgram(u"cc"_s, arguments, {}, environment);
    }
    QString path(const char *name) { return folder.path(name); }
    // The commands that cc would run, without the test's folder.
    QString shown(const QString &arguments, const QStringList &environment = {})
    {
        QStringList words = {u"-###"_s};
        for (QString word : arguments.split(u' ', Qt::SkipEmptyParts))
            words += word.replace(u'@', folder.root() + u'/');
        const ProgramResult result = cc(words, environment);
        EXPECT_EQ(result.status, 0) << qPrintable(arguments) << result.error.constData();
        return QString::fromUtf8(result.out)
            .replace(folder.root() + u'/', u"@"_s)
            .replace(QRegularExpression(u"^clang-[0-9]+"_s), u"clang"_s)
            .remove(u" -fdiagnostics-column-unit=byte"_s) // where the compiler knows it
            .trimmed();
    }
    void compile(const char *name, const QStringList &options)
    {
        const QString source = path(name);
        const ProgramResult result = cc(QStringList{u"-c"_s, u"-xc"_s, source, u"-o"_s, objectOf(name)} + options);
        ASSERT_EQ(result.status, 0) << result.error.constData();
    }
    QString objectOf(const char *name) { return path(name).replace(u".c"_s, u".o"_s); }
    // Links the objects by the small device's documents.
    ProgramResult link(const QStringList &objects, const QStringList &options = {})
    {
        folder.write("map.xml", smallMap);
        if (!QFile::exists(path("place.xml")))
            folder.write("place.xml", smallPlacement);
        folder.write("app.ind", (objects.join(u'\n') + u'\n').toUtf8());
        return cc(QStringList{u"-inputfiles"_s, path("app.ind"), u"-memorymap"_s, path("map.xml"), u"-placement"_s,
                              path("place.xml"), u"-o"_s, path("app.elf")} +
                  options);
    }
    void buildSmall(const QStringList &compilerOptions, const QStringList &linkOptions)
    {
        folder.write("vectors.c", vectorsSource);
        folder.write("main.c", mainSource);
        compile("vectors.c", compilerOptions);
        compile("main.c", compilerOptions);
        const ProgramResult result = link({objectOf("vectors.c"), objectOf("main.c")}, linkOptions);
        ASSERT_EQ(result.status, 0) << result.error.constData();
        EXPECT_EQ(result.error.toStdString(), "") << "a clean link warns of nothing";
        elf.load(path("app.elf"));
    }
    quint32 symbol(const char *name)
    {
        const ElfSymbol *found = elf.symbolNamed(QString::fromLatin1(name));
        EXPECT_TRUE(found) << name;
        return found ? found->value() : 0;
    }
    // What every tool chain must make of the small program.
    void checkSmall()
    {
        EXPECT_EQ(symbol("__vectors_load_start__"), 0x08000000u);
        EXPECT_EQ(symbol("vectors"), 0x08000000u);
        EXPECT_EQ(symbol("counter"), symbol("__data_start__"));
        EXPECT_EQ(symbol("__data_start__"), 0x20000000u);
        EXPECT_EQ(symbol("__data_load_start__"), symbol("__rodata_end__") + (symbol("__rodata_end__") & 2 ? 2 : 0));
        EXPECT_EQ(symbol("__data_load_end__") - symbol("__data_load_start__"), symbol("__data_size__"));
        EXPECT_EQ(symbol("__bss_size__"), 12u);
        EXPECT_EQ(symbol("__stack_end__") - symbol("__stack_start__"), 0x100u);
        EXPECT_EQ(symbol("__FLASH_segment_used_end__"), symbol("__data_load_end__"));
        EXPECT_EQ(symbol("__RAM_segment_used_end__"), symbol("__stack_end__"));
        EXPECT_EQ(symbol("__RAM_segment_size__"), 0x1000u);
        EXPECT_EQ(elf.header().e_entry & ~1u, symbol("Reset_Handler"));
        EXPECT_FALSE(elf.symbolNamed(u"unused"_s)) << "sections that nothing needs are left out";
        // The load image of .data holds the variable's value.
        const quint8 *value = elf.read(symbol("__data_load_start__"), 4, false);
        ASSERT_TRUE(value);
        EXPECT_EQ(value[0], 5);
    }

    TemporaryFolder folder;
    ElfFile elf;
};

struct ShownRow
{
    const char *what, *arguments, *command;
};
const ShownRow shownCompilations[] = {
    {"C for ARM", "-c -xc @a.c -Wc,-mcpu=cortex-m3 -o @a.o",
     "arm-none-eabi-gcc -c -x c @a.c -ffunction-sections -fdata-sections -mcpu=cortex-m3 -o @a.o"},
    {"C++ has neither exceptions nor types", "-c -xc++ @a.cpp -o @a.o",
     "arm-none-eabi-gcc -c -x c++ @a.cpp -ffunction-sections -fdata-sections -fno-exceptions -fno-rtti -o @a.o"},
    {"C++ with both", "-c -xc++ @a.cpp -exceptions -rtti -o @a.o",
     "arm-none-eabi-gcc -c -x c++ @a.cpp -ffunction-sections -fdata-sections -o @a.o"},
    {"assembly", "-we -c -xasm @a.s -g -DX=1 -Wa,-mthumb -o @a.o",
     "arm-none-eabi-gcc -c -x assembler-with-cpp @a.s -g -Wa,--fatal-warnings -DX=1 -mthumb -o @a.o"},
    {"all that a compilation has", "-v -we -w -c -xc @a.c -g -I@inc -DA=1 -UB -depend @a.d -Wc,-Os -o @a.o",
     "arm-none-eabi-gcc -c -x c @a.c -ffunction-sections -fdata-sections -g -w -Werror -I@inc -DA=1 -UB -MD -MF @a.d "
     "-Os -o @a.o"},
    {"RISC-V by the instruction set", "-c -xc @a.c -Wc,-march=rv32imac -Wc,-mabi=ilp32 -o @a.o",
     "riscv64-unknown-elf-gcc -c -x c @a.c -ffunction-sections -fdata-sections -march=rv32imac -mabi=ilp32 -o @a.o"},
    {"clang by the target", "-c -xc @a.c -Wc,--target=riscv32-unknown-elf -o @a.o",
     "clang -mno-relax -c -x c @a.c -ffunction-sections -fdata-sections --target=riscv32-unknown-elf -o @a.o"},
    {"clang by name", "-c -xc @a.c -Wc,-toolchain=clang -Wc,-march=rv32imac -o @a.o",
     "clang --target=riscv32-unknown-elf -mno-relax -c -x c @a.c -ffunction-sections -fdata-sections -march=rv32imac "
     "-o @a.o"},
};

TEST_F(Driver, ShowsTheCommandsOfCompilations)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("riscv64-unknown-elf-gcc");
    NEEDS_PROGRAM("clang");
    QDir().mkpath(path("inc"));
    for (const ShownRow &row : shownCompilations)
        EXPECT_EQ(shown(QString::fromLatin1(row.arguments)), QString::fromLatin1(row.command)) << row.what;
    EXPECT_FALSE(QFile::exists(path("a.o")));
    EXPECT_TRUE(
        shown(u"-c -xc @a.c -o @a.o"_s, {u"VELDANE_TOOLCHAIN=clang"_s}).startsWith(u"clang --target=arm-none-eabi"_s));
    EXPECT_TRUE(
        shown(u"-c -xc @a.c -Wc,-toolchain=gcc -o @a.o"_s, {u"VELDANE_TOOLCHAIN=clang"_s}).startsWith(u"arm-"_s))
        << "options weigh more than the environment";
}

// Columns are bytes, whoever tells them.
TEST_F(Driver, CountsATabAsOneColumn)
{
    folder.write("a.c", "int f(void)\n{\n\t\treturn nope;\n}\n");
    for (const QString &family : {u"gcc"_s, u"clang"_s}) {
        const ProgramResult result =
            cc({u"-c"_s, u"-xc"_s, path("a.c"), u"-Wc,-toolchain="_s + family, u"-o"_s, path("a.o")});
        EXPECT_TRUE(result.error.contains("cannot run") || result.error.contains("a.c:3:10: error"))
            << result.error.constData();
    }
}

// A tool chain's folder comes before the search path; a program that isn't there is looked for outside.
TEST_F(Driver, LooksIntoTheToolChainFolder)
{
    NEEDS_PROGRAM("riscv64-unknown-elf-gcc");
    QDir().mkpath(path("tools/bin"));
    const QString own = folder.write("tools/bin/arm-none-eabi-gcc", "#!/bin/sh\nexit 3\n");
    QFile::setPermissions(own, QFile::ReadOwner | QFile::ExeOwner);
    const QString option = u" -Wc,-toolchain="_s + path("tools");
    EXPECT_TRUE(shown(u"-c -xc @a.c -o @a.o"_s + option).startsWith(u"@tools/bin/arm-none-eabi-gcc -c"_s));
    EXPECT_TRUE(shown(u"-c -xc @a.c -o @a.o -Wc,-march=rv32i"_s + option).startsWith(u"riscv64-unknown-elf-gcc -c"_s));
    EXPECT_EQ(cc({u"-c"_s, u"-xc"_s, path("a.c"), u"-Wc,-toolchain="_s + path("tools")}).status, 3)
        << "the tool's exit status is ours";
    folder.write("tools/bin/arm-none-eabi-gcc", "#!/bin/sh\necho \"$LC_ALL $LC_CTYPE $LC_MESSAGES\"\n");
    EXPECT_EQ(cc({u"-c"_s, u"-xc"_s, path("a.c"), option.trimmed()}, {u"LC_ALL=de_DE.UTF-8"_s}).out,
              " de_DE.UTF-8 C\n");
    EXPECT_EQ(cc({u"-###"_s, u"-c"_s, path("a.c"), u"-Wc,-toolchain=/no/tools"_s, u"-Wc,-toolchain="_s}).error,
              "cc: warning: no tool chain folder '/no/tools'\n");
}

TEST_F(Driver, ShowsTheCommandOfALink)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("a.ind", "@a.o\n\nwith blank.o\n");
    const QString command =
        shown(u"-we -inputfiles @a.ind -T@my.ld -printf=d -scanf=l -M -dbase=0x10 -Kkept -Wl,-mcpu=cortex-m0 "
              "-Wl,-e,go -Wl,-Lhere -o @app.elf"_s);
    EXPECT_EQ(
        command,
        u"arm-none-eabi-gcc -nostartfiles -mcpu=cortex-m0 -T @my.ld -Wl,--gc-sections -Wl,-n -Wl,-z,noexecstack "
        "-Wl,--fatal-warnings -Wl,-Map=@app.map -Wl,--defsym=base=0x10 -Wl,--undefined=kept @a.o 'with blank.o' "
        "-Wl,-e,go -Lhere -Wl,--undefined=_printf_float --specs=nano.specs --specs=nosys.specs -lm -o @app.elf"_s);
    EXPECT_TRUE(shown(u"@a.o -T@my.ld -l- -o @app.elf"_s).contains(u" -nostdlib -lgcc "_s));
    EXPECT_FALSE(shown(u"@a.o -T@my.ld -printf=ll -o @app.elf"_s).contains(u"nano"_s));
}

TEST_F(Driver, LinksWithGccForArm)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    buildSmall({u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,-mthumb"_s, u"-Wc,-Os"_s}, {u"-M"_s});
    checkSmall();
    EXPECT_TRUE(QFile::exists(path("app.map")));
    // Who lists segments reads their symbols in the order of the file.
    QStringList segments;
    for (quint32 i = 0; i < quint32(elf.symbolCount()); ++i)
        if (const QString name = elf.symbolAtIndex(i)->name(); name.contains(u"_segment_"_s))
            segments += name.section(u"_segment_"_s, 0, 0);
    EXPECT_EQ(segments, QStringList(5, u"__FLASH"_s) + QStringList(5, u"__RAM"_s));
}

TEST_F(Driver, LinksWithLld)
{
    NEEDS_PROGRAM("clang");
    NEEDS_PROGRAM("ld.lld");
    buildSmall({u"-Wc,-toolchain=clang"_s, u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,-Os"_s}, {u"-Wl,-toolchain=clang"_s});
    checkSmall();
}

TEST_F(Driver, OptimizesAtLinkTime)
{
    NEEDS_PROGRAM("clang");
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    buildSmall({u"-Wc,-toolchain=clang"_s, u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,-Os"_s, u"-Wc,-flto"_s}, {});
    EXPECT_EQ(symbol("vectors"), 0x08000000u);
    EXPECT_TRUE(QFile::exists(path("app.lto.o")));

    // From an archive the same comes out.
    const QByteArray before = folder.read("app.elf");
    ASSERT_EQ(cc({u"-ar"_s, objectOf("main.c"), u"-o"_s, path("libmain.a")}).status, 0);
    const ProgramResult result = link({objectOf("vectors.c"), path("libmain.a")});
    EXPECT_EQ(result.status, 0) << result.error.constData();
    EXPECT_EQ(folder.read("app.elf").size(), before.size());
}

// Assembly is no bitcode and passes no numbers; the libraries have to take them as the bitcode gives them.
TEST_F(Driver, TakesTheCallingConventionOfBitcode)
{
    NEEDS_PROGRAM("clang");
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("main.c", "float sinf(float); volatile float x; void Reset_Handler(void) { x = sinf(x); }");
    folder.write("native.c", "int native;");
    const QStringList options = {u"-Wc,-toolchain=clang"_s, u"-Wc,-mcpu=cortex-m4"_s};
    compile("main.c", options + QStringList{u"-Wc,-mfloat-abi=hard"_s, u"-Wc,-flto"_s});
    compile("native.c", options);
    const QString command = shown(u"-Wl,-toolchain=clang @main.o @native.o -o @app.elf"_s).section(u'\n', -1);
    EXPECT_TRUE(command.contains(u" -mfloat-abi=hard "_s)) << qPrintable(command);
}

TEST_F(Driver, LinksForRiscV)
{
    NEEDS_PROGRAM("riscv64-unknown-elf-gcc");
    buildSmall({u"-Wc,-march=rv32imac"_s, u"-Wc,-mabi=ilp32"_s, u"-Wc,-Os"_s}, {});
    checkSmall();
    EXPECT_EQ(elf.header().e_machine, EM_RISCV);

    // A table of constructors lies in flash, and is no reason for a warning either.
    folder.write("place.xml", QByteArray(smallPlacement)
                                  .replace("<ProgramSection name=\".rodata\"",
                                           "<ProgramSection name=\".init_array\" load=\"Yes\" keep=\"Yes\"/>"
                                           "<ProgramSection name=\".rodata\""));
    folder.write("start.c", "__attribute__((constructor)) static void start(void) {}");
    compile("start.c", {u"-Wc,-march=rv32imac"_s, u"-Wc,-mabi=ilp32"_s});
    const ProgramResult result = link({objectOf("vectors.c"), objectOf("main.c"), objectOf("start.c")}, {u"-we"_s});
    EXPECT_EQ(result.error.toStdString(), "");
}

TEST_F(Driver, LinksByASegmentList)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("main.c", mainSource);
    folder.write("place.xml", smallPlacement);
    compile("main.c", {u"-Wc,-mcpu=cortex-m0"_s, u"-Wc,-mthumb"_s});
    const ProgramResult result =
        cc({objectOf("main.c"), u"-placementsegments"_s, u"FLASH RX 0x100 0x1000;RAM RWX 0x20000000 0x1000"_s,
            u"-placement"_s, path("place.xml"), u"-o"_s, path("app.elf")});
    ASSERT_EQ(result.status, 0) << result.error.constData();
    elf.load(path("app.elf"));
    EXPECT_EQ(symbol("__FLASH_segment_start__"), 0x100u);
    EXPECT_TRUE(QFile::exists(path("app.ld"))) << "beside the output when there is no inputs file";
}

// An empty section must not count as loaded where it would run: who fills gaps would fill all that lies between.
TEST_F(Driver, LoadsNothingWhereVariablesRun)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("main.c", "volatile int zero; void Reset_Handler(void) { zero = 1; }");
    compile("main.c", {u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,-mthumb"_s});
    ASSERT_EQ(cc({objectOf("main.c"), u"-placementsegments"_s, u"FLASH RX 0 0x1000;RAM RWX 0x20000000 0x1000"_s,
                  u"-o"_s, path("app.elf")})
                  .status,
              0);
    runProgram(QStandardPaths::findExecutable(u"arm-none-eabi-objcopy"_s),
               {u"-O"_s, u"binary"_s, u"--gap-fill"_s, u"0xFF"_s, path("app.elf"), path("app.bin")});
    EXPECT_LT(QFileInfo(path("app.bin")).size(), 0x1000);
}

TEST_F(Driver, LoadsASectionWhereItsStartIs)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("ld.lld");
    folder.write("place.xml", QByteArray(smallPlacement)
                                  .replace("\".vectors\"", "\".vectors\" start=\"0x08000080\"")
                                  .replace("\".text\"", "\".text\" start=\"+0x200\""));
    for (const QString &family : {u"gcc"_s, u"clang"_s}) {
        buildSmall({u"-Wc,-toolchain="_s + family, u"-Wc,-mcpu=cortex-m3"_s},
                   {u"-Wl,-toolchain="_s + family, u"-Fbin"_s});
        const QByteArray bytes = folder.read("app.bin"); // from the first byte that is loaded
        EXPECT_EQ(bytes.mid(8, 0x178), QByteArray(0x178, '\xFF')) << qPrintable(family);
        EXPECT_NE(bytes.mid(0x180, 4), QByteArray(4, '\xFF')) << qPrintable(family);
        EXPECT_EQ(symbol("__vectors_load_start__"), 0x08000080u);
        EXPECT_EQ(symbol("__text_load_start__"), 0x08000200u);
        EXPECT_EQ(symbol("__rodata_load_start__"), symbol("__rodata_start__"));
    }
}

// Messages of the linker pass as they are; nothing half-made stays.
TEST_F(Driver, FailsWhenASegmentOverflows)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("main.c", "volatile const char big[0x4000] = {1}; volatile char ram[0x2000]; void Reset_Handler(void) "
                           "{ ram[0] = big[1]; }");
    compile("main.c", {u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,-mthumb"_s});
    folder.write("app.elf", "old");
    folder.write("app.hex", "old");
    const ProgramResult result = link({objectOf("main.c")}, {u"-Khole"_s, u"-Fhex"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.error.contains("region `FLASH' overflowed by")) << result.error.constData();
    EXPECT_TRUE(result.error.contains("region `RAM' overflowed by")) << result.error.constData();
    EXPECT_FALSE(QFile::exists(path("app.elf")) || QFile::exists(path("app.hex")));

    // A section with a size of its own.
    folder.write("place.xml", QByteArray(smallPlacement).replace("name=\".bss\"", "name=\".bss\" size=\"0x40\""));
    folder.write("main.c", "char ram[0x41]; void Reset_Handler(void) { ram[0] = 1; }");
    compile("main.c", {});
    const ProgramResult full = link({objectOf("main.c")});
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(full.error.contains("place.xml:11: error: section .bss is larger than its size of 64 bytes"))
        << full.error.constData();

    // The same memory under two names.
    folder.write("place.xml",
                 QByteArray(smallPlacement)
                     .replace("<ProgramSection name=\".stack\"", "</MemorySegment><MemorySegment name=\"ALIAS\">"
                                                                 "<ProgramSection name=\".stack\""));
    const ProgramResult twice = link(
        {objectOf("main.c")}, {u"-memorymap"_s, folder.write("twice.xml", QByteArray(smallMap).replace("</root>", R"(
  <MemorySegment name="ALIAS" start="0x20000000" size="0x1000"/></root>)"))});
    EXPECT_EQ(twice.status, 1);
    EXPECT_TRUE(twice.error.contains("place.xml:12: error: section .stack overlaps section .bss"))
        << twice.error.constData();
}

TEST_F(Driver, TellsItsOwnErrorsAsACompilerDoes)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("place.xml", "<root>\n<ProgramSection/></root>");
    ProgramResult result = link({path("none.o")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, path("place.xml").toUtf8() + ":2: error: section outside of a memory segment\n");

    folder.write("place.xml", QByteArray(smallPlacement).replace("<root", "<!-- -->\n<root").replace("fill=", "fil="));
    folder.write("main.c", mainSource);
    compile("main.c", {});
    EXPECT_TRUE(link({objectOf("main.c")}).error.contains("place.xml:12: warning: attribute 'fil' means nothing here"));
    EXPECT_FALSE(link({objectOf("main.c")}, {u"-w"_s}).error.contains("place.xml"));
    result = link({objectOf("main.c")}, {u"-we"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.error.contains("place.xml:12: error: attribute 'fil'"));

    EXPECT_EQ(cc({u"-inputfiles"_s, path("none.ind"), u"-o"_s, path("x")}).error,
              "cc: error: cannot open '" + path("none.ind").toUtf8() + "': No such file or directory\n");
    EXPECT_EQ(cc({u"-O2"_s}).status, 2);
    EXPECT_EQ(cc({}).status, 2);
    EXPECT_TRUE(cc({u"--help"_s}).out.contains("-placementsegments"));
}

TEST_F(Driver, LeavesNothingOfAFailedCompilation)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("a.c", "#include \"missing.h\"\n");
    folder.write("a.o", "old");
    folder.write("a.d", "old");
    const ProgramResult result =
        cc({u"-v"_s, u"-c"_s, u"-xc"_s, path("a.c"), u"-depend"_s, path("a.d"), u"-o"_s, path("a.o")});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.out.contains(" -c -x c "));
    EXPECT_TRUE(result.error.contains(path("a.c").toUtf8() + ":1:10: fatal error: missing.h"));
    EXPECT_FALSE(QFile::exists(path("a.o")) || QFile::exists(path("a.d")));
}

// A signal reaches the tool, once, whether or not it went to the whole process group; the half-made output goes, and cc
// ends by the signal.
TEST_F(Driver, PassesSignalsOn)
{
    const QString tool = folder.write("arm-none-eabi-gcc", "#!/bin/sh\nfor last; do :; done\necho half > $last\n"
                                                           "again() { echo again >> $0.trap; }\n"
                                                           "stop() { trap again TERM; echo stopped >> $0.trap\n"
                                                           "sleep 0.05; exit 1; }\ntrap stop TERM\n"
                                                           "echo ready\nwhile :; do sleep 0.05; done\n");
    QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner);
    for (const bool isGroup : {false, true}) {
        QFile::remove(tool + u".trap"_s);
        QProcess process;
        process.setChildProcessModifier([] { setpgid(0, 0); });
        process.start(QString::fromLatin1(VN_BIN "/cc"),
                      {u"-c"_s, u"-xc"_s, path("a.c"), u"-Wc,-toolchain="_s + folder.root(), u"-o"_s, path("a.o")});
        ASSERT_TRUE(process.waitForReadyRead(20000));
        EXPECT_TRUE(QFile::exists(path("a.o")));
        const pid_t id = pid_t(process.processId());
        kill(isGroup ? -id : id, SIGTERM);
        ASSERT_TRUE(process.waitForFinished(20000));
        EXPECT_EQ(process.exitStatus(), QProcess::CrashExit);
        EXPECT_EQ(process.exitCode(), SIGTERM);
        EXPECT_EQ(folder.read("arm-none-eabi-gcc.trap"), "stopped\n") << isGroup;
        EXPECT_FALSE(QFile::exists(path("a.o")));
    }
}

TEST_F(Driver, WritesDependencies)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("a b.h", "#define X 1\n");
    folder.write("a.c", "#include \"a b.h\"\nint x = X;\n");
    compile("a.c", {u"-depend"_s, path("a.d")});
    const QByteArray text = folder.read("a.d");
    EXPECT_TRUE(text.startsWith(objectOf("a.c").toUtf8() + ": ")) << text.constData();
    EXPECT_TRUE(text.contains("a\\ b.h"));
    EXPECT_LT(text.indexOf("a.c", text.indexOf(": ")), text.indexOf("a\\ b.h")) << "the source comes first";
}

TEST_F(Driver, WritesWhatALinkHasReadForItsScript)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("all sections.xml", smallPlacement);
    folder.write("place.xml", "<root><Import filename=\"all sections.xml\"/></root>");
    buildSmall({u"-Wc,-mcpu=cortex-m3"_s}, {});
    EXPECT_EQ(folder.read("app.ld.d").replace(folder.root().toUtf8() + '/', "@").toStdString(),
              "@app.elf: \\\n @map.xml \\\n @place.xml \\\n @all\\ sections.xml\n");
}

TEST_F(Driver, NamesSections)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("main.c", mainSource);
    compile("main.c", {u"-Rc,.fast"_s, u"-Rd,.mydata"_s, u"-Rz,.mybss"_s, u"-Rk,.constants"_s, u"-g"_s});
    ElfFile object;
    object.load(objectOf("main.c"));
    for (const char *name : {".fast", ".fast.Reset_Handler", ".rel.fast.Reset_Handler", ".mydata.counter",
                             ".mybss.zero", ".constants.text", ".debug_info", ".symtab"})
        EXPECT_TRUE(object.sectionNamed(QString::fromLatin1(name))) << name;
    EXPECT_FALSE(object.sectionNamed(u".text.Reset_Handler"_s));
    if (!QStandardPaths::findExecutable(u"readelf"_s).isEmpty()) {
        const ProgramResult result =
            runProgram(QStandardPaths::findExecutable(u"readelf"_s), {u"-aW"_s, objectOf("main.c")});
        EXPECT_EQ(result.error.toStdString(), "");
        EXPECT_TRUE(result.out.contains(" .mybss.zero "));
    }
}

TEST_F(Driver, MakesArchives)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    folder.write("a.c", "int a(void) { return 1; }");
    folder.write("b.c", "int b(void) { return 2; }");
    compile("a.c", {});
    compile("b.c", {});
    const auto archive = [&](const QStringList &objects) {
        folder.write("x.ind", objects.join(u'\n').toUtf8());
        const ProgramResult result = cc({u"-inputfiles"_s, path("x.ind"), u"-ar"_s, u"-o"_s, path("libx.a")});
        EXPECT_EQ(result.status, 0) << result.error.constData();
        return folder.read("libx.a");
    };
    const QByteArray both = archive({objectOf("a.c"), objectOf("b.c")});
    EXPECT_FALSE(archive({objectOf("a.c")}).contains("b.o/")) << "an old archive's members are gone";
    EXPECT_EQ(archive({objectOf("a.c"), objectOf("b.c")}), both) << "equal objects make equal archives";
    folder.write("x.ind", path("none.o").toUtf8());
    EXPECT_NE(cc({u"-inputfiles"_s, path("x.ind"), u"-ar"_s, u"-o"_s, path("libx.a")}).status, 0);
    EXPECT_FALSE(QFile::exists(path("libx.a.new")));
}

TEST_F(Driver, WritesLoadFiles)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    for (const char *format : {"hex", "srec", "bin"}) {
        buildSmall({u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,-mthumb"_s}, {u"-F"_s + QString::fromLatin1(format)});
        const QString ours = path("app.") + QString::fromLatin1(format), theirs = path("theirs");
        const QByteArray kind = format == QByteArrayView("bin")   ? "binary"
                                : format == QByteArrayView("hex") ? "ihex"
                                                                  : "srec";
        const QString objcopy = QStandardPaths::findExecutable(u"arm-none-eabi-objcopy"_s);
        ASSERT_EQ(runProgram(objcopy,
                             {u"-O"_s, QString::fromLatin1(kind), u"--gap-fill"_s, u"0xFF"_s, path("app.elf"), theirs})
                      .status,
                  0);
        if (kind == "binary") {
            EXPECT_EQ(folder.read("app.bin"), folder.read("theirs"));
            continue;
        }
        // Records may be cut differently; the bytes must be the same.
        for (const QString &file : {ours, theirs})
            ASSERT_EQ(runProgram(objcopy, {u"-I"_s, QString::fromLatin1(kind), u"-O"_s, u"binary"_s, u"--gap-fill"_s,
                                           u"0xFF"_s, file, file + u".bin"_s})
                          .status,
                      0)
                << qPrintable(file);
        QFile a(ours + u".bin"_s), b(theirs + u".bin"_s);
        ASSERT_TRUE(a.open(QFile::ReadOnly) && b.open(QFile::ReadOnly));
        EXPECT_EQ(a.readAll(), b.readAll()) << format;
    }
    const ProgramResult result = link({objectOf("main.c")}, {u"-Fcoff"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.error.contains("cc: error: unknown output format 'coff'"));
    EXPECT_FALSE(QFile::exists(path("app.elf")));
}

TEST_F(Driver, RunsThePatchCommandOnTheOutput)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    buildSmall({u"-Wc,-mthumb"_s, u"-Wc,-mcpu=cortex-m3"_s},
               {u"-patch"_s, u"cp \"$(TargetPath)\" "_s + path("copy") + u" && rm $(RelTargetPath).none -f"_s});
    EXPECT_EQ(folder.read("copy"), folder.read("app.elf"));
    const ProgramResult result = link({objectOf("main.c")}, {u"-patch"_s, u"false"_s, u"-Fhex"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "cc: error: patch command 'false' returned 1 exit status\n");
    EXPECT_FALSE(QFile::exists(path("app.elf")));
    EXPECT_EQ(link({objectOf("main.c")}, {u"-patch"_s, u"no-such-tool x"_s}).error,
              "cc: error: cannot run 'no-such-tool': No such file or directory\n");
}

// More objects than a command line should hold.
TEST_F(Driver, LinksManyObjects)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    buildSmall({u"-Wc,-mthumb"_s, u"-Wc,-mcpu=cortex-m3"_s}, {});
    folder.write("empty.c", "");
    compile("empty.c", {u"-Wc,-mthumb"_s, u"-Wc,-mcpu=cortex-m3"_s});
    QStringList objects = {objectOf("vectors.c"), objectOf("main.c")};
    for (int i = 0; i < 1000; ++i)
        objects += folder.root() + u"/./././././././././"_s + u"empty.o"_s;
    const ProgramResult result = link(objects, {u"-v"_s});
    EXPECT_EQ(result.status, 0) << result.error.constData();
    EXPECT_LT(result.out.size(), 2000);
    EXPECT_TRUE(result.out.contains("@" + path("app.link-inputs").toUtf8()));
}

} // namespace
