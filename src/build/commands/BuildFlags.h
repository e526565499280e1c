#pragma once

#include <QtGlobal>

// What a build is to do: one word that every operation of it is given.
using BuildFlags = quint32;

struct BuildFlag
{
    static constexpr BuildFlags Remove = 0x1;             // delete each node's outputs when it is visited
    static constexpr BuildFlags Force = 0x2;              // treat everything as out of date
    static constexpr BuildFlags NoRun = 0x4;              // decide, but run no tool, no pre- or post-build step
    static constexpr BuildFlags Quiet = 0x8;              // no explanations
    static constexpr BuildFlags NoChildren = 0x10;        // the element's own step alone
    static constexpr BuildFlags Analyze = 0x40;           // the static analyzer in place of the tools
    static constexpr BuildFlags KeepGoing = 0x80;         // failure of a job doesn't end the build
    static constexpr BuildFlags NoTitle = 0x100;          // titles are empty
    static constexpr BuildFlags NoDepend = 0x200;         // compilers write no dependency files
    static constexpr BuildFlags NoUnity = 0x400;          // unity folders are plain folders
    static constexpr BuildFlags ShowCommands = 0x800;     // print each command line
    static constexpr BuildFlags ParallelProjects = 0x1000; // jobs are whole projects
    // Of jobs only:
    static constexpr BuildFlags ProjectBegin = 0x2000;
    static constexpr BuildFlags ProjectEnd = 0x4000;
    static constexpr int StepsShift = 16; // number of steps of the project, in a ProjectBegin job

    static constexpr BuildFlags Build = 0;
    static constexpr BuildFlags Rebuild = Remove | Force;
    static constexpr BuildFlags Clean = Remove | Force | NoRun;
    static constexpr BuildFlags DryRun = NoRun | Quiet;
};

// Where a build stands. There is one for a build; who works on it looks at it between steps.
struct BuildState
{
    bool stop = false;   // the user cancelled
    bool failed = false; // a step failed

    bool goesOn() const { return !stop && !failed; }
    void clear() { *this = {}; }
};
