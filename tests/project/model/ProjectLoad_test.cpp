#include "project/model/ProjectFixture.h"

#include <QFileInfo>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// Notes what a load tells, indented by how deep messages are nested.
struct Progress : ProjectLoadProgressInterface
{
    void message(const QString &text, int) override { lines.append(QString(depth++, u' ') + text); }
    void endMessage() override { --depth; }
    void setProgress(int step, int steps) override { lastStep = u"%1 of %2"_s.arg(step).arg(steps); }
    bool isCancelled() override { return isStopped; }

    QStringList lines;
    QString lastStep;
    int depth = 0;
    bool isStopped = false;
};

struct MakesFile : ProjectFileNotFoundErrorHandler
{
    bool fileNotFound(const QString &fileName) override
    {
        QFile file(fileName);
        return file.open(QFile::WriteOnly) && file.write("<!DOCTYPE Veldane_Project_File><solution/>") > 0;
    }
};

} // namespace

class ProjectLoad : public ProjectFixture
{
protected:
    QString read(const char *name) const { return QString::fromUtf8(folder.read(name)); }
};

TEST_F(ProjectLoad, TellsItsSteps)
{
    QDir(folder.root()).mkdir(u"src"_s);
    writeSolution("lib.vnProject", "<solution Name='lib'/>");
    writeSolution("app.vnProject", R"(<solution><import file_name="lib.vnProject"/>
        <project Name="app"><folder Name="Sources" path="src"/></project></solution>)");
    Progress progress;
    system.loadSolution(folder.root(), u"app.vnProject"_s, {nullptr, nullptr, &progress});
    EXPECT_EQ(progress.lines,
              QStringList({u"Loading solution app.vnProject"_s, u" Loading solution lib.vnProject"_s,
                           u"Mapping project information"_s, u" Mapping project app"_s, u"Populating dynamic folders"_s,
                           u" Populating folder Sources in project app"_s}));
    EXPECT_EQ(progress.depth, 0);
    EXPECT_EQ(progress.lastStep, u"1 of 2"_s);
    EXPECT_EQ(system.loadedFiles(), QStringList({folder.path("app.vnProject"), folder.path("lib.vnProject")}));
    progress.isStopped = true;
    EXPECT_THROW(system.loadSolution(folder.root(), u"lib2.vnProject"_s, {nullptr, nullptr, &progress}),
                 SolutionLoadError);
}

TEST_F(ProjectLoad, RefusesWhatIsOpenAlready)
{
    load("<solution Name='first'/>");
    EXPECT_THROW(system.loadSolution(QString(), folder.path("main.vnProject")), SolutionLoadError);
    ASSERT_NE(system.solution(), nullptr) << "the open one stays";
    writeSolution("other.vnProject", "<solution Name='second'/>");
    system.loadSolution(QString(), folder.path("other.vnProject"));
    EXPECT_EQ(system.solution()->displayName(), u"second"_s);
    EXPECT_EQ(system.loadedFiles(), QStringList(folder.path("other.vnProject")));
}

TEST_F(ProjectLoad, AsksForAFileThatIsMissing)
{
    MakesFile maker;
    system.loadSolution(folder.root(), u"made.vnProject"_s, {&maker, nullptr, nullptr});
    EXPECT_EQ(system.solution()->filePath(), folder.path("made.vnProject"));
}

TEST_F(ProjectLoad, RunsCommandsUntilOneFails)
{
    EXPECT_EQ(
        loadError(R"xml(<solution load_command="sh -c &quot;pwd > $(HostOS).txt; echo $V >> linux.txt&quot; &amp;&amp;
        touch 'b.txt'" load_command_environment="V=1 2;;W=3"/>)xml"),
        u"no error"_s);
    EXPECT_EQ(read("linux.txt"), folder.root() + "\n1 2\n"_L1);
    EXPECT_TRUE(QFile::exists(folder.path("'b.txt'"))) << "only double quotes hold words together";
    EXPECT_EQ(loadError("<solution load_command='sh -c \"exit 3\" &amp;&amp; touch never.txt'/>"),
              u"solution load command failed (3) FOLDER/main.vnProject : 2"_s);
    EXPECT_FALSE(QFile::exists(folder.path("never.txt")));
    EXPECT_EQ(loadError("<solution load_command=' ./none -x '/>"),
              u"solution load command \" ./none -x \" not found : 2"_s);
}

TEST_F(ProjectLoad, SetsTheEnvironment)
{
    load(R"xml(<solution><configuration Name="Common"
        environment_variables="VN_TEST_A=$(HostOS)=x;VN_TEST_B;VN_TEST_C="/></solution>)xml");
    EXPECT_EQ(qgetenv("VN_TEST_A"), "linux=x");
    EXPECT_FALSE(qEnvironmentVariableIsSet("VN_TEST_B"));
    EXPECT_TRUE(qEnvironmentVariableIsSet("VN_TEST_C"));
    for (const char *name : {"VN_TEST_A", "VN_TEST_C"})
        qunsetenv(name);
}

TEST_F(ProjectLoad, ChecksTargetAndTemplates)
{
    const QString wrongTarget = u"invalid solution target (9, expected 8) : 2"_s;
    EXPECT_EQ(loadError("<solution target='9' load_command='touch never.txt'/>"), wrongTarget);
    EXPECT_FALSE(QFile::exists(folder.path("never.txt")));
    writeSolution("nine.vnProject", "<solution target='9'/>");
    EXPECT_EQ(loadError("<solution><import file_name='nine.vnProject'/></solution>"), wrongTarget);
    EXPECT_EQ(loadError("<solution target='8'/>"), u"no error"_s);
    EXPECT_EQ(loadError("<solution>\n<project Name='p' template_name='t'/></solution>"),
              u"no template for project p : 3"_s);
    EXPECT_EQ(loadError("<solution templates_file='$(HostOS)/t.xml'/>"), u"no error"_s);
    EXPECT_EQ(system.templatesFile(), u"linux/t.xml"_s);

    struct Expanding : StandardProjectSystem
    {
        bool expandTemplate(ProjectElement *project, const QString &key, const QStringList &configurations) override
        {
            project->setProperty(u"made"_s, key + configurations.join(u','));
            return key == "known"_L1;
        }
    } expanding;
    struct Handler : TemplateNotFoundErrorHandler
    {
        QString templateNotFound(const ProjectElement *, const QString &) override { return u"known"_s; }
    } handler;
    writeSolution("t.vnProject",
                  "<solution><project Name='p' template_name='t' template_configurations='A;B'/></solution>");
    expanding.loadSolution(folder.root(), u"t.vnProject"_s, {nullptr, &handler, nullptr});
    const ProjectElement *project = expanding.project(u"p"_s);
    EXPECT_EQ(project->property(u"made"_s), u"knownA,B"_s);
    EXPECT_FALSE(project->hasProperty(u"template_name"_s));
}

TEST_F(ProjectLoad, MapsProjectsOverImports)
{
    writeSolution("lib.vnProject", "<solution Name='lib'><project Name='a'/><folder Name='f'><project Name='b'/>"
                                   "</folder></solution>");
    load("<solution Name='app'><project Name='c'/><import file_name='lib.vnProject'/><project Name='a'/></solution>");
    QStringList names;
    for (const ProjectElement *project : system.projects())
        names.append(project->displayName());
    EXPECT_EQ(names, QStringList({u"c"_s, u"a"_s, u"b"_s, u"a"_s}));
    EXPECT_EQ(system.project(u"a"_s), system.projects()[1]) << "the first of a name";
    EXPECT_EQ(system.project(u"d"_s), nullptr);
    EXPECT_EQ(system.solutionNamed(u"lib"_s)->filePath(), folder.path("lib.vnProject"));
    system.setPropertyValue(system.project(u"c"_s), &system.schema()[ProjectProperty::Name], QString(), u"d"_s);
    EXPECT_NE(system.project(u"d"_s), nullptr);
}

TEST_F(ProjectLoad, ForgetsWhatADynamicFolderHad)
{
    folder.write("x.c", "");
    load(R"(<solution><folder Name="d" path="."><project Name="p"><file file_name="y.c"/></project>
        <folder Name="plain"><folder Name="inner" path="."/></folder></folder></solution>)");
    EXPECT_EQ(system.project(u"p"_s), nullptr);
    EXPECT_TRUE(system.projects().isEmpty());
    EXPECT_EQ(node("x.c")->parentElement(), node("d"));
}

TEST_F(ProjectLoad, ImportsASolutionOnce)
{
    QDir(folder.root()).mkdir(u"lib"_s);
    writeSolution("lib/lib.vnProject", "<solution Name='lib'><project Name='l'/></solution>");
    ProjectElement *root = load("<solution/>");
    ProjectElement *imported = system.importSolution(root, folder.path("lib/lib.vnProject"));
    EXPECT_EQ(imported->property(u"file_name"_s), u"lib/lib.vnProject"_s);
    EXPECT_EQ(system.importSolution(root, folder.path("lib/lib.vnProject")), imported);
    EXPECT_NE(system.project(u"l"_s), nullptr);
    EXPECT_TRUE(root->isModified());
    EXPECT_THROW(system.importSolution(root, u"$(HostOS).vnProject"_s), SolutionLoadError);
    EXPECT_THROW(system.importSolution(imported, folder.path("main.vnProject")), SolutionLoadError) << "a cycle";
    system.saveFile(root);
    EXPECT_FALSE(root->isModified());
    EXPECT_TRUE(read("main.vnProject").contains("<import file_name=\"lib/lib.vnProject\" />"_L1));
    writeSolution("lib/more.vnProject", "<solution Name='more'/>");
    system.importSolution(root, u"lib/more.vnProject"_s, {}, u"A=1"_s);
    system.saveFile(root);
    EXPECT_TRUE(read("main.vnProject").contains("<import file_name=\"lib/more.vnProject\" macros=\"A=1\" />"_L1));
}

TEST_F(ProjectLoad, MakesAndSavesSolutions)
{
    ProjectElement *root = system.newSolution(folder.root(), u"new"_s);
    EXPECT_EQ(root->filePath(), folder.path("new.vnProject"));
    QStringList saved;
    QObject::connect(&system, &ProjectSystem::fileSaved, [&saved](const QString &path) { saved.append(path); });
    system.saveFile(root);
    system.saveFile(root); // unmodified by then
    system.saveSolutionAs(root, folder.path("copy.vnProject"));
    EXPECT_EQ(saved, QStringList({folder.path("new.vnProject"), folder.path("copy.vnProject")}));
    EXPECT_EQ(root->filePath(), folder.path("new.vnProject"));
    EXPECT_EQ(read("copy.vnProject"),
              u"<!DOCTYPE Veldane_Project_File>\n<solution Name=\"new\" target=\"8\" version=\"2\" />\n"_s);

    struct Handler : ProjectFileSaveErrorHandler
    {
        bool cannotSave(ProjectElement *) override { return ++count < 3; }
        int count = 0;
    } handler;
    root->setProperty(u"a"_s, u"b"_s);
    EXPECT_THROW(system.saveSolutionAs(root, folder.path("none/x.vnProject"), &handler), SolutionSaveError);
    EXPECT_EQ(handler.count, 3);
    EXPECT_EQ(root->filePath(), folder.path("new.vnProject"));
    EXPECT_TRUE(root->isModified());
}

TEST_F(ProjectLoad, SavesKeepPermissions)
{
    ProjectElement *root = load("<solution/>");
    const QByteArray path = root->filePath().toLocal8Bit();
    for (const mode_t mode : {0640u, 0600u, 0664u}) {
        ASSERT_EQ(::chmod(path.constData(), mode), 0);
        system.saveSolution(root);
        struct stat status;
        ASSERT_EQ(::stat(path.constData(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, mode);
    }
}

TEST_F(ProjectLoad, NoticesFilesChangedOnDisk)
{
    writeSolution("lib.vnProject", "<solution/>");
    load("<solution><import file_name='lib.vnProject'/></solution>");
    EXPECT_EQ(system.filesChangedOnDisk(), QStringList());
    QFile file(folder.path("lib.vnProject"));
    ASSERT_TRUE(file.open(QFile::ReadWrite));
    file.setFileTime(QDateTime::currentDateTime().addSecs(9), QFileDevice::FileModificationTime);
    file.close();
    EXPECT_EQ(system.filesChangedOnDisk(), QStringList(folder.path("lib.vnProject")));
    system.rememberFileTimes();
    EXPECT_EQ(system.filesChangedOnDisk(), QStringList());
}
