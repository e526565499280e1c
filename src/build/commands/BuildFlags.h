#pragma once

#include <QtGlobal>

// What a build is to do: one word that every operation of it is given.
using BuildFlags = quint32;

struct BuildFlag
{
    static constexpr BuildFlags remove = 0x1;              // delete each node's outputs when it is visited
    static constexpr BuildFlags force = 0x2;               // treat everything as out of date
    static constexpr BuildFlags noRun = 0x4;               // decide, but run no tool, no pre- or post-build step
    static constexpr BuildFlags quiet = 0x8;               // no explanations
    static constexpr BuildFlags noChildren = 0x10;         // the element's own step alone
    static constexpr BuildFlags analyze = 0x40;            // the static analyzer in place of the tools
    static constexpr BuildFlags keepGoing = 0x80;          // failure of a job doesn't end the build
    static constexpr BuildFlags noTitle = 0x100;           // titles are empty
    static constexpr BuildFlags noDepend = 0x200;          // compilers write no dependency files
    static constexpr BuildFlags noUnity = 0x400;           // unity folders are plain folders
    static constexpr BuildFlags showCommands = 0x800;      // print each command line
    static constexpr BuildFlags parallelProjects = 0x1000; // jobs are whole projects
    // Of jobs only:
    static constexpr BuildFlags projectBegin = 0x2000;
    static constexpr BuildFlags projectEnd = 0x4000;
    static constexpr int stepsShift = 16; // number of steps of the project, in a projectBegin job

    static constexpr BuildFlags build = 0;
    static constexpr BuildFlags rebuild = remove | force;
    static constexpr BuildFlags clean = remove | force | noRun;
    static constexpr BuildFlags dryRun = noRun | quiet;
};

// Where a build stands. There is one for a build; who works on it looks at it between steps.
struct BuildState
{
    bool stop = false;   // the user cancelled
    bool failed = false; // a step failed

    bool goesOn() const { return !stop && !failed; }
    void clear() { *this = {}; }
};
