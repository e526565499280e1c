#include "build/report/NodeProperties.h"

#include "build/commands/ToolKind.h"

#include <algorithm>

using namespace Qt::StringLiterals;

QString valueProblem(const PropertyClass &property, const QString &value)
{
    if (property.isListed() && !property.enumerates().contains(value))
        return u"%1 is one of: %2; not '%3'"_s.arg(property.name, property.enumerates().join(", "_L1), value);
    bool isNumber = true;
    bool isInRange = true;
    switch (property.type) {
    case PropertyType::Integer: value.toInt(&isNumber); break;
    case PropertyType::IntegerHex: value.toUInt(&isNumber, 16); break;
    case PropertyType::IntegerRange: {
        const int number = value.toInt(&isNumber);
        isInRange = number >= property.minimum && number <= property.maximum;
        break;
    }
    default: break;
    }
    if (!isNumber)
        return u"%1 is a number; not '%2'"_s.arg(property.name, value);
    if (!isInRange)
        return u"%1 is from %2 to %3; not %4"_s.arg(property.name, QString::number(property.minimum),
                                                    QString::number(property.maximum), value);
    return {};
}

NodeProperties::NodeProperties(StandardProjectSystem &system, const ProjectElement &node, const QString &configuration)
    : m_schema(system.schema()),
      m_node(node),
      m_options(&system.schema()),
      m_makesLibrary(toolKind(system, projectAround(&node), configuration) == ToolKind::Archive),
      m_groups(system.propertyGroups(&node, configuration))
{
    const ProjectElement *project = projectAround(&node);
    if (!project)
        return;
    const QString file = system.expandedValue(project, ProjectProperty::build_generic_options_file_name, configuration);
    if (!file.isEmpty())
        m_options.load(system.absolutePath(project, file), &m_problem);
}

const PropertyClass *NodeProperties::find(const QString &key) const
{
    // Two classes share these keys.
    if (key == "filter"_L1 && !m_node.isDynamicFolder())
        return &m_schema[ProjectProperty::filter];
    if (key == "build_output_file_name"_L1 && !m_makesLibrary)
        return &m_schema[ProjectProperty::build_output_file_name];
    if (const PropertyClass *known = m_schema.propertyClassNamed(key))
        return known;
    const auto group =
        std::find_if(m_groups.begin(), m_groups.end(), [&key](const auto *known) { return known->name == key; });
    return group == m_groups.end() ? nullptr : *group;
}

HException NodeProperties::notFound(const QString &key) const
{
    const QString why = m_problem.isEmpty() ? u"--list properties tells those that there are"_s : m_problem;
    return HException(u"no property '%1'; %2"_s.arg(key, why));
}

PropertyClassList NodeProperties::all() const
{
    PropertyClassList list;
    const auto add = [this, &list](const PropertyClass *property) {
        if (const PropertyClass *found = find(property->name); !list.contains(found))
            list.append(found);
    };
    for (const auto &property : m_schema.classes())
        add(property.get());
    for (const PropertyClass *group : m_groups)
        add(group);
    return list;
}
