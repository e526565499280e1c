#include "script/engine/ScriptRunner.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/RunningProgram.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

ProgramResult vnScript(const QStringList &arguments, const QByteArray &input = {})
{
    return runProgram(u"vnScript"_s, arguments, input);
}

TEST(ScriptLineScanner, KnowsWhatIsOpen)
{
    struct
    {
        const char *what;
        QStringList lines;
        bool open;
    } const rows[] = {
        {"nothing", {u""_s}, false},
        {"a function's body", {u"function f() {"_s, u" return [1,"_s}, true},
        {"closed again", {u"function f() {"_s, u"}"_s}, false},
        {"brackets in strings", {u"x = '{' + \"(\\\"[\""_s}, false},
        {"brackets in comments", {u"x // {"_s, u"/* ( */"_s}, false},
        {"a comment over lines", {u"/* it's"_s, u"{"_s}, true},
        {"and its end", {u"/* it's"_s, u"*/ 1"_s}, false},
    };
    for (const auto &row : rows) {
        ScriptLineScanner scanner;
        for (const QString &line : row.lines)
            scanner.add(line);
        EXPECT_EQ(scanner.isOpen(), row.open) << row.what;
    }
}

TEST(vnScript, EvaluatesATextAndPrintsItsValue)
{
    struct
    {
        QStringList arguments;
        int status;
        QByteArray out, error;
    } const rows[] = {
        {{u"-e"_s, u"1 + 2"_s}, 0, "3\n", ""},
        {{u"-e"_s, u"var x"_s}, 0, "", ""},
        {{u"-e"_s, u"Script.Echo('a', 1, null); 'é'"_s}, 0, "a 1 null\né\n", ""},
        {{u"-e"_s, u"WScript == Script && WScript.Arguments.join('|')"_s, u"x"_s, u"-y"_s, u"ö z"_s},
         0,
         "x|-y|ö z\n",
         ""},
        {{u"-e"_s, u"1;\nnull.x"_s}, 1, "", "can't convert null to an object\n-e:2\nnull.x\n"},
        {{u"-e"_s, u"throw 'text'"_s}, 1, "", "Uncaught exception: text\n"},
        {{u"-e"_s, u"throw {toString: function () { throw 1 }}"_s}, 1, "", "Uncaught exception: [object Object]\n"},
        {{u"-e"_s, u"function f() { return f() } f()"_s},
         1,
         "",
         "virtual machine stack too small\n-e:1\nfunction f() { return f() } f()\n"},
        {{u"-e"_s, u"0x"_s}, 1, "", "digit '' is not radix 16\n-e:1\n0x\n"},
        {{u"-e"_s, u"throw 'a\\x00b'"_s}, 1, "", QByteArray("Uncaught exception: a\0b\n", 24)},
        {{u"-e"_s, u"("_s}, 1, "", "expected an expression, found end of input\n-e:1\n(\n"},
        {{u"-e"_s, u"eval('1');\nvar x;\nx.y"_s}, 1, "", "can't convert undefined to an object\n(program) (-e:3)\n"},
        {{u""_s}, 2, "", "vnScript: the name of FILE is empty; try 'vnScript --help'\n"},
        {{u"--list"_s}, 2, "", "vnScript: --list needs a FILE or -e; try 'vnScript --help'\n"},
        {{u"--bad"_s}, 2, "", "vnScript: Unknown option 'bad'; try 'vnScript --help'\n"},
        {{u"/no/such/file.js"_s}, 1, "", "vnScript: cannot open /no/such/file.js: No such file or directory\n"},
        {{u"/"_s}, 1, "", "vnScript: cannot open /: file to open is a directory\n"},
    };
    for (const auto &row : rows) {
        const ProgramResult result = vnScript(row.arguments);
        EXPECT_EQ(result.status, row.status) << row.arguments.join(u' ').toStdString();
        EXPECT_EQ(result.out, row.out) << row.arguments.join(u' ').toStdString();
        EXPECT_EQ(result.error, row.error) << row.arguments.join(u' ').toStdString();
    }
}

TEST(vnScript, RunsFilesWithWhatTheyLoad)
{
    TemporaryFolder folder;
    const QString script = folder.write("main.js", "#!/usr/bin/env vnScript\n"
                                                   "Script.Echo(load('lib.js'), twice(21), load('none.js'));\n"
                                                   "Script.Echo(Script.Arguments.length, Script.Arguments[1]);\n"
                                                   "fail();\n");
    QDir(folder.root()).mkdir(u"inc"_s);
    folder.write("inc/lib.js", "function twice(x) { return 2 * x }\nfunction fail() {\n  return undefined.y\n}\n");
    const ProgramResult result = vnScript({u"-I"_s, folder.path("inc"), script, u"--list"_s, u"-e"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "true 42 false\n2 -e\n");
    EXPECT_TRUE(result.error.startsWith("can't convert undefined to an object\n")) << result.error.constData();

    folder.write("bad.js", "var a;\nvar b = ;\n");
    const ProgramResult bad = vnScript({folder.path("bad.js")});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.error, "expected an expression, found ;\n" + folder.path("bad.js").toUtf8() + ":2\nvar b = ;\n");
}

TEST(vnScript, ListsAndRunsNothing)
{
    const ProgramResult result = vnScript({u"--list"_s, u"-e"_s, u"Script.Echo(7)"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.contains("CALLF")) << result.out.constData();
    EXPECT_EQ(vnScript({u"--list"_s, u"-e"_s, u"1 = 2"_s}).error, "not lsh?\n-e:1\n1 = 2\n");
}

TEST(vnScript, WarnsOfCallsThatAreNone)
{
    const QString source = u"function f() { return f }\nf()()"_s;
    EXPECT_TRUE(vnScript({u"-e"_s, source}).error.startsWith("-e:2: "));
    EXPECT_EQ(vnScript({u"--no-warnings"_s, u"-e"_s, source}).error, "");
}

TEST(vnScript, ReadsLinesFromAPipeWithoutPrompts)
{
    const ProgramResult result = vnScript({}, "var x = 20\n"
                                              "function add(a, b) {\n"
                                              "  return a + b }\n"
                                              "add(x,\n 22)\n"
                                              "if (x)\n Script.Echo('yes')\n"
                                              "null.q\n"
                                              "x\n"
                                              "/* a comment\n over lines */ x + 1");
    EXPECT_EQ(result.out, "42\nyes\n20\n21\n");
    EXPECT_EQ(result.error, "can't convert null to an object\n<stdin>:1\nnull.q\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(vnScript({u"-"_s}, "var x = 20;\nScript.Echo(x)\nx").out, "20\n");
}

TEST(vnScript, FullDiskIsAFailure)
{
    const ProgramResult result =
        runProgram(u"/bin/sh"_s, {u"-c"_s, QStringLiteral(VN_BIN "/vnScript -e 1 > /dev/full")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "vnScript: cannot write to standard output\n");
}

class RunningScript : public RunningProgram
{
public:
    RunningScript() : RunningProgram(u"vnScript"_s, {}) {}
    explicit RunningScript(const QString &text) : RunningProgram(u"vnScript"_s, {u"-e"_s, text}, Pipe) {}
};

TEST(vnScript, InterruptEndsAScriptAndKeepsItsOutput)
{
    // The output fills its buffer once, which tells the test that the script runs; the rest comes at the end.
    RunningScript script(u"for (var i = 0; i < 2000; i++) Script.Echo('line'); Script.Echo('last'); for (;;) ;"_s);
    ASSERT_TRUE(script.waitFor("line\n"));
    script.interrupt();
    EXPECT_EQ(script.end(), 130);
}

TEST(vnScript, ConsoleEditsContinuesAndSurvivesInterrupts)
{
    RunningScript console;
    ASSERT_TRUE(console.waitFor("> "));
    console.type("function f() {\n");
    ASSERT_TRUE(console.waitFor("... "));
    console.type("return 6 * 7 }\n");
    ASSERT_TRUE(console.waitFor("> "));
    console.type("f()\n");
    ASSERT_TRUE(console.waitFor("42\r\n"));
    ASSERT_TRUE(console.waitFor("> "));
    console.type("nul.x\n");
    ASSERT_TRUE(console.waitFor("can't convert undefined to an object\r\n<stdin>:1\r\nnul.x\r\n"));
    ASSERT_TRUE(console.waitFor("> "));
    console.type("Script.Echo('go' + 'es'); for (;;) ;\n");
    ASSERT_TRUE(console.waitFor("goes\r\n"));
    console.interrupt();
    ASSERT_TRUE(console.waitFor("interrupted\r\n"));
    ASSERT_TRUE(console.waitFor("> "));
    console.waitForEditor();
    console.type("{ half a");
    ASSERT_TRUE(console.waitFor("half a"));
    console.interrupt();
    ASSERT_TRUE(console.waitFor("> "));
    console.type("f() + 1\n");
    ASSERT_TRUE(console.waitFor("43\r\n"));
    ASSERT_TRUE(console.waitFor("> "));
    console.type("\x04");
    EXPECT_EQ(console.end(), 0);
}

// What is typed while the program works and the terminal isn't the editor's.
TEST(vnScript, ConsoleHearsWhatIsTypedAhead)
{
    for (const char *keys : {"6 * 7\n\x04", "for (i = 0; i < 1e6; i++) ; 42\n4\x7F\x04"}) {
        RunningScript console;
        ASSERT_TRUE(console.waitFor("> "));
        console.type(keys);
        EXPECT_TRUE(console.waitFor("42\r\n")) << keys;
        EXPECT_EQ(console.end(), 0) << keys;
    }
    RunningScript console;
    ASSERT_TRUE(console.waitFor("> "));
    console.type(QByteArray("4\0002\n", 4)); // as Ctrl-D comes from such a time; it ends an empty line only
    EXPECT_TRUE(console.waitFor("42\r\n"));
    ASSERT_TRUE(console.waitFor("> "));
    console.type(QByteArray("\0", 1));
    EXPECT_EQ(console.end(), 0);
}

} // namespace
