#pragma once

#include "project/model/ElementCache_p.h"
#include "project/model/ProjectSystem.h"

#include <QVarLengthArray>

// The macros of one node in one configuration, worked out as they are asked for. Of two of a name the later in
// this order counts: what the property "macros" has; the node's own; Configuration and the file extensions; the
// property groups'; the target's; the directories, each of which may use those before it. What is found nowhere
// there is looked up among the global and then the system macros.
class NodeMacros : public MacroSource
{
public:
    NodeMacros(const ProjectSystem &system, const ProjectElement *element, NodeContext &context,
               const MacroMap *extra = nullptr, int directories = NodeContext::directoryCount)
        : m_system(system), m_element(element), m_context(context), m_extra(extra), m_directories(directories)
    {}

    std::optional<QString> value(const QString &name) override;
    // Whether an answer was one that other nodes of the context, or this one a second later, may not get.
    bool isOwn() const { return m_isOwn; }

    // Fills a new context with what all its nodes have.
    static void fill(const ProjectSystem &system, const ProjectElement *element, NodeContext &context);
    MacroMap all();

    using Text = QVarLengthArray<QChar, 200>; // being put together

    // The text with all but the node's own macros expanded, and such a text with those of this node.
    MacroPattern patternOf(const QString &text);
    QString expand(const MacroPattern &pattern) const;

private:
    std::optional<QString> ownValue(const QString &name);
    void appendOwn(size_t macro, Text &text) const;
    std::optional<QString> directoryValue(int directory);
    QString directoryText(ProjectProperty property, int directory, bool &isOwn);

    const ProjectSystem &m_system;
    const ProjectElement *m_element;
    NodeContext &m_context;
    const MacroMap *m_extra;
    const int m_directories; // how many of them are known
    bool m_isOwn = false;
    bool m_isTooInvolved = false;      // for a pattern
    MacroPattern *m_pattern = nullptr; // the own macros go here, when one is made
};
