// How a ProjectSystem opens, closes and saves solutions.
#include "project/model/ElementCache_p.h"
#include "project/model/ProjectSystem.h"

#include "base/HException.h"
#include "xml/tree/XMLNode.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int systemTarget = 8;
constexpr int commandPollMs = 100;

[[noreturn]] void fail(const QString &file, const XMLNode &place, const QString &message)
{
    throw SolutionLoadError{file, true, message, int(place.line()) + 1, 0, {}};
}

QString attributeText(const XMLElement &element, const char *name)
{
    return QString::fromUtf8(element.attribute(name));
}

// A message as long as this lives.
class Stage
{
public:
    Stage(ProjectLoadProgressInterface &progress, const QString &text, int kind = ProjectLoadProgressInterface::Detail)
        : m_progress(progress)
    {
        m_progress.message(text, kind);
    }
    ~Stage() { m_progress.endMessage(); }
    Q_DISABLE_COPY(Stage)

private:
    ProjectLoadProgressInterface &m_progress;
};

ProjectLoadProgressInterface &progressOf(const SolutionLoadHandlers &handlers)
{
    static ProjectLoadProgressInterface none;
    return handlers.progress ? *handlers.progress : none;
}

// Runs one command of a load in the solution's directory. Its output goes to our standard error.
void runLoadCommand(const QString &command, const XMLElement &root, const QString &file, const QStringList &settings,
                    ProjectLoadProgressInterface &progress)
{
    QStringList words = QProcess::splitCommand(command);
    if (words.isEmpty())
        return;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString &setting : settings)
        if (const qsizetype equals = setting.indexOf(u'='); equals > 0)
            environment.insert(setting.first(equals), setting.sliced(equals + 1));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(QFileInfo(file).path());
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setChildProcessModifier([] { ::dup2(STDERR_FILENO, STDOUT_FILENO); });
    process.setProgram(words.takeFirst());
    process.setArguments(words);
    process.start();
    process.closeWriteChannel();
    if (!process.waitForStarted(-1))
        fail(file, root, u"solution load command \"%1\" not found"_s.arg(command));
    while (!process.waitForFinished(commandPollMs) && process.state() != QProcess::NotRunning) {
        if (progress.isCancelled()) {
            process.kill();
            process.waitForFinished();
            throw StudioCancelException();
        }
    }
    const bool isDone = process.exitStatus() == QProcess::NormalExit;
    if (!isDone || process.exitCode() != 0)
        fail(file, root, u"solution load command failed (%1) %2"_s.arg(isDone ? process.exitCode() : -1).arg(file));
}

class LoadSteps : public SolutionLoadSteps
{
public:
    LoadSteps(const ProjectSystem &system, const SolutionLoadHandlers &handlers, QString &templatesFile)
        : m_system(system), m_handlers(handlers), m_progress(progressOf(handlers)), m_templatesFile(templatesFile)
    {}
    ~LoadSteps() override
    {
        while (m_open-- > 0)
            m_progress.endMessage();
    }

    bool fileNotFound(const QString &file) override
    {
        return m_handlers.fileNotFound && m_handlers.fileNotFound->fileNotFound(file);
    }

    void opened(const QString &file) override
    {
        m_progress.message("Loading solution "_L1 + QFileInfo(file).fileName(), ProjectLoadProgressInterface::Status);
        ++m_open;
    }

    void parsed(const XMLElement &root, const QString &file) override
    {
        const QString target = attributeText(root, "target");
        if (!target.isEmpty() && target.toInt() != systemTarget)
            fail(file, root, u"invalid solution target (%1, expected %2)"_s.arg(target, QString::number(systemTarget)));
        const QStringList commands =
            expandSystem(attributeText(root, "load_command")).split("&&"_L1, Qt::SkipEmptyParts);
        const QStringList settings = expandSystem(attributeText(root, "load_command_environment")).split(u';');
        if (!commands.isEmpty()) {
            const Stage stage(m_progress, u"Executing load commands"_s);
            const int steps = 2 * int(commands.size());
            for (int i = 0; i < commands.size(); ++i) {
                m_progress.setProgress(2 * i, steps);
                runLoadCommand(commands[i], root, file, settings, m_progress);
                m_progress.setProgress(2 * (i + 1), steps);
            }
        }
        const QString templates = expandSystem(attributeText(root, "templates_file"));
        if (!templates.isEmpty())
            m_templatesFile = templates;
    }

    void building(int step, int steps) override
    {
        m_progress.setProgress(step, steps);
        if (m_progress.isCancelled())
            throw StudioCancelException();
    }

    void built(ProjectElement &root) override
    {
        const QStringList settings = m_system.propertyList(&root, ProjectProperty::environment_variables, u"Common"_s,
                                                           ProjectSystem::PlainList | ProjectSystem::ExpandItems);
        for (const QString &setting : settings)
            if (const qsizetype equals = setting.indexOf(u'='); equals > 0)
                ::setenv(setting.first(equals).toLocal8Bit().constData(),
                         setting.sliced(equals + 1).toLocal8Bit().constData(), 1);
        m_progress.endMessage();
        --m_open;
    }

private:
    const ProjectSystem &m_system;
    const SolutionLoadHandlers &m_handlers;
    ProjectLoadProgressInterface &m_progress;
    QString &m_templatesFile;
    int m_open = 0; // messages
};

template <typename Visit>
void visit(ProjectElement &top, const Visit &take)
{
    for (XMLNode *node = &top; node; node = node->nextInTree(&top))
        if (XMLElement *element = node->toElement())
            take(static_cast<ProjectElement &>(*element));
}

} // namespace

void ProjectSystem::prepare(ProjectElement &root, const SolutionLoadHandlers &handlers)
{
    ProjectLoadProgressInterface &progress = progressOf(handlers);
    std::vector<ProjectElement *> templated;
    visit(root, [&templated](ProjectElement &element) {
        if (element.type() == ProjectElement::Type::Project && element.hasProperty(u"template_name"_s))
            templated.push_back(&element);
    });
    if (templated.empty())
        return;
    const Stage stage(progress, u"Expanding templated projects"_s, ProjectLoadProgressInterface::Status);
    for (ProjectElement *project : templated) {
        const QString name = project->property(u"Name"_s);
        const Stage expanding(progress, "Expanding project "_L1 + name);
        const QString key = project->property(u"template_name"_s);
        const QStringList configurations =
            project->property(u"template_configurations"_s).split(u';', Qt::SkipEmptyParts);
        project->removeProperty(u"template_name"_s);
        project->removeProperty(u"template_configurations"_s);
        if (expandTemplate(project, key, configurations))
            continue;
        const QString other =
            handlers.templateNotFound ? handlers.templateNotFound->templateNotFound(project, key) : QString();
        if (other.isEmpty() || !expandTemplate(project, other, configurations))
            fail(project->enclosing(ProjectElement::Type::Solution)->filePath(), *project,
                 "no template for project "_L1 + name);
    }
}

void ProjectSystem::populate(ProjectElement &root, const SolutionLoadHandlers &handlers)
{
    ProjectLoadProgressInterface &progress = progressOf(handlers);
    {
        const Stage stage(progress, u"Mapping project information"_s, ProjectLoadProgressInterface::Status);
        mapProjects(handlers.progress);
    }
    std::vector<ProjectElement *> folders;
    for (XMLNode *node = &root; node;) {
        auto *element = static_cast<ProjectElement *>(node->toElement());
        const bool isDynamic = element && element->isDynamicFolder();
        if (isDynamic)
            folders.push_back(element);
        node = isDynamic ? node->nextBehindTree(&root) : node->nextInTree(&root); // what is in it goes
    }
    const Stage stage(progress, u"Populating dynamic folders"_s, ProjectLoadProgressInterface::Status);
    for (ProjectElement *folder : folders) {
        const ProjectElement *project = folder->enclosing(ProjectElement::Type::Project);
        const QString where = project ? " in project "_L1 + project->displayName() : QString();
        const Stage filling(progress, "Populating folder "_L1 + folder->displayName() + where);
        fillDynamicFolder(*folder);
    }
}

ProjectElement *ProjectSystem::newSolution(const QString &directory, const QString &name)
{
    closeSolution();
    m_solution = std::make_unique<ProjectElement>("solution");
    m_solution->setProperty(u"Name"_s, name);
    m_solution->setProperty(u"version"_s, u"2"_s);
    const QString file = QDir::cleanPath(QDir(directory).absoluteFilePath(name + ".vnProject"_L1));
    m_solution->setFile(file, QFileInfo(file).lastModified());
    m_loadedFiles = {file};
    mapProjects();
    return m_solution.get();
}

ProjectElement *ProjectSystem::loadSolution(const QString &directory, const QString &path,
                                            const SolutionLoadHandlers &handlers, const QString &macroString)
{
    QStringList files = m_loadedFiles;
    QString templates;
    std::unique_ptr<ProjectElement> root;
    {
        LoadSteps steps(*this, handlers, templates);
        root = ::loadSolution(directory, path, macroString, files, &steps);
    }
    prepare(*root, handlers);
    files.remove(0, m_loadedFiles.size());
    closeSolution();
    m_solution = std::move(root);
    m_loadedFiles = files;
    m_templatesFile = templates;
    populate(*m_solution, handlers);
    return m_solution.get();
}

ProjectElement *ProjectSystem::importSolution(ProjectElement *parent, const QString &path,
                                              const SolutionLoadHandlers &handlers, const QString &macroString)
{
    const QString directory = solutionDirectory(parent);
    const QString absolute = ::absolutePath(directory, expandGlobal(path));
    const QString written = path.contains(u'$') ? path : ::relativePath(directory, absolute);
    for (ProjectElement *child = parent->firstElement(); child; child = child->nextElement())
        if (child->type() == ProjectElement::Type::Solution && child->property(u"file_name"_s) == written)
            return child;
    std::unique_ptr<ProjectElement> root;
    QStringList files = m_loadedFiles;
    {
        LoadSteps steps(*this, handlers, m_templatesFile);
        root = ::loadSolution(directory, absolute, macroString, files, &steps);
    }
    prepare(*root, handlers);
    m_loadedFiles = files;
    root->setProperty(u"file_name"_s, written);
    root->setImported(true);
    if (!macroString.isEmpty())
        root->setImportAttributes({{u"macros"_s, macroString}});
    root->setModified(false);
    ProjectElement *imported = root.get();
    parent->appendChild(std::move(root));
    parent->setModified(true);
    populate(*imported, handlers);
    Q_EMIT projectChanged(parent);
    return imported;
}

void ProjectSystem::closeSolution()
{
    m_changes.clear();
    m_groupFiles.clear();
    m_projects.clear();
    m_projectsByName.clear();
    m_solutionsByName.clear();
    m_loadedFiles.clear();
    m_templatesFile.clear();
    m_solution.reset();
}

void ProjectSystem::mapProjects(ProjectLoadProgressInterface *progress)
{
    m_projects.clear();
    m_projectsByName.clear();
    m_solutionsByName.clear();
    for (XMLNode *node = m_solution.get(); node;) {
        auto *element = static_cast<ProjectElement *>(node->toElement());
        const bool isProject = element && element->type() == ProjectElement::Type::Project;
        if (isProject || (element && element->type() == ProjectElement::Type::Solution)) {
            const QString name = element->displayName();
            auto &map = isProject ? m_projectsByName : m_solutionsByName;
            if (!map.contains(name)) // the first of several counts
                map.insert(name, element);
            if (isProject)
                m_projects.append(element);
            if (isProject && progress) {
                progress->message("Mapping project "_L1 + name);
                progress->endMessage();
            }
        }
        node = isProject ? node->nextBehindTree(m_solution.get()) : node->nextInTree(m_solution.get());
    }
}

void ProjectSystem::saveSolution(ProjectElement *root, ProjectFileSaveErrorHandler *handler)
{
    for (;;) {
        try {
            ::saveSolution(*root);
            break;
        } catch (const SolutionSaveError &) {
            if (!handler || !handler->cannotSave(root))
                throw;
        }
    }
    Q_EMIT fileSaved(root->filePath());
}

void ProjectSystem::saveSolutionAs(ProjectElement *root, const QString &path, ProjectFileSaveErrorHandler *handler)
{
    const QString own = root->filePath();
    const QDateTime time = root->fileTime();
    root->setFile(QDir::cleanPath(QFileInfo(path).absoluteFilePath()), time);
    try {
        saveSolution(root, handler);
    } catch (const SolutionSaveError &) {
        root->setFile(own, time);
        throw;
    }
    root->setFile(own, time);
}

void ProjectSystem::saveFile(ProjectElement *item, ProjectFileSaveErrorHandler *handler)
{
    if (item->type() != ProjectElement::Type::Solution)
        return;
    for (XMLNode *node = item; node;) {
        const auto *element = static_cast<const ProjectElement *>(node->toElement());
        const bool isOther = element && element != item && element->isImported();
        if (element && !isOther && element->isModified())
            return saveSolution(item, handler);
        node = isOther ? node->nextBehindTree(item) : node->nextInTree(item);
    }
}

QStringList ProjectSystem::filesChangedOnDisk() const
{
    QStringList changed;
    if (m_solution)
        visit(*m_solution, [&changed](const ProjectElement &element) {
            if (element.type() == ProjectElement::Type::Solution &&
                QFileInfo(element.filePath()).lastModified() > element.fileTime())
                changed.append(element.filePath());
        });
    return changed;
}

void ProjectSystem::rememberFileTimes()
{
    if (m_solution)
        visit(*m_solution, [](ProjectElement &element) {
            if (element.type() == ProjectElement::Type::Solution)
                element.setFile(element.filePath(), QFileInfo(element.filePath()).lastModified());
        });
}
