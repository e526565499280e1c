#include "base/HException.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "target/loadfile/ElfLoadFile.h"
#include "target/loadfile/LoadFileFactory.h"
#include "target/loadfile/TextLoadFiles.h"

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<LoadFileSectionInterface> sectionAt(quint32 address, const QByteArray &bytes)
{
    return std::make_unique<UploadLoadFileSection>("", address, bytes);
}

// Sections in memory.
class ListedLoadFile : public StandardLoadFile
{
public:
    explicit ListedLoadFile(std::vector<std::pair<quint32, QByteArray>> pieces, bool succeeds = true)
        : m_pieces(std::move(pieces)), m_succeeds(succeeds)
    {}

    bool hasAddressInformation() const override { return true; }
    bool readSections() override
    {
        ++reads;
        for (const auto &[address, bytes] : m_pieces)
            m_sections.append(sectionAt(address, bytes));
        return m_succeeds;
    }

    int reads = 0;

private:
    std::vector<std::pair<quint32, QByteArray>> m_pieces;
    bool m_succeeds;
};

QByteArray bytesOf(const LoadFileSectionInterface &section)
{
    return {reinterpret_cast<const char *>(section.data(false)), section.size()};
}

std::string errorOf(const std::function<void()> &action)
{
    try {
        action();
        return "";
    } catch (const HException &error) {
        return error.message().toStdString();
    }
}

TEST(LoadFileSection, CopiesAreKeptUntilFreed)
{
    quint8 bytes[] = {1, 2, 3};
    StandardLoadFileSection::clearConstructedBytes();
    StandardLoadFileSection section(".text", 0x100, 3, bytes);
    EXPECT_STREQ(section.name(), ".text");
    EXPECT_EQ(section.data(true), bytes);
    section.makeCopy();
    bytes[0] = 9;
    section.makeCopy(); // there is one already
    EXPECT_EQ(section.data(true)[0], 1);
    EXPECT_EQ(section.data(false)[0], 9);
    section.freeCopy();
    EXPECT_EQ(section.data(true), bytes);
    ExpandingLoadFileSection growing(0x200);
    growing.expand(100);
    EXPECT_EQ(StandardLoadFileSection::constructedBytes(), 3u);
}

TEST(LoadFileSection, GrowsAndCompares)
{
    ExpandingLoadFileSection growing(0x10);
    QByteArray expected;
    for (int i = 0; i < 1000; ++i) {
        std::memset(growing.expand(i % 7), i, i % 7);
        expected += QByteArray(i % 7, char(i));
    }
    EXPECT_TRUE(growing == *sectionAt(0x10, expected));
    EXPECT_FALSE(growing == *sectionAt(0x11, expected));
    EXPECT_FALSE(growing == *sectionAt(0x10, expected + 'x'));
    EXPECT_FALSE(growing == *sectionAt(0x10, QByteArray(expected).replace(5, 1, "?")));
    const StandardLoadFileSection none("a", 0x10, 8, nullptr), alsoNone("b", 0x10, 8, nullptr);
    EXPECT_TRUE(none == alsoNone);
    EXPECT_FALSE(none == *sectionAt(0x10, QByteArray(8, '\0')));
}

TEST(LoadFileSections, FindsWhatHoldsAWholeRange)
{
    LoadFileSections sections;
    EXPECT_EQ(sections.startAddress(), 0u);
    sections.append(sectionAt(0x100, QByteArray(16, 'a')));
    sections.append(sectionAt(0xFFFFFFF0, QByteArray(16, 'b')));
    sections.append(sectionAt(0x108, QByteArray(16, 'c')));
    EXPECT_EQ(sections.primarySize(), 48u);
    EXPECT_EQ(sections.secondarySize(), 0u);
    EXPECT_EQ(sections.startAddress(), 0x100u);
    EXPECT_EQ(sections.find(0x108, 8), sections.primary()[0].get());
    EXPECT_EQ(sections.find(0x108, 9), sections.primary()[2].get());
    EXPECT_EQ(sections.find(0xFFFFFFFF, 1), sections.primary()[1].get());
    EXPECT_EQ(sections.find(0xFFFFFFFF, 2), nullptr);
    EXPECT_EQ(sections.find(0x100, 0), nullptr);
    EXPECT_EQ(sections.find(0xFF, 2), nullptr);
}

TEST(LoadFile, ReadsLazilyAndOnce)
{
    ListedLoadFile file({{0, "a"}});
    file.setLoadEnabled(false);
    EXPECT_TRUE(file.sections().primary().empty());
    file.setLoadEnabled(true);
    EXPECT_EQ(file.sections().primary().size(), 1u);
    file.sections();
    EXPECT_EQ(file.reads, 1);
    ListedLoadFile failing({}, false);
    EXPECT_EQ(errorOf([&] { failing.sections(); }), "cannot read sections from load file");
}

TEST(LoadFile, JoinsSections)
{
    struct Row
    {
        const char *what;
        std::vector<std::pair<quint32, QByteArray>> pieces;
        quint32 start;
        QByteArray bytes;
    };
    const Row rows[] = {
        {"a gap", {{0x14, "ab"}, {0x10, "xy"}}, 0x10, "xy..ab"},
        {"the later one counts", {{0x10, "abcd"}, {0x11, "XY"}, {0x10, "Z"}}, 0x10, "ZXYd"},
        {"an empty one widens", {{0x12, "ab"}, {0x10, ""}}, 0x10, "..ab"},
        {"up to the last address", {{0xFFFFFFFC, "a"}, {0xFFFFFFFE, "bc"}}, 0xFFFFFFFC, "a.bc"},
    };
    for (const Row &row : rows) {
        ListedLoadFile file(row.pieces);
        file.makeContiguous('.');
        ASSERT_EQ(file.sections().primary().size(), 1u) << row.what;
        EXPECT_EQ(file.sections().startAddress(), row.start) << row.what;
        EXPECT_EQ(bytesOf(*file.sections().primary()[0]), row.bytes) << row.what;
        EXPECT_STREQ(file.sections().primary()[0]->name(), "Contiguous section");
    }
    ListedLoadFile top({{0xFFFFFFFE, "ab"}});
    top.makeContiguous(0);
    EXPECT_STREQ(top.sections().primary()[0]->name(), "");
    ListedLoadFile none({});
    none.makeContiguous(0);
    EXPECT_TRUE(none.sections().primary().empty());
    ListedLoadFile wide({{0, "a"}, {0x7FFFFFFF, "b"}});
    EXPECT_EQ(errorOf([&] { wide.makeContiguous(0); }),
              "the sections span 2147483648 bytes, too much to make them contiguous");
}

TEST(BinaryLoadFile, LiesWhereItIsPut)
{
    const TemporaryFolder folder;
    BinaryLoadFile file(folder.write("image", "abc"));
    EXPECT_FALSE(file.hasAddressInformation());
    EXPECT_FALSE(file.hasEntryPoint());
    const LoadFileSectionInterface *const first = file.sections().primary()[0].get();
    EXPECT_STREQ(first->name(), "data");
    EXPECT_EQ(bytesOf(*first), "abc");
    file.setLoadAddress(0);
    EXPECT_EQ(file.sections().primary()[0].get(), first);
    file.setLoadAddress(0x8000);
    ASSERT_EQ(file.sections().primary().size(), 1u);
    EXPECT_EQ(file.sections().startAddress(), 0x8000u);
    file.setLoadAddress(0xFFFFFFFD);
    EXPECT_EQ(file.sections().primarySize(), 3u);
    file.setLoadAddress(0xFFFFFFFE);
    EXPECT_EQ(errorOf([&] { file.sections(); }), "3 bytes at 0xfffffffe pass the end of the address space");
    BinaryLoadFile empty(folder.write("empty", ""));
    ASSERT_EQ(empty.sections().primary().size(), 1u);
    EXPECT_EQ(empty.sections().primarySize(), 0u);
}

TEST(LoadFileList, FindsOverlapsAndSorts)
{
    using Pieces = std::vector<std::pair<quint32, QByteArray>>;
    const auto overlap = [](const std::vector<Pieces> &files) {
        LoadFileList list;
        for (const Pieces &pieces : files)
            list.append(std::make_unique<ListedLoadFile>(pieces), "x");
        return list.overlap();
    };
    EXPECT_FALSE(overlap({}));
    EXPECT_FALSE(overlap({{{0, "aa"}, {1, "bb"}}})); // within one file is its own matter
    EXPECT_FALSE(overlap({{{0, "aa"}}, {{2, "b"}}, {{3, "c"}}}));
    EXPECT_TRUE(overlap({{{0, "aa"}}, {{2, "b"}}, {{8, "c"}, {1, "c"}}}));
    EXPECT_FALSE(overlap({{{0x10, "aa"}}, {{0x11, ""}, {0, ""}}}));

    ListedLoadFile low({{0x20, "b"}, {0x10, "a"}}), high({{0x15, "c"}});
    LoadFileList list;
    list.append(&high, "high");
    list.append(&low, "low");
    list.sort();
    EXPECT_EQ(list.entries()[0].name, "low");
    EXPECT_EQ(low.sections().primary()[1]->startAddress(), 0x20u);
}

TEST(LoadFileFactory, TellsTypesByName)
{
    LoadFileFactory factory;
    const std::pair<const char *, const char *> rows[] = {
        {"a.bin", "bin"},   {"a.ROM", "bin"},   {"a.hex", "ihex"},     {"A.LST", "hex"}, {"a.txt", "tihex"},
        {"a.srec", "srec"}, {"a.SREC", "srec"}, {"dir/a.S19", "srec"}, {".bin", "bin"},  {"bin", ""},
        {"a.Hex", ""},      {"a.elf", ""},      {"a.bin.gz", ""},
    };
    for (const auto &[path, key] : rows)
        EXPECT_EQ(factory.detectFileType(QString::fromLatin1(path)), QString::fromLatin1(key)) << path;
    EXPECT_TRUE(factory.detectFileType(u"bin"_s).isNull());
}

TEST(LoadFileFactory, MakesTheReaders)
{
    const TemporaryFolder folder;
    ElfLoadFileFactory factory;
    const QString text = folder.write("a.txt", "00000010 41\n");
    EXPECT_EQ(factory.createLoadFile(text, u"elfx"_s), nullptr);
    LoadFileInterface *const file = factory.createLoadFile(text, u"hex"_s);
    EXPECT_NE(dynamic_cast<HexLoadFile *>(file), nullptr);
    EXPECT_EQ(file->sections().startAddress(), 0x10u);
    factory.destroyLoadFile(file);
    factory.destroyLoadFile(nullptr);
    EXPECT_EQ(errorOf([&] { factory.createLoadFile(text, u"srec"_s); }), "no leading 'S' character : line 1");
    EXPECT_EQ(errorOf([&] { factory.createLoadFile(text, u"elf"_s); }), "invalid ELF file: " + text.toStdString());
    QStringList keys;
    for (const LoadFileType &type : LoadFileFactory::types())
        keys += QString::fromLatin1(type.key);
    EXPECT_EQ(keys.join(u' '), u"bin ihex hex tihex srec"_s);
}

ElfBuilder elfWithLoadAddresses(bool bigEndian)
{
    ElfBuilder builder;
    builder.bigEndian = bigEndian;
    builder.type = ET_EXEC;
    builder.entry = 0x08000101;
    builder.sections = {
        {".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x08000100, "text"},
        {".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x20000000, "data"},
        {".bss", SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 0x20000004, "", 16},
        {".comment", SHT_PROGBITS, 0, 0, "note"},
        {".outside", SHT_PROGBITS, SHF_ALLOC, 0x1000, "gone"},
    };
    builder.segments = {{PT_LOAD, 0, 0x08000100, 0x08000100, 4, 4}, {PT_LOAD, 4, 0x20000000, 0x08000104, 4, 20}};
    return builder;
}

TEST(ElfLoadFile, SectionsOfLoadableSegmentsAtTheirLoadAddress)
{
    const TemporaryFolder folder;
    for (const bool bigEndian : {false, true}) {
        ElfLoadFileFactory factory;
        const QString path = folder.write("image.hex", elfWithLoadAddresses(bigEndian).build());
        EXPECT_EQ(factory.detectFileType(path), u"elf"_s); // by content, whatever its name
        ElfLoadFile file(path);
        EXPECT_TRUE(file.hasDebugInformation() && file.hasAddressInformation() && file.hasEntryPoint());
        EXPECT_EQ(file.entryPoint(), 0x08000101u);
        const auto &sections = file.sections().primary();
        ASSERT_EQ(sections.size(), 2u);
        EXPECT_STREQ(sections[0]->name(), ".text");
        EXPECT_EQ(sections[0]->startAddress(), 0x08000100u);
        EXPECT_STREQ(sections[1]->name(), ".data");
        EXPECT_EQ(sections[1]->startAddress(), 0x08000104u);
        EXPECT_EQ(bytesOf(*sections[1]), "data");
    }
    ElfBuilder wrapping = elfWithLoadAddresses(false);
    wrapping.segments[1].physicalAddress = 0xFFFFFFFE;
    ElfLoadFile file(folder.write("wrapping", wrapping.build()));
    EXPECT_EQ(errorOf([&] { file.sections(); }), "section .data passes the end of the address space");
}

} // namespace
