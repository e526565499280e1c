#include "project/model/ProjectPropertyValue.h"

#include <type_traits>

using namespace Qt::StringLiterals;

namespace {

// The first in the tree; null when there is none.
ProjectElement *folderNamed(ProjectElement &project, const QString &name)
{
    for (XMLNode *node = &project; node; node = node->nextInTree(&project)) {
        auto *element = static_cast<ProjectElement *>(node->toElement());
        if (element && element->type() == ProjectElement::Type::Folder && element->displayName() == name)
            return element;
    }
    return nullptr;
}

// What no build reads elsewhere, or, of macros, what isn't meant to be there.
bool belongsToCommon(const QString &key)
{
    return key == "macros"_L1 || key == "project_directory"_L1 || key == "environment_variables"_L1;
}

QStringList namesIn(const QString &text)
{
    return text.split(u';', Qt::SkipEmptyParts);
}

} // namespace

bool belongsToNode(const ProjectElement &element, const QString &key)
{
    if (key == "Name"_L1 || key == "file_name"_L1 || key == "path"_L1)
        return true;
    return (element.isDynamicFolder() || element.hasProperty(key)) &&
           (key == "filter"_L1 || key == "recurse"_L1 || key == "exclude"_L1);
}

ProjectPropertyValue::ProjectPropertyValue(ProjectSystem *system, const PropertyClass *propertyClass,
                                           ProjectElement *element, const QString &configuration)
    : PropertyValue(propertyClass),
      m_system(system),
      m_element(element),
      m_configuration(belongsToNode(*element, propertyClass->name) ? QString()
                      : belongsToCommon(propertyClass->name)       ? u"Common"_s
                                                                   : configuration)
{}

const ProjectElement *ProjectPropertyValue::place() const
{
    return m_configuration.isEmpty() ? m_element : m_element->configuration(m_configuration);
}

bool ProjectPropertyValue::isReadOnly() const
{
    return PropertyValue::isReadOnly() || !m_element->canModify();
}

bool ProjectPropertyValue::isInherited() const
{
    return !place() || !place()->hasProperty(propertyClass()->name);
}

QString ProjectPropertyValue::value() const
{
    if (m_configuration.isEmpty() || propertyClass()->type == PropertyType::StringList)
        return place() ? place()->property(propertyClass()->name) : QString();
    return m_system->value(m_element, *propertyClass(), m_configuration);
}

void ProjectPropertyValue::setValue(const QString &text)
{
    m_system->setPropertyValue(m_element, propertyClass(), m_configuration, text);
    setChanged(true);
}

void ProjectPropertyValue::useInherited()
{
    m_system->removePropertyValue(m_element, propertyClass(), m_configuration);
    setChanged(true);
}

std::unique_ptr<PropertyValue> InheritedConfigurationsProjectPropertyValue::clone() const
{
    return std::make_unique<InheritedConfigurationsProjectPropertyValue>(*this);
}

QString InheritedConfigurationsProjectPropertyValue::value() const
{
    return system()->inheritedConfigurations(element(), configuration()).join(u';');
}

std::unique_ptr<PropertyValue> PublicConfigurationsProjectPropertyValue::clone() const
{
    return std::make_unique<PublicConfigurationsProjectPropertyValue>(*this);
}

QString PublicConfigurationsProjectPropertyValue::value() const
{
    return system()->publicConfigurations(element()).join(u';');
}

void PublicConfigurationsProjectPropertyValue::setValue(const QString &text)
{
    system()->setPublicConfigurations(element(), namesIn(text));
    setChanged(true);
}

std::unique_ptr<PropertyValue> PrivateConfigurationsProjectPropertyValue::clone() const
{
    return std::make_unique<PrivateConfigurationsProjectPropertyValue>(*this);
}

QString PrivateConfigurationsProjectPropertyValue::value() const
{
    return system()->privateConfigurations(element()).join(u';');
}

void PrivateConfigurationsProjectPropertyValue::setValue(const QString &text)
{
    system()->setPrivateConfigurations(element(), namesIn(text));
    setChanged(true);
}

void PropertyValueGroupValue::setValue(const QString &text)
{
    using Contribution = PropertyValueGroupClass::Contribution;
    if (const PropertyValueGroupClass::Entry *entry = m_group->entryFor(text)) {
        for (const Contribution &part : entry->contributions) {
            const PropertyClass *known =
                part.kind == Contribution::Property ? system()->schema().propertyClassNamed(part.name) : nullptr;
            if (known)
                system()->setPropertyValue(element(), known,
                                           part.hasConfiguration ? part.configuration : configuration(), part.value);
            if (part.kind == Contribution::File)
                addFile(part);
        }
    }
    ProjectPropertyValue::setValue(text);
}

// The file is known by its name within the folder; what it stands for may change with the entry.
void PropertyValueGroupValue::addFile(const PropertyValueGroupClass::Contribution &part)
{
    ProjectElement *project = element()->enclosing(ProjectElement::Type::Project);
    if (!project)
        return;
    ProjectElement *place = part.folder.isEmpty() ? project : folderNamed(*project, part.folder);
    if (!place)
        place = system()->addFolder(project, part.folder);
    ProjectElement *file = place->firstElement();
    while (file && (file->type() != ProjectElement::Type::File || file->displayName() != part.name))
        file = file->nextElement();
    if (!file) {
        file = system()->addFile(place, part.fileName);
        file->setProperty(u"Name"_s, part.name);
    } else if (file->property(u"file_name"_s) != part.fileName) {
        system()->setPropertyValue(file, system()->schema().propertyClassNamed(u"file_name"_s), QString(),
                                   part.fileName);
    }
}

std::unique_ptr<ProjectPropertyValue> makeProjectPropertyValue(ProjectSystem *system,
                                                               const PropertyClass *propertyClass,
                                                               ProjectElement *element, const QString &configuration)
{
    const auto make = [&]<typename Value>(std::type_identity<Value>) -> std::unique_ptr<ProjectPropertyValue> {
        return std::make_unique<Value>(system, propertyClass, element, configuration);
    };
    if (const auto *group = dynamic_cast<const PropertyValueGroupClass *>(propertyClass))
        return std::make_unique<PropertyValueGroupValue>(system, group, element, configuration);
    if (propertyClass->name == "inherited_configurations"_L1)
        return make(std::type_identity<InheritedConfigurationsProjectPropertyValue>());
    if (propertyClass->name == "public_configurations"_L1)
        return make(std::type_identity<PublicConfigurationsProjectPropertyValue>());
    if (propertyClass->name == "private_configurations"_L1)
        return make(std::type_identity<PrivateConfigurationsProjectPropertyValue>());
    return make(std::type_identity<ProjectPropertyValue>());
}

bool isOfSolutions(const PropertyClass &propertyClass)
{
    const QString &key = propertyClass.name;
    return key == "inherited_configurations"_L1 || key == "public_configurations"_L1 ||
           key == "private_configurations"_L1;
}

PropertyValueList projectPropertyValues(ProjectSystem *system, ProjectElement *element, const QString &configuration)
{
    PropertyValueList values;
    const bool isSolution = element->type() == ProjectElement::Type::Solution;
    for (const auto &known : system->schema().classes()) {
        if (system->schema().propertyClassNamed(known->name) == known.get() && (isSolution || !isOfSolutions(*known)))
            values.appendUnique(makeProjectPropertyValue(system, known.get(), element, configuration));
    }
    for (const PropertyValueGroupClass *group : system->propertyGroups(element, configuration))
        values.appendUnique(makeProjectPropertyValue(system, group, element, configuration));
    return values;
}
