#include "build/report/ReportingBuilder.h"

#include "base/Directories.h"
#include "build/engine/ProcessPoller.h"
#include "build/log/BuildLog.h"

namespace {

QString driverPath()
{
    static const QString path = installationDirectory() + QStringLiteral("/bin/cc");
    return path;
}

} // namespace

LastItem::LastItem(BuildLog &log)
{
    QObject::connect(&log, &BuildLog::itemAdded, &log, [this](const BuildLogItem *item) { m_item = item; });
}

ReportingBuilder::ReportingBuilder(const Surroundings &surroundings, int slot, bool isAlone)
    : StudioBuilder(surroundings.state, surroundings.poller, surroundings.log, surroundings.idler, slot),
      m_report(surroundings.report),
      m_poller(surroundings.poller),
      m_lastItem(surroundings.lastItem),
      m_isAlone(isAlone)
{}

void ReportingBuilder::beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                                 int steps)
{
    StudioBuilder::beginStep(element, title, configuration, steps);
    m_title = title.trimmed();
    m_report.stepBegan(place(), m_title);
}

void ReportingBuilder::endStep(const ProjectElement *element, const QString &configuration)
{
    tellPending();
    StudioBuilder::endStep(element, configuration);
}

void ReportingBuilder::startCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    m_output = output;
    StudioBuilder::startCommand(directory, arguments, output);
}

void ReportingBuilder::commandStarted(const QString &directory, const QStringList &arguments)
{
    ++m_commandCount;
    m_isRunning = true;
    m_runTime.start();
    m_hasError = false;
    m_isEchoing = arguments.first() == driverPath() && arguments.contains(u"-v");
    m_report.commandStarted(place(), directory, arguments, m_output);
    StudioBuilder::commandStarted(directory, arguments);
}

bool ReportingBuilder::pollCommand(const ProjectElement *element, const QString &configuration)
{
    if (!StudioBuilder::pollCommand(element, configuration)) {
        if (!m_pending.empty() && isFollowed())
            tellPending();
        return false;
    }
    if (std::exchange(m_isRunning, false)) {
        const bool hasFailed = exitStatus() != 0 && !isStopped();
        if (hasFailed)
            m_report.commandFailed(place(), m_title, exitStatus());
        tellPending();
        if (hasFailed && !m_hasError) { // so that it is among the errors at the end
            const BuildLogItem *item = m_lastItem.addedBy([&] {
                StudioBuilder::reportError(
                    QStringLiteral("%1 failed with exit status %2").arg(m_title, QString::number(exitStatus())));
            });
            m_report.diagnostic(place(), *item, true);
        }
    }
    return true;
}

void ReportingBuilder::lineReceived(const QString &line, bool isError)
{
    const BuildLogItem *item = m_lastItem.addedBy([&] { StudioBuilder::lineReceived(line, isError); });
    const auto stream = isError       ? BuildReport::Stream::Error
                        : m_isEchoing ? BuildReport::Stream::Echo
                                      : BuildReport::Stream::Output;
    m_hasError |= item && item->severity() >= Severity::Error;
    const Line received{line, stream, item && item->severity() >= Severity::Note ? item : nullptr};
    m_pending.push_back(received);
    if (m_isAlone || isFollowed())
        tellPending();
}

bool ReportingBuilder::isFollowed() const
{
    constexpr size_t mostPending = 1000;
    constexpr qint64 longTimeMs = 1000;
    return m_pending.size() >= mostPending || (m_runTime.elapsed() > longTimeMs && m_poller.runningCount() == 1);
}

void ReportingBuilder::tell(const Line &line)
{
    m_report.output(place(), line.text, line.stream);
    if (line.diagnostic)
        m_report.diagnostic(place(), *line.diagnostic, true);
}

void ReportingBuilder::tellPending()
{
    for (const Line &line : m_pending)
        tell(line);
    m_pending.clear();
}

void ReportingBuilder::reportError(const QString &text)
{
    m_hasError = true;
    const BuildLogItem *item = m_lastItem.addedBy([&] { StudioBuilder::reportError(text); });
    m_report.diagnostic(place(), *item, false);
}

void ReportingBuilder::reportWarning(const QString &text)
{
    const BuildLogItem *item = m_lastItem.addedBy([&] { StudioBuilder::reportWarning(text); });
    m_report.diagnostic(place(), *item, false);
}

void ReportingBuilder::reportInfo(const QString &text)
{
    StudioBuilder::reportInfo(text);
    m_report.note(place(), BuildReport::NoteKind::Information, text);
}

// Not for the log: a build that has nothing to do would write thousands of rows that nobody sees.
void ReportingBuilder::reportNote(const QString &text)
{
    m_report.note(place(), BuildReport::NoteKind::UpToDate, text);
}

void ReportingBuilder::reportDetail(const QString &text)
{
    StudioBuilder::reportDetail(text);
    m_report.note(place(), BuildReport::NoteKind::Reason, text);
}

void ReportingIdler::stepStarted(const ProjectElement *element, const QString &configuration)
{
    StudioIdler::stepStarted(element, configuration);
    m_report.stepCounted();
}
