#include "debug/dwarf/ElfDwarfFile.h"
#include "debug/values/DwarfTypes.h"
#include "debug/values/VariableScope.h"
#include "debug/verbs/CompiledProgram.h"
#include "support/QtPrinters.h"

#include <QRegularExpression>

namespace {

const char typesText[] = R"(
enum Color { RED, GREEN = 5, BLUE = -2 };
struct Base { int id; char c; };
struct Left : virtual Base { int l; };
struct Right : virtual Base { int r; };
struct Diamond : Left, Right { int d; int grid[3][4]; static int instances; };
struct Bits { unsigned a : 3; unsigned b : 5; int c : 17; unsigned char d : 2; unsigned long long e : 40; bool f : 1; };
#pragma pack(push, 1)
struct Packed { char x; unsigned a : 7; unsigned b : 30; short s; };
#pragma pack(pop)
typedef struct { int kind; union { int as_int; float as_float; struct { short lo, hi; }; }; int tail[]; } Anon;
union U { int i; char b[4]; const volatile char *p; };
namespace device {
class Motor : public Base { public: enum Mode { SLOW, FAST } speedMode; int speed; Color mode : 4; const char *name; int &ref; Motor *next[2]; double gain; };
int counter;
}
struct Members { int Diamond::*data; int (Base::*function)(int); const volatile int fixed[2][2]; struct Impl; Impl *impl; };
struct Members::Impl { int deep; };
typedef Members Alias; Alias *alias;
namespace outer { inline namespace latest { struct Inlined { int x; } inlined; } namespace { struct Unnamed { int y; } unnamed; } }
int Diamond::instances = 3;
Diamond diamond; Bits bits; Packed packed; Anon anon; U u; device::Motor *motor; Color color; Members *members;
static int hidden = 4;
__attribute__((noinline)) static int run(int x, const char *text)
{
    int total = 0;
    static int calls = 1;
    for (int i = 0; i < x; ++i) {
        int step = text[i] * i;
        total += step;
    }
    ++calls;
    return total + hidden;
}
extern "C" int main()
{
    return run(3, "abc") + diamond.d + bits.a + packed.a + anon.kind + u.i + motor->speed + color + device::counter + members->impl->deep + alias->fixed[0][0] +
           outer::inlined.x + outer::unnamed.y;
}
)";

class TypeVerbs : public CompiledProgramTest
{
protected:
    TypeVerbs() : CompiledProgramTest(typesText) {}

    QJsonObject variables(quint32 address)
    {
        const ProgramResult result =
            runProgram(u"vnDump"_s, {u"variables"_s, u"--json"_s, elf, u"0x"_s + QString::number(address, 16)});
        EXPECT_EQ(result.status, 0) << result.error.toStdString();
        return QJsonDocument::fromJson(result.out).object();
    }

    bool isVersion5() const { return !QByteArrayView(GetParam().name).contains(", DWARF "); }
    bool isVersion2() const { return QByteArrayView(GetParam().name).contains("DWARF 2"); }
    // Strict DWARF 2 has no namespaces, and gcc's location lists hold absolute addresses there.
    QString motorName() const { return isVersion2() ? u"Motor"_s : u"device::Motor"_s; }
    bool hasUnusableFrameBases() const { return isVersion2(); }
};

QString memberRow(int offset, int bitOffset, int bitSize, int size, const QString &name)
{
    return u"%1:%2 :%3 %4 %5"_s.arg(offset).arg(bitOffset).arg(bitSize).arg(size).arg(name);
}

// The members that gdb lists, those of anonymous members in their place. Where it leaves out an offset, in
// unions, the last one told counts.
QStringList gdbMembers(const QString &answer, int &size)
{
    static const QRegularExpression member(
        u"^/\\*\\s+(?:(\\d+)(?::\\s*(\\d+))?\\s+\\|)?\\s+(\\d+) \\*/\\s+.*?(\\w+)(?:\\[[^;]*)?(?: : (\\d+))?;$"_s);
    static const QRegularExpression opening(u"^/\\*\\s+(\\d+)\\s+\\|\\s+\\d+ \\*/.*\\{$"_s);
    static const QRegularExpression total(u"total size \\(bytes\\): +(\\d+)"_s);
    QStringList members;
    int offset = 0;
    for (const QString &line : answer.split(u'\n')) {
        if (const auto found = opening.match(line); found.hasMatch() && !line.contains(u"type ="_s))
            offset = found.captured(1).toInt();
        if (const auto found = total.match(line); found.hasMatch())
            size = found.captured(1).toInt(); // the outermost one comes last
        const auto found = member.match(line);
        if (!found.hasMatch())
            continue;
        if (!found.captured(1).isEmpty())
            offset = found.captured(1).toInt();
        members += memberRow(offset, found.captured(2).toInt(), found.captured(5).toInt(), found.captured(3).toInt(),
                             found.captured(4));
    }
    return members;
}

QStringList ourMembers(const QJsonArray &members)
{
    QStringList rows;
    for (const QJsonValue &value : members) {
        const QJsonObject member = value.toObject();
        if (member.contains(u"members"_s))
            rows += ourMembers(member[u"members"].toArray());
        else if (!member.contains(u"base"_s) && !member.contains(u"static"_s) &&
                 !member[u"name"].toString().startsWith(u"_vptr"))
            rows += memberRow(member[u"offset"].toInt(-1), member[u"bitOffset"].toInt(), member[u"bitSize"].toInt(),
                              member[u"dimensions"] == QJsonArray{QJsonValue()} ? 0 : member[u"size"].toInt(),
                              member[u"name"].toString());
    }
    return rows;
}

TEST_P(TypeVerbs, LayoutsAreGdbs)
{
    if (tool("gdb-multiarch").isEmpty())
        GTEST_SKIP() << "gdb-multiarch isn't installed";
    const QStringList names = {u"Base"_s, u"Diamond"_s, u"Bits"_s, u"Packed"_s, u"Anon"_s, u"U"_s, motorName()};
    QStringList commands;
    for (const QString &name : names)
        commands += u"ptype /o "_s + name;
    const QStringList theirs = gdbAnswers(elf, commands);
    const QJsonArray ours = json(QStringList{u"type"_s, u"--json"_s, elf} + names);
    for (qsizetype i = 0; i < names.size(); ++i) {
        int size = -1;
        const QStringList expected = gdbMembers(theirs[i], size);
        ASSERT_FALSE(expected.isEmpty()) << names[i].toStdString();
        EXPECT_EQ(ourMembers(ours[i][u"members"].toArray()), expected) << names[i].toStdString();
        EXPECT_EQ(ours[i][u"size"].toInt(), size) << names[i].toStdString();
    }
}

TEST_P(TypeVerbs, TellsBasesTypesAndDimensions)
{
    const QJsonArray answers =
        json({u"type"_s, u"--json"_s, elf, u"Diamond"_s, u"struct Left"_s, motorName(), u"Color"_s, u"Anon"_s,
              motorName() + u"::Mode"_s, u"Nothing"_s, u"Members"_s, u"Members::Impl"_s, u"Alias::Impl"_s},
             1);
    const QJsonArray diamond = answers[0][u"members"].toArray();
    EXPECT_EQ(diamond[0][u"type"].toString(), u"struct Left"_s);
    EXPECT_TRUE(diamond[0][u"base"].toBool());
    EXPECT_FALSE(diamond[0][u"virtual"].toBool());
    EXPECT_EQ(diamond[1][u"offset"].toInt(), 8);
    const QJsonArray left = answers[1][u"members"].toArray();
    EXPECT_TRUE(left[0][u"virtual"].toBool());
    EXPECT_TRUE(left[0][u"offset"].isNull());
    for (const QJsonValue &member : diamond) {
        if (member[u"name"] == u"grid"_s) {
            EXPECT_EQ(member[u"dimensions"].toArray(), (QJsonArray{3, 4}));
            EXPECT_EQ(member[u"type"].toString(), u"int[]"_s);
        }
        EXPECT_EQ(member[u"static"].toBool(), member[u"name"] == u"instances"_s);
    }
    EXPECT_EQ(answers[2][u"name"].toString(), u"Motor"_s);
    EXPECT_EQ(answers[2][u"kind"].toString(), u"class"_s);
    EXPECT_EQ(answers[3][u"kind"].toString(), u"enum"_s);
    const QJsonArray colors = answers[3][u"enumerators"].toArray();
    ASSERT_EQ(colors.size(), 3);
    EXPECT_EQ(colors[2][u"value"].toInt(), -2);
    EXPECT_EQ(answers[4][u"name"].toString(), u"Anon"_s);
    EXPECT_EQ(answers[5][u"enumerators"][1][u"name"].toString(), u"FAST"_s); // within the class
    EXPECT_TRUE(answers[6][u"kind"].isNull());
    EXPECT_TRUE(answers[6][u"members"].isArray());
    const QJsonArray members = answers[7][u"members"].toArray();
    EXPECT_EQ(members[0][u"type"].toString(), u"int Diamond::*"_s);
    EXPECT_EQ(members[0][u"size"].toInt(), 4);
    EXPECT_EQ(members[1][u"type"].toString(), u"int(struct Base*, int) Base::*"_s);
    EXPECT_EQ(members[1][u"size"].toInt(), 8);
    EXPECT_EQ(members[2][u"type"].toString().count(u"const "), 1);
    EXPECT_EQ(members[2][u"type"].toString().count(u"volatile "), 1);
    for (const int impl : {8, 9}) // defined outside of the class
        EXPECT_EQ(answers[impl][u"members"][0][u"name"].toString(), u"deep"_s);
    QStringList names = {u"Alias"_s};
    if (!isVersion2())
        names += {u"outer::latest::Inlined"_s, u"outer::Unnamed"_s};
    if (isVersion5()) // which says that the namespace is inline
        names += u"outer::Inlined"_s;
    json(QStringList{u"type"_s, u"--json"_s, elf} + names); // all are found
}

TEST_P(TypeVerbs, VariablesAreGdbs)
{
    if (tool("gdb-multiarch").isEmpty())
        GTEST_SKIP() << "gdb-multiarch isn't installed";
    if (hasUnusableFrameBases())
        GTEST_SKIP() << "the compiler's frame bases don't count from the unit's low pc; gdb finds none either";
    const auto symbol = json({u"symbol"_s, u"--json"_s, elf, u"run"_s})[0].toObject();
    const quint32 start = symbol[u"address"].toString().toUInt(nullptr, 0);
    ASSERT_GT(symbol[u"size"].toInt(), 20);
    QStringList commands;
    for (quint32 offset = 0; offset < quint32(symbol[u"size"].toInt()); offset += 8)
        commands += u"info scope *0x"_s + QString::number(start + offset, 16);
    const QStringList answers = gdbAnswers(elf, commands);
    static const QRegularExpression variable(u"Symbol (\\w+) is .*?, length (\\d+)\\."_s,
                                             QRegularExpression::DotMatchesEverythingOption);
    ElfDwarfFile file(elf);
    file.load();
    const DwarfTypes types(file.dwarf());
    size_t mostLocals = 0;
    for (qsizetype i = 0; i < commands.size(); ++i) {
        const VariableScope scope = VariableScope::at(file.dwarf(), start + 8 * quint32(i));
        EXPECT_EQ(scope.function.name(), u"run"_s);
        ASSERT_EQ(scope.parameters.size(), 2u);
        EXPECT_EQ(types.typeName(scope.parameters[1].target(DW_AT_type)), u"const char*"_s);
        mostLocals = std::max(mostLocals, scope.locals.size());
        QStringList ours, expected;
        for (const auto &list : {scope.parameters, scope.locals}) {
            for (const auto &one : list)
                ours += u"%1 %2"_s.arg(one.name()).arg(types.sizeOf(one.target(DW_AT_type)));
        }
        for (auto found = variable.globalMatch(answers[i]); found.hasNext();) {
            const auto one = found.next();
            expected += u"%1 %2"_s.arg(one.captured(1), one.captured(2));
        }
        std::ranges::sort(ours);
        std::ranges::sort(expected);
        EXPECT_EQ(ours, expected) << commands[i].toStdString();
    }
    EXPECT_EQ(mostLocals, 4u); // total, calls, i, step
}

TEST_P(TypeVerbs, TellsWhereVariablesAre)
{
    if (hasUnusableFrameBases())
        GTEST_SKIP() << "the compiler's frame bases don't count from the unit's low pc; gdb finds none either";
    const auto symbol = json({u"symbol"_s, u"--json"_s, elf, u"run"_s})[0].toObject();
    const QJsonObject answer = variables(symbol[u"address"].toString().toUInt(nullptr, 0) + 12);
    const QJsonValue parameter = answer[u"parameters"].toArray()[0];
    EXPECT_EQ(parameter[u"kind"].toString(), u"memory"_s);
    EXPECT_TRUE(parameter[u"address"].isNull());
    // By the frame base, or by clang from the stack pointer.
    static const QRegularExpression expression(u"^(DW_OP_fbreg|DW_OP_breg13): -?\\d+$"_s);
    EXPECT_TRUE(expression.match(parameter[u"expression"].toString()).hasMatch());
    EXPECT_TRUE(parameter[u"bytes"].toString().startsWith(u"91"_s) ||
                parameter[u"bytes"].toString().startsWith(u"7d"_s));
    std::map<QString, QString> globals;
    for (const QJsonValue &one : answer[u"globals"].toArray()) {
        EXPECT_EQ(one[u"kind"].toString(), u"address"_s);
        globals[one[u"name"].toString()] = one[u"address"].toString();
    }
    for (const QString &name : {u"bits"_s, u"hidden"_s, u"counter"_s, u"instances"_s, u"color"_s})
        EXPECT_TRUE(globals.contains(name)) << name.toStdString();
    const auto bits = json({u"symbol"_s, u"--json"_s, elf, u"bits"_s})[0].toObject();
    EXPECT_EQ(globals[u"bits"_s], bits[u"address"].toString());
}

INSTANTIATE_TEST_SUITE_P(Compilers, TypeVerbs, testing::ValuesIn(compilers()), nameOfCompiler);

TEST(TypeVerbsUsage, RefusesWhatItCantRead)
{
    const ProgramResult result = runProgram(u"vnDump"_s, {u"variables"_s, u"none"_s, u"main"_s});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(result.error.contains("'main' is no 32-bit address")) << result.error.toStdString();
    EXPECT_EQ(runProgram(u"vnDump"_s, {u"type"_s, u"none"_s, u"main"_s}).status, 1);
}

} // namespace
