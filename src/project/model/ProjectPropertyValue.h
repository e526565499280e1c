#pragma once

#include "project/model/ProjectSystem.h"
#include "project/properties/PropertyValue.h"

// Whether the property is kept on the node itself: its name, its file, what a dynamic folder shows. A plain folder's
// filter is only if it stands there.
bool belongsToNode(const ProjectElement &element, const QString &key);

// The value of a project node in one configuration. What belongs to no configuration (a name, a path) is kept
// on the node itself, whatever configuration is given; macros, project directory and environment variables in
// "Common". System, element and class outlive it.
class ProjectPropertyValue : public PropertyValue
{
public:
    ProjectPropertyValue(ProjectSystem *system, const PropertyClass *propertyClass, ProjectElement *element,
                         const QString &configuration = QStringLiteral("Common"));

    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override { return std::make_unique<ProjectPropertyValue>(*this); }
    bool isReadOnly() const override;  // also what belongs to a node that can't be modified
    bool isInherited() const override; // it isn't set on this node in this configuration
    // As it is looked up; of a list only what is set here.
    QString value() const override;
    void setValue(const QString &text) override;
    // Takes it away here, so that it is inherited.
    void useInherited();

    ProjectElement *element() const { return m_element; }
    const QString &configuration() const { return m_configuration; } // empty: on the node

protected:
    ProjectSystem *system() const { return m_system; }

private:
    const ProjectElement *place() const; // null when it isn't there

    ProjectSystem *m_system;
    ProjectElement *m_element;
    QString m_configuration;
};

// What the solution's configuration of that name inherits from.
class InheritedConfigurationsProjectPropertyValue : public ProjectPropertyValue
{
public:
    using ProjectPropertyValue::ProjectPropertyValue;
    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override;
    QString value() const override;
};

// The names of the solution's public configurations, joined by ";".
class PublicConfigurationsProjectPropertyValue : public ProjectPropertyValue
{
public:
    using ProjectPropertyValue::ProjectPropertyValue;
    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override;
    bool isInherited() const override { return false; }
    QString value() const override;
    void setValue(const QString &text) override;
};

// The same of its private ones.
class PrivateConfigurationsProjectPropertyValue : public ProjectPropertyValue
{
public:
    using ProjectPropertyValue::ProjectPropertyValue;
    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override;
    bool isInherited() const override { return false; }
    QString value() const override;
    void setValue(const QString &text) override;
};

// The entry chosen of a property group. Setting it also sets the properties and adds the files that the entry
// has; for a name that isn't an entry's, those of the default's.
class PropertyValueGroupValue : public ProjectPropertyValue
{
public:
    PropertyValueGroupValue(ProjectSystem *system, const PropertyValueGroupClass *group, ProjectElement *element,
                            const QString &configuration)
        : ProjectPropertyValue(system, group, element, configuration), m_group(group)
    {}

    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override { return std::make_unique<PropertyValueGroupValue>(*this); }
    void setValue(const QString &text) override;

private:
    void addFile(const PropertyValueGroupClass::Contribution &file);

    const PropertyValueGroupClass *m_group;
};

// A value of the class that the property asks for.
std::unique_ptr<ProjectPropertyValue> makeProjectPropertyValue(ProjectSystem *system,
                                                               const PropertyClass *propertyClass,
                                                               ProjectElement *element, const QString &configuration);
// Whether it only means something on a solution: its lists of configurations.
bool isOfSolutions(const PropertyClass &propertyClass);
// All that can be set on the node: what the schema has for its type, and the property groups' choices.
PropertyValueList projectPropertyValues(ProjectSystem *system, ProjectElement *element, const QString &configuration);
