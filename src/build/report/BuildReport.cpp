#include "build/report/BuildReport.h"

#include "build/commands/ToolKind.h"
#include "project/model/ProjectElement.h"

using namespace Qt::StringLiterals;

QString BuildPlace::project() const
{
    const ProjectElement *around = element ? projectAround(element) : nullptr;
    return around ? around->displayName() : QString();
}

QString BuildPlace::node() const
{
    QStringList names;
    for (const ProjectElement *at = element; at && at->parentElement(); at = at->parentElement())
        names.prepend(at->displayName());
    return names.join(u'/');
}

bool BuildOutcome::isDone() const
{
    if (flags & BuildFlag::noRun && !(flags & BuildFlag::remove))
        return result == BuildResult::UpToDate && failures == 0;
    return (result == BuildResult::UpToDate || result == BuildResult::Complete) && failures == 0;
}

QString BuildOutcome::word() const
{
    if (result == BuildResult::Terminated)
        return u"terminated"_s;
    if (result == BuildResult::Failed || failures > 0)
        return u"failed"_s;
    if (flags & BuildFlag::noRun)
        return flags & BuildFlag::remove         ? u"cleaned"_s
               : result == BuildResult::Complete ? u"out of date"_s
                                                 : u"up to date"_s;
    return result == BuildResult::Complete ? u"complete"_s : u"up to date"_s;
}
