#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"
#include "target/loadfile/LoadFileComparison.h"
#include "target/loadfile/LoadFileSection.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <map>

using namespace Qt::StringLiterals;

namespace {

ProgramResult vnLoad(const QStringList &arguments, const QByteArray &input = {})
{
    return runProgram(u"vnLoad"_s, arguments, input);
}

// Two sections, a gap between them, an entry.
const QByteArray hexText = ":020000040800F2\n:0301000041424336\n:0100000061"
                           "9E\n:0201040064653"
                           "0\n:0400000508000101ED\n:00000001FF\n";

LoadFileSections sectionsOf(const std::vector<std::pair<quint32, QByteArray>> &pieces)
{
    LoadFileSections sections;
    for (const auto &[address, bytes] : pieces)
        sections.append(std::make_unique<UploadLoadFileSection>("", address, bytes));
    return sections;
}

std::string differencesText(const LoadFileSections &a, const LoadFileSections &b)
{
    std::string text;
    for (const auto &[address, size] : compareLoadFiles(a, b))
        text += QString::number(address, 16).toStdString() + "+" + std::to_string(size) + " ";
    return text;
}

TEST(LoadFileComparison, TellsRunsOfAddresses)
{
    const auto compare = [](auto... files) { return differencesText(sectionsOf(files)...); };
    using Pieces = std::vector<std::pair<quint32, QByteArray>>;
    EXPECT_EQ(compare(Pieces{{0, "abcd"}}, Pieces{{0, "abcd"}}), "");
    EXPECT_EQ(compare(Pieces{{0, "abcd"}}, Pieces{{0, "ab"}, {2, "cd"}}), ""); // how it is cut doesn't count
    EXPECT_EQ(compare(Pieces{{0, "abcd"}}, Pieces{{0, "aXYd"}}), "1+2 ");
    EXPECT_EQ(compare(Pieces{{0, "abcd"}}, Pieces{{1, "bcXe"}}), "0+1 3+2 ");
    EXPECT_EQ(compare(Pieces{{0x10, "ab"}}, Pieces{{0x20, "ab"}, {0, "c"}}), "0+1 10+2 20+2 ");
    EXPECT_EQ(compare(Pieces{}, Pieces{{0xFFFFFFFF, "x"}, {5, ""}}), "ffffffff+1 ");
    // The later section counts, whichever way it lies on the earlier ones.
    EXPECT_EQ(compare(Pieces{{0, "abcdef"}, {2, "XY"}}, Pieces{{0, "abXYef"}}), "");
    EXPECT_EQ(compare(Pieces{{2, "XY"}, {0, "abcdef"}}, Pieces{{0, "abcdef"}}), "");
    EXPECT_EQ(compare(Pieces{{0, "abc"}, {3, "def"}, {2, "XY"}}, Pieces{{0, "abXYef"}}), "");
}

TEST(LoadFileComparison, AgreesWithAMapOfBytes)
{
    QRandomGenerator random(5);
    for (int round = 0; round < 300; ++round) {
        std::map<quint32, char> memories[2];
        LoadFileSections sections[2];
        for (int side = 0; side < 2; ++side) {
            for (int i = 0; i < 6; ++i) {
                const quint32 address = random.bounded(40u);
                const QByteArray bytes(random.bounded(12), char('a' + random.bounded(2)));
                sections[side].append(std::make_unique<UploadLoadFileSection>("", address, bytes));
                for (qsizetype k = 0; k < bytes.size(); ++k)
                    memories[side][address + quint32(k)] = bytes[k];
            }
        }
        std::map<quint32, char> expected;
        for (quint32 address = 0; address < 64; ++address) {
            const auto a = memories[0].find(address), b = memories[1].find(address);
            const bool inA = a != memories[0].end(), inB = b != memories[1].end();
            if (inA != inB || (inA && a->second != b->second))
                expected[address] = 1;
        }
        std::map<quint32, char> found;
        for (const auto &[address, size] : compareLoadFiles(sections[0], sections[1]))
            for (quint32 i = 0; i < size; ++i)
                found[address + i] = 1;
        EXPECT_EQ(found, expected) << round;
    }
}

TEST(VnLoad, InfoTellsWhatTheReaderMade)
{
    const TemporaryFolder folder;
    const QString path = folder.write("a.hex", hexText);
    ProgramResult result = vnLoad({u"info"_s, u"--json"_s, path});
    EXPECT_EQ(result.status, 0) << result.error.constData();
    const QByteArray expected = "{\"file\": \"" + path.toUtf8() + R"(", "type": "ihex", "entry": "0x08000101",
        "size": 6, "crc": "0xab081ef3", "sections": [
        {"name": "", "start": "0x08000100", "end": "0x08000102", "size": 3, "crc": "0xa3830348"},
        {"name": "", "start": "0x08000000", "end": "0x08000000", "size": 1, "crc": "0xe8b7be43"},
        {"name": "", "start": "0x08000104", "end": "0x08000105", "size": 2, "crc": "0x7d90298b"}]})";
    EXPECT_EQ(QJsonDocument::fromJson(result.out), QJsonDocument::fromJson(expected)) << result.out.constData();

    result = vnLoad({u"info"_s, u"--json"_s, u"-"_s, u"--type"_s, u"hex"_s}, "00000010\n");
    EXPECT_EQ(QJsonDocument::fromJson(result.out),
              QJsonDocument::fromJson(R"({"file": "-", "type": "hex", "entry": null, "size": 0, "crc": "0x00000000",
              "sections": [{"name": "", "start": "0x00000010", "end": null, "size": 0, "crc": "0x00000000"}]})"))
        << result.out.constData();

    result = vnLoad({u"info"_s, path});
    EXPECT_TRUE(result.out.contains("type   ihex (Intel Hex)\nentry  0x08000101\nsize   6\n"))
        << result.out.constData();
    EXPECT_TRUE(result.out.contains("0x08000100 0x08000102          3  0xa3830348\n")) << result.out.constData();
    result = vnLoad({u"info"_s, u"--address"_s, u"0x8000"_s, folder.write("b.bin", "abc")});
    EXPECT_TRUE(result.out.contains("0x00008000 0x00008002          3  0x352441c2  data\n")) << result.out.constData();
}

TEST(VnLoad, ConvertsIntoEachType)
{
    const TemporaryFolder folder;
    const QString path = folder.write("a.hex", hexText);
    const auto convert = [&](const char *out, const QStringList &options) {
        const ProgramResult result = vnLoad(QStringList{u"convert"_s, path, folder.path(out)} + options);
        EXPECT_EQ(result.status, 0) << result.error.constData();
        EXPECT_EQ(result.error, "");
        return folder.read(out);
    };
    EXPECT_EQ(convert("b.lst", {}), "08000100 41 42 43\n08000000 61\n08000104 64 65\n");
    EXPECT_EQ(convert("b.txt", {}), "@08000100\n41 42 43\n@08000000\n61\n@08000104\n64 65\nq\n");
    EXPECT_EQ(convert("b.SREC", {}), "S30808000100414243"
                                     "28\nS3060800000061"
                                     "90\nS307080001046465"
                                     "22\nS9030101FA\n");
    EXPECT_EQ(convert("b.hex", {}),
              ":020000040800F2\n:0301000041424336\n:01000000619E\n:02010400646530\n:00000001FF\n");
    EXPECT_EQ(convert("b", {u"--out-type"_s, u"tekhex"_s}).left(21), "%1362C78000100414243\n");
    EXPECT_EQ(convert("b.bin", {u"--base"_s, u"0x08000000"_s, u"--fill"_s, u"0x2E"_s}),
              "a" + QByteArray(255, '.') + "ABC.de");
    const QByteArray uf2 = convert("b.uf2", {u"--family"_s, u"0xE48BFF56"_s});
    EXPECT_EQ(uf2.size(), 1024);
    EXPECT_EQ(uf2.mid(8, 4).toHex() + uf2.mid(28, 4).toHex(), "0020000056ff8be4");
    EXPECT_EQ(convert("b.lst", {u"--fill"_s, u"0"_s}).count('\n'), 17);

    // Through pipes, binary zeros included; the listing back into the same hex file.
    const ProgramResult piped =
        vnLoad({u"convert"_s, u"-"_s, u"-"_s, u"--type"_s, u"hex"_s, u"--out-type"_s, u"bin"_s}, "00012345 41\n");
    EXPECT_EQ(piped.out.size(), 0x12346);
    EXPECT_EQ(piped.out.right(2), "\xFF"
                                  "A");
}

TEST(VnLoad, ComparesFiles)
{
    const TemporaryFolder folder;
    const QString hex = folder.write("a.hex", hexText), listing = folder.path("b.lst");
    EXPECT_EQ(vnLoad({u"convert"_s, hex, listing}).status, 0);
    ProgramResult result = vnLoad({u"compare"_s, hex, listing, u"--json"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(QJsonDocument::fromJson(result.out), QJsonDocument::fromJson(R"({"equal": true, "differences": []})"));
    const QString dump = folder.write("dump.dat", "a" + QByteArray(255, '.') + "AbC.de");
    result = vnLoad({u"compare"_s, hex, dump, u"--json"_s, u"--type"_s, u"bin"_s, u"--address"_s, u"0x08000000"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(QJsonDocument::fromJson(result.out), QJsonDocument::fromJson(R"({"equal": false, "differences": [
        {"address": "0x08000001", "size": 255}, {"address": "0x08000101", "size": 1},
        {"address": "0x08000103", "size": 1}]})"))
        << result.out.constData();
    result = vnLoad({u"compare"_s, hex, dump, u"--type"_s, u"bin"_s, u"--address"_s, u"0x08000000"_s});
    EXPECT_EQ(result.out, "0x08000001 - 0x080000ff  255\n0x08000101 - 0x08000101  1\n0x08000103 - 0x08000103  1\n");
}

TEST(VnLoad, FailuresAreOneLine)
{
    const TemporaryFolder folder;
    const QString hex = folder.write("a.hex", hexText), bad = folder.write("bad.hex", ":0x\n");
    const QString out = folder.write("out.bin", "old");
    struct Row
    {
        QStringList arguments;
        int status;
        QString message;
    };
    const Row rows[] = {
        {{u"info"_s, bad}, 1, bad + u": invalid ASCII encoded byte : line 1"_s},
        {{u"info"_s, folder.path("no.hex")}, 1, u"cannot open "_s + folder.path("no.hex")},
        {{u"info"_s, folder.path("no.elf")}, 1, u"cannot open "_s + folder.path("no.elf")},
        {{u"info"_s, u"-"_s}, 2, u"the type of '-' can't be told from its name; --type TYPE says it"_s},
        {{u"info"_s, hex, u"--type"_s, u"x"_s},
         2,
         u"'x' is no type; the types are bin, ihex, hex, tihex, srec and elf"_s},
        {{u"info"_s, hex, u"--address"_s, u"0"_s},
         2,
         u"--address is for binary files; this one has its own addresses"_s},
        {{u"convert"_s, hex, out, u"--base"_s, u"0x08000001"_s}, 1, u"a section at 0x08000000 lies below the base"_s},
        {{u"convert"_s, hex, folder.path("x.hex"), u"--base"_s, u"0"_s}, 2, u"--base is for files of type bin"_s},
        {{u"convert"_s, hex, out, u"--family"_s, u"0"_s}, 2, u"--family is for files of type uf2"_s},
        {{u"convert"_s, hex, out, u"--fill"_s, u"256"_s}, 2, u"'256' is no byte"_s},
        {{u"convert"_s, hex, out, u"--out-type"_s, u"elf"_s},
         2,
         u"'elf' is no type to write; those are bin, ihex, hex, tihex, srec, tekhex and uf2"_s},
        {{u"convert"_s, hex, folder.path("x.o")},
         2,
         u"the type of '%1' can't be told from its name; --out-type TYPE says it"_s.arg(folder.path("x.o"))},
        {{u"convert"_s, bad, out}, 1, bad + u": invalid ASCII encoded byte : line 1"_s},
    };
    for (const Row &row : rows) {
        const ProgramResult result = vnLoad(row.arguments);
        EXPECT_EQ(result.status, row.status) << row.message.toStdString();
        EXPECT_TRUE(QString::fromUtf8(result.error).startsWith(u"vnLoad: "_s + row.message))
            << result.error.constData();
        EXPECT_EQ(result.error.count('\n'), 1);
        EXPECT_EQ(folder.read("out.bin"), "old");
    }
    EXPECT_EQ(vnLoad({u"convert"_s, hex, u"/dev/full"_s, u"--out-type"_s, u"srec"_s}).status, 1);
    EXPECT_EQ(vnLoad({u"convert"_s, hex, folder.path("no/such.bin")}).status, 1);
}

// What objcopy makes of a linked program and what we make of it, as bytes from the first address on.
TEST(VnLoad, LinkedProgramsAreReadAsObjcopyReadsThem)
{
    const QString compiler = QStandardPaths::findExecutable(u"arm-none-eabi-gcc"_s);
    const QString objcopy = QStandardPaths::findExecutable(u"arm-none-eabi-objcopy"_s);
    if (compiler.isEmpty() || objcopy.isEmpty())
        GTEST_SKIP() << "arm-none-eabi-gcc is missing";
    const TemporaryFolder folder;
    const QString source = folder.write("a.c", "int zero[100], set[] = {1, 2, 3}; const char text[] = \"constant\";\n"
                                               "int main(void) { return set[zero[0]] + text[1]; }\n");
    const QString script =
        folder.write("a.ld", "MEMORY { rom : ORIGIN = 0x08000000, LENGTH = 64K\n"
                             " ram : ORIGIN = 0x20000000, LENGTH = 64K }\n"
                             "SECTIONS { .text : { *(.text*) *(.rodata*) } > rom\n"
                             " .data : { *(.data*) } > ram AT > rom\n .bss : { *(.bss*) *(COMMON) } > ram }\n");
    const QString elf = folder.path("a.elf"), theirs = folder.path("theirs.bin"), ours = folder.path("ours.bin");
    for (const QString &order : {u"-mlittle-endian"_s, u"-mbig-endian"_s}) {
        ASSERT_EQ(runProgram(compiler, {u"-mcpu=cortex-r4"_s, order, u"-g"_s, u"-nostdlib"_s, u"-e"_s, u"main"_s,
                                        u"-T"_s, script, u"-o"_s, elf, source})
                      .status,
                  0);
        ASSERT_EQ(runProgram(objcopy, {u"-O"_s, u"binary"_s, u"--gap-fill"_s, u"0xFF"_s, elf, theirs}).status, 0);
        const ProgramResult result = vnLoad({u"convert"_s, elf, ours, u"--base"_s, u"0x08000000"_s});
        EXPECT_EQ(result.status, 0) << result.error.constData();
        EXPECT_EQ(folder.read("ours.bin").toHex(), folder.read("theirs.bin").toHex());
        EXPECT_GT(folder.read("ours.bin").size(), 30);
        ASSERT_EQ(runProgram(objcopy, {u"-O"_s, u"ihex"_s, elf, folder.path("theirs.hex")}).status, 0);
        EXPECT_EQ(vnLoad({u"compare"_s, elf, folder.path("theirs.hex")}).status, 0);
    }
}

} // namespace
