#pragma once

#include <QStringList>
#include <span>

// The programs that commands of a build call by bare names, so that a solution builds alike everywhere and without
// a shell. docs/toolchain.md has their command lines.
struct SmallTool
{
    const char *name;
    const char *usage; // its command line, behind the name
    // Throws HException for a failure, and UsageError for a wrong command line.
    void (*run)(const QStringList &arguments);
};

extern const SmallTool copyTool;            // cp
extern const SmallTool copyDescriptionTool; // xmlcp
extern const SmallTool makeHeaderTool;      // mkhdr
extern const SmallTool changeModeTool;      // chmod
extern const SmallTool removeTool;          // rm

// The program: `arguments` with its name first. Gives the exit status: 0, 1 for a failure, 2 for wrong usage.
int runSmallTool(const SmallTool &tool, std::span<char *const> arguments, const char *version);
