#pragma once

#include "build/commands/ToolCommands.h"

// The tool chain that is installed with the system: the driver in front of GCC and Clang for ARM and RISC-V.
class StandardToolCommands : public ToolCommands
{
public:
    using ToolCommands::ToolCommands;

    // The target by the processor that the additional options name, the language standard and the like among
    // them, definitions and include directories.
    QStringList languageArguments(const ProjectElement *element, const QString &configuration) override;
};
