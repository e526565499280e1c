#include "packages/archive/PackageArchive.h"

#include "base/ByteOrder.h"
#include "base/HException.h"
#include "packages/archive/PackageArchiveStreams.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QFileInfo>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

const QDateTime archiveTime = QDateTime::fromSecsSinceEpoch(1577934245);

template <typename Operation>
QString archiveError(const Operation &operation)
{
    try {
        operation();
    } catch (const HException &error) {
        return error.message();
    }
    return u"nothing was thrown"_s;
}

QByteArray number(quint64 value, quint32 size, bool bigEndian = false)
{
    QByteArray bytes(qsizetype(size), '\0');
    insertInteger(bytes.data(), 0, value, size, bigEndian);
    return bytes;
}

QByteArray patternBytes(qsizetype size)
{
    QByteArray bytes(size, '\0');
    quint32 state = 1;
    for (char &byte : bytes)
        byte = char((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

// A compressed version 2 archive whose decompressed stream is given.
QByteArray version2Archive(const QByteArray &plain)
{
    return number(0x71F5C6B1, 4) + number(2, 4) + qCompress(plain).sliced(4); // in front Qt puts the plain size
}

QByteArray version2Entry(const QByteArray &name, quint32 offset, quint32 size)
{
    return number(quint64(name.size()), 2) + number(offset, 4) + number(size, 4) + number(0644, 4) + number(0, 4) +
           name;
}

// One member of that name, with the content "x".
QByteArray archiveWithName(const QByteArray &name)
{
    return version2Archive(number(1, 4) + QByteArray(16, '\0') + version2Entry(name, quint32(38 + name.size()), 1) +
                           'x');
}

QByteArray plainArchive()
{
    const QByteArray name = QByteArray("old.txt").leftJustified(1024, '\0');
    return number(0x4152C3C8, 4) + number(1, 4) + name + number(1048, 4) + number(3, 4) + number(1, 4) + number(77, 4) +
           "old";
}

void addSample(PackageArchive &archive)
{
    archive.addData("first", archiveTime, 0644, u"a/first.txt"_s);
    archive.addData(patternBytes(3000000), archiveTime.addSecs(1), 0755, u"a/big"_s);
    archive.addData({}, archiveTime, 0444, u"empty"_s);
    archive.addData("<package/>", archiveTime, 0600, u"b/c/x_package.xml"_s);
}

struct Layout
{
    int version, compression, level;
};
const Layout layouts[] = {{1, 0, -1}, {2, 0, -1}, {2, 0, 0}, {2, 0, 12}, {2, 1, 0}, {2, 1, 12}};

TEST(PackageArchive, SavesAndLoadsInEveryLayout)
{
    const TemporaryFolder folder;
    for (const Layout &layout : layouts) {
        SCOPED_TRACE(testing::Message() << layout.version << ' ' << layout.compression << ' ' << layout.level);
        PackageArchive made;
        made.setVersion(layout.version);
        made.setCompression(layout.compression);
        addSample(made);
        made.save(folder.path("a"), layout.level);
        const PackageArchive archive(folder.path("a"));
        ASSERT_EQ(archive.fileCount(), 4);
        EXPECT_EQ(archive.version(), layout.version);
        EXPECT_EQ(archive.compression(), layout.compression);
        EXPECT_EQ(archive.readFile(u"empty"_s), QByteArray());
        EXPECT_EQ(archive.readFile(u"b/c/x_package.xml"_s), "<package/>"); // the last, then back to the second
        EXPECT_EQ(archive.readFile(u"a/big"_s), patternBytes(3000000));
        EXPECT_EQ(archive.file(1).time(), archiveTime.addSecs(1));
        EXPECT_EQ(archive.file(1).mode(), layout.version == 1 ? 0666u : 0755u);
        EXPECT_EQ(archive.file(2).mode(), 0444u);
        EXPECT_EQ(archive.packageDescription().name(), u"b/c/x_package.xml");
        archive.test();

        PackageArchive(QString()).save(folder.path("none"));
        EXPECT_EQ(PackageArchive(folder.path("none")).fileCount(), 0);
    }
}

TEST(PackageArchive, WritesTheBytesOfTheFormat)
{
    const TemporaryFolder folder;
    PackageArchive archive;
    archive.addData("abc", archiveTime, 0444, u"n"_s);
    archive.save(folder.path("one"));
    const QByteArray one = folder.read("one");
    EXPECT_EQ(one.first(12), number(0xB231F47A, 4) + number(1, 4) + number(1043 + 10 + 13, 4, true));
    const QByteArray plain = qUncompress(number(1051, 4, true) + one.sliced(12));
    EXPECT_EQ(plain, number(0x4152C3C8, 4) + number(1, 4) + QByteArray("n").leftJustified(1024, '\0') +
                         number(1048, 4) + number(3, 4) + number(1, 4) + number(1577934245, 4) + "abc");
    archive.setVersion(2);
    archive.save(folder.path("two"));
    const QByteArray two = folder.read("two");
    EXPECT_EQ(two.first(8), number(0x71F5C6B1, 4) + number(2, 4));
    EXPECT_EQ(qUncompress(number(42, 4, true) + two.sliced(8)), number(1, 4) + QByteArray(16, '\0') + number(1, 2) +
                                                                    number(39, 4) + number(3, 4) + number(0444, 4) +
                                                                    number(1577934245, 4) + "nabc");
    archive.setCompression(1);
    archive.save(folder.path("bz"));
    EXPECT_EQ(folder.read("bz").first(11), number(0x71F5C6B1, 4) + number(0x1002, 2) + number(0, 2) + "BZh");
}

TEST(PackageArchive, ReadsAnUncompressedTableBehindAPrefix)
{
    const TemporaryFolder folder;
    PackageArchive archive;
    archive.load(folder.write("a", "prefix" + plainArchive()), 6, true);
    EXPECT_TRUE(archive.isPlain());
    EXPECT_EQ(archive.readFile(u"old.txt"_s), "old");
    EXPECT_EQ(archive.find(u"old.txt"_s).mode(), 0444u);
    archive.test();
}

TEST(PackageArchive, HooksPutAPrefixInFront)
{
    class Prefixed : public PackageArchive
    {
        void writePrefix(FILE *stream) override { std::fputs("#!x\n", stream); }
        void skipPrefix(FILE *stream) override { std::fseek(stream, 4, SEEK_CUR); }
    };
    const TemporaryFolder folder;
    Prefixed archive;
    addSample(archive);
    archive.save(folder.path("a"));
    archive.load(folder.path("a"));
    EXPECT_EQ(archive.readFile(u"a/first.txt"_s), "first");
}

TEST(PackageArchive, LooksUpNamesAndPatterns)
{
    PackageArchive archive;
    addSample(archive);
    EXPECT_TRUE(archive.find(u"A/big"_s).isNull());
    EXPECT_EQ(archive.filesMatching(u"*a*"_s).size(), 3u);
    EXPECT_EQ(archive.findWildcard(u"?/[b]ig"_s).name(), u"a/big");
    EXPECT_TRUE(archive.findWildcard(u"big"_s).isNull());
    archive.addData("new", archiveTime, 0644, u"a/big"_s); // takes the place of the old one
    EXPECT_EQ(archive.readFile(archive.file(1)), "new");
    archive.remove(u"a/big"_s);
    archive.remove(u"a/big"_s);
    EXPECT_EQ(archive.fileCount(), 3);
    EXPECT_TRUE(archive.find(u"a/big"_s).isNull());
    EXPECT_EQ(archiveError([&] { archive.readFile(u"a/big"_s); }), u"cannot read file a/big from archive");
}

TEST(PackageArchive, GathersFromDiskAndFromTheLoadedArchive)
{
    const TemporaryFolder folder;
    const QString path = folder.path("a");
    PackageArchive archive;
    addSample(archive);
    archive.save(path);
    archive.load(path);
    archive.addFile(folder.write("disk", "from disk"), u"d"_s);
    archive.save(path); // over the file that it still reads from
    archive.load(path);
    EXPECT_EQ(archive.readFile(u"d"_s), "from disk");
    EXPECT_EQ(archive.readFile(u"a/big"_s), patternBytes(3000000));
    EXPECT_EQ(archiveError([&] { archive.addFile(folder.path("no"), u"n"_s); }), u"cannot read "_s + folder.path("no"));
    EXPECT_EQ(archiveError([&] { archive.addFile(folder.root(), u"n"_s); }), u"cannot read "_s + folder.root());
}

TEST(PackageArchive, AFailedSaveLeavesTheOldArchive)
{
    const TemporaryFolder folder;
    folder.write("out", "old");
    PackageArchive archive;
    archive.addFile(folder.write("disk", "12345"), u"d"_s);
    folder.write("disk", "123");
    EXPECT_EQ(archiveError([&] { archive.save(folder.path("out")); }),
              u"cannot read %1: its size has changed"_s.arg(folder.path("disk")));
    archive.setVersion(3);
    EXPECT_EQ(archiveError([&] { archive.save(folder.path("out")); }), u"unsupported package file version");
    EXPECT_EQ(folder.read("out"), "old");
    EXPECT_EQ(QDir(folder.root()).entryList(QDir::Files | QDir::Hidden).size(), 2);
    archive.setVersion(2);
    archive.setCompression(2);
    EXPECT_EQ(archiveError([&] { archive.save(folder.path("out")); }), u"unsupported compression algorithm");
    archive.setCompression(0);
    EXPECT_EQ(archiveError([&] { archive.save(folder.path("no/out")); }), u"cannot open output file");
    folder.write("disk", "12345");
    EXPECT_NE(archiveError([&] { archive.save(u"/dev/full"_s); }), u"nothing was thrown");
}

TEST(PackageArchive, NamesHaveALengthLimitInEachVersion)
{
    const TemporaryFolder folder;
    for (const auto &[version, most] : {std::pair(1, 1023), std::pair(2, 65535)}) {
        PackageArchive archive;
        archive.setVersion(version);
        archive.addData("x", archiveTime, 0644, QString(most, u'n'));
        archive.save(folder.path("a"));
        EXPECT_EQ(PackageArchive(folder.path("a")).file(0).name().size(), most);
        archive.addData("x", archiveTime, 0644, QString(most + 1, u'n'));
        EXPECT_EQ(archiveError([&] { archive.save(folder.path("a")); }), u"filename too long");
    }
}

TEST(PackageArchive, NamesThatAreNoUtf8ComeBackAsTheyWere)
{
    for (const QByteArray &bytes : {"plain"_ba, "gr\xC3\xBC\xC3\x9F"_ba, "gr\xFC\xDF.txt"_ba, "\xED\xB2\x80"_ba,
                                    "\xEF\xBB\xBF"_ba, "\xF0\x9F\x98\x80\x80"_ba, "\xF0\x9F"_ba, "a\0b"_ba, ""_ba})
        EXPECT_EQ(PackageArchive::nameToBytes(PackageArchive::nameFromBytes(bytes)), bytes);
    const TemporaryFolder folder;
    const PackageArchive archive(folder.write("a", archiveWithName("gr\xFC\xDF.txt")));
    archive.extractAll(folder.path("out"), false);
    EXPECT_EQ(::unlink((folder.path("out").toUtf8() + "/gr\xFC\xDF.txt").constData()), 0);
}

struct BadArchive
{
    const char *what;
    QByteArray bytes;
    const char *message;
};
const QByteArray zeros16(16, '\0');
const BadArchive badArchives[] = {
    {"empty", "", "unsupported package file format"},
    {"something else", "PK\3\4 and more", "unsupported package file format"},
    {"version 3", number(0x71F5C6B1, 4) + number(3, 4) + qCompress("").sliced(4), "unsupported package file format"},
    {"unknown compression", number(0x71F5C6B1, 4) + number(0x2002, 4), "unsupported compression algorithm"},
    {"wrong table magic", number(0xB231F47A, 4) + number(1, 4) + number(1, 4) + qCompress("12345678").sliced(4),
     "unsupported package file format"},
    {"no zlib stream", number(0x71F5C6B1, 4) + number(2, 4) + "nonsense", "error decompressing stream"},
    {"short head", version2Archive("123"), "bad header"},
    {"short table", version2Archive(number(2, 4) + zeros16 + version2Entry("a", 40, 0)), "bad table of contents"},
    {"short name", version2Archive(number(1, 4) + zeros16 + version2Entry("abc", 40, 0).chopped(1)),
     "bad table of contents"},
    {"count beyond the stream", version2Archive(number(0x00100000, 4) + zeros16), "bad table of contents"},
    {"count beyond all", version2Archive(number(0xFFFFFFFF, 4) + zeros16), "table of contents too large"},
    {"size beyond the stream", version2Archive(number(1, 4) + zeros16 + version2Entry("a", 39, 0x7FFFFFFF)),
     "bad table of contents"},
    {"plain, offset behind the end", plainArchive().replace(1032, 4, number(1049, 4)), "bad table of contents"},
    {"name without its end", plainArchive().replace(8, 1024, QByteArray(1024, 'n')), "bad table of contents"},
};

TEST(PackageArchive, RejectsBadArchives)
{
    const TemporaryFolder folder;
    PackageArchive archive;
    for (const BadArchive &row : badArchives) {
        const QString path = folder.write("a", row.bytes);
        EXPECT_EQ(archiveError([&] { archive.load(path); }), QString::fromLatin1(row.message)) << row.what;
        EXPECT_EQ(archive.fileCount(), 0) << row.what;
    }
    EXPECT_EQ(archiveError([&] { archive.load(folder.path("no")); }), folder.path("no") + u" does not exist"_s);
    EXPECT_EQ(archiveError([&] { archive.load(folder.root()); }), u"cannot open "_s + folder.root());
    archive.load(folder.write("a", plainArchive())); // still of use
    EXPECT_EQ(archive.fileCount(), 1);
}

// Cut anywhere, an archive gives an error and nothing is unpacked; it never hangs.
TEST(PackageArchive, UnpacksNothingOfACutOrDamagedArchive)
{
    const TemporaryFolder folder;
    for (const Layout &layout : {Layout{1, 0, 7}, Layout{2, 0, 7}, Layout{2, 1, 7}}) {
        PackageArchive made;
        made.setVersion(layout.version);
        made.setCompression(layout.compression);
        made.addData("one", archiveTime, 0644, u"one"_s);
        made.addData(patternBytes(500), archiveTime, 0644, u"two"_s);
        made.save(folder.path("good"));
        const QByteArray good = folder.read("good");
        const auto refused = [&](const QByteArray &bytes) {
            folder.write("bad", bytes);
            return archiveError([&] { PackageArchive(folder.path("bad")).test(); }) != u"nothing was thrown" &&
                   archiveError([&] { PackageArchive(folder.path("bad")).extractAll(folder.path("out"), false); }) !=
                       u"nothing was thrown" &&
                   !QFileInfo::exists(folder.path("out"));
        };
        for (qsizetype size = 0; size < good.size(); ++size)
            ASSERT_TRUE(refused(good.first(size))) << size << " of " << good.size();
        for (qsizetype i = 60; i < good.size(); i += 5) { // behind headers and, mostly, the table
            QByteArray bad = good;
            bad[i] = char(bad[i] ^ 0x10);
            if (!refused(bad)) { // a bit that means nothing: the code length of a symbol that doesn't occur
                EXPECT_EQ(PackageArchive(folder.path("bad")).readFile(u"two"_s), patternBytes(500)) << i;
                QDir(folder.path("out")).removeRecursively();
            }
        }
    }
    folder.write("bad", version2Archive(number(0, 4) + zeros16 + "tail"));
    EXPECT_EQ(archiveError([&] { PackageArchive(folder.path("bad")).test(); }), u"data behind the last file");
}

TEST(PackageArchive, RefusesToUnpackMoreThanTheLimit)
{
    const TemporaryFolder folder;
    PackageArchive archive;
    archive.addData(QByteArray(1000, '\0'), archiveTime, 0644, u"a"_s);
    archive.save(folder.path("a"));
    archive.load(folder.path("a"));
    archive.setUnpackLimit(1500);
    const QString message = u"archive would unpack to 2048 bytes, more than the limit of 1500"_s;
    EXPECT_EQ(archiveError([&] { archive.test(); }), message);
    EXPECT_EQ(archiveError([&] { archive.readFile(u"a"_s); }), message);
    EXPECT_EQ(archiveError([&] { archive.extractAll(folder.path("out"), false); }), message);
    EXPECT_FALSE(QFileInfo::exists(folder.path("out")));

    // Many members over the same bytes.
    QByteArray table = number(100, 4) + zeros16;
    for (int i = 0; i < 100; ++i)
        table += version2Entry(QByteArray::number(100 + i), 20 + 100 * 21, 1000);
    PackageArchive overlapping(folder.write("b", version2Archive(table + QByteArray(1000, 'x'))));
    overlapping.setUnpackLimit(50000);
    EXPECT_EQ(archiveError([&] { overlapping.extractAll(folder.path("out"), false); }),
              u"archive would unpack to 100000 bytes, more than the limit of 50000");
    EXPECT_FALSE(QFileInfo::exists(folder.path("out")));
}

TEST(PackageArchive, ExtractsWithModeAndTime)
{
    const TemporaryFolder folder;
    PackageArchive archive;
    archive.addData("s", archiveTime, 04755, u"./x//set"_s);
    addSample(archive);
    archive.setVersion(2);
    archive.save(folder.path("a"));
    archive.load(folder.path("a"));
    archive.extractAll(folder.path("out/deep"), false);
    struct stat status;
    ASSERT_EQ(::stat(folder.path("out/deep/a/big").toUtf8().constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u);
    EXPECT_EQ(status.st_mtime, archiveTime.toSecsSinceEpoch() + 1);
    EXPECT_EQ(folder.read("out/deep/a/big"), patternBytes(3000000));
    ASSERT_EQ(::stat(folder.path("out/deep/x/set").toUtf8().constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u); // without the right to be another user
    EXPECT_EQ(QDir(folder.path("out/deep")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList({u"a"_s, u"b"_s, u"empty"_s, u"x"_s}));

    EXPECT_EQ(archiveError([&] { archive.extractAll(folder.path("out/deep"), false); }),
              u"cannot overwrite file "_s + folder.path("out/deep/x/set"));
    folder.write("out/deep/a/big", "changed");
    PackageArchiveFile big = archive.find(u"a/big"_s);
    big.setMarked(true);
    archive.extractMarked(folder.path("out/deep"), true);
    EXPECT_EQ(folder.read("out/deep/a/big"), patternBytes(3000000));
    archive.extract(archive.find(u"a/first.txt"_s), folder.path("else/where"), false);
    EXPECT_EQ(folder.read("else/where"), "first");
    archive.extractTo(big, folder.path("else"), false);
    EXPECT_TRUE(QFileInfo::exists(folder.path("else/a/big")));
}

TEST(PackageArchive, RefusesNamesThatLeaveTheTargetFolder)
{
    const TemporaryFolder folder;
    QDir(folder.root()).mkpath(u"out/real"_s);
    QDir(folder.root()).mkpath(u"outside"_s);
    QFile::link(folder.path("outside"), folder.path("out/link"));
    QFile::link(folder.path("outside/file"), folder.path("out/dangling"));
    const struct
    {
        const char *name;
        QString message;
    } rows[] = {
        {"../x", u"file name leaves the target folder: ../x"_s},
        {"a/../../x", u"file name leaves the target folder: a/../../x"_s},
        {"/tmp/x", u"file name leaves the target folder: /tmp/x"_s},
        {"", u"invalid file name in archive: "_s},
        {"real/", u"invalid file name in archive: real/"_s},
        {"a/.", u"invalid file name in archive: a/."_s},
        {"link/x", u"file name leaves the target folder through a symbolic link: "_s + folder.path("out/link")},
        {"real", u"cannot create output file "_s + folder.path("out/real")},
    };
    for (const auto &row : rows) {
        const PackageArchive archive(folder.write("a", archiveWithName(row.name)));
        EXPECT_EQ(archiveError([&] { archive.extractAll(folder.path("out"), true); }), row.message);
        EXPECT_EQ(archiveError([&] { archive.extractTo(archive.file(0), folder.path("out"), true); }), row.message);
    }
    const PackageArchive nul(folder.write("a", archiveWithName("a\0b"_ba)));
    EXPECT_NE(archiveError([&] { nul.extractAll(folder.path("out"), true); }), u"nothing was thrown");
    const PackageArchive dangling(folder.write("a", archiveWithName("dangling")));
    EXPECT_EQ(archiveError([&] { dangling.extractAll(folder.path("out"), false); }),
              u"cannot overwrite file "_s + folder.path("out/dangling"));
    dangling.extractAll(folder.path("out"), true); // takes the link's place
    EXPECT_TRUE(QDir(folder.path("outside")).isEmpty());
    EXPECT_EQ(folder.read("out/dangling"), "x");

    PackageArchive clash;
    clash.addData("1", archiveTime, 0644, u"n"_s);
    clash.addData("2", archiveTime, 0644, u"n/m"_s);
    EXPECT_EQ(archiveError([&] { clash.extractAll(folder.path("new"), true); }),
              u"cannot create output file "_s + folder.path("new/n"));
    EXPECT_FALSE(QFileInfo::exists(folder.path("new")));
}

TEST(PackageArchive, ACancelledOperationLeavesNothing)
{
    const TemporaryFolder folder;
    PackageArchive archive;
    addSample(archive);
    archive.setProgress([](quint64 done, quint64 total) {
        if (done > total / 2)
            throw StudioCancelException();
    });
    EXPECT_THROW(archive.extractAll(folder.path("out"), false), StudioCancelException);
    EXPECT_THROW(archive.save(folder.path("a")), StudioCancelException);
    EXPECT_TRUE(QDir(folder.root()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}

TEST(vnPack, MakesListsReadsAndExtracts)
{
    const TemporaryFolder folder;
    QDir(folder.root()).mkpath(u"tree/sub"_s);
    folder.write("tree/b.txt", "bee");
    folder.write("tree/sub/a.txt", "ay");
    const QString file = folder.path("p.vnPackage"), tree = folder.path("tree");
    const auto pack = [](const QStringList &arguments) { return runProgram(u"vnPack"_s, arguments); };
    ASSERT_EQ(pack({u"create"_s, file, tree, u"--prefix"_s, u"pre"_s, u"--compression"_s, u"bzip2"_s}).status, 0);
    const QString member = u"pre"_s + tree + u"/b.txt"_s;
    EXPECT_EQ(pack({u"cat"_s, file, u"*/a.txt"_s, member}).out, "aybee");
    EXPECT_EQ(pack({u"test"_s, file}).out, file.toUtf8() + ": 2 files, 5 bytes, good\n");
    const ProgramResult json = pack({u"list"_s, file, u"--json"_s, member, u"no"_s});
    EXPECT_EQ(json.status, 1);
    EXPECT_TRUE(json.error.endsWith("no member 'no'\n"));
    EXPECT_TRUE(json.out.startsWith("{\n \"file\": \"" + file.toUtf8() +
                                    "\",\n \"version\": 2,\n \"compression\": \"bzip2\","));
    EXPECT_TRUE(json.out.contains("\"mode\": \"0644\""));
    EXPECT_EQ(pack({u"extract"_s, file, u"--into"_s, folder.path("out"), u"pre"_s}).status, 0);
    EXPECT_EQ(folder.read(("out/pre" + tree.toUtf8() + "/sub/a.txt").constData()), "ay");
    EXPECT_EQ(pack({u"extract"_s, file, u"--into"_s, folder.path("out")}).status, 1);
    EXPECT_EQ(pack({u"create"_s, file, tree, u"--format"_s, u"3"_s}).status, 2);
    EXPECT_EQ(pack({u"create"_s, file, folder.path("none")}).status, 1);
    EXPECT_EQ(pack({u"create"_s, file, file}).error, "vnPack: " + file.toUtf8() + " is to be the archive itself\n");
    EXPECT_EQ(pack({u"list"_s, file}).status, 0); // the failed ones left it alone
}

} // namespace
