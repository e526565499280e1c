#pragma once

#include "build/engine/BuildEngine.h"
#include "build/log/BuildLogItem.h"
#include "build/report/SizeReport.h"

class ProjectElement;

// Of what a build speaks; the element may be null.
struct BuildPlace
{
    const ProjectElement *element = nullptr;
    QString configuration;

    QString project() const; // its name; null outside of one
    QString node() const;    // names joined with "/" below the solution
};

struct BuildOutcome
{
    BuildResult result = BuildResult::UpToDate;
    BuildFlags flags = 0;
    int failures = 0; // jobs
    int commands = 0; // that were run
    qint64 milliseconds = 0;
    BuildLogItem::Counters counters;
    std::vector<ProgramSize> sizes;

    bool isDone() const; // whether the program's exit status is 0
    // "up to date", "complete", "failed", "terminated", "cleaned"; of a check "up to date" or "out of date".
    QString word() const;
};

// Shows a build to the user while it runs.
class BuildReport
{
public:
    virtual ~BuildReport() = default;

    virtual void started(const QString & /*solution*/, const QString & /*configuration*/, int /*steps*/) {}
    virtual void stepCounted() {} // one of the steps has been looked at
    // A step with a command begins.
    virtual void stepBegan(const BuildPlace &, const QString & /*title*/) {}
    virtual void commandStarted(const BuildPlace &, const QString & /*directory*/, const QStringList & /*arguments*/,
                                const QString & /*output*/)
    {}
    virtual void commandFailed(const BuildPlace &, const QString & /*title*/, int /*exitStatus*/) {}
    // Echo: a command that the tool-chain driver runs, which it shows because it was told to.
    enum class Stream { Output, Error, Echo };
    virtual void output(const BuildPlace &, const QString & /*line*/, Stream) {}
    // A row with a severity: of a tool, whose line output() has told as well, or of the build itself. It may get
    // an excerpt later.
    virtual void diagnostic(const BuildPlace &, const BuildLogItem &, bool /*isOfTool*/) {}
    enum class NoteKind { Reason, Information, UpToDate };
    virtual void note(const BuildPlace &, NoteKind, const QString & /*text*/) {}
    virtual void idle() {} // called often
    virtual void finished(const BuildOutcome &) {}
};
