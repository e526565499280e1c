#include "project/model/ProjectFixture.h"

#include <random>

using namespace Qt::StringLiterals;

using ProjectValues = ProjectFixture;

// The layers against the plain look-up, over trees with imports, empty values and changes.
TEST_F(ProjectValues, AreThoseOfThePlainLookup)
{
    std::mt19937 random(20260101);
    const auto below = [&random](int limit) { return int(random() % quint32(limit)); };
    const std::array<QByteArray, 5> names = {"Common", "Debug", "Release", "Base", "Fast"};
    const std::array keys = {"c_preprocessor_definitions",
                             "build_output_directory",
                             "filter",
                             "macros",
                             "linker_additional_files",
                             "unknown_key"};
    const auto configurations = [&](bool isRoot) {
        QByteArray text;
        for (const QByteArray &name : names) {
            if (below(3) == 0)
                continue;
            text += "<configuration Name='" + name + "'";
            if (isRoot && name != "Common" && below(2))
                text += " inherited_configurations='" + names[size_t(below(5))] + ";" + names[size_t(below(5))] + "'";
            for (const char *key : keys)
                if (below(3) == 0)
                    text += QByteArray(" ") + key + "='" + (below(4) ? QByteArray::number(below(100)) : "") + "'";
            text += "/>";
        }
        return text;
    };
    const auto project = [&](const QByteArray &name) {
        QByteArray text = "<project Name='" + name + "'>" + configurations(false);
        for (int i = 0; i < 4; ++i)
            text += "<folder>" + (below(2) ? configurations(false) : "") + "<file file_name='a.c'>" +
                    (below(2) ? configurations(false) : "") + "</file></folder>";
        return text + "</project>";
    };
    const PropertyClass unknownText(u"unknown_key"_s, PropertyType::String, {}),
        unknownList(u"unknown_key"_s, PropertyType::StringList, {}, u"none"_s);
    int count = 0;
    const auto compareAll = [&] {
        ProjectElement *top = system.solution();
        for (XMLNode *at = top; at; at = at->nextInTree(top)) {
            auto *element = static_cast<ProjectElement *>(at);
            for (const QByteArray &name : names) {
                const QString configuration = QString::fromLatin1(name);
                for (const auto &known : system.schema().classes())
                    ASSERT_EQ(system.value(element, *known, configuration),
                              propertyValue(element, *known, configuration))
                        << qPrintable(known->name) << " " << name.constData();
                ASSERT_EQ(system.value(element, unknownText, configuration),
                          propertyValue(element, unknownText, configuration));
                if (!propertyValue(element, unknownList, configuration).contains(u";;"_s)) // see decisions
                    count += system.value(element, unknownList, configuration) ==
                             propertyValue(element, unknownList, configuration);
            }
        }
    };
    for (int round = 0; round < 6 && !HasFatalFailure(); ++round) {
        writeSolution("lib.vnProject", "<solution>" + configurations(true) + project("lib") + "</solution>");
        load("<solution><import file_name='lib.vnProject'/>" + configurations(true) + project("app") + "</solution>");
        compareAll();
        const PropertyClass &changed = system.schema()[ProjectProperty::c_preprocessor_definitions];
        system.setPropertyValue(system.solution(), &changed, u"Common"_s, u"NEW"_s);
        node("a.c")->addConfiguration(u"Debug"_s)->setProperty(changed.name, u"MINE"_s);
        compareAll();
    }
    EXPECT_GT(count, 0);
}

TEST_F(ProjectValues, FollowEveryChange)
{
    load("<solution><project Name='p'><configuration Name='Common' build_output_directory='a/$(X)' macros='X=1'/>"
         "<file file_name='a.c'/></project></solution>");
    const ProjectElement *file = node("a.c");
    const auto directory = [&] {
        return system.expandedValue(file, ProjectProperty::build_output_directory, u"Debug"_s);
    };
    EXPECT_EQ(directory(), u"a/1"_s);
    ProjectElement *project = node("p");
    system.setPropertyValue(project, &system.schema()[ProjectProperty::macros], u"Debug"_s, u"X=2"_s);
    EXPECT_EQ(directory(), u"a/2"_s) << "";
    project->configuration(u"Common"_s)->setProperty(u"build_output_directory"_s, u"b/$(G)"_s);
    EXPECT_EQ(directory(), u"b/$(G)"_s);
    SystemMacroTable &table = SystemMacroTable::instance();
    const SystemMacroTable before = table;
    table.setGlobalMacros({u"G=global"_s});
    EXPECT_EQ(directory(), u"b/global"_s);
    table = before;
    EXPECT_EQ(directory(), u"b/$(G)"_s);
    project->removeConfiguration(u"Common"_s);
    EXPECT_EQ(directory(), u"Output/Debug/Exe"_s);
    system.schema().propertyClassNamed(u"build_output_directory"_s)->defaultValue = u"other"_s;
    system.schema().noteChange();
    EXPECT_EQ(directory(), u"other"_s);
}

TEST_F(ProjectValues, ListsAreSplitAndExpanded)
{
    load(R"xml(<solution><project Name="p"><configuration Name="Common" macros="N=7;E="
        c_preprocessor_definitions="A=$(N);;B=x\;y;$(E);$(InputName)"/>
        <file file_name="a.c"/><file file_name="b.c"/></project></solution>)xml");
    const auto list = [this](const char *name, int options, bool *isOwn = nullptr) {
        return system.propertyList(node(name), ProjectProperty::c_preprocessor_definitions, u"Debug"_s, options, isOwn);
    };
    EXPECT_EQ(list("a.c", ProjectSystem::EscapedList),
              QStringList({u"A=$(N)"_s, u"B=x;y"_s, u"$(E)"_s, u"$(InputName)"_s}));
    bool isOwn = false;
    EXPECT_EQ(list("a.c", ProjectSystem::EscapedList | ProjectSystem::ExpandItems, &isOwn),
              QStringList({u"A=7"_s, u"B=x;y"_s, u"a"_s}));
    EXPECT_TRUE(isOwn);
    EXPECT_EQ(list("b.c", ProjectSystem::ExpandItems), QStringList({u"A=7"_s, u"B=x\\"_s, u"y"_s, u"b"_s}));
    EXPECT_EQ(system.propertyList(nullptr, ProjectProperty::clang_tidy_checks_cpp, u"Debug"_s, 0),
              QStringList(u"clang-analyzer-*"_s));
}

TEST_F(ProjectValues, FilesWithoutConfigurationsShareAContext)
{
    load(R"xml(<solution><project Name="p"><folder Name="f"><file file_name="a.c"/><file file_name="b.c"/>
        <file file_name="c.c"><configuration Name="Debug"/></file></folder></project></solution>)xml");
    const auto context = [this](const char *name) { return system.contextOf(node(name), u"Debug"_s); };
    EXPECT_EQ(context("a.c"), context("b.c"));
    EXPECT_NE(context("a.c"), context("c.c"));
    EXPECT_NE(context("a.c"), context("f"));
    EXPECT_NE(context("a.c"), system.contextOf(node("a.c"), u"Release"_s));
}

TEST_F(ProjectValues, PropertyGroupsAddWhatTheirEntryHas)
{
    folder.write("groups.xml", R"xml(<groups><group name="cpu_core" default="M3">
        <groupEntry name="M3"><macro name="Core" value="m3"/><cdefine name="M3"/></groupEntry>
        <groupEntry name="M4" family="Big"><macro name="Core" value="m4"/>
          <cdefine name="FAST" configuration="Release"/><cdefine name="BASE" configuration="Base"/>
          <cinclude value="dsp" property="build_output_directory" property_value="out"/></groupEntry></group></groups>)xml");
    load(R"xml(<solution><configuration Name="Debug" inherited_configurations="Base"/>
        <project Name="p"><configuration Name="Common" property_groups_file_path="groups.xml"/>
        <configuration Name="Debug" cpu_core="M4"/><file file_name="a.c"/></project></solution>)xml");
    EXPECT_EQ(expanded("a.c", "$(cpu_core) $(Core)", "Debug"), u"M4 m4"_s);
    EXPECT_EQ(expanded("a.c", "$(cpu_core) $(Core)", "Release"), u"M3 m3"_s);
    const auto texts = [this](const char *configuration) {
        QStringList list;
        for (const auto *contribution : system.groupContributions(node("a.c"), QString::fromLatin1(configuration)))
            list.append(contribution->text());
        return list;
    };
    EXPECT_EQ(texts("Debug"), QStringList({u"Core=m4"_s, u"BASE"_s}));
    EXPECT_EQ(texts("Release"), QStringList({u"Core=m3"_s, u"M3"_s}));
    node("p")->addConfiguration(u"Debug"_s)->setProperty(u"build_output_directory"_s, u"out"_s);
    EXPECT_EQ(texts("Debug"), QStringList({u"Core=m4"_s, u"BASE"_s, u"dsp"_s}));

    const QString file = folder.write("groups.xml", R"xml(<groups><group name="cpu_core" default="M0">
        <groupEntry name="M0"><macro name="Core" value="m0"/></groupEntry></group></groups>)xml");
    QFile touched(file);
    ASSERT_TRUE(touched.open(QFile::ReadWrite));
    touched.setFileTime(QDateTime::currentDateTime().addSecs(5), QFileDevice::FileModificationTime);
    touched.close();
    system.refresh();
    EXPECT_EQ(expanded("a.c", "$(Core)", "Release"), u"m0"_s);
}
