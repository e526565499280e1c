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

} // namespace
