#include "debug/dwarf/DwarfFile.h"
#include "debug/dwarf/DwarfNameTables.h"
#include "elf/ElfFile.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

const char firstUnit[] = R"(
namespace ns {
struct Motor { int a; };
enum Color { RED };
typedef Motor Alias;
template <class T> struct Box { T t; };
struct Deep { struct Inner { int z; } inner; };
}
ns::Motor motor; ns::Color color; ns::Box<int> box; ns::Alias alias; ns::Deep deep;
int run(int x) { struct Local { int q; } l = {x}; return l.q; }
)";
const char secondUnit[] = R"(
namespace other { struct Motor { char c; }; union Motor2 { int i; char c; }; }
struct Single { long long l; };
other::Motor otherMotor; other::Motor2 second; Single single;
int main() { return otherMotor.c + second.i + int(single.l); }
)";

constexpr const char *askedTypes[] = {"Motor",  "ns::Motor", "other::Motor", "Color", "ns::Color",
                                      "Alias",  "Box<int>",  "Inner",        "Local", "Motor2",
                                      "Single", "int",       "nothing",      "run"};

class ReportCounter : public DwarfFile
{
public:
    void reportError(const char *, ...) override Q_ATTRIBUTE_FORMAT_PRINTF(2, 3) { ++reports; }

    int reports = 0;
};

// What findType() answers: unit and offset of each type.
QStringList answersOf(DwarfFile &file)
{
    QStringList answers;
    for (const char *name : askedTypes) {
        const auto type = file.findType(QString::fromLatin1(name));
        answers += type ? u"0x%1+0x%2"_s.arg(type.unit()->offset(), 0, 16).arg(type.offset(), 0, 16) : u"none"_s;
    }
    return answers;
}

TEST(DwarfNameTables, AnswerAsTheGatheredIndexDoes)
{
    const QString compiler = QStandardPaths::findExecutable(u"clang++-14"_s);
    if (compiler.isEmpty())
        GTEST_SKIP() << "clang++-14 isn't installed";
    const TemporaryFolder folder;
    const QString elf = folder.path("main.elf");
    const ProgramResult built = runProgram(
        compiler, {u"--target=armv7m-none-eabi"_s, u"-gdwarf-5"_s, u"-gpubnames"_s, u"-nostdlib"_s, u"-fuse-ld=lld"_s,
                   folder.write("first.cpp", firstUnit), folder.write("second.cpp", secondUnit), u"-o"_s, elf});
    ASSERT_EQ(built.status, 0) << built.error.toStdString();
    ElfFile image;
    image.load(elf);
    const DwarfSections sections = DwarfSections::of(image);
    ASSERT_FALSE(sections.names.empty());
    DwarfSections withoutNames = sections;
    withoutNames.names = {};
    DwarfFile gathered;
    gathered.load(withoutNames);
    const QStringList expected = answersOf(gathered);
    EXPECT_EQ(expected.count(u"none"_s), 2);

    ReportCounter file;
    file.load(sections);
    DwarfNameTables tables(file);
    EXPECT_TRUE(tables.areUsable());
    EXPECT_EQ(tables.typesNamed("Motor").size(), 2u);
    EXPECT_EQ(tables.typesNamed("Box<int>").size(), 1u);
    EXPECT_EQ(tables.typesNamed("run").size(), 0u) << "no type";
    EXPECT_EQ(answersOf(file), expected);
    EXPECT_EQ(file.reports, 0);

    // Damage costs the tables, if it is seen, and never an answer that is there.
    std::vector<quint8> bytes(sections.names.begin(), sections.names.end());
    int unusable = 0, reported = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] ^= 0x15;
        DwarfSections damaged = sections;
        damaged.names = bytes;
        ReportCounter other;
        other.load(damaged);
        const QStringList answers = answersOf(other);
        EXPECT_EQ(answers.count(u"none"_s), 2) << i;
        unusable += !DwarfNameTables(other).areUsable();
        reported += other.reports > 0;
        bytes[i] ^= 0x15;
    }
    EXPECT_GT(unusable, 10);
    EXPECT_GT(reported, 50);
    // Cut short anywhere.
    for (size_t size = 0; size < bytes.size(); size += 7) {
        DwarfSections cut = sections;
        cut.names = sections.names.first(size);
        DwarfFile other;
        other.load(cut);
        EXPECT_EQ(answersOf(other), expected) << size;
    }
}

} // namespace
