#include "CommandsTest.h"

using namespace Qt::StringLiterals;

TEST_F(CommandsTest, KindsGoByProjectAndFile)
{
    using enum ToolKind;
    struct Row
    {
        const char *what, *attributes;
        ToolKind project, c, cpp, assembly, object, text;
    };
    const Row rows[] = {
        {"executable", "", Link, CCompile, CppCompile, Assemble, External, None},
        {"library", R"(project_type="Library")", Archive, CCompile, CppCompile, Assemble, External, None},
        {"object file", R"(project_type="Object file")", None, CCompile, CppCompile, Assemble, External, None},
        {"staging", R"(project_type="Staging")", Stage, Stage, Stage, Stage, Stage, Stage},
        {"combining", R"(project_type="Combining")", Combine, None, None, None, None, None},
        {"unknown", R"(project_type="Magic")", None, None, None, None, None, None},
        {"external object file", R"(project_type="Externally Built Object file")", None, None, None, None, External,
         None},
        {"external library", R"(project_type="Externally Built Library" external_c_compile_command="cc")", External,
         CCompile, None, None, External, None},
        {"external archive", R"(project_type="Externally Built Library" external_archive_command="ar")", Archive, None,
         None, None, External, None},
        {"external executable", R"(project_type="Externally Built Executable" external_assemble_command="as")",
         External, None, None, Assemble, External, None},
        {"external link", R"(project_type="Externally Built Executable" external_link_command="ld")", Link, None, None,
         None, External, None},
        {"external link of C++", R"(project_type="Externally Built Executable" external_cpp_link_command="ld"
            external_cpp_compile_command="c++")",
         Link, None, CppCompile, None, External, None},
        {"external with its own file", R"(project_type="Externally Built Executable" external_link_command="ld"
            external_build_file_name="x.elf")",
         External, None, None, None, External, None},
        {"excluded", R"(build_exclude_from_build="Yes")", Link, Excluded, Excluded, Excluded, Excluded, Excluded},
        {"C as C++", R"(c_files_are_cpp="Yes")", Link, CppCompile, CppCompile, Assemble, External, None},
    };
    for (const Row &row : rows) {
        load(row.attributes, R"(<folder Name="f"><file file_name="a.c"/><file file_name="b.cpp"/><file file_name="c.s"/>
            <file file_name="d.o"/><file file_name="e.txt"/></folder>)");
        EXPECT_EQ(toolKind(system, project, debug), row.project) << row.what;
        const ToolKind kinds[] = {row.c, row.cpp, row.assembly, row.object, row.text, None};
        const char *const names[] = {"a.c", "b.cpp", "c.s", "d.o", "e.txt", "f"};
        for (size_t i = 0; i < std::size(names); ++i)
            EXPECT_EQ(toolKind(system, node(names[i]), debug), kinds[i]) << row.what << ' ' << names[i];
    }
    EXPECT_EQ(toolKind(system, system.solution(), debug), None);
    EXPECT_EQ(toolKind(system, project->configuration(u"Common"_s), debug), None);
}

TEST_F(CommandsTest, OutputsAreNamedByProperties)
{
    using enum ToolKind;
    struct Row
    {
        ToolKind kind;
        const char *attributes, *node, *relative, *absolute;
    };
    const Row rows[] = {
        {None, "", "main.c", "", ""},
        {Excluded, "", "main.c", "", ""},
        {CCompile, "", "main.c", "o/main.o", "P/o/main.o"},
        {CppCompile, "", "util.cpp", "o/util.o", "P/o/util.o"},
        {Assemble, R"(build_object_file_name="/x/$(RelInputPath).o")", "start.s", "/x/start.s.o", "/x/start.s.o"},
        {External, "", "main.c", "P/main.c", "P/main.c"},
        {External, R"(external_build_file_name="$(OutDir)/x.elf")", "app", "out/x.elf", "P/out/x.elf"},
        {External, "", "app", "", ""},
        {Link, "", "app", "out/app.elf", "P/out/app.elf"},
        {Archive, "", "app", "out/app.a", "P/out/app.a"},
        {Link, R"(build_output_file_name="a/$(ProjectName).x")", "app", "a/app.x", "P/a/app.x"},
        {Stage, "", "util.cpp", "out/sub/util.cpp", "P/out/sub/util.cpp"},
        {Stage, "", "app", "", ""},
        {Combine, R"(combine_output_filepath="all.bin")", "app", "all.bin", "P/all.bin"},
        {Combine, R"(combine_output_filepath="all.bin")", "main.c", "", ""},
    };
    for (const Row &row : rows) {
        load(row.attributes);
        EXPECT_EQ(shown(tools.outputName(row.kind, node(row.node), debug, false)), QString::fromLatin1(row.relative))
            << int(row.kind) << row.attributes;
        EXPECT_EQ(shown(tools.outputName(row.kind, node(row.node), debug, true)), QString::fromLatin1(row.absolute))
            << int(row.kind) << row.attributes;
    }
}

TEST_F(CommandsTest, NoTwoObjectsShareADependencyFile)
{
    load("", R"(<file file_name="foo.c"/><folder Name="Made"><file file_name="foo.pb.c"/></folder>
        <file file_name="x.y.c"/><file file_name="foo.txt"/>)");
    const auto named = [this](const char *source) {
        return tools.dependencyFileName(node(source), debug, request(source).target, false);
    };
    EXPECT_EQ(named("foo.c"), u"o/foo.d"_s);
    EXPECT_EQ(named("foo.pb.c"), u"o/foo.pb.d"_s);
    EXPECT_EQ(named("x.y.c"), u"o/x.d"_s);
    EXPECT_TRUE(line(tools.command(request("foo.pb.c")).arguments).contains(u" -depend o/foo.pb.d "_s));
    load("", R"(<file file_name="foo.pb.c"/>)");
    EXPECT_EQ(named("foo.pb.c"), u"o/foo.d"_s);
    load(R"(build_object_file_name="$(IntDir)/$(InputFileName).o")",
         R"(<file file_name="a.c"/><file file_name="a.s"/>)");
    EXPECT_EQ(named("a.c"), u"o/a.c.d"_s);
    EXPECT_EQ(named("a.s"), u"o/a.s.d"_s);
}

TEST_F(CommandsTest, FilesBesideOutputsAreNamed)
{
    load("");
    const ProjectElement *file = node("main.c");
    EXPECT_FALSE(QFile::exists(folder.path("o")));
    EXPECT_EQ(tools.readDependencies(file, debug, u"o/main.o"_s), QStringList());
    EXPECT_FALSE(QFile::exists(folder.path("o")));
    EXPECT_EQ(tools.dependencyFileName(file, debug, u"o/main.x.o"_s, false), u"o/main.d"_s);
    EXPECT_EQ(shown(tools.dependencyFileName(file, debug, u"o/main"_s, true)), u"P/o/main.d"_s);
    EXPECT_TRUE(QFile::exists(folder.path("o")));
    folder.write("o/main.d", "o/main.o: main.c a.h\n");
    EXPECT_EQ(tools.readDependencies(file, debug, u"o/main.o"_s), QStringList(u"a.h"_s));
    EXPECT_EQ(shown(tools.intermediatePath(file, debug, u"x y"_s)), u"P/o/x y"_s);

    EXPECT_EQ(tools.mapFileName(project, debug, u"out/app.1.elf"_s), u"out/app.1.map"_s);
    EXPECT_EQ(tools.mapFileName(project, debug, u"app"_s), u"app.map"_s);
    EXPECT_EQ(tools.extraOutputs(ToolKind::Link, project, debug, u"out/app.elf"_s), QStringList());
    EXPECT_EQ(tools.optionFiles(ToolKind::Link, project, debug), QStringList());
    EXPECT_FALSE(tools.linkerScript(project, debug));
    EXPECT_FALSE(tools.memoryMapFile(project, debug));
    EXPECT_TRUE(tools.hasCppFile(project, debug));
    EXPECT_FALSE(tools.hasCppFile(node("main.c"), debug));

    load(R"(build_intermediate_directory="" linker_map_file="No" linker_output_format="srec"
        linker_post_build_command_output_file="$(ProjectName).crc" linker_post_build_command_wd="post"
        build_dependency_file_name="d/$(InputName).dep" linker_memory_map_file="s.vnProject"
        c_additional_options_from_file="1" asm_additional_options_from_file="/2"
        linker_additional_options_from_file="3")");
    EXPECT_EQ(shown(tools.intermediatePath(project, debug, u"x"_s)), u"P/x"_s);
    EXPECT_FALSE(tools.mapFileName(project, debug, u"out/app.elf"_s));
    EXPECT_EQ(tools.extraOutputs(ToolKind::Link, project, debug, u"/out/app.elf"_s),
              QStringList({u"/out/app.srec"_s, u"post/app.crc"_s}));
    EXPECT_EQ(tools.extraOutputs(ToolKind::Archive, project, debug, u"/out/app.elf"_s), QStringList());
    EXPECT_EQ(shown(tools.dependencyFileName(node("main.c"), debug, u"o/main.o"_s, true)), u"P/d/main.dep"_s);
    EXPECT_TRUE(QFile::exists(folder.path("d")));
    EXPECT_EQ(shown(*tools.memoryMapFile(project, debug)), u"P/s.vnProject"_s);
    EXPECT_EQ(line(tools.optionFiles(ToolKind::CCompile, project, debug)), u"P/1 /2"_s);
    EXPECT_EQ(line(tools.optionFiles(ToolKind::Link, project, debug)), u"P/3"_s);
}
