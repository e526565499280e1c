#include "build/engine/ToolStudioBuilder.h"

#include "build/engine/StudioBuilder.h"
#include "build/log/BuildLog.h"
#include "build/log/CompilerDiagnosticParser.h"

using namespace Qt::StringLiterals;

ToolStudioBuilder::ToolStudioBuilder(BuildLog &log, bool showsCommands) : m_log(log), m_showsCommands(showsCommands) {}

ToolStudioBuilder::~ToolStudioBuilder() = default;

void ToolStudioBuilder::runCommand(const QString &directory, const QStringList &arguments, const QString &)
{
    if (m_showsCommands) {
        m_log.addPlainOutput(0, "Command line: "_L1 + commandText(arguments));
        m_log.addPlainOutput(0, "Working directory: "_L1 + directory);
    }
    m_parser = std::make_unique<CompilerDiagnosticParser>(directory, arguments.value(0));
    const bool hasStarted = start(installedCommand(arguments), directory, true);
    if (!hasStarted)
        reportError("Error starting process "_L1 + arguments.value(0));
    m_hasFailed = !hasStarted || exitStatus() != 0;
}

void ToolStudioBuilder::reportError(const QString &text)
{
    m_log.addError(nullptr, text);
}

void ToolStudioBuilder::output(bool isStdout, const QByteArray &line)
{
    m_log.processOutput(0, m_parser.get(), nullptr, QString::fromUtf8(line), !isStdout);
}
