#pragma once

#include "build/commands/Builder.h"
#include "build/engine/Process.h"

#include <memory>

class BuildLog;
class DiagnosticParser;

// Runs a tool by itself, outside a build, and waits for it. What it prints goes to the log's transcript, and what
// is wrong to its top level.
class ToolStudioBuilder : public NullBuilder, private Process
{
public:
    ToolStudioBuilder(BuildLog &log, bool showsCommands); // the log outlives it
    ~ToolStudioBuilder() override;

    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    void reportError(const QString &text) override;
    bool hasFailed() const { return m_hasFailed; } // the command that ran last

private:
    void output(bool isStdout, const QByteArray &line) override;

    BuildLog &m_log;
    const bool m_showsCommands;
    bool m_hasFailed = false;
    std::unique_ptr<DiagnosticParser> m_parser;
};
