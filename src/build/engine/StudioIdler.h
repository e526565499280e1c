#pragma once

#include "build/commands/Idler.h"

#include <vector>

class BuildLog;
class BuildLogItem;

// Opens an item of the log for each project that is built, counts its steps and closes it.
class StudioIdler : public Idler
{
public:
    explicit StudioIdler(BuildLog &log) : m_log(log) {}

    void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                   int steps) override;
    void stepStarted(const ProjectElement *element, const QString &configuration) override;
    void closeProject(const ProjectElement *element, const QString &configuration) override;
    void finishBatch() override;

    // Of the project that is open around the element; null if none is.
    BuildLogItem *item(const ProjectElement *element, const QString &configuration) const;

private:
    struct OpenProject
    {
        const ProjectElement *element;
        QString configuration;
        BuildLogItem *item;
    };

    BuildLog &m_log;
    std::vector<OpenProject> m_open;
};
