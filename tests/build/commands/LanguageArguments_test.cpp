#include "CommandsTest.h"

#include "build/commands/CommandText.h"
#include "support/RunProgram.h"

using namespace Qt::StringLiterals;

TEST_F(CommandsTest, LanguageArgumentsAreWhatClangUnderstands)
{
    load(R"x(c_preprocessor_definitions="A=1" c_preprocessor_undefinitions="B" c_user_include_directories="inc"
        c_system_include_directories="$(ProjectDir);/none/such" code_completion_options="-Wall;-DX=$(ProjectName)"
        c_additional_options="-mcpu=cortex-m3;-mthumb;-fno-tree-vrp" cpp_only_additional_options="-std=c++20;-O2"
        asm_additional_options="-march=rv32imac_zicsr")x");
    const auto arguments = [this](const char *name) { // without the folders of the machine's C library
        QStringList all = tools.languageServiceArguments(node(name), debug);
        for (qsizetype i = all.size() - 2; i >= 0; --i)
            if (all[i] == u"-isystem" && all[i + 1] != folder.root())
                all.remove(i, 2);
        return line(all);
    };
    EXPECT_EQ(arguments("main.c"),
              u"--target=arm-none-eabi -Iinc -DA=1 -UB -mcpu=cortex-m3 -mthumb -isystem P -x c -Wall "
              u"-DX=app"_s);
    EXPECT_EQ(arguments("util.cpp"), u"--target=arm-none-eabi -Iinc -DA=1 -UB -mcpu=cortex-m3 -mthumb -std=c++20 "
                                     u"-isystem P -x c++ -Wall -DX=app"_s);
    EXPECT_EQ(arguments("start.s"), u"--target=riscv32-unknown-elf -Iinc -DA=1 -UB -march=rv32imac -isystem P -x "
                                    u"assembler-with-cpp -Wall -DX=app"_s);
    EXPECT_EQ(externalToolMacros(tools.languageServiceArguments(node("main.c"), debug)).value(u"DEFINES"_s),
              u"-DA=1 -DX=app"_s);
}

// With the headers that the program is built with.
TEST_F(CommandsTest, ClangReadsAFirmwareSourceByThem)
{
    load(R"(c_additional_options="-mcpu=cortex-m3;-mthumb;-Og" cpp_only_additional_options="-std=c++20")");
    const QByteArray text = "#include <stdio.h>\n#include <stdint.h>\nchar is32Bits[sizeof(void *) == 4 ? 1 : -1];\n";
    folder.write("main.c", text);
    ASSERT_TRUE(QDir().mkpath(folder.path("sub")));
    folder.write("sub/util.cpp", "#include <vector>\n" + text);
    for (const char *name : {"main.c", "util.cpp"}) {
        const ProjectElement *file = node(name);
        const QStringList given = tools.languageServiceArguments(file, debug);
        if (!given.contains(u"-isystem"_s))
            GTEST_SKIP() << "no C library for ARM is there";
        const ProgramResult result = runProgram(u"/usr/bin/env"_s, QStringList{u"clang-14"_s, u"-fsyntax-only"_s} +
                                                                       given + QStringList(system.path(file, debug)));
        if (result.status == 127)
            GTEST_SKIP() << "clang-14 isn't there";
        EXPECT_EQ(result.status, 0) << result.error.toStdString();
    }
}

TEST_F(CommandsTest, AnalyzerIsRunOverASource)
{
    load(R"(clang_tidy_checks_c="a;b" cpp_enable_exceptions="Yes")");
    const auto command = [this](const char *name) {
        const QStringList own = tools.languageServiceArguments(node(name), debug);
        return line(builder.lastArguments).replace(line(own), u"OWN"_s);
    };
    tools.analyzeFile(node("main.c"), debug, builder);
    EXPECT_EQ(command("main.c"), u"clang-tidy P/main.c -checks=a,b -quiet -- -x c OWN"_s);
    EXPECT_EQ(shown(builder.notes.join(u", ")), u"step Analyzing main.c, run in P for , end"_s);
    SystemMacroTable::instance().addSystemMacro(u"CLANGTIDY"_s, u"/opt/tidy"_s, QString());
    tools.analyzeFile(node("util.cpp"), debug, builder);
    EXPECT_EQ(command("util.cpp"),
              u"/opt/tidy P/sub/util.cpp -checks=clang-analyzer-* -quiet -- -x c++ -fcxx-exceptions "
              u"-fexceptions -fno-rtti OWN"_s);
}

// The tool chain's own properties make options, and take over options that they make from the project's.
TEST_F(CommandsTest, GenericOptionsMakeOptions)
{
    folder.write("options.xml", R"(<options>
        <property tool="compiler;assembler" name="cpu" type="Enumeration" enumeration="None;M0;M3"
            options=";-mcpu=cortex-m0;-mcpu=cortex-m3" default="M0"/>
        <property tool="c_compiler" name="standard" type="Enumeration" enumeration="-std=c99;-std=c11" default="-std=c99"/>
        <property tool="cpp_compiler" name="lean" type="Boolean" options=";-fno-threadsafe-statics" default="Yes"/>
        <property tool="cpp_compiler" name="silent" type="Boolean" default="Yes"/>
        <property tool="linker" name="stack" type="String" options="--stack=" default=""/>
        <property tool="linker" name="searched" type="StringList" options="-L" default=""/>
        <property name="linker_map_file" default="No"/></options>)");
    load(R"x(build_generic_options_file_name="options.xml" stack="$(ProjectName)" searched="a;b")x",
         QByteArray(
             R"(<configuration Name="Debug" c_additional_options="-g3;-mcpu=cortex-m3;-O2" c_only_additional_options=
            "-std=c11"/>)") +
             defaultContent);
    EXPECT_EQ(
        line(tools.command(request("main.c")).arguments),
        u"CC -v -c -xc P/main.c -g -depend o/main.d -Wc,-mcpu=cortex-m3 -Wc,-std=c11 -Wc,-g3 -Wc,-O2 -o o/main.o"_s);
    EXPECT_EQ(
        line(tools.command(request("util.cpp")).arguments),
        u"CC -v -c -xc++ P/sub/util.cpp -g -depend o/util.d -Wc,-mcpu=cortex-m3 -Wc,-fno-threadsafe-statics -Wc,-g3 "
        u"-Wc,-O2 -o o/util.o"_s);
    EXPECT_EQ(line(tools.command(request("start.s")).arguments),
              u"CC -v -c -xasm P/start.s -g -depend o/start.d -Wa,-mcpu=cortex-m3 -o o/start.o"_s);
    EXPECT_EQ(line(tools.command(request("app")).arguments),
              u"CC -v -inputfiles o/app.ind -printf=l -scanf=l -Wl,--stack=app -Wl,-La -Wl,-Lb -o out/app.elf"_s);

    const ProjectElement *values = project->configuration(debug);
    EXPECT_EQ(values->property(u"cpu"_s), u"M3"_s);
    EXPECT_EQ(values->property(u"c_additional_options"_s), u"-g3;-O2"_s);
    EXPECT_EQ(values->property(u"c_additional_options_backup"_s), u"-g3;-mcpu=cortex-m3;-O2"_s);
    EXPECT_FALSE(values->hasProperty(u"c_only_additional_options"_s));
    EXPECT_EQ(values->property(u"c_only_additional_options_backup"_s), u"-std=c11"_s);
    EXPECT_TRUE(system.changes().empty()); // nothing that a build would be done for

    load(""); // the next solution has none
    EXPECT_EQ(line(tools.command(request("main.c")).arguments),
              u"CC -v -c -xc P/main.c -g -depend o/main.d -o o/main.o"_s);
    EXPECT_FALSE(system.schema().propertyClassNamed(u"cpu"_s));

    folder.write("broken.xml", "<options>\n<property></options>");
    for (const char *name : {"broken.xml", "none.xml"}) {
        load("build_generic_options_file_name=\"" + QByteArray(name) + '"');
        const QString error = shown(tools.command(request("main.c")).error);
        EXPECT_TRUE(error.startsWith(u"Cannot load generic options file: P/"_s + QString::fromLatin1(name) + u':'))
            << error.toStdString();
        state.clear();
        tools.toolCommands(request("app"), builder);
        EXPECT_TRUE(state.failed);
    }
}
