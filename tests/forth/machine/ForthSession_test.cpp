#include "ForthFixture.h"

#include "base/HException.h"
#include "support/RunProgram.h"
#include "support/RunningProgram.h"
#include "support/TemporaryFolder.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <csignal>
#include <random>

using namespace Qt::StringLiterals;

namespace {

TEST(ForthSession, ProcessesLinesAndAsksForMore)
{
    ForthFixture forth;
    const auto process = [&](const char *line) {
        forth.out.clear();
        const QString prompt = forth.session.process(QString::fromLatin1(line));
        return forth.out + u'|' + prompt;
    };
    EXPECT_EQ(process("1 2 + ."), u" 3  OK|"_s);
    EXPECT_EQ(process(""), u"  OK|"_s);
    EXPECT_EQ(process(": X"), u" |>"_s);
    EXPECT_EQ(process("5 . ;"), u"  OK|"_s);
    EXPECT_EQ(process("X nonsense"), u" 5  OK|"_s);
    EXPECT_EQ(forth.errors, QStringList(u"undefined word: NONSENSE"_s));
    EXPECT_EQ(process(": Y 1 ("), u"  OK|"_s); // the line's end ends the source
}

TEST(ForthSession, HostsDriveItThroughTheStack)
{
    struct Join : MethodWrapper
    {
        void invoke(ScriptEngine *engine) override
        {
            const qint64 number = engine->popInteger();
            engine->pushString(engine->popString() + QString::number(number));
            engine->print(u"joined "_s);
        }
    } join;
    struct Fail : MethodWrapper
    {
        void invoke(ScriptEngine *) override { throw HException(u"no target"_s); }
    } fail;
    ForthFixture forth;
    forth.session.registerMethod(u"Join"_s, &join);
    forth.session.registerMethod(u"FAIL"_s, &fail);
    EXPECT_EQ(forth.run("S\" a\" 7 join . : X S\" b\" 8 JOIN . ; X"), u"joined a7 joined b8 "_s);
    EXPECT_EQ(forth.run("S\" a\" S\" b\" JOIN"), u"!argument type mismatch: unrelocated literal required"_s);
    forth.out.clear();
    forth.session.process(u": Y 3 0 DO FAIL LOOP ; Y"_s);
    EXPECT_EQ(forth.out, u" no target\n OK"_s);
    EXPECT_EQ(forth.run("1 ."), u"1 "_s);
    forth.session.pushInteger(5);
    EXPECT_EQ(forth.session.popInteger(), 5);
    forth.session.pushInteger(5);
    EXPECT_THROW(forth.session.popString(), ForthException);
    // Quietly: no output, but the stack and the error are there.
    forth.out.clear();
    forth.errors.clear();
    EXPECT_EQ(forth.session.evaluate(u"1 . 42 : X ; nonsense"_s), u"undefined word: NONSENSE"_s);
    EXPECT_EQ(forth.out + forth.errors.join(u' ') + forth.stack().right(2), u"42"_s);
}

// A line of random words gives exceptions at most, and the machine goes on.
TEST(ForthSession, RandomWordsAreExceptionsOnly)
{
    QStringList words = ForthFixture().run("WORDS").split(u' ', Qt::SkipEmptyParts);
    words.erase(std::remove_if(words.begin(), words.end(),
                               [](const QString &word) {
                                   const QString name = word.trimmed();
                                   return name.endsWith(u"-FILE"_s) || name == u"WRITE-LINE"_s || name == u"AGAIN"_s ||
                                          name == u"UNTIL"_s || name == u"REPEAT"_s || name == u"LOOP"_s ||
                                          name == u"+LOOP"_s || name == u"ALLOT"_s;
                               }),
                words.end());
    words +=
        {u"X"_s, u"Y"_s, u"0"_s, u"1"_s, u"-1"_s, u"2E"_s, u"S\" s\""_s, u": X"_s, u";"_s, u"CREATE Y"_s, u"1 ,"_s};
    std::mt19937 random(20);
    ForthFixture forth;
    for (int round = 0; round < 3000; ++round) {
        QString line;
        for (int i = 0; i < 12; ++i)
            line += words[qsizetype(random() % quint32(words.size()))] + u' ';
        forth.session.process(line);
        ASSERT_LE(forth.session.context().dataStack.depth(), 512) << line.toStdString();
        if (round % 50 == 0)
            forth.run("ONLY FORTH DEFINITIONS");
    }
    ForthFixture fresh;
    EXPECT_EQ(fresh.run(": X 1 . ; X"), u"1 "_s);
}

// Each example of the user's page prints what the page says.
TEST(ForthSession, DocumentedExamplesWork)
{
    QFile page(QStringLiteral(VN_DOCS "/forth.md"));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    const QStringList blocks = QString::fromUtf8(page.readAll()).split(u"```forth\n"_s).mid(1);
    EXPECT_EQ(blocks.size(), 5);
    for (const QString &block : blocks) {
        const QString text = block.section(u"```"_s, 0, 0),
                      printed = block.section(u"```text\n"_s, 1, 1).section(u"\n```"_s, 0, 0);
        EXPECT_EQ(ForthFixture().run(text), printed) << text.toStdString();
    }
}

// vnScript

TEST(VnScriptForth, RunsFilesTextsAndPipedLines)
{
    const TemporaryFolder folder;
    const QString file = folder.write("a.fs", ": HI .\" hi\" ;\nHI . . \\ arguments\n");
    ProgramResult result = runProgram(u"vnScript"_s, {file, u"first"_s, u"second"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "hi second first ");
    result = runProgram(u"vnScript"_s, {u"--forth"_s, u"-e"_s, u"1 2 + S\" x\""_s});
    EXPECT_EQ(result.out, "3 x\n");
    result = runProgram(u"vnScript"_s, {u"--forth"_s}, "1 2 + .\n: X\n3 ;\nX . nonsense");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, " 3  OK\n \n>  OK\n 3  OK\n");
    EXPECT_EQ(result.error, "undefined word: NONSENSE\n");
    result = runProgram(u"vnScript"_s, {u"--forth"_s, u"-"_s}, "1 .\n2 .");
    EXPECT_EQ(result.out, "1 2 ");
    folder.write("sub.fs", "7 .");
    result = runProgram(u"vnScript"_s, {u"-I"_s, folder.root(), u"--forth"_s, u"-e"_s, u"include sub.fs"_s});
    EXPECT_EQ(result.out, "7 ");
}

TEST(VnScriptForth, ErrorsTellWhereAndGiveOne)
{
    const TemporaryFolder folder;
    const QString inner = folder.write("inner.fs", "1 .\n 2 0 /\n");
    const QString outer = folder.write("outer.fs", "\ninclude " + inner.toUtf8() + "\n");
    ProgramResult result = runProgram(u"vnScript"_s, {outer});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "1 ");
    EXPECT_EQ(QString::fromUtf8(result.error), u"divide by zero\n"_s + inner + u":2\n 2 0 /\n"_s);
    result = runProgram(u"vnScript"_s, {u"--forth"_s, u"-e"_s, u": X ;\n: X ; drop"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "-e:2: redefining X in vocabulary FORTH\n-e:1: previously defined here\n"
                            "stack underflow\n-e:2\n: X ; drop\n");
    EXPECT_EQ(runProgram(u"vnScript"_s, {folder.path("none.fs")}).status, 1);
    EXPECT_EQ(runProgram(u"vnScript"_s, {u"--forth"_s, folder.root()}).status, 1);
    EXPECT_EQ(runProgram(u"vnScript"_s, {u"--nonsense"_s}).status, 2);
    EXPECT_EQ(runProgram(u"vnScript"_s, {u"--forth"_s, u"--list"_s, u"-e"_s, u"1"_s}).status, 2);
}

// The file would get the number of standard error.
TEST(VnScriptForth, AMessageGoesIntoNoFileWhereStandardErrorIsClosed)
{
    const TemporaryFolder folder;
    const QString command = QStringLiteral(VN_BIN "/vnScript --forth -e 'S\" %1\" W/O CREATE-FILE 2DROP NONE' 2>&-");
    EXPECT_EQ(runProgram(u"/bin/sh"_s, {u"-c"_s, command.arg(folder.path("made"))}).status, 1);
    EXPECT_TRUE(QFile::exists(folder.path("made")));
    EXPECT_EQ(folder.read("made"), "");
}

TEST(VnScriptForth, CtrlCEndsALoop)
{
    const TemporaryFolder folder;
    const QString sign = folder.path("running"); // once it is there, signals are heard
    QProcess process;
    process.start(QStringLiteral(VN_BIN "/vnScript"),
                  {u"--forth"_s, u"-e"_s, u"S\" %1\" W/O CREATE-FILE 2DROP : Y BEGIN AGAIN ; Y"_s.arg(sign)});
    ASSERT_TRUE(process.waitForStarted());
    for (int i = 0; i < 6000 && !QFile::exists(sign); ++i)
        process.waitForFinished(10);
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_TRUE(process.readAllStandardError().startsWith("user interrupt\n-e:1\n"));
}

// What a user sees who types: the banner, an edited line, the prompt within a definition.
TEST(VnScriptForth, EditsLinesOnATerminal)
{
    RunningProgram console(u"vnScript"_s, {u"--forth"_s}, RunningProgram::Terminal, "xterm");
    ASSERT_TRUE(console.waitFor("OK\r\n"));
    console.type("4 2 +x\b .\n"); // the x is rubbed out
    ASSERT_TRUE(console.waitFor(" 6  OK"));
    console.type(": X\n");
    ASSERT_TRUE(console.waitFor("\n>"));
    console.type("7 . ; X\n");
    ASSERT_TRUE(console.waitFor(" 7  OK"));
    console.waitForEditor();
    console.type("8 .");
    ASSERT_TRUE(console.waitFor("8 ."));
    console.interrupt(); // drops the line and nothing else
    ASSERT_TRUE(console.waitFor("OK\r\n"));
    console.type("9 .\n");
    ASSERT_TRUE(console.waitFor(" 9  OK"));
    console.type("\x04");
    EXPECT_EQ(console.end(), 0);
}

// Random arithmetic, stack words and structures, in words that both systems have and mean the same by.
TEST(VnScriptForth, AgreesWithGforth)
{
    const QString gforth = QStandardPaths::findExecutable(u"gforth"_s);
    if (gforth.isEmpty())
        GTEST_SKIP() << "gforth is not installed";
    std::mt19937 random(6);
    const auto pick = [&](const QStringList &from) { return from[qsizetype(random() % quint32(from.size()))]; };
    const QStringList unary{u"1+"_s,
                            u"1-"_s,
                            u"2*"_s,
                            u"2/"_s,
                            u"NEGATE"_s,
                            u"INVERT"_s,
                            u"0="_s,
                            u"0<"_s,
                            u"0>"_s,
                            u"0<>"_s,
                            u"ABS"_s,
                            u"DUP +"_s,
                            u"DUP *"_s,
                            u">R R@ R> +"_s,
                            u"DUP IF 7 + ELSE 3 - THEN"_s,
                            u"DUP 5 < IF 2* THEN"_s,
                            u"3 0 DO I + LOOP"_s,
                            u"9 0 DO I 4 = IF LEAVE THEN 1+ 2 +LOOP"_s,
                            u"2 0 DO 3 0 DO J I * + LOOP LOOP"_s,
                            u"5 BEGIN SWAP 3 + SWAP 1- DUP 0= UNTIL DROP"_s,
                            u"4 BEGIN DUP 0> WHILE SWAP 2* SWAP 1- REPEAT DROP"_s,
                            u"0 0 ?DO I + LOOP"_s,
                            u"HELPER"_s,
                            u"7 AND CASE 1 OF 10 ENDOF 2 OF 20 ENDOF DUP ENDCASE"_s,
                            u"63 AND 1 SWAP LSHIFT"_s,
                            u"1 RSHIFT"_s};
    const QStringList binary{u"+"_s,
                             u"-"_s,
                             u"*"_s,
                             u"AND"_s,
                             u"OR"_s,
                             u"XOR"_s,
                             u"MAX"_s,
                             u"MIN"_s,
                             u"="_s,
                             u"<"_s,
                             u">"_s,
                             u"<>"_s,
                             u">="_s,
                             u"U>"_s,
                             u"NIP"_s,
                             u"SWAP -"_s,
                             u"OVER + XOR"_s,
                             u"TUCK - +"_s,
                             u"2DUP > IF SWAP THEN -"_s,
                             u"2>R 2R@ + 2R> XOR +"_s};
    QByteArray program = ": HELPER DUP 3 AND IF 1+ EXIT THEN 2 - ;\n";
    for (int n = 0; n < 400; ++n) {
        program +=
            QByteArray(": W") + QByteArray::number(n) + " " + QByteArray::number(int(random() % 2001) - 1000) + "\n";
        for (int i = 0; i < 12; ++i) {
            program += pick(unary).toLatin1() + ' ' + QByteArray::number(int(random() % 200) - 100) + ' ' +
                       pick(unary).toLatin1() + ' ' + pick(binary).toLatin1() + '\n';
        }
        program += "; W" + QByteArray::number(n) + " .\n";
    }
    const TemporaryFolder folder;
    const QString file = folder.write("random.fs", program);
    const ProgramResult ours = runProgram(u"vnScript"_s, {file});
    const ProgramResult theirs = runProgram(gforth, {file, u"-e"_s, u"bye"_s});
    EXPECT_EQ(ours.status, 0) << ours.error.toStdString();
    EXPECT_EQ(ours.out.count(' '), 400);
    EXPECT_EQ(ours.out, theirs.out);
}

} // namespace
