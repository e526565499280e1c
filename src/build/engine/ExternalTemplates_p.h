#pragma once

#include "build/commands/ToolKind.h"

#include <QString>
#include <map>

// The external compile commands of a build, without what is each source's own: a changed command is to be found out
// for thousands of sources that have one command.
class ExternalTemplates
{
public:
    struct Template
    {
        bool isMade = false;
        bool isOwn = false; // it depends on the source in a way that the markers don't catch
        bool hasNodeName = false;
        QString key;   // stands for its words
        QString error; // why it can't be made
    };

    // What a command may hold of its source. A template has a mark in the place of each; the source's path and name
    // and its object's name, which they all come from, tell the commands of a template apart.
    static constexpr const char *ownMacros[] = {
        "ProjectNodeName", "InputDir",    "InputName",  "InputFileName", "InputExt",       "InputPath",
        "RelInputPath",    "RelInputDir", "TargetPath", "RelTargetPath", "DependencyPath", "RelDependencyPath",
    };

    // That of the nodes with this context, see ProjectSystem::contextOf.
    Template &of(const void *context, ToolKind kind, quint64 changes)
    {
        if (m_changes != changes)
            m_templates.clear();
        m_changes = changes;
        return m_templates[{context, kind}];
    }
    void clear() { m_templates.clear(); }

private:
    std::map<std::pair<const void *, ToolKind>, Template> m_templates;
    quint64 m_changes = 0;
};
