#include "build/engine/BuildFixture.h"

using namespace Qt::StringLiterals;

namespace {

class JobScheduler : public BuildFixture
{
protected:
    void loadTwoFiles(const QByteArray &attributes = {})
    {
        write("a.c", 10);
        write("b.c", 10);
        load("<project Name=\"app\"><file file_name=\"a.c\"/><file file_name=\"b.c\"/></project>", attributes);
    }
};

TEST_F(JobScheduler, OneSlotRunsOneCommandAfterTheOther)
{
    loadTwoFiles();
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(events.lines.filter(u" start "_s) + events.lines.filter(u" end "_s),
              (QStringList{u"0 start compile a.c"_s, u"0 start compile b.c"_s, u"0 start link out/app.elf"_s,
                           u"0 end compile a.c"_s, u"0 end compile b.c"_s, u"0 end link out/app.elf"_s}));
    EXPECT_LT(events.indexOf(u"0 end compile a.c"_s), events.indexOf(u"0 start compile b.c"_s));
    EXPECT_EQ(events.lines.first(), u"open app 3"_s);
    EXPECT_EQ(events.lines.last(), u"close app"_s);
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    EXPECT_EQ(started(), QStringList());
    EXPECT_EQ(told("note"), (QStringList{u"'obj/app/a.o' is up to date"_s, u"'obj/app/b.o' is up to date"_s,
                                         u"'out/app.elf' is up to date"_s}));
}

TEST_F(JobScheduler, FilesOverlapAndTheLinkWaitsForThem)
{
    loadTwoFiles();
    events.pollsPerCommand = 3;
    EXPECT_EQ(build(4), BuildResult::Complete);
    EXPECT_LT(events.indexOf(u"1 start compile b.c"_s), events.indexOf(u"0 end compile a.c"_s));
    const qsizetype link = events.indexOf(u"0 start link out/app.elf"_s);
    EXPECT_LT(events.indexOf(u"0 end compile a.c"_s), link);
    EXPECT_LT(events.indexOf(u"1 end compile b.c"_s), link);
}

TEST_F(JobScheduler, AFailureLetsRunningCommandsEndAndDropsTheRest)
{
    write("c.c", 10);
    write("d.c", 10);
    loadTwoFiles();
    write("b.c", 10);
    load("<project Name=\"app\"><file file_name=\"a.c\"/><file file_name=\"b.c\"/><file file_name=\"c.c\"/>"
         "<file file_name=\"d.c\"/></project>");
    events.failing = {u"a.c"_s};
    EXPECT_EQ(build(2), BuildResult::Failed);
    EXPECT_EQ(engine.failureCount(), 1);
    EXPECT_EQ(started(), (QStringList{u"compile a.c"_s, u"compile b.c"_s}));
    EXPECT_TRUE(events.lines.contains(u"1 end compile b.c"_s));
    EXPECT_EQ(events.matching(u"markFailed"_s).size(), 2);
    EXPECT_FALSE(QFile::exists(folder.path("obj/app/a.o")));
    // What failed is tried again, what was made isn't.
    events.failing.clear();
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"compile a.c"_s, u"compile c.c"_s, u"compile d.c"_s, u"link out/app.elf"_s}));
}

TEST_F(JobScheduler, KeepGoingBuildsWhatCanBeBuilt)
{
    write("a.c", 10);
    write("b.c", 10);
    write("l.c", 10);
    write("z.c", 10);
    load("<project Name=\"app\"><configuration Name=\"Common\" project_dependencies=\"lib\" "
         "pre_build_command=\"before\"/><file file_name=\"a.c\"/><file file_name=\"b.c\"/></project>"
         "<project Name=\"lib\"><configuration Name=\"Common\" project_type=\"Library\"/><file "
         "file_name=\"l.c\"/></project>"
         "<project Name=\"other\"><file file_name=\"z.c\"/></project>"
         "<project Name=\"stage\"><configuration Name=\"Common\" project_type=\"Staging\" "
         "project_dependencies=\"lib\"/><file file_name=\"z.c\"/></project>");
    events.failing = {u"l.c"_s};
    for (int slotCount : {1, 3}) {
        EXPECT_EQ(build(slotCount, BuildFlag::keepGoing | BuildFlag::force), BuildResult::Complete);
        EXPECT_EQ(started(), (QStringList{u"compile l.c"_s, u"before"_s, u"compile a.c"_s, u"compile b.c"_s,
                                          u"compile z.c"_s, u"link out/other.elf"_s}));
        EXPECT_EQ(engine.failureCount(), 3) << "lib's file, and app and stage, which need lib";
        EXPECT_TRUE(
            told("info").contains(u"Build failed - continuing because 'keep going on error' has been enabled"_s));
        for (const char *line :
             {"'lib' is passed over because one of its own steps failed", "'app' is passed over because 'lib' failed",
              "'z.c' is passed over because 'lib' failed"})
            EXPECT_TRUE(told("info").contains(QLatin1String(line))) << line;
        build(slotCount, BuildFlag::keepGoing);
        EXPECT_EQ(started(), QStringList{u"compile l.c"_s}) << "what app needs before its own files isn't needed";
        EXPECT_TRUE(told("info").contains(u"'app' is passed over because 'lib' failed"_s)) << "as it is when forced";
    }
}

TEST_F(JobScheduler, AStopDropsWhatHasNotStarted)
{
    loadTwoFiles();
    events.onStart = [this](const QString &command) {
        if (command.contains("a.c"_L1))
            engine.stopBuild();
    };
    EXPECT_EQ(build(1), BuildResult::Terminated);
    EXPECT_EQ(started(), QStringList{u"compile a.c"_s});
}

TEST_F(JobScheduler, DependenciesComeFirstAndCyclesEnd)
{
    write("x.c", 10);
    const QByteArray file = "<file file_name=\"x.c\"/></project>";
    load("<project Name=\"a\"><configuration Name=\"Common\" project_dependencies=\"b;nowhere;c*\"/>" + file +
         "<project Name=\"b\"><configuration Name=\"Common\" project_dependencies=\"a\"/>" + file +
         "<folder Name=\"group\"><project Name=\"c1\">" + file + "<project Name=\"c2\">" + file + "</folder>" +
         "<project Name=\"out\"><configuration Name=\"Common\" build_exclude_from_build=\"Yes\"/>" + file);
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(events.matching(u"open"_s), (QStringList{u"open b 2"_s, u"open c1 2"_s, u"open c2 2"_s, u"open a 2"_s}));
    EXPECT_EQ(told("begin").value(0), u"Dependency error detected in a"_s);
    EXPECT_EQ(told("warning"), QStringList{u"Can't find project nowhere"_s});
    EXPECT_EQ(build(project("b"), 1, BuildFlag::force), BuildResult::Complete);
    EXPECT_EQ(events.matching(u"open"_s).last(), u"open b 2"_s);
}

TEST_F(JobScheduler, ADependencyThatIsListedAlreadyIsWaitedFor)
{
    write("l.c", 10);
    load("<project Name=\"lib\"><configuration Name=\"Common\" project_type=\"Library\"/><file "
         "file_name=\"l.c\"/></project>"
         "<project Name=\"stage\"><configuration Name=\"Common\" project_type=\"Staging\" project_dependencies=\"lib\" "
         "stage_output_filepath=\"staged/$(InputFileName)\"/><file file_name=\"out/lib.a\"/></project>");
    events.pollsPerCommand = 5;
    for (BuildFlags flags : {BuildFlag::build, BuildFlag::force | BuildFlag::parallelProjects}) {
        EXPECT_EQ(build(3, flags), BuildResult::Complete);
        EXPECT_LT(events.indexOf(u"0 end ar out/lib.a"_s), events.indexOf(u"0 start cp out/lib.a staged/lib.a"_s));
    }
}

TEST_F(JobScheduler, EndlessDependenciesAreRefused)
{
    QByteArray projects;
    for (int number = 0; number < 3000; ++number) {
        const QByteArray text = QByteArray::number(number);
        projects += "<project Name=\"p" + text + "\"><configuration Name=\"Common\" project_dependencies=\"p" +
                    QByteArray::number(number + 1) + "\"/></project>";
    }
    load(projects);
    EXPECT_EQ(build(1), BuildResult::Failed);
    EXPECT_EQ(told("error"), QStringList{u"Project dependencies are nested too deeply at p1000"_s});
}

TEST_F(JobScheduler, ProjectsOverlapOnlyWhereTheyMay)
{
    write("x.c", 10);
    const auto solutionText = [](const char *parallel) {
        return QByteArray("<project Name=\"app\"><configuration Name=\"Common\" project_dependencies=\"one;two\"/>"
                          "<file file_name=\"x.c\"/></project>"
                          "<project Name=\"one\"><file file_name=\"x.c\"/></project><project Name=\"two\">"
                          "<configuration Name=\"Common\" project_can_build_in_parallel=\"") +
               parallel + "\"/><file file_name=\"x.c\"/></project>";
    };
    events.pollsPerCommand = 5;
    load(solutionText("No"));
    build(2);
    EXPECT_LT(events.indexOf(u"0 end link out/one.elf"_s), events.indexOf(u"open two 2"_s));
    load(solutionText("Default"));
    build(2, BuildFlag::force);
    EXPECT_GT(events.indexOf(u"0 end link out/one.elf"_s), events.indexOf(u"open two 2"_s));
    EXPECT_LT(events.indexOf(u"1 end link out/two.elf"_s), events.indexOf(u"open app 2"_s));
    build(2, BuildFlag::force | BuildFlag::parallelProjects);
    EXPECT_LT(events.indexOf(u"1 start compile x.c"_s), events.indexOf(u"0 end compile x.c"_s)) << "whole projects";
}

TEST_F(JobScheduler, BatchBuildsTheProjectsOwnConfigurations)
{
    write("x.c", 10);
    load("<project Name=\"app\"><configuration Name=\"Common\" batch_build_configurations=\"rel*;DEBUG\" "
         "build_output_directory=\"$(Configuration)\"/><file file_name=\"x.c\"/></project>");
    EXPECT_EQ(build(project("app"), 1, BuildFlag::force, true), BuildResult::Complete);
    EXPECT_EQ(started(),
              (QStringList{u"compile x.c"_s, u"link Release/app.elf"_s, u"compile x.c"_s, u"link Debug/app.elf"_s}));
    // "Common" is every public one that is for this platform, also those of the solution that imports the project's.
    folder.write("inner.vnProject", "<!DOCTYPE Veldane_Project_File><solution><project Name=\"app\"><configuration "
                                    "Name=\"Common\" batch_build_configurations=\"Common\" "
                                    "build_output_directory=\"$(Configuration)\"/></project></solution>");
    load("<import file_name=\"inner.vnProject\"/><configuration Name=\"Hidden\" hidden=\"Yes\"/>"
         "<configuration Name=\"Elsewhere\" Platform=\"elsewhere\"/>");
    EXPECT_EQ(build(project("app"), 1, BuildFlag::force, true), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"link Debug/app.elf"_s, u"link Release/app.elf"_s}));
}

TEST_F(JobScheduler, ProjectCommandsRunAroundTheJobs)
{
    loadTwoFiles("pre_build_command=\"before &quot;1 2&quot; &amp;&amp; more\" post_build_command=\"after\"");
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"before 1 2"_s, u"more"_s, u"compile a.c"_s, u"compile b.c"_s,
                                      u"link out/app.elf"_s, u"after"_s}));
    EXPECT_EQ(told("begin").first(), u"Pre-build command "_s);
    EXPECT_EQ(build(2), BuildResult::UpToDate);
    EXPECT_EQ(started(), QStringList()) << "nothing to be done";
    EXPECT_EQ(build(2, BuildFlag::clean), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList());
    events.failing = {u"link"_s};
    EXPECT_EQ(build(2), BuildResult::Failed);
    EXPECT_FALSE(started().contains(u"after"_s));
    events.failing = {u"before"_s};
    EXPECT_EQ(build(2, BuildFlag::force), BuildResult::Failed);
    EXPECT_EQ(started(), QStringList{u"before 1 2"_s});
}

TEST_F(JobScheduler, WhatFailsBehindAStepIsTriedAgain)
{
    loadTwoFiles("compile_post_build_command=\"behind $(InputFileName)\" post_build_command=\"after\"");
    events.failing = {u"behind a.c"_s};
    EXPECT_EQ(build(1), BuildResult::Failed);
    EXPECT_EQ(build(1), BuildResult::Failed);
    EXPECT_EQ(started(), (QStringList{u"compile a.c"_s, u"behind a.c"_s}));
    events.failing = {u"after"_s};
    EXPECT_EQ(build(2), BuildResult::Failed);
    EXPECT_EQ(build(2), BuildResult::Failed);
    EXPECT_EQ(started(), QStringList{u"after"_s});
    events.failing.clear();
    EXPECT_EQ(build(2), BuildResult::UpToDate);
    EXPECT_EQ(started(), QStringList{u"after"_s});
    EXPECT_EQ(build(2), BuildResult::UpToDate);
    EXPECT_EQ(started(), QStringList());
}

TEST_F(JobScheduler, WhatAKilledBuildHasBegunIsMadeAgain)
{
    loadTwoFiles("post_build_command=\"after\"");
    const QString record = folder.path("obj/app/app.commands"), begun = record + u".begun"_s;
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_FALSE(QFile::exists(begun));
    // All it leaves when it is killed while b.c is compiled, or behind the link, are these two files.
    for (const QString &killedAt : {u"compile b.c"_s, u"after"_s}) {
        const QString kept = folder.path("kept"), keptBegun = folder.path("kept.begun");
        events.onStart = [&](const QString &command) {
            if (command == killedAt) {
                QFile::copy(record, kept);
                QFile::copy(begun, keptBegun);
            }
        };
        EXPECT_EQ(build(1, BuildFlag::force), BuildResult::Complete);
        events.onStart = [](const QString &) {};
        for (const QString &file : {record, begun})
            QFile::remove(file);
        ASSERT_TRUE(QFile::rename(kept, record) && QFile::rename(keptBegun, begun));
        build(1);
        EXPECT_EQ(started(), killedAt == "after"_L1
                                 ? QStringList{u"after"_s}
                                 : QStringList({u"compile b.c"_s, u"link out/app.elf"_s, u"after"_s}));
        EXPECT_EQ(told("detail").value(0), killedAt == "after"_L1 ? QString() : u"obj/app/b.o wasn't finished."_s);
        EXPECT_FALSE(QFile::exists(begun));
        EXPECT_EQ(build(1), BuildResult::UpToDate);
    }
}

TEST_F(JobScheduler, ProjectCommandsMayRunAlways)
{
    loadTwoFiles("pre_build_command=\"before\" pre_build_command_control=\"Always Run\" "
                 "post_build_command=\"after\" post_build_command_control=\"Always Run\"");
    build(1);
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    EXPECT_EQ(started(), (QStringList{u"before"_s, u"after"_s}));
    setAge("obj/app/a.o", -1); // made at the end of the second in which the command writes, so to say
    events.onStart = [this](const QString &command) {
        if (command == "before"_L1)
            folder.write("a.c", "generated");
    };
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_TRUE(started().contains(u"compile a.c"_s));
}

TEST_F(JobScheduler, ProjectCommandsFindASlotThatIsFree)
{
    write("x.c", 10);
    load("<project Name=\"one\"><file file_name=\"x.c\"/></project><project Name=\"two\">"
         "<configuration Name=\"Common\" pre_build_command=\"before\"/><file file_name=\"x.c\"/></project>");
    events.pollsPerCommand = 20;
    EXPECT_EQ(build(2), BuildResult::Complete); // a builder that is busy refuses another command
    EXPECT_EQ(started().size(), 5);
}

TEST_F(JobScheduler, ASingleFileIsBuiltAlone)
{
    loadTwoFiles();
    const ProjectElement *file = project("app")->firstElement();
    EXPECT_EQ(build(file, 2), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList{u"compile a.c"_s});
    EXPECT_EQ(events.matching(u"open"_s), QStringList{u"open a.c 1"_s});
}

TEST_F(JobScheduler, AFolderIsBuiltBehindTheDependenciesOfItsProject)
{
    for (const char *name : {"a.c", "b.c", "l.c"})
        write(name, 10);
    load("<project Name=\"app\"><configuration Name=\"Common\" project_dependencies=\"*\"/><file "
         "file_name=\"a.c\"/><folder Name=\"part\"><file file_name=\"b.c\"/></folder></project>"
         "<project Name=\"lib\"><configuration Name=\"Common\" project_type=\"Library\"/><file "
         "file_name=\"l.c\"/></project>");
    const ProjectElement *part =
        project("app")->firstElement()->nextElement()->nextElement(); // behind configuration and file
    EXPECT_EQ(build(part, 2), BuildResult::Complete);
    EXPECT_EQ(started(), (QStringList{u"compile l.c"_s, u"ar out/lib.a"_s, u"compile b.c"_s}));
}

TEST_F(JobScheduler, TitlesSayWhatIsDone)
{
    loadTwoFiles();
    const ProjectElement *file = project("app")->firstElement();
    struct
    {
        const ProjectElement *element;
        BuildFlags flags;
        const char *title;
    } const cases[] = {
        {project("app"), 0, "Building 'app' from solution 'test' in configuration 'Debug'"},
        {project("app"), BuildFlag::rebuild, "Rebuilding 'app' from solution 'test' in configuration 'Debug'"},
        {project("app"), BuildFlag::clean, "Cleaning 'app' from solution 'test' in configuration 'Debug'"},
        {project("app"), BuildFlag::dryRun, "Checking 'app' from solution 'test' in configuration 'Debug'"},
        {file, BuildFlag::analyze, "Analyzing 'a.c' from project 'app' from solution 'test' in configuration 'Debug'"},
        {project("app"), BuildFlag::noTitle, ""},
    };
    for (const auto &row : cases)
        EXPECT_EQ(engine.buildTitle(row.element, u"Debug"_s, row.flags), QLatin1StringView(row.title));
}

} // namespace
