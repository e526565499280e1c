#pragma once

#include "build/log/Bookmark.h"
#include "build/report/LoadedSolution.h"

struct SolutionWarning
{
    const ProjectElement *element;
    Bookmark bookmark; // the line of the solution's file
};

// Values of known properties that these can't have, as a slip in a solution that was edited by hand leaves them: the
// build takes them for something else without a word. Values with macros aren't looked at.
std::vector<SolutionWarning> solutionWarnings(LoadedSolution &loaded);
