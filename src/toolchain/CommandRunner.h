#pragma once

#include <QStringList>
#include <optional>

// Runs the tools behind the driver, one after the other and without a shell. Their output goes where ours goes.
//
// Outputs that were announced are removed when a tool fails or a signal ends us, so that nothing half-made stays.
// SIGINT, SIGTERM and SIGHUP are handed on to a running tool that hasn't got them itself; when it has ended, they end
// us too.
class CommandRunner
{
public:
    // With `isShown` each command is printed on standard output; with `isDry` that is all.
    CommandRunner(bool isShown, bool isDry);
    CommandRunner(const CommandRunner &) = delete;
    CommandRunner &operator=(const CommandRunner &) = delete;

    bool isDry() const { return m_isDry; }
    void addOutput(const QString &path) { m_outputs += path; }
    // What tells why a tool has failed stays then, and goes when a signal ends us.
    void addReport(const QString &path) { m_reports += path; }
    void removeOutputs();
    // Runs a command to its end; the first word is a path or looked for in the search path. Throws ToolFailure
    // with the tool's exit status unless that is 0.
    void run(const QStringList &command);
    // The first line that a command prints; empty when it fails or can't be run. It runs unseen, and in a dry run too.
    QString query(const QStringList &command);

    // The command as a shell takes it.
    static QString quoted(const QStringList &command);
    // Ends the process by the signal that has arrived, if one has, after removing the outputs.
    void checkSignals();

private:
    int spawn(const QStringList &command, int outputDescriptor);

    bool m_isShown, m_isDry;
    QStringList m_outputs, m_reports;
};

// A tool has told what is wrong; its exit status becomes ours.
class ToolFailure
{
public:
    explicit ToolFailure(int status) : m_status(status) {}
    int status() const { return m_status; }

private:
    int m_status;
};
