#pragma once

#include <QStringList>

class ProjectElement;
class QObject;

// What carries out the steps of a build, or records them, or writes them down: the build decides and says what
// to do, a Builder does it.
//
// A step opens with beginStep and closes with endStep; steps nest. Elements may be null. A command that fails is
// known by the build's state, and its output is gone then.
class Builder
{
public:
    virtual ~Builder() = default;

    // Forgets the stack of open steps; called before each build.
    virtual void reset() {}
    // `steps`: how many will follow, for the progress of a project; 0 below that.
    virtual void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                           int steps) = 0;
    virtual void endStep(const ProjectElement *element, const QString &configuration) = 0;

    // Command and arguments. `output` is the absolute path of the file that the command makes, empty if none.
    virtual void runCommand(const QString &directory, const QStringList &arguments, const QString &output) = 0;
    // The same without waiting; one command at a time.
    virtual void startCommand(const QString &directory, const QStringList &arguments, const QString &output) = 0;
    // Whether the command that was started last has ended.
    virtual bool pollCommand(const ProjectElement *element, const QString &configuration) = 0;

    virtual void reportError(const QString &text) = 0;
    virtual void reportWarning(const QString &text) = 0;
    virtual void reportInfo(const QString &text) = 0;
    virtual void reportNote(const QString &text) = 0;
    virtual void reportDetail(const QString &text) = 0; // why something is built

    virtual void markFailed() {} // the open step
    // What shows this builder's progress in a window; null if nothing does.
    virtual QObject *progressTarget() { return nullptr; }
    // Whether a linker's output is acceptable.
    virtual bool verifyOutput(const QString &path) = 0;
    // What follows belongs to the item that the Idler opened for this element's project.
    virtual void attachJob(const ProjectElement *, const QString &) {}
};

// Does nothing and finds everything good.
class NullBuilder : public Builder
{
public:
    void beginStep(const ProjectElement *, const QString &, const QString &, int) override {}
    void endStep(const ProjectElement *, const QString &) override {}
    void runCommand(const QString &, const QStringList &, const QString &) override {}
    void startCommand(const QString &, const QStringList &, const QString &) override {}
    bool pollCommand(const ProjectElement *, const QString &) override { return true; }
    void reportError(const QString &) override {}
    void reportWarning(const QString &) override {}
    void reportInfo(const QString &) override {}
    void reportNote(const QString &) override {}
    void reportDetail(const QString &) override {}
    bool verifyOutput(const QString &) override { return true; }
};
