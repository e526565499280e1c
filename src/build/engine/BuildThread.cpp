#include "build/engine/BuildThread.h"

#include "build/engine/BuildEngine.h"

#include <QFileInfo>

BuildThread::BuildThread(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                         Builder &builder, Idler &idler, BuildFlags flags)
    : m_engine(engine),
      m_element(element),
      m_configuration(configuration),
      m_builder(builder),
      m_idler(idler),
      m_flags(flags),
      m_stepElement(element)
{}

void BuildThread::prepare()
{
    m_commands.clear();
    m_next = 0;
    watchFailure([this] {
        const int stepsBefore = m_engine.stepsDone();
        m_result = m_engine.buildElement(m_element, m_configuration, this, m_recordingIdler, m_flags);
        m_result |= m_engine.stepsDone() > stepsBefore;
    });
}

// Other slots' failures aren't ours: what our command has made stays made.
template <typename Call>
void BuildThread::watchFailure(const Call &call)
{
    BuildState &state = m_engine.state();
    const bool haveOthersFailed = std::exchange(state.failed, false);
    call();
    m_hasFailed |= state.failed;
    state.failed |= haveOthersFailed;
}

bool BuildThread::poll()
{
    while (m_next < m_commands.size()) {
        const BuildCommand &command = m_commands[m_next];
        if (command.kind == BuildCommand::StartCommand) {
            if (!m_engine.state().goesOn())
                return drop();
            m_engine.outputBegun(command.element, command.configuration, command.output);
            watchFailure([&] { m_builder.startCommand(command.directory, command.arguments, command.output); });
            if (m_hasFailed)
                return drop(); // it couldn't be started
            ++m_next;
            return false;
        }
        if (command.kind == BuildCommand::PollCommand) {
            bool hasEnded = false;
            watchFailure([&] { hasEnded = m_builder.pollCommand(command.element, command.configuration); });
            if (!hasEnded)
                return false;
        } else {
            play(command);
        }
        if (m_hasFailed || m_engine.state().stop)
            return drop();
        ++m_next;
    }
    return true;
}

void BuildThread::play(const BuildCommand &command)
{
    switch (command.kind) {
    case BuildCommand::BeginStep:
        return m_builder.beginStep(command.element, command.title, command.configuration, command.steps);
    case BuildCommand::EndStep: return m_builder.endStep(command.element, command.configuration);
    case BuildCommand::BeginProject:
        return m_idler.beginStep(command.element, command.title, command.configuration, command.steps);
    case BuildCommand::StepStarted: return m_idler.stepStarted(command.element, command.configuration);
    case BuildCommand::CloseProject: return m_idler.closeProject(command.element, command.configuration);
    case BuildCommand::VerifyOutput:
        if (!m_builder.verifyOutput(command.output)) {
            if (QFileInfo(command.output).isFile()) // and no device
                QFile::remove(command.output);
            m_hasFailed = m_engine.state().failed = true;
        }
        return;
    case BuildCommand::OutputMade:
        return m_engine.outputMade(command.element, command.configuration, command.output, command.hash);
    case BuildCommand::StartCommand:
    case BuildCommand::PollCommand: return;
    }
}

// What was made by commands that others were to follow isn't finished: it goes, and the next build makes it again.
void BuildThread::removeUnfinished()
{
    for (size_t index = m_next; index-- > 0;) {
        const BuildCommand &command = m_commands[index];
        if (command.kind == BuildCommand::OutputMade && !command.output.isEmpty())
            return;
        if (command.kind == BuildCommand::StartCommand && QFileInfo(command.output).isFile()) // and no device
            QFile::remove(command.output);
    }
}

// With keep-going the project's other jobs still write to what the idler has opened for it.
bool BuildThread::drop()
{
    removeUnfinished();
    const BuildCommand &command = m_commands[m_next];
    if (!(m_flags & BuildFlag::keepGoing))
        m_idler.closeProject(command.element, command.configuration);
    m_next = m_commands.size();
    return true;
}

void BuildThread::outputMade(const ProjectElement *element, const QString &configuration, const QString &output,
                             quint64 hash)
{
    m_commands.push_back({.kind = BuildCommand::OutputMade,
                          .element = element,
                          .configuration = configuration,
                          .output = output,
                          .hash = hash});
}

void BuildThread::beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                            int steps)
{
    m_stepElement = element;
    m_commands.push_back({BuildCommand::BeginStep, element, configuration, title, steps});
}

void BuildThread::endStep(const ProjectElement *element, const QString &configuration)
{
    m_stepElement = m_element;
    m_commands.push_back({BuildCommand::EndStep, element, configuration});
}

void BuildThread::runCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    startCommand(directory, arguments, output);
    pollCommand(m_stepElement, m_configuration);
}

void BuildThread::startCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    m_commands.push_back({.kind = BuildCommand::StartCommand,
                          .element = m_stepElement,
                          .configuration = m_configuration,
                          .directory = directory,
                          .arguments = arguments,
                          .output = output});
}

bool BuildThread::pollCommand(const ProjectElement *element, const QString &configuration)
{
    m_commands.push_back({BuildCommand::PollCommand, element, configuration});
    return true;
}

bool BuildThread::verifyOutput(const QString &path)
{
    m_commands.push_back({.kind = BuildCommand::VerifyOutput,
                          .element = m_stepElement,
                          .configuration = m_configuration,
                          .output = path});
    return true;
}

void BuildThread::RecordingIdler::beginStep(const ProjectElement *element, const QString &title,
                                            const QString &configuration, int steps)
{
    m_thread.m_commands.push_back({BuildCommand::BeginProject, element, configuration, title, steps});
}

void BuildThread::RecordingIdler::stepStarted(const ProjectElement *element, const QString &configuration)
{
    m_thread.m_commands.push_back({BuildCommand::StepStarted, element, configuration});
}

void BuildThread::RecordingIdler::closeProject(const ProjectElement *element, const QString &configuration)
{
    m_thread.m_commands.push_back({BuildCommand::CloseProject, element, configuration});
}
