#include "CommandsTest.h"

#include "toolchain/DriverOptions.h"

using namespace Qt::StringLiterals;

namespace {

struct CommandRowCase
{
    const char *what, *attributes, *node, *command;
};

// "P" is the project's folder, "CC" the driver.
const CommandRowCase commandRowCases[] = {
    {"C", "", "main.c", "CC -v -c -xc P/main.c -g -depend o/main.d -o o/main.o"},
    {"C++", "", "util.cpp", "CC -v -c -xc++ P/sub/util.cpp -g -depend o/util.d -o o/util.o"},
    {"assembly", "", "start.s", "CC -v -c -xasm P/start.s -g -depend o/start.d -o o/start.o"},
    {"a library", R"(project_type="Library")", "app", "CC -v -inputfiles o/app.ind -ar -o out/app.a"},
    {"an executable", "", "app", "CC -v -inputfiles o/app.ind -printf=l -scanf=l -M -o out/app.elf"},

    {"quiet, strict", R"(build_quietly="Yes" build_treat_warnings_as_errors="Yes" build_suppress_warnings="Yes")",
     "main.c", "CC -we -w -c -xc P/main.c -g -depend o/main.d -o o/main.o"},
    {"quiet archive", R"(build_quietly="Yes" build_suppress_warnings="Yes" project_type="Library")", "app",
     "CC -w -inputfiles o/app.ind -ar -o out/app.a"},
    {"no debug information", R"(build_debug_information="No")", "main.c",
     "CC -v -c -xc P/main.c -depend o/main.d -o o/main.o"},
    {"exceptions and type information are for C++", R"(cpp_enable_exceptions="Yes" cpp_enable_rtti="Yes")", "main.c",
     "CC -v -c -xc P/main.c -g -depend o/main.d -o o/main.o"},
    {"exceptions", R"(cpp_enable_exceptions="Yes" cpp_enable_rtti="No")", "util.cpp",
     "CC -v -c -xc++ P/sub/util.cpp -exceptions -g -depend o/util.d -o o/util.o"},
    {"type information", R"(cpp_enable_rtti="Yes")", "util.cpp",
     "CC -v -c -xc++ P/sub/util.cpp -rtti -g -depend o/util.d -o o/util.o"},
    {"include directories", R"(c_user_include_directories="inc;;$(ProjectDir)/a b/../c;/x/./y/")", "main.c",
     "CC -v -c -xc P/main.c -g -Iinc -IP/c -I/x/y -depend o/main.d -o o/main.o"},
    {"definitions", R"x(c_preprocessor_definitions="A;B=1\;2;C=&quot;$(ProjectName)&quot;;N=$(InputName)"
        c_preprocessor_undefinitions="U;V$(X)")x",
     "main.c", "CC -v -c -xc P/main.c -g -DA -DB=1;2 -DC=\"app\" -DN=main -UU -UV$(X) -depend o/main.d -o o/main.o"},
    {"a dependency file of its own", R"(build_dependency_file_name="deps/$(InputFileName).dep")", "main.c",
     "CC -v -c -xc P/main.c -g -depend deps/main.c.dep -o o/main.o"},
    {"an object name with more dots", R"(build_object_file_name="$(IntDir)/$(InputFileName).obj")", "main.c",
     "CC -v -c -xc P/main.c -g -depend o/main.d -o o/main.c.obj"},
    {"sections", R"x(default_code_section=".fast" default_data_section="" default_zeroed_section=".z$(InputName)"
        default_const_section=".rom" default_isr_section=".isr")x",
     "main.c", "CC -v -c -xc P/main.c -g -depend o/main.d -Rc,.fast -Rz,.zmain -Rk,.rom -o o/main.o"},
    {"options of C", R"(c_additional_options="-mthumb;-Wa,-x\;y" c_only_additional_options="-std=c11"
        cpp_only_additional_options="-std=c++20" asm_additional_options="-Wx")",
     "main.c", "CC -v -c -xc P/main.c -g -depend o/main.d -Wc,-mthumb -Wc,-Wa,-x;y -Wc,-std=c11 -o o/main.o"},
    {"options of C++", R"(c_additional_options="-mthumb" c_only_additional_options="-std=c11"
        cpp_only_additional_options="-std=c++20" asm_additional_options="-Wx")",
     "util.cpp", "CC -v -c -xc++ P/sub/util.cpp -g -depend o/util.d -Wc,-mthumb -Wc,-std=c++20 -o o/util.o"},
    {"options of the assembler", R"x(c_additional_options="-mthumb" asm_additional_options="-mcpu=$(CPU:m3)")x",
     "start.s", "CC -v -c -xasm P/start.s -g -depend o/start.d -Wa,-mcpu=m3 -o o/start.o"},
    {"options from files", R"(c_additional_options="-1" c_additional_options_from_file="c.opt"
        c_only_additional_options="-3" c_only_additional_options_from_file="$(ProjectDir)/conly.opt")",
     "main.c", "CC -v -c -xc P/main.c -g -depend o/main.d -Wc,-1 -Wc,-c1 -Wc,-c2 x -Wc,-3 -Wc,-only -o o/main.o"},
    {"assembler options from a file", R"(asm_additional_options_from_file="c.opt")", "start.s",
     "CC -v -c -xasm P/start.s -g -depend o/start.d -Wa,-c1 -Wa,-c2 x -o o/start.o"},

    {"a linker script", R"(link_linker_script_file="app.ld" link_use_linker_script_file="Yes")", "app",
     "CC -v -inputfiles o/app.ind -TP/app.ld -printf=l -scanf=l -M -o out/app.elf"},
    {"a linker script that isn't used", R"(link_linker_script_file="app.ld")", "app",
     "CC -v -inputfiles o/app.ind -printf=l -scanf=l -M -o out/app.elf"},
    {"memory map and placement",
     R"x(linker_memory_map_file="$(ProjectDir)/map.xml" linker_memory_map_macros="A=1;B=$(ProjectName)"
        linker_section_placements_segments="FLASH RX 0x0 0x1000" linker_section_placement_file="place.xml"
        linker_section_placement_macros="C=2")x",
     "app",
     "CC -v -inputfiles o/app.ind -memorymap map.xml -memorymapmacros A=1;B=app -placementsegments FLASH RX 0x0 0x1000 "
     "-placement place.xml -placementmacros C=2 -printf=l -scanf=l -M -o out/app.elf"},
    {"a link of C++", R"(cpp_enable_exceptions="Yes" cpp_enable_rtti="Yes")", "app",
     "CC -v -inputfiles o/app.ind -exceptions -rtti -printf=l -scanf=l -M -o out/app.elf"},
    {"output format, map file, libraries",
     R"(linker_output_format="hex" linker_map_file="No" link_include_standard_libraries="No")", "app",
     "CC -v -inputfiles o/app.ind -printf=l -scanf=l -Fhex -l- -o out/app.elf"},
    {"no output format", R"(linker_output_format="None")", "app",
     "CC -v -inputfiles o/app.ind -printf=l -scanf=l -M -o out/app.elf"},
    {"symbols", R"(link_symbol_definitions="A=1;;B=0x20" linker_keep_symbols="main;vectors")", "app",
     "CC -v -inputfiles o/app.ind -printf=l -scanf=l -M -dA=1 -dB=0x20 -Kmain -Kvectors -o out/app.elf"},
    {"linker options and patch", R"x(linker_additional_options="-a;--x\;y" linker_additional_options_from_file="c.opt"
        linker_patch_build_command="patch $(ProjectName)")x",
     "app",
     "CC -v -inputfiles o/app.ind -printf=l -scanf=l -M -Wl,-a -Wl,--x;y -Wl,-c1 -Wl,-c2 x -patch patch app -o "
     "out/app.elf"},
};

} // namespace

TEST_F(CommandsTest, PropertiesMakeArguments)
{
    folder.write("c.opt", "# options\n-c1\n-c2 x\n");
    folder.write("conly.opt", "-only\n");
    for (const char *name : {"app.ld", "map.xml", "place.xml"})
        folder.write(name, "");
    for (const CommandRowCase &row : commandRowCases) {
        load(row.attributes);
        const ToolCommand made = tools.command(request(row.node));
        EXPECT_EQ(line(made.arguments), QString::fromUtf8(row.command)) << row.what;
        EXPECT_EQ(made.directory, folder.root()) << row.what;
        EXPECT_EQ(made.error, QString()) << row.what;
        QString error;
        EXPECT_EQ(tools.hash(request(row.node), {u"more"_s}, error),
                  commandHash(made.directory, made.arguments, made.inputs + QStringList(u"more"_s) + made.programs))
            << row.what;
        EXPECT_NO_THROW(DriverOptions::parse(made.arguments.sliced(1))) << row.what; // the driver knows them all
    }
    load("");
    EXPECT_EQ(line(tools.command(request("main.c", BuildFlag::noDepend)).arguments),
              u"CC -v -c -xc P/main.c -g -o o/main.o"_s);
}

// Of a folder's sources it must be known what tells their commands apart: else a changed one would go unnoticed.
TEST_F(CommandsTest, SourcesShareACommandUnlessMoreThanTheirNamesIsTheirOwn)
{
    folder.write("c.opt", "-c1\n");
    struct Row
    {
        const char *attributes;
        bool isShared;
    };
    const Row rows[] = {
        {"", true},
        {R"x(c_preprocessor_definitions="A=$(ProjectName)" c_additional_options_from_file="c.opt")x", true},
        {R"x(c_preprocessor_definitions="A=$(InputName)")x", false},
        {R"x(c_additional_options_from_file="$(InputName).opt")x", false},
        {R"x(build_intermediate_directory="o/$(InputName)")x", false},
        {R"x(build_dependency_file_name="$(IntDir)/$(InputFileName).d")x", false},
    };
    std::set<quint64> hashes;
    QString error;
    for (const Row &row : rows) {
        load(row.attributes);
        CommandHash hash;
        EXPECT_EQ(tools.addShared(request("main.c"), hash, error), row.isShared) << row.attributes;
        hashes.insert(hash.value());
    }
    EXPECT_EQ(hashes.size(), std::size(rows));
    folder.write("c.opt", "-c2\n");
    load(rows[1].attributes);
    CommandHash hash;
    tools.addShared(request("main.c"), hash, error);
    EXPECT_FALSE(hashes.contains(hash.value())) << "another option in the file";
}

TEST_F(CommandsTest, TheDriverUnderstandsThem)
{
    for (const char *name : {"app.ld", "map.xml", "place.xml"})
        folder.write(name, "");
    load(R"x(build_treat_warnings_as_errors="Yes" build_suppress_warnings="Yes" cpp_enable_exceptions="Yes"
        cpp_enable_rtti="Yes" c_user_include_directories="inc" c_preprocessor_definitions="A=1"
        c_preprocessor_undefinitions="B" default_code_section=".c" default_data_section=".d" default_zeroed_section=".z"
        default_const_section=".k" c_additional_options="-O2" asm_additional_options="-W" linker_additional_options="-n"
        link_use_linker_script_file="Yes" link_linker_script_file="app.ld" linker_memory_map_file="map.xml"
        linker_memory_map_macros="M=1" linker_section_placement_file="place.xml" linker_section_placement_macros="P=1"
        linker_section_placements_segments="FLASH RX 0 10" linker_output_format="srec" link_symbol_definitions="s=1"
        linker_keep_symbols="k" linker_patch_build_command="patch it" link_include_standard_libraries="No")x");
    const DriverOptions compile = DriverOptions::parse(tools.command(request("util.cpp")).arguments.sliced(1));
    EXPECT_EQ(compile.action, DriverOptions::Action::Compile);
    EXPECT_EQ(compile.language, DriverOptions::Language::Cpp);
    EXPECT_TRUE(compile.verbose && compile.warningsAsErrors && compile.suppressWarnings && compile.debug &&
                compile.exceptions && compile.rtti);
    EXPECT_EQ(line(compile.inputs), u"P/sub/util.cpp"_s);
    EXPECT_EQ(line(compile.preprocessor), u"-Iinc -DA=1 -UB"_s);
    EXPECT_EQ(line(compile.compilerOptions), u"-O2"_s);
    EXPECT_EQ(line({compile.codeSection, compile.dataSection, compile.zeroedSection, compile.constSection,
                    compile.dependencyFile, compile.output}),
              u".c .d .z .k o/util.d o/util.o"_s);
    EXPECT_EQ(line(DriverOptions::parse(tools.command(request("start.s")).arguments.sliced(1)).assemblerOptions),
              u"-W"_s);

    const DriverOptions link = DriverOptions::parse(tools.command(request("app")).arguments.sliced(1));
    EXPECT_EQ(link.action, DriverOptions::Action::Link);
    EXPECT_TRUE(link.map && !link.standardLibraries && link.exceptions && link.rtti);
    EXPECT_EQ(line({link.inputsFile, link.linkerScript, link.memoryMap, link.memoryMapMacros, link.placement,
                    link.placementMacros, link.placementSegments, link.printfCode, link.scanfCode, link.outputFormat,
                    link.patchCommand, link.output}),
              u"o/app.ind P/app.ld map.xml M=1 place.xml P=1 FLASH RX 0 10 l l srec patch it out/app.elf"_s);
    EXPECT_EQ(line(link.symbolDefinitions + link.keepSymbols + link.linkerOptions), u"s=1 k -n"_s);
}

TEST_F(CommandsTest, PrintfAndScanfHaveCodes)
{
    struct Row
    {
        const char *attributes, *codes;
    };
    const Row rows[] = {
        {R"(linker_printf_fmt_level="int" linker_scanf_fmt_level="int")", "-printf=i -scanf=i"},
        {R"(linker_printf_fmt_level="long long" linker_scanf_fmt_level="long long")", "-printf=ll -scanf=ll"},
        {R"(linker_printf_width_precision_supported="Yes" linker_printf_wchar_enabled="Yes"
            linker_scanf_character_group_matching_enabled="Yes")",
         "-printf=lpw -scanf=lc"},
        {R"(linker_printf_fp_enabled="Double" linker_printf_width_precision_supported="Yes"
            linker_scanf_fp_enabled="Yes")",
         "-printf=d -scanf=d"},
        {R"(linker_printf_fp_enabled="Yes" linker_printf_fmt_level="long long" linker_scanf_fp_enabled="Yes"
            linker_scanf_fmt_level="long long" linker_scanf_character_group_matching_enabled="Yes")",
         "-printf=dll -scanf=dllc"},
        {R"(linker_printf_fp_enabled="Float" linker_printf_wchar_enabled="Yes")", "-printf=fw -scanf=l"},
        {R"(linker_printf_fp_enabled="Float" linker_printf_fmt_level="long long")", "-printf=fll -scanf=l"},
    };
    for (const Row &row : rows) {
        load(row.attributes);
        EXPECT_TRUE(line(tools.command(request("app")).arguments).contains(QString::fromLatin1(row.codes)))
            << row.attributes;
    }
}

// Files of one folder share what they can; what names a file or is set at one is its own.
TEST_F(CommandsTest, CommandsOfFilesAreTheirOwn)
{
    load(R"x(c_preprocessor_definitions="A;F=$(FolderName);I=$(InputName)")x",
         R"(<file file_name="a.c"/><folder Name="one"><file file_name="b.c"/><file file_name="c.c"><configuration
            Name="Debug" c_preprocessor_definitions="C"/></file></folder>)");
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(line(tools.command(request("a.c")).arguments),
                  u"CC -v -c -xc P/a.c -g -DA -DF=$(FolderName) -DI=a -depend o/a.d -o o/a.o"_s);
        EXPECT_EQ(line(tools.command(request("b.c")).arguments),
                  u"CC -v -c -xc P/b.c -g -DA -DF=one -DI=b -depend o/b.d -o o/b.o"_s);
        EXPECT_EQ(line(tools.command(request("c.c")).arguments),
                  u"CC -v -c -xc P/c.c -g -DA -DF=one -DI=c -DC -depend o/c.d -o o/c.o"_s);
    }
    const PropertyClass *definitions = system.schema().propertyClassNamed(u"c_preprocessor_definitions"_s);
    system.setPropertyValue(project, definitions, u"Common"_s, u"Z"_s);
    EXPECT_EQ(line(tools.command(request("b.c")).arguments), u"CC -v -c -xc P/b.c -g -DZ -depend o/b.d -o o/b.o"_s);
}

TEST_F(CommandsTest, RunInStepsOfTheirOwn)
{
    load("");
    const auto notesOf = [this](const char *name) {
        builder.notes.clear();
        tools.toolCommands(request(name), builder);
        return shown(builder.notes.join(u", "));
    };
    EXPECT_EQ(notesOf("main.c"), u"step Compiling main.c, run in P for P/o/main.o, end"_s);
    EXPECT_EQ(notesOf("start.s"), u"step Assembling start.s, run in P for P/o/start.o, end"_s);
    EXPECT_FALSE(QDir(folder.path("o")).exists());
    EXPECT_EQ(notesOf("app"), u"step Linking app.elf, run in P for P/out/app.elf, end"_s);
    EXPECT_EQ(folder.read("o/app.ind"), "o/main.o\no/b c.o\n");
    load(R"(project_type="Library")");
    EXPECT_EQ(notesOf("app"), u"step Archiving app.a, run in P for P/out/app.a, end"_s);
    EXPECT_FALSE(state.failed);
}

TEST_F(CommandsTest, FailWithoutRunningAnything)
{
    load(R"(c_additional_options_from_file="none.opt" linker_additional_options_from_file="no.opt")");
    for (const char *name : {"main.c", "app"}) {
        tools.toolCommands(request(name), builder);
        EXPECT_TRUE(state.failed);
        state.clear();
    }
    EXPECT_EQ(builder.notes, QStringList({u"error Cannot load options file: none.opt"_s,
                                          u"error Cannot load options file: no.opt"_s}));

    folder.write("none.opt", "-x\n"); // is seen with the next build
    tools.refresh();
    EXPECT_EQ(tools.command(request("main.c")).error, QString());

    load(R"(build_intermediate_directory="s.vnProject/o")");
    builder.notes.clear();
    tools.toolCommands(request("app"), builder);
    EXPECT_TRUE(state.failed);
    EXPECT_EQ(shown(builder.notes.join(u',')), u"error Cannot open file: P/s.vnProject/o/app.ind"_s);
}

TEST_F(CommandsTest, WithoutWhatTheLinkerShouldReadFail)
{
    struct Row
    {
        const char *attributes, *error;
    };
    const Row rows[] = {
        {"", ""},
        {R"x(linker_memory_map_file="$(Configuration).xml")x", "Cannot find memory map file: Debug.xml"},
        {R"(linker_memory_map_file="no.xml" linker_section_placements_segments="FLASH RX 0 10")", ""},
        {R"(linker_section_placement_file="no.xml")", "Cannot find section placement file: no.xml"},
        {R"(linker_memory_map_file="no.xml" link_linker_script_file="s.vnProject" link_use_linker_script_file="Yes")",
         ""},
        {R"(link_linker_script_file="no.ld")", ""},
        {R"(link_linker_script_file="no.ld" link_use_linker_script_file="Yes")",
         "Cannot find linker script file: no.ld"},
    };
    for (const Row &row : rows) {
        load(row.attributes);
        builder.notes.clear();
        tools.toolCommands(request("app"), builder);
        EXPECT_EQ(builder.notes.filter(u"error"_s).join(u','),
                  QString::fromLatin1(*row.error ? "error " : "") + QString::fromLatin1(row.error))
            << row.attributes;
        EXPECT_EQ(state.failed, *row.error != 0);
        EXPECT_FALSE(tools.command(request("app")).arguments.join(u' ').contains("no."_L1)) << row.attributes;
        state.failed = false;
    }
}

TEST_F(CommandsTest, PropertyGroupsAddTheirs)
{
    folder.write("groups.xml",
                 R"x(<groups><group name="board" default="Nano"><groupEntry name="Nano"><cdefine name="NANO"/>
        <cdefine name="SPEED" value="8" configuration="Debug"/><cinclude value="inc/$(Configuration)"/>
        <cinclude value="/a/../b"/><cdefine name="NEVER" configuration="Release"/><library name="$(ProjectDir)/nano.a"/>
        </groupEntry><groupEntry name="Mega"><cdefine name="MEGA"/></groupEntry></group></groups>)x");
    load(R"x(property_groups_file_path="groups.xml" c_preprocessor_definitions="X"
        linker_additional_files="a\;b.a;$(ProjectName).a")x");
    EXPECT_EQ(line(tools.command(request("main.c")).arguments),
              u"CC -v -c -xc P/main.c -g -DNANO -DSPEED=8 -Iinc/Debug -I/b -DX -depend o/main.d -o o/main.o"_s);
    EXPECT_EQ(line(tools.additionalLinkInputs(project, debug)), u"P/nano.a a;b.a app.a"_s);
    load(R"(property_groups_file_path="groups.xml" board="Mega")");
    EXPECT_EQ(line(tools.command(request("main.c")).arguments),
              u"CC -v -c -xc P/main.c -g -DMEGA -depend o/main.d -o o/main.o"_s);
}

TEST_F(CommandsTest, UnityFoldersAreOneSource)
{
    load("",
         R"x(<folder Name="lib"><configuration Name="Common" unity_build_file_name="$(IntDir)/$(ProjectNodeName)_u.c"
        unity_build_exclude_filter="*/own.c;alone*"/><file file_name="a.c"/><file file_name="b.cpp"/><file file_name="own.c"/>
        <file file_name="sub/alone.c"/><file file_name="read.h"/><file file_name="fast.s"/>
        <folder Name="in"><file file_name="c.c"/><file file_name="out.c"><configuration Name="Common"
        build_exclude_from_build="Yes"/></file></folder></folder>)x");
    const ProjectElement *lib = node("lib");
    EXPECT_EQ(toolKind(system, lib, debug), ToolKind::CppCompile);
    EXPECT_EQ(toolKind(system, lib, debug, BuildFlag::noUnity), ToolKind::None);
    const UnityFiles files = unityFiles(system, lib, debug);
    QStringList members, excluded;
    for (const ProjectElement *file : files.members)
        members += file->displayName();
    for (const ProjectElement *file : files.excluded)
        excluded += file->displayName();
    EXPECT_EQ(members, QStringList({u"a.c"_s, u"b.cpp"_s, u"c.c"_s}));
    EXPECT_EQ(excluded, QStringList({u"own.c"_s, u"alone.c"_s, u"fast.s"_s}));
    const ToolRequest one = request("lib");
    EXPECT_EQ(line(tools.command(one).arguments), u"CC -v -c -xc++ P/o/lib_u.c -g -depend o/lib_u.d -o o/lib_u.o"_s);
    tools.toolCommands(one, builder);
    EXPECT_EQ(builder.notes.value(0), u"step Compiling folder lib in unity mode as lib_u.c"_s);
}
