#pragma once

#include "build/engine/StudioBuilder.h"
#include "build/engine/StudioIdler.h"
#include "build/report/BuildReport.h"

#include <QElapsedTimer>

// The last row that was added to a log.
class LastItem
{
public:
    explicit LastItem(BuildLog &log);
    // The row that `work` adds; null if none.
    template <typename Work>
    const BuildLogItem *addedBy(Work work)
    {
        m_item = nullptr;
        work();
        return m_item;
    }

private:
    const BuildLogItem *m_item = nullptr;
};

// Runs the tools of a slot, keeps the log and tells a report. Where several slots run at a time, what a command
// prints is told when it has ended, so that commands don't mix their lines; but one that runs alone and long is
// followed, and one that prints very much is told by and by.
class ReportingBuilder : public StudioBuilder
{
public:
    struct Surroundings // of all builders of a build; outlive them
    {
        BuildState &state;
        ProcessPoller &poller;
        BuildLog &log;
        StudioIdler &idler;
        BuildReport &report;
        LastItem &lastItem;
    };
    ReportingBuilder(const Surroundings &surroundings, int slot, bool isAlone);

    int commandCount() const { return m_commandCount; }

    void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                   int steps) override;
    void endStep(const ProjectElement *element, const QString &configuration) override;
    void startCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    bool pollCommand(const ProjectElement *element, const QString &configuration) override;
    void reportError(const QString &text) override;
    void reportWarning(const QString &text) override;
    void reportInfo(const QString &text) override;
    void reportNote(const QString &text) override;
    void reportDetail(const QString &text) override;

protected:
    void commandStarted(const QString &directory, const QStringList &arguments) override;
    void lineReceived(const QString &line, bool isError) override;

private:
    struct Line
    {
        QString text;
        BuildReport::Stream stream;
        const BuildLogItem *diagnostic; // that it gave; null if none
    };
    BuildPlace place() const { return {stepElement(), stepConfiguration()}; }
    void tell(const Line &line);
    void tellPending();
    bool isFollowed() const;

    BuildReport &m_report;
    const ProcessPoller &m_poller;
    LastItem &m_lastItem;
    const bool m_isAlone;
    QString m_title;  // of the step that began last
    QString m_output; // of the command that began last
    std::vector<Line> m_pending;
    QElapsedTimer m_runTime;  // of the command
    bool m_isRunning = false; // a command, whose end wasn't told yet
    bool m_hasError = false;  // it has told one
    bool m_isEchoing = false; // that command shows what it runs
    int m_commandCount = 0;
};

class ReportingIdler : public StudioIdler
{
public:
    ReportingIdler(BuildLog &log, BuildReport &report) : StudioIdler(log), m_report(report) {}

    void idle(int) override { m_report.idle(); }
    void stepStarted(const ProjectElement *element, const QString &configuration) override;

private:
    BuildReport &m_report;
};
