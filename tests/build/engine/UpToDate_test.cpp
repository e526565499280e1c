#include "build/engine/BuildFixture.h"

#include "build/commands/Builder.h"
#include "build/engine/UpToDate.h"

using namespace Qt::StringLiterals;

namespace {

// A project of one C file whose object depends on a header, all built some time ago.
class UpToDate_ : public BuildFixture
{
protected:
    void SetUp() override
    {
        write("a.c", 100);
        write("h.h", 100);
        load("<project Name=\"app\"><configuration Name=\"Common\" external_c_compile_command=\"compile -d "
             "$(RelDependencyPath) $(RelInputPath) $(Defines)\"/><file file_name=\"a.c\"/></project>");
        events.onStart = [this](const QString &command) {
            if (command.startsWith("compile"_L1))
                folder.write("obj/app/a.d", "obj/app/a.o: a.c \\\n h.h\n");
        };
        QDir(folder.root()).mkpath(u"obj/app"_s);
        EXPECT_EQ(build(1), BuildResult::Complete);
        age();
    }
    void age()
    {
        setAge("obj/app/a.o", 50);
        setAge("out/app.elf", 50);
    }
    QString timeOf(const char *name) const
    {
        return QFileInfo(folder.path(name)).lastModified().toString(u"dd.MM.yyyy hh:mm:ss"_s);
    }
    void expectRebuild(const QString &reason)
    {
        EXPECT_EQ(build(1), BuildResult::Complete) << qPrintable(reason);
        EXPECT_EQ(started().value(0).left(7), u"compile"_s);
        EXPECT_TRUE(told("detail").contains(reason)) << qPrintable(told("detail").join(u'\n'));
        age();
        setAge("a.c", 100);
        setAge("h.h", 100);
        EXPECT_EQ(build(1), BuildResult::UpToDate) << qPrintable(reason);
    }
};
class UpToDate : public UpToDate_
{};

TEST_F(UpToDate, TellsWhyAnObjectIsMadeAgain)
{
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    const QString object = u"obj/app/a.o"_s, header = folder.path("h.h"), source = folder.path("a.c");
    setAge("a.c", 49);
    expectRebuild(source + " ("_L1 + timeOf("a.c") + ") is newer than "_L1 + object + " ("_L1 + timeOf("obj/app/a.o") +
                  ")."_L1);
    setAge("h.h", 20);
    expectRebuild(header + " ("_L1 + timeOf("h.h") + ") is newer than "_L1 + object + " ("_L1 + timeOf("obj/app/a.o") +
                  ")."_L1);
    QFile::remove(folder.path("obj/app/a.o"));
    expectRebuild(object + " does not exist."_L1);
    QFile::remove(folder.path("h.h"));
    folder.write("obj/app/a.d", "");
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_TRUE(told("detail").contains(header + " does not exist."_L1));
}

TEST_F(UpToDate, AProgramDependsOnWhatItsMemoryMapImports)
{
    write("map.xml", 100);
    write("part.xml", 100);
    load("<project Name=\"app\"><configuration Name=\"Common\" external_link_command=\"\" "
         "linker_memory_map_file=\"map.xml\"/><file file_name=\"a.c\"/></project>");
    events.onStart = [this](const QString &command) {
        if (command.contains(" -memorymap "_L1)) // as the driver does
            folder.write("obj/app/app.ld.d", "out/app.elf: \\\n map.xml \\\n part.xml\n");
    };
    EXPECT_EQ(build(1), BuildResult::Complete);
    age();
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    setAge("part.xml", 49);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(started().size(), 1);
    EXPECT_TRUE(told("detail").value(0).startsWith(folder.path("part.xml") + " ("_L1)) << qPrintable(told("detail")[0]);
}

TEST_F(UpToDate, EqualSecondsAreGood)
{
    setAge("a.c", 50);
    const timespec time{now - 50, 900'000'000};
    const timespec times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, qPrintable(folder.path("h.h")), times, 0), 0);
    EXPECT_EQ(build(1), BuildResult::UpToDate);
}

TEST_F(UpToDate, TellsOfTimesInTheFuture)
{
    setAge("h.h", -1000);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(told("detail").value(0), "clock skew detected on "_L1 + folder.path("h.h") + u'.');
    setAge("obj/app/a.o", -2000);
    setAge("out/app.elf", -3000);
    EXPECT_EQ(build(1), BuildResult::UpToDate) << "compared all the same";
    EXPECT_EQ(build(1, BuildFlag::quiet), BuildResult::UpToDate);
    EXPECT_EQ(told("detail"), QStringList());
    EXPECT_EQ(told("note"), QStringList());
}

TEST_F(UpToDate, AChangedPropertyCounts)
{
    struct
    {
        const char *what;
        const char *node; // null: the solution
        ProjectProperty property;
        const char *configuration;
        bool counts;
    } const cases[] = {
        {"of the configuration", "app", ProjectProperty::c_preprocessor_definitions, "Debug", true},
        {"of Common, further up", nullptr, ProjectProperty::c_preprocessor_definitions, "Common", true},
        {"of another configuration", "app", ProjectProperty::c_preprocessor_definitions, "Release", false},
        {"of no tool", "app", ProjectProperty::debug_entry_point_symbol, "Debug", false},
    };
    for (const auto &row : cases) {
        ProjectElement *node = row.node ? project(row.node) : solution;
        const PropertyClass &property = system.schema()[row.property];
        system.setPropertyValue(node, &property, QLatin1String(row.configuration), u"NEW_"_s + QLatin1String(row.what));
        EXPECT_EQ(build(1), row.counts ? BuildResult::Complete : BuildResult::UpToDate) << row.what;
        EXPECT_EQ(told("detail").contains(property.name + " property has changed."_L1), row.counts) << row.what;
        system.clearChanges();
        build(1);
        age();
        EXPECT_EQ(build(1), BuildResult::UpToDate) << row.what;
    }
}

TEST_F(UpToDate, AChangedCommandCountsWithoutAChangeList)
{
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::c_preprocessor_definitions], u"Debug"_s,
                            u"X=1"_s);
    system.clearChanges();
    expectRebuild(u"obj/app/a.o command line has changed."_s);
    // The link has one too, and what it links belongs to it.
    write("b.o", 100);
    system.addFile(project("app"), u"b.o"_s);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList{u"link out/app.elf"_s});
    EXPECT_EQ(told("detail"), QStringList{u"out/app.elf command line has changed."_s});
    // Without a record nothing is known to have changed.
    QFile::remove(folder.path("obj/app/app.commands"));
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::c_preprocessor_definitions], u"Debug"_s,
                            u"X=2"_s);
    system.clearChanges();
    age();
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    // From then on it is.
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::c_preprocessor_definitions], u"Debug"_s,
                            u"X=3"_s);
    system.clearChanges();
    expectRebuild(u"obj/app/a.o command line has changed."_s);
}

TEST_F(UpToDate, AnotherCompilerCountsAsAnotherCommand)
{
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::external_c_compile_command], u"Common"_s,
                            u"./cc $(RelInputPath)"_s);
    system.clearChanges();
    write("cc", 200);
    EXPECT_EQ(build(1), BuildResult::Complete);
    age();
    EXPECT_EQ(build(1), BuildResult::UpToDate);
    setAge("cc", 150);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(told("detail").value(0), u"obj/app/a.o command line has changed."_s);
    age();
    EXPECT_EQ(build(1), BuildResult::UpToDate);
}

TEST_F(UpToDate, ConfigurationsThatShareObjectsMakeThemAgain)
{
    EXPECT_EQ(build(solution, 1, 0, false, "Release"), BuildResult::UpToDate) << "the same command";
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::c_preprocessor_definitions], u"Release"_s,
                            u"NDEBUG"_s);
    system.clearChanges();
    for (const char *configuration : {"Release", "Debug"}) {
        EXPECT_EQ(build(solution, 1, 0, false, configuration), BuildResult::Complete);
        EXPECT_EQ(told("detail").value(0), u"obj/app/a.o command line has changed."_s) << configuration;
        EXPECT_EQ(build(solution, 1, 0, false, configuration), BuildResult::UpToDate);
    }
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::batch_build_configurations], u"Common"_s,
                            u"Debug;Release"_s);
    EXPECT_EQ(build(solution, 1, 0, true), BuildResult::Complete);
    EXPECT_EQ(build(solution, 1, 0, false, "Release"), BuildResult::UpToDate) << "which was the last";
}

TEST_F(UpToDate, AFailedCommandIsNoLongerOnRecord)
{
    system.setPropertyValue(project("app"), &system.schema()[ProjectProperty::c_preprocessor_definitions], u"Debug"_s,
                            u"X=1"_s);
    system.clearChanges();
    events.failing = {u"compile"_s};
    EXPECT_EQ(build(1), BuildResult::Failed);
    events.failing.clear();
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(started().size(), 2);
}

TEST_F(UpToDate, AnObjectOfThisBuildIsNewerThanAnExecutableOfTheSameSecond)
{
    setAge("a.c", 0);
    setAge("obj/app/a.o", 50);
    setAge("out/app.elf", -1); // linked at the end of this second, so to say
    EXPECT_EQ(build(2), BuildResult::Complete);
    EXPECT_EQ(started().size(), 2);
}

TEST_F(UpToDate, AlwaysRebuildAndCheck)
{
    const QString record = folder.path("obj/app/app.commands");
    EXPECT_TRUE(QFile::remove(record));
    EXPECT_EQ(build(1, BuildFlag::dryRun), BuildResult::UpToDate);
    EXPECT_FALSE(QFile::exists(record)) << "another build may be writing it: only that one has the lock";
    setAge("a.c", 10);
    EXPECT_EQ(build(1, BuildFlag::dryRun), BuildResult::Complete);
    EXPECT_EQ(started(), QStringList());
    build(1);
    age();
    system.setPropertyValue(project("app")->firstElement()->nextElement(),
                            &system.schema()[ProjectProperty::build_always_rebuild], u"Common"_s, u"Yes"_s);
    EXPECT_EQ(build(1), BuildResult::Complete);
    EXPECT_EQ(started().size(), 2);
}

} // namespace
