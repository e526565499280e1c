#pragma once

#include "build/report/BuildReport.h"

class JsonWriter;

// Writes each event as one line of JSON to standard output, at once.
//
//     {"event": "diagnostic", "project": "app", "configuration": "Debug", "node": "app/main.c", "text": "'x'
//     undeclared",
//      "file": "/x/main.c", "line": 3, "column": 5, "severity": "error"}
class JsonReport : public BuildReport
{
public:
    // With `tellsAll` also what is up to date.
    explicit JsonReport(bool tellsAll) : m_tellsAll(tellsAll) {}

    void started(const QString &solution, const QString &configuration, int steps) override;
    void stepBegan(const BuildPlace &place, const QString &title) override;
    void commandStarted(const BuildPlace &place, const QString &directory, const QStringList &arguments,
                        const QString &output) override;
    void output(const BuildPlace &place, const QString &line, Stream stream) override;
    void diagnostic(const BuildPlace &place, const BuildLogItem &item, bool isOfTool) override;
    void note(const BuildPlace &place, NoteKind kind, const QString &text) override;
    void finished(const BuildOutcome &outcome) override;

private:
    bool m_tellsAll;
};

// A document on one line, with its line feed.
QByteArray oneLine(const JsonWriter &json);
// "none", "result", "note", "warning", "error", "fatal".
QString severityName(Severity severity);
