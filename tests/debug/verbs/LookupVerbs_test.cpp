#include "debug/verbs/ReadelfFrames.h"
#include "support/QtPrinters.h"

#include <QRegularExpression>

namespace {

const char programText[] = R"(
namespace device {
struct Base { int id; };
struct Motor : Base {
    int run(int x);
    int speed;
};
int Motor::run(int x)
{
    int total = 0;
    for (int i = 0; i < x; ++i)
        total += speed * i;
    return total;
}
template <typename T> T twice(T value) { return value + value; }
}
device::Motor motor;
static void poke(volatile int *where)
{
    *where = device::twice(*where);
}
extern "C" int main()
{
    poke(&motor.speed);
    return motor.run(3);
}
)";

class LookupVerbs : public CompiledProgramTest
{
protected:
    LookupVerbs() : CompiledProgramTest(programText) {}
};

// The start and size of functions, from the file's symbols; size 0 for a name that this compiler gives otherwise.
std::vector<std::pair<quint32, quint32>> extents(const QString &elf, const QStringList &names)
{
    std::vector<std::pair<quint32, quint32>> found;
    for (const QJsonValue &symbol : json(QStringList{u"symbol"_s, u"--json"_s, elf} + names))
        found.emplace_back(symbol[u"address"].toString().toUInt(nullptr, 0), quint32(symbol[u"size"].toInt()));
    return found;
}

TEST_P(LookupVerbs, LinesAreGdbs)
{
    if (tool("gdb-multiarch").isEmpty())
        GTEST_SKIP() << "gdb-multiarch isn't installed";
    QStringList ours = {u"line"_s, u"--json"_s, elf};
    QStringList gdb = {u"-nx"_s, u"-batch"_s, elf};
    const auto functions =
        extents(elf, {u"device::Motor::run(int)"_s, u"main"_s, u"poke"_s, u"int device::twice<int>(int)"_s});
    for (const auto &[start, size] : functions) {
        for (quint32 address = start; address < start + size; address += 2) {
            ours += u"0x"_s + QString::number(address, 16);
            gdb += {u"-ex"_s, u"info line *"_s + ours.last()};
        }
    }
    const QJsonArray answers = json(ours);
    QStringList expected = lines(runProgram(tool("gdb-multiarch"), gdb));
    expected.removeIf([](const QString &line) { return !line.startsWith(u"Line "); });
    ASSERT_EQ(expected.size(), answers.size());
    ASSERT_GT(answers.size(), 30);
    static const QRegularExpression row(u"^Line (\\d+) of \"(.*)\" (starts at|is at) address (0x[0-9a-f]+)"_s);
    for (qsizetype i = 0; i < answers.size(); ++i) {
        const QJsonObject answer = answers[i].toObject();
        EXPECT_EQ(QString::number(answer[u"line"].toInt()), row.match(expected[i]).captured(1))
            << answer[u"query"].toString().toStdString();
        EXPECT_TRUE(answer[u"file"].toString().endsWith(u"/main.cpp"));
        EXPECT_EQ(answer[u"file"].toString().at(0), u'/');
    }
    const quint32 run = functions[0].first;
    const QJsonObject first = json({u"line"_s, u"--json"_s, elf, QString::number(run)})[0].toObject();
    EXPECT_EQ(first[u"function"].toString(), u"Motor::run"_s);
    EXPECT_EQ(first[u"type"].toString(), u"int"_s);
    EXPECT_EQ(first[u"start"].toString(), u"0x%1"_s.arg(run, 8, 16, QChar(u'0')));
}

TEST_P(LookupVerbs, AddressesAreThoseOfTheLineTable)
{
    const auto [run, size] = extents(elf, {u"device::Motor::run(int)"_s})[0];
    const QString path = program->folder.path("main.cpp"), around = program->folder.root() + u"/x/../main.cpp"_s;
    const QJsonArray answers = json(
        {u"address"_s, u"--json"_s, elf, u"main.cpp:10"_s, path + u":10"_s, around + u":10"_s, u"main.cpp:1000"_s}, 1);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(answers[i][u"addresses"].toArray().size(), 1) << i;
        EXPECT_LT(answers[i][u"addresses"][0].toString().toUInt(nullptr, 0) - run, size);
        EXPECT_EQ(answers[i][u"file"].toString(), path);
    }
    EXPECT_TRUE(answers[3][u"addresses"].toArray().isEmpty());
}

TEST_P(LookupVerbs, FramesAreReadelfs)
{
    if (tool("readelf").isEmpty())
        GTEST_SKIP() << "readelf isn't installed";
    expectReadelfsFrames(elf, GetParam().isArm);
}

TEST_P(LookupVerbs, StackUsageListsFunctionsByAddress)
{
    quint32 last = 0;
    bool hasMain = false;
    for (const QJsonValue &row : json({u"frame"_s, u"--stack-usage"_s, u"--json"_s, elf})) {
        const quint32 address = row[u"address"].toString().toUInt(nullptr, 0);
        EXPECT_LT(last, address);
        last = address;
        if (row[u"function"].toString() == u"main") {
            hasMain = true;
            EXPECT_GE(row[u"stackUsage"].toInt(), 8);
            const QJsonArray asked = json({u"frame"_s, u"--stack-usage"_s, u"--json"_s, elf, QString::number(address)});
            EXPECT_EQ(asked[0].toObject(), row.toObject());
        }
    }
    EXPECT_TRUE(hasMain);
}

TEST_P(LookupVerbs, SymbolsByNameAndAddress)
{
    const quint32 run = extents(elf, {u"device::Motor::run(int)"_s})[0].first;
    const QJsonArray answers = json({u"symbol"_s, u"--json"_s, elf, u"device::Motor::run"_s,
                                     u"_ZN6device5Motor3runEi"_s, QString::number(run + 2), u"motor"_s});
    for (int i = 0; i < 3; ++i) {
        const QJsonObject answer = answers[i].toObject();
        EXPECT_EQ(answer[u"name"].toString(), u"device::Motor::run(int)"_s);
        EXPECT_EQ(answer[u"type"].toString(), u"FUNC"_s);
        EXPECT_EQ(answer[u"binding"].toString(), u"GLOBAL"_s);
        EXPECT_EQ(answer[u"section"].toString(), u".text"_s);
        EXPECT_EQ(answer[u"offset"].toInt(), i == 2 ? 2 : 0);
        EXPECT_EQ(answer[u"mode"].isNull(), !GetParam().isArm);
    }
    EXPECT_EQ(answers[3][u"type"].toString(), u"OBJECT"_s);
    EXPECT_EQ(answers[3][u"size"].toInt(), 8);
    EXPECT_TRUE(json({u"symbol"_s, u"--json"_s, elf, u"nothing"_s}, 1)[0][u"name"].isNull());
}

INSTANTIATE_TEST_SUITE_P(Compilers, LookupVerbs, testing::ValuesIn(compilers()), nameOfCompiler);

TEST(LookupVerbsUsage, RefusesWhatItCantRead)
{
    TemporaryFolder folder;
    struct Row
    {
        QStringList arguments;
        int status;
        const char *message;
    };
    const QString text = folder.write("text", "no ELF file, whatever it is called");
    const Row rows[] = {
        {{u"line"_s}, 2, "arguments are missing"},
        {{u"line"_s, text, u"main"_s}, 2, "'main' is no 32-bit address"},
        {{u"line"_s, text, u"0x100000000"_s}, 2, "is no 32-bit address"},
        {{u"address"_s, text, u"main.c"_s}, 2, "'main.c' is no SOURCE:LINE"},
        {{u"address"_s, text, u"main.c:0"_s}, 2, "is no SOURCE:LINE"},
        {{u"frame"_s, text}, 2, "an address is missing"},
        {{u"line"_s, text, u"0"_s}, 1, "invalid ELF file"},
        {{u"line"_s, folder.path("none"), u"0"_s}, 1, "cannot open"},
        {{u"line"_s, folder.root(), u"0"_s}, 1, "cannot open"},
    };
    for (const Row &row : rows) {
        const ProgramResult result = runProgram(u"vnDump"_s, row.arguments);
        EXPECT_EQ(result.status, row.status) << row.message;
        EXPECT_TRUE(result.error.contains(row.message)) << result.error.toStdString();
        EXPECT_TRUE(result.out.isEmpty()) << result.out.toStdString();
    }
}

} // namespace
