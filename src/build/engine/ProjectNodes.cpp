#include "build/engine/ProjectNodes.h"

#include "base/Pattern.h"
#include "project/model/ProjectSystem.h"

#include <QSet>

using namespace Qt::StringLiterals;

namespace {

const ProjectElement *nearest(const ProjectElement *node, ProjectElement::Type type)
{
    while (node && node->type() != type)
        node = node->parentElement();
    return node;
}

void collect(const StandardProjectSystem &system, const ProjectElement *project, const QString &configuration,
             QSet<const ProjectElement *> &seen, QList<const ProjectElement *> &result, int depth = 0)
{
    if (depth > maximumDependencyDepth)
        return; // listing the jobs has told it
    for (const QString &name : dependencyNames(system, project, configuration)) {
        const ProjectElement *dependency = system.project(name);
        if (!dependency || seen.contains(dependency))
            continue;
        seen.insert(dependency);
        result += dependency;
        collect(system, dependency, configuration, seen, result, depth + 1);
    }
}

} // namespace

const ProjectElement *projectOf(const ProjectElement *element)
{
    return nearest(element, ProjectElement::Type::Project);
}

const ProjectElement *solutionOf(const ProjectElement *element)
{
    return nearest(element, ProjectElement::Type::Solution);
}

QStringList dependencyNames(const StandardProjectSystem &system, const ProjectElement *project,
                            const QString &configuration)
{
    QString text = system.value(project, ProjectProperty::project_dependencies, configuration);
    text.remove(u'\r').remove(u'\n');
    const QString own = projectOf(project)->displayName();
    QStringList names;
    for (const QString &entry : text.split(u';', Qt::SkipEmptyParts)) {
        if (!entry.contains(u'*')) {
            names += entry;
            continue;
        }
        const QRegularExpression pattern = wildcardPattern(entry);
        for (const ProjectElement *known : system.projects()) {
            const QString name = known->displayName();
            if (name != own && matchesWholly(pattern, name))
                names += name;
        }
    }
    names.removeDuplicates();
    return names;
}

QList<const ProjectElement *> transitiveDependencies(const StandardProjectSystem &system, const ProjectElement *project,
                                                     const QString &configuration)
{
    QSet<const ProjectElement *> seen{project};
    QList<const ProjectElement *> result;
    collect(system, project, configuration, seen, result);
    return result;
}
