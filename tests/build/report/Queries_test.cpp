#include "support/SmallSolution.h"

TEST(VnBuildQueries, ListWhatASolutionHas)
{
    const SmallSolution solution;
    EXPECT_EQ(solution.line({u"--list"_s, u"projects"_s}), u"app lib"_s);
    EXPECT_EQ(solution.line({u"--list"_s, u"configurations"_s}), u"Debug Release"_s);
    EXPECT_EQ(solution.line({u"--list"_s, u"files"_s, u"-p"_s, u"lib"_s}), u"lib/lib.c"_s);
    EXPECT_EQ(solution.line({u"--list"_s, u"files"_s}).split(u' ').last(), u"lib/lib.c"_s);
    EXPECT_THAT(solution.line({u"--list"_s, u"properties"_s}).toStdString(), testing::HasSubstr("project_type"));

    const auto json = [&](const QString &what) {
        return QJsonDocument::fromJson(solution.run({u"--json"_s, u"--list"_s, what}).out).array();
    };
    EXPECT_EQ(json(u"projects"_s)[0][u"dependencies"_s].toArray(), QJsonArray{u"lib"_s});
    EXPECT_EQ(json(u"configurations"_s)[2][u"name"_s], u"Base"_s);
    EXPECT_EQ(json(u"configurations"_s)[2][u"hidden"_s], true);
    EXPECT_EQ(json(u"files"_s)[1][u"file"_s], solution.path("src/util.c"));
    EXPECT_EQ(json(u"files"_s)[1][u"type"_s], u"C"_s);

    SmallSolution plain;
    plain.write("small.vnProject", "<!DOCTYPE Veldane_Project_File><solution><configuration Name='Other' "
                                   "Platform='none'/></solution>");
    EXPECT_EQ(plain.line({u"--list"_s, u"configurations"_s}), u"Common"_s) << "what is built then";
}

TEST(VnBuildQueries, NodesAreFoundByEachOfTheirNames)
{
    const SmallSolution solution;
    const auto definitions = [&](const QString &node) {
        return solution.line({u"--get"_s, u"c_preprocessor_definitions"_s, u"--node"_s, node});
    };
    EXPECT_EQ(definitions(u"app"_s), u"ALL"_s);
    for (const auto &node : {u"app/Source Files"_s, u"app/Source Files/main.c"_s, u"app/Source Files/src/util.c"_s,
                             u"app/Source Files/util.c"_s, u"app/src/util.c"_s, u"app/main.c"_s})
        EXPECT_EQ(definitions(node), u"ALL;FOLDER"_s) << node.toStdString();
    EXPECT_EQ(definitions({}), QString());
}

TEST(VnBuildQueries, ValuesRawExpandedAndTraced)
{
    const SmallSolution solution;
    EXPECT_EQ(solution.line({u"--get"_s, u"build_output_directory"_s}), u"Output/$(Configuration)/Exe"_s);
    EXPECT_EQ(solution.line({u"--get"_s, u"build_output_directory"_s, u"--expand"_s, u"-c"_s, u"Release"_s}),
              u"Output/Release/Exe"_s);
    EXPECT_EQ(solution.line({u"--get"_s, u"Name"_s, u"--node"_s, u"lib"_s}), u"lib"_s);
    EXPECT_EQ(
        solution.run({u"--get"_s, u"c_preprocessor_definitions"_s, u"--node"_s, u"app/main.c"_s, u"--trace-value"_s})
            .out,
        "ALL;FOLDER\n  folder Source Files in Debug configuration: FOLDER\n"
        "  project app in Common configuration: ALL\n");
    EXPECT_EQ(solution.run({u"--get"_s, u"build_quietly"_s, u"--trace-value"_s}).out, "No\n  default: No\n");
    const QJsonObject json =
        QJsonDocument::fromJson(solution.run({u"--get"_s, u"project_type"_s, u"--node"_s, u"app"_s, u"--json"_s}).out)
            .object();
    EXPECT_EQ(json[u"value"_s], u"Externally Built Library"_s);
    EXPECT_EQ(json[u"contributions"_s][0][u"configuration"_s], u"Common"_s);
    EXPECT_EQ(json[u"contributions"_s][0][u"node"_s], u"app"_s);
    const ProgramResult unknown = solution.run({u"--get"_s, u"nothing"_s, u"--json"_s});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(QJsonDocument::fromJson(unknown.out).object()[u"value"_s], QJsonValue(QJsonValue::Null));
    // A global macro of the command line.
    EXPECT_EQ(solution.run({u"--set"_s, u"code_completion_options=$(MINE)"_s}).status, 0);
    EXPECT_EQ(solution.line({u"--get"_s, u"code_completion_options"_s, u"--expand"_s, u"-D"_s, u"MINE=a b"_s}),
              u"a b"_s);
}

TEST(VnBuildQueries, SetSavesTheSolutionOrLeavesIt)
{
    const SmallSolution solution;
    const QByteArray before = solution.read("small.vnProject");
    EXPECT_EQ(solution.problem({u"--set"_s, u"build_quietly=Yes"_s, u"--set"_s, u"build_quietly=Perhaps"_s}),
              u"vnBuild: build_quietly is one of: No, Yes; not 'Perhaps'"_s);
    EXPECT_EQ(solution.problem({u"--set"_s, u"nothing=1"_s}),
              u"vnBuild: no property 'nothing'; --list properties tells those that there are"_s);
    EXPECT_EQ(solution.run({u"--set"_s, u"build_quietly"_s}).status, 2);
    EXPECT_EQ(solution.read("small.vnProject"), before);

    EXPECT_EQ(solution.run({u"--set"_s, u"build_quietly=Yes"_s}).status, 0); // in Common
    EXPECT_EQ(solution
                  .run({u"--set"_s, u"c_preprocessor_definitions=A=1;B"_s, u"--node"_s, u"app/src/util.c"_s, u"-c"_s,
                        u"Release"_s})
                  .status,
              0);
    EXPECT_EQ(solution.line({u"--get"_s, u"build_quietly"_s, u"--node"_s, u"lib/lib.c"_s}), u"Yes"_s);
    const QStringList get{u"--get"_s, u"c_preprocessor_definitions"_s, u"--node"_s, u"app/src/util.c"_s, u"-c"_s};
    EXPECT_EQ(solution.line(get + QStringList{u"Release"_s}), u"ALL;A=1;B"_s);
    EXPECT_EQ(solution.line(get + QStringList{u"Debug"_s}), u"ALL;FOLDER"_s);
}

TEST(VnBuildQueries, SetKnowsWhatBelongsToTheNode)
{
    const SmallSolution solution;
    EXPECT_EQ(solution.run({u"--set"_s, u"Name=renamed"_s, u"--set"_s, u"debug_threads_max=7"_s, u"--node"_s, u"lib"_s})
                  .status,
              0);
    EXPECT_EQ(solution.run({u"--set"_s, u"file_name=main.c"_s, u"--node"_s, u"renamed/lib.c"_s}).status, 0);
    EXPECT_EQ(solution.line({u"--list"_s, u"files"_s, u"-p"_s, u"renamed"_s}), u"renamed/main.c"_s);
    EXPECT_EQ(solution.line({u"--get"_s, u"project_type"_s, u"-p"_s, u"renamed"_s}), u"Externally Built Library"_s)
        << "Common is still called so";
    EXPECT_EQ(solution.run({u"--set"_s, u"public_configurations=Debug;New"_s}).status, 0);
    EXPECT_EQ(solution.line({u"--list"_s, u"configurations"_s}), u"Debug New"_s);
    EXPECT_EQ(solution.problem({u"--set"_s, u"public_configurations=A"_s, u"-p"_s, u"app"_s}),
              u"vnBuild: public_configurations is a property of solutions"_s);
    EXPECT_EQ(solution.problem({u"--set"_s, u"project_directory=x"_s, u"-p"_s, u"app"_s, u"-c"_s, u"Debug"_s}),
              u"vnBuild: project_directory belongs to all configurations; it is set without --config"_s);
    EXPECT_EQ(solution.problem({u"--set"_s, u"debug_threads_max=1001"_s}),
              u"vnBuild: debug_threads_max is from 1 to 1000; not 1001"_s);
}

TEST(VnBuildQueries, GroupsAndTheToolChainsOwnPropertiesAreProperties)
{
    SmallSolution solution;
    solution.write("groups.xml", R"(<g><group name="core" default="M3"><groupEntry name="M3"/><groupEntry name="M4">
        <property name="build_quietly" value="Yes"/></groupEntry></group></g>)");
    solution.write("options.xml", R"(<o><property name="level" tool="compiler" type="Enumeration" enumeration="1;2"
        default="1"/></o>)");
    ASSERT_EQ(solution
                  .run({u"--set"_s, u"property_groups_file_path=groups.xml"_s, u"--set"_s,
                        u"build_generic_options_file_name=options.xml"_s, u"-p"_s, u"app"_s})
                  .status,
              0);
    EXPECT_EQ(solution.line({u"--get"_s, u"core"_s, u"-p"_s, u"app"_s}), u"M3"_s);
    EXPECT_EQ(solution.line({u"--get"_s, u"level"_s, u"-p"_s, u"app"_s}), u"1"_s);
    EXPECT_EQ(solution.problem({u"--set"_s, u"core=M5"_s, u"-p"_s, u"app"_s}),
              u"vnBuild: core is one of: M3, M4; not 'M5'"_s);
    EXPECT_EQ(solution.run({u"--set"_s, u"core=M4"_s, u"--set"_s, u"level=2"_s, u"-p"_s, u"app"_s}).status, 0);
    EXPECT_EQ(solution.line({u"--get"_s, u"level"_s, u"-p"_s, u"app"_s}), u"2"_s);
    EXPECT_EQ(solution.line({u"--get"_s, u"build_quietly"_s, u"-p"_s, u"app"_s}), u"Yes"_s) << "the entry sets it";
    EXPECT_THAT(solution.line({u"--list"_s, u"properties"_s, u"-p"_s, u"app"_s}).toStdString(),
                testing::ContainsRegex(" level .* core "));
    // A package's groups are there for all projects.
    QDir(QFileInfo(solution.file()).path()).mkpath(u"packages/board"_s);
    solution.write("packages/board/propertyGroups.xml",
                   "<g><group name='board' default='B1'><groupEntry name='B1'/></group></g>");
    EXPECT_EQ(runProgram(u"vnBuild"_s, {solution.file(), u"--get"_s, u"board"_s}, {},
                         {"VELDANE_USER_DIR="_L1 + QFileInfo(solution.file()).path()})
                  .out,
              "B1\n");
    solution.write("options.xml", "<o>\n<property");
    EXPECT_EQ(solution.problem({u"--get"_s, u"level2"_s, u"-p"_s, u"app"_s}),
              u"vnBuild: no property 'level2'; options.xml:2: <property> has no end"_s);
}

TEST(VnBuildQueries, CommandsArePrintedAndNothingIsRun)
{
    const SmallSolution solution;
    const QString object = u"Output/Debug/Obj/app/util.o"_s;
    EXPECT_EQ(solution.line({u"--command"_s, u"util.c"_s}), u"/bin/sh compile.sh src/util.c "_s + object);
    const QJsonArray json =
        QJsonDocument::fromJson(solution.run({u"--command"_s, u"app/src/util.c"_s, u"--json"_s}).out).array();
    ASSERT_EQ(json.size(), 1);
    EXPECT_EQ(json[0][u"directory"_s], QFileInfo(solution.file()).path());
    EXPECT_EQ(json[0][u"arguments"_s].toArray().size(), 4);
    EXPECT_EQ(json[0][u"output"_s], QFileInfo(solution.file()).path() + u'/' + object);
    EXPECT_FALSE(QFile::exists(solution.path("Output/Debug/Obj/app/util.o")));
}

TEST(VnBuildQueries, WhatIsUnknownIsToldWithWhatThereIs)
{
    const SmallSolution solution;
    EXPECT_EQ(solution.problem({u"-c"_s, u"None"_s}), u"vnBuild: no configuration 'None'; there are: Debug, Release"_s);
    EXPECT_EQ(solution.problem({u"-p"_s, u"none"_s}), u"vnBuild: no project 'none'; there are: app, lib"_s);
    EXPECT_EQ(solution.problem({u"--get"_s, u"macros"_s, u"--node"_s, u"app/x"_s}),
              u"vnBuild: no node 'x' in 'app'; there are: Source Files"_s);
    EXPECT_THAT(solution.problem({u"--only"_s, u"x.c"_s}).toStdString(),
                testing::StartsWith("vnBuild: no file 'x.c'; there are: app/Source Files/main.c, "));
    EXPECT_EQ(solution.problem({u"--only"_s, u"app"_s}), u"vnBuild: 'app' is a project, not a file"_s);
    EXPECT_EQ(solution.problem({u"--get"_s, u"nothing"_s}),
              u"vnBuild: no property 'nothing'; --list properties tells those that there are"_s);
}

TEST(VnBuildQueries, WrongUsageIsTold)
{
    const SmallSolution solution;
    const QStringList wrong[] = {{u"--list"_s, u"nothing"_s},
                                 {u"--jobs"_s, u"many"_s},
                                 {u"-j"_s, u"-1"_s},
                                 {u"--clean"_s, u"--rebuild"_s},
                                 {u"-q"_s, u"-v"_s},
                                 {u"-D"_s, u"MINE"_s},
                                 {u"--color"_s, u"blue"_s},
                                 {u"--bogus"_s},
                                 {u"another"_s},
                                 {u"--export"_s, u"nothing"_s},
                                 {u"--node"_s, u"app"_s},
                                 {u"--trace-value"_s},
                                 {u"-o"_s, u"x"_s}};
    for (const QStringList &words : wrong) {
        const ProgramResult result = solution.run(words);
        EXPECT_EQ(result.status, 2) << words.join(u' ').toStdString();
        EXPECT_TRUE(result.out.isEmpty());
        EXPECT_EQ(result.error.count('\n'), 1) << result.error.toStdString();
    }
    EXPECT_EQ(runProgram(u"vnBuild"_s, {}).status, 2);
    EXPECT_EQ(runProgram(u"vnBuild"_s, {u"--help"_s}).status, 0);
}

TEST(VnBuildQueries, BrokenSolutionsAreOneLineWithTheirPlace)
{
    const SmallSolution solution;
    struct
    {
        const char *what;
        QByteArray text;
        const char *message; // its start, behind the name
    } rows[] = {
        {"half written", solution.read("small.vnProject").first(700), ":"},
        {"closed by another tag", "<!DOCTYPE Veldane_Project_File>\n<solution Name=\"x\">\n<project>\n</file>\n",
         ":4: "},
        {"of another type", "<!DOCTYPE Other>\n<solution/>\n", ": not a solution file"},
        {"empty", "", ":"},
        {"no XML", QByteArray(1000, '\xFF'), ": not a solution file"},
    };
    for (const auto &row : rows) {
        SmallSolution broken;
        broken.write("small.vnProject", row.text);
        EXPECT_THAT(broken.problem({u"--list"_s, u"projects"_s}).toStdString(),
                    testing::StartsWith(std::string("vnBuild: small.vnProject") + row.message))
            << row.what;
        EXPECT_EQ(broken.read("small.vnProject"), row.text) << row.what;
    }
    SmallSolution importing;
    // A name that looks like the places in a message.
    importing.write("small.vnProject",
                    "<!DOCTYPE Veldane_Project_File>\n<solution>\n<import file_name='gone%2'/></solution>");
    EXPECT_EQ(importing.problem({u"--list"_s, u"projects"_s}),
              u"vnBuild: gone%2: does not exist (imported at small.vnProject:3)"_s);
    const ProgramResult gone = runProgram(u"vnBuild"_s, {u"/nowhere/x.vnProject"_s});
    EXPECT_EQ(gone.status, 1);
    EXPECT_EQ(gone.error, "vnBuild: /nowhere/x.vnProject: does not exist\n");
    EXPECT_EQ(runProgram(u"vnBuild"_s, {u"/tmp"_s}).error, "vnBuild: /tmp: is a folder, not a solution file\n");
}

TEST(VnBuildQueries, AReadOnlySolutionIsNotReplaced)
{
    SmallSolution solution;
    if (::geteuid() == 0)
        GTEST_SKIP() << "the superuser may write to every file";
    QFile::setPermissions(solution.file(), QFile::ReadOwner);
    const QByteArray before = solution.read("small.vnProject");
    EXPECT_THAT(solution.problem({u"--set"_s, u"build_quietly=Yes"_s}).toStdString(),
                testing::StartsWith("vnBuild: small.vnProject: "));
    EXPECT_EQ(solution.read("small.vnProject"), before);
}
