#include "base/CommandLine.h"
#include "base/HException.h"
#include "support/QtPrinters.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(noteTrace, "tests/note", QtWarningMsg)

QStringList seen;

int note(const CommandArguments &arguments)
{
    qCDebug(noteTrace, "%d noted", int(arguments.positional().size()));
    seen = arguments.positional();
    seen += arguments.value("config", u"none"_s);
    seen += QString::number(arguments.has("json"));
    return 0;
}

int fail(const CommandArguments &)
{
    throw HException(u"it failed"_s);
}

const CommandOption noteOptions[] = {{"json", nullptr, "print JSON"}, {"c,config", "NAME", "the configuration"}};
const CommandVerb verbs[] = {
    {"note", "FILE NAME...", "notes things", 1, 2, noteOptions, note},
    {"fail", "", "fails", 0, 0, {}, fail},
    {"run", "FILE ARGUMENT...", "hands on", 1, -1, noteOptions, note, true},
};
const CommandLine program("prog", "does things", verbs);

int run(const QStringList &arguments)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = program.run(QStringList{u"prog"_s} + arguments, "1.0");
    seen += QString::fromStdString(testing::internal::GetCapturedStdout());
    seen += QString::fromStdString(testing::internal::GetCapturedStderr());
    return status;
}

TEST(CommandLine, RunsTheVerbWithItsOptionsAnywhere)
{
    EXPECT_EQ(run({u"note"_s, u"a"_s, u"-c"_s, u"Debug"_s, u"--json"_s, u"b"_s}), 0);
    EXPECT_EQ(seen, QStringList({u"a"_s, u"b"_s, u"Debug"_s, u"1"_s, QString(), QString()}));
    EXPECT_EQ(run({u"note"_s, u"--"_s, u"--json"_s}), 0);
    EXPECT_EQ(seen.first(), u"--json"_s);
}

TEST(CommandLine, NamesAreNotEmpty)
{
    EXPECT_EQ(run({u"note"_s, QString()}), 2);
    EXPECT_EQ(seen.last(), u"prog: the name of FILE is empty; try 'prog --help'\n"_s);
    EXPECT_EQ(run({u"note"_s, u"a"_s, QString()}), 2);
    EXPECT_EQ(seen.last(), u"prog: the name of NAME is empty; try 'prog --help'\n"_s);
    seen.clear();
    EXPECT_EQ(run({u"run"_s, u"a"_s, QString(), u"b"_s}), 0);
    EXPECT_EQ(seen[1], QString());
}

TEST(CommandLine, OptionsMayEndAtTheFirstArgument)
{
    EXPECT_EQ(run({u"run"_s, u"-c"_s, u"Debug"_s, u"a"_s, u"--json"_s, u"--bad"_s}), 0);
    EXPECT_EQ(seen, QStringList({u"a"_s, u"--json"_s, u"--bad"_s, u"Debug"_s, u"0"_s, QString(), QString()}));
}

TEST(CommandLine, WrongUsageIsOneLineAndTwo)
{
    for (const QStringList &wrong : {QStringList{},
                                     {u"no"_s},
                                     {u"note"_s},
                                     {u"note"_s, u"a"_s, u"b"_s, u"c"_s},
                                     {u"note"_s, u"a"_s, u"--bad"_s},
                                     {u"note"_s, u"a"_s, u"--config"_s}}) {
        seen.clear();
        EXPECT_EQ(run(wrong), 2);
        EXPECT_TRUE(seen[1].endsWith(u"; try 'prog --help'\n")) << seen[1].toStdString();
        EXPECT_EQ(seen[1].count(u'\n'), 1);
    }
    EXPECT_THROW(parseAddress(u"0x100000000"_s), UsageError);
    EXPECT_THROW(parseAddress(u"main"_s), UsageError);
    EXPECT_EQ(parseAddress(u"0xFFFFFFFF"_s), 0xFFFFFFFFu);
}

TEST(CommandLine, AFailedJobIsOneAndHelpGoesToStandardOutput)
{
    seen.clear();
    EXPECT_EQ(run({u"fail"_s}), 1);
    EXPECT_EQ(seen[1], u"prog: it failed\n"_s);
    seen.clear();
    EXPECT_EQ(run({u"note"_s, u"--help"_s}), 0);
    EXPECT_TRUE(seen[0].contains(u"-c, --config NAME")) << seen[0].toStdString();
    seen.clear();
    EXPECT_EQ(run({u"--help"_s}), 0);
    EXPECT_TRUE(seen[0].contains(u"notes things"));
    seen.clear();
    EXPECT_EQ(run({u"--version"_s}), 0);
    EXPECT_EQ(seen[0], u"prog (Veldane) 1.0\n"_s);
}

TEST(CommandLine, TracesTheCategoriesAskedFor)
{
    EXPECT_EQ(run({u"note"_s, u"--trace=debug/none,tests/note"_s, u"a"_s}), 0);
    EXPECT_EQ(seen.last(), u"tests/note: 1 noted\n"_s);
    EXPECT_EQ(run({u"note"_s, u"--trace=debug/none"_s, u"a"_s}), 0);
    EXPECT_EQ(seen.last(), QString());
}

} // namespace
