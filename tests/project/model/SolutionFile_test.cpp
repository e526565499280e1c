#include "project/model/SolutionFile.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QByteArray exampleText = R"(<!DOCTYPE Veldane_Project_File>
<solution Name="blinky" target="8" version="2">
  <project Name="blinky">
    <configuration
      Name="Common"
      c_preprocessor_definitions="NDEBUG;X=1"
      project_type="Executable" />
    <folder Name="Source Files" filter="c;cpp;s">
      <file file_name="main.c" />
    </folder>
    <folder Name="More" filter="*.c" path="src" recurse="Yes" />
  </project>
  <configuration Name="Debug" inherited_configurations="Common" />
  <configuration Name="Base" hidden="Yes" />
</solution>
)";

} // namespace

class SolutionFileTest : public testing::Test
{
protected:
    QString write(const char *name, const QByteArray &text)
    {
        QFile file(folder.path(name));
        EXPECT_TRUE(file.open(QFile::WriteOnly));
        file.write(text);
        return file.fileName();
    }
    static QByteArray content(const QString &path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QFile::ReadOnly));
        return file.readAll();
    }
    std::unique_ptr<ProjectElement> load(const QString &path)
    {
        return loadSolution(QString(), path, QString(), loaded);
    }
    // What is thrown, with "FOLDER" for the test's; the line behind it when there is one.
    QString loadError(const QString &path)
    {
        try {
            load(path);
        } catch (const SolutionLoadError &error) {
            QString at = error.hasPosition ? u" : %1"_s.arg(error.line) : QString();
            if (!error.importedAt.isEmpty())
                at += " by "_L1 + error.importedAt;
            return QString(error.message + at).replace(folder.root(), u"FOLDER"_s);
        }
        return u"no error"_s;
    }

    const TemporaryFolder folder;
    QStringList loaded;
};

TEST_F(SolutionFileTest, IsWrittenAsItWasRead)
{
    const QString path = write("a.vnProject", exampleText);
    const auto root = load(path);
    EXPECT_EQ(solutionText(*root), exampleText);
    EXPECT_EQ(loaded, QStringList(path));
    const ProjectElement *project = root->firstElement();
    EXPECT_EQ(project->type(), ProjectElement::Type::Project);
    EXPECT_EQ(project->configuration(u"Common"_s)->property(u"project_type"_s), u"Executable"_s);
    EXPECT_EQ(root->configurations().keys(), QStringList({u"Base"_s, u"Debug"_s}));
    saveSolution(*root);
    EXPECT_EQ(content(path), exampleText);
}

TEST_F(SolutionFileTest, KeepsWhatItDoesNotKnow)
{
    const auto root = load(write("a.vnProject", R"(<!DOCTYPE Veldane_Project_File>
        <solution zeta="1" Alpha="&lt;ä" latin="&#228;" version="1" Name=""><thing b="2" a="1"><part/></thing>
        <folder Name="f" file_name="gone"/></solution>)"));
    EXPECT_FALSE(root->isModified()) << "raising the version is no change";
    EXPECT_EQ(root->property(u"Alpha"_s), u"<ä"_s);
    saveSolution(*root);
    EXPECT_EQ(content(root->filePath()), QByteArray(R"(<!DOCTYPE Veldane_Project_File>
<solution Alpha="&lt;&#xc3;&#xa4;" latin="&#xc3;&#xa4;" target="8" version="2" zeta="1">
  <thing a="1" b="2">
    <part/>
  </thing>
  <folder Name="f" />
</solution>
)"));
}

TEST_F(SolutionFileTest, PutsImportsInPlace)
{
    write("lib.vnProject", R"(<!DOCTYPE Veldane_Project_File><solution Name="lib"><project Name="p"/></solution>)");
    const QByteArray text = R"(<!DOCTYPE Veldane_Project_File>
<solution Name="app" target="8" version="2">
  <import
    file_name="lib.vnProject"
    macros="A=1"
    mine="x"
    can_modify_solution="No" />
  <project Name="app" />
</solution>
)";
    const auto root = load(write("app.vnProject", text));
    ProjectElement *lib = root->firstElement();
    ASSERT_EQ(lib->type(), ProjectElement::Type::Solution);
    EXPECT_TRUE(lib->isImported());
    EXPECT_FALSE(lib->canModify());
    EXPECT_EQ(lib->firstElement()->enclosing(ProjectElement::Type::Solution), lib);
    EXPECT_EQ(loaded.size(), 2);
    lib->setProperty(u"Name"_s, u"library"_s);
    saveSolution(*root);
    EXPECT_EQ(content(root->filePath()), text);
    EXPECT_TRUE(lib->isModified()) << "it has a file of its own";
    saveSolution(*lib);
    EXPECT_EQ(content(lib->filePath()), R"(<!DOCTYPE Veldane_Project_File>
<solution Name="library" target="8" version="2">
  <project Name="p" />
</solution>
)");
    EXPECT_TRUE(lib->isImported());
}

TEST_F(SolutionFileTest, ComparesTheRightToModifyExactly)
{
    write("lib.vnProject", R"(<!DOCTYPE Veldane_Project_File><solution/>)");
    const auto root = load(write("app.vnProject", R"(<!DOCTYPE Veldane_Project_File>
        <solution><import file_name="lib.vnProject" can_modify_solution="no"/></solution>)"));
    EXPECT_TRUE(root->firstElement()->canModify());
}

TEST_F(SolutionFileTest, WritesOnlyConfigurationsOfDynamicFolders)
{
    const auto root = load(write("a.vnProject", R"(<!DOCTYPE Veldane_Project_File><solution><folder Name="d" path="src">
        <file file_name="x.c"/><configuration Name="Common" a="b"/><folder Name="e"/></folder></solution>)"));
    EXPECT_EQ(solutionText(*root), R"(<!DOCTYPE Veldane_Project_File>
<solution version="2">
  <folder Name="d" path="src">
    <configuration Name="Common" a="b" />
  </folder>
</solution>
)");
}

TEST_F(SolutionFileTest, RefusesWhatItCannotLoad)
{
    struct
    {
        const char *text, *error;
    } const rows[] = {
        {"<!DOCTYPE Other>\n<solution/>", "FOLDER/a.vnProject not a solution file"},
        {"<solution/>", "FOLDER/a.vnProject not a solution file"},
        {"<!DOCTYPE Veldane_Project_File><project/>", "FOLDER/a.vnProject is a malformed solution file (bad XML) : 1"},
        {"<!DOCTYPE Veldane_Project_File>\n<solution><import file_name='a.vnProject'/></solution>",
         "FOLDER/a.vnProject solution already loaded by FOLDER/a.vnProject:2"},
        {"<!DOCTYPE Veldane_Project_File><solution><import file_name='b.vnProject'/></solution>",
         "FOLDER/b.vnProject does not exist by FOLDER/a.vnProject:1"},
        {"<!DOCTYPE Veldane_Project_File><solution><import/></solution>",
         "FOLDER cannot access by FOLDER/a.vnProject:1"},
        {"<!DOCTYPE Veldane_Project_File><solution><project>\n<project/></project></solution>",
         "<project> can't stand within a project : 2"},
        {"<!DOCTYPE Veldane_Project_File><solution><project><folder>\n<import file_name='b'/></folder></project>"
         "</solution>",
         "<import> can't stand within a project : 2"},
        {"<!DOCTYPE Veldane_Project_File><solution><folder><solution/></folder></solution>",
         "<solution> can't stand within a solution : 1"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(loadError(write("a.vnProject", row.text)), QString::fromLatin1(row.error)) << row.text;
        EXPECT_TRUE(loaded.isEmpty()) << row.text;
    }
    EXPECT_TRUE(
        loadError(write("a.vnProject", "<!DOCTYPE Veldane_Project_File>\n<solution>\n<a></b>")).endsWith(u" : 3"_s));
    const QByteArray head = "<!DOCTYPE Veldane_Project_File>\n<solution>\n", end = "</solution>";
    const auto nested = [](int depth) {
        return QByteArray("<folder>").repeated(depth) + QByteArray("</folder>").repeated(depth);
    };
    EXPECT_EQ(loadError(write("a.vnProject", head + nested(255) + end)), u"no error"_s);
    loaded.clear();
    EXPECT_EQ(loadError(write("a.vnProject", head + nested(256) + end)), u"elements are nested too deeply : 3"_s);
}

TEST_F(SolutionFileTest, TellsWhereACutOffFileIsOpen)
{
    const QString malformed = u"FOLDER/a.vnProject is a malformed solution file (bad XML)"_s;
    struct
    {
        const char *behind, *element;
    } const rows[] = {
        {"version=\"2\">\n", ": <solution> has no end : 2"}, {"<file file_name", ": <file> has no end : 9"},
        {"recurse=\"Yes", ": <folder> has no end : 11"},     {"</project>", ": <solution> has no end : 2"},
        {"<!DOCTYPE Veldane_Project_File>", " : 1"},         {"version=\"2\">\n  <", " : 3"},
    };
    for (const auto &row : rows) {
        const qsizetype end = exampleText.indexOf(row.behind) + qstrlen(row.behind);
        EXPECT_EQ(loadError(write("a.vnProject", exampleText.first(end))), malformed + QLatin1StringView(row.element));
    }
    for (qsizetype size = 0; size < exampleText.size() - 1; ++size) {
        EXPECT_NE(loadError(write("a.vnProject", exampleText.first(size))), u"no error"_s) << size;
        EXPECT_TRUE(loaded.isEmpty());
    }
}

TEST_F(SolutionFileTest, RefusesCyclesOfImports)
{
    const auto importing = [](const char *file) {
        return QByteArray("<!DOCTYPE Veldane_Project_File><solution><import file_name='") + file + "'/></solution>";
    };
    write("a.vnProject", importing("./b.vnProject"));
    write("b.vnProject", importing("c.vnProject"));
    EXPECT_EQ(loadError(write("c.vnProject", importing("b.vnProject"))),
              u"FOLDER/c.vnProject solution already loaded by FOLDER/b.vnProject:1"_s);
    EXPECT_EQ(loadError(folder.path("a.vnProject")),
              u"FOLDER/b.vnProject solution already loaded by FOLDER/c.vnProject:1"_s);
    QFile::link(folder.path("d.vnProject"), folder.path("e.vnProject"));
    EXPECT_EQ(loadError(write("d.vnProject", importing("e.vnProject"))),
              u"FOLDER/e.vnProject solution already loaded by FOLDER/e.vnProject:1"_s)
        << "by another name";
}

TEST_F(SolutionFileTest, StaysWhenItCannotBeWritten)
{
    const auto root = load(write("a.vnProject", exampleText));
    root->setFile(folder.path("none/a.vnProject"), {});
    root->setProperty(u"Name"_s, u"other"_s);
    EXPECT_THROW(saveSolution(*root), SolutionSaveError);
    EXPECT_TRUE(root->isModified());
}

TEST_F(SolutionFileTest, RenamesAndRemovesAllOfAName)
{
    const auto root =
        load(write("a.vnProject", R"(<!DOCTYPE Veldane_Project_File><solution><configuration Name="A" x="1"/>
        <configuration Name="B"/><configuration Name="A" x="2"/></solution>)"));
    EXPECT_EQ(root->configuration(u"A"_s)->property(u"x"_s), u"2"_s) << "the later one counts";
    root->renameConfiguration(u"A"_s, u"B"_s);
    EXPECT_EQ(root->configurations().keys(), QStringList(u"B"_s));
    EXPECT_EQ(root->firstElement()->displayName(), u"B"_s);
    root->removeConfiguration(u"B"_s);
    EXPECT_EQ(root->firstElement(), nullptr);
}

TEST(ProjectElement, AddsAndRemovesConfigurations)
{
    ProjectElement project("project");
    ProjectElement *debug = project.addConfiguration(u"Debug"_s);
    EXPECT_EQ(project.addConfiguration(u"Debug"_s), debug);
    EXPECT_EQ(project.configuration(u"Debug"_s), debug);
    EXPECT_TRUE(project.isModified());
    project.removeConfiguration(u"Debug"_s);
    EXPECT_EQ(project.configuration(u"Debug"_s), nullptr);
    EXPECT_EQ(project.firstElement(), nullptr);
    EXPECT_EQ(project.displayName(), u"<NULL>"_s);
    project.setProperty(u"file_name"_s, u"src/a.c"_s);
    EXPECT_EQ(project.displayName(), u"a.c"_s);
}
