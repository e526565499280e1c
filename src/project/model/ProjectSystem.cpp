#include "project/model/ProjectSystem.h"

#include "project/model/ElementCache_p.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>

using namespace Qt::StringLiterals;

ProjectSystem::ProjectSystem(PropertySchema::Extent extent, QObject *parent)
    : QObject(parent), m_schema(extent), m_noNode(std::make_unique<ElementCache>())
{
    m_schema.setUnregisterListener([this](const PropertyClass *gone) {
        std::erase_if(m_changes, [gone](const PropertyChange &change) { return change.propertyClass == gone; });
    });
}

ProjectSystem::~ProjectSystem() = default;

quint64 ProjectSystem::changeCount() const
{
    return ProjectElement::changeCount() + m_schema.changeCount() + SystemMacroTable::changeCount() + m_outsideChanges;
}

void ProjectSystem::gatherPackageGroups(const QString &packagesDirectory)
{
    m_packageGroupFiles.clear();
    const QDir packages(packagesDirectory);
    for (const QString &package : packages.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString file = packages.filePath(package + "/propertyGroups.xml"_L1);
        if (QFile::exists(file))
            m_packageGroupFiles.append(file);
    }
    ++m_outsideChanges;
}

void ProjectSystem::refresh()
{
    if (m_groupFiles.haveChanged())
        ++m_outsideChanges;
}
