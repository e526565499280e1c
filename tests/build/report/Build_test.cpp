#include "build/report/JsonReport.h"
#include "build/report/TextReport.h"
#include "support/RunningProgram.h"
#include "support/SmallSolution.h"

#include "base/JsonWriter.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <csignal>

namespace {

std::vector<QJsonObject> ofKind(const std::vector<QJsonObject> &events, const QString &kind)
{
    std::vector<QJsonObject> found;
    for (const QJsonObject &event : events)
        if (event[u"event"_s] == kind)
            found.push_back(event);
    return found;
}

} // namespace

TEST(VnBuild, BuildsThenHasNothingToDoThenRebuildsWhatWasTouched)
{
    SmallSolution solution;
    EXPECT_EQ(solution.run({u"--check"_s}).status, 1);
    EXPECT_FALSE(QFile::exists(solution.path("Output")));

    ProgramResult result = solution.run({u"-j1"_s});
    EXPECT_EQ(result.status, 0) << result.error.toStdString();
    EXPECT_THAT(result.error.toStdString(), testing::HasSubstr("[1/5] Compiling lib.c (lib)\n"));
    EXPECT_THAT(result.error.toStdString(), testing::HasSubstr("/main.o does not exist."));
    EXPECT_THAT(result.out.toStdString(), testing::StartsWith("Build complete: 5 commands, "));
    EXPECT_FALSE(result.out.contains('\x1b'));

    result = solution.run({});
    EXPECT_THAT(result.out.toStdString(), testing::StartsWith("Build up to date: "));
    EXPECT_TRUE(result.error.isEmpty()) << result.error.toStdString();
    EXPECT_THAT(solution.run({u"-v"_s}).error.toStdString(), testing::HasSubstr("is up to date"));
    EXPECT_EQ(solution.run({u"--check"_s}).status, 0);

    QFile source(solution.path("main.c"));
    ASSERT_TRUE(source.open(QIODevice::ReadWrite));
    ASSERT_TRUE(source.setFileTime(QDateTime::currentDateTime().addSecs(2), QFile::FileModificationTime));
    source.close();
    EXPECT_EQ(solution.run({u"--check"_s}).status, 1);
    result = solution.run({u"-q"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.isEmpty() && result.error.isEmpty()) << result.error.toStdString();

    result = solution.run({u"--clean"_s});
    EXPECT_THAT(result.out.toStdString(), testing::StartsWith("Cleaned: "));
    EXPECT_FALSE(QFile::exists(solution.path("Output/Debug/Obj/app/main.o")));
}

TEST(VnBuild, GroupsErrorsAtTheEndWithTheirSourceLine)
{
    SmallSolution solution;
    solution.write("main.c", "one\ntwo\n\tis bad\n");
    solution.write("lib.c", "careful\n");
    const ProgramResult result = solution.run({u"-k"_s, u"-j2"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error.toStdString(), testing::HasSubstr("Failed: Compiling main.c (exit status 7)\n"));
    const QString file = solution.path("main.c");
    EXPECT_THAT(result.error.toStdString(), testing::EndsWith("\nErrors in app:\n" + file.toStdString() +
                                                              ":3:5: error: it is bad\n"
                                                              "    3 | \tis bad\n"
                                                              "      | \t   ^\n"));
    EXPECT_THAT(result.out.toStdString(), testing::HasSubstr("1 error, 1 warning, 1 failed job"));
    EXPECT_TRUE(QFile::exists(solution.path("Output/Debug/Obj/app/util.o"))); // went on
    EXPECT_FALSE(QFile::exists(solution.path("Output/Debug/Obj/app/main.o")));
}

TEST(VnBuild, TellsTheObjectOfAnErrorWithoutFile)
{
    SmallSolution solution;
    solution.write("compile.sh", "cat >&2 <<'end'\n"
                                 "/bin/ld: start.o: in function `_start':\n"
                                 "(.text+0x0): undefined reference to `main'\n"
                                 "end\n"
                                 "exit 1\n");
    EXPECT_THAT(solution.run({u"-p"_s, u"lib"_s}).error.toStdString(),
                testing::EndsWith("\nErrors in lib:\n"
                                  "/bin/ld: start.o: in function `_start':\n"
                                  "lib.c: error: undefined reference to `main'\n"));
}

TEST(VnBuild, WarnsOfAValueThatAPropertyCannotHave)
{
    SmallSolution solution;
    QByteArray text = solution.read("small.vnProject");
    solution.write("small.vnProject", text.replace("<configuration Name=\"Release\" />",
                                                   "<configuration Name=\"Release\"\n build_debug_information=\"no\" "
                                                   "link_dependent_projects=\"$(Linked)\" my_own=\"no\" />"));
    const ProgramResult result = solution.run({u"-cRelease"_s});
    EXPECT_EQ(result.status, 0) << "it is built all the same";
    EXPECT_THAT(
        result.error.toStdString(),
        testing::HasSubstr("/small.vnProject:22: warning: build_debug_information is one of: No, Yes; not 'no'\n"));
    EXPECT_THAT(result.out.toStdString(), testing::HasSubstr(", 1 warning, "));
}

TEST(VnBuild, StreamsEventsAsJson)
{
    SmallSolution solution;
    solution.write("main.c", "one\ntwo\nis bad\n");
    const auto events = solution.events({u"-p"_s, u"app"_s});
    EXPECT_EQ(events.front()[u"event"_s], u"start"_s);
    EXPECT_EQ(events.front()[u"steps"_s], 5);
    const auto commands = ofKind(events, u"command"_s), diagnostics = ofKind(events, u"diagnostic"_s);
    ASSERT_GE(commands.size(), 3u);
    EXPECT_EQ(commands[0][u"project"_s], u"lib"_s);
    EXPECT_EQ(commands[0][u"configuration"_s], u"Debug"_s);
    EXPECT_EQ(commands[0][u"node"_s], u"lib/lib.c"_s);
    EXPECT_EQ(commands[0][u"arguments"_s][0], u"/bin/sh"_s);
    ASSERT_EQ(diagnostics.size(), 1u);
    EXPECT_EQ(diagnostics[0][u"file"_s], solution.path("main.c"));
    EXPECT_EQ(diagnostics[0][u"line"_s], 3);
    EXPECT_EQ(diagnostics[0][u"column"_s], 5);
    EXPECT_EQ(diagnostics[0][u"severity"_s], u"error"_s);
    EXPECT_EQ(diagnostics[0][u"text"_s], u"it is bad"_s);
    EXPECT_EQ(events.back()[u"event"_s], u"finished"_s);
    EXPECT_EQ(events.back()[u"result"_s], u"failed"_s);
    EXPECT_EQ(events.back()[u"errors"_s], 1);
    for (size_t i = 0; i + 1 < events.size(); ++i)
        for (const auto &key : {u"project"_s, u"configuration"_s, u"node"_s, u"text"_s})
            EXPECT_TRUE(events[i].contains(key));

    solution.write("main.c", "fine\n");
    EXPECT_EQ(solution.events({}).back()[u"result"_s], u"complete"_s);
    EXPECT_EQ(solution.events({}).back()[u"result"_s], u"up to date"_s);
    EXPECT_EQ(ofKind(solution.events({u"-v"_s}), u"note"_s).size(), 5u);
}

TEST(VnBuild, BuildsOneFileOneProjectOneConfiguration)
{
    const SmallSolution solution;
    EXPECT_EQ(solution.run({u"--only"_s, u"src/util.c"_s, u"-c"_s, u"Release"_s}).status, 0);
    EXPECT_TRUE(QFile::exists(solution.path("Output/Release/Obj/app/util.o")));
    EXPECT_FALSE(QFile::exists(solution.path("Output/Release/Obj/app/main.o")));
    EXPECT_EQ(solution.run({u"--only"_s, u"app/src/util.c"_s, u"-c"_s, u"Release"_s, u"--check"_s}).status, 0)
        << "the project's name and the path from its directory, though the file is in a folder";
    EXPECT_EQ(solution.run({u"-p"_s, u"lib"_s}).status, 0);
    EXPECT_TRUE(QFile::exists(solution.path("lib.out")));
    EXPECT_FALSE(QFile::exists(solution.path("app.out")));
}

TEST(VnBuild, AnInterruptEndsWith130AndLeavesNoHalfMadeOutput)
{
    SmallSolution solution;
    solution.write("compile.sh", "echo half > \"$2\"\ntouch started\nsleep 30\n");
    QProcess process;
    process.start(QString::fromLatin1(VN_BIN "/vnBuild"), {solution.file(), u"-j2"_s});
    QElapsedTimer timer;
    timer.start();
    while (!QFile::exists(solution.path("started")) && timer.elapsed() < 20000)
        QThread::msleep(5);
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(20000));
    EXPECT_LT(timer.elapsed(), 25000);
    EXPECT_EQ(process.exitCode(), 130);
    EXPECT_THAT(process.readAllStandardOutput().toStdString(), testing::StartsWith("Build terminated: "));
    EXPECT_FALSE(QFile::exists(solution.path("Output/Debug/Obj/lib/lib.o")));
}

TEST(VnBuild, FollowsACommandThatRunsAloneAndLong)
{
    SmallSolution solution;
    solution.write("compile.sh", "echo early\nwhile [ ! -e go ]; do sleep 0.02; done\ncp \"$1\" \"$2\"\n");
    RunningProgram program(u"vnBuild"_s, {solution.file(), u"-j2"_s});
    EXPECT_TRUE(program.waitFor("early"));
    solution.write("go", "");
    EXPECT_EQ(program.end(), 0);
}

TEST(VnBuild, ExportsWhatAShellAndMakeCanRun)
{
    const SmallSolution solution;
    const QString script = solution.path("build.sh");
    EXPECT_EQ(solution.run({u"--export"_s, u"commands"_s, u"-o"_s, script}).status, 0);
    const ProgramResult shell = runProgram(u"/bin/sh"_s, {u"-e"_s, script});
    EXPECT_EQ(shell.status, 0) << shell.error.toStdString();
    EXPECT_TRUE(QFile::exists(solution.path("app.out")));
    EXPECT_THAT(solution.run({u"--export"_s, u"make"_s}).out.toStdString(), testing::StartsWith("all: \\\n"));
    const QJsonArray database =
        QJsonDocument::fromJson(solution.run({u"--export"_s, u"compile-commands"_s}).out).array();
    ASSERT_EQ(database.size(), 3);
    EXPECT_EQ(database[0][u"directory"_s], QFileInfo(solution.file()).path());
}

TEST(VnBuild, ExportsNoFileWithoutWhatCannotBeTold)
{
    const SmallSolution solution;
    ASSERT_EQ(solution.run({u"--set"_s, u"c_additional_options_from_file=none.txt"_s}).status, 0);
    const QString file = solution.path("export");
    for (const QString &what : {u"commands"_s, u"make"_s, u"compile-commands"_s}) {
        const ProgramResult result = solution.run({u"--export"_s, what, u"-o"_s, file});
        EXPECT_EQ(result.status, 1) << what.toStdString();
        EXPECT_EQ(result.error, "vnBuild: Cannot load options file: none.txt\n");
        EXPECT_FALSE(QFile::exists(file));
    }
    EXPECT_THAT(solution.run({u"--export"_s, u"commands"_s}).out.toStdString(),
                testing::HasSubstr("ERROR occurred Cannot load options file: none.txt\n"));
}

TEST(VnBuild, BuildsFirmwareWithTheRealToolsAndTellsItsSize)
{
    if (QStandardPaths::findExecutable(u"arm-none-eabi-gcc"_s).isEmpty())
        GTEST_SKIP() << "arm-none-eabi-gcc isn't installed";
    const TemporaryFolder folder;
    const QDir example(QStringLiteral(VN_EXAMPLES "/blinky"));
    for (const QFileInfo &file : example.entryInfoList(QDir::Files))
        QFile::copy(file.filePath(), folder.root() + u'/' + file.fileName());
    const QString solution = folder.path("blinky.vnProject");
    EXPECT_EQ(runProgram(u"vnBuild"_s, {solution, u"--node"_s, u"blinky"_s, u"--set"_s, u"build_quietly=No"_s}).status,
              0);
    ProgramResult result = runProgram(u"vnBuild"_s, {solution});
    EXPECT_EQ(result.status, 0) << result.error.toStdString();
    EXPECT_THAT(result.out.toStdString(), testing::ContainsRegex("FLASH +[0-9.]+% +[0-9,]+ of 262,144 bytes\n"));
    EXPECT_FALSE(result.error.contains("arm-none-eabi-gcc")) << result.error.toStdString(); // unless asked for
    EXPECT_TRUE(
        runProgram(u"vnBuild"_s, {solution, u"--rebuild"_s, u"--show-commands"_s}).error.contains("arm-none-eabi-gcc"));

    result = runProgram(u"vnBuild"_s, {solution, u"--json"_s});
    const QJsonObject finished = QJsonDocument::fromJson(result.out.trimmed().split('\n').last()).object();
    EXPECT_EQ(finished[u"result"_s], u"up to date"_s);
    const QJsonValue size = finished[u"sizes"_s][0];
    const QByteArray known = runProgram(u"/usr/bin/arm-none-eabi-size"_s, {size[u"file"_s].toString()}).out;
    const QStringList numbers = QString::fromUtf8(known.split('\n').value(1)).simplified().split(u' ');
    EXPECT_EQ(QString::number(size[u"text"_s].toInt()), numbers.value(0));
    EXPECT_EQ(QString::number(size[u"data"_s].toInt()), numbers.value(1));
    EXPECT_EQ(QString::number(size[u"bss"_s].toInt()), numbers.value(2));
    EXPECT_EQ(size[u"segments"_s][0][u"name"_s], u"FLASH"_s);

    // A batch tells which program is of which configuration.
    const QStringList batch{solution, u"--node"_s, u"blinky"_s, u"--set"_s,
                            u"batch_build_configurations=Debug;Release"_s};
    EXPECT_EQ(runProgram(u"vnBuild"_s, batch).status, 0);
    EXPECT_THAT(
        runProgram(u"vnBuild"_s, {solution, u"--batch"_s}).out.toStdString(),
        testing::AllOf(testing::HasSubstr("blinky (Debug): text "), testing::HasSubstr("blinky (Release): text ")));

    // A failed link tells at the end what it lacked; an error without a place has the file's name.
    const auto summary = [&] {
        const QByteArray text = runProgram(u"vnBuild"_s, {solution, u"-q"_s, u"--rebuild"_s}).error;
        return text.sliced(qMax<qsizetype>(0, text.lastIndexOf("\n\n") + 2)).toStdString();
    };
    runProgram(u"vnBuild"_s,
               {solution, u"--node"_s, u"blinky"_s, u"--set"_s, u"linker_section_placement_file=gone.xml"_s});
    EXPECT_EQ(summary(), "Errors in blinky:\nerror: Cannot find section placement file: gone.xml\n");
    // A command may make it first.
    for (const auto &set : {u"linker_section_placement_file=made.xml"_s,
                            u"linker_pre_build_command=cp $(StudioDir)/targets/section_placement.xml made.xml"_s})
        runProgram(u"vnBuild"_s, {solution, u"--node"_s, u"blinky"_s, u"--set"_s, set});
    for (const char *end : {"Build complete: 2 commands", "Build up to date"})
        EXPECT_THAT(runProgram(u"vnBuild"_s, {solution}).out.toStdString(), testing::HasSubstr(end));
    folder.write("main.c", "int main(void) { return missing(); }\nint missing(void);\n");
    EXPECT_EQ(summary(), "Errors in blinky:\n" + folder.path("main.c").toStdString() +
                             ":1: error: undefined reference to `missing'\n"
                             "    1 | int main(void) { return missing(); }\n");
    folder.write("main.c", "int main(void) { __asm__(\"bogus\"); }\n");
    EXPECT_EQ(summary(), "Errors in blinky:\nmain.c: error: bad instruction `bogus'\n");
}

TEST(TextReport, ShowsTheSourceLineOfATool)
{
    TemporaryFolder folder;
    Bookmark bookmark;
    bookmark.file = folder.write("a.c", "first\n\tsecond\nlast");
    bookmark.line = 2;
    bookmark.column = 2;
    EXPECT_EQ(sourceExcerpt(bookmark), (QStringList{u"    2 | \tsecond"_s, u"      | \t^"_s}));
    bookmark.line = 3;
    bookmark.column = 99; // beyond the line
    EXPECT_EQ(sourceExcerpt(bookmark), QStringList{u"    3 | last"_s});
    bookmark.line = 4;
    EXPECT_TRUE(sourceExcerpt(bookmark).isEmpty());
    bookmark.file = folder.write("wide.c", "\u00E4\u6587x");
    bookmark.line = 1;
    bookmark.column = 6; // in bytes, as compilers count
    EXPECT_EQ(sourceExcerpt(bookmark), (QStringList{u"    1 | \u00E4\u6587x"_s, u"      |    ^"_s}));
    bookmark.excerpt = QStringList{u"what the tool showed"_s};
    EXPECT_EQ(sourceExcerpt(bookmark), bookmark.excerpt);
}

TEST(SizeReport, DrawsABarWhereATerminalShowsIt)
{
    const ProgramSize size{u"app"_s, {}, {}, 1234567, 0, 5, {{u"FLASH"_s, 0, 1000, 250}, {u"RAM"_s, 0, 64, 0}}};
    EXPECT_EQ(sizeText(size, 8), u"app: text 1,234,567, data 0, bss 5 bytes\n"
                                 "  FLASH  [##......]   25.0%          250 of 1,000 bytes\n"
                                 "  RAM    [........]    0.0%            0 of 64 bytes\n"_s);
}

TEST(JsonReport, PutsADocumentOnOneLine)
{
    JsonWriter json;
    json.beginObject();
    json.field("a", u"two\nlines,   and blanks");
    json.beginArray("b");
    json.value(1);
    json.value(2);
    json.end();
    json.end();
    EXPECT_EQ(oneLine(json), R"({"a": "two\nlines,   and blanks", "b": [1, 2]})"
                             "\n");
}
