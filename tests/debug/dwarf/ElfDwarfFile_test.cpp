#include "debug/dwarf/ElfDwarfFile.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

using namespace Qt::StringLiterals;

namespace {

// A function of 0x10 bytes at 0x100, described by a frame of 8 bytes, and one at 0x200 that nothing describes.
QByteArray programWithFrames()
{
    ElfBuilder elf;
    elf.type = ET_EXEC;
    const QByteArray frames = QByteArray::fromHex("0c000000ffffffff0100017c0e0c0d00"
                                                  "10000000000000000001000010000000420e0800");
    elf.sections = {{".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x100, QByteArray(0x200, '\0')},
                    {".debug_frame", SHT_PROGBITS, 0, 0, frames}};
    elf.symbols = {{"described", 0x101, ELF32_ST_INFO(STB_GLOBAL, STT_FUNC), 1, 0x10},
                   {"other", 0x201, ELF32_ST_INFO(STB_GLOBAL, STT_FUNC), 1, 0x10}};
    return elf.build();
}

struct FixedProvider : StackUsageProvider
{
    qint32 stackUsage(const ElfSymbol &symbol) override { return qint32(symbol.value()); }
};

TEST(ElfDwarfFile, AsksTheProviderWhereNoFrameKnows)
{
    TemporaryFolder folder;
    ElfDwarfFile file(folder.write("a.elf", programWithFrames()));
    file.load();
    ElfSymbol *described = file.elf().symbolNamed(u"described"_s), *other = file.elf().symbolNamed(u"other"_s);
    ASSERT_TRUE(described && other);
    EXPECT_EQ(file.stackUsage(*described), 8);
    EXPECT_EQ(file.stackUsage(*other), -1);
    FixedProvider provider;
    file.setStackUsageProvider(&provider);
    EXPECT_EQ(file.stackUsage(*described), 8);
    EXPECT_EQ(file.stackUsage(*other), 0x200);
    file.load(true, 0, {.ignoreFrames = true});
    EXPECT_EQ(file.dwarf().frames().stackUsage(0x100), -1);
}

TEST(ElfDwarfFiles, OpensOnceUntilTheFileChanges)
{
    TemporaryFolder folder;
    const QString path = folder.write("a.elf", programWithFrames());
    const auto touch = [&](int year) {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite));
        EXPECT_TRUE(file.setFileTime(QDateTime(QDate(year, 1, 1), QTime(0, 0)), QFileDevice::FileModificationTime));
    };
    touch(2020);
    ElfDwarfFiles files;
    ElfDwarfFile *bare = files.open(path, false);
    EXPECT_FALSE(bare->dwarf().frames().computeRegisters(0x100)) << "no symbols yet";
    ElfDwarfFile *file = files.open(path);
    EXPECT_EQ(file, bare);
    EXPECT_TRUE(file->dwarf().frames().computeRegisters(0x100));
    EXPECT_NE(files.open(path, true, 0x1000), file) << "another place is another file";
    EXPECT_NE(files.open(path, true, 0, {.ignoreAranges = true}), file);
    touch(2021);
    ElfDwarfFile *newer = files.open(path);
    EXPECT_NE(newer, file);
    EXPECT_TRUE(file->dwarf().frames().computeRegisters(0x100)) << "the older one stays while it is held";
    files.close(newer);
    files.close(file);
    EXPECT_TRUE(bare->dwarf().frames().computeRegisters(0x100)) << "opened twice, closed once";
    files.close(bare);
}

TEST(ElfDwarfLoadFileFactory, GivesTheProgramThatIsOpen)
{
    ElfBuilder elf;
    elf.type = ET_EXEC;
    elf.entry = 0x8001;
    elf.sections = {{".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x8000, "code"}};
    elf.segments = {{PT_LOAD, 0, 0x8000, 0x8000, 4, 4}};
    TemporaryFolder folder;
    const QString path = folder.write("a.hex", elf.build());
    ElfDwarfFiles files;
    ElfDwarfLoadFileFactory factory(files);
    EXPECT_EQ(factory.detectFileType(path), u"elf"_s) << "by its content";
    ElfDwarfFile *open = files.open(path);
    LoadFileInterface *file = factory.createLoadFile(path, u"elf"_s);
    ASSERT_EQ(file, open);
    EXPECT_TRUE(file->hasDebugInformation());
    EXPECT_TRUE(file->hasEntryPoint());
    EXPECT_EQ(file->entryPoint(), 0x8001u);
    ASSERT_EQ(file->sections().primary().size(), 1u);
    EXPECT_EQ(file->sections().primary()[0]->startAddress(), 0x8000u);
    files.close(open);
    EXPECT_EQ(file->sections().primarySize(), 4u) << "the loader still holds it";
    factory.destroyLoadFile(file);

    LoadFileInterface *image = factory.createLoadFile(path, u"bin"_s);
    EXPECT_FALSE(image->hasDebugInformation());
    factory.destroyLoadFile(image);
    EXPECT_EQ(factory.createLoadFile(path, u"what"_s), nullptr);
}

} // namespace
