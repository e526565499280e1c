#pragma once

#include "build/commands/ToolKind.h"
#include "build/engine/BuildJob.h"
#include "build/engine/FileTimes.h"

#include <map>
#include <memory>
#include <set>
#include <span>
#include <unordered_map>

class Builder;
class CompileTemplates;
class Idler;
class ProcessPoller;
class SolutionLock;
class StandardProjectSystem;
class ToolCommands;

// What a build came to. With keep-going a build whose steps failed in part is Complete or UpToDate; then
// failureCount() tells.
enum class BuildResult { UpToDate = 0, Complete = 1, Failed = 2, Terminated = 3 };

// Builds a loaded solution: lists the jobs in the order of dependencies, decides node by node what is out of date,
// and has the builders run the tools, as many at a time as there are builders. All on the caller's thread, but for
// times of files that are asked for ahead; the idler is told what goes on. A second build while one is under way is
// refused.
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

    // Begins a build ahead of buildProject(), which is given the same, for a caller that has to prepare something:
    // reads what earlier builds noted, and asks for the times of those files meanwhile; until then records and times
    // are to be left alone. False while another program builds the solution.
    bool begin(const ProjectElement *element, const QString &configuration, BuildFlags flags);
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
    // Of builders that only write down what would run: nothing counts as made then.
    void setRunsTools(bool runs) { m_runsTools = runs; }
    bool runsTools() const { return m_runsTools; }

    // ---- The parts of a build -----------------------------------------------------------------------------

    // Appends the jobs of what needs building, dependencies first. Single: a project is one job.
    void addSolutionJobs(const ProjectElement *solution, const QString &configuration, BuildFlags flags, bool batch,
                         Builder &builder, Idler &idler, bool single, BuildJobs &jobs);
    void addProjectJobs(const ProjectElement *project, const QString &configuration, BuildFlags flags, bool batch,
                        Builder &builder, Idler &idler, bool single, bool followDependencies, BuildJobs &jobs);
    void addFolderJobs(const ProjectElement *firstChild, const QString &configuration, BuildFlags flags,
                       BuildJobs &jobs);
    // The scheduler; true when a job did something.
    bool runJobs(const BuildJobs &jobs, std::span<Builder *const> builders, Idler &idler);

    // Decides about an element and what is below it and has the builder make it; true when that was needed.
    // Without a builder it is only decided.
    virtual bool buildElement(const ProjectElement *element, const QString &configuration, Builder *builder,
                              Idler &idler, BuildFlags flags);
    // Steps that run a tool, for progress.
    virtual int buildStepCount(const ProjectElement *element, const QString &configuration, BuildFlags flags);
    QString buildTitle(const ProjectElement *element, const QString &configuration, BuildFlags flags) const;

    // The project's own commands around its jobs. `force`: though nothing is out of date; `ran`: a job of the
    // project did something. `isAlone`: nothing else is under way. `flags`: of the build.
    void runPreBuild(const ProjectElement *project, const QString &configuration, Builder &builder, Idler &idler,
                     bool force, bool isAlone = true, BuildFlags flags = 0);
    void runPostBuild(const ProjectElement *project, const QString &configuration, Builder &builder, Idler &idler,
                      bool ran, bool isAlone = true);

    // ---- What the parts share -----------------------------------------------------------------------------

    StandardProjectSystem &system() { return m_system; }
    ToolCommands &tools() { return m_tools; }
    BuildState &state() { return m_state; }
    FileTimes &times() { return m_times; }
    ProcessPoller *poller() { return m_poller; }
    // Of the project around the element.
    CommandRecord &record(const ProjectElement *element, const QString &configuration);
    // Where the record's paths() are in times().
    std::span<const FileTimes::Id> recordedIds(const ProjectElement *element, const QString &configuration);
    // What a node is, kept while nothing changes.
    struct NodeFacts
    {
        ToolKind kind = ToolKind::None;
        bool isUnity = false;
        bool hasOutput = false;
        QString output; // relative to the project's directory or absolute
        std::optional<FileTimes::Id> outputId;
    };
    const NodeFacts &facts(const ProjectElement *element, const QString &configuration, BuildFlags flags);
    const QString &outputOf(const ProjectElement *element, const QString &configuration, BuildFlags flags);
    FileTimes::Id outputId(const ProjectElement *element, const QString &configuration, BuildFlags flags);
    CompileTemplates &compileTemplates() { return *m_compileTemplates; }

    // A command begins that makes the output. If nothing more is heard of it, the next build makes it again.
    void outputBegun(const ProjectElement *element, const QString &configuration, const QString &output);
    // The commands with that hash have made the output. An empty one: they may have written any file.
    void outputMade(const ProjectElement *element, const QString &configuration, const QString &output, quint64 hash);
    // Reads what the output of a compiler was made from and puts it on record.
    void noteDependencies(const ProjectElement *element, const QString &configuration, const QString &output,
                          const FileStamp &stamp);
    // A command behind a project's steps, "post-build" or "post-stage", that failed or whose turn didn't come is owed:
    // the next build runs it though nothing else is to be done.
    void setOwed(const ProjectElement *project, const QString &configuration, const QString &what, bool isOwed);
    bool isOwed(const ProjectElement *project, const QString &configuration, const QString &what);
    static QString owedName(const QString &what, const QString &configuration);     // in the record, like an output
    void owePostBuild(const ProjectElement *project, const QString &configuration); // if it has one
    // Elements that did something, or would have. What a project's children did isn't in the project's result.
    int stepsDone() const { return m_stepsDone; }
    void noteStep() { ++m_stepsDone; }
    void noteFailure() { ++m_failureCount; } // that ends nothing
    // A job failed; with keep-going the project's own step and those that need it are passed over then.
    void jobFailed(const ProjectElement *element, const QString &configuration);
    bool hasFailed(const ProjectElement *project, const QString &configuration) const;
    // Takes up the user's interrupts: the first stops the build, the second kills what doesn't stop.
    void takeInterrupts();

    // What an element is made from, absolute: a source, object files and libraries, what is combined.
    QStringList inputs(const ProjectElement *element, const QString &configuration, BuildFlags flags = 0);
    // The command that compiles a source. External: one of the solution's. Throws HException when it can't be made.
    QStringList compileArguments(const ProjectElement *source, const QString &configuration, BuildFlags flags,
                                 bool &isExternal);
    // Files that were written for a command of the element, to be written elsewhere too.
    void noteHelperFile(const ProjectElement *element, const QString &path);
    QStringList takeHelperFiles(const ProjectElement *element);

private:
    using ProjectKey = std::pair<const ProjectElement *, QString>;
    struct Record;

    NodeFacts &factsOf(const ProjectElement *element, const QString &configuration, BuildFlags flags);

    Record &recordOf(const ProjectElement *element, const QString &configuration);
    Record &unreadRecord(const ProjectElement *project, const QString &configuration);
    void gatherRecords(const ProjectElement *element, const QString &configuration, std::vector<Record *> &records);
    bool writes(BuildFlags flags) const; // else it only decides, and may do so beside another build
    void saveRecords();
    void clearRecords();
    void anythingWritten(); // by a command
    bool addDependencyJobs(const ProjectElement *project, const QString &configuration, BuildFlags flags,
                           Builder &builder, Idler &idler, bool single, BuildJobs &jobs);
    void waitForOtherBuild(bool isTold, Builder &builder, Idler &idler);
    bool buildJobs(const ProjectElement *element, const QString &configuration, std::span<Builder *const> builders,
                   Idler &idler, BuildFlags flags, bool followDependencies, bool batch);
    void runProjectCommand(const QString &command, const QString &directory, const QString &title,
                           const ProjectElement *project, const QString &configuration, Builder &builder);

    StandardProjectSystem &m_system;
    ToolCommands &m_tools;
    BuildState &m_state;
    ProcessPoller *m_poller;
    FileTimes m_times;
    std::map<QString, std::unique_ptr<Record>> m_recordFiles; // by path
    std::map<ProjectKey, Record *> m_records;
    Record *m_lastRecord = nullptr; // the one that was asked for last
    ProjectKey m_lastRecordKey;
    std::set<ProjectKey> m_failedProjects;
    std::set<ProjectKey> m_listed; // while jobs are listed
    std::map<const ProjectElement *, QStringList> m_helperFiles;
    std::unordered_map<const ProjectElement *, NodeFacts> m_facts; // of one configuration
    QString m_factsConfiguration;
    BuildFlags m_factsFlags = 0;
    quint64 m_factsChanges = 0;
    std::unique_ptr<CompileTemplates> m_compileTemplates;
    std::unique_ptr<SolutionLock> m_lock; // from begin() to the end of the build
    int m_listDepth = 0;                  // of dependencies
    bool m_isBuilding = false;
    bool m_runsTools = true;
    int m_failureCount = 0;
    int m_stepsDone = 0;
    int m_interrupts = 0; // taken up
};
