#include "build/report/BuildRun.h"

#include "build/commands/StandardToolCommands.h"
#include "build/engine/ProcessPoller.h"
#include "build/log/BuildLog.h"
#include "build/report/ReportingBuilder.h"
#include "build/report/SolutionWarnings.h"

#include <QElapsedTimer>
#include <QThread>

namespace {

constexpr int mostSlots = 128;

int slotCount(int jobs)
{
    return qBound(1, jobs > 0 ? jobs : QThread::idealThreadCount(), mostSlots);
}

// What the build will do, for its progress and its sizes.
struct Plan
{
    int steps = 0;
    std::vector<std::pair<const ProjectElement *, QString>> programs; // projects that are linked
};

Plan planOf(BuildEngine &engine, const BuildRequest &request)
{
    NullBuilder builder;
    Idler idler;
    BuildJobs jobs;
    const ProjectElement &element = *request.element;
    if (element.type() == ProjectElement::Type::Solution)
        engine.addSolutionJobs(&element, request.configuration, request.flags, request.isBatch, builder, idler, false,
                               jobs);
    else if (element.type() == ProjectElement::Type::Project)
        engine.addProjectJobs(&element, request.configuration, request.flags, request.isBatch, builder, idler, false,
                              true, jobs);
    Plan plan;
    if (jobs.empty() && !request.isBatch)
        plan.steps = engine.buildStepCount(&element, request.configuration, request.flags);
    for (const BuildJob &job : jobs) {
        if (job.flags & BuildFlag::projectBegin)
            plan.steps += int(job.flags >> BuildFlag::stepsShift);
        else if (job.flags & BuildFlag::projectEnd &&
                 toolKind(engine.system(), job.element, job.configuration) == ToolKind::Link)
            plan.programs.emplace_back(job.element, job.configuration);
    }
    return plan;
}

} // namespace

BuildOutcome runBuild(LoadedSolution &loaded, const BuildRequest &request, BuildReport &report)
{
    QElapsedTimer timer;
    timer.start();
    const int slots = slotCount(request.jobs);
    BuildState state;
    StandardToolCommands tools(loaded.system(), state);
    ProcessPoller poller;
    BuildEngine engine(loaded.system(), tools, state, &poller);
    engine.begin(request.element, request.configuration, request.flags); // or it waits for another build, later
    BuildLog log;
    log.setKeepsTranscript(false);
    LastItem lastItem(log);
    ReportingIdler idler(log, report);
    const ReportingBuilder::Surroundings surroundings{state, poller, log, idler, report, lastItem};
    std::vector<std::unique_ptr<ReportingBuilder>> builders;
    std::vector<Builder *> builderPointers;
    for (int slot = 0; slot < slots; ++slot) {
        builders.push_back(std::make_unique<ReportingBuilder>(surroundings, slot, slots == 1));
        builderPointers.push_back(builders.back().get());
    }
    const Plan plan = planOf(engine, request);
    report.started(loaded.solution().filePath(), request.configuration, plan.steps);
    if (request.isBatch && plan.steps == 0)
        report.note({request.element, {}}, BuildReport::NoteKind::Information,
                    QStringLiteral("no project names configurations in batch_build_configurations"));

    for (const SolutionWarning &warning : solutionWarnings(loaded))
        report.diagnostic({warning.element, request.configuration},
                          *log.addResult(warning.bookmark, quint32(Severity::Warning)), false);

    BuildOutcome outcome;
    {
        const InterruptCatcher interrupts;
        outcome.result = engine.buildProject(request.element, request.configuration, builderPointers, idler,
                                             request.flags, true, request.isBatch);
    }
    outcome.flags = request.flags;
    outcome.failures = engine.failureCount();
    outcome.counters = log.counters();
    for (const auto &builder : builders)
        outcome.commands += builder->commandCount();
    if (outcome.isDone() && !(request.flags & BuildFlag::noRun)) {
        for (const auto &[project, configuration] : plan.programs) {
            QString problem;
            const QString file = tools.outputName(ToolKind::Link, project, configuration, true);
            if (auto size = programSize(loaded.system(), project, configuration, file, problem))
                outcome.sizes.push_back(std::move(*size));
            if (!problem.isEmpty())
                report.note({project, configuration}, BuildReport::NoteKind::Information, problem);
        }
    }
    outcome.milliseconds = timer.elapsed();
    report.finished(outcome);
    return outcome;
}
