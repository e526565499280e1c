#include "build/commands/CommandRecord.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr FileStamp someTime{1'700'000'000'123'456'789, 321};

CommandRecord someRecord()
{
    CommandRecord record;
    record.setCommand(u"Obj/main.o"_s, 42);
    record.setDependencies(u"Obj/main.o"_s, someTime, {u"main.h"_s, u"\u00fc b.h"_s});
    record.setDependencies(u"Obj/other.o"_s, someTime, {u"main.h"_s});
    record.setCommand(u"app.elf"_s, 43);
    return record;
}

QStringList dependenciesOf(const CommandRecord &record, const QString &output)
{
    QStringList names;
    if (const auto indices = record.dependencies(output, someTime))
        for (const quint32 index : *indices)
            names += record.paths()[index];
    return names;
}

} // namespace

TEST(CommandHash, KnowsEveryDifference)
{
    const auto hash = [](const QStringList &arguments, const QStringList &inputs = {}) {
        return commandHash(u"/dir"_s, arguments, inputs);
    };
    const quint64 one = hash({u"cc"_s, u"-c"_s, u"a.c"_s});
    EXPECT_EQ(one, hash({u"cc"_s, u"-c"_s, u"a.c"_s}));
    const quint64 others[] = {
        commandHash(u"/other"_s, {u"cc"_s, u"-c"_s, u"a.c"_s}),
        hash({u"cc"_s, u"a.c"_s, u"-c"_s}),
        hash({u"cc"_s, u"-ca.c"_s}),
        hash({u"cc"_s, u"-c a.c"_s}),
        hash({u"cc"_s, u"-c"_s, u"a.c"_s, u""_s}),
        hash({u"cc"_s, u"-c"_s, u"a.d"_s}),
        hash({u"cc"_s, u"-c"_s}, {u"a.c"_s}),
        hash({u"cc"_s, u"-c"_s, u"a.c"_s}, {u""_s}),
        hash({}),
    };
    for (size_t i = 0; i < std::size(others); ++i) {
        EXPECT_NE(others[i], one) << i;
        for (size_t k = 0; k < i; ++k)
            EXPECT_NE(others[i], others[k]) << i << ' ' << k;
    }
}

TEST(CommandRecord, KeepsCommandsAndDependencies)
{
    const TemporaryFolder folder;
    const QString path = folder.path("new folder/commands");
    {
        CommandRecord record(path);
        EXPECT_FALSE(record.command(u"a.o"_s));
        EXPECT_TRUE(record.save()); // nothing new
        EXPECT_FALSE(QFile::exists(path));
        record.setCommand(u"a.o"_s, 1);
        record.setCommand(u"b.o"_s, 2);
        record.setDependencies(u"a.o"_s, someTime, {u"x.h"_s, u"gone.h"_s});
        record.setDependencies(u"a.o"_s, someTime, {u"x.h"_s, u"y.h"_s});
        EXPECT_TRUE(record.save());
    }
    CommandRecord record(path);
    EXPECT_EQ(record.command(u"a.o"_s), 1u);
    EXPECT_EQ(record.command(u"b.o"_s), 2u);
    EXPECT_EQ(dependenciesOf(record, u"a.o"_s), QStringList({u"x.h"_s, u"y.h"_s}));
    EXPECT_FALSE(record.dependencies(u"b.o"_s, {}));
    EXPECT_FALSE(record.dependencies(u"a.o"_s, {someTime.time, someTime.size + 1}));
    EXPECT_FALSE(record.dependencies(u"a.o"_s, {someTime.time + 1, someTime.size}));
    EXPECT_FALSE(record.paths().contains(u"gone.h"_s));

    record.forget(u"b.o"_s);
    record.setDependencies(u"c.o"_s, someTime, {u"y.h"_s, u"z.h"_s, u"x.h"_s});
    EXPECT_TRUE(record.save());
    const CommandRecord again(path);
    EXPECT_FALSE(again.command(u"b.o"_s));
    EXPECT_FALSE(again.command(u"c.o"_s)); // only what it was made from is known
    EXPECT_EQ(dependenciesOf(again, u"a.o"_s), QStringList({u"x.h"_s, u"y.h"_s}));
    EXPECT_EQ(dependenciesOf(again, u"c.o"_s), QStringList({u"y.h"_s, u"z.h"_s, u"x.h"_s}));
    EXPECT_EQ(QDir(folder.path("new folder")).entryList(QDir::Files | QDir::Hidden), QStringList(u"commands"_s));

    CommandRecord nowhere(folder.path("new folder/commands/within"));
    nowhere.setCommand(u"a.o"_s, 1);
    EXPECT_FALSE(nowhere.save());
}

TEST(CommandRecord, HasNothingWhenDamaged)
{
    const QByteArray good = someRecord().toBytes();
    CommandRecord record;
    ASSERT_TRUE(record.fromBytes(good));
    EXPECT_EQ(record.command(u"app.elf"_s), 43u);
    EXPECT_EQ(dependenciesOf(record, u"Obj/main.o"_s), QStringList({u"main.h"_s, u"\u00fc b.h"_s}));

    for (qsizetype size = 0; size < good.size(); ++size) {
        ASSERT_FALSE(record.fromBytes(good.first(size))) << size;
        EXPECT_FALSE(record.command(u"app.elf"_s));
        EXPECT_TRUE(record.paths().isEmpty());
    }
    for (qsizetype at = 0; at < good.size(); ++at) {
        QByteArray bad = good;
        bad[at] = char(bad[at] ^ 0x10);
        ASSERT_FALSE(record.fromBytes(bad)) << at;
    }
    EXPECT_FALSE(record.fromBytes(good + '\0'));

    // The same with checksums that don't tell.
    const qsizetype end = good.size() - 8;
    for (qsizetype size = 0; size < end; ++size) {
        EXPECT_FALSE(record.fromBytes(CommandRecord::withChecksums(good.first(size)))) << size;
        QByteArray bad = good;
        bad[size] = '\xFF';
        const bool isGood = record.fromBytes(CommandRecord::withChecksums(bad)); // some are as good as before
        for (const QString &output : {u"Obj/main.o"_s, u"Obj/other.o"_s})
            EXPECT_TRUE(isGood || dependenciesOf(record, output).isEmpty()) << size;
    }
    EXPECT_FALSE(record.fromBytes(CommandRecord::withChecksums(good + '\0')));
}

// What a build has added can be torn, as by a kill or a full disk: what stood there before it still counts.
TEST(CommandRecord, KeepsWhatStandsAheadOfTheDamage)
{
    const TemporaryFolder folder;
    const QByteArray first = someRecord().toBytes();
    const QString path = folder.write("commands", first);
    CommandRecord more(path);
    more.setCommand(u"app.elf"_s, 44);
    ASSERT_TRUE(more.save());
    const QByteArray whole = folder.read("commands");
    ASSERT_TRUE(whole.startsWith(first));
    for (qsizetype size = first.size() + 1; size < whole.size(); ++size) {
        QByteArray bad = whole;
        bad[size] = char(bad[size] ^ 0x10);
        for (const QByteArray &bytes : {whole.first(size), bad}) {
            CommandRecord record;
            ASSERT_FALSE(record.fromBytes(bytes)) << size;
            EXPECT_EQ(record.command(u"app.elf"_s), 43u) << size;
            EXPECT_EQ(dependenciesOf(record, u"Obj/other.o"_s), QStringList(u"main.h"_s));
        }
    }
    folder.write("commands", whole.chopped(1));
    CommandRecord record(path);
    record.setCommand(u"app.elf"_s, 45);
    EXPECT_TRUE(record.save());
    EXPECT_EQ(CommandRecord(path).command(u"app.elf"_s), 45u);
}

TEST(CommandRecord, KnowsWhatAKilledBuildHasBegunAndMade)
{
    const TemporaryFolder folder;
    const QString path = folder.path("new folder/commands");
    const auto expectKnown = [&](const char *when) {
        const CommandRecord record(path);
        EXPECT_EQ(record.command(u"made.o"_s), 10u) << when;
        EXPECT_EQ(record.command(u"begun \u00fc.o"_s), CommandRecord::unfinished) << when;
        EXPECT_FALSE(record.command(u"gone.o"_s)) << when;
        EXPECT_FALSE(record.command(u"torn.o"_s)) << when;
    };
    {
        CommandRecord killed(path);
        for (const QString &output : {u"made.o"_s, u"begun \u00fc.o"_s, u"gone.o"_s})
            killed.begin(output);
        killed.setCommand(u"made.o"_s, 10);
        killed.forget(u"gone.o"_s);
        killed.begin(u"torn.o"_s);
    }
    folder.write("new folder/commands.begun", folder.read("new folder/commands.begun").chopped(1));
    expectKnown("not saved");
    const auto expectSaved = [&](CommandRecord &&record) {
        EXPECT_TRUE(record.save());
        EXPECT_EQ(QDir(folder.path("new folder")).entryList(QDir::Files), QStringList(u"commands"_s));
    };
    expectSaved(CommandRecord(path));
    expectKnown("saved by the next build");
    CommandRecord again(path);
    again.begin(u"begun \u00fc.o"_s); // and still not made, which is no change
    expectSaved(std::move(again));
}

TEST(CommandRecord, WaitsForNoPipe)
{
    const TemporaryFolder folder;
    for (const char *name : {"commands", "commands.begun"})
        ASSERT_EQ(::mkfifo(QFile::encodeName(folder.path(name)).constData(), 0600), 0);
    CommandRecord record(folder.path("commands"));
    EXPECT_TRUE(record.paths().isEmpty());
    record.begin(u"a.o"_s);
    EXPECT_TRUE(record.save());
}

// A build adds what is new, so that it costs what was built and not what there is.
TEST(CommandRecord, GrowsByWhatIsNewAndNotForEver)
{
    const TemporaryFolder folder;
    const QString path = folder.path("commands");
    const auto output = [](int i) { return u"Obj/%1.o"_s.arg(i); };
    const auto isWhole = [&](const CommandRecord &record, quint64 lastHash) {
        for (int i = 1; i < 100; ++i)
            if (record.command(output(i)) != quint64(i) ||
                dependenciesOf(record, output(i)) != QStringList({u"all.h"_s, u"h%1.h"_s.arg(i)}))
                return false;
        return record.command(output(0)) == lastHash;
    };
    CommandRecord first(path);
    for (int i = 0; i < 100; ++i) {
        first.setCommand(output(i), quint64(i + !i));
        first.setDependencies(output(i), someTime, {u"all.h"_s, u"h%1.h"_s.arg(i)});
    }
    ASSERT_TRUE(first.save());
    const qint64 size = QFileInfo(path).size();
    qint64 last = size;
    bool wasReplaced = false;
    for (quint64 build = 2; build < 200; ++build) {
        CommandRecord record(path);
        ASSERT_TRUE(isWhole(record, build - 1)) << build;
        record.setCommand(output(0), build);
        record.setDependencies(output(0), someTime, {u"all.h"_s, u"new%1.h"_s.arg(build)});
        ASSERT_TRUE(record.save());
        const qint64 now = QFileInfo(path).size();
        EXPECT_LT(now, 2 * size + 100);
        EXPECT_LT(now, last + 120);
        wasReplaced |= now < last;
        last = now;
    }
    EXPECT_TRUE(wasReplaced);

    // Two that read the same file: the second finds that it isn't that any more, and what it writes is whole.
    CommandRecord one(path), two(path);
    one.forget(output(1));
    two.setCommand(output(0), 1000);
    EXPECT_TRUE(one.save());
    EXPECT_FALSE(CommandRecord(path).command(output(1)));
    EXPECT_TRUE(two.save());
    EXPECT_TRUE(isWhole(CommandRecord(path), 1000));

    // Nor when what another build has put in its place is as long.
    CommandRecord late(path), other(path);
    other.setCommand(output(0), 1001);
    late.setCommand(output(0), 1002);
    QFile file(path);
    ASSERT_TRUE(file.open(QFile::WriteOnly));
    file.write(other.toBytes());
    file.close();
    EXPECT_TRUE(late.save());
    EXPECT_TRUE(isWhole(CommandRecord(path), 1002));
}
