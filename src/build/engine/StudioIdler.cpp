#include "build/engine/StudioIdler.h"

#include "build/log/BuildLog.h"
#include "project/model/ProjectElement.h"

void StudioIdler::beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                            int steps)
{
    BuildLogItem *opened = m_log.beginGroup(nullptr, title, lineProject);
    opened->setSteps(steps);
    m_open.push_back({element, configuration, opened});
}

void StudioIdler::stepStarted(const ProjectElement *element, const QString &configuration)
{
    if (BuildLogItem *project = item(element, configuration))
        project->stepDone();
}

void StudioIdler::closeProject(const ProjectElement *element, const QString &configuration)
{
    BuildLogItem *project = item(element, configuration);
    if (!project)
        return;
    m_log.endGroup(project);
    std::erase_if(m_open, [project](const OpenProject &open) { return open.item == project; });
}

void StudioIdler::finishBatch()
{
    for (const OpenProject &open : m_open)
        m_log.endGroup(open.item);
    m_open.clear();
}

BuildLogItem *StudioIdler::item(const ProjectElement *element, const QString &configuration) const
{
    for (const ProjectElement *node = element; node; node = node->parentElement()) {
        for (const OpenProject &open : m_open) {
            if (open.element == node && open.configuration == configuration)
                return open.item;
        }
    }
    return nullptr;
}
