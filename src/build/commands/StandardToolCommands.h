#pragma once

#include "build/commands/ToolCommands.h"

// The option as a clang reads it that is older than the extensions "zicsr" and "zifencei", whose instructions were in
// RISC-V's base set before; it refuses their names and knows the instructions. Newer ones read it too.
QString optionForClang(const QString &option);

// The tool chain that is installed with the system: the driver in front of GCC and Clang for ARM and RISC-V.
class StandardToolCommands : public ToolCommands
{
public:
    using ToolCommands::ToolCommands;

    // The target by the processor that the additional options name, the language standard and the like among
    // them, definitions, include directories, and the folders of the C and C++ library.
    QStringList languageArguments(const ProjectElement *element, const QString &configuration) override;

protected:
    QString compilerBehind(const QStringList &arguments) override;

private:
    // Of sources with these options.
    struct Target
    {
        QStringList options;
        bool isCpp = false;
        QString triple; // empty: none was asked for
        QStringList libraryHeaders;
    };
    const Target &targetOf(const QStringList &options, bool isCpp);

    Target m_target;      // the last one asked for
    QStringList m_choice; // of a compiler, the last one asked for
    QString m_compiler;
};
