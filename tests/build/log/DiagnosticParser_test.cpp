#include "build/log/CompilerDiagnosticParser.h"

#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

// "4 a.c:3:10 text" as a test reads it; files without their folder.
QString shown(const Bookmark &bookmark)
{
    return u"%1 %2:%3:%4 %5"_s.arg(int(bookmark.severity))
        .arg(bookmark.file.sliced(bookmark.file.lastIndexOf(u'/') + 1))
        .arg(bookmark.line)
        .arg(bookmark.column)
        .arg(bookmark.text);
}

QStringList parseAll(DiagnosticParser &parser, const QString &output)
{
    QStringList records;
    for (const QString &line : output.split(u'\n', Qt::SkipEmptyParts))
        if (Bookmark bookmark; parser.parse(line, bookmark, true))
            records += shown(bookmark);
    return records;
}

struct Row
{
    const char *line, *record; // null: not recognised
};

} // namespace

TEST(StandardDiagnosticParser, FindsPlaceAndTagAnywhereInALine)
{
    TemporaryFolder folder;
    folder.write("a.c", "");
    const Row rows[] = {
        {"$/a.c:12:4: warning: text", "3 a.c:12:4 text"},
        {"a.c:12: some text", "4 a.c:12:-1 some text"},
        {"see $/a.c:7: text", "4 a.c:7:-1 text"},
        {"./a.c:7:, text", "4 a.c:7:-1 text"},
        {"$/a.c:7:", "0 a.c:7:-1 "},
        {"gone.c:3:2: error: x", "4 :3:2 x"}, // loses its file and stays a diagnostic
        {"error: no place", "4 :-1:-1 no place"},
        {"note: a", "2 :-1:-1 a"},
        {"x Info: a", "2 :-1:-1 a"},
        {"warning: a error: b", "4 :-1:-1 b"}, // errors are looked for first
        {"a.c:99999999999999: text", nullptr},
        {"a.c: text", nullptr},
        {"gone:", nullptr},
        {"no colon", nullptr},
        {"", nullptr},
    };
    StandardDiagnosticParser parser(folder.root(), u"cc"_s);
    for (const Row &row : rows) {
        Bookmark bookmark;
        const QString line = QString::fromLatin1(row.line).replace(u'$', folder.root());
        ASSERT_EQ(parser.parse(line, bookmark, true), row.record != nullptr) << row.line;
        if (row.record) {
            EXPECT_EQ(shown(bookmark), QLatin1StringView(row.record)) << row.line;
            EXPECT_EQ(bookmark.category, u"Build Results"_s);
        }
    }
}

TEST(PatternParsers, TakeFileLineAndTextFromTheirPattern)
{
    TemporaryFolder folder;
    folder.write("a.c", "");
    RegexpDiagnosticParser regexp(folder.root(), {},
                                  {{}, u"("_s, u"^(\\S+) at (\\d+): (.*)"_s, {}, {}, {}, u"(never)(1)(reached)"_s});
    EXPECT_EQ(parseAll(regexp, u"a.c at 3: odd\nnever1reached\n"_s), QStringList{u"2 a.c:3:-1 odd"_s});

    STAPLDiagnosticParser stapl(folder.root(), {});
    EXPECT_EQ(parseAll(stapl, u"a.c(12): error: x (y): error: z\n(4): error: no file\na.c(1): warning: w\n"
                              " a.c(x): error: no\na.c(): error: no number\n"_s),
              (QStringList{u"4 a.c:12:-1 x (y): error: z"_s, u"4 :4:-1 no file"_s, u"4 a.c:-1:-1 no number"_s}));
}

TEST(CompilerDiagnosticParser, TellsTheSameOnce)
{
    TemporaryFolder folder;
    folder.write("a.c", "");
    CompilerDiagnosticParser parser(folder.root(), u"gcc"_s);
    const auto output = u"a.c:3: undefined reference to `g'\na.c:4: undefined reference to `g'\n"_s;
    EXPECT_EQ(parseAll(parser, output).size(), 2);
    const QString full = u"ld.lld: error: section '%1' will not fit in region '%2': overflowed by %3 bytes\n"_s;
    EXPECT_EQ(parseAll(parser, output + full.arg(u".rodata"_s, u"FLASH"_s).arg(737) +
                                   full.arg(u".data"_s, u"FLASH"_s).arg(904) + full.arg(u".bss"_s, u"RAM"_s).arg(52)),
              (QStringList{u"4 :-1:-1 section '.rodata' will not fit in region 'FLASH': overflowed by 737 bytes"_s,
                           u"4 :-1:-1 section '.bss' will not fit in region 'RAM': overflowed by 52 bytes"_s}));
    Bookmark bookmark;
    EXPECT_FALSE(parser.parse(u"a.c:3: undefined reference to `g'"_s, bookmark, true));
    EXPECT_FALSE(parser.parse(u"    3 | g();"_s, bookmark, true));
    EXPECT_FALSE(parser.isContinuation()) << "this excerpt belongs to no record that was given last";
}

// Texts as the tools print them, one after the other, so that each line stands behind the one before.
TEST(CompilerDiagnosticParser, ReadsRecordedOutput)
{
    TemporaryFolder folder;
    for (const char *name : {"a.c", "a.h", "b.c", "x.ld", "with blank.c", "a.o", "t.cpp"})
        folder.write(name, "");
    const Row rows[] = {
        {"In file included from a.h:2,", "0 a.h:2:-1 In file included from a.h:2"},
        {"                 from a.c:1:", "0 a.c:1:-1 from a.c:1"},
        {"a.h: In function 'q':", nullptr},
        {"a.h:1:36: error: 'nope' undeclared", "4 a.h:1:36 'nope' undeclared"},
        {"    1 | static int q; /* a.c:3: error: x */", nullptr},
        {"      |     ^~~~", nullptr},
        {"  +++ |+#include <x.h>", nullptr},
        {"a.c:4:8: warning: w [-Wflag]", "3 a.c:4:8 w [-Wflag]"},
        {"printf(\"gone.c:3: error: x\"); // Clang shows the source line as it is", nullptr},
        {"       ^   ~~~~~~~~~~~", nullptr},
        {"with blank.c:1:2: note: n", "2 with blank.c:1:2 n"},
        {"In file included from ./a.c:1:", "0 a.c:1:-1 In file included from ./a.c:1"},
        {"a.c:1:10: fatal error: 'no.h' file not found", "5 a.c:1:10 'no.h' file not found"},
        {"fatal error: too many errors emitted", nullptr},
        {"1 warning and 4 errors generated.", nullptr},
        {"compilation terminated.", nullptr},
        {"<stdin>:2:34: error: 'y' undeclared", "4 :-1:-1 'y' undeclared"},
        {"<inline asm>:1:2: note: instantiated into assembly here", "2 :-1:-1 instantiated into assembly here"},
        {"t.cpp:3:22:   required from here", "0 t.cpp:3:22 required from here"},
        {"t.cpp:1:27:   required for the satisfaction of 'Big<T>' [with T = int]",
         "0 t.cpp:1:27 required for the satisfaction of 'Big<T>' [with T = int]"},
        {"gone.h:3:22:   required from here", "0 :-1:-1 required from here"},
        {"../gone.c:5:16: note: each is reported once", "2 :-1:-1 each is reported once"},
        {"../gone.c:6:1: error: no excerpt came between", "4 :-1:-1 no excerpt came between"},
        {"t.cpp:1:35: missed: couldn't vectorize loop", "2 t.cpp:1:35 missed: couldn't vectorize loop"},
        {"\x1b[01m\x1b[Ka.c:1:2:\x1b[m\x1b[K \x1b[01;31m\x1b[Kerror: \x1b[m\x1b[K"
         "red \x1b]8;;http://x\x1b\\[-Wx]\x1b]8;;\x1b\\",
         "4 a.c:1:2 red [-Wx]"},
        {"cc1: all warnings being treated as errors", nullptr},
        {"cc1: fatal error: gone.c: No such file or directory", "5 :-1:-1 gone.c: No such file or directory"},
        {"a.c: Assembler messages:", nullptr},
        {"a.c:2: Error: bad instruction `foo r0'", "4 a.c:2:-1 bad instruction `foo r0'"},
        {"{standard input}:29: Warning: w", "3 :-1:-1 w"},
        {"/tmp/gone.s:29: Fatal error: f", "5 :-1:-1 f"},
        {"/usr/bin/ld: /tmp/x.o: in function `main':", nullptr},
        {"$/a.c:3: undefined reference to `gg'", "4 a.c:3:-1 undefined reference to `gg'"},
        {"/tmp/x.o: in function `ns::f(a::b, c::d, e::f, g::h)': a.c:12: undefined reference to `g'",
         "4 a.c:12:-1 undefined reference to `g'"},
        {"a.c:(.text+0x8): undefined reference to `gg'", "4 a.c:-1:-1 undefined reference to `gg'"},
        {"a.o:(.text+0x8): warning: old function", "3 :-1:-1 old function"},
        {"/tmp/x.o: in function `_start':", nullptr}, // of assembly, which names no source
        {"(.text+0x0): undefined reference to `nowhere'", "4 :-1:-1 undefined reference to `nowhere'"},
        {"/usr/bin/ld: (.text+0x8): undefined reference to `table'", "4 :-1:-1 undefined reference to `table'"},
        {"(.text+0x0): multiple definition of `dup'; x.o (symbol from plugin):(.text+0x0): first defined here",
         "4 :-1:-1 multiple definition of `dup'; x.o (symbol from plugin):(.text+0x0): first defined here"},
        {"`keep' referenced in section `.text' of x.o: defined in discarded section `.gone' of x.o",
         "4 :-1:-1 `keep' referenced in section `.text' of x.o: defined in discarded section `.gone' of x.o"},
        {"rv.o: file not recognized: file format not recognized",
         "4 :-1:-1 rv.o: file not recognized: file format not recognized"},
        {"/usr/bin/ld:a.o:0: syntax error", "4 :-1:-1 a.o:0: syntax error"},
        {"ld.lld: error: a.o:1: unexpected EOF", "4 :-1:-1 a.o:1: unexpected EOF"},
        {"arm-none-eabi-ranlib: 'nope.a': No such file", "4 :-1:-1 'nope.a': No such file"},
        {"1.\ta.c:1:2: current parser token 'pragma'", "2 a.c:1:2 current parser token 'pragma'"},
        {"/x/arm-none-eabi/bin/ld: a.o:$/b.c:1: multiple definition of `v'; u.o:$/a.c:2: first defined here",
         "4 b.c:1:-1 multiple definition of `v'; u.o:$/a.c:2: first defined here"},
        {"arm-none-eabi-ld: region `FLASH' overflowed by 12 bytes", "4 :-1:-1 region `FLASH' overflowed by 12 bytes"},
        {"/usr/bin/ld: cannot find -lx: No such file or directory",
         "4 :-1:-1 cannot find -lx: No such file or directory"},
        {"/usr/bin/ld:x.ld:7: syntax error", "4 x.ld:7:-1 syntax error"},
        {"/usr/bin/ld: warning: cannot find entry symbol _start", "3 :-1:-1 cannot find entry symbol _start"},
        {"/usr/bin/ld: skipping incompatible libx.a when searching for -lx",
         "2 :-1:-1 skipping incompatible libx.a when searching for -lx"},
        {"collect2: error: ld returned 1 exit status", nullptr}, // the error was told
        {"ld.lld-14: error: undefined symbol: gg", nullptr},     // its place comes
        {">>> referenced by a.c:3 ($/a.c:3)", "4 a.c:3:-1 undefined symbol: gg"},
        {">>>               a.o:(main)", nullptr},
        {"ld.lld: error: undefined symbol: g0", nullptr}, // of a line that link-time optimisation has lost
        {">>> referenced by a.c:0 ($/a.c:0)", "4 a.c:-1:-1 undefined symbol: g0"},
        {">>> referenced by b.c", "2 b.c:-1:-1 referenced by b.c"},
        {"ld.lld: error: duplicate symbol: v", nullptr},
        {">>> defined at a.c:3", "4 a.c:3:-1 duplicate symbol: v"},
        {">>>            a.o:(v)", nullptr},
        {">>> defined at b.c:2 ($/b.c:2)", "2 b.c:2:-1 defined at b.c:2 ($/b.c:2)"},
        {"ld.lld: error: undefined hidden symbol: gg", nullptr},
        {">>> referenced by a.o:(main)", "4 :-1:-1 undefined hidden symbol: gg"},
        {"ld.lld: warning: undefined symbol: gg", nullptr}, // none comes: nothing is lost
        {"ld.lld: error: undefined symbol: hh", "3 :-1:-1 undefined symbol: gg"},
        {"", "4 :-1:-1 undefined symbol: hh"},
        {"ld.lld: warning: x.ld:3: odd", "3 x.ld:3:-1 odd"},
        {"ld.lld: error: a.c:(.text+0x4): relocation R_ARM_CALL out of range",
         "4 a.c:-1:-1 relocation R_ARM_CALL out of range"},
        {"arm-none-eabi-ar: creating x.a", nullptr},
        {"arm-none-eabi-nm: a.o: no symbols", nullptr},
        {"clang: error: ld.lld command failed with exit code 1 (use -v to see invocation)", nullptr},
        {"Error cannot add LTO module: symbol multiply defined! processing a.o",
         "4 :-1:-1 cannot add LTO module: symbol multiply defined! processing a.o"},
        {"gone.xml: error: no such file", "4 :-1:-1 gone.xml: no such file"}, // the name is all there is
        {"arm-none-eabi-gcc: error: unrecognized option", "4 :-1:-1 unrecognized option"},
        {"cc: error: ltollvm returned 1 exit status", nullptr},
        {"a.c:5: what another tool says", "4 a.c:5:-1 what another tool says"},
    };
    CompilerDiagnosticParser parser(folder.root(), u"gcc"_s);
    for (const Row &row : rows) {
        Bookmark bookmark;
        const QString line = QString::fromLatin1(row.line).replace(u'$', folder.root());
        ASSERT_EQ(parser.parse(line, bookmark, true), row.record != nullptr)
            << row.line << shown(bookmark).toStdString();
        if (row.record) {
            EXPECT_EQ(shown(bookmark), QString::fromLatin1(row.record).replace(u'$', folder.root())) << row.line;
        }
    }
}

TEST(CompilerDiagnosticParser, KnowsWhatBelongsToARecord)
{
    TemporaryFolder folder;
    folder.write("a.c", "");
    CompilerDiagnosticParser parser(folder.root(), u"gcc"_s);
    Bookmark bookmark;
    EXPECT_FALSE(parser.parse(u"a.c: In function 'f':"_s, bookmark, true));
    EXPECT_FALSE(parser.isContinuation());
    EXPECT_TRUE(parser.parse(u"a.c:4:2: error: x"_s, bookmark, true));
    EXPECT_EQ(bookmark.context, QStringList{u"a.c: In function 'f':"_s});
    const auto expectExcerpts = [&](const QStringList &lines) {
        for (const QString &line : lines) {
            EXPECT_FALSE(parser.parse(line, bookmark, true));
            EXPECT_TRUE(parser.isContinuation()) << line.toStdString();
        }
    };
    expectExcerpts({u"    4 | { x }"_s, u"      |   ^"_s});
    // Clang's have no gutter, and an underline may begin at the first column.
    EXPECT_TRUE(parser.parse(u"a.c:5:1: error: y"_s, bookmark, true));
    expectExcerpts({u"bogus r1"_s, u"^    ~~"_s});
    EXPECT_FALSE(parser.parse(u"compilation terminated."_s, bookmark, true));
    EXPECT_FALSE(parser.isContinuation());
}

TEST(CompilerDiagnosticParser, FollowsMakeIntoFolders)
{
    TemporaryFolder folder;
    EXPECT_TRUE(QDir(folder.root()).mkpath(u"sub/deep"_s));
    for (const char *name : {"sub/a.c", "sub/deep/b.c", "c.c"})
        folder.write(name, "");
    CompilerDiagnosticParser parser(folder.root(), u"make"_s);
    const QString output = u"make: Entering directory '%1/sub'\n"
                           "a.c:1:2: error: x\n"
                           "make[1]: Entering directory '%1/sub/deep'\n"
                           "b.c:1:2: error: y\n"
                           "make[1]: Leaving directory '%1/sub/deep'\n"
                           "a.c:3:2: error: z\n"
                           "make: Leaving directory '%1/sub'\n"
                           "c.c:1:2: error: w\n"_s.arg(folder.root());
    EXPECT_EQ(parseAll(parser, output),
              (QStringList{u"4 a.c:1:2 x"_s, u"4 b.c:1:2 y"_s, u"4 a.c:3:2 z"_s, u"4 c.c:1:2 w"_s}));
}

// What a tool says because another has failed is an error when nothing else was one.
TEST(CompilerDiagnosticParser, CountsAFailureOnce)
{
    for (const auto &line :
         {u"collect2: error: ld returned 1 exit status"_s, u"clang: error: linker command failed with exit code 1"_s,
          u"lto-wrapper: fatal error: arm-none-eabi-gcc returned 1 exit status"_s}) {
        CompilerDiagnosticParser parser({}, u"gcc"_s);
        EXPECT_EQ(parseAll(parser, u"ld: warning: w\n"_s + line).size(), 2) << line.toStdString();
        EXPECT_EQ(parseAll(parser, line).size(), 0) << line.toStdString();
    }
}

TEST(CompilerDiagnosticParser, PassesOverTheDriversCommands)
{
    const auto command = u"arm-none-eabi-gcc -c x.c '-DTEXT=\"error: none\"' -o x.o"_s;
    Bookmark bookmark;
    EXPECT_FALSE(CompilerDiagnosticParser({}, u"/opt/bin/cc"_s).parse(command, bookmark, false));
    EXPECT_TRUE(CompilerDiagnosticParser({}, u"/opt/bin/cc"_s).parse(u"cc: error: some"_s, bookmark, true));
    EXPECT_TRUE(CompilerDiagnosticParser({}, u"lint"_s).parse(u"error: some"_s, bookmark, false));
}

TEST(CompilerDiagnosticParser, CostsTimeLinearInTheLine)
{
    CompilerDiagnosticParser parser(u"/tmp"_s, u"gcc"_s);
    for (const auto &piece : {u":1"_s, u": "_s, u"error"_s, u"1"_s, u":("_s, u": In "_s, u"/"_s, u" /"_s, u"\x1b]"_s}) {
        QElapsedTimer timer;
        timer.start();
        Bookmark bookmark;
        parser.parse(piece.repeated(2'000'000 / int(piece.size())), bookmark, true);
        EXPECT_LT(timer.elapsed(), 5000) << piece.toStdString(); // a square of it would take hours
    }
}

// What compilers of this machine say of bad sources.
class RealTools : public testing::TestWithParam<const char *>
{
protected:
    QStringList recordsOf(const QString &command)
    {
        const ProgramResult result =
            runProgram(u"/bin/sh"_s, {u"-c"_s, u"cd %1 && LC_ALL=C %2"_s.arg(m_folder.root(), command)});
        m_output = QString::fromUtf8(result.out + result.error);
        CompilerDiagnosticParser parser(m_folder.root(), u"cc"_s);
        return parseAll(parser, m_output);
    }
    // Whether one record has that severity, place and, somewhere, that text.
    void expectRecord(const QStringList &records, const QString &place, const QString &text)
    {
        const bool found = std::any_of(records.begin(), records.end(), [&](const QString &record) {
            return record.startsWith(place + u' ') && record.contains(text);
        });
        EXPECT_TRUE(found) << place.toStdString() << " " << text.toStdString() << " in\n"
                           << records.join(u'\n').toStdString() << "\nof\n"
                           << m_output.toStdString();
    }

    TemporaryFolder m_folder;
    QString m_output;
};

TEST_P(RealTools, LandOnTheRightPlaceAndSeverity)
{
    const QString tool = QString::fromLatin1(GetParam());
    const bool isClang = tool.startsWith("clang"_L1);
    if (QStandardPaths::findExecutable(tool).isEmpty())
        GTEST_SKIP() << GetParam() << " isn't installed";
    const QString compile = tool + (isClang ? u" --target=armv7m-none-eabi -Wall -c "_s : u" -Wall -c "_s);

    m_folder.write("a.h", "int g(int);\n#include \"b.h\"\n");
    m_folder.write("b.h", "static inline int q(void) { return nope; }\n");
    m_folder.write("a.c", "#include \"a.h\"\nint f(void)\n{\n    return g(1, 2);\n}\n");
    QStringList records = recordsOf(compile + u"a.c"_s);
    expectRecord(records, u"4 b.h:1:36"_s, u"nope"_s);
    expectRecord(records, u"0 a.h:2:-1"_s, {});
    expectRecord(records, u"0 a.c:1:-1"_s, {});
    expectRecord(records, isClang ? u"4 a.c:4:17"_s : u"4 a.c:4:12"_s, u"too many arguments"_s);
    expectRecord(records, u"2 a.h:1:5"_s, u"declared here"_s);
    EXPECT_EQ(records.filter(QRegularExpression(u"^[45]"_s)).size(), 2) << m_output.toStdString();

    m_folder.write("w.c", "int f(void)\n{\n    int unused;\n    return 0;\n}\n");
    records = recordsOf(compile + u"w.c"_s);
    expectRecord(records, u"3 w.c:3:9"_s, u"[-Wunused-variable]"_s);
    EXPECT_EQ(records.size(), 1);

    m_folder.write("n.c", "\n#include \"no.h\"\n");
    expectRecord(recordsOf(compile + u"n.c"_s), u"5 n.c:2:10"_s, u"no.h"_s);

    m_folder.write("s.s", " nop\n bogus r1\n .warning \"careful\"\n");
    records = recordsOf(compile + u"s.s"_s);
    expectRecord(records, isClang ? u"4 s.s:2:2"_s : u"4 s.s:2:-1"_s, isClang ? u"instruction"_s : u"bogus"_s);
    expectRecord(records, isClang ? u"3 s.s:3:2"_s : u"3 s.s:3:-1"_s, u"careful"_s);

    m_folder.write("i.c", "void f(void)\n{\n    __asm__(\"bogus r0\");\n}\n");
    records = recordsOf(compile + u"i.c"_s);
    if (tool.startsWith("arm"_L1))
        expectRecord(records, u"4 :-1:-1"_s, u"bogus"_s); // the place is in a file that is gone
    else
        expectRecord(records, isClang ? u"4 i.c:3:13"_s : u"4 i.c:3:-1"_s, {});

    expectRecord(recordsOf(compile + u"gone.c"_s), isClang ? u"4 :-1:-1"_s : u"5 :-1:-1"_s, u"gone.c"_s);
}

TEST_P(RealTools, LinkersNameTheSource)
{
    const QString tool = QString::fromLatin1(GetParam());
    if (QStandardPaths::findExecutable(tool).isEmpty())
        GTEST_SKIP() << GetParam() << " isn't installed";
    const bool isClang = tool.startsWith("clang"_L1);
    if (isClang && QStandardPaths::findExecutable(u"ld.lld-14"_s).isEmpty())
        GTEST_SKIP() << "ld.lld-14 isn't installed";

    m_folder.write("u.c", "extern int gg(void);\nint v = 1;\nint main(void)\n{\n    return gg();\n}\n");
    m_folder.write("d.c", "\nint v = 3;\n");
    m_folder.write("small.ld",
                   "MEMORY { FLASH : ORIGIN = 0, LENGTH = 4 }\nSECTIONS { .text : { *(.text*) } > FLASH }\n");
    m_folder.write("bad.ld", "\nMEMORY { FLASH : = }\n");
    const QString target = isClang ? u" --target=armv7m-none-eabi"_s : QString();
    ASSERT_TRUE(recordsOf(u"%1%2 -g -c u.c && %1%2 -g -c d.c"_s.arg(tool, target)).isEmpty()) << m_output.toStdString();
    const QString link = isClang ? u"ld.lld-14"_s : tool + u" -nostdlib"_s;

    QStringList records = recordsOf(link + u" u.o"_s);
    expectRecord(records, u"4 u.c:5:-1"_s, u"gg"_s);
    EXPECT_EQ(records.filter(QRegularExpression(u"^[45]"_s)).size(), 1) << m_output.toStdString();
    records = recordsOf(link + u" u.o d.o"_s);
    if (isClang) {
        expectRecord(records, u"4 u.c:2:-1"_s, u"duplicate symbol: v"_s);
        expectRecord(records, u"2 d.c:2:-1"_s, u"defined at"_s);
    } else
        expectRecord(records, u"4 d.c:2:-1"_s, u"multiple definition of"_s);
    expectRecord(recordsOf(link + u" u.o -lnone"_s), u"4 :-1:-1"_s, u"-lnone"_s);
    expectRecord(recordsOf(link + u" -T small.ld u.o"_s), u"4 :-1:-1"_s, u"FLASH"_s);
    expectRecord(recordsOf(link + u" -T bad.ld u.o"_s), u"4 bad.ld:2:-1"_s, {});
}

INSTANTIATE_TEST_SUITE_P(Compilers, RealTools,
                         testing::Values("arm-none-eabi-gcc", "riscv64-unknown-elf-gcc", "clang-14"));
