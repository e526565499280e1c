#include "build/log/BuildLog.h"
#include "build/log/CompilerDiagnosticParser.h"

#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

using namespace Qt::StringLiterals;

namespace {

// A log whose clock stands still until the test moves it, and what it has told.
struct TestLog
{
    explicit TestLog(BuildLog::Wording wording = BuildLog::Wording::Errors) : log(wording)
    {
        log.setClock([this] { return time; });
        QObject::connect(&log, &BuildLog::locateBookmark, [this](const Bookmark &place) {
            told += u"%1:%2:%3 %4"_s.arg(place.file).arg(place.line).arg(place.column).arg(place.text);
        });
        QObject::connect(&log, &BuildLog::message, [this](const QString &text) { told += text; });
    }
    void addResult(const char *text, Severity severity, int line)
    {
        Bookmark bookmark;
        bookmark.file = u"/a.c"_s;
        bookmark.line = line;
        bookmark.column = 1;
        bookmark.text = QString::fromLatin1(text);
        bookmark.severity = severity;
        log.addProcessedOutput(0, log.groupItem(), bookmark);
    }

    qint64 time = 1000;
    QStringList told;
    BuildLog log;
};

} // namespace

TEST(BuildLog, GroupsCountWhatIsBelowThem)
{
    TestLog test;
    BuildLog &log = test.log;
    BuildLogItem *project = log.beginGroup(u"Building app"_s, lineProject);
    BuildLogItem *step = log.beginGroup(u"Compiling a.c"_s, 0);
    log.addError(u"e"_s);
    log.addError(u"elsewhere"_s, logNotCounted);
    log.addWarning(u"w1"_s);
    log.addWarning(u"w2"_s);
    test.addResult("f", Severity::Fatal, 1);
    log.endGroup();
    EXPECT_EQ(log.groupItem(), project);
    log.addNote(project, u"n"_s);
    log.addSuccess(u"s"_s);
    log.endGroup(u"Built app"_s);

    EXPECT_EQ(step->counters().fatals, 1);
    EXPECT_EQ(step->badge(0), u"2 Errors"_s);
    EXPECT_EQ(step->badge(1), u"2 Warnings"_s);
    EXPECT_EQ(step->badge(2), QString());
    EXPECT_EQ(project->badge(2), u"1 Note"_s);
    EXPECT_EQ(project->counters().successes, 1);
    EXPECT_EQ(project->icon(), BuildLogItem::Icon::Error);
    EXPECT_TRUE(project->isOpen()); // an error opens what it stands below
    EXPECT_EQ(log.counters().errors, 2);
    EXPECT_EQ(log.groupItem(), nullptr);
    EXPECT_EQ(project->text(), u"Built app"_s);
    log.endGroup(project, u"Built app"_s, u"fine"_s);
    EXPECT_EQ(project->badge(0), u"fine"_s);

    log.terminated(step);
    EXPECT_EQ(project->gradient(), Gradient::Failure);
    log.clear();
    EXPECT_EQ(log.count(), 0);
    EXPECT_TRUE(log.transcript().isEmpty());
}

TEST(BuildLog, TimesRowsAndTellsTheirRate)
{
    EXPECT_EQ(durationText(9949), u"9.9s"_s);
    EXPECT_EQ(durationText(10000), u"10s"_s);
    EXPECT_EQ(durationText(59999), u"59s"_s);
    EXPECT_EQ(durationText(65000), u"1:05s"_s);

    TestLog test;
    BuildLogItem *item = test.log.beginGroup(u"x"_s, lineProject);
    test.time += 2500;
    EXPECT_EQ(item->elapsedText(test.time), u"2.5s"_s);
    EXPECT_EQ(item->busyFrame(test.time), 2);
    item->setSteps(10);
    for (int i = 0; i < 4; ++i)
        item->stepDone();
    EXPECT_EQ(item->elapsedText(test.time), u"3.0s"_s); // 2500 / 5 * 6 to go
    test.log.endGroup();
    test.time += 60000;
    EXPECT_EQ(item->elapsedText(test.time), u"Completed"_s);
    EXPECT_EQ(item->rateText(), u"4 targets/s"_s);
    EXPECT_EQ(test.log.addMessage(u"untimed"_s)->elapsedText(test.time), QString());
    EXPECT_EQ(test.log.addSuccess(u"done"_s, lineBuildComplete, test.time - 500, 3)->rateText(), u"6 projects/s"_s);
}

TEST(BuildLog, TurnsOutputIntoRowsAndTranscript)
{
    TemporaryFolder folder;
    const QString path = folder.write("a.c", "");
    TestLog test;
    BuildLogItem *project = test.log.beginGroup(u"app"_s, 0);
    BuildLogItem *other = test.log.beginGroup(nullptr, u"lib"_s, 0);
    CompilerDiagnosticParser parser(folder.root(), u"cc"_s);
    for (const auto &line : {u"a.c:3:2: error: bad"_s, u"    3 |  x"_s, u"      |  ^"_s, u"Idle"_s, u"1 error"_s})
        test.log.processOutput(2, &parser, project, line, true);

    EXPECT_EQ(test.log.transcript(), u"app\nlib\n2> a.c:3:2: error: bad\n2>     3 |  x\n2>       |  ^\n2> 1 error\n"_s);
    ASSERT_EQ(project->children().size(), 1u); // although another group is the current one
    EXPECT_TRUE(other->children().empty());
    const BuildLogItem &row = *project->children().front();
    EXPECT_EQ(row.text(), u"bad"_s);
    EXPECT_EQ(row.bookmark().file, path);
    EXPECT_EQ(row.bookmark().excerpt, (QStringList{u"    3 |  x"_s, u"      |  ^"_s}));
    EXPECT_EQ(row.bookmark().time, test.time);
}

TEST(BuildLog, VisitsErrorsBeforeWarningsBeforeNotes)
{
    TestLog test;
    test.log.locateNext();
    test.addResult("w", Severity::Warning, 1);
    test.addResult("e1", Severity::Error, 2);
    test.addResult("", Severity::Error, 3);
    test.addResult("chain", Severity::None, 3);
    test.addResult("n", Severity::Note, 4);
    test.addResult("e2", Severity::Error, 5);
    for (int i = 0; i < 6; ++i)
        test.log.locateNext();
    EXPECT_EQ(test.told, (QStringList{u"No more errors"_s, u"/a.c:2:1 e1"_s, u"/a.c:5:1 e2"_s, u"/a.c:1:1 w"_s,
                                      u"/a.c:4:1 n"_s, u"No more errors"_s, u"/a.c:2:1 e1"_s}));
    test.told.clear();
    test.log.locateNext();
    test.log.locatePrevious();
    EXPECT_EQ(test.log.selectedItem()->text(), u"e1"_s);
    test.log.locatePrevious();
    EXPECT_EQ(test.log.selectedItem(), nullptr);
    test.log.locatePrevious();
    EXPECT_EQ(test.told, (QStringList{u"/a.c:5:1 e2"_s, u"/a.c:2:1 e1"_s, u"No previous errors"_s, u"/a.c:4:1 n"_s}));

    test.log.clear();
    test.log.setCycleMode(true);
    test.told.clear();
    test.addResult("w", Severity::Warning, 1);
    test.addResult("e", Severity::Error, 2);
    for (int i = 0; i < 3; ++i)
        test.log.locateNext();
    EXPECT_EQ(test.told, (QStringList{u"/a.c:1:1 w"_s, u"/a.c:2:1 e"_s, u"/a.c:1:1 w"_s}));

    TestLog tags(BuildLog::Wording::Tags);
    tags.log.locatePrevious();
    EXPECT_EQ(tags.told, QStringList{u"No previous tags"_s});
}

TEST(BuildLog, ResultsFollowEditsOfTheirFile)
{
    TestLog test;
    test.addResult("a", Severity::Error, 10);
    test.addResult("b", Severity::Error, 20);
    test.log.fileLinesChanged(u"/a.c"_s, 5, 3);   // inserted above both
    test.log.fileLinesChanged(u"/a.c"_s, 50, 7);  // below both
    test.log.fileLinesChanged(u"/b.c"_s, 1, 100); // elsewhere
    test.log.fileLinesChanged(u"/a.c"_s, 13, -1); // the first one's line is gone
    test.log.fileLinesChanged(u"/a.c"_s, 13, 1);  // and does not come back
    test.log.locateNext();
    test.log.locateNext();
    EXPECT_EQ(test.told, (QStringList{u"/a.c:0:-1 a"_s, u"/a.c:23:1 b"_s}));
}

TEST(LineTracker, AppliesEditsAtTheirEdges)
{
    LineTracker tracker(u"/a.c"_s, true);
    for (int line = 1; line <= 6; ++line)
        tracker.track(line);
    tracker.changed(3, -2); // lines 3 and 4 go
    const int expected[] = {1, 2, -1, -1, 3, 4};
    for (int line = 1; line <= 6; ++line)
        EXPECT_EQ(tracker.current(line), expected[line - 1]) << line;
    tracker.changed(3, 2);
    EXPECT_EQ(tracker.current(5), 5);
    tracker.track(5); // noted anew
    EXPECT_EQ(tracker.current(5), 5);
    EXPECT_EQ(tracker.current(99), -1);
    EXPECT_EQ(tracker.changes().size(), 2u);
    EXPECT_EQ(tracker.property("Path").toString(), u"/a.c"_s);
}
