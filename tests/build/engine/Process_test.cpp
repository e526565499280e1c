#include "build/engine/Process.h"
#include "build/engine/ProcessPoller.h"
#include "build/engine/SolutionLock.h"

#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QElapsedTimer>
#include <csignal>

using namespace Qt::StringLiterals;

namespace {

class RecordingProcess : public Process
{
public:
    using Process::Process;
    QStringList out, error;

protected:
    void output(bool isStdout, const QByteArray &line) override { (isStdout ? out : error) += QString::fromUtf8(line); }
};

QStringList shell(const char *script)
{
    return {u"sh"_s, u"-c"_s, QString::fromLatin1(script)};
}

qsizetype openDescriptors()
{
    return QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

TEST(Process, SplitsLinesAndTellsStreamsApart)
{
    RecordingProcess process;
    ASSERT_TRUE(process.start(shell("printf 'a\\r\\nb\\rxc\\n\\nend'; printf 'e1\\ne2' >&2; exit 3"), {}, true));
    EXPECT_EQ(process.out, (QStringList{u"a"_s, u"b"_s, u"c"_s, u""_s, u"end"_s})); // a CR swallows what is behind it
    EXPECT_EQ(process.error, (QStringList{u"e1"_s, u"e2"_s}));
    EXPECT_EQ(process.exitStatus(), 3);
    EXPECT_TRUE(process.start(shell("true"), {}, true)); // and again with the same object
    EXPECT_EQ(process.exitStatus(), 0);
}

TEST(Process, SwallowsBehindACarriageReturnAcrossReads)
{
    RecordingProcess process;
    ASSERT_TRUE(process.start(shell("printf 'a\\r'; sleep 0.05; printf '\\nb\\n'"), {}, true));
    EXPECT_EQ(process.out, (QStringList{u"a"_s, u"b"_s}));
}

struct RedirectionCase
{
    const char *what;
    QStringList words;
    const char *out, *err;     // what arrives here
    const char *file, *second; // what f and g hold then; null: not made
};

TEST(Process, RedirectsStreamsIntoFilesOfTheWorkingDirectory)
{
    const RedirectionCase cases[] = {
        {"output", {u">"_s, u"f"_s}, "", "err", "out\n", nullptr},
        {"output by number, added", {u"1>>"_s, u"f"_s}, "", "err", "old\nout\n", nullptr},
        {"error", {u"2>"_s, u"f"_s}, "out", "", "err\n", nullptr},
        {"error, added", {u"2>>"_s, u"f"_s}, "out", "", "old\nerr\n", nullptr},
        {"both", {u"&>"_s, u"f"_s}, "", "", "out\nerr\n", nullptr},
        {"both, added", {u"&>>"_s, u"f"_s}, "", "", "old\nout\nerr\n", nullptr},
        {"the first counts", {u">"_s, u"f"_s, u">"_s, u"g"_s}, "", "err", "out\n", nullptr},
        {"each its own", {u"2>"_s, u"g"_s, u"1>"_s, u"f"_s}, "", "", "out\n", "err\n"},
        {"error is taken already", {u"2>"_s, u"g"_s, u"&>"_s, u"f"_s}, "", "", "out\n", "err\n"},
    };
    for (const RedirectionCase &row : cases) {
        const TemporaryFolder folder;
        folder.write("f", "old\n");
        RecordingProcess process;
        ASSERT_TRUE(process.start(shell("echo out; echo err >&2") + row.words, folder.root(), true)) << row.what;
        EXPECT_EQ(process.out.join(u'|'), QLatin1StringView(row.out)) << row.what;
        EXPECT_EQ(process.error.join(u'|'), QLatin1StringView(row.err)) << row.what;
        EXPECT_EQ(folder.read("f"), row.file) << row.what;
        EXPECT_EQ(QFile::exists(folder.path("g")), row.second != nullptr) << row.what;
        if (row.second) {
            EXPECT_EQ(folder.read("g"), row.second) << row.what;
        }
    }
}

TEST(Process, TellsWhyItCannotStart)
{
    const TemporaryFolder folder;
    folder.write("data", "no program");
    struct
    {
        QStringList words;
        QString directory;
        const char *message;
    } const cases[] = {
        {{u"no-such-program-here"_s}, {}, "No such file or directory"},
        {{}, {}, "no command"},
        {{folder.path("data")}, {}, "Permission denied"},
        {{u"true"_s, u">"_s}, {}, "no file behind >"},
        {{u"true"_s}, u"/no/such/folder"_s, "no directory /no/such/folder"},
    };
    const qsizetype descriptors = openDescriptors();
    for (const auto &row : cases) {
        RecordingProcess process;
        EXPECT_FALSE(process.start(row.words, row.directory, true));
        EXPECT_EQ(process.errorString(), QLatin1StringView(row.message));
        EXPECT_FALSE(process.isRunning());
    }
    RecordingProcess process;
    EXPECT_FALSE(process.start({u"true"_s, u">"_s, u"no/such/file"_s}, folder.root()));
    EXPECT_TRUE(process.errorString().startsWith("cannot open "_L1));
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(Process, RunsScriptsWithoutInterpreterLineByTheShell)
{
    const TemporaryFolder folder;
    QFile(folder.write("tool", "echo $1\n")).setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    RecordingProcess process;
    ASSERT_TRUE(process.start({u"./tool"_s, u"two words"_s}, folder.root(), true)) << qPrintable(process.errorString());
    EXPECT_EQ(process.out, QStringList{u"two words"_s});
}

TEST(Process, TakesMuchOutputOnBothStreams)
{
    const qsizetype descriptors = openDescriptors();
    {
        RecordingProcess process;
        ASSERT_TRUE(process.start(shell("yes 0123456789 | head -n 300000; yes x | head -n 100000 >&2"), {}, true));
        EXPECT_EQ(process.out.size(), 300000);
        EXPECT_EQ(process.error.size(), 100000);
        EXPECT_EQ(process.out.constLast(), u"0123456789"_s);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(Process, HasNoInputAndDefaultSignals)
{
    std::signal(SIGPIPE, SIG_IGN);
    RecordingProcess process;
    ASSERT_TRUE(process.start(shell("cat; sed -n 's/^SigIgn:\t//p' /proc/self/status"), {}, true));
    ASSERT_EQ(process.out.size(), 1);
    EXPECT_EQ(process.out[0].toULongLong(nullptr, 16) & 0x7FFFFFFF, 0u); // 32 and 33 are the C library's
    std::signal(SIGPIPE, SIG_DFL);
}

TEST(Process, StopReachesWhatTheChildStarted)
{
    const TemporaryFolder folder;
    ProcessPoller poller;
    RecordingProcess process(&poller);
    ASSERT_TRUE(process.start(shell("sleep 1000 & echo $!; wait"), {}));
    while (process.out.isEmpty()) {
        poller.wait();
        process.poll();
    }
    poller.stopAll(SIGHUP);
    while (!process.poll())
        poller.wait();
    EXPECT_TRUE(process.isStopped());
    EXPECT_EQ(process.exitStatus(), 128 + SIGHUP);
    const pid_t grandchild = process.out.constFirst().toInt();
    QElapsedTimer timer;
    timer.start();
    // It is gone, or a zombie that nobody reaps, as soon as the signal was delivered.
    QString state;
    do {
        QFile file(u"/proc/%1/stat"_s.arg(grandchild));
        state = file.open(QFile::ReadOnly) ? QString::fromLatin1(file.readAll()).section(u' ', 2, 2) : u"gone"_s;
    } while (state != u"gone"_s && state != u"Z"_s && timer.elapsed() < 5000);
    EXPECT_TRUE(state == u"gone"_s || state == u"Z"_s) << qPrintable(state);
}

TEST(Process, DoesNotWaitForWhatTheChildLeavesRunning)
{
    QElapsedTimer timer;
    timer.start();
    RecordingProcess process;
    ASSERT_TRUE(process.start(shell("echo $$; sleep 20 & exit 0"), {}, true));
    EXPECT_LT(timer.elapsed(), 10000);
    ::kill(-process.out.constFirst().toInt(), SIGKILL);
}

TEST(Process, DestructorEndsTheChild)
{
    pid_t child = -1;
    {
        RecordingProcess process;
        ASSERT_TRUE(process.start(shell("echo $$; sleep 1000"), {}));
        while (process.out.isEmpty())
            process.poll();
        child = process.out.constFirst().toInt();
    }
    EXPECT_NE(::kill(child, 0), 0);
}

TEST(ProcessPoller, WaitsForTheFirstOfAll)
{
    ProcessPoller poller;
    std::vector<std::unique_ptr<RecordingProcess>> processes;
    for (const char *script : {"sleep 1000", "echo quick", "sleep 1000"}) {
        processes.push_back(std::make_unique<RecordingProcess>(&poller));
        ASSERT_TRUE(processes.back()->start(shell(script), {}));
    }
    QElapsedTimer timer;
    timer.start();
    while (!processes[1]->poll())
        poller.wait(10000);
    EXPECT_LT(timer.elapsed(), 5000);
    EXPECT_EQ(processes[1]->out, QStringList{u"quick"_s});
    EXPECT_FALSE(processes[0]->poll());
}

TEST(ProcessPoller, AnInterruptEndsTheWait)
{
    const InterruptCatcher catcher;
    EXPECT_EQ(InterruptCatcher::count(), 0);
    ProcessPoller poller;
    RecordingProcess process(&poller);
    ASSERT_TRUE(process.start(shell("sleep 1000"), {}));
    QElapsedTimer timer;
    timer.start();
    std::raise(SIGINT);
    poller.wait(10000);
    std::raise(SIGTERM);
    EXPECT_EQ(InterruptCatcher::count(), 2);
    poller.wait(10000);
    EXPECT_LT(timer.elapsed(), 5000);
    std::raise(SIGPIPE);
    EXPECT_EQ(InterruptCatcher::count(), 2) << "of many the first alone";
}

TEST(SolutionLock, KeepsOtherBuildsWaitingButNotThoseWithin)
{
    const TemporaryFolder folder;
    const QString path = folder.write("a.vnProject", "");
    SolutionLock other(path);
    {
        SolutionLock lock(path);
        EXPECT_TRUE(lock.take());
        QFile::link(path, folder.path("link"));
        EXPECT_TRUE(SolutionLock(folder.path("link")).take()) << "started by a command of that build";
        const QByteArray builds = qgetenv("VELDANE_BUILDS");
        qunsetenv("VELDANE_BUILDS");
        EXPECT_FALSE(other.take());
        EXPECT_TRUE(SolutionLock(folder.write("b.vnProject", "")).take());
        qputenv("VELDANE_BUILDS", builds);
    }
    EXPECT_TRUE(other.take());
}

} // namespace
