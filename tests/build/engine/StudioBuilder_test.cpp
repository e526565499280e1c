#include "build/engine/BuildFixture.h"
#include "build/engine/CompileCommands.h"
#include "build/engine/ExportBuilder.h"
#include "build/engine/ProcessPoller.h"
#include "build/engine/StudioBuilder.h"
#include "build/engine/StudioIdler.h"
#include "build/engine/ToolStudioBuilder.h"
#include "build/log/BuildLog.h"

#include "support/RunProgram.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <csignal>

using namespace Qt::StringLiterals;

namespace {

// Solutions that are built by real children: a compiler of a few lines of shell.
class RealBuild : public BuildFixture
{
protected:
    void SetUp() override
    {
        QFile(folder.write("tool.sh", "#!/bin/sh\n"
                                      "echo half > $2\n"
                                      "grep -h 'error\\|warning' $1 >&2\n"
                                      "grep -q error $1 && exit 3\n"
                                      "grep -q hang $1 && { kill -INT $PPID; sleep 1000; }\n"
                                      "echo \"$2: $1 h.h\" > $3\n"
                                      "cat $1 > $2\n"))
            .setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        write("a.c", 10, "int a;\n");
        write("b.c", 10, "int b;\n");
        write("h.h", 10);
        load("<project Name=\"p\"><file file_name=\"a.c\"/><file file_name=\"b.c\"/></project>",
             "external_c_compile_command=\"./tool.sh $(RelInputPath) $(RelTargetPath) $(RelDependencyPath)\" "
             "external_link_command=\"cat $(Objects) &gt; $(RelTargetPath)\"");
    }
    BuildResult run(int slotCount, BuildFlags flags = 0)
    {
        log.clear();
        std::vector<std::unique_ptr<StudioBuilder>> owned;
        std::vector<Builder *> builders;
        for (int slot = 0; slot < slotCount; ++slot) {
            owned.push_back(std::make_unique<StudioBuilder>(state, poller, log, idler, slot));
            builders.push_back(owned.back().get());
        }
        return real.buildProject(solution, u"Debug"_s, builders, idler, flags);
    }

    ProcessPoller poller;
    BuildLog log;
    StudioIdler idler{log};
    BuildEngine real{system, tools, state, &poller};
};

TEST_F(RealBuild, BuildsWhatIsOutOfDate)
{
    EXPECT_EQ(run(2), BuildResult::Complete);
    EXPECT_EQ(folder.read("out/p.elf"), "int a;\nint b;\n");
    EXPECT_EQ(run(2), BuildResult::UpToDate);
    for (const char *made : {"obj/p/a.o", "obj/p/b.o", "out/p.elf"})
        setAge(made, 5);
    EXPECT_EQ(run(1), BuildResult::UpToDate);
    setAge("h.h", 0);
    EXPECT_EQ(run(1), BuildResult::Complete);
    ASSERT_EQ(log.items().size(), 1u);
    EXPECT_EQ(log.items()[0]->steps(), 3);
    EXPECT_EQ(log.items()[0]->stepsDone(), 3);
}

TEST_F(RealBuild, DiagnosticsReachTheLogAndTheOutputGoes)
{
    folder.write("a.c", "#warning\na.c:7:2: error: no good\n");
    EXPECT_EQ(run(2), BuildResult::Failed);
    EXPECT_EQ(log.counters().errors, 1);
    const BuildLogItem *project = log.items().at(0).get();
    const auto found = std::find_if(project->children().begin(), project->children().end(),
                                    [](const auto &item) { return item->severity() == Severity::Error; });
    ASSERT_NE(found, project->children().end());
    EXPECT_EQ((*found)->bookmark().file, folder.path("a.c"));
    EXPECT_EQ((*found)->bookmark().line, 7);
    EXPECT_EQ((*found)->text(), u"no good"_s);
    EXPECT_FALSE(QFile::exists(folder.path("obj/p/a.o")));
    folder.write("a.c", "int a;\n");
    EXPECT_EQ(run(2), BuildResult::Complete);
}

TEST_F(RealBuild, AnInterruptEndsChildrenAndRemovesTheirOutputs)
{
    folder.write("b.c", "hang\n");
    const InterruptCatcher interrupts;
    EXPECT_EQ(run(2), BuildResult::Terminated);
    EXPECT_FALSE(QFile::exists(folder.path("obj/p/b.o")));
    EXPECT_FALSE(QFile::exists(folder.path("out/p.elf")));
}

TEST_F(RealBuild, AToolThatIsMissingFailsTheBuild)
{
    system.setPropertyValue(solution, &system.schema()[ProjectProperty::external_c_compile_command], u"Common"_s,
                            u"no-such-compiler $(RelInputPath)"_s);
    EXPECT_EQ(run(2), BuildResult::Failed);
    EXPECT_EQ(log.counters().errors, 1);
}

TEST_F(RealBuild, AToolThatASignalEndsIsTold)
{
    const auto *command = &system.schema()[ProjectProperty::external_c_compile_command];
    system.setPropertyValue(solution, command, u"Common"_s, u"sh -c \"exit 255\""_s);
    EXPECT_EQ(run(1), BuildResult::Failed);
    EXPECT_EQ(log.counters().errors, 0);
    system.setPropertyValue(solution, command, u"Common"_s, u"sh -c \"kill -SEGV $$$$\""_s);
    EXPECT_EQ(run(1), BuildResult::Failed);
    EXPECT_EQ(log.counters().errors, 1);
}

TEST_F(RealBuild, ToolsOfTheInstallationAreCalledByTheirPaths)
{
    EXPECT_TRUE(installedCommand({u"cp"_s, u"cp"_s}).first().endsWith("/bin/cp"_L1));
    EXPECT_EQ(installedCommand({u"cp"_s, u"cp"_s}).last(), u"cp"_s);
    EXPECT_EQ(installedCommand({u"cpp"_s}), QStringList{u"cpp"_s});
    EXPECT_EQ(commandText({u"a b"_s, u"c"_s}), u"\"a b\" c"_s);
}

TEST_F(RealBuild, AcceptsWhatIsNotEmptyAndNoBrokenElf)
{
    EXPECT_FALSE(isAcceptableOutput(folder.path("none")));
    EXPECT_FALSE(isAcceptableOutput(folder.write("empty", "")));
    EXPECT_TRUE(isAcceptableOutput(folder.write("text", "x")));
    EXPECT_TRUE(isAcceptableOutput(folder.write("host", QByteArray("\x7f") + "ELF\2\1\1")));
    EXPECT_FALSE(isAcceptableOutput(folder.write("half", QByteArray("\x7f") + "ELF\1\1\1")));
}

TEST_F(RealBuild, AToolByItselfWritesToTheTranscript)
{
    ToolStudioBuilder builder(log, true);
    builder.runCommand(folder.root(), {u"echo"_s, u"a b"_s}, {});
    EXPECT_FALSE(builder.hasFailed());
    EXPECT_EQ(log.transcript(), "Command line: echo \"a b\"\nWorking directory: "_L1 + folder.root() + "\na b\n"_L1);
    builder.runCommand(folder.root(), {u"no-such-tool"_s}, {});
    EXPECT_TRUE(builder.hasFailed());
    EXPECT_EQ(log.items().back()->text(), u"Error starting process no-such-tool"_s);
    builder.runCommand(folder.root(), {u"false"_s}, {});
    EXPECT_TRUE(builder.hasFailed());
}

// ---- Exports -----------------------------------------------------------------------------------------------------

TEST_F(RealBuild, ExportedCommandsBuildTheSame)
{
    const QStringList lines = exportBuildCommands(real, solution, u"Debug"_s);
    EXPECT_FALSE(QFile::exists(folder.path("obj/p/a.o")));
    EXPECT_EQ(lines.filter(u"cd "_s), QStringList{"cd \""_L1 + folder.root() + u'"'});
    folder.write("all.sh", lines.join(u'\n').toUtf8());
    EXPECT_EQ(runProgram(u"/bin/sh"_s, {u"-e"_s, folder.path("all.sh")}).status, 0);
    EXPECT_EQ(folder.read("out/p.elf"), "int a;\nint b;\n");
    EXPECT_EQ(run(1), BuildResult::UpToDate);
}

TEST_F(RealBuild, TheMakeFileRunsInMake)
{
    const QStringList lines = exportMakefile(real, solution, u"Debug"_s);
    EXPECT_EQ(lines.value(0), u"all: \\"_s);
    EXPECT_EQ(lines.value(1), u"  out/p.elf \\"_s);
    EXPECT_TRUE(lines.contains(u"-include obj/p/a.d"_s));
    folder.write("p.mak", lines.join(u'\n').toUtf8() + '\n');
    const QStringList make{u"-C"_s, folder.root(), u"-f"_s, u"p.mak"_s};
    const ProgramResult made = runProgram(u"/usr/bin/make"_s, make);
    EXPECT_EQ(made.status, 0) << made.error.constData();
    EXPECT_EQ(folder.read("out/p.elf"), "int a;\nint b;\n");
    EXPECT_TRUE(runProgram(u"/usr/bin/make"_s, make).out.contains("Nothing to be done"));
    EXPECT_EQ(run(2), BuildResult::UpToDate);
    for (const char *file : {"obj/p/a.o", "obj/p/b.o", "obj/p/a.d", "obj/p/b.d", "out/p.elf"})
        setAge(file, 5);
    setAge("h.h", 0); // which only the dependency files name
    EXPECT_EQ(runProgram(u"/usr/bin/make"_s, make).out.count("./tool.sh"), 2);
    folder.write("obj/p/a.d", "obj/p/a.o: a.c renamed.h\n"); // a header that was there in the last build
    EXPECT_EQ(runProgram(u"/usr/bin/make"_s, make).status, 0);
}

TEST_F(RealBuild, TheMakeFileKnowsWhatALinkReadsAndMakesBesidesObjects)
{
    write("map.xml", 10);
    write("options.txt", 10, "# none\n");
    load("<project Name=\"p\"><configuration Name=\"Common\" linker_output_format=\"hex\" "
         "linker_memory_map_file=\"map.xml\" c_additional_options_from_file=\"options.txt\"/>"
         "<file file_name=\"a.c\"/></project>"
         "<project Name=\"image\"><configuration Name=\"Common\" project_type=\"Combining\" "
         "project_dependencies=\"p\" combine_output_filepath=\"out/all.hex\" "
         "combine_command=\"/bin/cp $(CombiningRelInputPaths) out/all.hex\"/><file file_name=\"out/p.hex\"/></project>",
         "external_c_compile_command=\"/bin/cp a.c $(RelTargetPath)\" "
         "external_link_command=\"/usr/bin/tee out/p.elf out/p.hex\"");
    folder.write("p.mak", exportMakefile(real, solution, u"Debug"_s).join(u'\n').toUtf8() + '\n');
    const auto commandsOf = [this](const QStringList &more = {}) {
        const QStringList make{u"-C"_s, folder.root(), u"-f"_s, u"p.mak"_s};
        const ProgramResult made = runProgram(u"/usr/bin/make"_s, make + more);
        EXPECT_EQ(made.status, 0) << made.error.constData();
        QStringList names;
        for (const char *name : {"/bin/cp a.c", "tee", "all.hex"})
            if (made.out.contains(name))
                names += QLatin1StringView(name);
        return names;
    };
    const QStringList all{u"/bin/cp a.c"_s, u"tee"_s, u"all.hex"_s};
    EXPECT_EQ(commandsOf(), all);
    EXPECT_EQ(commandsOf(), QStringList());
    EXPECT_EQ(commandsOf({u"-Wmap.xml"_s}), all.mid(1)) << "placed anew";
    EXPECT_EQ(commandsOf({u"-Woptions.txt"_s}), all);
    QFile::remove(folder.path("out/p.hex"));
    EXPECT_EQ(commandsOf(), all.mid(1));
}

TEST_F(RealBuild, MakeFilesHaveNamesWithBlanksAndProjectsElsewhere)
{
    QDir(folder.root()).mkpath(u"sub dir"_s);
    folder.write("sub dir/x y.c", "int xy;\n");
    folder.write("sub dir/h.h", "");
    load("<project Name=\"q\"><configuration Name=\"Common\" project_directory=\"sub dir\" project_type=\"Library\" "
         "external_archive_command=\"cp $(Objects) &quot;$(TargetPath)&quot;\"/><file file_name=\"x y.c\"/></project>",
         "external_c_compile_command=\"cat &quot;$(RelInputPath)&quot; &gt; &quot;$(RelTargetPath)&quot;\"");
    folder.write("p.mak", exportMakefile(real, solution, u"Debug"_s).join(u'\n').toUtf8() + '\n');
    const QStringList make{u"-C"_s, folder.root(), u"-f"_s, u"p.mak"_s};
    QByteArray text = folder.read("p.mak");
    EXPECT_TRUE(text.contains("\nsub\\ dir/obj/q/x\\ y.o: sub\\ dir/x\\ y.c |")) << text.constData();
    folder.write("p.mak", text.replace(installedCommand({u"cp"_s}).first().toUtf8(), "/bin/cp"));
    const ProgramResult made = runProgram(u"/usr/bin/make"_s, make);
    EXPECT_EQ(made.status, 0) << made.error.constData() << text.constData();
    EXPECT_EQ(folder.read("sub dir/out/q.a"), "int xy;\n");
    EXPECT_TRUE(runProgram(u"/usr/bin/make"_s, make).out.contains("Nothing to be done"));
}

TEST_F(RealBuild, TheCompilationDatabaseNamesTheRealCompiler)
{
    system.setPropertyValue(solution, &system.schema()[ProjectProperty::external_c_compile_command], u"Common"_s, {});
    system.setPropertyValue(solution, &system.schema()[ProjectProperty::c_additional_options], u"Common"_s,
                            u"-mcpu=cortex-m3;-mthumb"_s);
    system.setPropertyValue(solution, &system.schema()[ProjectProperty::c_preprocessor_definitions], u"Debug"_s,
                            u"X=1"_s);
    const QJsonArray entries = QJsonDocument::fromJson(exportCompileCommands(real, solution, u"Debug"_s)).array();
    ASSERT_EQ(entries.size(), 2);
    const QJsonObject second = entries[1].toObject();
    EXPECT_EQ(second["directory"_L1].toString(), folder.root());
    EXPECT_EQ(second["file"_L1].toString(), folder.path("b.c"));
    const QStringList arguments = second["arguments"_L1].toVariant().toStringList();
    EXPECT_TRUE(arguments.first().endsWith("gcc"_L1)) << qPrintable(arguments.first());
    EXPECT_TRUE(arguments.contains(folder.path("b.c")) && arguments.contains(u"obj/p/b.o"_s));
    EXPECT_TRUE(arguments.contains(u"-DX=1"_s) && arguments.contains(u"-mcpu=cortex-m3"_s));
    const QString library = arguments.value(arguments.indexOf(u"-isystem"_s) + 1); // which clangd can't know
    EXPECT_TRUE(QFile::exists(library + "/stdio.h"_L1)) << qPrintable(arguments.join(u' '));
}

} // namespace
