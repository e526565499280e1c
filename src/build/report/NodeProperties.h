#pragma once

#include "base/HException.h"
#include "project/model/ProjectSystem.h"
#include "project/properties/GenericOptions.h"

// Why a property can't have this value, in one line; null if it can.
QString valueProblem(const PropertyClass &property, const QString &value);

// The properties that a node may have: the schema's, those that the tool chain of its project adds, which are in
// the schema as long as this lives, and its property groups.
class NodeProperties
{
public:
    NodeProperties(StandardProjectSystem &system, const ProjectElement &node, const QString &configuration);

    const PropertyClass *find(const QString &key) const; // null when there is none
    HException notFound(const QString &key) const;
    PropertyClassList all() const; // one of each key

private:
    const PropertySchema &m_schema;
    const ProjectElement &m_node;
    GenericOptions m_options;
    QString m_problem; // why the tool chain's aren't there
    const bool m_makesLibrary;
    const std::vector<const PropertyValueGroupClass *> m_groups;
};
