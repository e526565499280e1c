#include "build/report/LoadedSolution.h"

#include "base/HException.h"
#include "project/model/ConfigFile.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype mostNamesShown = 40;

// "FILE:LINE: message", without the file in the message.
HException located(const SolutionLoadError &error)
{
    QString message = error.message;
    if (message.startsWith(error.fileName + u' '))
        message.remove(0, error.fileName.size() + 1);
    message.remove(u' ' + error.fileName);
    if (!error.importedAt.isEmpty())
        message += u" (imported at %1)"_s.arg(error.importedAt);
    const QString place = error.hasPosition ? error.fileName + u':' + QString::number(error.line) : error.fileName;
    return HException(place + ": "_L1 + message);
}

// "no project 'x'; there are: a, b"
HException notFound(const QString &what, QStringList existing)
{
    const qsizetype more = existing.size() - mostNamesShown;
    if (more > 0)
        existing = existing.first(mostNamesShown) << u"and %1 more"_s.arg(more);
    const QString rest = existing.isEmpty() ? u"there is none"_s : u"there are: "_s + existing.join(", "_L1);
    return HException(u"no %1; %2"_s.arg(what, rest));
}

} // namespace

LoadedSolution::LoadedSolution(const QString &path, const QStringList &globalMacros)
{
    loadInstallation();
    SystemMacroTable::instance().setGlobalMacros(globalMacros);
    m_system.gatherPackageGroups(expandGlobal(u"$(PackagesDir:$(StudioUserDir)/packages)"_s));
    if (QFileInfo(path).isDir())
        throw HException(path + ": is a folder, not a solution file"_L1);
    try {
        m_system.loadSolution(QDir::currentPath(), path);
    } catch (const SolutionLoadError &error) {
        throw located(error);
    }
}

QStringList LoadedSolution::configurations() const
{
    const QStringList names = m_system.configurationNames(&solution(), ProjectSystem::PublicConfigurations);
    return names.isEmpty() ? QStringList(u"Common"_s) : names;
}

QString LoadedSolution::configuration(const std::optional<QString> &name) const
{
    if (!name)
        return configurations().constFirst();
    constexpr int all =
        ProjectSystem::CommonConfiguration | ProjectSystem::PrivateConfigurations | ProjectSystem::PublicConfigurations;
    if (*name == "Common"_L1 || m_system.configurationNames(&solution(), all).contains(*name))
        return *name;
    throw notFound(u"configuration '%1'"_s.arg(*name), configurations());
}

ProjectElement &LoadedSolution::project(const QString &name) const
{
    if (ProjectElement *project = m_system.project(name))
        return *project;
    QStringList names;
    for (const ProjectElement *project : m_system.projects())
        names += project->displayName();
    throw notFound(u"project '%1'"_s.arg(name), names);
}

bool LoadedSolution::isNamed(const ProjectElement &node, const QString &name, const QString &configuration) const
{
    if (node.displayName() == name)
        return true;
    if (node.type() != ProjectElement::Type::File)
        return false;
    const QString path = m_system.path(&node, configuration);
    return QStringView(path).sliced(path.lastIndexOf(u'/') + 1) == name || path == name ||
           m_system.relativePath(&node, path) == name;
}

// Names may hold "/", so each start of the path that ends at one is tried.
ProjectElement *LoadedSolution::findNode(ProjectElement &parent, const QString &path,
                                         const QString &configuration) const
{
    for (ProjectElement *child = parent.firstElement(); child; child = child->nextElement()) {
        if (child->type() == ProjectElement::Type::Configuration)
            continue;
        if (isNamed(*child, path, configuration))
            return child;
        const QString name = child->displayName();
        if (path.size() > name.size() && path[name.size()] == u'/' && path.startsWith(name))
            if (ProjectElement *found = findNode(*child, path.sliced(name.size() + 1), configuration))
                return found;
    }
    return nullptr;
}

std::vector<ProjectElement *> LoadedSolution::filesNamed(ProjectElement &below, const QString &name,
                                                         const QString &configuration) const
{
    std::vector<ProjectElement *> files;
    forEachFile(below, [&](ProjectElement &file) {
        if (isNamed(file, name, configuration))
            files.push_back(&file);
    });
    return files;
}

ProjectElement *LoadedSolution::onlyFile(ProjectElement &below, const QString &name, const QString &configuration) const
{
    const std::vector<ProjectElement *> files = filesNamed(below, name, configuration);
    if (files.size() < 2)
        return files.empty() ? nullptr : files.front();
    QStringList paths;
    for (const ProjectElement *file : files)
        paths += nodePath(*file);
    throw HException(u"'%1' names several files: %2"_s.arg(name, paths.join(", "_L1)));
}

// By the project's name and, behind that, one of the file's own, whatever folders it is in.
ProjectElement *LoadedSolution::fileOfProject(const QString &path, const QString &configuration) const
{
    for (ProjectElement *project : m_system.projects()) {
        const QString start = project->displayName() + u'/';
        if (!path.startsWith(start))
            continue;
        if (ProjectElement *file = onlyFile(*project, path.sliced(start.size()), configuration))
            return file;
    }
    return nullptr;
}

ProjectElement &LoadedSolution::node(const QString &path, const QString &configuration) const
{
    if (path.isEmpty())
        return solution();
    if (ProjectElement *found = findNode(solution(), path, configuration))
        return *found;
    if (ProjectElement *file = fileOfProject(path, configuration))
        return *file;
    // What exists at the deepest level that does.
    ProjectElement *deepest = &solution();
    QString rest = path;
    for (qsizetype slash = path.lastIndexOf(u'/'); slash > 0; slash = path.lastIndexOf(u'/', slash - 1)) {
        if (ProjectElement *found = findNode(solution(), path.first(slash), configuration)) {
            deepest = found;
            rest = path.sliced(slash + 1);
            break;
        }
    }
    QStringList names;
    for (ProjectElement *child = deepest->firstElement(); child; child = child->nextElement())
        if (child->type() != ProjectElement::Type::Configuration)
            names += child->displayName();
    const QString what = u"node '%1'"_s.arg(rest);
    throw notFound(deepest == &solution() ? what : u"%1 in '%2'"_s.arg(what, nodePath(*deepest)), names);
}

ProjectElement *LoadedSolution::findNodeOrFile(const QString &name, const QString &configuration) const
{
    ProjectElement *found = name.isEmpty() ? nullptr : findNode(solution(), name, configuration);
    if (!found)
        found = onlyFile(solution(), name, configuration);
    if (!found)
        found = fileOfProject(name, configuration);
    if (!found)
        found = onlyFile(solution(), QFileInfo(name).absoluteFilePath(), configuration);
    return found;
}

ProjectElement &LoadedSolution::nodeOrFile(const QString &name, const QString &configuration) const
{
    ProjectElement *found = findNodeOrFile(name, configuration);
    return found ? *found : node(name, configuration);
}

ProjectElement &LoadedSolution::file(const QString &name, const QString &configuration) const
{
    ProjectElement *found = findNodeOrFile(name, configuration);
    if (found && found->type() == ProjectElement::Type::File)
        return *found;
    if (found)
        throw HException(u"'%1' is a %2, not a file"_s.arg(name, kindName(*found)));
    QStringList paths;
    forEachFile(solution(), [&](const ProjectElement &existing) { paths += nodePath(existing); });
    throw notFound(u"file '%1'"_s.arg(name), paths);
}

QString LoadedSolution::nodePath(const ProjectElement &node) const
{
    QStringList names;
    for (const ProjectElement *at = &node; at && at != &solution(); at = at->parentElement())
        names.prepend(at->displayName());
    return names.join(u'/');
}

void LoadedSolution::forEachFile(ProjectElement &below, const std::function<void(ProjectElement &)> &visit) const
{
    if (below.type() == ProjectElement::Type::File)
        visit(below);
    for (ProjectElement *child = below.firstElement(); child; child = child->nextElement())
        if (child->type() != ProjectElement::Type::Configuration)
            forEachFile(*child, visit);
}

void saveSolutionOf(StandardProjectSystem &system, ProjectElement &node)
{
    try {
        system.saveSolution(node.enclosing(ProjectElement::Type::Solution));
    } catch (const SolutionLoadError &error) {
        throw located(error);
    }
}

QString kindName(const ProjectElement &node)
{
    switch (node.type()) {
    case ProjectElement::Type::Solution: return u"solution"_s;
    case ProjectElement::Type::Configuration: return u"configuration"_s;
    case ProjectElement::Type::Project: return u"project"_s;
    case ProjectElement::Type::Folder: return u"folder"_s;
    case ProjectElement::Type::File: return u"file"_s;
    case ProjectElement::Type::Other: break;
    }
    return u"node"_s;
}
