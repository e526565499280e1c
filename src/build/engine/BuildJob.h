#pragma once

#include "build/commands/BuildFlags.h"

#include <QString>
#include <vector>

class ProjectElement;

// An entry of a build's job list, which the scheduler works off in order. Jobs between two barriers may run side
// by side.
struct BuildJob
{
    const ProjectElement *element; // null: a barrier
    QString configuration;
    BuildFlags flags; // with the job's; the steps of a project-begin job in the upper 16 bits
    QString title;    // of a project-begin job

    bool isBarrier() const { return !element; }
};

using BuildJobs = std::vector<BuildJob>;
