#pragma once

#include "project/properties/PropertySchema.h"

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

ToolKind toolKind(StandardProjectSystem &system, const ProjectElement *element, const QString &configuration);

// Whether a file below the element, itself included, is C++.
bool hasCppFile(StandardProjectSystem &system, const ProjectElement *element, const QString &configuration);
