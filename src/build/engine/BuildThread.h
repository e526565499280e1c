#pragma once

#include "build/commands/BuildFlags.h"
#include "build/commands/Builder.h"
#include "build/commands/Idler.h"

#include <vector>

class BuildEngine;
class ProjectElement;

// One call that a build makes while it decides, to be made in earnest later.
struct BuildCommand
{
    enum Kind {
        BeginStep = 0, // of the Builder
        EndStep = 1,
        StartCommand = 2,
        PollCommand = 3,
        BeginProject = 4, // the Idler's beginStep
        StepStarted = 5,
        CloseProject = 6,
        VerifyOutput = 7,
        OutputMade = 8, // of the engine: what came before has made the output
    };

    Kind kind;
    const ProjectElement *element;
    QString configuration;
    QString title = {};
    int steps = 0;
    QString directory = {};
    QStringList arguments = {};
    QString output = {};
    quint64 hash = 0; // of the commands that made the output
};

// One job of a build in flight; no thread of the system. All that the job needs is decided and recorded when it
// starts, as the Builder and Idler of BuildEngine::buildElement; polling then plays that back on the slot's
// builder, command by command. What is reported while it decides reaches the slot's builder at once.
class BuildThread : public Builder
{
public:
    BuildThread(BuildEngine &engine, const ProjectElement *element, const QString &configuration, Builder &builder,
                Idler &idler, BuildFlags flags);
    BuildThread(const BuildThread &) = delete;
    BuildThread &operator=(const BuildThread &) = delete;

    void prepare();
    // Goes on until a command runs; true when all is done. When the build ends, what is left is dropped.
    bool poll();
    bool hasDoneSomething() const { return m_result; }
    bool hasFailed() const { return m_hasFailed; }
    const ProjectElement *element() const { return m_element; }
    const QString &configuration() const { return m_configuration; }
    BuildFlags flags() const { return m_flags; }
    Builder &builder() { return m_builder; }
    const std::vector<BuildCommand> &commands() const { return m_commands; }

    // `output`, absolute, is there once the commands before have run well; `hash` tells them from others. An empty
    // output: the commands may have written any file.
    void outputMade(const ProjectElement *element, const QString &configuration, const QString &output, quint64 hash);

    void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                   int steps) override;
    void endStep(const ProjectElement *element, const QString &configuration) override;
    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    void startCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    bool pollCommand(const ProjectElement *element, const QString &configuration) override;
    void reportError(const QString &text) override { m_builder.reportError(text); }
    void reportWarning(const QString &text) override { m_builder.reportWarning(text); }
    void reportInfo(const QString &text) override { m_builder.reportInfo(text); }
    void reportNote(const QString &text) override { m_builder.reportNote(text); }
    void reportDetail(const QString &text) override { m_builder.reportDetail(text); }
    void markFailed() override { m_builder.markFailed(); }
    QObject *progressTarget() override { return m_builder.progressTarget(); }
    bool verifyOutput(const QString &path) override;

private:
    // Builder and Idler have an operation of one name and signature, so that one class can't be both.
    class RecordingIdler : public Idler
    {
    public:
        explicit RecordingIdler(BuildThread &thread) : m_thread(thread) {}
        void idle(int busyCount) override { m_thread.m_idler.idle(busyCount); }
        void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                       int steps) override;
        void stepStarted(const ProjectElement *element, const QString &configuration) override;
        void closeProject(const ProjectElement *element, const QString &configuration) override;

    private:
        BuildThread &m_thread;
    };

    template <typename Call>
    void watchFailure(const Call &call);
    void play(const BuildCommand &command);
    void removeUnfinished();
    bool drop();

    BuildEngine &m_engine;
    const ProjectElement *m_element;
    QString m_configuration;
    Builder &m_builder;
    Idler &m_idler;
    RecordingIdler m_recordingIdler{*this};
    BuildFlags m_flags;
    bool m_result = false;
    bool m_hasFailed = false;
    const ProjectElement *m_stepElement = nullptr; // of the open step while recording
    std::vector<BuildCommand> m_commands;
    size_t m_next = 0;
};
