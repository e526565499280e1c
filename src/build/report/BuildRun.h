#pragma once

#include "build/report/BuildReport.h"
#include "build/report/LoadedSolution.h"

struct BuildRequest
{
    const ProjectElement *element = nullptr;
    QString configuration;
    BuildFlags flags = 0;
    int jobs = 0; // at a time; 0: as many as there are processors on line
    bool isBatch = false;
};

// Builds, cleans or checks. SIGINT ends it with BuildResult::Terminated.
BuildOutcome runBuild(LoadedSolution &loaded, const BuildRequest &request, BuildReport &report);
