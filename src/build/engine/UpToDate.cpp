#include "build/engine/UpToDate.h"

#include "build/commands/Builder.h"
#include "build/commands/ToolCommands.h"
#include "build/engine/BuildEngine.h"
#include "project/model/ProjectSystem.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 nanoseconds = 1'000'000'000;

QString timeText(qint64 time)
{
    return QDateTime::fromSecsSinceEpoch(time / nanoseconds).toString(u"dd.MM.yyyy hh:mm:ss"_s);
}

bool isAtOrAbove(const ProjectElement *above, const ProjectElement *element)
{
    while (element && element != above)
        element = element->parentElement();
    return element;
}

} // namespace

void UpToDate::tell(const QString &text)
{
    if (m_builder)
        m_builder->reportDetail(text);
}

bool UpToDate::targetTime(FileTimes::Id target, const QString &name)
{
    m_name = name;
    m_id = target;
    m_target = m_engine.times().stamp(target);
    if (!m_target.time)
        tell(name + " does not exist."_L1);
    return m_target.time != 0;
}

bool UpToDate::exists(const QString &directory, const QString &name)
{
    if (m_engine.times().exists(absolutePath(directory, name)))
        return true;
    tell(name + " does not exist."_L1);
    return false;
}

bool UpToDate::inputOlder(FileTimes::Id input, const QString &name)
{
    FileTimes &times = m_engine.times();
    const qint64 time = times.stamp(input).time;
    if (!time) {
        tell(name + " does not exist."_L1);
        return false;
    }
    if (m_builder && time > times.lastNow() && time > times.now())
        tell("clock skew detected on "_L1 + name + u'.');
    if (time / nanoseconds <= m_target.time / nanoseconds && !times.isWritten(input))
        return true;
    if (m_builder)
        tell(name + " ("_L1 + timeText(time) + ") is newer than "_L1 + m_name + " ("_L1 + timeText(m_target.time) +
             ")."_L1);
    return false;
}

bool UpToDate::inputsOlder(const QString &directory, const QStringList &inputs)
{
    return std::all_of(inputs.begin(), inputs.end(), [&](const QString &name) {
        return inputOlder(m_engine.times().id(absolutePath(directory, name)), name);
    });
}

bool UpToDate::optionsUpToDate(const ProjectElement *element, const QString &configuration, ToolKind kind,
                               bool hasFiles)
{
    StandardProjectSystem &system = m_engine.system();
    const std::optional<BuildTool> tool = buildToolOf(kind);
    for (const PropertyChange &change : system.changes()) {
        const bool isLater = change.time.toMSecsSinceEpoch() * 1'000'000 > m_target.time;
        if (!isLater || !tool || !(system.schema().toolsOf(change.propertyClass) & buildToolBit(*tool)))
            continue;
        const bool isSeen = change.configuration == configuration || change.configuration == "Common"_L1 ||
                            system.inheritedConfigurations(element, configuration).contains(change.configuration);
        if (!isSeen || !isAtOrAbove(change.element, element))
            continue;
        tell(change.propertyClass->name + " property has changed."_L1);
        return false;
    }
    return !hasFiles || inputsOlder({}, m_engine.tools().optionFiles(kind, element, configuration));
}

bool UpToDate::commandUpToDate(const ProjectElement *element, const QString &configuration, quint64 hash)
{
    CommandRecord &record = m_engine.record(element, configuration);
    return commandUpToDate(record, record.entry(m_engine.times().path(m_id)).command, hash);
}

bool UpToDate::commandUpToDate(CommandRecord &record, quint64 known, quint64 hash)
{
    if (!known && m_engine.runsTools()) // it counts as made by this one, so that the next change is seen
        record.setCommand(m_engine.times().path(m_id), hash);
    if (!known || known == hash)
        return true;
    tell(m_name + (known == CommandRecord::unfinished ? " wasn't finished."_L1 : " command line has changed."_L1));
    return false;
}
