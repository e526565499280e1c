#include "debug/dwarf/ElfDwarfFile.h"
#include "debug/values/VariableScope.h"
#include "debug/verbs/ReadelfFrames.h"
#include "support/QtPrinters.h"

namespace {

const char optimisedText[] = R"(struct Sensor { int value; int history[8]; int read(int channel); };
extern "C" __attribute__((cold)) void report(int code);
volatile int input;
static Sensor sensors[4];
static int clampTo(int v, int low, int high) { return v < low ? low : v > high ? high : v; }
static inline int scale(int v, int factor)
{
    int result = v * factor;
    if (result > 1000)
        result = clampTo(result, 0, 900);
    return result;
}
int Sensor::read(int channel)
{
    int raw = input + channel;
    for (int i = 0; i < 8; ++i) {
        int step = scale(raw, i);
        history[i] = step;
        raw += step >> 2;
    }
    if (__builtin_expect(raw < 0, 0)) {
        report(raw);
        report(channel);
        raw = -raw;
    }
    value = raw;
    return raw;
}
__attribute__((noinline)) static int sum(const Sensor *list, int count)
{
    int total = 0;
    for (int i = 0; i < count; ++i)
        total += list[i].value;
    return total;
}
extern "C" __attribute__((cold, noinline)) void report(int code) { input = code; }
extern "C" int main()
{
    int total = 0;
    for (int i = 0; i < 4; ++i)
        total += sensors[i].read(i);
    return total + sum(sensors, 4);
}
)";

const std::vector<Compiler> &optimisingCompilers()
{
    const QStringList arm = {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-m3"_s, u"-mthumb"_s};
    const QStringList clang = {u"clang++-14"_s, u"--target=armv7m-none-eabi"_s, u"-fuse-ld=lld"_s};
    const QStringList riscV = {u"riscv64-unknown-elf-g++"_s, u"-march=rv32imac"_s, u"-mabi=ilp32"_s};
    static const std::vector<Compiler> list = {
        {"arm gcc", arm + QStringList{u"-g"_s, u"-O2"_s}},
        {"arm gcc, LTO", arm + QStringList{u"-g"_s, u"-O2"_s, u"-flto"_s}},
        {"arm gcc, DWARF 4, sections", arm + QStringList{u"-gdwarf-4"_s, u"-Os"_s, u"-ffunction-sections"_s}},
        {"arm clang", clang + QStringList{u"-g"_s, u"-O2"_s}},
        {"riscv gcc", riscV + QStringList{u"-g"_s, u"-O2"_s}, false},
        {"riscv gcc, LTO, DWARF 4", riscV + QStringList{u"-gdwarf-4"_s, u"-O2"_s, u"-flto"_s}, false},
    };
    return list;
}

// Inlined functions, cold parts of functions in other places, blocks in pieces.
class OptimisedProgram : public CompiledProgramTest
{
protected:
    OptimisedProgram() : CompiledProgramTest(optimisedText) {}

    QStringList instructionAddresses() const
    {
        QStringList addresses;
        for (const QJsonValue &row : json({u"disassemble"_s, u"--json"_s, elf})) {
            if (row[u"kind"].toString() != u"data"_s)
                addresses += row[u"address"].toString();
        }
        return addresses;
    }
};

// The line of each address that has a row: the highest of those that a statement has there.
std::map<quint32, int> linesOfTable(const QString &elf)
{
    static const QRegularExpression row(u"^\\S+ +(\\d+) +0x([0-9a-f]+)(?: +\\d+)? +x"_s);
    std::map<quint32, int> table;
    for (const QString &line : lines(runProgram(tool("readelf"), {u"--debug-dump=decodedline"_s, u"-wN"_s, elf}))) {
        if (const auto match = row.match(line); match.hasMatch()) {
            int &highest = table[match.captured(2).toUInt(nullptr, 16)];
            highest = std::max(highest, match.captured(1).toInt());
        }
    }
    table.erase(0); // of functions that the linker removed
    return table;
}

TEST_P(OptimisedProgram, LinesAndAddressesAreThoseOfTheTable)
{
    if (tool("readelf").isEmpty())
        GTEST_SKIP() << "readelf isn't installed";
    const std::map<quint32, int> table = linesOfTable(elf);
    ASSERT_GT(table.size(), 15u);
    std::map<int, QStringList> addressesOfLine;
    for (const auto &[address, line] : table)
        addressesOfLine[line] += u"0x%1"_s.arg(address, 8, 16, QChar(u'0'));
    const QStringList addresses = instructionAddresses();
    const QJsonArray answers = json(QStringList{u"line"_s, u"--json"_s, elf} + addresses);
    for (qsizetype i = 0; i < answers.size(); ++i) {
        const auto next = table.upper_bound(addresses[i].toUInt(nullptr, 16));
        ASSERT_NE(next, table.begin());
        EXPECT_EQ(answers[i][u"line"].toInt(), std::prev(next)->second) << addresses[i].toStdString();
    }
    QStringList asked;
    for (const auto &[line, expected] : addressesOfLine)
        asked += u"main.cpp:%1"_s.arg(line);
    for (const QJsonValue &answer : json(QStringList{u"address"_s, u"--json"_s, elf} + asked)) {
        QStringList found;
        for (const QJsonValue &address : answer[u"addresses"].toArray())
            found += address.toString();
        EXPECT_EQ(found, addressesOfLine[answer[u"line"].toInt()]) << answer[u"line"].toInt();
    }
}

TEST_P(OptimisedProgram, FunctionsAndVariablesInScopeAreGdbs)
{
    if (tool("gdb-multiarch").isEmpty())
        GTEST_SKIP() << "gdb-multiarch isn't installed";
    // Each address with the function around it, inlined ones passed over, and the variables of all blocks.
    const QByteArray script = R"(
import gdb
for address in ADDRESSES.split():
    block, names, function = gdb.block_for_pc(int(address, 16)), [], ''
    while block is not None and not block.is_static and not block.is_global:
        names += [symbol.name for symbol in block if symbol.is_variable or symbol.is_argument]
        if block.function is not None:
            function = block.function.name
        block = block.superblock
    print(address, function.split('(')[0], *sorted(names))
)";
    TemporaryFolder folder;
    const QStringList addresses = instructionAddresses();
    const QByteArray listed = QByteArray(script).replace("ADDRESSES", '"' + addresses.join(u' ').toLatin1() + '"');
    const QStringList expected = lines(
        runProgram(tool("gdb-multiarch"), {u"-nx"_s, u"-batch"_s, elf, u"-x"_s, folder.write("scopes.py", listed)}));
    ASSERT_EQ(expected.size(), addresses.size());
    int inInlinedCode = 0;
    ElfDwarfFile file(elf);
    file.load();
    for (qsizetype i = 0; i < addresses.size(); ++i) {
        const VariableScope scope = VariableScope::at(file.dwarf(), addresses[i].toUInt(nullptr, 0));
        QStringList names;
        for (const auto &list : {scope.parameters, scope.locals}) {
            for (const auto &variable : list)
                names += variable.name();
        }
        inInlinedCode += names.contains(u"factor"_s);
        const QStringList told = expected[i].split(u' ');
        EXPECT_EQ(scope.function.name(), told.value(1).section(u"::"_s, -1)) << addresses[i].toStdString();
        // gdb also tells of variables that stand in the abstract instance only.
        for (const QString &name : names)
            EXPECT_TRUE(told.mid(2).contains(name)) << addresses[i].toStdString() << ' ' << name.toStdString();
    }
    EXPECT_GT(inInlinedCode, 0);
}

TEST_P(OptimisedProgram, FramesAreReadelfs)
{
    if (tool("readelf").isEmpty())
        GTEST_SKIP() << "readelf isn't installed";
    expectReadelfsFrames(elf, GetParam().isArm);
}

INSTANTIATE_TEST_SUITE_P(Compilers, OptimisedProgram, testing::ValuesIn(optimisingCompilers()), nameOfCompiler);

} // namespace
