#include "build/engine/BuildEngine.h"

#include "base/CommandWords.h"
#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/commands/ToolCommands.h"
#include "build/engine/CompileTemplates_p.h"
#include "build/engine/ElementBuild_p.h"
#include "build/engine/ProcessPoller.h"
#include "build/engine/ProjectNodes.h"
#include "build/engine/SolutionLock.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFileInfo>
#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

static const QString postBuild = u"post-build"_s; // on record when it is owed

// A project's record of commands and, for each path in it, where that is in the file times.
struct BuildEngine::Record
{
    QString path;
    bool isRead = false;
    CommandRecord commands = {};
    std::vector<FileTimes::Id> ids = {}; // of commands.paths(), as far as it goes

    void read(FileTimes &times);
    void noteIds(FileTimes &times);
};

void BuildEngine::Record::read(FileTimes &times)
{
    commands = CommandRecord(path);
    isRead = true;
    times.reserve(commands.paths().size());
    ids.reserve(size_t(commands.paths().size()));
    noteIds(times);
}

void BuildEngine::Record::noteIds(FileTimes &times)
{
    const QStringList &paths = commands.paths();
    for (qsizetype index = qsizetype(ids.size()); index < paths.size(); ++index)
        ids.push_back(times.id(paths[index]));
}

BuildEngine::BuildEngine(StandardProjectSystem &system, ToolCommands &tools, BuildState &state, ProcessPoller *poller)
    : m_system(system),
      m_tools(tools),
      m_state(state),
      m_poller(poller),
      m_compileTemplates(std::make_unique<CompileTemplates>())
{}

BuildEngine::~BuildEngine()
{
    m_times.clear(); // a thread may still be reading the records
}

BuildResult BuildEngine::buildProject(const ProjectElement *element, const QString &configuration,
                                      std::span<Builder *const> builders, Idler &idler, BuildFlags flags,
                                      bool followDependencies, bool batch)
{
    if (m_isBuilding || builders.empty())
        return BuildResult::Failed;
    m_isBuilding = true;
    m_state.clear();
    m_failureCount = 0;
    m_interrupts = 0;
    m_failedProjects.clear();
    m_listed.clear();
    for (bool isTold = false; !m_lock && m_state.goesOn() && !begin(element, configuration, flags); isTold = true)
        waitForOtherBuild(isTold, *builders[0], idler);
    m_times.waitForIds();
    for (Builder *builder : builders)
        builder->reset();
    const bool didSomething = buildJobs(element, configuration, builders, idler, flags, followDependencies, batch);
    if (writes(flags))
        saveRecords();
    clearRecords();
    m_facts.clear();
    m_times.clear();
    m_lock.reset();
    m_isBuilding = false;
    if (m_state.stop)
        return BuildResult::Terminated;
    if (m_state.failed)
        return BuildResult::Failed;
    return didSomething ? BuildResult::Complete : BuildResult::UpToDate;
}

bool BuildEngine::begin(const ProjectElement *element, const QString &configuration, BuildFlags flags)
{
    m_lock.reset();
    auto lock = std::make_unique<SolutionLock>(m_system.solution()->filePath());
    if (writes(flags) && !lock->take())
        return false;
    m_lock = std::move(lock);
    m_times.clear();
    clearRecords();
    m_tools.refresh();
    m_compileTemplates->clear();
    if (flags & (BuildFlag::force | BuildFlag::remove) || element->type() == ProjectElement::Type::File)
        return true;
    // Nearly all that was recorded will be looked at again.
    std::vector<Record *> records;
    gatherRecords(element, configuration, records);
    qint64 size = 0;
    for (const Record *record : records)
        size += QFileInfo(record->path).size();
    constexpr qint64 worthAThread = 32 << 10;
    m_times.askAhead(
        [this, records] {
            for (Record *record : records)
                if (!record->isRead)
                    record->read(m_times);
        },
        size >= worthAThread);
    return true;
}

void BuildEngine::waitForOtherBuild(bool isTold, Builder &builder, Idler &idler)
{
    constexpr int pauseMicroseconds = 20'000;
    if (!isTold)
        builder.reportInfo("Waiting for another build of "_L1 + m_system.solution()->filePath());
    idler.idle(0);
    ::usleep(pauseMicroseconds);
    takeInterrupts();
}

bool BuildEngine::buildJobs(const ProjectElement *element, const QString &configuration,
                            std::span<Builder *const> builders, Idler &idler, BuildFlags flags, bool followDependencies,
                            bool batch)
{
    using Type = ProjectElement::Type;
    BuildJobs jobs;
    // A failure ends what a job has left, so with keep-going files are jobs of their own also in a single slot.
    bool single = (builders.size() == 1 && !(flags & BuildFlag::keepGoing)) || flags & BuildFlag::parallelProjects;
    if (element->type() == Type::Solution) {
        addSolutionJobs(element, configuration, flags, batch, *builders[0], idler, single, jobs);
        return runJobs(jobs, builders, idler);
    }
    const ProjectElement *project = projectOf(element);
    if (project && (element == project || element->type() == Type::Folder)) {
        single = single || flags & BuildFlag::noChildren || isUnityFolder(m_system, element, configuration, flags);
        addProjectJobs(element, configuration, flags, batch, *builders[0], idler, single, followDependencies, jobs);
        return runJobs(jobs, builders, idler);
    }
    const int steps = buildStepCount(element, configuration, flags);
    jobs.push_back({element, configuration,
                    flags | BuildFlag::projectBegin | BuildFlags(steps) << BuildFlag::stepsShift,
                    buildTitle(element, configuration, flags)});
    jobs.push_back({element, configuration, flags | BuildFlag::projectEnd, {}});
    return runJobs(jobs, builders.first(1), idler);
}

void BuildEngine::stopBuild()
{
    m_state.stop = true;
    if (m_poller)
        m_poller->stopAll(SIGHUP);
}

void BuildEngine::takeInterrupts()
{
    const int count = InterruptCatcher::count();
    if (count > 0 && !m_state.stop)
        stopBuild();
    if (count > 1 && m_interrupts < count && m_poller)
        m_poller->stopAll(SIGKILL);
    m_interrupts = count;
}

bool BuildEngine::buildElement(const ProjectElement *element, const QString &configuration, Builder *builder,
                               Idler &idler, BuildFlags flags)
{
    return ElementBuild(*this, element, configuration, builder, idler, flags).run();
}

QStringList BuildEngine::inputs(const ProjectElement *element, const QString &configuration, BuildFlags flags)
{
    Idler nobody;
    return ElementBuild(*this, element, configuration, nullptr, nobody, flags).inputs();
}

QStringList BuildEngine::compileArguments(const ProjectElement *source, const QString &configuration, BuildFlags flags,
                                          bool &isExternal)
{
    Idler nobody;
    return ElementBuild(*this, source, configuration, nullptr, nobody, flags).compileArguments(isExternal);
}

void BuildEngine::noteHelperFile(const ProjectElement *element, const QString &path)
{
    if (!m_runsTools)
        m_helperFiles[element] += path;
}

QStringList BuildEngine::takeHelperFiles(const ProjectElement *element)
{
    const auto known = m_helperFiles.extract(element);
    return known ? known.mapped() : QStringList();
}

// ---- The commands around a project -------------------------------------------------------------------------------

void BuildEngine::runPreBuild(const ProjectElement *project, const QString &configuration, Builder &builder,
                              Idler &idler, bool force, bool isAlone, BuildFlags flags)
{
    using enum ProjectProperty;
    const QString command = m_system.expandedValue(project, pre_build_command, configuration);
    if (command.isEmpty())
        return;
    if (!force && m_system.value(project, pre_build_command_control, configuration) != "Always Run"_L1) {
        NullBuilder nobody;
        Idler still;
        const int stepsBefore = m_stepsDone;
        const bool isNeeded =
            buildElement(project, configuration, &nobody, still, BuildFlag::dryRun | (flags & BuildFlag::noUnity));
        const bool hasFailed = std::exchange(m_state.failed, false); // the build itself tells what is wrong
        if ((!isNeeded && !hasFailed && m_stepsDone == stepsBefore) || !m_state.goesOn())
            return;
    }
    runProjectCommand(command, m_system.expandedValue(project, pre_build_command_wd, configuration),
                      u"Pre-build command "_s, project, configuration, builder);
    if (isAlone)
        idler.finishBatch();
}

void BuildEngine::runPostBuild(const ProjectElement *project, const QString &configuration, Builder &builder,
                               Idler &idler, bool ran, bool isAlone)
{
    using enum ProjectProperty;
    const QString command = m_system.expandedValue(project, post_build_command, configuration);
    if (command.isEmpty())
        return;
    if (!ran && !isOwed(project, configuration, postBuild) &&
        m_system.value(project, post_build_command_control, configuration) != "Always Run"_L1)
        return;
    runProjectCommand(command, m_system.expandedValue(project, post_build_command_wd, configuration),
                      u"Post-build command "_s, project, configuration, builder);
    setOwed(project, configuration, postBuild, !m_state.goesOn());
    if (isAlone)
        idler.finishBatch();
}

void BuildEngine::runProjectCommand(const QString &command, const QString &directory, const QString &title,
                                    const ProjectElement *project, const QString &configuration, Builder &builder)
{
    const QString where = m_system.absolutePath(project, directory);
    QDir().mkpath(where);
    m_times.leaveFirstInstant();
    builder.beginStep(project, title, configuration, 0);
    for (const QString &piece : command.split(" && "_L1)) {
        const QStringList words = splitWords(piece);
        if (words.isEmpty())
            continue;
        builder.runCommand(where, words, {});
        if (!m_state.goesOn())
            break;
    }
    builder.endStep(project, configuration);
    anythingWritten();
}

void BuildEngine::anythingWritten()
{
    m_times.forgetAll();
    m_tools.refresh();
    m_compileTemplates->clear();
}

// ---- What is known of nodes --------------------------------------------------------------------------------------

BuildEngine::NodeFacts &BuildEngine::factsOf(const ProjectElement *element, const QString &configuration,
                                             BuildFlags flags)
{
    const quint64 changes = m_system.changeCount();
    if (m_factsChanges != changes || m_factsFlags != (flags & BuildFlag::noUnity) ||
        m_factsConfiguration != configuration) {
        m_facts.clear();
        m_factsChanges = changes;
        m_factsFlags = flags & BuildFlag::noUnity;
        m_factsConfiguration = configuration;
    }
    const auto [at, isNew] = m_facts.try_emplace(element);
    if (isNew) {
        at->second.isUnity = isUnityFolder(m_system, element, configuration, flags);
        at->second.kind = toolKind(m_system, element, configuration, flags);
    }
    return at->second;
}

const BuildEngine::NodeFacts &BuildEngine::facts(const ProjectElement *element, const QString &configuration,
                                                 BuildFlags flags)
{
    return factsOf(element, configuration, flags);
}

const QString &BuildEngine::outputOf(const ProjectElement *element, const QString &configuration, BuildFlags flags)
{
    NodeFacts &known = factsOf(element, configuration, flags);
    if (!std::exchange(known.hasOutput, true))
        known.output = m_tools.outputName(known.kind, element, configuration, false);
    return known.output;
}

FileTimes::Id BuildEngine::outputId(const ProjectElement *element, const QString &configuration, BuildFlags flags)
{
    std::optional<FileTimes::Id> &known = factsOf(element, configuration, flags).outputId;
    if (!known)
        known = m_times.id(m_system.absolutePath(element, outputOf(element, configuration, flags)));
    return *known;
}

// ---- Records -----------------------------------------------------------------------------------------------------

BuildEngine::Record &BuildEngine::recordOf(const ProjectElement *element, const QString &configuration)
{
    const ProjectElement *project = projectOf(element);
    if (!m_lastRecord || m_lastRecordKey.first != project || m_lastRecordKey.second != configuration) {
        m_lastRecord = &unreadRecord(project, configuration);
        m_lastRecordKey = {project, configuration};
    }
    if (!m_lastRecord->isRead)
        m_lastRecord->read(m_times);
    return *m_lastRecord;
}

// Configurations that put their objects into one directory make the same files, and so have one record.
BuildEngine::Record &BuildEngine::unreadRecord(const ProjectElement *project, const QString &configuration)
{
    Record *&record = m_records[{project, configuration}];
    if (!record) {
        m_tools.loadGenericOptions(project, configuration); // they may say where intermediate files go
        QString name = project ? project->displayName() : u"solution"_s;
        name.replace(u'/', u'_');
        const QString directory =
            m_system.expandedValue(project, ProjectProperty::build_intermediate_directory, configuration);
        const QString path = m_system.absolutePath(project, directory) + u'/' + name + ".commands"_L1;
        std::unique_ptr<Record> &file = m_recordFiles[path];
        if (!file)
            file = std::make_unique<Record>(path);
        record = file.get();
    }
    return *record;
}

CommandRecord &BuildEngine::record(const ProjectElement *element, const QString &configuration)
{
    return recordOf(element, configuration).commands;
}

std::span<const FileTimes::Id> BuildEngine::recordedIds(const ProjectElement *element, const QString &configuration)
{
    Record &record = recordOf(element, configuration);
    record.noteIds(m_times);
    return record.ids;
}

// Of the projects from `element` down.
void BuildEngine::gatherRecords(const ProjectElement *element, const QString &configuration,
                                std::vector<Record *> &records)
{
    using Type = ProjectElement::Type;
    if (element->type() == Type::Project)
        records.push_back(&unreadRecord(element, configuration));
    else if (element->type() == Type::Solution || element->type() == Type::Folder)
        for (const ProjectElement *child = element->firstElement(); child; child = child->nextElement())
            gatherRecords(child, configuration, records);
}

bool BuildEngine::writes(BuildFlags flags) const
{
    return m_runsTools && (flags & BuildFlag::remove || !(flags & BuildFlag::noRun));
}

void BuildEngine::saveRecords()
{
    for (const auto &[path, record] : m_recordFiles)
        record->commands.save();
}

void BuildEngine::clearRecords()
{
    m_lastRecord = nullptr;
    m_records.clear();
    m_recordFiles.clear();
}

void BuildEngine::outputBegun(const ProjectElement *element, const QString &configuration, const QString &output)
{
    if (!m_runsTools || output.isEmpty())
        return;
    record(element, configuration).begin(output);
    const ProjectElement *project = projectOf(element);
    if (project && !isOwed(project, configuration, postBuild))
        owePostBuild(project, configuration);
}

void BuildEngine::outputMade(const ProjectElement *element, const QString &configuration, const QString &output,
                             quint64 hash)
{
    if (!m_runsTools)
        return;
    if (output.isEmpty()) {
        anythingWritten();
        return;
    }
    m_times.setWritten(output);
    CommandRecord &commands = record(element, configuration);
    if (hash)
        commands.setCommand(output, hash);
    else
        commands.forget(output);
    const ToolKind kind = toolKind(m_system, element, configuration);
    if (!hash || (!isCompile(kind) && kind != ToolKind::Link && !isUnityFolder(m_system, element, configuration)))
        return;
    // Read while the tool's file is still at hand, so that the next build needn't open it.
    const FileStamp stamp = m_times.stamp(output);
    if (stamp.time)
        noteDependencies(element, configuration, output, stamp);
}

// The source is among them, so that the next build asks for its time ahead too.
void BuildEngine::noteDependencies(const ProjectElement *element, const QString &configuration, const QString &output,
                                   const FileStamp &stamp)
{
    QStringList files;
    if (element->type() == ProjectElement::Type::File)
        files += m_system.path(element, configuration);
    for (const QString &file : m_tools.readDependencies(element, configuration, output))
        files += m_system.absolutePath(element, file);
    record(element, configuration).setDependencies(output, stamp, files);
}

void BuildEngine::setOwed(const ProjectElement *project, const QString &configuration, const QString &what, bool isOwed)
{
    if (!m_runsTools)
        return;
    if (isOwed)
        record(project, configuration).setCommand(owedName(what, configuration), CommandRecord::unfinished);
    else
        record(project, configuration).forget(owedName(what, configuration));
}

void BuildEngine::owePostBuild(const ProjectElement *project, const QString &configuration)
{
    if (!m_system.value(project, ProjectProperty::post_build_command, configuration).isEmpty())
        setOwed(project, configuration, postBuild, true);
}

bool BuildEngine::isOwed(const ProjectElement *project, const QString &configuration, const QString &what)
{
    return record(project, configuration).command(owedName(what, configuration)).has_value();
}

QString BuildEngine::owedName(const QString &what, const QString &configuration)
{
    return what + u' ' + configuration;
}

void BuildEngine::jobFailed(const ProjectElement *element, const QString &configuration)
{
    ++m_failureCount;
    m_failedProjects.insert({projectOf(element), configuration});
}

bool BuildEngine::hasFailed(const ProjectElement *element, const QString &configuration) const
{
    return !m_failedProjects.empty() && m_failedProjects.contains({projectOf(element), configuration});
}
