#include "xml/settings/LockFile.h"
#include "xml/settings/Settings.h"

#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QFileInfo>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QByteArray fileStart = "<!DOCTYPE Tormont_Settings_File>\n<settings>\n";

QByteArray oneEntry(const QByteArray &name, const QByteArray &value)
{
    return fileStart + "  <setting name=\"" + name + "\">" + value + "</setting>\n</settings>\n";
}

Settings settingsOf(const QString &path)
{
    Settings settings;
    settings.setFile(path);
    return settings;
}

// A folder in memory, where there is one: hundreds of saves that wait for a disk shared with other work take minutes.
std::unique_ptr<QTemporaryDir> quickFolder()
{
    auto folder = std::make_unique<QTemporaryDir>(u"/dev/shm/settings-XXXXXX"_s);
    return folder->isValid() ? std::move(folder) : std::make_unique<QTemporaryDir>();
}

// Runs `work` in a process of its own, which ends without the test's clean-up, and soon if it hangs.
pid_t runInChild(const std::function<void()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(300);
        work();
        _exit(0);
    }
    return child;
}

int exitStatus(pid_t child)
{
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

QStringList keysIn(const QString &path)
{
    SettingsMap map;
    EXPECT_TRUE(readSettingsFile(path, map));
    return map.keys();
}

} // namespace

TEST(SettingsFile, HasItsForm)
{
    const TemporaryFolder folder;
    const QString path = folder.path("new/folder/settings.xml");
    SettingsMap map;
    map[u"B/b"_s] = {SettingsEntry::AsRead, u"&>A<\"'\u00B7\u00E9"_s};
    map[u"A"_s] = {SettingsEntry::Changed, {}};
    map[u"C"_s] = {SettingsEntry::Removed, u"x"_s};
    ASSERT_TRUE(writeSettingsFile(path, map));
    EXPECT_EQ(folder.read("new/folder/settings.xml"),
              fileStart +
                  "  <setting name=\"A\"></setting>\n"
                  "  <setting name=\"B/b\">&amp;&gt;A&lt;&quot;&apos;&middot;\xC3\xA9</setting>\n</settings>\n");
    EXPECT_TRUE(QFile::exists(path + u".lck"_s));
    EXPECT_FALSE(QFile::exists(path + u".new"_s));
    EXPECT_FALSE(QFile::exists(path + u".bak"_s));
}

TEST(SettingsFile, ValuesSurviveARoundTrip)
{
    const TemporaryFolder folder;
    const QString path = folder.path("settings.xml");
    const QString values[] = {u"a < b && c"_s, u"&lt;"_s, u"&middot;"_s,   u"\u00B7\u00A0"_s, u" \t\n "_s,
                              u"\r\n"_s,       u"]]>"_s,  u"\U0001F600"_s, u"<!-- -->"_s};
    SettingsMap written, read;
    for (const QString &value : values)
        written.insert(u"key & \"%1\""_s.arg(written.size()), {SettingsEntry::Changed, value});
    ASSERT_TRUE(writeSettingsFile(path, written));
    ASSERT_TRUE(readSettingsFile(path, read));
    for (auto entry = written.cbegin(); entry != written.cend(); ++entry)
        EXPECT_EQ(read.value(entry.key()).value, entry->value);
    EXPECT_EQ(read.size(), written.size());

    written = {{u"controls"_s, {SettingsEntry::Changed, u"a\u0001\uFFFF"_s + QChar(0xD800) + u'b'}}};
    ASSERT_TRUE(writeSettingsFile(path, written));
    ASSERT_TRUE(readSettingsFile(path, read)) << "characters that no XML file can hold are left out";
    EXPECT_EQ(read.first().value, u"ab"_s);
}

TEST(SettingsFile, ReadsWhatOthersWrote)
{
    const TemporaryFolder folder;
    SettingsMap map;
    ASSERT_TRUE(
        readSettingsFile(folder.write("a.xml", "<?xml version='1.0'?>\r\n<!-- c --><settings><other name='x'>1</other>"
                                               "<setting>no name</setting><setting name=''>2</setting>"
                                               "<setting name='a'>&nbsp;&#65;</setting><setting name='b'/>"
                                               "<setting name='a'>last<i>!</i></setting></settings>"),
                         map));
    EXPECT_EQ(map.keys(), QStringList({u"a"_s, u"b"_s}));
    EXPECT_EQ(map.first().value, u"last"_s);
}

TEST(SettingsFile, LeavesTheMapWhenItCannotRead)
{
    const TemporaryFolder folder;
    const QByteArray good = oneEntry("a", "1 &amp; 2");
    SettingsMap map = {{u"kept"_s, {}}};
    EXPECT_FALSE(readSettingsFile(folder.path("none.xml"), map));
    EXPECT_FALSE(QFile::exists(folder.path("none.xml.lck")));
    for (qsizetype size = 0; size < good.size() - 1; ++size)
        EXPECT_FALSE(readSettingsFile(folder.write("cut.xml", good.first(size)), map)) << size;
    EXPECT_FALSE(readSettingsFile(folder.write("other.xml", "<project><setting name='a'>b</setting></project>"), map));
    EXPECT_FALSE(readSettingsFile(folder.write("entity.xml", oneEntry("a", "&unknown;")), map));
    EXPECT_EQ(map.firstKey(), u"kept"_s);
    EXPECT_TRUE(readSettingsFile(folder.write("good.xml", good), map));
}

TEST(SettingsFile, KeepsTheStateBefore)
{
    const TemporaryFolder folder;
    const QString path = folder.write("settings.xml", "no settings");
    chmod(QFile::encodeName(path).constData(), 0600);
    Settings settings = settingsOf(path);
    EXPECT_FALSE(settings.read());
    settings.set(u"a"_s, u"1"_s);
    ASSERT_TRUE(settings.save()) << "a corrupt file is replaced";
    EXPECT_EQ(folder.read("settings.xml.bak"), "no settings");
    settings.set(u"a"_s, u"2"_s);
    ASSERT_TRUE(settings.save());
    EXPECT_EQ(folder.read("settings.xml.bak"), oneEntry("a", "1"));
    EXPECT_EQ(folder.read("settings.xml"), oneEntry("a", "2"));
    EXPECT_EQ(int(QFile::permissions(path) & (QFile::ReadGroup | QFile::ReadOther)), 0);

    // Only the copies are left: the defaults apply, and the next save starts anew.
    QFile::rename(path, path + u".new"_s);
    EXPECT_FALSE(settingsOf(path).read());
    settings.clear();
    EXPECT_FALSE(QFile::exists(path + u".bak"_s));
    EXPECT_FALSE(settings.contains(u"a"_s));
}

TEST(SettingsFile, FollowsASymbolicLink)
{
    const TemporaryFolder folder;
    const QString target = folder.write("real.xml", oneEntry("a", "1"));
    QFile::link(target, folder.path("settings.xml"));
    Settings settings = settingsOf(folder.path("settings.xml"));
    ASSERT_TRUE(settings.read());
    settings.set(u"a"_s, u"2"_s);
    ASSERT_TRUE(settings.save());
    EXPECT_TRUE(QFileInfo(settings.file()).isSymLink());
    EXPECT_EQ(folder.read("real.xml"), oneEntry("a", "2"));
}

TEST(Settings, MergesWhatAnotherInstanceSaved)
{
    const TemporaryFolder folder;
    const QString path = folder.path("settings.xml");
    Settings first = settingsOf(path);
    for (const char16_t *key : {u"both", u"here", u"gone", u"there"})
        first.set(QString::fromUtf16(key), u"0"_s);
    ASSERT_TRUE(first.save());
    Settings second = settingsOf(path);
    ASSERT_TRUE(second.read());

    second.set(u"added"_s, u"2"_s);
    second.set(u"both"_s, u"2"_s);
    second.remove(u"there"_s);
    ASSERT_TRUE(second.save());
    first.set(u"both"_s, u"1"_s);
    first.set(u"here"_s, u"1"_s);
    first.remove(u"gone"_s);
    first.remove(u"never there"_s);
    EXPECT_FALSE(first.contains(u"gone"_s));
    EXPECT_EQ(first.value(u"gone"_s, u"none"_s), u"none"_s);
    ASSERT_TRUE(first.save());
    EXPECT_EQ(keysIn(path), QStringList({u"added"_s, u"both"_s, u"here"_s}));
    EXPECT_EQ(first.value(u"both"_s), u"1"_s);
    EXPECT_EQ(first.value(u"added"_s), u"2"_s);
    EXPECT_EQ(first.entries().value(u"both"_s).state, int(SettingsEntry::AsRead));

    EXPECT_FALSE(second.isDirty());
    ASSERT_TRUE(second.save()) << "without changes here it reads the file again";
    EXPECT_EQ(second.value(u"both"_s), u"1"_s);
    EXPECT_FALSE(second.contains(u"gone"_s));
}

TEST(Settings, ChangesWaitForTheLock)
{
    const TemporaryFolder folder;
    const QString path = folder.path("settings.xml");
    int held[2], done[2];
    ASSERT_EQ(pipe(held) | pipe(done), 0);
    const pid_t child = runInChild([&] {
        QTx::LockFile lock(path + u".lck"_s);
        char byte = lock.lock();
        if (write(held[1], &byte, 1) != 1 || read(done[0], &byte, 1) != 1)
            _exit(1);
    });
    char byte = 0;
    ASSERT_EQ(read(held[0], &byte, 1), 1);
    ASSERT_EQ(byte, 1);
    EXPECT_FALSE(QTx::LockFile(path + u".lck"_s).lock(0));
    Settings settings = settingsOf(path);
    settings.set(u"a"_s, u"1"_s);
    EXPECT_FALSE(settings.save());
    EXPECT_TRUE(settings.isDirty());
    EXPECT_EQ(settings.value(u"a"_s), u"1"_s);
    ASSERT_EQ(write(done[1], &byte, 1), 1);
    EXPECT_EQ(exitStatus(child), 0);
    EXPECT_TRUE(settings.save());
    EXPECT_EQ(folder.read("settings.xml"), oneEntry("a", "1"));
    for (const int end : {held[0], held[1], done[0], done[1]})
        close(end);

    settings.setFile(folder.write("file", "") + u"/settings.xml"_s);
    EXPECT_FALSE(settings.save()) << "a folder that can't be made";
}

// Each process adds and removes keys of its own; in the end all are as their owner left them.
// $VN_HAMMER_SECONDS makes it last longer than its 100 rounds.
TEST(Settings, TwoProcessesLoseNoKey)
{
    const auto folder = quickFolder();
    const QString path = folder->filePath(u"settings.xml"_s);
    const time_t end = time(nullptr) + qEnvironmentVariableIntValue("VN_HAMMER_SECONDS");
    const auto hammer = [&](const QString &owner) {
        Settings settings = settingsOf(path);
        QMap<QString, QString> mine;
        for (int round = 0; round < 100 || time(nullptr) < end; ++round) {
            const QString key = u"%1/%2"_s.arg(owner).arg(round % 70);
            if (mine.remove(key)) {
                settings.remove(key);
            } else {
                mine[key] = QString::number(round);
                settings.set(key, mine[key]);
            }
            while (!settings.save()) {
            }
        }
        SettingsMap map;
        while (!readSettingsFile(path, map)) {
        }
        QMap<QString, QString> found;
        for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
            if (entry.key().startsWith(owner))
                found[entry.key()] = entry->value;
        if (found != mine)
            _exit(1);
    };
    const pid_t a = runInChild([&] { hammer(u"a"_s); });
    const pid_t b = runInChild([&] { hammer(u"b"_s); });
    EXPECT_EQ(exitStatus(a), 0);
    EXPECT_EQ(exitStatus(b), 0);
}

// A writer sets a hundred keys to the number of its save and is killed at some instant of a later save.
TEST(Settings, AKillLeavesAReadableState)
{
    const auto folder = quickFolder();
    const QString path = folder->filePath(u"settings.xml"_s);
    for (int kills = 1; kills <= 12; ++kills) {
        int saved[2];
        ASSERT_EQ(pipe(saved), 0);
        const pid_t child = runInChild([&] {
            Settings settings = settingsOf(path);
            settings.read();
            for (int save = 1;; ++save) {
                for (int key = 0; key < 100; ++key)
                    settings.set(QString::number(key), QString::number(save));
                const char byte = settings.save();
                if (write(saved[1], &byte, 1) != 1)
                    _exit(1);
            }
        });
        char bytes[32];
        for (int i = 0; i < kills; ++i)
            EXPECT_EQ(read(saved[0], bytes, 1), 1);
        kill(child, SIGKILL);
        exitStatus(child);
        close(saved[0]);
        close(saved[1]);
        SettingsMap map;
        ASSERT_TRUE(readSettingsFile(path, map));
        ASSERT_EQ(map.size(), 100);
        for (const SettingsEntry &entry : map)
            ASSERT_EQ(entry.value, map.first().value);
        EXPECT_GE(map.first().value.toInt(), kills);
    }
}
