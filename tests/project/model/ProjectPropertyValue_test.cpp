#include "project/model/ProjectFixture.h"
#include "project/model/ProjectPropertyValue.h"

using namespace Qt::StringLiterals;

class ProjectPropertyValueTest : public ProjectFixture
{
protected:
    std::unique_ptr<ProjectPropertyValue> value(const char *name, ProjectProperty property, const char *configuration)
    {
        return makeProjectPropertyValue(&system, &system.schema()[property], node(name),
                                        QString::fromLatin1(configuration));
    }
};

TEST_F(ProjectPropertyValueTest, ReadsAndWritesOneConfiguration)
{
    load(R"(<solution><configuration Name="Common" c_preprocessor_definitions="OUTER" project_type="Library"/>
        <project Name="p"><configuration Name="Debug" c_preprocessor_definitions="MINE"/></project></solution>)");
    const auto type = value("p", ProjectProperty::project_type, "Debug");
    EXPECT_EQ(type->value(), u"Library"_s);
    EXPECT_TRUE(type->isInherited());
    type->setValue(u"Staging"_s);
    EXPECT_FALSE(type->isInherited());
    EXPECT_TRUE(type->isChanged());
    EXPECT_EQ(value("p", ProjectProperty::project_type, "Release")->value(), u"Library"_s);
    type->useInherited();
    EXPECT_EQ(type->value(), u"Library"_s);

    EXPECT_EQ(value("p", ProjectProperty::c_preprocessor_definitions, "Debug")->value(), u"MINE"_s);
    EXPECT_EQ(value("p", ProjectProperty::c_preprocessor_definitions, "Common")->value(), QString());

    value("p", ProjectProperty::macros, "Debug")->setValue(u"A=1"_s);
    EXPECT_EQ(node("p")->configuration(u"Common"_s)->property(u"macros"_s), u"A=1"_s) << "they are for all of them";

    const auto name = value("p", ProjectProperty::Name, "Debug");
    name->setValue(u"q"_s);
    EXPECT_EQ(node("q")->property(u"Name"_s), u"q"_s) << "a name belongs to no configuration";
    EXPECT_EQ(name->clone()->value(), u"q"_s);
    node("q")->setCanModify(false);
    EXPECT_TRUE(name->isReadOnly());
}

TEST_F(ProjectPropertyValueTest, ListsOfConfigurations)
{
    ProjectElement *root = load(R"(<solution><configuration Name="Debug" inherited_configurations="Base;X"/>
        <configuration Name="Base" hidden="Yes"/></solution>)");
    const auto make = [&](ProjectProperty property) {
        return makeProjectPropertyValue(&system, &system.schema()[property], root, u"Debug"_s);
    };
    EXPECT_EQ(make(ProjectProperty::inherited_configurations)->value(), u"Base;X"_s);
    make(ProjectProperty::inherited_configurations)->setValue(u"X"_s);
    EXPECT_EQ(root->configuration(u"Debug"_s)->property(u"inherited_configurations"_s), u"X"_s);
    make(ProjectProperty::public_configurations)->setValue(u"Debug;;Fast"_s);
    EXPECT_EQ(make(ProjectProperty::public_configurations)->value(), u"Debug;Fast"_s);
    make(ProjectProperty::private_configurations)->setValue(QString());
    EXPECT_EQ(make(ProjectProperty::private_configurations)->value(), QString());
    EXPECT_EQ(root->configurations().keys(), QStringList({u"Debug"_s, u"Fast"_s}));
}

TEST_F(ProjectPropertyValueTest, AGroupsChoiceSetsWhatItStandsFor)
{
    folder.write("groups.xml", R"(<groups><group name="board" short="Board" default="A"><groupEntry name="A">
        <property name="project_type" value="Library"/><property name="no_such" value="1"/>
        <property name="macros" configuration="Release" value="X=1"/>
        <file name="start" file_name="a/start.s" folder="System"/></groupEntry>
        <groupEntry name="B"><file name="start" file_name="b/start.s" folder="System"/></groupEntry></group></groups>)");
    load(R"(<solution><project Name="p"><configuration Name="Common" property_groups_file_path="groups.xml"/>
        <folder Name="Target"><folder Name="System"/></folder></project></solution>)");
    PropertyValueList values = projectPropertyValues(&system, node("p"), u"Debug"_s);
    EXPECT_GT(values.size(), 100u);
    const auto board = std::find_if(values.begin(), values.end(),
                                    [](const auto &one) { return one->propertyClass()->name == "board"_L1; });
    ASSERT_NE(board, values.end());
    EXPECT_EQ((*board)->value(), u"A"_s);
    (*board)->setValue(u"unknown"_s);
    const ProjectElement *project = node("p");
    EXPECT_EQ(project->configuration(u"Debug"_s)->property(u"project_type"_s), u"Library"_s);
    EXPECT_EQ(project->configuration(u"Release"_s)->property(u"macros"_s), u"X=1"_s);
    EXPECT_EQ(project->configuration(u"Debug"_s)->property(u"board"_s), u"unknown"_s);
    EXPECT_EQ(node("start")->property(u"file_name"_s), u"a/start.s"_s);
    EXPECT_EQ(node("start")->parentElement(), node("System"));
    EXPECT_EQ(node("System")->parentElement(), node("Target")) << "the folder that was there";
    (*board)->setValue(u"B"_s);
    EXPECT_EQ(node("start")->property(u"file_name"_s), u"b/start.s"_s);
    EXPECT_EQ(node("System")->firstElement()->nextElement(), nullptr) << "the same file";
}
