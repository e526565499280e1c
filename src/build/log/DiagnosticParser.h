#pragma once

#include "build/log/Bookmark.h"

#include <QRegularExpression>
#include <vector>

class ProjectElement;

// Turns the lines that a tool prints into records of what is wrong and where. One parser serves one run of one
// tool, which gives it its lines in order; it may remember lines that belong to the next. A parser never fails:
// a line that says nothing to it gives false.
class DiagnosticParser
{
public:
    // Relative files are taken below `directory`, where the tool runs.
    DiagnosticParser(const QString &directory, const QString &tool) : m_directory(directory), m_tool(tool) {}
    virtual ~DiagnosticParser() = default;

    // True when `line` (without its line end) gave `out`, which is otherwise untouched.
    virtual bool parse(const QString &line, Bookmark &out, bool isErrorOutput) = 0;
    // True when the line shall not reach the log at all.
    virtual bool filter(const QString &) { return false; }
    // A command that made `output` ended well.
    virtual void finished(const ProjectElement *, const QString & /*configuration*/, const QString & /*output*/) {}

    // True when the line parsed last gave nothing of its own but belongs to the record before it: an excerpt of
    // the source, a caret under it.
    bool isContinuation() const { return m_isContinuation; }

    const QString &directory() const { return m_directory; }
    const QString &tool() const { return m_tool; }

protected:
    // The path of a file that the tool named; empty when there is no such file.
    QString existingFile(QStringView name) const;

    bool m_isContinuation = false;

private:
    QString m_directory, m_tool;
};

// The general form, whatever the tool: a path, a line and perhaps a column with colons between them, a message,
// and "error: ", "warning: " or "note: " somewhere in the line.
class StandardDiagnosticParser : public DiagnosticParser
{
public:
    using DiagnosticParser::DiagnosticParser;
    bool parse(const QString &line, Bookmark &out, bool isErrorOutput) override;
};

// Up to six patterns of the user, each with captures 1 file, 2 line, 3 text; the first that matches gives a note.
class RegexpDiagnosticParser : public DiagnosticParser
{
public:
    static constexpr int maximumPatterns = 6;

    // Patterns behind the sixth, empty and invalid ones are passed over.
    RegexpDiagnosticParser(const QString &directory, const QString &tool, const QStringList &patterns);
    bool parse(const QString &line, Bookmark &out, bool isErrorOutput) override;

private:
    std::vector<QRegularExpression> m_patterns;
};

// What the STAPL player says of a script: "FILE(LINE): error: TEXT".
class STAPLDiagnosticParser : public DiagnosticParser
{
public:
    using DiagnosticParser::DiagnosticParser;
    bool parse(const QString &line, Bookmark &out, bool isErrorOutput) override;
};
