#pragma once

#include "build/log/Bookmark.h"

#include <memory>
#include <vector>

// Flags of a row of a log. Bits 0 to 7 are its severity.
enum BuildLogFlag : quint32 {
    logSeverityMask = 0xFF,
    logWideColumns = 0x700, // three switches of the row's columns, for a window
    logNotCounted = 0x800,  // stays out of the counters above it
    logResultLine = 0x2000, // marks a line about the build itself; no effect of its own
    logTimed = 0x4000,      // started now, shows the time that it takes
    logBytes = 0x8000,      // what the steps are, for the final rate
    logTargets = 0x10000,
    logFiles = 0x20000,
    logProjects = 0x40000,
    logFolders = 0x80000,
    logCanOpen = 1u << 20,
    logOpen = 1u << 21,
    logComplete = 1u << 23,  // complete from the start
    logSucceeded = 1u << 24, // gradient of success
    logFailed = 1u << 25,    // gradient of failure
};

// Flags of the lines that a build writes.
enum BuildLine : quint32 {
    lineProject = logTimed | logTargets,
    lineBuildComplete = logResultLine | logTimed | logProjects, // with errors or warnings; else also logSucceeded
    lineBuildFailed = logFailed | logResultLine | 0x100,        // and "Build terminated"
    lineUpToDate = logResultLine | 0x100,                       // with errors; else also logSucceeded
    lineCleaned = logSucceeded | logResultLine,
    lineCommand = logCanOpen | 0x400,
    lineNote = logComplete,
};

enum class Gradient { None = 0, Success = 35, Failure = 37 }; // the colours' numbers

// A row of a log: a message, or a group with rows below it, which counts what they say.
class BuildLogItem
{
public:
    struct Counters
    {
        int fatals = 0; // also among the errors
        int errors = 0;
        int warnings = 0;
        int notes = 0;
        int successes = 0;
    };
    enum class Icon { None, Note, Success, Warning, Error };

    BuildLogItem(BuildLogItem *parent, const QString &text, quint32 flags, qint64 now);
    BuildLogItem(const BuildLogItem &) = delete;
    BuildLogItem &operator=(const BuildLogItem &) = delete;

    BuildLogItem *parent() const { return m_parent; } // null at the top level
    const std::vector<std::unique_ptr<BuildLogItem>> &children() const { return m_children; }
    BuildLogItem *add(const QString &text, quint32 flags, qint64 now);

    const QString &text() const { return m_text; }
    void setText(const QString &text) { m_text = text; }
    quint32 flags() const { return m_flags; }
    Severity severity() const { return m_severity; }
    const Counters &counters() const { return m_counters; } // the row's own severity and those below it
    Icon icon() const;                                      // the worst of the counters
    bool isOpen() const { return m_isOpen; }
    void setOpen(bool open) { m_isOpen = open; }
    Gradient gradient() const { return m_gradient; }
    void setGradient(Gradient gradient) { m_gradient = gradient; }

    const Bookmark &bookmark() const { return m_bookmark; }
    void setBookmark(const Bookmark &bookmark) { m_bookmark = bookmark; }
    void addExcerpt(const QString &line) { m_bookmark.excerpt += line; }

    // What a search found, in the text.
    void setHighlight(int position, int length) { m_highlight = {position, length}; }
    std::pair<int, int> highlight() const { return m_highlight; } // position and length

    // Counts a severity here and in every parent.
    void count(Severity severity);
    void countSuccess();

    // "1 Error", "2 Warnings", "1 Note" for columns 0, 1, 2; empty for none and for a row without children. A
    // badge text of its own stands in for column 0.
    QString badge(int column) const;
    void setBadge(const QString &text) { m_badge = text; }

    // Timing of a row with logTimed; times are ms since 1970. Empty for other rows.
    void setSteps(int total) { m_steps = total; }
    void setStarted(qint64 time) { m_start = time; }
    void stepDone() { ++m_stepsDone; }
    int steps() const { return m_steps; }
    int stepsDone() const { return m_stepsDone; }
    qint64 started() const { return m_start; }
    bool isComplete() const { return m_isComplete; }
    void complete(qint64 now);
    QString elapsedText(qint64 now) const; // "2.5s"; with steps the time that is left; then "Completed"
    QString rateText() const;              // "12 files/s" of a complete row
    int busyFrame(qint64 now) const { return int((now - m_start) / 1000 & 3); } // of four, one a second

private:
    BuildLogItem *m_parent;
    std::vector<std::unique_ptr<BuildLogItem>> m_children;
    QString m_text, m_badge;
    quint32 m_flags;
    Severity m_severity;
    Counters m_counters;
    Gradient m_gradient;
    bool m_isOpen;
    bool m_isComplete = false;
    qint64 m_start, m_end = 0;
    int m_steps = 0, m_stepsDone = 0;
    Bookmark m_bookmark;
    std::pair<int, int> m_highlight;
};

// "9.5s", "59s", "1:05s".
QString durationText(qint64 ms);
