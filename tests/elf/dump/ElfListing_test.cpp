#include "elf/dump/ElfListing.h"

#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

TEST(ElfListing, AlignsItsColumns)
{
    ElfBuilder elf;
    elf.sections = {{".a_long_section_name", SHT_ARM_EXIDX, SHF_ALLOC | SHF_WRITE, 0x8000, "xy"},
                    {"odd", 0x1234, 0, 0, "z"}};
    elf.segments = {{PT_LOAD, 0, 0x8000, 0x9000, 2, 0x10}, {0x12345, 0, 0, 0, 0, 0}};
    ElfFile file;
    file.parse(ByteImage::fromBytes(elf.build()));
    QStringList lines;
    listProgramHeaders(file, lines);
    EXPECT_EQ(lines[1], u"Type       Offset     VirtAddr   PhysAddr   FileSiz    MemSiz     Flg Align"_s);
    EXPECT_EQ(lines[2], u"PT_LOAD    0x00000074 0x00008000 0x00009000 0x00000002 0x00000010 RWX 0x04"_s);
    EXPECT_EQ(lines[3].left(11), u"0x12345    "_s);
    lines.clear();
    listSectionHeaders(file, lines);
    EXPECT_EQ(
        lines[1],
        u"[Nr] Name                 Type                 Addr       Offset     Size       ES   Flg Lk   Inf  Al"_s);
    EXPECT_EQ(
        lines[3],
        u"[ 1] .a_long_section_name SHT_ARM_EXIDX        0x00008000 0x00000074 0x00000002 0x00 WA  0x00 0x00 0x04"_s);
    EXPECT_TRUE(lines[4].contains(u"UNKNOWN section type"));
    lines.clear();
    listElfHeader(file, lines);
    EXPECT_EQ(lines[1],
              u"e_ident     : 0x7f 0x45 0x4c 0x46 0x01 0x01 0x01 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00"_s);
    EXPECT_EQ(lines[2], u"CLASS       : ELFCLASS32"_s);
    EXPECT_EQ(lines.last(), u"e_shstrndx  : 0x5"_s);
}

// The symbols of a compiled object, as readelf sees them.
TEST(ElfListing, AgreesWithReadelfOnSymbols)
{
    const QString compiler = QStandardPaths::findExecutable(u"arm-none-eabi-gcc"_s);
    const QString readelf = QStandardPaths::findExecutable(u"arm-none-eabi-readelf"_s);
    if (compiler.isEmpty() || readelf.isEmpty())
        GTEST_SKIP() << "arm-none-eabi-gcc or readelf is missing";
    const TemporaryFolder folder;
    const QString source =
        folder.write("a.c", "int table[4]; static int step(int x) { return x + table[x]; }\n"
                            "extern int other(int); int run(int x) { return step(other(x)) * 2; }\n");
    for (const QString &order : {u"-mlittle-endian"_s, u"-mbig-endian"_s}) {
        const QString object = folder.path("a.o");
        ASSERT_EQ(
            runProgram(compiler, {order, u"-mthumb"_s, u"-mcpu=cortex-r5"_s, u"-c"_s, source, u"-o"_s, object}).status,
            0);
        // Num: Value Size Type Bind Vis Ndx Name
        QStringList expected;
        for (const QString &line : QString::fromUtf8(runProgram(readelf, {u"-sW"_s, object}).out).split(u'\n')) {
            const QStringList fields = line.simplified().split(u' ');
            if (fields.size() >= 7 && fields[0].endsWith(u':') && fields[0] != u"Num:")
                expected += fields[1].toLower() + u' ' + fields[2] + u' ' + fields[3] + u' ' + fields[4];
        }
        const QByteArray json = runProgram(u"vnDump"_s, {u"elf"_s, object, u"--symbols"_s, u"--json"_s}).out;
        QStringList found;
        for (const QJsonValue &value : QJsonDocument::fromJson(json).object()[u"symbols"_s].toArray()) {
            const QJsonObject symbol = value.toObject();
            // readelf shows the raw value, with the Thumb bit of functions.
            const quint32 bit = symbol[u"type"_s] == u"FUNC"_s ? 1 : 0;
            found += u"%1 %2 %3 %4"_s.arg(symbol[u"value"_s].toString().toUInt(nullptr, 16) | bit, 8, 16, QChar(u'0'))
                         .arg(symbol[u"size"_s].toInt())
                         .arg(symbol[u"type"_s].toString(), symbol[u"bind"_s].toString());
        }
        EXPECT_EQ(found, expected);
    }
}

} // namespace
