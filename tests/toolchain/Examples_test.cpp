// The solutions of examples/, built by vnBuild with the real compilers and run in QEMU.

#include "elf/ElfFile.h"
#include "toolchain/ToolchainFixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

class Examples : public testing::Test
{
protected:
    // Copies an example, builds a configuration of it and gives the folder of its executables.
    QString build(const QString &name, const QString &configuration, const QStringList &options = {})
    {
        const QString solution = folder.root() + u'/' + name + u'/' + name + u".vnProject"_s;
        if (!QFile::exists(solution))
            runProgram(u"cp"_s, {u"-r"_s, QStringLiteral(VN_EXAMPLES) + u'/' + name, folder.root()});
        const ProgramResult result = runProgram(u"vnBuild"_s, QStringList{u"-c"_s, configuration, solution} + options);
        EXPECT_EQ(result.status, 0) << result.out.constData() << result.error.constData();
        const QByteArray output = result.out + result.error;
        EXPECT_FALSE(output.contains("warning:") || output.contains("error:")) << output.constData();
        return QFileInfo(solution).path();
    }
    // What the machine writes to its serial port, until `end` is there or it ends itself.
    static QString emulate(const QString &emulator, const QStringList &machine, const QString &image,
                           const QString &end)
    {
        constexpr int patienceMs = 30'000;
        QProcess process;
        process.start(emulator, machine + QStringList{u"-nographic"_s, u"-monitor"_s, u"none"_s, u"-serial"_s,
                                                      u"stdio"_s, u"-kernel"_s, image});
        QElapsedTimer timer;
        timer.start();
        QByteArray text;
        while (!text.contains(end.toUtf8()) && timer.elapsed() < patienceMs &&
               (process.waitForReadyRead(1000) || process.state() != QProcess::NotRunning))
            text += process.readAllStandardOutput();
        text += process.readAllStandardOutput();
        process.kill();
        process.waitForFinished();
        return QString::fromUtf8(text).remove(u'\r');
    }

    TemporaryFolder folder;
};

TEST_F(Examples, BlinkyBlinks)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("qemu-system-arm");
    for (const QString &configuration : {u"Debug"_s, u"Release"_s}) {
        const QString output = build(u"blinky"_s, configuration) + u"/Output/"_s + configuration + u"/Exe/"_s;
        const QString text =
            emulate(u"qemu-system-arm"_s, {u"-M"_s, u"lm3s6965evb"_s}, output + u"blinky.elf"_s, u"blink 2:"_s);
        EXPECT_TRUE(text.startsWith(u"blinky, %1 build\nblink 1: led on at tick 1"_s.arg(configuration)))
            << qPrintable(text);
        EXPECT_TRUE(QFile::exists(output + u"blinky.hex"_s) && QFile::exists(output + u"blinky.map"_s));
    }
}

// The same program by properties of the compilers' options file instead of options: GCC and clang, both with
// link-time optimisation.
TEST_F(Examples, BlinkyTakesCompilerProperties)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("clang");
    NEEDS_PROGRAM("qemu-system-arm");
    const QString root = build(u"blinky"_s, u"Release"_s);
    const QByteArray solution = folder.read("blinky/blinky.vnProject");
    for (const char *family : {"GCC", "Clang"}) {
        folder.write("blinky/blinky.vnProject",
                     QByteArray(solution).replace("c_additional_options=\"-mcpu=cortex-m3;-mthumb;-Wall;-Wextra\"",
                                                  QByteArray("build_generic_options_file_name="
                                                             "\"$(StudioDir)/targets/compiler_options.xml\" "
                                                             "target_processor=\"Cortex-M3\" target_thumb_code=\"Yes\" "
                                                             "link_time_optimization=\"Yes\" tool_chain_family=\"") +
                                                      family + '"'));
        build(u"blinky"_s, u"Release"_s);
        EXPECT_TRUE(emulate(u"qemu-system-arm"_s, {u"-M"_s, u"lm3s6965evb"_s},
                            root + u"/Output/Release/Exe/blinky.elf"_s, u"blink 2:"_s)
                        .contains(u"led on"_s))
            << family;
        EXPECT_EQ(QFile::exists(root + u"/Output/Release/Obj/blinky/blinky.lto.o"_s),
                  family == QByteArrayView("Clang"));
    }
}

TEST_F(Examples, TheApplicationUsesItsLibrary)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("qemu-system-arm");
    const QString root = build(u"library-and-app"_s, u"Release"_s);
    EXPECT_TRUE(QFile::exists(root + u"/app/Output/Release/Exe/app.srec"_s));
    const QString text = emulate(u"qemu-system-arm"_s, {u"-M"_s, u"lm3s6965evb"_s},
                                 root + u"/app/Output/Release/Exe/app.elf"_s, u"done"_s);
    EXPECT_TRUE(text.startsWith(u"heating to 80 degrees\n10 s: 73 degrees, heater at 53 %\n"_s)) << qPrintable(text);
    EXPECT_TRUE(text.contains(u"60 s: 80 degrees"_s));
}

TEST_F(Examples, RiscVSaysHello)
{
    NEEDS_PROGRAM("riscv64-unknown-elf-gcc");
    NEEDS_PROGRAM("qemu-system-riscv32");
    const QString root = build(u"riscv-hello"_s, u"Debug"_s);
    EXPECT_EQ(emulate(u"qemu-system-riscv32"_s, {u"-M"_s, u"virt"_s, u"-bios"_s, u"none"_s},
                      root + u"/Output/Debug/Exe/riscv-hello.elf"_s, u"never"_s),
              u"hello from RV32\ntimer interrupt 1\ntimer interrupt 2\ntimer interrupt 3\ndone\n"_s);
}

TEST_F(Examples, TheShellRunsItsStagedScript)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("qemu-system-arm");
    const QString wanted =
        u"A small shell\n=============\nhello\n22\n2 3 5 7 11 13 17 19 23 29 \ncbf43926\nno command 'fly'\n"_s;
    for (const QStringList &options : {QStringList{}, QStringList{u"--rebuild"_s, u"--no-unity"_s}}) {
        const QString root = build(u"unity-and-staging"_s, u"Release"_s, options);
        const QStringList machine = {u"-M"_s, u"mps2-an385"_s, u"-semihosting-config"_s, u"enable=on"_s};
        EXPECT_EQ(emulate(u"qemu-system-arm"_s, machine, root + u"/Output/Release/Exe/shell.elf"_s, u"never"_s),
                  wanted);
        const QFileInfo notes(root + u"/Output/Release/Exe/delivery/notes.txt"_s);
        EXPECT_TRUE(notes.exists() && !(notes.permissions() & QFile::WriteOwner));
        EXPECT_EQ(QFile::exists(root + u"/Output/Release/Obj/shell/say.o"_s), !options.isEmpty());
    }
}

// The codes of -printf= and -scanf= bring in what they promise, and the start-up code switches the unit on.
TEST_F(Examples, FormatsFloatingPoint)
{
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("qemu-system-arm");
    const QString shell = QStringLiteral(VN_EXAMPLES "/unity-and-staging"),
                  targets = QStringLiteral(VN_BIN "/../targets");
    folder.write("fp.c", "#include \"mps2.h\"\n#include <stdio.h>\n"
                         "int main(void) {\n"
                         "    char text[64]; float f = 0; long long n = 0;\n"
                         "    serial_open();\n"
                         "    sscanf(\"3.5\", \"%f\", &f);\n"
                         "    snprintf(text, sizeof text, \"%.3f \", (double)f * 2); serial_write(text);\n"
                         "    sscanf(\"12345678901\", \"%lld\", &n);\n"
                         "    snprintf(text, sizeof text, \"%lld\\n\", n); serial_write(text);\n"
                         "    machine_exit();\n}\n"
                         "void *_sbrk(int n) { extern char __heap_start__; static char *end = &__heap_start__;"
                         " end += n; return end - n; }\n");
    QStringList objects;
    for (const QString &source : {folder.path("fp.c"), shell + u"/mps2.c"_s, targets + u"/startup/cortexm_startup.c"_s,
                                  targets + u"/startup/section_init.c"_s}) {
        objects += folder.root() + u'/' + QFileInfo(source).baseName() + u".o"_s;
        const ProgramResult result =
            runProgram(u"cc"_s, {u"-c"_s, u"-xc"_s, source, u"-I"_s + shell, u"-Wc,-mcpu=cortex-m4"_s, u"-Wc,-mthumb"_s,
                                 u"-Wc,-mfloat-abi=hard"_s, u"-Wc,-mfpu=fpv4-sp-d16"_s, u"-o"_s, objects.last()});
        ASSERT_EQ(result.status, 0) << result.error.constData();
    }
    const QString image = folder.path("fp.elf");
    const auto run = [&](const QString &printfCode, const QString &scanfCode) {
        const ProgramResult result =
            runProgram(u"cc"_s, objects + QStringList{u"-memorymap"_s, shell + u"/mps2.xml"_s, u"-placementmacros"_s,
                                                      u"HEAP_SIZE=0x1000"_s, u"-printf="_s + printfCode,
                                                      u"-scanf="_s + scanfCode, u"-o"_s, image});
        EXPECT_EQ(result.status, 0) << result.error.constData();
        return emulate(u"qemu-system-arm"_s, {u"-M"_s, u"mps2-an386"_s, u"-semihosting-config"_s, u"enable=on"_s},
                       image, u"\n"_s);
    };
    EXPECT_EQ(run(u"dll"_s, u"dll"_s), u"7.000 12345678901\n"_s);
    EXPECT_TRUE(run(u"d"_s, u"d"_s).startsWith(u"7.000 "_s));
    EXPECT_FALSE(run(u"l"_s, u"l"_s).startsWith(u"7.000"_s)) << "what wasn't asked for isn't in the program";
}

// Frames with something to clean up, thread-local variables, and zeroed ones that must lie elsewhere.
const char *const unwindingSource = R"(
#include <stddef.h>
#include <unwind.h>
#ifdef __arm__
#include "mps2.h"
typedef _Unwind_Control_Block Record;
#else
#include "virt.h"
typedef struct _Unwind_Exception Record;
void *memcpy(void *to, const void *from, size_t size)
{ char *t = to; const char *f = from; while (size--) *t++ = *f++; return to; }
void *memset(void *to, int c, size_t size) { char *t = to; while (size--) *t++ = c; return to; }
size_t strlen(const char *text) { size_t size = 0; while (text[size]) ++size; return size; }
void *malloc(size_t size) { static _Alignas(16) char pool[4096]; static size_t used;
    used += (size + 15) & ~(size_t)15; return pool + used - ((size + 15) & ~(size_t)15); }
void free(void *block) { (void)block; }
#endif
void abort(void) { serial_write("abort\n"); for (;;) {} }
__thread volatile int depth = 3; __thread volatile int cleaned; __thread volatile char many[50]; volatile char zero[50];
static Record thrown;
static void leave(int *level) { (void)level; ++cleaned; for (int i = 0; i < 50; ++i) many[i] = i; }
static _Unwind_Reason_Code stop(int version, _Unwind_Action actions, _Unwind_Exception_Class class,
                                Record *e, struct _Unwind_Context *context, void *argument)
{
    (void)version, (void)class, (void)e, (void)context, (void)argument;
    if (actions & 16) { // the end of the stack
        for (int i = 0; i < 50; ++i) cleaned += zero[i];
        serial_write(cleaned == 4 && depth == 3 ? "four frames left\n" : "wrong\n");
        for (;;) {}
    }
    return 0;
}
__attribute__((noinline)) void go(int level)
{
    __attribute__((cleanup(leave))) int guard = level;
    if (level == 0) _Unwind_ForcedUnwind(&thrown, stop, 0); else go(level - 1);
    __asm__ volatile("" ::"r"(guard));
}
int main(void)
{
#ifdef __arm__
    serial_open();
#endif
    go(depth);
    return 0;
}
)";

TEST_F(Examples, UnwindsFrames)
{
    struct Row
    {
        const char *program, *options, *emulator, *machine, *board;
    };
    const Row rows[] = {
        {"arm-none-eabi-gcc", "-mcpu=cortex-m3 -mthumb", "qemu-system-arm", "mps2-an385", "unity-and-staging/mps2"},
        {"clang", "-toolchain=clang -mcpu=cortex-m3", "qemu-system-arm", "mps2-an385", "unity-and-staging/mps2"},
        {"riscv64-unknown-elf-gcc", "-march=rv32imac_zicsr -mabi=ilp32 -ffreestanding", "qemu-system-riscv32", "virt",
         "riscv-hello/virt"},
        {"riscv64-unknown-elf-gcc", "-march=rv64imac_zicsr -mabi=lp64 -mcmodel=medany -ffreestanding",
         "qemu-system-riscv64", "virt", "riscv-hello/virt"},
        {"clang", "-toolchain=clang -march=rv32imac -mabi=ilp32 -ffreestanding", "qemu-system-riscv32", "virt",
         "riscv-hello/virt"},
    };
    NEEDS_PROGRAM("arm-none-eabi-gcc");
    NEEDS_PROGRAM("riscv64-unknown-elf-gcc");
    const QString startup = QStringLiteral(VN_BIN "/../targets/startup/");
    folder.write("unwind.c", unwindingSource);
    for (const Row &row : rows) {
        if (!hasProgram(QString::fromLatin1(row.program)) || !hasProgram(QString::fromLatin1(row.emulator)))
            continue;
        const QString board = QStringLiteral(VN_EXAMPLES "/") + QString::fromLatin1(row.board);
        const bool isArm = QByteArrayView(row.emulator) == "qemu-system-arm";
        const QStringList options = QString::fromLatin1(row.options).split(u' ');
        QStringList link = {u"-memorymap"_s,        board + u".xml"_s, u"-placementmacros"_s,
                            u"STACK_SIZE=0x4000"_s, u"-o"_s,           folder.path("unwind.elf")};
        if (options.first().startsWith(u"-toolchain"_s))
            link += u"-Wl,"_s + options.first();
        if (!isArm)
            link << u"-placement"_s << QStringLiteral(VN_BIN "/../targets/ram_placement.xml");
        for (const QString &source : {folder.path("unwind.c"), board + u".c"_s, startup + u"section_init.c"_s,
                                      startup + (isArm ? u"cortexm_startup.c"_s : u"riscv_startup.S"_s)}) {
            const QString object = folder.root() + u'/' + QFileInfo(source).baseName() + u".o"_s;
            QStringList words = {u"-c"_s, source, u"-I"_s + QFileInfo(board).path(), u"-o"_s, object};
            for (const QString &option : options + QStringList{u"-fexceptions"_s, u"-O1"_s})
                words += (source.endsWith(u'S') ? u"-Wa,"_s : u"-Wc,"_s) + option;
            const ProgramResult result = runProgram(u"cc"_s, words);
            ASSERT_EQ(result.status, 0) << row.options << result.error.constData();
            link += object;
        }
        const ProgramResult result = runProgram(u"cc"_s, link);
        ASSERT_EQ(result.status, 0) << row.options << result.error.constData();
        EXPECT_EQ(emulate(QString::fromLatin1(row.emulator),
                          QStringList{u"-M"_s, QString::fromLatin1(row.machine)} +
                              (isArm ? QStringList() : QStringList{u"-bios"_s, u"none"_s}),
                          folder.path("unwind.elf"), u"\n"_s),
                  u"four frames left\n"_s)
            << row.options;
    }
}

} // namespace
