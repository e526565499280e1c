#pragma once

#include <QList>
#include <QString>

class Builder;
class ProjectElement;

// What a build tells its surroundings. One that does nothing is good enough for a build that nobody watches.
class Idler
{
public:
    virtual ~Idler() = default;

    virtual void idle(int /*busyCount*/) {} // called often; may run the event loop
    // A project begins, which will have that many steps.
    virtual void beginStep(const ProjectElement *, const QString & /*title*/, const QString & /*configuration*/,
                           int /*steps*/)
    {}
    virtual void stepStarted(const ProjectElement *, const QString & /*configuration*/) {}
    virtual void closeProject(const ProjectElement *, const QString & /*configuration*/) {}
    // A run of commands is over: what was opened is to be forgotten.
    virtual void finishBatch() {}
    virtual void idleBusy(int busyCount, const QList<Builder *> & /*busyBuilders*/) { idle(busyCount); }
};
