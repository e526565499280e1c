#pragma once

#include "build/commands/BuildFlags.h"
#include "build/commands/Builder.h"
#include "build/engine/Process.h"

#include <memory>
#include <vector>

class BuildLog;
class BuildLogItem;
class DiagnosticParser;
class StudioIdler;

// "cp", "xmlcp", "mkhdr", "chmod" and "rm" as the first word become the paths of the installation's.
QStringList installedCommand(QStringList arguments);
// Arguments joined by blanks, those with a blank in double quotes.
QString commandText(const QStringList &arguments);
// A file that isn't empty and, where it says that it is an ELF file, can be read as one.
bool isAcceptableOutput(const QString &path);

// Runs the tools of one slot of a build and sends what they print to the log, below the item of the project that
// is being built. The output of a command that fails or is stopped is deleted.
class StudioBuilder : public Builder, protected Process
{
public:
    // All outlive it. `slot` counts from 0.
    StudioBuilder(BuildState &state, ProcessPoller &poller, BuildLog &log, StudioIdler &idler, int slot);
    ~StudioBuilder() override;

    void setShowsCommands(bool shows) { m_showsCommands = shows; }

    void reset() override;
    void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                   int steps) override;
    void endStep(const ProjectElement *element, const QString &configuration) override;
    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    void startCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    bool pollCommand(const ProjectElement *element, const QString &configuration) override;
    void reportError(const QString &text) override;
    void reportWarning(const QString &text) override;
    void reportInfo(const QString &text) override;
    void reportNote(const QString &text) override;
    void reportDetail(const QString &text) override;
    void markFailed() override;
    bool verifyOutput(const QString &path) override;
    void attachJob(const ProjectElement *element, const QString &configuration) override;

    int slot() const { return m_slot; }
    // Of the innermost open step, else of the attached job; null without either.
    const ProjectElement *stepElement() const;
    const QString &stepConfiguration() const;

protected:
    // What a subclass may watch; each does its work by calling the base.
    virtual void commandStarted(const QString &directory, const QStringList &arguments); // prints it when asked to
    virtual void lineReceived(const QString &line, bool isError);                        // into the log

private:
    struct Step
    {
        const ProjectElement *element;
        QString configuration;
        BuildLogItem *item;
    };

    void output(bool isStdout, const QByteArray &line) final;
    void fail();
    BuildLogItem *parentItem() const;

    BuildState &m_state;
    BuildLog &m_log;
    StudioIdler &m_idler;
    const int m_slot;
    bool m_showsCommands = false;
    Step m_job{};
    std::vector<Step> m_steps;
    QString m_program, m_output; // of the command that runs
    bool m_hasCommand = false;
    std::unique_ptr<DiagnosticParser> m_parser;
};
