#include "project/model/ProjectFixture.h"

#include <unistd.h>

using namespace Qt::StringLiterals;

class ProjectEdit : public ProjectFixture
{
protected:
    // The files and folders below a node, a folder's in brackets behind its name.
    static QString shape(const ProjectElement *parent)
    {
        QStringList names;
        for (const ProjectElement *child = parent->firstElement(); child; child = child->nextElement()) {
            if (child->type() == ProjectElement::Type::File)
                names.append(child->property(u"file_name"_s));
            else if (child->type() == ProjectElement::Type::Folder)
                names.append(child->displayName() + u'[' + shape(child) + u']');
        }
        return names.join(u' ');
    }
    void makeFiles(const QStringList &files)
    {
        for (const QString &file : files) {
            QDir(folder.root()).mkpath(QFileInfo(file).path());
            folder.write(file.toLocal8Bit().constData(), "");
        }
    }
    const PropertyClass *property(ProjectProperty id) const { return &system.schema()[id]; }
};

TEST_F(ProjectEdit, PutsFilesWhereTheFilterSays)
{
    load(R"(<solution><project Name="p"><folder Name="s" filter="cpp, c;s"/><folder Name="h">
        <configuration Name="Common" filter="h"/></folder><folder Name="t"/></project></solution>)");
    ProjectElement *project = node("p");
    for (const char *name : {"a.C", "b.h", "c.txt", "d.s"})
        system.addFile(project, QString::fromLatin1(name));
    system.addFile(node("t"), u"e.c"_s);
    EXPECT_EQ(shape(project), u"s[d.s] h[b.h] t[e.c] a.C c.txt"_s) << "\" c\" isn't \"c\"";
    EXPECT_TRUE(project->isModified());

    ProjectElement *added = system.addFolder(project, u"new"_s, u"x;y"_s);
    EXPECT_EQ(added->configuration(u"Common"_s)->property(u"filter"_s), u"x;y"_s);
    EXPECT_EQ(system.addFolder(project, u"new"_s), added);
}

TEST_F(ProjectEdit, DynamicFoldersShowWhatIsThere)
{
    makeFiles({u"src/b.c"_s, u"src/A.c"_s, u"src/a.h"_s, u"src/sub/c.c"_s, u"src/sub/skip_d.c"_s, u"src/empty/x.txt"_s,
               u"src/old/e.c"_s, u"more/sub/f.c"_s, u"src/.hidden.c"_s});
    load(
        R"xml(<solution><project Name="p"><folder Name="d" path="src;none;$(SolutionDir)/more" filter="*.c" recurse="Yes"
        exclude="old;skip*"><configuration Name="Common" x="y"/><file file_name="gone.c"/></folder></project></solution>)xml");
    ProjectElement *dynamic = node("d");
    EXPECT_EQ(shape(dynamic).replace(folder.root(), u"FOLDER"_s),
              u"src/A.c src/b.c empty[] sub[src/sub/c.c FOLDER/more/sub/f.c]"_s);
    EXPECT_FALSE(system.solution()->isModified());
    EXPECT_FALSE(node("A.c")->canModify() || node("A.c")->isModified() || dynamic->isModified());
    EXPECT_EQ(system.path(node("c.c"), u"Debug"_s), folder.path("src/sub/c.c"));
    system.saveSolution(system.solution());
    EXPECT_FALSE(folder.read("main.vnProject").contains("A.c"));
    EXPECT_TRUE(folder.read("main.vnProject").contains("x=\"y\""));

    int changes = 0;
    QObject::connect(&system, &ProjectSystem::projectChanged, [&changes] { ++changes; });
    system.setPropertyValue(node("A.c"), property(ProjectProperty::macros), u"Common"_s, u"a=b"_s);
    system.setPropertyValue(dynamic, property(ProjectProperty::recurse), QString(), u"No"_s);
    EXPECT_EQ(shape(dynamic), u"src/A.c src/b.c"_s);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(system.changes().size(), 1u) << "the file that was changed is another one";
    system.setPropertyValue(dynamic, property(ProjectProperty::dynamic_filter), QString(), QString());
    EXPECT_EQ(shape(dynamic), u"src/A.c src/a.h src/b.c"_s);
    EXPECT_EQ(dynamic->configuration(u"Common"_s)->property(u"x"_s), u"y"_s);

    ProjectElement *added = system.addDynamicFolder(node("p"), u"e"_s, u"src"_s, u"*.txt"_s, true, u"sub"_s);
    EXPECT_EQ(shape(added), u"empty[src/empty/x.txt] old[]"_s);
}

TEST_F(ProjectEdit, DynamicFoldersSurviveLoopsOfLinks)
{
    makeFiles({u"src/a/x.c"_s});
    ASSERT_EQ(::symlink(".", folder.path("src/a/self").toLocal8Bit().constData()), 0);
    ASSERT_EQ(::symlink("../..", folder.path("src/a/up").toLocal8Bit().constData()), 0);
    load("<solution><project Name='p'><folder Name='d' path='src' filter='*.c' recurse='Yes'/></project></solution>");
    EXPECT_EQ(shape(node("d")), u"a[self[] up[src[]] src/a/x.c]"_s);
}

TEST_F(ProjectEdit, ConfigurationsAreRenamedEverywhere)
{
    writeSolution("fixed.vnProject", "<solution Name='fixed'><configuration Name='Debug'/></solution>");
    load(R"(<solution><import file_name="fixed.vnProject" can_modify_solution="No"/>
        <configuration Name="Debug"/><configuration Name="Fast" inherited_configurations="X;Debug;Debugger"/>
        <project Name="p"><configuration Name="Debug" a="b"/></project></solution>)");
    ProjectElement *root = system.solution();
    EXPECT_FALSE(system.renameConfiguration(root, u"Debug"_s, u"Common"_s));
    EXPECT_FALSE(system.renameConfiguration(root, u"Debug"_s, u"Fast"_s));
    EXPECT_FALSE(system.renameConfiguration(root, u"Debug"_s, u"Debug"_s));
    EXPECT_TRUE(system.renameConfiguration(root, u"Debug"_s, u"Test"_s));
    EXPECT_EQ(root->configurations().keys(), QStringList({u"Fast"_s, u"Test"_s}));
    EXPECT_EQ(system.inheritedConfigurations(node("p"), u"Fast"_s), QStringList({u"X"_s, u"Test"_s, u"Debugger"_s}));
    EXPECT_EQ(node("p")->configuration(u"Test"_s)->property(u"a"_s), u"b"_s);
    EXPECT_EQ(node("p")->configuration(u"Debug"_s), nullptr);
    EXPECT_NE(node("fixed")->configuration(u"Debug"_s), nullptr) << "it can't be modified";
    system.removeConfiguration(root, u"Test"_s);
    EXPECT_TRUE(node("p")->configurations().isEmpty());
}

TEST_F(ProjectEdit, ListsConfigurations)
{
    enum {
        Common = ProjectSystem::CommonConfiguration,
        Private = ProjectSystem::PrivateConfigurations,
        Public = ProjectSystem::PublicConfigurations
    };
    SystemMacroTable::instance().addSystemMacro(u"Platform"_s, u"arm"_s, QString());
    writeSolution("lib.vnProject", "<solution Name='lib'><configuration Name='Lib'/></solution>");
    load(R"(<solution><import file_name="lib.vnProject"/><configuration Name="Release"/><configuration Name="Debug"
        Platform="arm"/><configuration Name="Other" Platform="riscv"/><configuration Name="Base" hidden="Yes"/>
        <configuration Name="Shown" hidden="yes"/><configuration Name="Common"/></solution>)");
    ProjectElement *root = system.solution();
    EXPECT_EQ(system.configurationNames(root, Public), QStringList({u"Debug"_s, u"Release"_s, u"Shown"_s}));
    EXPECT_EQ(system.configurationNames(root, Private | Common), QStringList({u"Base"_s, u"Common"_s}));
    EXPECT_EQ(system.configurationNames(node("lib"), Public),
              QStringList({u"Debug"_s, u"Lib"_s, u"Release"_s, u"Shown"_s}));
    system.setPublicConfigurations(root, {u"Base"_s, u"Debug"_s, u"New"_s});
    EXPECT_EQ(system.publicConfigurations(root), QStringList({u"Base"_s, u"Debug"_s, u"New"_s}));
    EXPECT_EQ(system.privateConfigurations(root), QStringList());
    system.setPrivateConfigurations(root, {u"Debug"_s});
    EXPECT_EQ(system.privateConfigurations(root), QStringList(u"Debug"_s));
    EXPECT_EQ(system.publicConfigurations(root), QStringList({u"Base"_s, u"New"_s}));
    load("<solution><project Name='p'/></solution>");
    EXPECT_EQ(system.configurationNames(system.solution(), Public), QStringList(u"Common"_s)) << "something to build";
}

TEST_F(ProjectEdit, ForgetsChangesOfAPropertyThatIsGone)
{
    ProjectElement *root = load("<solution/>");
    PropertySchema &schema = system.schema();
    const PropertyClass *added =
        schema.registerPropertyClass(std::make_unique<PropertyClass>(u"mine"_s, PropertyType::String, PropertyTexts()));
    system.setPropertyValue(root, added, u"Common"_s, u"x"_s);
    system.setPropertyValue(root, property(ProjectProperty::macros), u"Common"_s, u"x=y"_s);
    schema.unregisterPropertyClass(added);
    ASSERT_EQ(system.changes().size(), 1u);
    EXPECT_EQ(system.changes()[0].propertyClass, property(ProjectProperty::macros));
}

TEST_F(ProjectEdit, NotesChangesAndUndoesThem)
{
    struct Doubling : PropertyClass
    {
        using PropertyClass::PropertyClass;
        std::optional<QString> derivedValue(const QString &value) const override { return value + value; }
    };
    ProjectElement *root = load("<solution><project Name='p'><file file_name='a.c'/></project></solution>");
    const QByteArray before = solutionText(*root);
    Doubling doubling(u"twice"_s, PropertyType::String, {});
    doubling.companion = property(ProjectProperty::macros);
    QStringList told;
    QObject::connect(&system, &ProjectSystem::propertyChanged,
                     [&told](ProjectElement *element, const QString &configuration, const PropertyClass *changed) {
                         told.append(element->displayName() + u' ' + configuration + u' ' + changed->name);
                     });
    ProjectElement *file = node("a.c");
    system.setPropertyValue(file, &doubling, u"Debug"_s, u"x"_s);
    EXPECT_EQ(told, QStringList({u"a.c Debug twice"_s, u"a.c Debug macros"_s}));
    EXPECT_EQ(file->configuration(u"Debug"_s)->property(u"macros"_s), u"xx"_s);
    ASSERT_EQ(system.changes().size(), 2u);
    EXPECT_EQ(system.changes()[1].element, file);
    EXPECT_EQ(system.changes()[1].configuration, u"Debug"_s);
    EXPECT_FALSE(system.changes()[0].hadValue || system.changes()[0].elementWasModified);
    EXPECT_TRUE(file->isModified());
    system.removePropertyValue(file, &doubling, u"Debug"_s);
    EXPECT_FALSE(file->configuration(u"Debug"_s)->hasProperty(u"twice"_s));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(system.undoChange());
    EXPECT_FALSE(system.undoChange());
    EXPECT_FALSE(file->isModified() || root->isModified());
    EXPECT_EQ(solutionText(*root), before) << "the configuration that was made for it is gone, too";
}
