#include "base/ByteOrder.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"
#include "target/memory/CodeBuffer.h"

#include <QRandomGenerator>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

struct Piece
{
    quint32 address;
    QByteArray bytes;
};

std::span<const quint8> spanOf(const QByteArray &bytes)
{
    return {reinterpret_cast<const quint8 *>(bytes.constData()), size_t(bytes.size())};
}

void fillBuffer(CodeBuffer &buffer, const std::vector<Piece> &pieces, quint32 entry)
{
    for (const Piece &piece : pieces) {
        buffer.setAddress(piece.address);
        buffer.putBytes(spanOf(piece.bytes));
    }
    buffer.finish(entry);
    EXPECT_FALSE(buffer.failed());
}

template <typename Buffer>
QByteArray written(const std::vector<Piece> &pieces, quint32 entry = 0)
{
    const TemporaryFolder folder;
    Buffer buffer(folder.path("out"));
    fillBuffer(buffer, pieces, entry);
    return folder.read("out");
}

TEST(CodeBuffer, WritesEachFormat)
{
    const std::vector<Piece> pieces{{0x1FFF0, "ABCDEFGHIJKLMNOPQ"}, {0x20002, "z"}};
    EXPECT_EQ(written<SRecordBuffer>(pieces, 0x12345678), "S21401FFF04142434445464748494A4B4C4D4E4F5073\n"
                                                          "S20502000051A7\n"
                                                          "S2050200027A7C\n"
                                                          "S90356782E\n");
    EXPECT_EQ(written<HexBuffer>(pieces), "0001FFF0 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50\n"
                                          "00020000 51\n"
                                          "00020002 7A\n");
    EXPECT_EQ(written<IntelHexBuffer>(pieces), ":020000040001F9\n"
                                               ":10FFF0004142434445464748494A4B4C4D4E4F5079\n"
                                               ":020000040002F8\n"
                                               ":0100000051AE\n"
                                               ":010002007A83\n"
                                               ":00000001FF\n");
    EXPECT_EQ(written<TIHexBuffer>(pieces), "@0001FFF0\n"
                                            "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50\n"
                                            "51\n"
                                            "@00020002\n"
                                            "7a\n"
                                            "q\n");
    // 0x0D digits: 5 of the address, 2 of the byte, 6 of the head. 0+D + 6 + 5 + 2+0+0+0+2 + 7+A = 0x2D.
    EXPECT_EQ(written<TekHexBuffer>({{0x20002, "z"}}, 0), "%0D62D5200027A\n%0781010\n");
}

TEST(CodeBuffer, LinesBreakAtSixteenBytesAndNewAddresses)
{
    const TemporaryFolder folder;
    HexBuffer buffer(folder.path("out"));
    buffer.setAddress(0x18);
    for (int i = 0; i < 20; ++i) {
        buffer.setAddress(0x18 + quint32(i)); // where the buffer stands already
        buffer.putByte(quint8(i));
    }
    buffer.setAddress(0x18);
    buffer.putByte(0xFF);
    buffer.finish(0);
    EXPECT_EQ(folder.read("out"), "00000018 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F\n"
                                  "00000028 10 11 12 13\n"
                                  "00000018 FF\n");
}

TEST(CodeBuffer, AddressesDecideTheRecords)
{
    EXPECT_TRUE(written<SRecordBuffer>({{0xFFFF, "a"}}).startsWith("S104FFFF"));
    EXPECT_TRUE(written<SRecordBuffer>({{0x10000, "a"}}).startsWith("S205010000"));
    EXPECT_TRUE(written<SRecordBuffer>({{0xFFFFFE, "a"}}).startsWith("S205FFFFFE"));
    EXPECT_TRUE(written<SRecordBuffer>({{0xFFFFFF, "a"}}).startsWith("S30600FFFFFF"));
    EXPECT_TRUE(written<IntelHexBuffer>({{0xFFFF, "a"}}).startsWith(":01FFFF00"));
    EXPECT_TRUE(written<IntelHexBuffer>({{0x10000, "a"}}).startsWith(":020000040001F9\n:01000000"));
    // Intel hex changes its upper address where the space ends; the others go on.
    EXPECT_EQ(written<IntelHexBuffer>({{0xFFFFFFFF, "ab"}}),
              ":02000004FFFFFC\n:01FFFF0061A0\n:020000040000FA\n:01000000629D\n:00000001FF\n");
    EXPECT_EQ(written<HexBuffer>({{0xFFFFFFFF, "ab"}}), "FFFFFFFF 61 62\n");
    EXPECT_TRUE(written<TekHexBuffer>({{0, "a"}}).startsWith("%096"));
    EXPECT_TRUE(written<TekHexBuffer>({{0xFFFFFFFF, "a"}}).startsWith("%106"));
    EXPECT_EQ(written<IntelHexBuffer>({}), ":00000001FF\n");
}

TEST(BinaryBuffer, ZerosWhereNothingWasWrittenFfInTouchedPages)
{
    EXPECT_EQ(written<BinaryBuffer>({{0x2000, "ab"}}), QByteArray(0x2000, '\0') + "ab");
    QByteArray expected = QByteArray(0x1000, '\0') + QByteArray(0x1000, '\xFF') + QByteArray(0x1001, '\0') + "z";
    expected.replace(0x1800, 2, "ab");
    expected.replace(0x3000, 1, "\xFF");
    EXPECT_EQ(written<BinaryBuffer>({{0x3001, "z"}, {0x1800, "xx"}, {0x1800, "ab"}}), expected);
    EXPECT_EQ(written<BinaryBuffer>({}), QByteArray());
}

TEST(BinaryBuffer, StartsAtItsBaseAndCostsNoSpaceForGaps)
{
    const TemporaryFolder folder;
    BinaryBuffer based(folder.path("based"));
    based.setBase(0x08000001);
    fillBuffer(based, {{0x08000000, "abc"}, {0x08002000, "d"}}, 0);
    EXPECT_EQ(folder.read("based"), "bc" + QByteArray(0xFFD, '\xFF') + QByteArray(0x1000, '\0') + "d");

    BinaryBuffer top(folder.path("top"));
    fillBuffer(top, {{0x7FFFFFFF, "!"}}, 0);
    QFile file(folder.path("top"));
    EXPECT_EQ(file.size(), qint64(1) << 31);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly) && file.seek(0x7FFFEFFF));
    EXPECT_EQ(file.read(2), QByteArray("\0\xFF", 2));
}

TEST(Uf2Buffer, EachBlockStandsAlone)
{
    const TemporaryFolder folder;
    Uf2Buffer buffer(folder.path("out"));
    buffer.setFamily(0xE48BFF56);
    fillBuffer(buffer, {{0x10000200, "second"}, {0x100000FF, "ab"}}, 0x10000000);
    const QByteArray out = folder.read("out");
    ASSERT_EQ(out.size(), 3 * 512);
    const auto word = [&](int block, int offset) {
        return extractInteger(out.constData(), 512 * block + offset, 4, false);
    };
    for (int block = 0; block < 3; ++block) {
        EXPECT_EQ(out.mid(512 * block, 4), "UF2\n");
        EXPECT_EQ(word(block, 4), 0x9E5D5157u);
        EXPECT_EQ(word(block, 8), 0x2000u);
        EXPECT_EQ(word(block, 12), 0x10000000u + 256 * quint32(block));
        EXPECT_EQ(word(block, 16), 256u);
        EXPECT_EQ(word(block, 20), quint32(block));
        EXPECT_EQ(word(block, 24), 3u);
        EXPECT_EQ(word(block, 28), 0xE48BFF56u);
        EXPECT_EQ(word(block, 508), 0x0AB16F30u);
    }
    EXPECT_EQ(out.mid(32, 256), QByteArray(255, '\xFF') + "a");
    EXPECT_EQ(out.mid(512 + 32, 2), "b\xFF");
    EXPECT_EQ(out.mid(1024 + 32, 7), "second\xFF");
}

TEST(CodeBuffer, FailuresAreToldNotThrown)
{
    SRecordBuffer nowhere(u"/no/such/folder/out"_s);
    EXPECT_TRUE(nowhere.failed());
    nowhere.putByte(1);
    nowhere.finish(0);
    EXPECT_TRUE(nowhere.failed());
    EXPECT_FALSE(nowhere.errorString().isEmpty());
    if (!QFile::exists(u"/dev/full"_s))
        GTEST_SKIP() << "no /dev/full";
    BinaryBuffer full(u"/dev/full"_s);
    full.putBytes(spanOf(QByteArray(100000, 'x')));
    full.finish(0);
    EXPECT_TRUE(full.failed());
}

TEST(CodeBuffer, WithoutFinishTheOldFileStands)
{
    const TemporaryFolder folder;
    folder.write("out", "old");
    {
        HexBuffer buffer(folder.path("out"));
        buffer.putByte(1);
    }
    EXPECT_EQ(folder.read("out"), "old");
}

TEST(CodeBuffer, FactoryKnowsItsExtensions)
{
    const TemporaryFolder folder;
    const auto is = [&](const char *extension, auto *type) {
        const auto buffer = createCodeBuffer(QString::fromLatin1(extension), folder.path("out"));
        return dynamic_cast<decltype(type)>(buffer.get()) != nullptr;
    };
    EXPECT_TRUE(is("hex", static_cast<IntelHexBuffer *>(nullptr)));
    EXPECT_TRUE(is("lst", static_cast<HexBuffer *>(nullptr)));
    EXPECT_TRUE(is("srec", static_cast<SRecordBuffer *>(nullptr)));
    EXPECT_TRUE(is("bin", static_cast<BinaryBuffer *>(nullptr)));
    EXPECT_TRUE(is("txt", static_cast<TIHexBuffer *>(nullptr)));
    EXPECT_EQ(createCodeBuffer(u"s19"_s, folder.path("out")), nullptr);
}

// What foreign readers make of our text formats: the bytes that went in.
TEST(CodeBuffer, ForeignReadersAgree)
{
    const QString reader = QStandardPaths::findExecutable(u"srec_cat"_s);
    if (reader.isEmpty())
        GTEST_SKIP() << "srec_cat is missing";
    QRandomGenerator random(8);
    QByteArray image(5000, '\0');
    for (char &byte : image)
        byte = char(random.bounded(256));
    struct Format
    {
        const char *option;
        std::unique_ptr<CodeBuffer> (*create)(const QString &);
    };
    const Format formats[] = {
        {"-intel",
         [](const QString &path) -> std::unique_ptr<CodeBuffer> { return std::make_unique<IntelHexBuffer>(path); }},
        {"-motorola",
         [](const QString &path) -> std::unique_ptr<CodeBuffer> { return std::make_unique<SRecordBuffer>(path); }},
        {"-ti-txt",
         [](const QString &path) -> std::unique_ptr<CodeBuffer> { return std::make_unique<TIHexBuffer>(path); }},
        {"-tektronix-extended",
         [](const QString &path) -> std::unique_ptr<CodeBuffer> { return std::make_unique<TekHexBuffer>(path); }},
    };
    const TemporaryFolder folder;
    for (const quint32 address : {0x0u, 0xFFF7u, 0xFFF800u, 0x08000004u, 0xFFFFE000u}) {
        for (const Format &format : formats) {
            if (address > 0xFFFFFF && format.create == formats[2].create)
                continue; // this reader takes at most 20 bits of address in that format
            const auto buffer = format.create(folder.path("image"));
            fillBuffer(*buffer, {{address, image}}, address);
            const QStringList arguments{folder.path("image"),
                                        QString::fromLatin1(format.option),
                                        u"-offset"_s,
                                        u"-0x%1"_s.arg(address, 0, 16),
                                        u"-o"_s,
                                        folder.path("binary"),
                                        u"-binary"_s};
            const ProgramResult result = runProgram(reader, arguments);
            EXPECT_EQ(result.status, 0) << format.option << ' ' << result.error.constData();
            EXPECT_TRUE(folder.read("binary") == image) << format.option << " at " << std::hex << address;
        }
    }
}

} // namespace
