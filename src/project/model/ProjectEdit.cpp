// How a ProjectSystem changes the tree.
#include "project/model/DynamicFolder.h"
#include "project/model/ElementCache_p.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

ProjectElement *append(ProjectElement *parent, const char *tag)
{
    auto made = std::make_unique<ProjectElement>(tag);
    made->setModified(true);
    ProjectElement *added = made.get();
    parent->appendChild(std::move(made));
    parent->setModified(true);
    return added;
}

// The nodes from `top` downwards that have configurations, without those of imports that can't be modified.
template <typename Visit>
void visitOwners(ProjectElement *top, const Visit &take)
{
    for (XMLNode *node = top; node;) {
        auto *element = static_cast<ProjectElement *>(node->toElement());
        const bool isLocked = element && element != top && element->isImported() && !element->canModify();
        if (element && !isLocked && element->type() != ProjectElement::Type::Configuration)
            take(*element);
        node = isLocked ? node->nextBehindTree(top) : node->nextInTree(top);
    }
}

// Of a dynamic folder: on the node itself, else on its own "Common".
QString folderSetting(const ProjectElement &folder, const QString &key)
{
    const ProjectElement *common = folder.configuration(u"Common"_s);
    return folder.hasProperty(key) || !common ? folder.property(key) : common->property(key);
}

bool isFolderKey(const QString &key)
{
    return key == "path"_L1 || key == "filter"_L1 || key == "recurse"_L1 || key == "exclude"_L1;
}

bool isHidden(const ProjectElement &configuration)
{
    return configuration.property(u"hidden"_s) == "Yes"_L1;
}

} // namespace

ProjectElement *ProjectSystem::addFile(ProjectElement *parent, const QString &fileName)
{
    static const QRegularExpression separators(u"[,;]"_s);
    const QString ending = QFileInfo(fileName).suffix().toLower();
    ProjectElement *place = parent;
    if (parent->type() == ProjectElement::Type::Project) {
        for (ProjectElement *folder = parent->firstElement(); folder; folder = folder->nextElement()) {
            if (folder->type() != ProjectElement::Type::Folder)
                continue;
            const QString filter = folder->hasProperty(u"filter"_s)
                                       ? folder->property(u"filter"_s)
                                       : value(folder, ProjectProperty::filter, u"Common"_s);
            if (filter.split(separators, Qt::SkipEmptyParts).contains(ending)) {
                place = folder;
                break;
            }
        }
    }
    ProjectElement *file = append(place, "file");
    file->setProperty(u"file_name"_s, fileName);
    Q_EMIT projectChanged(parent);
    return file;
}

ProjectElement *ProjectSystem::addFolder(ProjectElement *parent, const QString &name, const QString &filter)
{
    for (ProjectElement *child = parent->firstElement(); child; child = child->nextElement())
        if (child->type() == ProjectElement::Type::Folder && child->displayName() == name)
            return child;
    ProjectElement *folder = append(parent, "folder");
    folder->setProperty(u"Name"_s, name);
    if (!filter.isEmpty())
        folder->addConfiguration(u"Common"_s)->setProperty(u"filter"_s, filter);
    Q_EMIT projectChanged(parent);
    return folder;
}

ProjectElement *ProjectSystem::addDynamicFolder(ProjectElement *parent, const QString &name, const QString &path,
                                                const QString &filter, bool recurse, const QString &exclude)
{
    ProjectElement *folder = addFolder(parent, name);
    folder->setProperty(u"path"_s, path);
    folder->setProperty(u"filter"_s, filter);
    folder->setProperty(u"recurse"_s, recurse ? u"Yes"_s : u"No"_s);
    folder->setProperty(u"exclude"_s, exclude);
    refreshDynamicFolder(folder);
    return folder;
}

void ProjectSystem::refreshDynamicFolder(ProjectElement *folder)
{
    fillDynamicFolder(*folder);
    Q_EMIT projectChanged(folder);
}

void ProjectSystem::fillDynamicFolder(ProjectElement &folder)
{
    const auto parts = [&folder](const QString &key) {
        return folderSetting(folder, key).split(u';', Qt::SkipEmptyParts);
    };
    DynamicFolderScan scan;
    scan.filters = parts(u"filter"_s);
    scan.excludes = parts(u"exclude"_s);
    scan.isRecursive = folderSetting(folder, u"recurse"_s) == "Yes"_L1;
    scan.projectDirectory = projectDirectory(&folder);
    for (const QString &part : parts(u"path"_s)) {
        const QString expanded = expand(&folder, u"Common"_s, part);
        const QString path = ::absolutePath(scan.projectDirectory, expanded);
        if (QFileInfo(path).isDir())
            scan.directories.append({path, !expanded.startsWith(u'/')});
    }
    std::erase_if(m_changes, [&folder](const PropertyChange &change) { // its nodes go
        const ProjectElement *node = change.element->parentElement();
        while (node && node != &folder)
            node = node->parentElement();
        return node;
    });
    populateDynamicFolder(folder, scan);
    if (!folder.enclosing(ProjectElement::Type::Project))
        mapProjects(); // those that it had are gone
}

ProjectElement *ProjectSystem::addConfiguration(ProjectElement *element, const QString &name)
{
    if (ProjectElement *known = element->configuration(name))
        return known;
    ProjectElement *added = element->addConfiguration(name);
    Q_EMIT configurationsChanged(element);
    return added;
}

void ProjectSystem::removeConfiguration(ProjectElement *element, const QString &name)
{
    visitOwners(element, [&name](ProjectElement &owner) { owner.removeConfiguration(name); });
    Q_EMIT configurationsChanged(element);
}

bool ProjectSystem::renameConfiguration(ProjectElement *element, const QString &oldName, const QString &newName)
{
    if (oldName == newName || newName == "Common"_L1 || element->configuration(newName))
        return false;
    visitOwners(element, [&oldName, &newName](ProjectElement &owner) {
        owner.renameConfiguration(oldName, newName);
        for (ProjectElement *child : owner.configurations()) {
            QStringList inherited = child->property(u"inherited_configurations"_s).split(u';');
            if (!inherited.contains(oldName))
                continue;
            std::replace(inherited.begin(), inherited.end(), oldName, newName);
            child->setProperty(u"inherited_configurations"_s, inherited.join(u';'));
        }
    });
    Q_EMIT configurationsChanged(element);
    return true;
}

QStringList ProjectSystem::configurationNames(const ProjectElement *solution, int flags) const
{
    QStringList names;
    bool hasAny = false;
    const QString platform = platformOf(solution);
    for (const ProjectElement *root = solution; root;
         root = root->parentElement() ? root->parentElement()->enclosing(ProjectElement::Type::Solution) : nullptr) {
        for (const ProjectElement *configuration : root->configurations()) {
            const QString name = configuration->displayName();
            if (name == "Common"_L1)
                continue;
            hasAny = true;
            const QString wanted = value(root, ProjectProperty::Platform, name);
            if (isHidden(*configuration) ? flags & PrivateConfigurations
                                         : flags & PublicConfigurations && (wanted.isEmpty() || wanted == platform))
                names.append(name);
        }
    }
    if (flags & CommonConfiguration || !hasAny)
        names.append(u"Common"_s);
    names.sort();
    names.removeDuplicates();
    return names;
}

static QStringList configurationsOf(const ProjectElement &solution, bool isPrivate)
{
    QStringList names;
    for (const ProjectElement *configuration : solution.configurations())
        if (configuration->displayName() != "Common"_L1 && isHidden(*configuration) == isPrivate)
            names.append(configuration->displayName());
    return names;
}

QStringList ProjectSystem::publicConfigurations(const ProjectElement *solution) const
{
    return configurationsOf(*solution, false);
}

QStringList ProjectSystem::privateConfigurations(const ProjectElement *solution) const
{
    return configurationsOf(*solution, true);
}

void ProjectSystem::setPublicConfigurations(ProjectElement *solution, const QStringList &names)
{
    setConfigurations(solution, names, false);
}

void ProjectSystem::setPrivateConfigurations(ProjectElement *solution, const QStringList &names)
{
    setConfigurations(solution, names, true);
}

void ProjectSystem::setConfigurations(ProjectElement *solution, const QStringList &names, bool isPrivate)
{
    for (const QString &old : configurationsOf(*solution, isPrivate))
        if (!names.contains(old))
            removeConfiguration(solution, old);
    for (const QString &name : names) {
        if (name.isEmpty() || name == "Common"_L1)
            continue;
        ProjectElement *configuration = solution->addConfiguration(name);
        if (isPrivate)
            configuration->setProperty(u"hidden"_s, u"Yes"_s);
        else
            configuration->removeProperty(u"hidden"_s);
    }
    Q_EMIT configurationsChanged(solution);
}

// Keeps what is about to change.
void ProjectSystem::noteChange(ProjectElement *element, const PropertyClass *propertyClass,
                               const QString &configuration)
{
    const ProjectElement *root = element->enclosing(ProjectElement::Type::Solution);
    const ProjectElement *place = configuration.isEmpty() ? element : element->configuration(configuration);
    m_changes.push_back({element, propertyClass, configuration, QDateTime::currentDateTime(),
                         place ? place->property(propertyClass->name) : QString(), place != nullptr,
                         place && place->hasProperty(propertyClass->name), element->isModified(),
                         root && root->isModified()});
}

void ProjectSystem::setPropertyValue(ProjectElement *element, const PropertyClass *propertyClass,
                                     const QString &configuration, const QString &value)
{
    noteChange(element, propertyClass, configuration);
    ProjectElement *place = configuration.isEmpty() ? element : element->addConfiguration(configuration);
    place->setProperty(propertyClass->name, value);
    noteValue(element, propertyClass, configuration);
    if (propertyClass->companion)
        if (const auto derived = propertyClass->derivedValue(value))
            setPropertyValue(element, propertyClass->companion, configuration, *derived);
}

void ProjectSystem::removePropertyValue(ProjectElement *element, const PropertyClass *propertyClass,
                                        const QString &configuration)
{
    ProjectElement *place = configuration.isEmpty() ? element : element->configuration(configuration);
    if (!place || !place->hasProperty(propertyClass->name))
        return;
    noteChange(element, propertyClass, configuration);
    place->removeProperty(propertyClass->name);
    noteValue(element, propertyClass, configuration);
}

bool ProjectSystem::undoChange()
{
    if (m_changes.empty())
        return false;
    const PropertyChange change = std::move(m_changes.back());
    m_changes.pop_back();
    if (!change.hadConfiguration) {
        change.element->removeConfiguration(change.configuration);
    } else {
        ProjectElement *place =
            change.configuration.isEmpty() ? change.element : change.element->addConfiguration(change.configuration);
        if (change.hadValue)
            place->setProperty(change.propertyClass->name, change.oldValue);
        else
            place->removeProperty(change.propertyClass->name);
    }
    noteValue(change.element, change.propertyClass, change.configuration);
    change.element->setModified(change.elementWasModified);
    if (ProjectElement *root = change.element->enclosing(ProjectElement::Type::Solution))
        root->setModified(change.solutionWasModified);
    return true;
}

// What follows from a value that was set or removed.
void ProjectSystem::noteValue(ProjectElement *element, const PropertyClass *propertyClass, const QString &configuration)
{
    element->setModified(true);
    if (propertyClass->name == "Name"_L1)
        mapProjects();
    if (isFolderKey(propertyClass->name) && element->isDynamicFolder())
        refreshDynamicFolder(element);
    Q_EMIT propertyChanged(element, configuration, propertyClass);
}
