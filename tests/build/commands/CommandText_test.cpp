#include "base/CommandWords.h"
#include "build/commands/CommandText.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(SplitWords, KeepsQuotedWordsTogether)
{
    struct Row
    {
        const char *what, *command;
        QStringList words;
    };
    const Row rows[] = {
        {"blanks", "  cc  -c\ta.c ", {u"cc"_s, u"-c"_s, u"a.c"_s}},
        {"quotes within a word", "-o\"my file\".o", {u"-omy file.o"_s}},
        {"escaped quotes, also within quotes", R"(-DX=\"a b\" "y \" z")", {u"-DX=\"a"_s, u"b\""_s, u"y \" z"_s}},
        {"a backslash before anything else", R"(a\b c\ d \)", {u"a\\b"_s, u"c\\"_s, u"d"_s, u"\\"_s}},
        {"empty words", R"(a "" b)", {u"a"_s, u"b"_s}},
        {"a quote that stays open", "a \"b c", {u"a"_s, u"b c"_s}},
        {"nothing", "", {}},
    };
    for (const Row &row : rows)
        EXPECT_EQ(splitWords(QString::fromLatin1(row.command)), row.words) << row.what;
}

TEST(OptionsFile, TakesOneOptionALine)
{
    const TemporaryFolder folder;
    const QString path = folder.write("options", "# a comment\n"
                                                 "-mcpu=cortex-m3\r\n"
                                                 "// another\n"
                                                 "x\n"
                                                 "\n"
                                                 "/* over\n"
                                                 "-lost\n"
                                                 "several */ -lost too\n"
                                                 "-a /* and within */ a line\n"
                                                 "  --param a=b \n"
                                                 "-last");
    QStringList options{u"first"_s};
    EXPECT_TRUE(loadOptionsFile(path, options, u"-Wc,"_s));
    EXPECT_EQ(options, QStringList({u"first"_s, u"-Wc,-mcpu=cortex-m3"_s, u"-Wc,  --param a=b "_s, u"-Wc,-last"_s}));
    EXPECT_FALSE(loadOptionsFile(folder.path("none"), options));
    EXPECT_EQ(options.size(), 4);

    const QByteArray longOption(5000, 'o');
    options.clear();
    EXPECT_TRUE(loadOptionsFile(folder.write("options", longOption), options));
    EXPECT_EQ(options, QStringList(QString::fromLatin1(longOption)));
}

TEST(Dependencies, AreWhatTheRulesNameButTheSource)
{
    struct Row
    {
        const char *what, *text;
        QStringList names;
    };
    const Row rows[] = {
        {"one line", "a.o: a.c b.h c.h\n", {u"b.h"_s, u"c.h"_s}},
        {"continued", "a.o: a.c b.h \\\n c.h \\\n\td.h\n", {u"b.h"_s, u"c.h"_s, u"d.h"_s}},
        {"continued at once, CR LF", "a.o: \\\r\n  a.c \\\r\n  b.h\r\n", {u"b.h"_s}},
        {"rules without prerequisites", "a.o: a.c b.h\n\nb.h:\n", {u"b.h"_s}},
        {"escapes",
         "a.o: a.c my\\ file.h \\#1.h $$x.h a\\\\\\ b.h c\\d.h\n",
         {u"my file.h"_s, u"#1.h"_s, u"$x.h"_s, u"a\\ b.h"_s, u"c\\d.h"_s}},
        {"a source alone", "a.o: a.c", {}},
        {"no rule", "a.o a.c b.h\n", {}},
        {"nothing", "", {}},
        {"a lone backslash", "a.o: a.c b.h \\", {u"b.h"_s}},
    };
    for (const Row &row : rows)
        EXPECT_EQ(parseDependencies(row.text), row.names) << row.what;
    EXPECT_EQ(readDependencyFile(u"/none/such"_s), QStringList());
}

// What the real compilers write, for names that are hard and many enough for lines to be continued.
TEST(Dependencies, AreReadAsCompilersWriteThem)
{
    const TemporaryFolder folder;
    QStringList names{u"a b.h"_s, u"#hash.h"_s, u"$dollar$(x).h"_s, u"back\\slash.h"_s, u"b\\ c.h"_s, u"\u00fc.h"_s};
    for (int i = 0; i < 20; ++i)
        names += u"rather_long_name_of_a_header_%1.h"_s.arg(i);
    QByteArray source;
    for (const QString &name : std::as_const(names)) {
        QFile(folder.root() + u'/' + name).open(QFile::WriteOnly);
        source += "#include \"" + name.toUtf8() + "\"\n";
    }
    folder.write("my source.c", source);
    int compilers = 0;
    for (const QString &compiler : {u"gcc"_s, u"clang-14"_s, u"arm-none-eabi-gcc"_s}) {
        const QString made = folder.path("out.d");
        const ProgramResult result =
            runProgram(u"/usr/bin/env"_s, {compiler, u"-M"_s, u"-MP"_s, u"-MF"_s, made, folder.path("my source.c")});
        if (result.status == 127)
            continue;
        ASSERT_EQ(result.status, 0) << result.error.toStdString();
        ++compilers;
        QStringList read;
        for (const QString &path : readDependencyFile(made))
            read += path.startsWith(folder.root()) ? path.sliced(folder.root().size() + 1) : path;
        read.removeAll(u"/usr/include/stdc-predef.h"_s);
        QStringList expected = names;
        if (compiler.startsWith(u"clang"_s)) // which takes a backslash for a slash
            expected.replaceInStrings(u"\\"_s, u"/"_s);
        EXPECT_EQ(read, expected) << compiler.toStdString();
    }
    if (!compilers)
        GTEST_SKIP() << "no compiler is there";
}

TEST(ExternalTool, GetsDefinesAndIncludes)
{
    const MacroMap macros = externalToolMacros({u"--target=arm"_s, u"-DA=\"x y\""_s, u"-Iinc"_s, u"-isystem"_s,
                                                u"/sys"_s, u"-isystem/own"_s, u"-DB"_s, u"-x"_s});
    EXPECT_EQ(macros.value(u"DEFINES"_s), u"-DA=\\\"x y\\\" -DB"_s);
    EXPECT_EQ(macros.value(u"INCLUDES"_s), u"-Iinc -isystem /sys -isystem/own"_s);
    EXPECT_EQ(macros.size(), 2);
}
