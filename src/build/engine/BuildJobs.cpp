#include "base/Pattern.h"
#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/commands/ToolCommands.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/ProjectNodes.h"
#include "project/model/ProjectSystem.h"

#include <QScopeGuard>

using namespace Qt::StringLiterals;

namespace {

constexpr int maximumSteps = 0xFFFF; // what the flags of a job can hold

// "Default" leaves it to the type of the project.
bool canBuildInParallel(const StandardProjectSystem &system, const ProjectElement *project,
                        const QString &configuration)
{
    const QString value = system.value(project, ProjectProperty::project_can_build_in_parallel, configuration);
    if (value != "Default"_L1)
        return value == "Yes"_L1;
    const QString type = system.value(project, ProjectProperty::project_type, configuration);
    return type != "Staging"_L1 && type != "Combining"_L1;
}

QStringList batchConfigurations(const StandardProjectSystem &system, const ProjectElement *project)
{
    const QStringList wanted =
        system.value(project, ProjectProperty::batch_build_configurations, u"Common"_s).split(u';', Qt::SkipEmptyParts);
    const ProjectElement *solution = solutionOf(project);
    if (wanted == QStringList{u"Common"_s})
        return system.configurationNames(solution, ProjectSystem::PublicConfigurations);
    const QStringList names =
        system.configurationNames(solution, ProjectSystem::PrivateConfigurations | ProjectSystem::PublicConfigurations);
    QStringList result;
    for (const QString &entry : wanted) {
        const QRegularExpression pattern = entry.contains(u'*') ? wildcardPattern(entry, Qt::CaseInsensitive)
                                                                : literalPattern(entry, Qt::CaseInsensitive);
        for (const QString &name : names) {
            if (matchesWholly(pattern, name) && !result.contains(name))
                result += name;
        }
    }
    return result;
}

// The configurations that can be asked of a project's solution.
bool appliesTo(const StandardProjectSystem &system, const ProjectElement *project, const QString &configuration)
{
    return system
        .configurationNames(solutionOf(project), ProjectSystem::CommonConfiguration |
                                                     ProjectSystem::PrivateConfigurations |
                                                     ProjectSystem::PublicConfigurations)
        .contains(configuration);
}

// Whether a project that was listed before has its last job behind the last barrier.
bool mayStillRun(const BuildJobs &jobs, const ProjectElement *project, const QString &configuration)
{
    for (auto job = jobs.rbegin(); job != jobs.rend() && !job->isBarrier(); ++job) {
        if (job->element == project && job->configuration == configuration)
            return true;
    }
    return false;
}

// The command behind a staging wants to know whether any of the files was staged.
bool isOneJob(const StandardProjectSystem &system, const ProjectElement *project, const QString &configuration)
{
    return system.value(project, ProjectProperty::project_type, configuration) == "Staging"_L1 &&
           !system.value(project, ProjectProperty::stage_post_build_command, configuration).isEmpty();
}

QString quoted(const QString &name)
{
    return u'\'' + name + u'\'';
}

} // namespace

void BuildEngine::addSolutionJobs(const ProjectElement *solution, const QString &configuration, BuildFlags flags,
                                  bool batch, Builder &builder, Idler &idler, bool single, BuildJobs &jobs)
{
    for (const ProjectElement *child = solution->firstElement(); child; child = child->nextElement()) {
        if (child->type() == ProjectElement::Type::Project)
            addProjectJobs(child, configuration, flags, batch, builder, idler, single, true, jobs);
        else if (child->type() == ProjectElement::Type::Folder || child->type() == ProjectElement::Type::Solution)
            addSolutionJobs(child, configuration, flags, batch, builder, idler, single, jobs);
    }
}

void BuildEngine::addProjectJobs(const ProjectElement *project, const QString &configuration, BuildFlags flags,
                                 bool batch, Builder &builder, Idler &idler, bool single, bool followDependencies,
                                 BuildJobs &jobs)
{
    const QStringList configurations =
        batch ? batchConfigurations(m_system, projectOf(project)) : QStringList{configuration};
    for (const QString &name : configurations) {
        if (!m_state.goesOn())
            return;
        m_tools.loadGenericOptions(project, name);
        if (m_system.value(project, ProjectProperty::build_exclude_from_build, name) != "No"_L1)
            continue;
        if (!m_listed.insert({project, name}).second)
            continue; // listed, or about to be: a project depends on itself
        if (followDependencies && !addDependencyJobs(project, name, flags, builder, idler, single, jobs))
            return;
        m_tools.loadGenericOptions(project, name); // its dependencies have theirs
        const int steps = std::min(buildStepCount(project, name, flags), maximumSteps);
        jobs.push_back({project, name, flags | BuildFlag::projectBegin | BuildFlags(steps) << BuildFlag::stepsShift,
                        buildTitle(project, name, flags)});
        if (single || isOneJob(m_system, project, name)) {
            jobs.push_back({project, name, flags | BuildFlag::projectEnd, {}});
            continue;
        }
        if (facts(project, name, flags).kind != ToolKind::External) // whose command builds its files
            addFolderJobs(project->firstElement(), name, flags, jobs);
        jobs.push_back({nullptr, {}, 0, {}});
        jobs.push_back({project, name, flags | BuildFlag::projectEnd | BuildFlag::noChildren, {}});
    }
}

// False when the build can't go on.
bool BuildEngine::addDependencyJobs(const ProjectElement *project, const QString &configuration, BuildFlags flags,
                                    Builder &builder, Idler &idler, bool single, BuildJobs &jobs)
{
    if (m_listDepth == maximumDependencyDepth) {
        builder.reportError("Project dependencies are nested too deeply at "_L1 + project->displayName());
        m_state.failed = true;
        return false;
    }
    ++m_listDepth;
    const auto leave = qScopeGuard([this] { --m_listDepth; });
    bool hasFault = false;
    bool mustWait = false;
    const size_t jobsBefore = jobs.size();
    const auto report = [&](const QString &text) {
        if (!std::exchange(hasFault, true))
            builder.beginStep(project, "Dependency error detected in "_L1 + project->displayName(), configuration, 0);
        builder.reportWarning(text);
    };
    for (const QString &name : dependencyNames(m_system, project, configuration)) {
        idler.idle(0);
        takeInterrupts();
        if (m_state.stop)
            return false;
        const ProjectElement *dependency = m_system.project(name);
        if (!dependency) {
            report("Can't find project "_L1 + name);
        } else if (!appliesTo(m_system, dependency, configuration)) {
            report("Configuration "_L1 + configuration + " doesn't apply to dependent project "_L1 + name);
        } else if (!m_listed.contains({dependency, configuration})) {
            const bool isAlone = !canBuildInParallel(m_system, dependency, configuration);
            if (isAlone)
                jobs.push_back({nullptr, {}, 0, {}});
            addProjectJobs(dependency, configuration, flags, false, builder, idler, single, true, jobs);
            if (isAlone)
                jobs.push_back({nullptr, {}, 0, {}});
        } else {
            mustWait |= mayStillRun(jobs, dependency, configuration);
        }
    }
    if (hasFault)
        builder.endStep(nullptr, configuration);
    if (jobs.size() > jobsBefore || mustWait)
        jobs.push_back({nullptr, {}, 0, {}});
    return m_state.goesOn();
}

void BuildEngine::addFolderJobs(const ProjectElement *firstChild, const QString &configuration, BuildFlags flags,
                                BuildJobs &jobs)
{
    for (const ProjectElement *child = firstChild; child; child = child->nextElement()) {
        if (child->type() == ProjectElement::Type::File || facts(child, configuration, flags).isUnity)
            jobs.push_back({child, configuration, flags, {}});
        else if (child->type() == ProjectElement::Type::Folder)
            addFolderJobs(child->firstElement(), configuration, flags, jobs);
    }
}

int BuildEngine::buildStepCount(const ProjectElement *element, const QString &configuration, BuildFlags flags)
{
    if (element->type() == ProjectElement::Type::Configuration || flags & BuildFlag::noChildren)
        return 0;
    const NodeFacts &known = facts(element, configuration, flags);
    if (known.isUnity)
        return 1 + int(unityFiles(m_system, element, configuration).excluded.size());
    if (known.kind == ToolKind::Excluded || known.kind == ToolKind::External)
        return 0;
    int count = known.kind == ToolKind::None ? 0 : 1;
    for (const ProjectElement *child = element->firstElement(); child; child = child->nextElement())
        count += buildStepCount(child, configuration, flags);
    return count;
}

QString BuildEngine::buildTitle(const ProjectElement *element, const QString &configuration, BuildFlags flags) const
{
    if (flags & BuildFlag::noTitle)
        return {};
    QString verb = u"Building"_s;
    if (flags & BuildFlag::remove)
        verb = flags & BuildFlag::noRun ? u"Cleaning"_s : u"Rebuilding"_s;
    else if ((flags & BuildFlag::dryRun) == BuildFlag::dryRun)
        verb = u"Checking"_s;
    else if (flags & BuildFlag::analyze)
        verb = u"Analyzing"_s;
    QString title = verb + u' ';
    if (element->type() == ProjectElement::Type::File || element->type() == ProjectElement::Type::Folder)
        title += quoted(element->displayName()) + " from project "_L1;
    if (const ProjectElement *project = projectOf(element))
        title += quoted(project->displayName()) + " from solution "_L1;
    if (const ProjectElement *solution = solutionOf(element))
        title += quoted(solution->displayName());
    return title + " in configuration "_L1 + quoted(configuration);
}
