#include "elf/ElfArchive.h"

#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"

#include <random>

using namespace Qt::StringLiterals;

namespace {

QByteArray objectDefining(const QByteArray &symbol)
{
    ElfBuilder elf;
    elf.sections = {{".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0, "\x70\x47"}};
    elf.symbols = {{symbol, 1, ELF32_ST_INFO(STB_GLOBAL, STT_FUNC), 1, 2}};
    return elf.build();
}

QString archiveError(const QByteArray &bytes)
{
    try {
        ElfArchive archive;
        archive.parse(ByteImage::fromBytes(bytes));
    } catch (const HException &error) {
        return error.message();
    }
    return u"none"_s;
}

TEST(ElfArchive, FindsTheMemberThatTheIndexNames)
{
    const QByteArray object = objectDefining("one"), other = objectDefining("two");
    ElfArchive archive;
    archive.parse(ByteImage::fromBytes(buildArchive({{"a.o", object, {"one", "both"}},
                                                     {"a_name_of_more_than_sixteen.o", other, {"two", "both"}},
                                                     {"a.o", objectDefining("three"), {"three"}},
                                                     {"readme.txt", "odd", {"text"}}})));
    QByteArrayView name;
    ElfFile *one = archive.memberDefining("one", &name);
    ASSERT_TRUE(one);
    EXPECT_EQ(name, "a.o");
    EXPECT_TRUE(one->symbolNamed(u"one"_s));
    EXPECT_EQ(archive.memberDefining("both"), one) << "the first entry of a name stays";
    ElfFile *two = archive.memberDefining("two", &name);
    ASSERT_TRUE(two);
    EXPECT_EQ(name, "a_name_of_more_than_sixteen.o");
    ASSERT_TRUE(archive.memberDefining("three", &name));
    EXPECT_NE(archive.memberDefining("three"), one) << "two members of one name";
    EXPECT_FALSE(archive.memberDefining("text")) << "no ELF";
    EXPECT_FALSE(archive.memberDefining("four"));
}

TEST(ElfArchive, ReadsArchivesWithoutIndexAndInBsdForm)
{
    const QByteArray object = objectDefining("one");
    EXPECT_EQ(archiveError(buildArchive({{"a.o", object, {}}}, false)), u"none"_s);
    EXPECT_EQ(archiveError("!<arch>\n"), u"none"_s);
    const QByteArray bsdName("name.o\0\0", 8);
    EXPECT_EQ(archiveError("!<arch>\n" + archiveHeader("#1/8", object.size() + 8) + bsdName + object), u"none"_s);
    EXPECT_EQ(archiveError("!<arch>\n" + archiveHeader("#1/9999", 8) + bsdName), u"truncated archive file"_s);
    EXPECT_TRUE(ElfArchive::isThinArchive(std::span(reinterpret_cast<const quint8 *>("!<thin>\n"), 8)));
}

TEST(ElfArchive, RefusesBrokenArchives)
{
    const QByteArray good = buildArchive({{"a_name_of_more_than_sixteen.o", objectDefining("one"), {"one"}}});
    struct Row
    {
        const char *what;
        QByteArray bytes;
        const char16_t *message;
    };
    const Row rows[] = {
        {"long name behind the table", QByteArray(good).replace("/0   ", "/99  "),
         u"invalid long names table offset 99"},
        {"no table", "!<arch>\n" + archiveHeader("/0", 1) + "x", u"invalid long names table offset 0"},
        {"name without its end", "!<arch>\n" + archiveHeader("name", 1) + "x", u"invalid archive file name"},
        {"member past the end", "!<arch>\n" + archiveHeader("a.o/", 99) + "x", u"truncated archive file"},
        {"index of 4,294,967,295 symbols", "!<arch>\n" + archiveHeader("/", 4) + "\xff\xff\xff\xff",
         u"truncated archive file"},
        {"a member of 64 bits", buildArchive({{"a.o", objectDefining("x").replace(4, 1, "\2"), {}}}),
         u"64-bit ELF file, only 32-bit ones can be read: "},
    };
    for (const Row &row : rows)
        EXPECT_EQ(archiveError(row.bytes), row.message) << row.what;
    std::mt19937 random(2);
    for (int round = 0; round < 3000; ++round) {
        QByteArray damaged = good.first(qsizetype(random() % size_t(good.size() + 1)));
        for (int i = 0; i < 3 && !damaged.isEmpty(); ++i)
            damaged[qsizetype(random() % size_t(damaged.size()))] = char(random());
        archiveError(damaged);
    }
}

} // namespace
