// docs/json.md against the programs: each example has the shape of what its command prints, and each key that a
// command prints is told there.

#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char firmware[] = R"(
struct Base { int first, second; };
namespace device { struct Motor : Base { unsigned mode : 3; int grid[3][4]; static int instances; }; }
enum Colour { RED, GREEN };
int device::Motor::instances = 1;
device::Motor motor;
Colour colour;
__attribute__((noinline)) int sum(int count)
{
    volatile int total = 0;
    for (int i = 0; i < count; ++i)
        total = total + i;
    return total;
}
int main() { return sum(motor.grid[0][0]) + colour; }
)";

constexpr char solution[] = R"(<!DOCTYPE Veldane_Project_File>
<solution Name="demo" version="2">
  <project Name="demo">
    <configuration Name="Common" project_type="Executable" project_dependencies="none"
      c_additional_options="-mcpu=cortex-m3;-Wall" linker_memory_map_file="map.xml"
      linker_additional_options="-e;main" />
    <file file_name="demo.c" />
  </project>
  <configuration Name="Debug" inherited_configurations="Common" />
</solution>
)";
constexpr char memoryMap[] = R"(<!DOCTYPE Board_Memory_Definition_File>
<root name="demo">
  <MemorySegment name="FLASH" start="0" size="0x10000" access="ReadOnly" />
  <MemorySegment name="RAM" start="0x20000000" size="0x4000" />
</root>
)";

// What stands for the arguments of a documented command; "@" is the firmware.
struct Sample
{
    const char *command;
    QStringList arguments;
    int status = 0;
};

const std::vector<Sample> &samples()
{
    static const std::vector<Sample> rows = {
        {"vnBuild --json", {u"demo.vnProject"_s}},
        {"vnBuild --list projects", {u"demo.vnProject"_s, u"--list"_s, u"projects"_s}},
        {"vnDump line", {u"line"_s, u"@"_s, u"0x8000"_s}},
        {"vnDump address", {u"address"_s, u"@"_s, u"main.cpp:10"_s}},
        {"vnDump type", {u"type"_s, u"@"_s, u"device::Motor"_s}},
        {"vnDump variables", {u"variables"_s, u"@"_s, u"0x8010"_s}},
        {"vnDump frame", {u"frame"_s, u"@"_s, u"0x8010"_s}},
        {"vnDump frame --stack-usage", {u"frame"_s, u"@"_s, u"--stack-usage"_s}},
        {"vnDump symbol", {u"symbol"_s, u"@"_s, u"main"_s}},
        {"vnDump elf", {u"elf"_s, u"@"_s, u"--symbols"_s}},
        {"vnDump print", {u"print"_s, u"@"_s, u"motor"_s}},
        {"vnDump disassemble", {u"disassemble"_s, u"@"_s}},
        {"vnLoad info", {u"info"_s, u"@"_s}},
        {"vnLoad compare", {u"compare"_s, u"@"_s, u"other.bin"_s}, 1},
        {"vnPack list", {u"list"_s, u"a.vnPackage"_s}},
    };
    return rows;
}

// "[].members[].offset" and the like, of all that is in the value.
void collectPaths(const QJsonValue &value, const QString &path, QSet<QString> &paths)
{
    paths += path;
    for (const QJsonValue &element : value.toArray())
        collectPaths(element, path + u"[]"_s, paths);
    const QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member)
        collectPaths(*member, path + u'.' + member.key(), paths);
}

// Of a document, or of a stream with one object a line.
QSet<QString> pathsOf(const QByteArray &text)
{
    QSet<QString> paths;
    if (text.startsWith("{\"event\"")) {
        for (const QByteArray &line : text.trimmed().split('\n'))
            collectPaths(QJsonDocument::fromJson(line).object(), {}, paths);
        return paths;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << text.toStdString();
    collectPaths(document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()), {}, paths);
    return paths;
}

TEST(JsonPage, ExamplesHaveTheShapeOfWhatIsPrinted)
{
    const QString compiler = QStandardPaths::findExecutable(u"arm-none-eabi-g++"_s);
    if (compiler.isEmpty())
        GTEST_SKIP() << "arm-none-eabi-g++ is not installed";
    const TemporaryFolder folder;
    const QString elf = folder.path("main.elf");
    ASSERT_EQ(runProgram(compiler,
                         {u"-mcpu=cortex-m3"_s, u"-mthumb"_s, u"-g"_s, u"-O0"_s, u"-fno-exceptions"_s, u"-nostdlib"_s,
                          u"-Wl,-e,main"_s, u"-Wl,-Ttext=0x8000"_s, folder.write("main.cpp", firmware), u"-o"_s, elf})
                  .status,
              0);
    const QString other = folder.write("other.bin", "not the same");
    const QString package = folder.path("a.vnPackage");
    ASSERT_EQ(runProgram(u"vnPack"_s, {u"create"_s, package, other}).status, 0);

    folder.write("demo.c", "int main(void) { int unused; return 0; }\n");
    folder.write("map.xml", memoryMap);
    const QString project = folder.write("demo.vnProject", solution);

    QFile page(QStringLiteral(VN_DOCS "/json.md"));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(page.readAll());
    static const QRegularExpression command(
        u"^`(vn\\w+(?: [a-z]+)?)(?: FILE| SOLUTION)?( --[a-z-]+(?: projects)?)?[^`]*`"_s,
        QRegularExpression::MultilineOption);
    static const QRegularExpression example(u"```json\n(.*?)```"_s, QRegularExpression::DotMatchesEverythingOption);
    int count = 0;
    for (auto match = command.globalMatch(text); match.hasNext(); ++count) {
        const auto found = match.next();
        const QByteArray name = (found.captured(1) + found.captured(2)).toLatin1();
        const auto row = std::find_if(samples().begin(), samples().end(), [&](auto &r) { return r.command == name; });
        ASSERT_NE(row, samples().end()) << "no sample for " << name.toStdString();
        QStringList arguments = row->arguments;
        arguments.replaceInStrings(QRegularExpression(u"^@$"_s), elf);
        arguments.replaceInStrings(u"other.bin"_s, other);
        arguments.replaceInStrings(u"demo.vnProject"_s, project);
        arguments.replaceInStrings(u"a.vnPackage"_s, package);
        const ProgramResult result =
            runProgram(QString::fromLatin1(name.left(name.indexOf(' '))), arguments + QStringList{u"--json"_s});
        EXPECT_EQ(result.status, row->status) << name.toStdString() << '\n' << result.error.toStdString();

        const QSet<QString> printed = pathsOf(result.out);
        const QString section = text.mid(found.capturedStart());
        for (const QString &path : pathsOf(example.match(section).captured(1).toUtf8()))
            EXPECT_TRUE(printed.contains(path)) << name.toStdString() << " doesn't print " << path.toStdString();
        for (const QString &path : printed) {
            const QString key = path.mid(path.lastIndexOf(u'.') + 1).remove(u"[]"_s);
            EXPECT_TRUE(text.contains(u'"' + key + u'"') || text.contains(u'`' + key + u'`') || key.isEmpty())
                << name.toStdString() << ": nothing is told of " << path.toStdString();
        }
    }
    EXPECT_EQ(count, int(samples().size()));
}

} // namespace
