#pragma once

#include "build/commands/BuildFlags.h"
#include "build/engine/BuildJob.h"

#include <span>

class Builder;
class Idler;
class ProcessPoller;
class StandardProjectSystem;
class ToolCommands;

// What a build came to. With keep-going a build whose steps failed in part is Complete or UpToDate; then
// failureCount() tells.
enum class BuildResult { UpToDate = 0, Complete = 1, Failed = 2, Terminated = 3 };

// Builds a loaded solution: lists the jobs in the order of dependencies, decides node by node what is out of date,
// and has the builders run the tools, as many at a time as there are builders. All on the caller's thread; the idler
// is told what goes on. A second build while one is under way is refused.
//
//     BuildState state;
//     MyToolCommands tools(system, state);
//     ProcessPoller poller;
//     BuildEngine engine(system, tools, state, &poller);
//     BuildLog log;
//     StudioIdler idler(log);
//     StudioBuilder builder(state, poller, log, idler, 0); // one a slot
//     Builder *builders[] = {&builder};
//     InterruptCatcher interrupts;                         // Ctrl-C ends in BuildResult::Terminated
//     engine.buildProject(solution, u"Debug"_s, builders, idler, BuildFlag::showCommands);
class BuildEngine
{
public:
    // All outlive this. Without a poller (builders that start no processes) nothing is ever waited for.
    BuildEngine(StandardProjectSystem &system, ToolCommands &tools, BuildState &state, ProcessPoller *poller = nullptr);
    BuildEngine(const BuildEngine &) = delete;
    BuildEngine &operator=(const BuildEngine &) = delete;
    virtual ~BuildEngine();

    // Builds a solution, project, folder or file. With batch a project's own list of configurations takes the place
    // of the one given.
    BuildResult buildProject(const ProjectElement *element, const QString &configuration,
                             std::span<Builder *const> builders, Idler &idler, BuildFlags flags,
                             bool followDependencies = true, bool batch = false);
    bool isBuilding() const { return m_isBuilding; }
    // Ends the build under way: its children get SIGHUP, their outputs are removed.
    void stopBuild();
    // Jobs that failed in the last build; with keep-going its result doesn't tell.
    int failureCount() const { return m_failureCount; }

private:
    StandardProjectSystem &m_system;
    ToolCommands &m_tools;
    BuildState &m_state;
    ProcessPoller *m_poller;
    bool m_isBuilding = false;
    int m_failureCount = 0;
};
