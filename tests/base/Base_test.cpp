#include "base/ByteCursor.h"
#include "base/ByteImage.h"
#include "base/Crc32.h"
#include "base/Directories.h"
#include "base/HException.h"
#include "base/IntegerReader.h"
#include "base/JsonWriter.h"
#include "base/Log.h"
#include "base/Pattern.h"
#include "base/SafeFile.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QFileInfo>
#include <csignal>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

std::span<const quint8> asBytes(QByteArrayView bytes)
{
    return {reinterpret_cast<const quint8 *>(bytes.data()), size_t(bytes.size())};
}

TEST(ByteOrder, EverySizeReadsBackInBothOrders)
{
    for (const bool bigEndian : {false, true}) {
        for (quint32 size = 1; size <= 8; ++size) {
            quint8 bytes[12];
            std::fill(std::begin(bytes), std::end(bytes), quint8(0xEE));
            const quint64 value = 0x0123456789ABCDEF >> (64 - 8 * size);
            insertInteger(bytes, 2, value, size, bigEndian);
            EXPECT_EQ(extractInteger(bytes, 2, size, bigEndian), value);
            EXPECT_EQ(bytes[bigEndian ? 2 + size - 1 : 2], quint8(value)) << "the low byte's place, size " << size;
            EXPECT_EQ(bytes[1], 0xEE);
            EXPECT_EQ(bytes[2 + size], 0xEE);
        }
    }
}

TEST(ByteCursor, StaysInItsRangeAndFailsForGood)
{
    const QByteArray bytes = QByteArray::fromHex("01020304050607");
    ByteCursor cursor(asBytes(bytes), false);
    EXPECT_EQ(cursor.readU16(), 0x0201);
    EXPECT_EQ(cursor.readU32(), 0x06050403u);
    EXPECT_EQ(cursor.readU16(), 0);
    EXPECT_TRUE(cursor.failed());
    EXPECT_EQ(cursor.offset(), 6);
    EXPECT_EQ(cursor.readU8(), 0) << "a byte is left, but a failed cursor gives no more";
    EXPECT_TRUE(cursor.atEnd());
    EXPECT_TRUE(cursor.readBytes(0).empty());
}

TEST(ByteCursor, TakesRecordsByTheirLength)
{
    const QByteArray bytes = QByteArray::fromHex("0002AABB0099");
    ByteCursor section(asBytes(bytes), true);
    ByteCursor record = section.take(section.readU16());
    EXPECT_EQ(record.offset(), 2) << "offsets count from the section";
    EXPECT_EQ(record.readU16(), 0xAABB);
    EXPECT_TRUE(record.atEnd());
    EXPECT_FALSE(record.failed());
    EXPECT_EQ(section.offset(), 4);
    EXPECT_TRUE(section.take(section.readU16()).failed()) << "0x99 bytes aren't there";
    EXPECT_TRUE(section.failed());
}

TEST(ByteCursor, ReadsLeb128)
{
    struct Row
    {
        const char *hex;
        quint64 asUnsigned;
        qint64 asSigned;
    };
    const Row rows[] = {
        {"00", 0, 0},
        {"7f", 127, -1},
        {"8001", 128, 128},
        {"ff00", 127, 127},
        {"807f", 16256, -128},
        {"ffffffffffffffffff01", ~quint64(0), -1},
        {"80808080808080808000", 0, 0},
        {"8080808080808080808080808001", 0, 0}, // bits beyond the 64th are dropped
    };
    for (const Row &row : rows) {
        const QByteArray bytes = QByteArray::fromHex(row.hex);
        ByteCursor cursor(asBytes(bytes), false);
        EXPECT_EQ(cursor.readUleb128(), row.asUnsigned) << row.hex;
        EXPECT_TRUE(cursor.atEnd());
        cursor.seek(0);
        EXPECT_EQ(cursor.readSleb128(), row.asSigned) << row.hex;
        EXPECT_FALSE(cursor.failed());
    }
    ByteCursor cut(asBytes(QByteArrayView("\x80\x80")), false);
    EXPECT_EQ(cut.readUleb128(), 0u);
    EXPECT_TRUE(cut.failed());
}

TEST(ByteCursor, ReadsStringsAndSeeks)
{
    const QByteArray bytes("ab\0\0cd", 6);
    ByteCursor cursor(asBytes(bytes), false);
    EXPECT_EQ(cursor.readString(), QByteArrayView("ab"));
    EXPECT_EQ(cursor.readString(), QByteArrayView(""));
    EXPECT_TRUE(cursor.readString().isEmpty());
    EXPECT_TRUE(cursor.failed()) << "no NUL behind cd";
    ByteCursor other(asBytes(bytes), false);
    other.seek(6);
    EXPECT_FALSE(other.failed());
    other.seek(7);
    EXPECT_TRUE(other.failed());
    EXPECT_EQ(ByteCursor().readU64(), 0u);
}

TEST(IntegerReader, FollowsThePrefixes)
{
    struct Row
    {
        const char *text;
        quint64 value;
    };
    const Row rows[] = {
        {"12", 12},
        {"  -1", ~quint64(0)},
        {"+7", 7},
        {"0x1F", 31},
        {"0xfFuL", 255},
        {"0b101", 5},
        {"017", 15},
        {"09", 9},
        {"0x", 0},
        {"", 0},
        {"U", 0},
        {"0xU", 0},
        {"10L", 10},
        {"a", 10},
        {"-0x10", quint64(-16)},
        {"0xFFFFFFFFFFFFFFFF", ~quint64(0)},
        {"12 34", 12},
        {"0", 0},
        {"-", 0},
    };
    for (const Row &row : rows)
        EXPECT_EQ(readInteger(QString::fromLatin1(row.text)), row.value) << row.text;
}

TEST(Crc32, GivesTheCheckValueForEveryLengthAndSplit)
{
    EXPECT_EQ(crc32Bzip2(asBytes("123456789")), 0xFC891918u); // the CRC catalogue's check value
    EXPECT_EQ(crc32Bzip2({}), 0u);
    const QByteArrayView text("a longer text than one stride");
    for (qsizetype cut = 0; cut <= text.size(); ++cut) {
        const quint32 head = crc32Bzip2Update(0xFFFFFFFF, asBytes(text.first(cut)));
        EXPECT_EQ(~crc32Bzip2Update(head, asBytes(text.sliced(cut))), crc32Bzip2(asBytes(text)));
    }
}

TEST(Pattern, WildcardsMatchWholeNames)
{
    struct Row
    {
        const char *pattern, *text;
        bool matches;
    };
    const Row rows[] = {
        {"*.c", "src/main.c", true},  {"*.c", "main.cpp", false},     {"m?in.c", "main.c", true},
        {"[a-m]*.h", "base.h", true}, {"[^a-m]*.h", "base.h", false}, {"a.c", "abc", false},
        {"a(b)+$", "a(b)+$", true},   {"[\\]x", "\\x", true},         {"[", "[", false},
        {"*", "a\nb", true},          {"A*", "abc", false},           {"", "", true},
    };
    for (const Row &row : rows)
        EXPECT_EQ(matchesWholly(wildcardPattern(QString::fromLatin1(row.pattern)), QString::fromLatin1(row.text)),
                  row.matches)
            << row.pattern;
    EXPECT_TRUE(matchesWholly(wildcardPattern(u"A*"_s, Qt::CaseInsensitive), u"abc"_s));
    EXPECT_EQ(literalPattern(u"a.*"_s).match(u"xa.*"_s).capturedStart(), 1);
    EXPECT_FALSE(literalPattern(u"a.*"_s).match(u"abc"_s).hasMatch());
}

// The definition, one character after the other.
bool globMatches(QStringView pattern, QStringView text)
{
    if (pattern.isEmpty())
        return text.isEmpty();
    if (pattern.front() == u'*')
        return globMatches(pattern.sliced(1), text) || (!text.isEmpty() && globMatches(pattern, text.sliced(1)));
    return !text.isEmpty() && (pattern.front() == u'?' || pattern.front() == text.front()) &&
           globMatches(pattern.sliced(1), text.sliced(1));
}

TEST(Pattern, StarsTakeWhatTheyMustInReasonableTime)
{
    std::minstd_rand random(1);
    const auto text = [&](QStringView letters, int longest) {
        QString made;
        for (int left = int(random()) % (longest + 1); left > 0; --left)
            made += letters[qsizetype(random() % quint32(letters.size()))];
        return made;
    };
    for (int i = 0; i < 5000; ++i) {
        const QString pattern = text(u"ab*?", 7), name = text(u"ab", 9);
        EXPECT_EQ(matchesWholly(wildcardPattern(pattern), name), globMatches(pattern, name))
            << pattern.toStdString() << " on " << name.toStdString();
    }
    const QString hard = u"*a"_s.repeated(40) + u"*[bc]"_s;
    EXPECT_FALSE(matchesWholly(wildcardPattern(hard), u"a"_s.repeated(5000)));
    EXPECT_TRUE(wildcardPattern(hard).match(u"a"_s.repeated(5000) + u"cd"_s).hasMatch()) << "within the regex limits";
}

TEST(SafeFile, KeepsTheOldFileUntilCommitAndItsPermissionsAndOwner)
{
    const TemporaryFolder folder;
    const QString path = folder.write("file", "old");
    const bool isRoot = ::chown(QFile::encodeName(path).constData(), 2, 3) == 0;
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    {
        SafeFile dropped(path);
        ASSERT_TRUE(dropped.open());
        dropped.write("half");
    }
    EXPECT_EQ(folder.read("file"), "old");
    writeFileSafely(path, "new");
    EXPECT_EQ(folder.read("file"), "new");
    EXPECT_TRUE(QFileInfo(path).isExecutable());
    EXPECT_EQ(QFileInfo(path).ownerId(), isRoot ? 2 : ::geteuid());
    EXPECT_EQ(QFileInfo(path).groupId(), isRoot ? 3 : ::getegid());
    EXPECT_THROW(writeFileSafely(folder.path("missing/file"), "x"), HException);
    EXPECT_THROW(writeFileSafely(folder.root(), "x"), HException);
}

TEST(SafeFile, WritesDevicesInPlace)
{
    writeFileSafely(u"/dev/null"_s, "x");
    EXPECT_FALSE(QFileInfo(u"/dev/null"_s).isFile()) << "the device has been replaced by a file";
    EXPECT_THROW(writeFileSafely(u"/dev/full"_s, "x"), HException);
    // A descriptor's name that leads to a regular file adds to that file.
    const TemporaryFolder folder;
    QFile file(folder.write("out", "before "));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite | QIODevice::Append));
    writeFileSafely(u"/dev/fd/%1"_s.arg(file.handle()), "after");
    EXPECT_EQ(folder.read("out"), "before after");
}

TEST(SafeFile, ZerosAndStandardOutput)
{
    const TemporaryFolder folder;
    SafeFile file(folder.path("file"));
    ASSERT_TRUE(file.open() && file.write("a") && file.writeZeros(100000) && file.write("z") && file.commit());
    EXPECT_EQ(folder.read("file"), 'a' + QByteArray(100000, '\0') + 'z');

    testing::internal::CaptureStdout();
    SafeFile output(u"-"_s);
    EXPECT_TRUE(output.open() && output.write("a") && output.writeZeros(70000) && output.write("z") && output.commit());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a" + std::string(70000, '\0') + "z");
    EXPECT_FALSE(QFile::exists(u"-"_s));
}

// As a full disk, a limit takes a part of the bytes first.
TEST(SafeFile, TellsWhyItCanGoNoFurther)
{
    const TemporaryFolder folder;
    folder.write("file", "old");
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit narrow = {50'000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &narrow);
    for (const qsizetype piece : {100'000, 1'000}) { // at once, and through the file's buffer
        SafeFile file(folder.path("file"));
        EXPECT_TRUE(file.open());
        bool ok = true;
        for (qsizetype written = 0; ok && written < 100'000; written += piece)
            ok = file.write(QByteArray(piece, 'x'));
        EXPECT_FALSE(ok && file.commit());
        EXPECT_EQ(file.errorString(), u"File too large"_s) << piece;
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(folder.read("file"), "old");
}

TEST(ByteImage, MapsPrivately)
{
    const TemporaryFolder folder;
    const QString path = folder.write("file", "content");
    ByteImage image = ByteImage::load(path);
    ASSERT_EQ(image.size(), 7u);
    image.data()[0] = 'C';
    ByteImage moved = std::move(image);
    EXPECT_EQ(moved.data()[0], 'C');
    EXPECT_EQ(folder.read("file"), "content");
    EXPECT_EQ(ByteImage::load(folder.write("empty", "")).size(), 0u);
    EXPECT_GT(ByteImage::load(u"/proc/self/status"_s).size(), 0u);
    EXPECT_THROW(ByteImage::load(folder.root()), HException);
    EXPECT_THROW(ByteImage::load(folder.path("missing")), HException);
}

TEST(JsonWriter, KeepsOrderAndEscapes)
{
    JsonWriter json;
    json.beginObject();
    json.field("name", u"a\"b\\\n\x1f\u00e9");
    json.addressField("address", 0x8010);
    json.beginArray("lines");
    json.value(1);
    json.value(u"x");
    json.end();
    json.beginArray("none");
    json.end();
    json.nullField("file");
    json.field("found", true);
    json.field("tenth", 0.1);
    json.field("huge", std::numeric_limits<double>::infinity());
    json.end();
    EXPECT_EQ(json.text(), "{\n \"name\": \"a\\\"b\\\\\\n\\u001f\xc3\xa9\",\n \"address\": \"0x00008010\",\n"
                           " \"lines\": [\n  1,\n  \"x\"\n ],\n \"none\": [],\n \"file\": null,\n \"found\": true,\n "
                           "\"tenth\": 0.1,\n \"huge\": null\n}\n");
}

TEST(Directories, FollowTheEnvironment)
{
    EXPECT_EQ(installationDirectory(),
              QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget().section(u'/', 0, -3));
    const QByteArray names[] = {"VELDANE_USER_DIR", "XDG_DATA_HOME"};
    const QByteArray saved[] = {qgetenv(names[0]), qgetenv(names[1])};
    const auto dataWith = [&](const char *own, const char *xdg) {
        qputenv(names[0], own);
        qputenv(names[1], xdg);
        return userDirectory(UserFiles::Data);
    };
    EXPECT_EQ(dataWith("/own/", "/xdg"), u"/own"_s);
    EXPECT_EQ(dataWith("", "/xdg/"), u"/xdg/veldane"_s);
    EXPECT_EQ(dataWith("", "relative"), QDir::home().filePath(u".local/share/veldane"_s));
    for (int i : {0, 1})
        saved[i].isNull() ? qunsetenv(names[i]) : qputenv(names[i], saved[i]);
}

QByteArray logged;

TEST(Log, TheMaskGatesMessagesAndTheirLengthIsBounded)
{
    setLogSink([](const char *category, const char *text) { logged += QByteArray(category) + '|' + text; });
    setLogMask(logErrors);
    logMessage(logErrors, "error", 1, "%s %d", "line", 3);
    logMessage(logWarnings, "warning", 1, "silent");
    EXPECT_EQ(logged, "error|line 3\n");
    logged.clear();
    logMessage(logErrors, "e", 0, "%s", QByteArray(70000, 'x').constData());
    EXPECT_EQ(logged.size(), 2 + 65536);
    for (int length : {1022, 1023, 1024, 1025, 65535, 65536}) { // around the sizes of the buffers
        logged.clear();
        logMessage(logErrors, "e", 1, "%s", QByteArray(length, 'x').constData());
        EXPECT_EQ(logged, "e|" + QByteArray(length, 'x') + '\n');
    }
    setLogMask(0xFFFFFFFF);
    setLogSink(nullptr);
}

} // namespace
