#pragma once

#include <QStringList>

class ProjectElement;
class StandardProjectSystem;

// The nearest of that type from the node upwards; null if there is none.
const ProjectElement *projectOf(const ProjectElement *element);
const ProjectElement *solutionOf(const ProjectElement *element);

// The names of what the project depends on, wildcards replaced by the projects that they match; not of itself.
QStringList dependencyNames(const StandardProjectSystem &system, const ProjectElement *project,
                            const QString &configuration);
// Projects that depend on each other in a longer chain are refused.
constexpr int maximumDependencyDepth = 1000;
// All projects that it depends on, directly or not, each once, depth first.
QList<const ProjectElement *> transitiveDependencies(const StandardProjectSystem &system, const ProjectElement *project,
                                                     const QString &configuration);
