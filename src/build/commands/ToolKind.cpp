#include "build/commands/ToolKind.h"

#include "base/Pattern.h"
#include "project/model/ProjectSystem.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

using enum ToolKind;

namespace {

struct ProjectTypeRow
{
    QLatin1StringView name;
    ToolKind kind;
    ToolKind fileKind; // of its sources: None, Stage, or what compiles them
    bool isExternal;   // sources are only compiled where a command for it is given
};
constexpr ToolKind compiled = CCompile; // stands for the three of them
constexpr ProjectTypeRow projectTypes[] = {
    {"Executable"_L1, Link, compiled, false},
    {"Library"_L1, Archive, compiled, false},
    {"Object file"_L1, None, compiled, false},
    {"Staging"_L1, Stage, Stage, false},
    {"Combining"_L1, Combine, None, false},
    {"Externally Built Executable"_L1, External, compiled, true},
    {"Externally Built Library"_L1, External, compiled, true},
    {"Externally Built Object file"_L1, None, compiled, true},
};

struct FileTypeRow
{
    QLatin1StringView name;
    ToolKind kind;
    ProjectProperty externalCommand;
};
constexpr FileTypeRow fileTypes[] = {
    {"C"_L1, CCompile, ProjectProperty::external_c_compile_command},
    {"C++"_L1, CppCompile, ProjectProperty::external_cpp_compile_command},
    {"Assembly"_L1, Assemble, ProjectProperty::external_assemble_command},
    {"Object file"_L1, External, {}},
    {"Library"_L1, External, {}},
    {"Executable"_L1, External, {}},
};

const ProjectTypeRow *projectTypeOf(const StandardProjectSystem &system, const ProjectElement *project,
                                    const QString &configuration)
{
    const QString type = system.value(project, ProjectProperty::project_type, configuration);
    for (const ProjectTypeRow &row : projectTypes)
        if (type == row.name)
            return &row;
    return nullptr;
}

ToolKind compileKind(const StandardProjectSystem &system, const ProjectElement *file, const QString &configuration,
                     bool isExternal)
{
    const QString type = system.fileTypeOf(file, configuration);
    for (const FileTypeRow &row : fileTypes) {
        if (type != row.name)
            continue;
        const bool lacksCommand =
            isExternal && row.kind != External && system.value(file, row.externalCommand, configuration).isEmpty();
        return lacksCommand ? None : row.kind;
    }
    return None;
}

// The kind of what the folder's members have most of all: C++ compiles C too.
ToolKind unityKind(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration,
                   bool isExternal)
{
    ToolKind kind = None;
    for (const ProjectElement *file : unityFiles(system, folder, configuration).members) {
        const ToolKind one = compileKind(system, file, configuration, isExternal);
        if (isCompile(one) && (kind == None || one == CppCompile))
            kind = one;
    }
    return kind;
}

ToolKind externalKind(const StandardProjectSystem &system, const ProjectElement *project, const QString &configuration,
                      bool isLibrary)
{
    const auto has = [&](ProjectProperty property) {
        return !system.value(project, property, configuration).isEmpty();
    };
    if (isLibrary)
        return has(ProjectProperty::external_archive_command) ? Archive : External;
    const bool canLink =
        !has(ProjectProperty::external_build_file_name) &&
        (has(ProjectProperty::external_link_command) ||
         (has(ProjectProperty::external_cpp_link_command) && hasCppFile(system, project, configuration)));
    return canLink ? Link : External;
}

} // namespace

const ProjectElement *projectAround(const ProjectElement *element)
{
    while (element && element->type() != ProjectElement::Type::Project)
        element = element->parentElement();
    return element;
}

ToolKind toolKind(const StandardProjectSystem &system, const ProjectElement *element, const QString &configuration,
                  BuildFlags flags)
{
    using Type = ProjectElement::Type;
    const ProjectElement *project = projectAround(element);
    const ProjectTypeRow *type = project ? projectTypeOf(system, project, configuration) : nullptr;
    if (!type)
        return None;
    if (element == project)
        return type->isExternal && type->kind == External
                   ? externalKind(system, project, configuration, type->name.endsWith("Library"_L1))
                   : type->kind;
    const bool isUnity = isUnityFolder(system, element, configuration, flags);
    if (element->type() != Type::File && !isUnity)
        return None;
    if (system.isYes(element, ProjectProperty::build_exclude_from_build, configuration))
        return Excluded;
    if (type->fileKind != compiled)
        return isUnity ? None : type->fileKind;
    return isUnity ? unityKind(system, element, configuration, type->isExternal)
                   : compileKind(system, element, configuration, type->isExternal);
}

bool hasCppFile(const StandardProjectSystem &system, const ProjectElement *element, const QString &configuration)
{
    if (element->type() == ProjectElement::Type::File)
        return system.fileTypeOf(element, configuration) == "C++"_L1;
    for (const ProjectElement *child = element->firstElement(); child; child = child->nextElement())
        if (hasCppFile(system, child, configuration))
            return true;
    return false;
}

bool isUnityFolder(const StandardProjectSystem &system, const ProjectElement *element, const QString &configuration,
                   BuildFlags flags)
{
    return element->type() == ProjectElement::Type::Folder && !(flags & BuildFlag::noUnity) &&
           !system.value(element, ProjectProperty::unity_build_file_name, configuration).isEmpty();
}

QString unityFileName(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration)
{
    return system.absolutePath(folder,
                               system.expandedValue(folder, ProjectProperty::unity_build_file_name, configuration));
}

static void addUnityFiles(const StandardProjectSystem &system, const ProjectElement *folder,
                          const QString &configuration, const QList<QRegularExpression> &filter, UnityFiles &files)
{
    for (const ProjectElement *child = folder->firstElement(); child; child = child->nextElement()) {
        if (child->type() == ProjectElement::Type::Folder)
            addUnityFiles(system, child, configuration, filter, files);
        if (child->type() != ProjectElement::Type::File ||
            system.isYes(child, ProjectProperty::build_exclude_from_build, configuration))
            continue;
        const ToolKind kind = compileKind(system, child, configuration, false);
        if (!isCompile(kind))
            continue;
        const QString path = system.path(child, configuration);
        const QString names[] = {path, system.relativePath(child, path), QFileInfo(path).fileName()};
        const auto matches = [&](const QRegularExpression &pattern) {
            return matchesWholly(pattern, names[0]) || matchesWholly(pattern, names[1]) ||
                   matchesWholly(pattern, names[2]);
        };
        const bool isAlone = kind == Assemble || std::any_of(filter.begin(), filter.end(), matches);
        (isAlone ? files.excluded : files.members) += child;
    }
}

UnityFiles unityFiles(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration)
{
    const QString texts = system.value(folder, ProjectProperty::unity_build_exclude_filter, configuration);
    QList<QRegularExpression> filter;
    for (const QString &text : texts.split(u';', Qt::SkipEmptyParts))
        filter += wildcardPattern(text);
    UnityFiles files;
    addUnityFiles(system, folder, configuration, filter, files);
    return files;
}

MacroMap unityMacros(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration)
{
    const QString path = unityFileName(system, folder, configuration);
    const QString relative = system.relativePath(folder, path);
    const QFileInfo file(path), relativeFile(relative);
    const bool isRelative = relativeFile.isRelative();
    return {{u"InputDir"_s, file.path()},
            {u"InputName"_s, file.completeBaseName()},
            {u"InputFileName"_s, file.fileName()},
            {u"InputExt"_s, file.suffix()},
            {u"InputPath"_s, path},
            {u"RelInputPath"_s, relative},
            {u"RelInputDir"_s, isRelative ? relativeFile.path() : u"."_s}};
}
