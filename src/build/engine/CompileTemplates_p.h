#pragma once

#include "build/commands/CommandRecord.h"
#include "build/commands/ToolKind.h"

#include <map>

// What the sources of a folder have in common of how they are compiled: a changed command is to be found out for
// thousands of sources that have one command.
class CompileTemplates
{
public:
    struct Template
    {
        bool isMade = false;
        bool isExternal = false;     // a command of the solution's
        bool hasOptionFiles = false; // that go into the command
        bool hasNodeName = false;    // goes into the external command
        bool isOwn = false;          // more of it is each source's own than its path, name and output; then nothing
                                     // below counts
        CommandHash common;
        QString error; // why it can't be made
    };

    // What an external command may hold of its source. A template has a mark in the place of each; the source's path
    // and name and its object's name, which they all come from, tell the commands of a template apart.
    static constexpr const char *ownMacros[] = {
        "ProjectNodeName", "InputDir",    "InputName",  "InputFileName", "InputExt",       "InputPath",
        "RelInputPath",    "RelInputDir", "TargetPath", "RelTargetPath", "DependencyPath", "RelDependencyPath",
    };

    // That of the nodes with this context, see ProjectSystem::contextOf.
    Template &of(const void *context, ToolKind kind, BuildFlags flags, quint64 changes)
    {
        if (m_changes != changes)
            m_templates.clear();
        m_changes = changes;
        return m_templates[{context, kind, flags}];
    }
    void clear() { m_templates.clear(); }

private:
    std::map<std::tuple<const void *, ToolKind, BuildFlags>, Template> m_templates;
    quint64 m_changes = 0;
};
