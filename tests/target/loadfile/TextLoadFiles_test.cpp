#include "base/HException.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"
#include "target/loadfile/TextLoadFiles.h"
#include "target/memory/CodeBuffer.h"

#include <QRandomGenerator>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

// "20:414243 30:" for a section of three bytes at 0x20 and an empty one at 0x30.
std::string sectionsText(LoadFileInterface &file)
{
    QStringList parts;
    for (const auto &section : file.sections().primary()) {
        const QByteArray bytes(reinterpret_cast<const char *>(section->data(false)), section->size());
        parts += QString::number(section->startAddress(), 16) + u':' + QString::fromLatin1(bytes.toHex());
    }
    return parts.join(u' ').toStdString();
}

template <typename File>
std::string read(const QByteArray &text)
{
    try {
        File file(ByteImage::fromBytes(text));
        return sectionsText(file) + (file.hasEntryPoint() ? "@" + std::to_string(file.entryPoint()) : "");
    } catch (const HException &error) {
        return "! " + error.message().toStdString();
    }
}

quint8 sumOf(const QByteArray &hex)
{
    quint8 sum = 0;
    for (const char byte : QByteArray::fromHex(hex))
        sum += quint8(byte);
    return sum;
}

// Records with their sums: ":" or "S" and the type, the digits given, checksum.
QByteArray intel(const QByteArray &hex)
{
    return ':' + hex + QByteArray(1, char(-sumOf(hex))).toHex().toUpper() + '\n';
}
QByteArray motorola(char type, const QByteArray &hex)
{
    return QByteArray("S") + type + hex + QByteArray(1, char(~sumOf(hex))).toHex().toUpper() + '\n';
}

struct ReaderCase
{
    const char *what;
    QByteArray text;
    const char *result;
};

const QByteArray intelEnd = ":00000001FF\n";

TEST(IntelHexLoadFile, KeepsTheRules)
{
    const ReaderCase cases[] = {
        {"end record only", intelEnd, ""},
        {"no line end behind it, CR LF, lower case", ":02001000abcd76\r\n:00000001ff", "10:abcd"},
        {"records that follow each other", intel("020010004142") + intel("0100120043") + intelEnd, "10:414243"},
        {"jumps, forth and back", intel("0100200041") + intel("0100100042") + intel("0100110043") + intelEnd,
         "20:41 10:4243"},
        {"continues into the next upper half",
         intel("02FFFE004142") + intel("020000040001") + intel("0100000043") + intelEnd, "fffe:414243"},
        {"the same upper half again", intel("0100100041") + intel("020000040000") + intel("0100110042") + intelEnd,
         "10:4142"},
        {"segment and upper half add up",
         intel("020000021000") + intel("020000040800") + intel("0100100041") + intelEnd, "8010010:41"},
        {"empty records", intel("00001000") + intel("0100100042") + intel("00002000") + intelEnd, "10:42 20:"},
        {"cut at the end of the address space", intel("02000004FFFF") + intel("02FFFF004142") + intelEnd,
         "ffffffff:41 0:42"},
        {"segment wraps to 0", intel("02000004FFFF") + intel("020000021000") + intel("0100000041") + intelEnd, "0:41"},
        {"both kinds of entry", intel("0400000312345678") + intel("0400000500000100") + intelEnd, "@256"},
        {"behind the end nothing is read", intelEnd + "rubbish\n", ""},
        {"other types without content", intel("0000000A") + intelEnd, ""},
        {"other types with content", intel("0100000A41") + intelEnd, "! invalid checksum : line 1"},
        {"text behind the checksum", intel("0100100041").trimmed() + " comment\n" + intelEnd, "10:41"},
        {"a line of more than 529 characters is two",
         intel("0100100041").trimmed() + QByteArray(530, ' ') + '\n' + intelEnd,
         "! missing record mark in hex file : line 2"},
        {"empty file", "", "! invalid end of file in hex file"},
        {"no end record", intel("0100100041"), "! invalid end of file in hex file"},
        {"no colon in line 2", intel("0100100041") + "00000001FF\n", "! missing record mark in hex file : line 2"},
        {"blank line", '\n' + intelEnd, "! missing record mark in hex file : line 1"},
        {"wrong checksum in line 2", intel("0100100041") + ":0100110042AB\n", "! invalid checksum : line 2"},
        {"length beyond the line", ":FF00100041AE\n", "! invalid ASCII encoded byte : line 1"},
        {"ends inside a byte", ":0", "! invalid ASCII encoded byte : line 1"},
        {"no digit", ":01001000G1AE\n", "! invalid ASCII encoded byte : line 1"},
        {"NUL", QByteArray(":0\0", 3), "! invalid ASCII encoded byte : line 1"},
    };
    for (const ReaderCase &row : cases)
        EXPECT_EQ(read<IntelHexLoadFile>(row.text), row.result) << row.what;
}

TEST(HexLoadFile, KeepsTheRules)
{
    const ReaderCase cases[] = {
        {"empty file", "", ""},
        {"lines that follow each other", "00000010 41 42\n00000012 43\r\n00000020 44", "10:414243 20:44"},
        {"address alone", "00000010\n", "10:"},
        {"lower case, the last address", "fffffffe aB Cd 01\n", "fffffffe:abcd 0:01"},
        {"half a byte", "00000010 4\n", "! invalid ASCII encoded byte : line 1"},
        {"the line end counts", "0000010\n", "! invalid ASCII encoded byte : line 1"},
        {"too short", "000001\n", "! invalid address : line 1"},
        {"blank line", "00000010 41\n\n", "! invalid address : line 2"},
        {"separator", "00000010 41-42\n", "! invalid seperator : line 1"},
        {"address", "0000001G 41\n", "! invalid ASCII encoded byte : line 1"},
        {"byte", "00000010 41 G2\n", "! invalid ASCII encoded byte : line 1"},
    };
    for (const ReaderCase &row : cases)
        EXPECT_EQ(read<HexLoadFile>(row.text), row.result) << row.what;
}

TEST(TIHexLoadFile, KeepsTheRules)
{
    const ReaderCase cases[] = {
        {"end only", "q\n", ""},
        {"starts at 0, goes on, jumps", "41 42\n43\n@20\n44 45\r\nq\n", "0:414243 20:4445"},
        {"an address that changes nothing", "41\n@1\n42\nq", "0:4142"},
        {"the address ends at a space", "@F000 rubbish\n41\nq", "f000:41"},
        {"address with a bad digit", "@1G2\n41\nq\n", "fffffff2:41"},
        {"any separator", "41,42-43\nq\n", "0:414243"},
        {"across the end of the address space", "@FFFFFFFF\n41 42\nq\n", "ffffffff:41 0:42"},
        {"a blank line is an empty record", "41\n\n42\n@20\n\nq\n", "0:4142 20:"},
        {"a long line", QByteArray("41 ").repeated(30) + "42\nq\n",
         "0:41414141414141414141414141414141414141414141414141414141414142"},
        {"behind the end nothing is read", "41\nq\nrubbish", "0:41"},
        {"no q", "41\n", "! unexpected end of file"},
        {"empty file", "", "! unexpected end of file"},
        {"no digit", "41\n4x\nq\n", "! invalid ASCII encoded byte : line 2"},
    };
    for (const ReaderCase &row : cases)
        EXPECT_EQ(read<TIHexLoadFile>(row.text), row.result) << row.what;
}

TEST(SRecordLoadFile, KeepsTheRules)
{
    const QByteArray first = motorola('1', "04001041");
    const ReaderCase cases[] = {
        {"empty file", "", ""},
        {"addresses of 16, 24 and 32 bits",
         motorola('0', "0500004142") + first + motorola('2', "0501001042") + motorola('3', "060800001043") +
             motorola('5', "030003"),
         "10:41 10010:42 8000010:43"},
        {"entries", motorola('9', "031234") + motorola('8', "04123456") + motorola('7', "0500000100"), "@256"},
        {"records that follow each other, CR LF", first.trimmed() + "\r\n" + motorola('1', "04001142"), "10:4142"},
        {"cut at the end of the address space", motorola('3', "07FFFFFFFF4142"), "ffffffff:41 0:42"},
        {"goes on behind the end record", motorola('9', "030000") + first, "10:41@0"},
        {"empty data", motorola('1', "030010"), "10:"},
        {"header without anything", motorola('0', "01"), ""},
        {"other types without content", motorola('4', "01") + motorola('X', "01"), ""},
        {"other types with content", motorola('6', "04000000"), "! invalid checksum : line 1"},
        {"wrong count", first + motorola('5', "030002"), "! incorrect data record count : line 2"},
        {"no S", first + '\n', "! no leading 'S' character : line 2"},
        {"S alone", "S", "! invalid ASCII encoded byte : line 1"},
        {"count below the address", motorola('1', "020010"), "! invalid record length : line 1"},
        {"count of 0", motorola('0', "00"), "! invalid record length : line 1"},
        {"count beyond the line", "S1FF001041AA\n", "! invalid ASCII encoded byte : line 1"},
        {"wrong checksum", "S104001041AB\n", "! invalid checksum : line 1"},
    };
    for (const ReaderCase &row : cases)
        EXPECT_EQ(read<SRecordLoadFile>(row.text), row.result) << row.what;
}

TEST(TextLoadFiles, EveryPrefixIsReadOrRefused)
{
    const QByteArray hex = intel("020000040001") + intel("03001000414243") + intel("0400000500000100") + intelEnd;
    const QByteArray records = motorola('0', "0500004142") + motorola('2', "0501001042") + motorola('9', "031234");
    const QByteArray listing = "00000010 41 42\n00000012 43\n", ti = "@20\n41 42\n43\nq\n";
    for (qsizetype length = 0; length < hex.size() - 1; ++length)
        EXPECT_EQ(read<IntelHexLoadFile>(hex.first(length)).front(), '!') << length;
    for (qsizetype length = 0; length < records.size(); ++length)
        read<SRecordLoadFile>(records.first(length));
    for (qsizetype length = 0; length < listing.size(); ++length)
        read<HexLoadFile>(listing.first(length));
    for (qsizetype length = 0; length < ti.size() - 2; ++length)
        EXPECT_EQ(read<TIHexLoadFile>(ti.first(length)).front(), '!') << length;
}

TEST(TextLoadFiles, MissingFilesAreTold)
{
    try {
        SRecordLoadFile file(u"/no/such/file"_s);
        FAIL();
    } catch (const HException &error) {
        EXPECT_EQ(error.message(), u"cannot open /no/such/file"_s);
    }
}

// Pieces of random size at random places, some of them adjacent.
std::vector<std::pair<quint32, QByteArray>> randomPieces(quint32 seed)
{
    QRandomGenerator random(seed);
    std::vector<std::pair<quint32, QByteArray>> pieces;
    quint32 address = random.bounded(0x20000u);
    for (int i = 0; i < 50; ++i) {
        QByteArray bytes(random.bounded(1, 300), '\0');
        for (char &byte : bytes)
            byte = char(random.bounded(256));
        address += quint32(random.bounded(4)) * random.bounded(0x8000u);
        pieces.emplace_back(address, bytes);
        address += quint32(bytes.size());
    }
    return pieces;
}

std::string joined(const std::vector<std::pair<quint32, QByteArray>> &pieces)
{
    QStringList parts;
    quint32 end = 0;
    for (const auto &[address, bytes] : pieces) {
        if (parts.isEmpty() || address != end)
            parts += QString::number(address, 16) + u':';
        parts.last() += QString::fromLatin1(bytes.toHex());
        end = address + quint32(bytes.size());
    }
    return parts.join(u' ').toStdString();
}

TEST(TextLoadFiles, OurWritersAreReadBack)
{
    const TemporaryFolder folder;
    const auto roundTrip = [&](auto *buffer, auto *file, const auto &pieces) {
        std::remove_pointer_t<decltype(buffer)> out(folder.path("image"));
        for (const auto &[address, bytes] : pieces) {
            out.setAddress(address);
            out.putBytes({reinterpret_cast<const quint8 *>(bytes.constData()), size_t(bytes.size())});
        }
        out.finish(0);
        std::remove_pointer_t<decltype(file)> in(folder.path("image"));
        EXPECT_EQ(sectionsText(in), joined(pieces));
    };
    for (quint32 seed = 0; seed < 20; ++seed) {
        const auto pieces = randomPieces(seed);
        roundTrip(static_cast<IntelHexBuffer *>(nullptr), static_cast<IntelHexLoadFile *>(nullptr), pieces);
        roundTrip(static_cast<HexBuffer *>(nullptr), static_cast<HexLoadFile *>(nullptr), pieces);
        roundTrip(static_cast<TIHexBuffer *>(nullptr), static_cast<TIHexLoadFile *>(nullptr), pieces);
        roundTrip(static_cast<SRecordBuffer *>(nullptr), static_cast<SRecordLoadFile *>(nullptr), pieces);
    }
}

// Files that other tools write hold the bytes that went in.
TEST(TextLoadFiles, ForeignWritersAreRead)
{
    const QString objcopy = QStandardPaths::findExecutable(u"objcopy"_s);
    const QString srecCat = QStandardPaths::findExecutable(u"srec_cat"_s);
    if (objcopy.isEmpty() || srecCat.isEmpty())
        GTEST_SKIP() << "objcopy or srec_cat is missing";
    const TemporaryFolder folder;
    QRandomGenerator random(3);
    QByteArray image(70000, '\0');
    for (char &byte : image)
        byte = char(random.bounded(256));
    const QString binary = folder.write("image.bin", image), out = folder.path("out");
    const auto read = [&](const QString &program, const QStringList &arguments) {
        const ProgramResult result = runProgram(program, arguments);
        EXPECT_EQ(result.status, 0) << result.error.constData();
    };
    for (const quint32 address : {0x0u, 0xFFF0u, 0x123456u, 0x08000000u, 0xFFF00000u}) {
        const std::string expected = QString::number(address, 16).toStdString() + ":" + image.toHex().toStdString();
        const QString place = u"0x%1"_s.arg(address, 0, 16);
        read(objcopy, {u"-I"_s, u"binary"_s, u"-O"_s, u"ihex"_s, u"--change-addresses"_s, place, binary, out});
        EXPECT_TRUE(sectionsText(*std::make_unique<IntelHexLoadFile>(out)) == expected) << place.toStdString();
        read(objcopy, {u"-I"_s, u"binary"_s, u"-O"_s, u"srec"_s, u"--change-addresses"_s, place, binary, out});
        EXPECT_TRUE(sectionsText(*std::make_unique<SRecordLoadFile>(out)) == expected) << place.toStdString();
        const QStringList input{binary, u"-binary"_s, u"-offset"_s, place, u"-o"_s, out};
        read(srecCat, input + QStringList{u"-intel"_s, u"-line-length=100"_s});
        EXPECT_TRUE(sectionsText(*std::make_unique<IntelHexLoadFile>(out)) == expected) << place.toStdString();
        read(srecCat, input + QStringList{u"-motorola"_s});
        EXPECT_TRUE(sectionsText(*std::make_unique<SRecordLoadFile>(out)) == expected) << place.toStdString();
        if (address < 0x100000) {
            read(srecCat, input + QStringList{u"-ti-txt"_s});
            EXPECT_TRUE(sectionsText(*std::make_unique<TIHexLoadFile>(out)) == expected) << place.toStdString();
        }
    }
}

} // namespace
