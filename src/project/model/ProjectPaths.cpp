// Where the nodes of a ProjectSystem lie, and what their files are.
#include "project/model/ElementCache_p.h"
#include "project/model/FileType.h"
#include "project/model/ProjectSystem.h"

#include <QScopeGuard>

using namespace Qt::StringLiterals;

const ElementPath &ProjectSystem::resolve(const ProjectElement *element, const QString &configuration) const
{
    ElementCache &cache = element->cache();
    const quint64 generation = changeCount();
    if (cache.pathGeneration == generation && (!cache.path.hasMacros || cache.pathConfiguration == configuration))
        return cache.path;
    cache.path = ElementPath();
    switch (element->type()) {
    case ProjectElement::Type::Project: resolveProject(*element, cache.path); break;
    case ProjectElement::Type::File: resolveFile(*element, configuration, cache.path); break;
    case ProjectElement::Type::Folder:
        if (element->hasProperty(u"file_name"_s))
            resolveFile(*element, configuration, cache.path);
        else
            cache.path.directory = projectDirectory(element);
        break;
    default: cache.path.path = element->filePath();
    }
    cache.pathConfiguration = configuration;
    cache.pathGeneration = generation;
    return cache.path;
}

void ProjectSystem::resolveProject(const ProjectElement &project, ElementPath &path) const
{
    path.directory = solutionDirectory(&project);
    path.fileName = expandSystem(value(&project, ProjectProperty::project_directory, u"Common"_s));
    path.wasRelative = !path.fileName.startsWith(u'/');
    path.path = path.fileName.isEmpty() ? path.directory : ::absolutePath(path.directory, path.fileName);
}

void ProjectSystem::resolveFile(const ProjectElement &file, const QString &configuration, ElementPath &path) const
{
    ElementCache &cache = file.cache();
    path.directory = projectDirectory(&file);
    path.fileName = file.property(u"file_name"_s);
    path.hasMacros = path.fileName.contains(u'$');
    if (path.hasMacros && !cache.isResolving) {
        cache.isResolving = true;
        const auto done = qScopeGuard([&cache] { cache.isResolving = false; });
        path.fileName = expand(&file, configuration, path.fileName);
    }
    path.wasRelative = !path.fileName.startsWith(u'/');
    path.path = ::absolutePath(path.directory, path.fileName);
}

QString ProjectSystem::path(const ProjectElement *element, const QString &configuration) const
{
    return resolve(element, configuration).path;
}

QString ProjectSystem::projectDirectory(const ProjectElement *element) const
{
    const ProjectElement *project = element ? element->enclosing(ProjectElement::Type::Project) : nullptr;
    return project ? resolve(project, QString()).path : solutionDirectory(element);
}

QString ProjectSystem::solutionDirectory(const ProjectElement *element) const
{
    const ProjectElement *root = element ? element->enclosing(ProjectElement::Type::Solution) : m_solution.get();
    if (!root)
        return QString();
    const QString &file = root->filePath();
    return file.first(qMax<qsizetype>(file.lastIndexOf(u'/'), 0));
}

QString ProjectSystem::absolutePath(const ProjectElement *element, const QString &path) const
{
    return ::absolutePath(projectDirectory(element), path);
}

QString ProjectSystem::relativePath(const ProjectElement *element, const QString &path) const
{
    return ::relativePath(projectDirectory(element), path);
}

QString ProjectSystem::fileTypeOf(const ProjectElement *element, const QString &configuration) const
{
    ElementCache &cache = element->cache();
    if (cache.fileTypeGeneration == changeCount() && cache.fileTypeConfiguration == configuration)
        return cache.fileType;
    QString type = value(element, ProjectProperty::file_type, configuration);
    const bool isSaid = !type.isEmpty() && type != "Default"_L1;
    const QString path = isSaid ? QString() : resolve(element, configuration).path;
    if (!isSaid) {
        type = element->buildType().isEmpty() ? typeOfPath(element, path, configuration) : element->buildType();
        if (type == BuildType::c && isYes(element, ProjectProperty::c_files_are_cpp, configuration))
            type = BuildType::cpp;
    }
    if (!path.endsWith(".xml"_L1, Qt::CaseInsensitive)) { // whose content says it
        cache.fileType = type;
        cache.fileTypeConfiguration = configuration;
        cache.fileTypeGeneration = changeCount();
    }
    return type;
}

QString ProjectSystem::typeOfPath(const ProjectElement *element, const QString &path,
                                  const QString &configuration) const
{
    const QString known = buildTypeOfFile(path);
    if (!known.isEmpty())
        return known;
    const auto hasEnding = [&path](const QString &ending) { // the tool chain's
        return !ending.isEmpty() && path.endsWith(ending, Qt::CaseInsensitive);
    };
    if (hasEnding(assemblyFileExtension(element, configuration)))
        return BuildType::assembly;
    if (hasEnding(objectFileExtension(element, configuration)))
        return BuildType::objectFile;
    if (hasEnding(executableFileExtension(element, configuration)))
        return BuildType::executable;
    return hasEnding(libraryFileExtension(element, configuration)) ? BuildType::library : QString();
}

QString StandardProjectSystem::objectFileExtension(const ProjectElement *, const QString &) const
{
    return u".o"_s;
}

QString StandardProjectSystem::libraryFileExtension(const ProjectElement *, const QString &) const
{
    return u".a"_s;
}

QString StandardProjectSystem::executableFileExtension(const ProjectElement *, const QString &) const
{
    return u".elf"_s;
}

QString ProjectSystem::platformOf(const ProjectElement *) const
{
    return expandSystem(u"$(HostOS)_$(HostArch)"_s);
}

QString StandardProjectSystem::platformOf(const ProjectElement *) const
{
    return expandSystem(u"$(Platform)"_s);
}
