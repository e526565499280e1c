#include "elf/ElfFile.h"

#include "base/ByteOrder.h"
#include "base/HException.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <random>
#include <zlib.h>

using namespace Qt::StringLiterals;

namespace {

constexpr quint8 localFunction = ELF32_ST_INFO(STB_LOCAL, STT_FUNC),
                 globalFunction = ELF32_ST_INFO(STB_GLOBAL, STT_FUNC),
                 globalObject = ELF32_ST_INFO(STB_GLOBAL, STT_OBJECT), localNone = 0,
                 globalNone = ELF32_ST_INFO(STB_GLOBAL, STT_NOTYPE);

// A firmware in small: code and constants in flash, data loaded from behind them, zeros.
ElfBuilder sample(bool bigEndian)
{
    ElfBuilder elf;
    elf.bigEndian = bigEndian;
    elf.type = ET_EXEC;
    elf.entry = 0x8001;
    elf.sections = {
        {".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x8000,
         QByteArray::fromHex("00112233445566778899aabbccddeeff")},
        {".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x20000000, "DATA"},
        {".bss", SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 0x20000004, "", 0x100},
        {".rel.text", SHT_REL, 0, 0, "", 0, 1},
        {".comment", SHT_PROGBITS, 0, 0, "hello"},
    };
    elf.symbols = {
        {"$t", 0x8000, localNone, 1},
        {"main", 0x8001, globalFunction, 1, 8},
        {"helper", 0x8009, localFunction, 1, 4},
        {"table", 0x800C, globalObject, 1, 4},
        {"$d", 0x800C, localNone, 1},
        {"counter", 0x20000000, globalObject, 2, 4},
        {".hidden", 0x8000, localNone, 1},
        {"!bang", 0x8000, localNone, 1},
        {"$t", 0, localNone, 5},
        {"missing", 0, globalNone, SHN_UNDEF},
        {"limit", 0x1234, globalNone, SHN_ABS},
        {"start", 0x8000, globalNone, 1},
        {"_ZN5Motor3runEi", 0x8005, globalFunction, 1, 2},
        {"main", 0x20000002, globalObject, 2},
        {"", 0, 3, 1},
    };
    elf.segments = {
        {PT_LOAD, 0, 0x8000, 0x8000, 16, 16},
        {PT_LOAD, 16, 0x20000000, 0x8010, 4, 0x104},
    };
    return elf;
}

QString parseError(const QByteArray &image)
{
    try {
        ElfFile file;
        file.parse(ByteImage::fromBytes(image));
        for (const auto &section : file.sections())
            section->data();
        file.symbolsByName();
    } catch (const HException &error) {
        return error.message();
    }
    return u"none"_s;
}

class ElfFileOrders : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override { file.parse(ByteImage::fromBytes(sample(GetParam()).build())); }
    ElfFile file{true};
};

INSTANTIATE_TEST_SUITE_P(BothByteOrders, ElfFileOrders, testing::Bool(),
                         [](const auto &order) { return order.param ? "Big" : "Little"; });

TEST_P(ElfFileOrders, ReadsHeadersAndSections)
{
    EXPECT_EQ(file.bigEndian(), GetParam());
    EXPECT_EQ(file.header().e_entry, 0x8001u);
    EXPECT_EQ(file.sectionCount(), 9u);
    ElfSection *text = file.sectionNamed(u".text"_s);
    ASSERT_TRUE(text);
    EXPECT_EQ(text, file.sectionAt(1));
    EXPECT_EQ(text->content().size(), 16u);
    EXPECT_EQ(text->content()[15], 0xFF);
    EXPECT_TRUE(text->isLoadable());
    EXPECT_TRUE(file.sectionNamed(u".bss"_s)->isLoadable());
    EXPECT_TRUE(file.sectionNamed(u".bss"_s)->content().empty());
    EXPECT_FALSE(file.sectionNamed(u".comment"_s)->isLoadable());
    EXPECT_EQ(file.relocationSectionOf(text), file.sectionNamed(u".rel.text"_s));
    EXPECT_FALSE(file.relocationSectionOf(file.sectionAt(2)));
    EXPECT_FALSE(file.sectionAt(9));
    EXPECT_FALSE(file.sectionNamed(u"text"_s));
    EXPECT_FALSE(file.sectionNamed(QString())) << "the null section has no name to be found by";
}

TEST_P(ElfFileOrders, FindsSymbolsByName)
{
    EXPECT_EQ(file.symbolCount(), 16);
    const ElfSymbol *main = file.symbolNamed(u"main"_s);
    ASSERT_TRUE(main);
    EXPECT_EQ(main->index(), 2u) << "the first of two";
    EXPECT_EQ(main->value(), 0x8000u);
    EXPECT_EQ(main->rawValue(), 0x8001u);
    EXPECT_EQ(main->size(), 8u);
    EXPECT_EQ(static_cast<const ARMElfSymbol *>(main)->mode(), ARMElfSymbol::Thumb);
    EXPECT_EQ(file.symbolNamed(u"limit"_s)->value(), 0x1234u);
    EXPECT_FALSE(file.symbolNamed(u".hidden"_s));
    EXPECT_FALSE(file.symbolNamed(u"!bang"_s));
    EXPECT_FALSE(file.symbolNamed(u"$t"_s));
    EXPECT_EQ(file.symbolAtIndex(7)->name(), u".hidden"_s);
    EXPECT_FALSE(file.symbolAtIndex(16));
    EXPECT_EQ(file.otherSymbols().size(), 5u) << "null, .hidden, !bang, $t outside, the unnamed";
    EXPECT_EQ(file.symbolNamed(u"Motor::run(int)"_s)->rawName(), "_ZN5Motor3runEi");
    EXPECT_FALSE(file.symbolNamed(u"_ZN5Motor3runEi"_s));
    QStringList names;
    for (const ElfSymbol *symbol : file.symbolsByName())
        names += symbol->name();
    EXPECT_EQ(names.join(u' '), u"Motor::run(int) counter helper limit main main missing start table"_s);
}

TEST_P(ElfFileOrders, FindsSymbolsByAddress)
{
    const auto nameAt = [](const ElfSymbol *symbol) { return symbol ? symbol->name() : u"none"_s; };
    struct Row
    {
        quint32 address;
        const char16_t *nearest, *function, *functionBefore, *object, *objectBefore;
    };
    const Row rows[] = {
        {0x7FFF, u"missing", u"none", u"none", u"none", u"none"},
        {0x8000, u"main", u"main", u"main", u"none", u"none"},
        {0x8003, u"start", u"none", u"main", u"none", u"none"},
        {0x8004, u"Motor::run(int)", u"Motor::run(int)", u"Motor::run(int)", u"none", u"none"},
        {0x800C, u"table", u"none", u"helper", u"table", u"table"},
        {0x20000001, u"counter", u"none", u"helper", u"none", u"counter"},
        {0xFFFFFFFF, u"main", u"none", u"helper", u"none", u"main"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.address);
        EXPECT_EQ(nameAt(file.nearestSymbol(row.address)), row.nearest);
        EXPECT_EQ(nameAt(file.functionSymbolAt(row.address, false, false)), row.function);
        EXPECT_EQ(nameAt(file.functionSymbolAt(row.address, true, false)), row.functionBefore);
        EXPECT_EQ(nameAt(file.objectSymbolAt(row.address, false)), row.object);
        EXPECT_EQ(nameAt(file.objectSymbolAt(row.address, true)), row.objectBefore);
    }
    EXPECT_EQ(nameAt(file.functionSymbolAt(0x8003, true, true)), u"start"_s) << "a global of no type in code";
    EXPECT_EQ(nameAt(file.nearestSymbol(0)), u"missing"_s) << "an undefined symbol belongs to the null section";
    QList<ElfSymbol *> list;
    EXPECT_TRUE(file.symbolsNear(0x8003, list));
    EXPECT_EQ(list.size(), 2);
    list.clear();
    EXPECT_TRUE(file.symbolsAt(0x8000, file.sectionAt(1), list));
    EXPECT_EQ(list.size(), 2);
    list.clear();
    EXPECT_FALSE(file.symbolsAt(0x8000, file.sectionAt(2), list));
    EXPECT_FALSE(file.symbolsAt(0, nullptr, list)) << "the null section isn't loadable";
}

TEST_P(ElfFileOrders, TellsCodeFromData)
{
    bool isCode = false;
    quint32 size = 0;
    EXPECT_TRUE(file.stretchAt(0x8002, isCode, size));
    EXPECT_TRUE(isCode);
    EXPECT_EQ(size, 2u);
    EXPECT_TRUE(file.stretchAt(0x800C, isCode, size));
    EXPECT_FALSE(isCode);
    EXPECT_EQ(size, 0x20000000u - 0x800C);
    EXPECT_EQ(file.mappingSymbols().size(), 2u);
    EXPECT_EQ(file.mappingSymbolAt(0x8004, nullptr)->name(), u"$t"_s);
    EXPECT_EQ(file.mappingSymbolAt(0x800C, file.sectionAt(1))->name(), u"$d"_s);
    EXPECT_EQ(file.mappingSymbolAt(0x9000, nullptr)->name(), u"$d"_s);
    EXPECT_FALSE(file.mappingSymbolAt(0x7FFE, nullptr));
    EXPECT_FALSE(file.mappingSymbolAt(0x20000000, file.sectionAt(2)));
}

TEST_P(ElfFileOrders, ReadsByVirtualAndLoadAddress)
{
    for (const bool bySegments : {true, false}) {
        SCOPED_TRACE(bySegments);
        EXPECT_EQ(file.read(0x20000000, 4, true, nullptr, 0, bySegments)[0], 'D');
        EXPECT_EQ(file.read(0x8010, 4, false, nullptr, 0, bySegments)[3], 'A');
        EXPECT_FALSE(file.read(0x8010, 4, true, nullptr, 0, bySegments));
        EXPECT_FALSE(file.read(0x800E, 3, true, nullptr, 0, bySegments)) << "the last two bytes only";
        EXPECT_FALSE(file.read(0xFFFFFFFF, 2, true, nullptr, 0, bySegments));
        char bytes[24];
        EXPECT_TRUE(file.read(0x7FFE, 24, false, bytes, 0xEE, bySegments));
        EXPECT_EQ(QByteArray(bytes, 24).toHex(), "eeee00112233445566778899aabbccddeeff44415441eeee");
    }
    file.read(0x8000, 1)[0] = 0x77;
    EXPECT_EQ(file.sectionAt(1)->content()[0], 0x77) << "the pointer is into the image";
    EXPECT_EQ(file.segmentContaining(0x20000050)->header.p_paddr, 0x8010u);
    EXPECT_FALSE(file.segmentContaining(0x20000104));
    EXPECT_TRUE(file.rangeInSegment(0x8000, 15));
    EXPECT_FALSE(file.rangeInSegment(0x8000, 16)) << "the range has to end before the segment";
    EXPECT_FALSE(file.rangeInSegment(0xFFFFFFFF, 0xFFFFFFFF));
}

TEST_P(ElfFileOrders, SavesWhatItHolds)
{
    const TemporaryFolder folder;
    file.read(0x8000, 1)[0] = 0x77;
    file.save(folder.path("out.elf"));
    ElfFile again;
    again.load(folder.path("out.elf"));
    EXPECT_EQ(again.path(), folder.path("out.elf"));
    EXPECT_EQ(again.read(0x8000, 1)[0], 0x77);
    EXPECT_EQ(again.symbolNamed(u"main"_s)->value(), 0x8000u);
    EXPECT_TRUE(ElfFile::isElfFile(folder.path("out.elf")));
    EXPECT_FALSE(ElfFile::isElfFile(folder.write("short", "\x7f"
                                                          "ELF")));
    EXPECT_THROW(file.save(folder.path("none/out.elf")), HException);
}

TEST(ElfFile, TakesCountsFromTheFirstSection)
{
    ElfBuilder elf = sample(false);
    elf.countInFirstSection = true;
    ElfFile file;
    file.parse(ByteImage::fromBytes(elf.build()));
    EXPECT_EQ(file.sectionCount(), 9u);
    EXPECT_TRUE(file.sectionNamed(u".data"_s));
}

TEST(ElfFile, PlainMachinesKeepOddValues)
{
    ElfBuilder elf = sample(false);
    elf.machine = EM_RISCV;
    ElfFile file;
    file.parse(ByteImage::fromBytes(elf.build()));
    for (int lookUps = 0; lookUps < 10; ++lookUps) { // before and behind the making of the index
        EXPECT_EQ(file.symbolNamed(u"main"_s)->index(), 2u);
        EXPECT_EQ(file.symbolNamed(u"main"_s)->value(), 0x8001u);
        EXPECT_TRUE(file.symbolNamed(u"_ZN5Motor3runEi"_s));
        EXPECT_FALSE(file.symbolNamed(u"mai"_s));
    }
}

TEST(ElfFile, ExtendedSectionIndexesComeFromTheirOwnSection)
{
    ElfBuilder elf = sample(false);
    elf.symbols = {{"far", 0x8000, globalFunction, SHN_XINDEX}};
    elf.sections.append({".symtab_shndx", 18, 0, 0, QByteArray::fromHex("0000000001000000")});
    ElfFile file;
    file.parse(ByteImage::fromBytes(elf.build()));
    EXPECT_EQ(file.sectionOfSymbol(file.symbolNamed(u"far"_s)), file.sectionAt(1));
    elf.sections.removeLast();
    file.parse(ByteImage::fromBytes(elf.build()));
    EXPECT_FALSE(file.sectionOfSymbol(file.symbolNamed(u"far"_s)));
}

TEST(ElfFile, LivesWithoutSymbolsAndWhenEmpty)
{
    ElfBuilder elf = sample(false);
    elf.hasSymbolTable = false;
    ElfFile file;
    EXPECT_FALSE(file.symbolNamed(u"main"_s));
    EXPECT_FALSE(file.nearestSymbol(0));
    EXPECT_FALSE(file.mappingSymbolAt(0, nullptr));
    file.parse(ByteImage::fromBytes(elf.build()));
    EXPECT_TRUE(file.symbolsByAddress().empty());
    EXPECT_FALSE(file.sectionNamed(u".symtab"_s));
    file.clear();
    EXPECT_EQ(file.sectionCount(), 0u);
    EXPECT_THROW(file.pointerAtOffset(0), HException);
}

QByteArray patched(QByteArray image, quint32 offset, quint32 value, quint32 size)
{
    insertInteger(image.data(), offset, value, size, false);
    return image;
}

TEST(ElfFile, RefusesWhatItCannotRead)
{
    const ElfBuilder elf = sample(false);
    const QByteArray good = elf.build();
    const quint32 headers = elf.sectionHeaderOffset();
    const auto sectionField = [&](int section, int field) { return headers + quint32(40 * section + 4 * field); };
    struct Row
    {
        const char *what;
        QByteArray image;
        const char16_t *message;
    };
    const Row rows[] = {
        {"good", good, u"none"},
        {"empty", {}, u"truncated ELF file: "},
        {"64 bits", patched(good, EI_CLASS, ELFCLASS64, 1), u"64-bit ELF file, only 32-bit ones can be read: "},
        {"section headers behind the end", patched(good, 32, quint32(good.size()), 4), u"truncated ELF file: "},
        {"one section too many", patched(good, 48, 10, 2), u"truncated ELF file: "},
        {"4,294,967,295 sections", patched(patched(good, 48, 0, 2), sectionField(0, 5), 0xFFFFFFFF, 4),
         u"truncated ELF file: "},
        {"program headers behind the end", patched(good, 44, 0xFFFF, 2), u"truncated ELF file: "},
        {"segment behind the end", patched(good, 52 + 4, quint32(good.size()), 4), u"truncated ELF file: "},
        {"section behind the end", patched(good, sectionField(5, 4), 0x7FFFFFFF, 4), u"truncated ELF file: "},
        {"section past the end", patched(good, sectionField(5, 5), 0x7FFFFFFF, 4),
         u"section .comment runs past the end of the ELF file: "},
        {"names aren't strings", patched(good, sectionField(8, 1), SHT_PROGBITS, 4), u"not a string section"},
        {"symbol names aren't strings", patched(good, sectionField(7, 1), SHT_PROGBITS, 4), u"not a string section"},
        {"entry size 0", patched(good, sectionField(6, 9), 0, 4), u"symbol table with entry size 0: "},
        {"entry size 1", patched(good, sectionField(6, 9), 1, 4), u"symbol table with entry size 1: "},
        {"symbol name behind the end", patched(good, elf.contentOffset(6) + 16, 0x10000, 4), u"truncated ELF file: "},
    };
    for (const Row &row : rows)
        EXPECT_EQ(parseError(row.image), row.message) << row.what;
    const TemporaryFolder folder;
    ElfFile file;
    const auto loadError = [&](const QString &path) {
        try {
            file.load(path);
        } catch (const HException &error) {
            return error.message();
        }
        return QString();
    };
    EXPECT_EQ(loadError(folder.path("none")), u"cannot open "_s + folder.path("none"));
    EXPECT_EQ(loadError(folder.write("text", "hello, this is text")), u"invalid ELF file: "_s + folder.path("text"));
    EXPECT_EQ(loadError(folder.write("cut", good.first(100))), u"truncated ELF file: "_s + folder.path("cut"));
}

TEST(ElfFile, InflatesCompressedSections)
{
    const QByteArray text(5000, 'x');
    uLongf length = compressBound(uLong(text.size()));
    QByteArray packed(qsizetype(length), '\0');
    ASSERT_EQ(::compress(reinterpret_cast<Bytef *>(packed.data()), &length,
                         reinterpret_cast<const Bytef *>(text.data()), uLong(text.size())),
              Z_OK);
    packed.truncate(qsizetype(length));
    for (const bool bigEndian : {false, true}) {
        QByteArray header(12, '\0');
        insertInteger(header.data(), 0, ELFCOMPRESS_ZLIB, 4, bigEndian);
        insertInteger(header.data(), 4, quint64(text.size()), 4, bigEndian);
        ElfBuilder elf;
        elf.bigEndian = bigEndian;
        elf.sections = {{".debug_info", SHT_PROGBITS, SHF_COMPRESSED, 0, header + packed},
                        {".zdebug_line", SHT_PROGBITS, 0, 0, "ZLIB" + QByteArray::fromHex("0000000000001388") + packed},
                        {".debug_plain", SHT_PROGBITS, 0, 0, "plain"},
                        {".debug_cut", SHT_PROGBITS, SHF_COMPRESSED, 0, header + packed.chopped(8)},
                        {".debug_bomb", SHT_PROGBITS, SHF_COMPRESSED, 0,
                         QByteArray(header).replace(4, 4, "\xff\xff\xff\x7f") + packed}};
        ElfFile file;
        file.parse(ByteImage::fromBytes(elf.build()));
        const auto data = [&](quint32 index) {
            const auto bytes = file.sectionAt(index)->data();
            return QByteArray(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
        };
        EXPECT_EQ(data(1), text);
        EXPECT_EQ(data(2), text);
        EXPECT_EQ(data(3), "plain");
        EXPECT_THROW(data(4), HException);
        EXPECT_THROW(data(5), HException);
    }
}

// What a reader does in all: used on damaged files, where only exceptions may come.
void walk(ElfFile &file)
{
    for (const auto &section : file.sections()) {
        try {
            section->data();
        } catch (const HException &) {
        }
    }
    for (const quint32 address : {0u, 0x8000u, 0x20000001u, 0xFFFFFFFFu}) {
        bool isCode;
        quint32 size;
        QList<ElfSymbol *> list;
        file.stretchAt(address, isCode, size);
        file.symbolsNear(address, list);
        file.symbolsAt(address, nullptr, list);
        file.functionSymbolAt(address, true, true);
        file.mappingSymbolAt(address, file.sectionAt(1));
        char bytes[32];
        file.read(address, 32, false, bytes);
    }
    file.symbolsByName();
    file.symbolNamed(u"main"_s);
}

TEST(ElfFile, EveryPrefixAndDamageEndsInAnException)
{
    std::mt19937 random(1);
    for (const bool bigEndian : {false, true}) {
        const QByteArray good = sample(bigEndian).build();
        const auto tryImage = [](const QByteArray &image) {
            try {
                ElfFile file(true);
                file.parse(ByteImage::fromBytes(image));
                walk(file);
            } catch (const HException &) {
            }
        };
        for (qsizetype length = 0; length < good.size(); ++length)
            tryImage(good.first(length));
        for (int round = 0; round < 3000; ++round) {
            QByteArray damaged = good;
            for (int i = 0; i < 3; ++i)
                damaged[qsizetype(random() % size_t(damaged.size()))] = char(random() % 3 ? random() : 0xFF);
            tryImage(damaged);
        }
    }
}

} // namespace
