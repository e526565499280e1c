#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/BuildThread.h"
#include "build/engine/ProcessPoller.h"
#include "build/engine/ProjectNodes.h"

#include <QElapsedTimer>
#include <QList>

using namespace Qt::StringLiterals;

namespace {

constexpr int patienceMs = 1000; // with what was told to stop

// Works off a job list: each job in the lowest free slot, a barrier when all are free.
class JobScheduler
{
public:
    JobScheduler(BuildEngine &engine, std::span<Builder *const> builders, Idler &idler)
        : m_engine(engine), m_state(engine.state()), m_builders(builders), m_idler(idler), m_slots(builders.size())
    {}

    bool run(const BuildJobs &jobs);

private:
    using ProjectKey = std::pair<const ProjectElement *, QString>;

    void beginProject(const BuildJob &job);
    void runJob(const BuildJob &job);
    void place(const BuildJob &job, size_t slot);
    bool pollSlots();
    void finish(size_t slot);
    void takeFailure(Builder &builder, const ProjectElement *element, const QString &configuration, BuildFlags flags);
    void endEarly();
    void wait();

    size_t freeSlot() const { return size_t(std::find(m_slots.begin(), m_slots.end(), nullptr) - m_slots.begin()); }
    size_t busyCount() const { return m_slots.size() - size_t(std::count(m_slots.begin(), m_slots.end(), nullptr)); }
    // For what belongs to a project and not to a job: the first one, unless another project's job runs in it.
    Builder &projectBuilder(size_t slot) const { return *m_builders[m_slots[0] ? slot : 0]; }
    static ProjectKey keyOf(const ProjectElement *element, const QString &configuration)
    {
        const ProjectElement *project = projectOf(element);
        return {project ? project : element, configuration};
    }

    BuildEngine &m_engine;
    BuildState &m_state;
    std::span<Builder *const> m_builders;
    Idler &m_idler;
    std::vector<std::unique_ptr<BuildThread>> m_slots;
    QList<Builder *> m_busy;
    bool m_total = false;
    std::map<ProjectKey, bool> m_ran;  // whether a job of the project, whose end is to come, did something
    std::set<ProjectKey> m_passedOver; // projects whose pre-build command failed
};

bool JobScheduler::run(const BuildJobs &jobs)
{
    for (auto job = jobs.begin(); job != jobs.end() && m_state.goesOn(); ++job) {
        if (!job->isBarrier() && !m_passedOver.empty() &&
            m_passedOver.contains(keyOf(job->element, job->configuration)))
            continue;
        if (job->flags & BuildFlag::projectBegin)
            beginProject(*job);
        else
            runJob(*job);
    }
    if (m_state.goesOn())
        runJob({nullptr, {}, 0, {}}); // a barrier for what still runs
    if (!m_state.goesOn())
        endEarly();
    for (const auto &[key, hasRun] : m_ran) { // and the command behind it hasn't
        if (hasRun)
            m_engine.owePostBuild(key.first, key.second);
    }
    m_idler.finishBatch();
    return m_total;
}

void JobScheduler::beginProject(const BuildJob &job)
{
    if (!(job.flags & BuildFlag::noRun)) {
        Builder &builder = projectBuilder(freeSlot());
        m_engine.runPreBuild(job.element, job.configuration, builder, m_idler, job.flags & BuildFlag::force,
                             busyCount() == 0, job.flags);
        if (m_state.failed) {
            m_passedOver.insert(keyOf(job.element, job.configuration));
            takeFailure(builder, job.element, job.configuration, job.flags);
            return;
        }
    }
    m_idler.beginStep(job.element, job.title, job.configuration, int(job.flags >> BuildFlag::stepsShift));
}

// Returns when another job can be placed; a barrier when nothing runs any more.
void JobScheduler::runJob(const BuildJob &job)
{
    bool isPlaced = job.isBarrier();
    while (m_state.goesOn()) {
        m_busy.clear();
        for (const auto &thread : m_slots) {
            if (thread)
                m_busy += &thread->builder();
        }
        m_idler.idleBusy(int(m_busy.size()), m_busy);
        m_engine.takeInterrupts();
        const size_t slot = freeSlot();
        if (!isPlaced && slot < m_slots.size()) {
            place(job, slot);
            isPlaced = true;
        } else if (!pollSlots()) {
            wait();
        }
        const size_t count = busyCount();
        if (count == 0 || (count < m_slots.size() && !job.isBarrier()))
            return;
    }
}

void JobScheduler::place(const BuildJob &job, size_t slot)
{
    Builder &builder = *m_builders[slot];
    builder.attachJob(job.element, job.configuration);
    m_slots[slot] =
        std::make_unique<BuildThread>(m_engine, job.element, job.configuration, builder, m_idler, job.flags);
    m_slots[slot]->prepare();
    if (m_slots[slot]->hasFailed() && m_slots[slot]->poll())
        finish(slot); // what can't even be prepared
}

// True when a job ended.
bool JobScheduler::pollSlots()
{
    bool hasEnded = false;
    for (size_t slot = 0; slot < m_slots.size(); ++slot) {
        if (m_slots[slot] && m_slots[slot]->poll()) {
            finish(slot);
            hasEnded = true;
        }
    }
    return hasEnded;
}

void JobScheduler::finish(size_t slot)
{
    const std::unique_ptr<BuildThread> thread = std::move(m_slots[slot]);
    const ProjectElement *element = thread->element();
    const QString &configuration = thread->configuration();
    const BuildFlags flags = thread->flags();
    bool &hasRun = m_ran[keyOf(element, configuration)];
    hasRun |= thread->hasDoneSomething() && !(flags & BuildFlag::noRun);
    m_total |= thread->hasDoneSomething();
    bool hasFailed = thread->hasFailed();
    if (flags & BuildFlag::projectEnd) {
        m_idler.closeProject(element, configuration);
        if (!(flags & BuildFlag::noRun) && m_state.goesOn() && !m_engine.hasFailed(element, configuration)) {
            m_engine.runPostBuild(element, configuration, projectBuilder(slot), m_idler, hasRun, busyCount() == 0);
            hasFailed = m_state.failed;
            m_ran.erase(keyOf(element, configuration));
        }
    }
    if (hasFailed)
        takeFailure(thread->builder(), element, configuration, flags);
}

void JobScheduler::takeFailure(Builder &builder, const ProjectElement *element, const QString &configuration,
                               BuildFlags flags)
{
    m_engine.jobFailed(element, configuration);
    if (!(flags & BuildFlag::keepGoing))
        return;
    builder.reportInfo(u"Build failed - continuing because 'keep going on error' has been enabled"_s);
    builder.endStep(nullptr, {});
    m_state.failed = false;
}

// What runs ends its command; what that job would have run behind it is dropped.
void JobScheduler::endEarly()
{
    QElapsedTimer timer;
    timer.start();
    bool isTold = false;
    for (;;) {
        m_idler.idle(int(busyCount()));
        m_engine.takeInterrupts();
        for (auto &thread : m_slots) {
            if (thread && thread->poll()) {
                m_total |= thread->hasDoneSomething();
                m_ran[keyOf(thread->element(), thread->configuration())] |=
                    thread->hasDoneSomething() && !(thread->flags() & BuildFlag::noRun);
                if (thread->hasFailed() && !m_state.stop)
                    m_engine.jobFailed(thread->element(), thread->configuration());
                thread.reset();
            }
        }
        if (busyCount() == 0)
            break;
        if (m_state.stop && !isTold && timer.elapsed() > patienceMs) {
            isTold = true;
            m_builders[0]->reportInfo(u"Waiting for commands that don't stop; another interrupt kills them"_s);
        }
        if (ProcessPoller *poller = m_engine.poller())
            poller->wait();
    }
    if (m_state.failed) {
        for (Builder *builder : m_builders)
            builder->markFailed();
    }
}

void JobScheduler::wait()
{
    ProcessPoller *poller = m_engine.poller();
    if (poller && m_state.goesOn())
        poller->wait();
}

} // namespace

bool BuildEngine::runJobs(const BuildJobs &jobs, std::span<Builder *const> builders, Idler &idler)
{
    return JobScheduler(*this, builders, idler).run(jobs);
}
