#include "debug/verbs/CompiledProgram.h"
#include "support/QtPrinters.h"

#include <QRegularExpression>
#include <cmath>
#include <map>

namespace {

const char valuesText[] = R"(
#define KEEP __attribute__((used))
enum Color { RED, GREEN = 5, BLUE = -2 };
enum class Wide : unsigned long long { One = 1, Huge = 0xFFFFFFFFFFFFFFF0ull };
struct Base { int id; char c; };
struct Second { short s[2]; };
struct Bits { unsigned a : 3; unsigned b : 5; int c : 17; unsigned char d : 2; unsigned long long e : 40; bool f : 1; Color g : 4; };
#pragma pack(push, 1)
struct Packed { char x; unsigned a : 7; unsigned b : 30; short s; };
#pragma pack(pop)
struct Anon { int kind; union { int as_int; float as_float; struct { short lo, hi; }; }; };
struct Derived : Base, Second { Anon anon; int id; static int instances; };
int Derived::instances = 11;
struct Node { int value; Node *next; };
namespace device { struct Motor { int speed; Color mode; const char *name; Motor *next; double gain; float ratio; int (*handler)(int); }; int counter KEEP = 7; enum Mode { SLOW = 3, FAST }; Mode mode KEEP = FAST; }
KEEP int twice(int x) { return 2 * x; }
KEEP static int table[4] = {1, 2, 3, -4};
KEEP int grid[2][3] = {{1, 2, 3}, {4, 5, 6}};
KEEP char text[8] = "hi\n";
KEEP const char *greeting = "hello";
KEEP unsigned char bytes[5] = {0, 7, 65, 200, '\\'};
KEEP Bits bits = {5, 17, -3, 2, 0x123456789aull, true, GREEN};
KEEP Packed packed = {'x', 99, 0x2bcdef01, -2};
KEEP Anon anon = {1, {0x40490fdb}};
KEEP Derived derived;
KEEP Node third = {3, nullptr}, second = {2, &third}, first = {1, &second};
KEEP Color color = GREEN, below = BLUE;
KEEP Wide wide = Wide::Huge;
KEEP double pi = 3.25, minus = -1e-300;
KEEP float ratio = 0.333f;
KEEP bool yes = true, no = false;
KEEP signed char small = -5;
KEEP unsigned short medium = 65535;
KEEP long long large = -1234567890123ll;
KEEP unsigned long long huge = 0xFEDCBA9876543210ull;
KEEP device::Motor motor = {12, BLUE, "left", &motor, 2.5, -0.5f, twice};
KEEP device::Motor *pointer = &motor;
KEEP int *const inner = &table[1];
KEEP int &reference = table[2];
KEEP volatile const int guarded = 77;
KEEP int zeros[300];
typedef unsigned int word; KEEP word alias = 123456789;
extern "C" KEEP int main() { KEEP static int calls = 9; return calls + twice(1); }
)";

std::vector<Compiler> optimizingCompilers()
{
    std::vector<Compiler> list = compilers();
    std::erase_if(list, [](const Compiler &compiler) { return QByteArrayView(compiler.name).contains("DWARF 2"); });
    const QStringList arm = {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-m3"_s, u"-mthumb"_s, u"-g"_s};
    list.push_back({"arm gcc, whole program", arm + QStringList{u"-flto"_s, u"-O2"_s}});
    list.push_back({"arm clang, optimized",
                    {u"clang++-14"_s, u"--target=armv7m-none-eabi"_s, u"-fuse-ld=lld"_s, u"-g"_s, u"-Os"_s}});
    return list;
}

// A row without rows in it.
struct Leaf
{
    QString expression, value, type, location;

    bool operator==(const Leaf &) const = default;
};
void PrintTo(const Leaf &leaf, std::ostream *stream)
{
    *stream << QStringList{leaf.expression, leaf.value, leaf.type, leaf.location}.join(u" | "_s).toStdString();
}

void collectLeaves(const QJsonObject &row, std::vector<Leaf> &leaves)
{
    const QJsonArray children = row[u"children"].toArray();
    for (const QJsonValue &child : children)
        collectLeaves(child.toObject(), leaves);
    if (children.isEmpty() && row[u"value"].isString())
        leaves.push_back({row[u"expression"].toString(), row[u"value"].toString(), row[u"type"].toString(),
                          row[u"location"].toString()});
}

std::vector<Leaf> leavesOf(const QJsonArray &answers)
{
    std::vector<Leaf> leaves;
    for (const QJsonValue &answer : answers)
        collectLeaves(answer.toObject(), leaves);
    return leaves;
}

class PrintVerb : public testing::TestWithParam<Compiler>
{
protected:
    struct Program
    {
        TemporaryFolder folder;
        QString elf = {};
    };

    void SetUp() override
    {
        static std::map<std::string, Program> programs;
        const auto [entry, isNew] = programs.try_emplace(GetParam().name);
        if (isNew)
            entry->second.elf = build(entry->second.folder, GetParam(), valuesText);
        elf = entry->second.elf;
        if (elf.isEmpty())
            GTEST_SKIP() << GetParam().command.first().toStdString() << " isn't installed";
    }

    QJsonArray print(const QStringList &expressions, const QStringList &options = {}, int status = 0)
    {
        return json(QStringList{u"print"_s, u"--json"_s} + options + QStringList{u"--"_s, elf} + expressions, status);
    }
    QString value(const char *expression) { return print({QString::fromLatin1(expression)})[0][u"value"].toString(); }

    QString elf;
};

// What gdb prints, one text an expression; empty for what it can't.
QStringList gdbValues(const QString &elf, const QStringList &expressions)
{
    QStringList commands;
    for (const QString &expression : expressions)
        commands += u"output "_s + expression;
    QStringList values = gdbAnswers(elf, commands);
    for (QString &one : values)
        one = one.trimmed();
    return values;
}

// Whether gdb's text says the same as ours.
bool isSame(const Leaf &ours, QString gdb)
{
    static const QRegularExpression address(u"0x[0-9a-f]+"_s), quoted(u"\"(.*)\""_s);
    if (ours.type == u"char *")
        return quoted.match(gdb).captured(1) == ours.value;
    if (ours.type.endsWith(u'*'))
        return address.match(gdb).captured().toUInt(nullptr, 16) == ours.value.toUInt(nullptr, 16);
    if (ours.type == u"float" || ours.type == u"double")
        return std::abs(gdb.toDouble() - ours.value.toDouble()) <= 1e-8 * std::abs(gdb.toDouble());
    if (ours.type.startsWith(u"enum "_s))
        gdb = gdb.section(u"::"_s, -1);
    return gdb == ours.value;
}

const QStringList askedGlobals = {u"table"_s,  u"grid"_s,    u"greeting"_s, u"bytes"_s,           u"bits"_s,
                                  u"packed"_s, u"anon"_s,    u"first"_s,    u"color"_s,           u"below"_s,
                                  u"wide"_s,   u"pi"_s,      u"minus"_s,    u"ratio"_s,           u"yes"_s,
                                  u"no"_s,     u"small"_s,   u"medium"_s,   u"large"_s,           u"huge"_s,
                                  u"motor"_s,  u"pointer"_s, u"inner"_s,    u"reference"_s,       u"zeros"_s,
                                  u"alias"_s,  u"guarded"_s, u"derived"_s,  u"device::counter"_s, u"device::mode"_s};

const QStringList askedExpressions = {u"table[1] + 2"_s,
                                      u"*(table + 3)"_s,
                                      u"&grid[1][2]"_s,
                                      u"grid[1]"_s,
                                      u"*pointer"_s,
                                      u"pointer->next->speed"_s,
                                      u"first.next->next->value"_s,
                                      u"sizeof(motor)"_s,
                                      u"sizeof(int)"_s,
                                      u"(char)65"_s,
                                      u"(unsigned char)color"_s,
                                      u"(int)pi"_s,
                                      u"(double)table[3]"_s,
                                      u"(int)ratio"_s,
                                      u"(short)alias"_s,
                                      u"(word)small"_s,
                                      u"*(int*)&table[1]"_s,
                                      u"(device::Motor*)&motor"_s,
                                      u"((device::Motor*)pointer)->gain"_s,
                                      u"color == GREEN"_s,
                                      u"bits.c * 2"_s,
                                      u"(int)bits.c"_s,
                                      u"RED"_s,
                                      u"device::FAST"_s,
                                      u"&motor"_s,
                                      u"twice == 0"_s,
                                      u"-table[0]"_s,
                                      u"huge >> 4"_s};

TEST_P(PrintVerb, ValuesAreGdbs)
{
    if (tool("gdb-multiarch").isEmpty())
        GTEST_SKIP() << "gdb-multiarch isn't installed";
    std::vector<Leaf> leaves = leavesOf(print(askedGlobals + askedExpressions));
    // gdb names neither bases nor compilers' members so, shows structures without a leaf, and strings to their end.
    std::erase_if(leaves, [](const Leaf &leaf) {
        return leaf.expression.contains(u"::Base"_s) || leaf.expression.contains(u"::Second"_s) ||
               leaf.type == u"char[]";
    });
    ASSERT_GT(leaves.size(), 380u);
    QStringList expressions;
    for (const Leaf &leaf : leaves)
        expressions += leaf.expression;
    const QStringList expected = gdbValues(elf, expressions);
    ASSERT_EQ(expected.size(), expressions.size());
    int missing = 0; // gdb loses some static variables of a program that was optimized as a whole
    for (size_t i = 0; i < leaves.size(); ++i) {
        if (expected[qsizetype(i)].isEmpty() || expected[qsizetype(i)] == u"<optimized out>"_s) {
            ++missing;
            continue;
        }
        EXPECT_TRUE(isSame(leaves[i], expected[qsizetype(i)]))
            << leaves[i].expression.toStdString() << ": " << leaves[i].value.toStdString() << ", gdb has "
            << expected[qsizetype(i)].toStdString();
    }
    EXPECT_LE(missing, QByteArrayView(GetParam().name).contains("whole program") ? 12 : 0);
}

TEST_P(PrintVerb, AnExpressionOfARowStandsForIt)
{
    const std::vector<Leaf> leaves = leavesOf(print(askedGlobals, {u"--pointers"_s, u"2"_s}));
    QStringList expressions;
    for (const Leaf &leaf : leaves)
        expressions += leaf.expression;
    const std::vector<Leaf> again = leavesOf(print(expressions));
    ASSERT_EQ(again.size(), leaves.size());
    for (size_t i = 0; i < leaves.size(); ++i)
        EXPECT_EQ(again[i], leaves[i]);
}

TEST_P(PrintVerb, SaysWhatCantBeEvaluated)
{
    struct Failure
    {
        const char *expression, *message;
    };
    const Failure failures[] = {
        {"nothing", "nothing symbol not found"},
        {"device::nothing", "device::nothing symbol not found"},
        {"motor.nothing", "unknown field nothing in type struct Motor"},
        {"table.x", "int[] not a structure type"},
        {"color[0]", "not an array type"},
        {"&3", "cannot take address of a constant"},
        {"&(table + 1)", "can't take the address of a register/constant"},
        {"@r99", "r99unknown register"},
        {"twice(2)", "function calling not implemented"},
        {"table[0] = 1", "memory at"},
        {"*(int*)0x70000000", "memory at 0x70000000 can't be read: it is not in the file"},
        {"(table + 1) = 2", "can't update a constant"},
        {"1 / 0", "divide by zero"},
        {"table[1", "expected ']'"},
        {"table extra", "unexpected text behind the expression: extra"},
        {"", "the expression is empty"},
        {"addressof(\"main.cpp\", 9999)", "linenumber not found"},
        {"addressof(\"none.cpp\", 1)", "filename not found"},
    };
    QStringList expressions;
    for (const Failure &row : failures)
        expressions += QString::fromLatin1(row.expression);
    const QJsonArray answers = print(expressions, {}, 1);
    for (qsizetype i = 0; i < expressions.size(); ++i) {
        EXPECT_TRUE(answers[i][u"value"].isNull()) << failures[i].expression;
        EXPECT_TRUE(answers[i][u"error"].toString().startsWith(QLatin1StringView(failures[i].message)))
            << failures[i].expression << ": " << answers[i][u"error"].toString().toStdString();
    }
}

TEST_P(PrintVerb, LooksNamesUpInTheScopeOfAnAddress)
{
    const QString start = json({u"symbol"_s, u"--json"_s, elf, u"main"_s})[0][u"address"].toString();
    EXPECT_EQ(print({u"calls"_s}, {u"--at"_s, start})[0][u"value"].toString(), u"9"_s);
    EXPECT_EQ(value("main::calls"), u"9"_s);
    EXPECT_EQ(print({u"calls"_s}, {}, 1)[0][u"error"].toString(), u"calls symbol not found"_s);
}

TEST_P(PrintVerb, LargeUnsignedEnumeratorsStayPositive)
{
    const ProgramResult result = runProgram(u"vnDump"_s, {u"type"_s, u"--json"_s, elf, u"Wide"_s});
    EXPECT_TRUE(result.out.contains("18446744073709551600"))
        << result.out.toStdString(); // JSON numbers read as doubles
    EXPECT_EQ(value("(unsigned long long)wide"), u"18446744073709551600"_s);
}

TEST_P(PrintVerb, ShowsAsMuchAsIsAsked)
{
    EXPECT_EQ(print({u"motor"_s}, {u"--depth"_s, u"0"_s})[0][u"children"].toArray().size(), 0);
    EXPECT_EQ(print({u"grid"_s}, {u"--elements"_s, u"2"_s})[0][u"children"].toArray().size(), 2);
    EXPECT_EQ(print({u"alias"_s}, {u"--hex"_s})[0][u"value"].toString(), u"0x075bcd15"_s);
    const QJsonArray followed = print({u"first.next"_s}, {u"--pointers"_s, u"1"_s});
    const QJsonArray children = followed[0][u"children"].toArray();
    ASSERT_EQ(children.size(), 2);
    EXPECT_EQ(children[0][u"expression"].toString(), u"first.next->value"_s);
    EXPECT_EQ(children[0][u"value"].toString(), u"2"_s);
    EXPECT_EQ(children[1][u"children"].toArray().size(), 0); // the next pointer isn't followed
}

INSTANTIATE_TEST_SUITE_P(Compilers, PrintVerb, testing::ValuesIn(optimizingCompilers()), [](const auto &compiler) {
    return QString::fromLatin1(compiler.param.name).replace(QRegularExpression(u"\\W+"_s), u"_"_s).toStdString();
});

} // namespace
