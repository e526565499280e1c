#pragma once

#include "build/commands/BuildFlags.h"
#include "project/properties/PropertySchema.h"
#include "xml/macros/MacroExpansion.h"

#include <optional>

class ProjectElement;
class StandardProjectSystem;

// What builds a node. Those that run commands have the numbers of BuildTool.
enum class ToolKind {
    None = 0,
    Excluded = 1,
    CCompile = 2,
    CppCompile = 3,
    Assemble = 4,
    External = 5,
    Link = 7,
    Archive = 8,
    Stage = 9,
    Combine = 10,
};

constexpr bool isCompile(ToolKind kind) // or assemble
{
    return kind >= ToolKind::CCompile && kind <= ToolKind::Assemble;
}
constexpr std::optional<BuildTool> buildToolOf(ToolKind kind)
{
    if (kind <= ToolKind::Excluded || kind == ToolKind::External)
        return std::nullopt;
    return BuildTool(kind);
}

// The project around the node, or the node itself; null when it is in none.
const ProjectElement *projectAround(const ProjectElement *element);

// By the kind of the node and of its project. A folder has one only as a unity folder.
ToolKind toolKind(const StandardProjectSystem &system, const ProjectElement *element, const QString &configuration,
                  BuildFlags flags = 0);

// Whether a file below the element, itself included, is C++.
bool hasCppFile(const StandardProjectSystem &system, const ProjectElement *element, const QString &configuration);

// A folder whose sources are compiled as one file, which includes them.
bool isUnityFolder(const StandardProjectSystem &system, const ProjectElement *element, const QString &configuration,
                   BuildFlags flags = 0);
// That file, absolute.
QString unityFileName(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration);
// The folder's sources, those in folders within it too: what the file includes, and what is compiled by itself,
// because the folder's filter says so or it is assembly. Files that are excluded from the build are in neither.
struct UnityFiles
{
    QList<const ProjectElement *> members, excluded;
};
UnityFiles unityFiles(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration);
// The macros of the file, which take the place of those that the folder hasn't: InputPath and its like.
MacroMap unityMacros(const StandardProjectSystem &system, const ProjectElement *folder, const QString &configuration);
