#include "build/engine/BuildFixture.h"

using namespace Qt::StringLiterals;

namespace {

// The steps of each kind of node: their titles, commands and order.
class ElementBuild : public BuildFixture
{};

TEST_F(ElementBuild, CompileRunsItsCommandsAroundAndKnowsTheirMacros)
{
    write("dir/a b.c", 10);
    write("options.txt", 10, "-from file\n# no option\n");
    load("<project Name=\"p\"><configuration Name=\"Common\" project_type=\"Object file\" "
         "external_c_compile_command=\"compile $(TargetPath) $(RelTargetPath) $(RelDependencyPath) $(Defines) "
         "$(Undefines) "
         "$(Includes) $(COptions) $(COnlyOptions)\" c_preprocessor_definitions=\"A=1;B=x y\" "
         "c_preprocessor_undefinitions=\"U\" c_user_include_directories=\"inc\" c_additional_options=\"-O2\" "
         "c_only_additional_options=\"-std=c17\" c_additional_options_from_file=\"options.txt\" "
         "compile_pre_build_command=\"before &quot;$(InputPath)&quot;\" "
         "compile_pre_build_command_wd=\"$(ProjectDir)/dir\" "
         "compile_post_build_command=\"after $(RelTargetPath)\"/><file file_name=\"dir/a b.c\"/></project>");
    EXPECT_EQ(build(2), BuildResult::Complete);
    const QString object = folder.path("obj/p/a b.o");
    EXPECT_EQ(started(), (QStringList{"before "_L1 + folder.path("dir/a b.c"),
                                      "compile "_L1 + folder.path("obj/p/a") +
                                          " b.o obj/p/a b.o obj/p/a b.d -DA=1 -DB=x y -UU -Iinc "
                                          "-O2 -std=c17 -from file"_L1,
                                      u"after obj/p/a b.o"_s}));
    EXPECT_EQ(told("begin"),
              (QStringList{u"Pre-compile command a b.c"_s, u"Compiling a b.c"_s, u"Post-compile command a b.c"_s}));
    EXPECT_TRUE(QFile::exists(object));
    write("options.txt", 0, "-other\n");
    setAge("obj/p/a b.o", 5);
    EXPECT_EQ(build(2), BuildResult::Complete) << "the option file is newer";
    QFile::remove(folder.path("options.txt"));
    EXPECT_EQ(build(2), BuildResult::Failed);
    EXPECT_EQ(told("error"), QStringList{u"Cannot load options file: options.txt"_s});
}

TEST_F(ElementBuild, PreCompileOutputIsWhatIsCompiled)
{
    write("a.c", 10);
    load("<project Name=\"p\"><configuration Name=\"Common\" project_type=\"Object file\" "
         "external_c_compile_command=\"\" "
         "compile_pre_build_command=\"generate\" compile_pre_build_command_output_file_name=\"made.c\"/>"
         "<file file_name=\"a.c\"/></project>");
    EXPECT_EQ(build(1), BuildResult::Complete) << "though the project has no step of its own";
    ASSERT_EQ(started().size(), 2);
    EXPECT_TRUE(QFile::exists(folder.path("made.c")));
    EXPECT_TRUE(started()[1].contains(" -xc "_L1 + folder.path("made.c") + u' ')) << qPrintable(started()[1]);
    // A command that works on the source itself makes nothing that goes when the compiler fails.
    load("<project Name=\"p\"><configuration Name=\"Common\" compile_pre_build_command=\"tidy\" "
         "compile_pre_build_command_output_file_name=\"$(InputPath)\"/><file file_name=\"a.c\"/></project>");
    for (const char *failing : {"compile", "tidy"}) {
        events.failing = {QLatin1String(failing)};
        EXPECT_EQ(build(1, BuildFlag::force), BuildResult::Failed);
        EXPECT_EQ(folder.read("a.c"), "x") << failing;
    }
}

TEST_F(ElementBuild, RebuildDeletesAndCleanOnlyDeletes)
{
    write("a.c", 10);
    load("<project Name=\"p\"><file file_name=\"a.c\"/></project>", "post_build_command=\"after\"");
    build(1);
    const QString object = folder.path("obj/p/a.o"), program = folder.path("out/p.elf");
    EXPECT_EQ(build(1, BuildFlag::rebuild), BuildResult::Complete);
    EXPECT_EQ(started().size(), 3);
    EXPECT_EQ(told("info"), (QStringList{"Remove "_L1 + object, "Remove "_L1 + program}));
    EXPECT_EQ(build(2, BuildFlag::clean), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList());
    EXPECT_FALSE(QFile::exists(object) || QFile::exists(program));
    QDir(folder.root()).mkpath(u"obj/p/a.o/folder"_s); // what isn't a file can't be removed like one
    EXPECT_EQ(build(2, BuildFlag::clean), BuildResult::Complete);
    EXPECT_EQ(told("error"), QStringList{"Cannot remove "_L1 + object});
    EXPECT_EQ(engine.failureCount(), 1);
}

TEST_F(ElementBuild, LinkTakesWhatTheProjectAndItsDependenciesMake)
{
    for (const char *name : {"a.c", "l.c", "o.c", "extra.o", "script.ld"})
        write(name, 10);
    load("<project Name=\"app\"><configuration Name=\"Common\" project_dependencies=\"lib;objects;tool\" "
         "external_link_command=\"link $(Objects) $(RelObjectsFilePath) $(LinkOptions) $(RelLinkerScriptPath)\" "
         "external_objects_file_name=\"obj/list\" linker_additional_files=\"extra.o\" "
         "link_use_linker_script_file=\"Yes\" link_linker_script_file=\"script.ld\" linker_additional_options=\"-x\" "
         "linker_pre_build_command=\"before\" linker_post_build_command=\"one $(RelTargetPath) &amp;&amp; two\"/>"
         "<file file_name=\"a.c\"/></project>"
         "<project Name=\"lib\"><configuration Name=\"Common\" project_type=\"Library\"/><file "
         "file_name=\"l.c\"/></project>"
         "<project Name=\"objects\"><configuration Name=\"Common\" project_type=\"Object file\"/>"
         "<file file_name=\"o.c\"/></project>"
         "<project Name=\"tool\"><file file_name=\"a.c\"/></project>");
    EXPECT_EQ(build(project("app"), 2), BuildResult::Complete);
    const QString library = folder.path("out/lib.a"), object = folder.path("obj/objects/o.o");
    const QStringList commands = started();
    EXPECT_EQ(commands.mid(commands.indexOf(u"before"_s)),
              (QStringList{u"before"_s,
                           "link obj/app/a.o "_L1 + library + u' ' + object + " extra.o obj/list -x script.ld"_L1,
                           u"one out/app.elf"_s, u"two"_s}));
    EXPECT_EQ(folder.read("obj/list"),
              "\"obj/app/a.o\"\n\"" + library.toUtf8() + "\"\n\"" + object.toUtf8() + "\"\n\"extra.o\"\n");
    EXPECT_EQ(build(project("app"), 2), BuildResult::UpToDate);
    for (const char *input : {"out/lib.a", "extra.o", "script.ld"}) {
        setAge("out/app.elf", 5);
        setAge(input, 0);
        EXPECT_EQ(build(project("app"), 2), BuildResult::Complete) << input;
        setAge(input, 10);
    }
}

// What a tool chain's file of options makes of properties that nobody has set, commands of its own for one, holds for
// the projects that name it, from their first source on.
TEST_F(ElementBuild, DefaultsOfAToolChainHoldForItsProjectsAlone)
{
    for (const char *name : {"a.c", "b.c", "c.c"})
        write(name, 10);
    write("tools.xml", 10,
          "<options><property name=\"compile_post_build_command\" default=\"strip $(RelTargetPath)\"/>"
          "<property name=\"build_object_file_name\" default=\"$(IntDir)/$(InputName).obj\"/></options>");
    load("<project Name=\"own\"><configuration Name=\"Common\" project_type=\"Library\" "
         "build_generic_options_file_name=\"tools.xml\" external_archive_command=\"ar $(Objects)\"/>"
         "<file file_name=\"a.c\"/><file file_name=\"b.c\"/></project>"
         "<project Name=\"plain\"><configuration Name=\"Common\" project_type=\"Object file\"/>"
         "<file file_name=\"c.c\"/></project>");
    const QStringList commands{u"compile a.c"_s,
                               u"strip obj/own/a.obj"_s,
                               u"compile b.c"_s,
                               u"strip obj/own/b.obj"_s,
                               u"ar obj/own/a.obj obj/own/b.obj"_s,
                               u"compile c.c"_s};
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(started(), commands);
    EXPECT_TRUE(QFile::exists(folder.path("obj/plain/c.o")));
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    EXPECT_EQ(build(1, BuildFlag::force), BuildResult::Complete);
    EXPECT_EQ(started(), commands);
}

TEST_F(ElementBuild, AnObjectMustNotComeTwice)
{
    write("a.c", 10);
    write("sub/a.c", 10);
    load("<project Name=\"p\"><file file_name=\"a.c\"/><file file_name=\"sub/a.c\"/></project>");
    EXPECT_EQ(build(1), BuildResult::Failed);
    const QStringList twice{u"The object file obj/p/a.o has been supplied more than once"_s};
    EXPECT_EQ(told("error"), twice);
    load("<project Name=\"p\"><file file_name=\"a.c\"/><file file_name=\"sub/a.c\"/></project>",
         "pre_build_command=\"before\"");
    EXPECT_EQ(build(1), BuildResult::Failed);
    EXPECT_EQ(told("error"), twice) << "not only by the check before the pre-build command, which tells nothing";
    EXPECT_FALSE(started().contains(u"link out/p.elf"_s));
}

TEST_F(ElementBuild, WhatIsBuiltFromIsNeverRemovedAsAnOutput)
{
    for (const char *attributes :
         {"project_type=\"Staging\" stage_output_filepath=\"$(RelInputPath)\"",
          "project_type=\"Combining\" combine_output_filepath=\"sub/../a.c\"", "build_object_file_name=\"a.c\"",
          "unity_build_file_name=\"a.c\"", "build_output_file_name=\"lib.a\" linker_additional_files=\"lib.a\""}) {
        write("a.c", 10);
        const QString library = write("lib.a", 10);
        load(QByteArray("<project Name=\"p\"><configuration Name=\"Common\" ") + attributes +
             "/><folder Name=\"f\"><file file_name=\"a.c\"/></folder></project>");
        for (const BuildFlags flags : {BuildFlag::clean, BuildFlag::rebuild}) {
            EXPECT_EQ(build(1, flags), BuildResult::Failed) << attributes;
            EXPECT_EQ(told("error").size(), 1) << attributes;
            EXPECT_TRUE(QFile::exists(library)) << attributes;
            EXPECT_EQ(folder.read("a.c"), "x") << attributes;
        }
    }
}

TEST_F(ElementBuild, AnUnacceptableOutputFailsTheLink)
{
    write("a.c", 10);
    load("<project Name=\"bad\"><configuration Name=\"Common\" linker_post_build_command=\"after\"/>"
         "<file file_name=\"a.c\"/></project>");
    EXPECT_EQ(build(1), BuildResult::Failed);
    EXPECT_FALSE(started().contains(u"after"_s));
    EXPECT_FALSE(QFile::exists(folder.path("out/bad.elf")));
}

TEST_F(ElementBuild, ArchiveCommandsAreRunOneByOne)
{
    write("a.c", 10);
    load("<project Name=\"l\"><configuration Name=\"Common\" project_type=\"Library\" "
         "external_archive_command=\"rm old&amp;&amp;ar $(RelTargetPath) $(Objects)\" "
         "archive_post_build_command=\"index $(RelTargetPath)\"/><file file_name=\"a.c\"/></project>");
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"compile a.c"_s, u"rm old"_s, u"ar out/l.a obj/l/a.o"_s, u"index out/l.a"_s}));
    EXPECT_EQ(told("begin").mid(1), (QStringList{u"Archiving l.a"_s, u"Post-archive command "_s}));
}

TEST_F(ElementBuild, ExternalBuildsRunEachTimeAndClean)
{
    load("<project Name=\"p\"><configuration Name=\"Common\" project_type=\"Externally Built Executable\" "
         "external_build_command=\"make all\" external_clean_command=\"make clean\" external_link_command=\"\" "
         "external_build_file_name=\"p.elf\"/></project>");
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList{u"make all"_s});
    EXPECT_EQ(told("begin"), QStringList{u"Running Build command p"_s});
    EXPECT_EQ(build(1, BuildFlag::rebuild), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"make clean"_s, u"make all"_s}));
    EXPECT_EQ(build(1, BuildFlag::clean), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList{u"make clean"_s});
    EXPECT_EQ(build(1, BuildFlag::dryRun), BuildResult::UpToDate);
    EXPECT_EQ(started(), QStringList());
}

TEST_F(ElementBuild, StagingCopiesWhatIsNewer)
{
    write("a.txt", 10);
    write("b.txt", 10);
    load("<project Name=\"s\"><configuration Name=\"Common\" project_type=\"Staging\" stage_set_readonly=\"Yes\" "
         "stage_post_build_command=\"pack\"/><file file_name=\"a.txt\"/><file file_name=\"b.txt\"/></project>");
    EXPECT_EQ(build(2), BuildResult::Complete) << "in one slot, for the command behind";
    EXPECT_EQ(started(), (QStringList{u"cp a.txt out/a.txt"_s, "chmod -w "_L1 + folder.path("out/a.txt"),
                                      u"cp b.txt out/b.txt"_s, "chmod -w "_L1 + folder.path("out/b.txt"), u"pack"_s}));
    EXPECT_EQ(told("begin"), (QStringList{u"Copying a.txt"_s, u"Copying b.txt"_s, u"Post-stage command"_s}));
    EXPECT_EQ(build(project("s"), 2), BuildResult::UpToDate);
    EXPECT_EQ(told("note"), (QStringList{u"'out/a.txt' is up to date."_s, u"'out/b.txt' is up to date."_s}));
    setAge("out/a.txt", 20);
    EXPECT_EQ(build(project("s"), 2), BuildResult::Complete);
    EXPECT_EQ(started().size(), 3);
}

TEST_F(ElementBuild, StagingWithoutACommandSaysSo)
{
    write("a.txt", 10);
    load("<project Name=\"s\"><configuration Name=\"Common\" project_type=\"Staging\" stage_command=\"\" "
         "stage_set_readonly=\"Yes\"/><file file_name=\"a.txt\"/></project>");
    write("out/a.txt", 20);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(told("note"), QStringList{u"nothing to do"_s});
    EXPECT_EQ(started(), QStringList());
    EXPECT_EQ(folder.read("out/a.txt"), "x");
}

TEST_F(ElementBuild, CombiningMakesOneFileOfAll)
{
    write("a.hex", 10);
    write("sub/b.hex", 10);
    write("c.hex", 10);
    load(
        "<project Name=\"c\"><configuration Name=\"Common\" project_type=\"Combining\" "
        "combine_output_filepath=\"all.hex\" "
        "combine_command=\"join $(CombiningRelInputPaths) &amp;&amp; move $(CombiningOutputFilePath)\"/>"
        "<file file_name=\"a.hex\"/><folder Name=\"f\"><file file_name=\"sub/b.hex\"/></folder>"
        "<file file_name=\"c.hex\"><configuration Name=\"Common\" build_exclude_from_build=\"Yes\"/></file></project>");
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"join a.hex sub/b.hex"_s, u"move all.hex"_s}));
    EXPECT_EQ(told("begin"), QStringList{u"Combining c"_s});
    EXPECT_EQ(build(2), BuildResult::UpToDate);
    setAge("all.hex", 20);
    EXPECT_EQ(build(2), BuildResult::Complete);
}

TEST_F(ElementBuild, AUnityFolderIsOneSource)
{
    for (const char *name : {"a.c", "b.c", "slow.c", "left.c", "x.s"})
        write(name, 10);
    load("<project Name=\"p\"><folder Name=\"u\"><configuration Name=\"Common\" "
         "unity_build_file_name=\"$(IntDir)/all.c\" "
         "unity_build_exclude_filter=\"*/slow.c\"/><file file_name=\"a.c\"/>"
         "<folder Name=\"in\"><file file_name=\"b.c\"/></folder><file file_name=\"slow.c\"/>"
         "<file file_name=\"left.c\"><configuration Name=\"Common\" build_exclude_from_build=\"Yes\"/></file>"
         "</folder></project>",
         "external_link_command=\"link $(Objects)\"");
    EXPECT_EQ(engine.buildStepCount(project("p"), u"Debug"_s, 0), 3);
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(started(),
              (QStringList{u"compile slow.c"_s, u"compile obj/p/all.c"_s, u"link obj/p/all.o obj/p/slow.o"_s}));
    EXPECT_EQ(folder.read("obj/p/all.c"),
              "#include \"" + folder.path("a.c").toUtf8() + "\"\n#include \"" + folder.path("b.c").toUtf8() + "\"\n");
    EXPECT_EQ(build(2), BuildResult::UpToDate);
    setAge("obj/p/all.c", 30); // older than the solution, but it says the same
    setAge("obj/p/all.o", 30);
    setAge("obj/p/slow.o", 30);
    for (const char *name : {"a.c", "b.c", "slow.c"})
        setAge(name, 40);
    EXPECT_EQ(build(2), BuildResult::UpToDate);
    setAge("b.c", 20);
    EXPECT_EQ(build(2), BuildResult::Complete) << "without a dependency file";
    EXPECT_EQ(started().value(0), u"compile obj/p/all.c"_s);
    EXPECT_EQ(build(1, BuildFlag::analyze), BuildResult::Complete);
    EXPECT_EQ(told("begin"), (QStringList{u"Analyzing slow.c"_s, u"Analyzing a.c"_s, u"Analyzing b.c"_s}));
    EXPECT_EQ(build(2, BuildFlag::noUnity), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"compile a.c"_s, u"compile b.c"_s, u"link obj/p/a.o obj/p/b.o obj/p/slow.o"_s}));
}

TEST_F(ElementBuild, AnalyzeRunsTheAnalyzerInPlaceOfTheTools)
{
    write("a.c", 10);
    load("<project Name=\"p\"><file file_name=\"a.c\"/></project>");
    EXPECT_EQ(build(1, BuildFlag::analyze), BuildResult::Complete);
    EXPECT_EQ(told("begin"), QStringList{u"Analyzing a.c"_s});
    EXPECT_FALSE(QFile::exists(folder.path("obj/p/a.o")));
}

} // namespace
