#pragma once

#include "build/report/BuildReport.h"
#include "build/report/Terminal.h"

// Shows a build as text: what happens on standard error, its result and the sizes on standard output.
class TextReport : public BuildReport
{
public:
    enum class Detail { Quiet, Reasons, All }; // Quiet: only what tools say and the result
    struct Options
    {
        Detail detail = Detail::Reasons;
        bool showsCommands = false;
        ColorMode colors = ColorMode::Auto;
    };

    explicit TextReport(const Options &options);

    void started(const QString &solution, const QString &configuration, int steps) override;
    void stepCounted() override;
    void stepBegan(const BuildPlace &place, const QString &title) override;
    void commandStarted(const BuildPlace &place, const QString &directory, const QStringList &arguments,
                        const QString &output) override;
    void commandFailed(const BuildPlace &place, const QString &title, int exitStatus) override;
    void output(const BuildPlace &place, const QString &line, Stream stream) override;
    void diagnostic(const BuildPlace &place, const BuildLogItem &item, bool isOfTool) override;
    void note(const BuildPlace &place, NoteKind kind, const QString &text) override;
    void idle() override { m_error.refresh(); }
    void finished(const BuildOutcome &outcome) override;

private:
    struct Problem
    {
        QString project, node; // names; node: of the file, empty for others
        const BuildLogItem *item;
    };
    void printProblem(const Problem &problem);
    void printProblems();

    Options m_options;
    Terminal m_error, m_out;
    int m_steps = 0, m_stepsDone = 0;
    std::vector<Problem> m_problems; // errors, and warnings of our own, as they came
};

// The source line of the place and a caret under its column, from the tool if it has shown them, else from the
// file; empty when there is no such line.
QStringList sourceExcerpt(const Bookmark &bookmark);
// Seen from the current folder if it is below it.
QString shownPath(const QString &path);
