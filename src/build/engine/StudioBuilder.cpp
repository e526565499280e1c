#include "build/engine/StudioBuilder.h"

#include "base/Directories.h"
#include "base/HException.h"
#include "build/engine/ProcessPoller.h"
#include "build/engine/StudioIdler.h"
#include "build/log/BuildLog.h"
#include "build/log/CompilerDiagnosticParser.h"
#include "elf/ElfFile.h"

#include <QDir>
#include <QFileInfo>
#include <csignal>
#include <cstring>

using namespace Qt::StringLiterals;

QStringList installedCommand(QStringList arguments)
{
    static const QStringList installed{u"cp"_s, u"xmlcp"_s, u"mkhdr"_s, u"chmod"_s, u"rm"_s};
    if (!arguments.isEmpty() && installed.contains(arguments.first()))
        arguments.first() = installationDirectory() + "/bin/"_L1 + arguments.first();
    return arguments;
}

QString commandText(const QStringList &arguments)
{
    QStringList words;
    for (const QString &argument : arguments)
        words += argument.contains(u' ') || argument.isEmpty() ? u'"' + argument + u'"' : argument;
    return words.join(u' ');
}

// An ELF file says by its fifth byte whether it is one of 32 bits, which are the ones that can be read here.
bool isAcceptableOutput(const QString &path)
{
    QFile file(path);
    if (!file.open(QFile::ReadOnly) || file.size() == 0)
        return false;
    constexpr char elf32[] = {0x7F, 'E', 'L', 'F', 1};
    if (file.read(sizeof elf32) != QByteArrayView(elf32, sizeof elf32))
        return true;
    try {
        ElfFile().load(path);
        return true;
    } catch (const HException &) {
        return false;
    }
}

StudioBuilder::StudioBuilder(BuildState &state, ProcessPoller &poller, BuildLog &log, StudioIdler &idler, int slot)
    : Process(&poller), m_state(state), m_log(log), m_idler(idler), m_slot(slot)
{}

StudioBuilder::~StudioBuilder() = default;

void StudioBuilder::reset()
{
    m_steps.clear();
    m_job = {};
    clearStop();
}

void StudioBuilder::beginStep(const ProjectElement *element, const QString &title, const QString &configuration, int)
{
    m_steps.push_back({element, configuration, m_log.beginGroup(parentItem(), title, 0, m_slot)});
}

void StudioBuilder::endStep(const ProjectElement *, const QString &)
{
    if (m_steps.empty())
        return;
    m_log.endGroup(m_steps.back().item);
    m_steps.pop_back();
}

void StudioBuilder::attachJob(const ProjectElement *element, const QString &configuration)
{
    m_job = {element, configuration, m_idler.item(element, configuration)};
}

const ProjectElement *StudioBuilder::stepElement() const
{
    return m_steps.empty() || !m_steps.back().element ? m_job.element : m_steps.back().element;
}

const QString &StudioBuilder::stepConfiguration() const
{
    return m_steps.empty() ? m_job.configuration : m_steps.back().configuration;
}

// The step that is open, else the project; null is the top level of the log.
BuildLogItem *StudioBuilder::parentItem() const
{
    return m_steps.empty() ? m_job.item : m_steps.back().item;
}

// ---- Commands ----------------------------------------------------------------------------------------------------

void StudioBuilder::runCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    startCommand(directory, arguments, output);
    while (!pollAlone()) { // the children of other slots wait
        const int interrupts = InterruptCatcher::count();
        if (interrupts == 0)
            continue;
        m_state.stop = true;
        stop(interrupts == 1 ? SIGHUP : SIGKILL);
    }
    pollCommand(stepElement(), stepConfiguration());
}

void StudioBuilder::startCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    m_output = output;
    m_program = arguments.value(0);
    m_hasCommand = false;
    if (!output.isEmpty() && !QDir().mkpath(QFileInfo(output).path())) {
        reportError("Error creating directory "_L1 + QFileInfo(output).path());
        m_state.failed = true;
        return;
    }
    commandStarted(directory, arguments);
    m_parser = std::make_unique<CompilerDiagnosticParser>(directory, m_program);
    if (!start(installedCommand(arguments), directory)) {
        reportError("Error starting process "_L1 + m_program);
        reportInfo(errorString());
        fail();
        return;
    }
    m_hasCommand = true;
}

bool StudioBuilder::pollCommand(const ProjectElement *element, const QString &configuration)
{
    if (!m_hasCommand)
        return true; // it couldn't be started
    if (!poll())
        return false;
    m_hasCommand = false;
    if (exitStatus() == 0 && !isStopped()) {
        m_parser->finished(element, configuration, m_output);
        return true;
    }
    if (endSignal() && !isStopped())
        reportError(u"'%1' was ended by signal %2 (%3)"_s.arg(m_program, QString::number(endSignal()),
                                                              QString::fromLatin1(sigdescr_np(endSignal()))));
    fail();
    if (isStopped())
        markFailed();
    return true;
}

void StudioBuilder::fail()
{
    if (QFileInfo(m_output).isFile()) // and no device
        QFile::remove(m_output);
    m_state.failed = true;
}

void StudioBuilder::commandStarted(const QString &, const QStringList &arguments)
{
    if (m_showsCommands)
        m_log.addMessage(m_slot, parentItem(), commandText(arguments), lineCommand);
}

void StudioBuilder::output(bool isStdout, const QByteArray &line)
{
    lineReceived(QString::fromUtf8(line), !isStdout);
}

void StudioBuilder::lineReceived(const QString &line, bool isError)
{
    m_log.processOutput(m_slot, m_parser.get(), m_job.item ? m_job.item : parentItem(), line, isError);
}

bool StudioBuilder::verifyOutput(const QString &path)
{
    if (isAcceptableOutput(path))
        return true;
    reportError(path + " is no valid output file"_L1);
    return false;
}

// ---- Messages ----------------------------------------------------------------------------------------------------

void StudioBuilder::reportError(const QString &text)
{
    m_log.addError(parentItem(), text);
}

void StudioBuilder::reportWarning(const QString &text)
{
    m_log.addWarning(parentItem(), text);
}

void StudioBuilder::reportInfo(const QString &text)
{
    m_log.addMessage(parentItem(), text);
}

void StudioBuilder::reportNote(const QString &text)
{
    m_log.addMessage(parentItem(), text, lineNote);
}

void StudioBuilder::reportDetail(const QString &text)
{
    m_log.addMessage(parentItem(), text);
}

void StudioBuilder::markFailed()
{
    if (BuildLogItem *item = parentItem())
        m_log.terminated(item);
}
