#include "debug/verbs/CompiledProgram.h"
#include "support/QtPrinters.h"

#include <QFile>

namespace {

// A program whose globals hold containers, and what is in its memory when it has filled them.
struct FilledProgram
{
    TemporaryFolder folder;
    QString elf, memory; // memory as `vnDump print --memory` takes it
    QString missing;     // a tool
};

const FilledProgram &filledProgram()
{
    static FilledProgram program;
    if (!program.elf.isEmpty() || !program.missing.isEmpty())
        return program;
    for (const char *name : {"arm-none-eabi-g++", "qemu-system-arm", "gdb-multiarch"}) {
        if (tool(name).isEmpty())
            program.missing = QString::fromLatin1(name);
    }
    if (!program.missing.isEmpty())
        return program;
    const QString data = QStringLiteral(VN_TEST_DATA "/containers/containers");
    const QString elf = program.folder.path("containers.elf"), dump = program.folder.path("ram.bin");
    const auto built = runProgram(
        tool("arm-none-eabi-g++"),
        {u"-mcpu=cortex-m3"_s, u"-mthumb"_s, u"-g"_s, u"-std=c++20"_s, u"-Wno-psabi"_s, u"-fno-exceptions"_s,
         u"-fno-rtti"_s, u"-fno-threadsafe-statics"_s, u"-D_GLIBCXX_EXTERN_TEMPLATE=0"_s, u"-ffunction-sections"_s,
         u"-Wl,--gc-sections"_s, u"-nostdlib"_s, u"-T"_s, data + u".ld"_s, data + u".cpp"_s, u"-o"_s, elf, u"-lgcc"_s});
    EXPECT_EQ(built.status, 0) << built.error.toStdString();
    const QString machine =
        u"target remote | exec qemu-system-arm -M lm3s6965evb -nographic -serial none -monitor none "
        "-S -gdb stdio -kernel "_s;
    const auto ran = runProgram(tool("gdb-multiarch"),
                                {u"-nx"_s, u"-batch"_s, elf, u"-ex"_s, machine + elf, u"-ex"_s, u"break filled"_s,
                                 u"-ex"_s, u"continue"_s, u"-ex"_s,
                                 u"dump binary memory "_s + dump + u" 0x20000000 0x20010000"_s, u"-ex"_s, u"kill"_s});
    EXPECT_TRUE(ran.out.contains("Breakpoint 1, filled")) << ran.out.toStdString() << ran.error.toStdString();
    program.elf = elf;
    program.memory = dump + u"@0x20000000"_s;
    return program;
}

QJsonArray printed(const QStringList &expressions, const QStringList &options = {})
{
    const FilledProgram &program = filledProgram();
    return json(QStringList{u"print"_s, u"--json"_s, u"--memory"_s, program.memory} + options +
                QStringList{program.elf} + expressions);
}

QJsonObject printed(const char *expression, const QStringList &options = {})
{
    return printed(QStringList{QString::fromLatin1(expression)}, options)[0].toObject();
}

// Values of a row as a user would write them: "1 2", "{1 2} {3 4}".
QString valuesIn(const QJsonObject &row)
{
    const QJsonArray children = row[u"children"].toArray();
    if (children.isEmpty())
        return row[u"value"].toString();
    QStringList values;
    for (const QJsonValue &child : children) {
        const QString inner = valuesIn(child.toObject());
        values += child[u"children"].toArray().isEmpty() ? inner : u'{' + inner + u'}';
    }
    return values.join(u' ');
}

struct Container
{
    const char *expression, *values;
};
const Container containerRows[] = {
    {"shortText", "hello"},
    {"longText", "a text that is too long for the object itself"},
    {"emptyText", ""},
    {"view", "bcd"},
    {"numbers", "0 1 4 9 16"},
    {"points", "{0 0} {1 -1} {2 -2} {3 -3} {4 -4}"},
    {"words", "a bb ccc dddd eeeee"},
    {"nested", "{0 1} {1 2} {2 3} {3 4} {4 5}"},
    {"chain", "10 9 8 7 6"},
    {"names", "one two"},
    {"single", "4.5 3.5 2.5 1.5 0.5"},
    {"places", "{1 {1 2}} {2 {2 4}} {3 {3 6}} {5 {5 10}} {8 {8 16}} {9 {9 18}}"},
    {"ages", "{al 7} {bob 41} {eve 30}"},
    {"many", "{0 9} {0 3} {1 1} {2 5} {2 2} {2 8}"},
    {"letters", "97 'a' 109 'm' 113 'q'"},
    {"queue", "-1 0 1 2 3 4 5 6"},
    {"emptyQueue", "<class deque>"},
    {"hashed", "{4 4.5}"},
    {"texts", "single"},
    {"nobody", "0x00000000"},
    {"fixed", "1 2 3"},
    {"both", "7 122 'z'"},
    {"some", "true 12"},
    {"nothing", "false"},
    {"choice", "2 '\\002' text"},
    {"other", "1 '\\001' 2.5"},
    {"triple", "1 99 'c' three"},
    {"alone", "{6}"},
    {"nobodyHere", "<class>"},
    {"window", "1 4 9"},
    {"pair", "{3 -3} {4 -4}"},
    {"pile", "4 9 6"},
    {"waiting", "4 9 6"},
    {"urgent", "9 4 6"},
    {"listed", "3 2 1"},
    {"counter", "5"},
    {"ready", "true"},
    {"current", "0x00000000"},
    {"wrapped", "1 2 3"},
    {"device", "uart0 {4 5}"},
    {"table", "{x {1}} {y {2 3}}"},
    {"points._M_impl._M_start[1]", "1 -1"},
};

class ContainersTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!filledProgram().missing.isEmpty())
            GTEST_SKIP() << filledProgram().missing.toStdString() << " isn't installed";
        ASSERT_TRUE(QFile::exists(filledProgram().elf));
    }
};

TEST_F(ContainersTest, AreShownByWhatTheyHold)
{
    QStringList expressions = {u"flags"_s, u"longQueue"_s, u"bits"_s};
    for (const Container &row : containerRows)
        expressions += QString::fromLatin1(row.expression);
    const QJsonArray answers = printed(expressions);
    for (qsizetype i = 3; i < answers.size(); ++i)
        EXPECT_EQ(valuesIn(answers[i].toObject()), QString::fromLatin1(containerRows[i - 3].values))
            << containerRows[i - 3].expression;
    const QJsonArray flags = answers[0][u"children"].toArray();
    ASSERT_EQ(flags.size(), 40);
    EXPECT_EQ(flags[3][u"value"].toString(), u"true"_s);
    EXPECT_EQ(flags[4][u"value"].toString(), u"false"_s);
    EXPECT_EQ(flags[39][u"value"].toString(), u"true"_s);
    QString bits;
    for (const QJsonValue &bit : answers[2][u"children"].toArray())
        bits += bit[u"value"] == u"true"_s ? u'1' : u'0';
    EXPECT_EQ(bits, u"1"_s + QString(32, u'0') + u"11"_s);
    const QJsonArray queue = answers[1][u"children"].toArray();
    ASSERT_EQ(queue.size(), 130);
    EXPECT_EQ(valuesIn(queue[0].toObject()), u"70 70"_s);
    EXPECT_EQ(valuesIn(queue[129].toObject()), u"199 199"_s);
}

TEST_F(ContainersTest, SmartPointersCanBeFollowed)
{
    const QStringList follow = {u"--pointers"_s, u"1"_s};
    const QJsonArray answers = printed({u"owner"_s, u"special"_s, u"shared"_s, u"weak"_s, u"none"_s}, follow);
    EXPECT_EQ(valuesIn(answers[0].toObject()), u"3 4"_s);
    EXPECT_EQ(valuesIn(answers[1].toObject()), u"5 6"_s);
    EXPECT_EQ(valuesIn(answers[2].toObject()), u"{1 2} 2"_s);
    EXPECT_EQ(answers[3][u"children"][1][u"value"].toString(), u"2"_s);
    EXPECT_EQ(valuesIn(answers[4].toObject()), u"0x00000000 0"_s);
}

TEST_F(ContainersTest, AnExpressionOfAnElementStandsForIt)
{
    QStringList expressions, values, again;
    for (const QJsonValue &container :
         printed({u"points"_s, u"chain"_s, u"places"_s, u"queue"_s, u"words"_s, u"single"_s})) {
        for (const QJsonValue &element : container[u"children"].toArray()) {
            expressions += element[u"expression"].toString();
            values += valuesIn(element.toObject());
        }
    }
    for (const QJsonValue &element : printed(expressions))
        again += valuesIn(element.toObject());
    EXPECT_GT(expressions.size(), 20);
    EXPECT_EQ(again, values);
}

TEST_F(ContainersTest, AreShownAsTheyAreMadeWhenAsked)
{
    const QJsonObject raw = printed("numbers", {u"--raw"_s});
    EXPECT_EQ(raw[u"value"].toString(), u"<class>"_s);
    EXPECT_EQ(raw[u"children"][0][u"name"].toString(), u"_M_impl"_s);
}

TEST_F(ContainersTest, GoingRoundInACircleEnds)
{
    const FilledProgram &program = filledProgram();
    const ProgramResult result =
        runProgram(u"vnDump"_s, {u"print"_s, u"--json"_s, u"--memory"_s, program.memory, program.elf, u"circular"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.error.contains("more than 200000 rows")) << result.error.toStdString();
}

TEST_F(ContainersTest, WithoutMemoryTheyAreEmpty)
{
    const FilledProgram &program = filledProgram();
    const QJsonArray answers = json({u"print"_s, u"--json"_s, program.elf, u"numbers"_s, u"places"_s, u"queue"_s});
    for (const QJsonValue &answer : answers)
        EXPECT_EQ(answer[u"children"].toArray().size(), 0);
}

} // namespace
