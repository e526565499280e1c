#include "project/model/ProjectFixture.h"

using namespace Qt::StringLiterals;

class NodeMacrosTest : public ProjectFixture
{
protected:
    ProjectElement *loadExample()
    {
        return load(R"xml(<solution Name="sol" version="2"><configuration Name="Debug"/>
            <project Name="app"><configuration Name="Common" project_directory="code"
              macros="InputName=mine;Deep=$(HostOS);IntDir=early"/>
            <folder Name="Source"><folder Name="Inner"><file file_name="src/main.part.c"/>
              <file file_name="../common/x.c"/><file file_name="/abs/y.c"/></folder></folder></project></solution>)xml",
                    "main.v1.vnProject");
    }
    const SystemMacroTable m_before = SystemMacroTable::instance();
    void TearDown() override { SystemMacroTable::instance() = m_before; }
};

TEST_F(NodeMacrosTest, DescribeTheNodeAndItsSurroundings)
{
    loadExample();
    struct
    {
        const char *node, *text, *expanded;
    } const rows[] = {
        {"main.part.c", "$(ProjectNodeName) $(FolderName) $(FolderPath)", "main.part.c Inner Source/Inner"},
        {"main.part.c", "$(InputDir) $(InputName) $(InputFileName) $(InputExt)",
         "FOLDER/code/src main.part main.part.c c"},
        {"main.part.c", "$(InputPath) $(RelInputPath) $(RelInputDir)",
         "FOLDER/code/src/main.part.c src/main.part.c src"},
        {"x.c", "$(InputPath) $(RelInputPath) $(RelInputDir)", "FOLDER/common/x.c ../common/x.c ../common"},
        {"y.c", "$(RelInputPath) $(RelInputDir)", "/abs/y.c ."},
        {"main.part.c", "$(ProjectDir) $(ProjectName) $(Configuration)", "FOLDER/code app Debug"},
        {"main.part.c", "$(SolutionDir) $(SolutionName) $(SolutionFileName) $(SolutionExt) $(SolutionPath)",
         "FOLDER main.v1 main.v1.vnProject vnProject FOLDER/main.v1.vnProject"},
        {"main.part.c", "$(OBJ)$(LIB)$(EXE) $(PackageExt)", ".o.a.elf vnPackage"},
        {"app", "$(InputName) $(RelInputPath) $(RelInputDir) $(FolderPath)|", "mine . . |"},
        {"Inner", "$(FolderName) $(InputName) $(RelInputPath)", "Source mine $(RelInputPath)"},
        {"sol", "$(ProjectNodeName) $(SolutionDir) $(ProjectDir)", "sol FOLDER $(ProjectDir)"},
        {"app", "$(IntDir) $(OutDir) $(RootOutDir)|$(RootRelativeOutDir)",
         "Output/Debug/Obj/app Output/Debug/Exe |$(RootRelativeOutDir)"},
        {"app", "$(Deep)", "linux"},
        {"app", "$$(Configuration)", "$(Configuration)"},
        {"app", "$(None:$(Configuration)) $(None)", "Debug $(None)"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(expanded(row.node, row.text), QLatin1StringView(row.expanded)) << row.node << " " << row.text;
}

TEST_F(NodeMacrosTest, TheNearerTableCounts)
{
    load(R"xml(<solution><project Name="p"><configuration Name="Common" macros="A=project;Configuration=x"/>
        <file file_name="a.c"/></project></solution>)xml");
    SystemMacroTable &table = SystemMacroTable::instance();
    for (const QString &name : {u"A"_s, u"B"_s, u"C"_s})
        table.addSystemMacro(name, u"system"_s, QString());
    table.setGlobalMacros({u"A=global"_s, u"B=global"_s});
    EXPECT_EQ(expanded("a.c", "$(A) $(B) $(C) $(Configuration)"), u"project global system Debug"_s);
    EXPECT_EQ(system.expand(node("a.c"), u"Debug"_s, u"$(A) $(InputName)"_s, {{u"A"_s, u"extra"_s}}), u"extra a"_s);
}

TEST_F(NodeMacrosTest, DirectoriesUseThoseBeforeThem)
{
    load(R"xml(<solution><project Name="p"><configuration Name="Common" macros="OutDir=user"
        build_intermediate_directory="obj/./$(OutDir)/$(InputName)" build_root_output_directory="out"
        build_output_directory="$(RootOutDir)/x/../$(Configuration)"/>
        <file file_name="a.c"/><file file_name="b.c"/></project></solution>)xml");
    EXPECT_EQ(expanded("a.c", "$(IntDir) $(OutDir) $(RootRelativeOutDir)"), u"obj/user/a out/Debug .."_s);
    EXPECT_EQ(expanded("b.c", "$(IntDir)"), u"obj/user/b"_s);
    EXPECT_EQ(expanded("p", "$(IntDir)"), u"obj/user/$(InputName)"_s);
    bool isOwn = false;
    system.expandedValue(node("a.c"), ProjectProperty::build_output_directory, u"Debug"_s, &isOwn);
    EXPECT_FALSE(isOwn);
    EXPECT_EQ(system.expandedValue(node("b.c"), ProjectProperty::build_object_file_name, u"Debug"_s, &isOwn),
              u"obj/user/b/b.o"_s);
    EXPECT_TRUE(isOwn);
}

TEST_F(NodeMacrosTest, TheMapHasWhatExpansionFinds)
{
    loadExample();
    for (const char *name : {"main.part.c", "y.c", "Inner", "app", "sol"}) {
        const MacroMap map = system.buildMacros(node(name), u"Debug"_s);
        EXPECT_GE(map.size(), 12) << name;
        for (auto macro = map.begin(); macro != map.end(); ++macro)
            EXPECT_EQ(system.expand(node(name), u"Debug"_s, u"$(%1)"_s.arg(macro.key())), *macro)
                << name << " " << qPrintable(macro.key());
        EXPECT_FALSE(map.contains(u"HostOS"_s));
    }
    EXPECT_EQ(system.buildMacros(nullptr, u"Debug"_s).value(u"Configuration"_s), u"Debug"_s);
}

TEST_F(NodeMacrosTest, ANameMayUseMacrosButNotItsOwn)
{
    load(R"xml(<solution><project Name="p"><configuration Name="Common" macros="Where=gen"/>
        <configuration Name="Debug" macros="Where=dbg"/>
        <file file_name="$(Where)/$(InputName)/a.c"/><file file_name="$(IntDir)/b.c"><configuration Name="Common"
          build_intermediate_directory="$(InputDir)"/></file></project></solution>)xml");
    const auto path = [this](const char *name, const char *configuration) {
        return system.path(node(name), QString::fromLatin1(configuration)).replace(folder.root(), u"FOLDER"_s);
    };
    EXPECT_EQ(path("a.c", "Debug"), u"FOLDER/dbg/$(InputName)/a.c"_s);
    EXPECT_EQ(path("a.c", "Release"), u"FOLDER/gen/$(InputName)/a.c"_s);
    EXPECT_EQ(path("a.c", "Debug"), u"FOLDER/dbg/$(InputName)/a.c"_s);
    EXPECT_EQ(path("b.c", "Debug"), u"FOLDER/$(InputDir)/b.c"_s);
    EXPECT_TRUE(system.resolve(node("a.c"), u"Debug"_s).hasMacros);
}

TEST_F(NodeMacrosTest, TimeIsNeverKept)
{
    load("<solution><project Name='p'><configuration Name='Common' build_output_directory='$(UnixTime)'/>"
         "</project></solution>");
    static qint64 seconds;
    SystemMacroTable::instance().setClock([] { return QDateTime::fromSecsSinceEpoch(++seconds); });
    const auto directory = [this] {
        return system.expandedValue(node("p"), ProjectProperty::build_output_directory, u"Debug"_s);
    };
    EXPECT_NE(directory(), directory());
}

// A text with own macros is kept in pieces; what can't be must come out the same.
TEST_F(NodeMacrosTest, KeptPiecesGiveWhatTheTextGives)
{
    load(R"xml(<solution><project Name="p"><configuration Name="Common" macros="Mark=;Nested=$(InputName);A_x=1"/>
        <folder Name="f"><file file_name="src/x.c"/><file file_name="y.s"/><file Name="z" file_name="../z.c"/>
        </folder></project></solution>)xml");
    ProjectElement *project = node("p");
    const PropertyClass &property = system.schema()[ProjectProperty::build_object_file_name];
    for (const char *text :
         {"$(InputName)", "a$(RelInputDir)/$(InputName)b$(OBJ)", "$(Nested)", "$(Mark)$(InputName)",
          "$$(InputName)$(InputExt)", "$(A_$(InputName))", "$(None:$(InputName))", "$(None::$(InputName))",
          "$(InputName:x)$(None:y)", "$(UnixTime)$(InputName)", "$(InputName)$(", "$(IntDir)$(Input(x))"}) {
        system.setPropertyValue(project, &property, u"Common"_s, QString::fromUtf8(text));
        system.setPropertyValue(project, &system.schema()[ProjectProperty::build_intermediate_directory], u"Common"_s,
                                text[0] == 'a' ? u"obj"_s : u"$(InputName)"_s);
        SystemMacroTable::instance().setClock([] { return QDateTime::fromSecsSinceEpoch(5); });
        for (int round = 0; round < 2; ++round)
            for (const char *name : {"x.c", "y.s", "z"})
                EXPECT_EQ(system.expandedValue(node(name), ProjectProperty::build_object_file_name, u"Debug"_s),
                          system.expand(node(name), u"Debug"_s, QString::fromUtf8(text)))
                    << text << " " << name;
    }
}
