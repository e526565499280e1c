#include "debug/verbs/CompiledProgram.h"
#include "support/QtPrinters.h"

namespace {

const char objectText[] = R"(
struct Motor { int speed; unsigned mode : 3; int run(int x); struct Inner { char c; short s; } inner; };
enum Color { RED, GREEN };
union Value { int i; float f; };
namespace device { class Timer { public: int start(int x) { return x + ticks; } int ticks; }; }
int counter = 3;
Motor motor;
Value value;
device::Timer timer;
int Motor::run(int x)
{
    int s = x;
    for (int i = 0; i < x; ++i) {
        s += speed * i;
        counter += s;
    }
    return s;
}
__attribute__((section(".text.second"))) int second(int a, int b)
{
    Color c = RED;
    if (a > b)
        c = GREEN;
    return c + a * b;
}
int main()
{
    return motor.run(3) + second(counter, 2) + timer.start(value.i);
}
)";

const std::vector<Compiler> &objectCompilers()
{
    const QStringList arm = {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-m3"_s, u"-mthumb"_s};
    const QStringList riscV = {u"riscv64-unknown-elf-g++"_s, u"-march=rv32imac"_s, u"-mabi=ilp32"_s};
    const QStringList clang = {u"clang++-14"_s, u"--target=riscv32"_s, u"-march=rv32imac"_s, u"-g"_s};
    static const std::vector<Compiler> list = {
        {"arm gcc", arm + QStringList{u"-g"_s}},
        {"arm gcc, sections, macros", arm + QStringList{u"-g3"_s, u"-ffunction-sections"_s, u"-fdata-sections"_s}},
        {"arm gcc, compressed type units", arm + QStringList{u"-g"_s, u"-gz"_s, u"-fdebug-types-section"_s}},
        {"arm gcc, DWARF 4, type units", arm + QStringList{u"-gdwarf-4"_s, u"-fdebug-types-section"_s}},
        {"arm gcc, big-endian", {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-r4"_s, u"-mbig-endian"_s, u"-g"_s}},
        {"arm clang", {u"clang++-14"_s, u"--target=armv7m-none-eabi"_s, u"-g"_s, u"-ffunction-sections"_s}},
        {"riscv gcc", riscV + QStringList{u"-g"_s}, false},
        {"riscv gcc, sections", riscV + QStringList{u"-g"_s, u"-ffunction-sections"_s}, false},
        {"riscv gcc, DWARF 4, type units", riscV + QStringList{u"-gdwarf-4"_s, u"-fdebug-types-section"_s}, false},
        {"riscv gcc, type units", riscV + QStringList{u"-g"_s, u"-fdebug-types-section"_s}, false},
        {"riscv gcc, 64-bit DWARF", riscV + QStringList{u"-g"_s, u"-gdwarf64"_s}, false},
        {"riscv clang", clang, false},
        {"riscv clang, sections, DWARF 4", clang + QStringList{u"-gdwarf-4"_s, u"-ffunction-sections"_s}, false},
    };
    return list;
}

// What a compiler leaves for the linker.
class ObjectFiles : public testing::TestWithParam<Compiler>
{
protected:
    void SetUp() override
    {
        const QString compiler = QStandardPaths::findExecutable(GetParam().command.first());
        if (compiler.isEmpty())
            GTEST_SKIP() << GetParam().command.first().toStdString() << " isn't installed";
        object = m_folder.path("main.o");
        const ProgramResult result = runProgram(
            compiler, GetParam().command.mid(1) + QStringList{u"-O0"_s, u"-fno-exceptions"_s, u"-c"_s,
                                                              m_folder.write("main.cpp", objectText), u"-o"_s, object});
        ASSERT_EQ(result.status, 0) << result.error.toStdString();
    }

    QString object;

private:
    TemporaryFolder m_folder;
};

TEST_P(ObjectFiles, AnswersAreGdbs)
{
    if (tool("gdb-multiarch").isEmpty())
        GTEST_SKIP() << "gdb-multiarch isn't installed";
    // Every instruction, at the address that the object's sections get.
    QStringList ours = {u"line"_s, u"--json"_s, object}, gdb = {u"-nx"_s, u"-batch"_s, object};
    for (const QJsonValue &row : json({u"disassemble"_s, u"--json"_s, object})) {
        if (row[u"kind"].toString() != u"data"_s) {
            ours += row[u"address"].toString();
            gdb += {u"-ex"_s, u"info line *"_s + ours.last()};
        }
    }
    const QJsonArray answers = json(ours);
    QStringList expected = lines(runProgram(tool("gdb-multiarch"), gdb));
    expected.removeIf([](const QString &line) { return !line.startsWith(u"Line "); });
    ASSERT_EQ(expected.size(), answers.size());
    ASSERT_GT(answers.size(), 50);
    static const QRegularExpression number(u"^Line (\\d+) "_s);
    for (qsizetype i = 0; i < answers.size(); ++i)
        EXPECT_EQ(QString::number(answers[i][u"line"].toInt()), number.match(expected[i]).captured(1))
            << answers[i][u"query"].toString().toStdString();

    // Not from gdb, which finds no types in DWARF 5 type units of objects.
    const QJsonArray types = json({u"type"_s, u"--json"_s, object, u"Motor"_s, u"Value"_s, u"device::Timer"_s});
    EXPECT_EQ(types[0][u"size"].toInt(), 12);
    EXPECT_EQ(types[1][u"size"].toInt(), 4);
    EXPECT_EQ(types[2][u"size"].toInt(), 4);
}

// Trees are complete: as many entries as readelf finds, and all names.
TEST_P(ObjectFiles, EntriesAreReadelfs)
{
    const QString readelf = tool(GetParam().isArm ? "arm-none-eabi-readelf" : "riscv64-unknown-elf-readelf");
    if (readelf.isEmpty())
        GTEST_SKIP() << "readelf isn't installed";
    const QStringList theirs = lines(runProgram(readelf, {u"--debug-dump=info"_s, u"-W"_s, object}));
    const ProgramResult text = runProgram(u"vnDump"_s, {u"text"_s, object});
    EXPECT_EQ(text.status, 0);
    EXPECT_TRUE(text.error.isEmpty()) << text.error.toStdString();
    const auto values = [](const QStringList &list, const QString &pattern) {
        QStringList found;
        const QRegularExpression expression(pattern);
        for (const QString &line : list) {
            if (const auto match = expression.match(line); match.hasMatch())
                found += match.captured(1);
        }
        found.sort();
        return found;
    };
    EXPECT_EQ(values(lines(text), u"^0x[0-9a-f]+: +(DW_TAG_\\w+)"_s),
              values(theirs, u"Abbrev Number: \\d+ \\((DW_TAG_\\w+)\\)"_s));
    EXPECT_EQ(values(lines(text), u"^ +DW_AT_name DW_FORM_\\w+ (.*?) *$"_s),
              values(theirs, u" DW_AT_name +: (?:\\([^)]*\\):? )*(.*?) *$"_s));
}

INSTANTIATE_TEST_SUITE_P(Compilers, ObjectFiles, testing::ValuesIn(objectCompilers()), nameOfCompiler);

} // namespace
